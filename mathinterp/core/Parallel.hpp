// The one query loop of the engine: serial below PARALLEL_MIN_QUERIES, otherwise a oneTBB
// parallel loop with grain QUERY_GRAIN under the automatic partitioner, in a task-group
// context of its own so that an exception thrown in a body cancels the loop and reaches the
// caller. The body is called per sub-range [b, e); serial and parallel runs call the same body.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#include <utility>

namespace mathinterp {

namespace detail {
using RangeFn = void (*)(void* body, u64 begin, u64 end);
// Non-template so that the scheduler code is compiled once, not per method combination.
void runRanges(u64 n, u64 minParallel, u64 grain, RangeFn fn, void* body);
bool inSerialScope() noexcept;
} // namespace detail

// While one lives on a thread, forEachRange runs serially on that thread: for work nested in
// an outer parallel loop that already keeps every core busy.
class SerialScope {
public:
    SerialScope() noexcept;
    ~SerialScope();
    SerialScope(const SerialScope&) = delete;
    SerialScope& operator=(const SerialScope&) = delete;
};

// Run body(b, e) over [0, n): serially when n < minParallel, else in parallel.
template <class Body>
void forEachRange(u64 n, Body& body, u64 minParallel = PARALLEL_MIN_QUERIES,
                  u64 grain = QUERY_GRAIN) {
    if (n == 0) return;
    if (n < minParallel || detail::inSerialScope()) {
        body(u64{0}, n);
        return;
    }
    detail::runRanges(
        n, minParallel, grain,
        [](void* b, u64 begin, u64 end) { (*static_cast<Body*>(b))(begin, end); }, &body);
}

} // namespace mathinterp
