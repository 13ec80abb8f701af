// The single-precision packed search's per-dimension record (the search itself is
// locateGuessF in PackedSearch-inl.hpp): each lane gets the interval of
// IntervalSearch<float, float>::find.
#pragma once

#include "mathinterp/core/BucketIndex.hpp"
#include "mathinterp/core/SimdSearch.hpp"

#include <cstdint>
#include <type_traits>

namespace mathinterp::simd {

template <class G, class V, class Q>
inline constexpr bool allSingle =
    std::is_same_v<G, float>&& std::is_same_v<V, float>&& std::is_same_v<Q, float>;

// One dimension of a single-precision grid as the packed search sees it.
struct SimdAxisF {
    const float* g = nullptr;
    float second = 0, penultimate = 0; // g[1], g[n-2]
    float inv = 0, firstTimesInv = 0;  // guess = x * inv - firstTimesInv (only a starting cell)
    std::int32_t last = 0;             // n - 2
    std::int32_t stride = 0;
    // Set when every g[i] is g[0] + float(i) * step as the packed code forms it (the product,
    // then the sum, each rounded in single): a cell's ends are then computed, not gathered.
    bool arithmetic = false;
    float step = 0;
    // A 1-D method's bucket index, or null: each lane then runs the index's own search.
    const BucketIndex* index = nullptr;
};

// The packed search's record of a grid of precision T.
template <class T>
using SimdAxisOf = std::conditional_t<std::is_same_v<T, double>, SimdAxis, SimdAxisF>;

inline SimdAxisF simdAxisF(const float* g, u64 n, float ms, u64 stride) noexcept {
    SimdAxisF a;
    a.g = g;
    a.second = g[1];
    a.penultimate = g[n - 2];
    a.inv = 1.0f / ms;
    a.firstTimesInv = g[0] * a.inv;
    a.last = static_cast<std::int32_t>(n - 2);
    a.stride = static_cast<std::int32_t>(stride);
    const float step = g[1] - g[0];
    bool exact = step > 0;
    for (u64 i = 0; exact && i < n; ++i)
        exact = g[0] + static_cast<float>(static_cast<std::int32_t>(i)) * step == g[i];
    a.arithmetic = exact;
    a.step = exact ? step : 0.0f;
    return a;
}

} // namespace mathinterp::simd
