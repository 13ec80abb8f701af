// The worker-thread cap of the Python face: one tbb::global_control at a time, replaced on
// every change (oneTBB applies the smallest of all live limits, so stacking would never let
// a limit rise again).
#pragma once

#include <cstddef>

namespace mathinterp_py {

// n >= 1 caps the worker threads at n; n == 0 removes the cap.
void setThreadLimit(std::size_t n);
// The cap set through setThreadLimit, 0 when none.
std::size_t threadLimit() noexcept;
// The parallelism oneTBB allows now.
std::size_t activeParallelism() noexcept;

} // namespace mathinterp_py
