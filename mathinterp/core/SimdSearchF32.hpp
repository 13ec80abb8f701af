// The packed (AVX2) interval search of eight single-precision queries at once, shared by the
// single-precision scattered kernels of LinearND and NearestND: each lane gets the interval of
// IntervalSearch<float, float>::find; a lane whose guess misses is flagged for the scalar
// kernel (the guess only picks a starting cell, so its rounding cannot change a result).
#pragma once

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
};

inline SimdAxisF simdAxisF(const float* g, u64 n, float ms, u64 stride) noexcept {
    SimdAxisF a;
    a.g = g;
    a.second = g[1];
    a.penultimate = g[n - 2];
    a.inv = 1.0f / ms;
    a.firstTimesInv = g[0] * a.inv;
    a.last = static_cast<std::int32_t>(n - 2);
    a.stride = static_cast<std::int32_t>(stride);
    return a;
}

#ifdef MATHINTERP_SIMD

__attribute__((target("avx2"))) inline __m256 gatherPs(const float* base, __m256i idx) noexcept {
    return _mm256_mask_i32gather_ps(_mm256_setzero_ps(), base, idx,
                                    _mm256_castsi256_ps(_mm256_set1_epi32(-1)), 4);
}

// Lane l of x: interval i (as IntervalSearch<float, float>::find) with the cell's ends gi and
// gi1; bad is set where the guess missed (not for NaN: a NaN lane lands in the first cell).
__attribute__((target("avx2"))) inline void locateCellF(const SimdAxisF& a, __m256 x, __m256i& iOut,
                                                        __m256& gi, __m256& gi1,
                                                        __m256& bad) noexcept {
    const __m256 low = _mm256_cmp_ps(x, _mm256_set1_ps(a.second), _CMP_NGE_UQ);
    const __m256 high = _mm256_cmp_ps(x, _mm256_set1_ps(a.penultimate), _CMP_GE_OQ);
    __m256 guess =
        _mm256_sub_ps(_mm256_mul_ps(x, _mm256_set1_ps(a.inv)), _mm256_set1_ps(a.firstTimesInv));
    guess = _mm256_min_ps(_mm256_max_ps(guess, _mm256_setzero_ps()),
                          _mm256_set1_ps(static_cast<float>(a.last)));
    __m256i i = _mm256_cvttps_epi32(guess);
    i = _mm256_andnot_si256(_mm256_castps_si256(low), i);
    i = _mm256_blendv_epi8(i, _mm256_set1_epi32(a.last), _mm256_castps_si256(high));
    gi = gatherPs(a.g, i);
    gi1 = gatherPs(a.g + 1, i);
    const __m256 inCell =
        _mm256_and_ps(_mm256_cmp_ps(x, gi, _CMP_GE_OQ), _mm256_cmp_ps(x, gi1, _CMP_LT_OQ));
    bad = _mm256_or_ps(bad, _mm256_andnot_ps(_mm256_or_ps(_mm256_or_ps(low, high), inCell),
                                             _mm256_castsi256_ps(_mm256_set1_epi32(-1))));
    iOut = i;
}

// Stores the eight lanes of r at out[(q + l) * outStride], then redoes the lanes flagged in
// bad with the scalar kernel one(q + l).
template <class One>
__attribute__((target("avx2"))) inline void storeOrRedoF(__m256 r, __m256 bad, u64 q, float* out,
                                                         u64 outStride, One& one) {
    if (outStride == 1) {
        _mm256_storeu_ps(out + q, r);
    } else {
        alignas(32) float v[8];
        _mm256_store_ps(v, r);
        for (u64 l = 0; l < 8; ++l)
            out[(q + l) * outStride] = v[l];
    }
    for (unsigned m8 = static_cast<unsigned>(_mm256_movemask_ps(bad)); m8 != 0; m8 &= m8 - 1) {
        const u64 l = static_cast<u64>(__builtin_ctz(m8));
        out[(q + l) * outStride] = one(q + l);
    }
}

#endif

} // namespace mathinterp::simd
