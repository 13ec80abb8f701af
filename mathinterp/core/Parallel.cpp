// The oneTBB loop behind forEachRange.
#include "mathinterp/core/Parallel.hpp"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>
#include <tbb/task_group.h>

namespace mathinterp {
namespace {
thread_local int t_serialDepth = 0;
} // namespace

SerialScope::SerialScope() noexcept {
    ++t_serialDepth;
}
SerialScope::~SerialScope() {
    --t_serialDepth;
}

namespace detail {

bool inSerialScope() noexcept {
    return t_serialDepth > 0;
}

void runRanges(u64 n, u64 /*minParallel*/, u64 grain, RangeFn fn, void* body) {
    tbb::task_group_context context;
    tbb::parallel_for(
        tbb::blocked_range<u64>(0, n, grain),
        [&](const tbb::blocked_range<u64>& r) { fn(body, r.begin(), r.end()); },
        tbb::auto_partitioner(), context);
}

} // namespace detail
} // namespace mathinterp
