// tbb::global_control holder for mathinterp.set_num_threads.
#include "Threads.hpp"

#include <tbb/global_control.h>

#include <memory>
#include <mutex>

namespace mathinterp_py {

namespace {
std::mutex g_mutex;
std::unique_ptr<tbb::global_control> g_control;
std::size_t g_limit = 0;
} // namespace

void setThreadLimit(std::size_t n) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_control.reset();
    g_limit = n;
    if (n > 0)
        g_control =
            std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, n);
}

std::size_t threadLimit() noexcept {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_limit;
}

std::size_t activeParallelism() noexcept {
    return tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism);
}

} // namespace mathinterp_py
