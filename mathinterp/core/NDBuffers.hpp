// Per-thread scratch of the N-D kernels and the query tables of gridded evaluation.
// DefaultBuffer holds one value per cell corner (2^d for LinearND, 4^d for the cubic methods);
// NoBuffer stands for "this kernel needs none". The drivers copy one exemplar per worker
// thread, so a kernel never allocates per point.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#include <platform/HostAllocator.hpp>

namespace mathinterp {

template <class V>
struct DefaultBuffer {
    platform::HostVector<V> values;

    DefaultBuffer() = default;
    // n entries; a size whose byte count overflows is refused before anything is allocated.
    explicit DefaultBuffer(u64 n) : values((static_cast<void>(checkedBytes<V>(n)), n)) {}
    V* data() noexcept { return values.data(); }
    u64 size() const noexcept { return values.size(); }
};

struct NoBuffer {};

// The query side of a gridded evaluation as a whole-grid path sees it: per dimension k the
// pairs of its m_k query coordinates; results column-major over m_0 x ... x m_(d-1).
template <class Pair>
struct GriddedPairs {
    const Pair* const* tables;
    const u64* lengths;
    u64 numDims;
    u64 total;
};

} // namespace mathinterp
