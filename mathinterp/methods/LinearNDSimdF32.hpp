// The scattered 2-D and 3-D multilinear kernel eight queries at a time with AVX2 for single
// grids, values and queries: the single-precision interval search's comparisons, makePair's
// fraction and the first reduction pass in packed single operations, so each lane has the
// scalar kernel's bits. A lane whose guess misses, or with a NaN fraction or result, is
// redone by the scalar kernel.
#pragma once

#include "mathinterp/core/SimdSearchF32.hpp"

#include <cstdint>
#include <type_traits>

namespace mathinterp::simd {

#ifdef MATHINTERP_SIMD

// Lane l of x: interval i and t = (x - g[i]) / (g[i+1] - g[i]); bad where the guess missed or
// t is NaN.
__attribute__((target("avx2"))) inline void locateF(const SimdAxisF& a, __m256 x, __m256i& iOut,
                                                    __m256& tOut, __m256& bad) noexcept {
    __m256 gi, gi1;
    locateCellF(a, x, iOut, gi, gi1, bad);
    tOut = _mm256_div_ps(_mm256_sub_ps(x, gi), _mm256_sub_ps(gi1, gi));
    bad = _mm256_or_ps(bad, _mm256_cmp_ps(tOut, tOut, _CMP_UNORD_Q));
}

// Queries [b, e) of columns col[0..D); out[q * outStride]. one(q) is the scalar kernel.
template <int D, class One>
__attribute__((target("avx2"))) void
linearScatteredF(const SimdAxisF* ax, const float* values, const std::int32_t* cornerOffsets,
                 const float* const* col, u64 b, u64 e, float* out, u64 outStride, One&& one) {
    constexpr int C = 1 << D;
    const __m256 oneV = _mm256_set1_ps(1.0f);
    u64 q = b;
    for (; q + 8 <= e; q += 8) {
        if (q + 64 + 8 <= e)
            for (int k = 0; k < D; ++k)
                prefetchLine(col[k] + q + 64);
        __m256i offset = _mm256_setzero_si256();
        __m256 t[D];
        __m256 bad = _mm256_setzero_ps();
        for (int k = 0; k < D; ++k) {
            __m256i i;
            locateF(ax[k], _mm256_loadu_ps(col[k] + q), i, t[k], bad);
            offset =
                _mm256_add_epi32(offset, _mm256_mullo_epi32(i, _mm256_set1_epi32(ax[k].stride)));
        }
        __m256 s[C];
        for (int c = 0; c < C; c += 2) { // corners c and c + 1 are neighbours in memory
            const float* base = values + cornerOffsets[c];
            s[c] = gatherPs(base, offset);
            s[c + 1] = gatherPs(base + 1, offset);
        }
        int m = C;
        for (int k = 0; k < D; ++k) {
            const __m256 w = t[k];
            const __m256 u = _mm256_sub_ps(oneV, w);
            for (int j = 0; j < m; j += 2) {
                const __m256 lower = _mm256_mul_ps(s[j], u);
                const __m256 upper = _mm256_mul_ps(s[j + 1], w);
                const __m256 eq = _mm256_cmp_ps(s[j], s[j + 1], _CMP_EQ_OQ);
                s[j >> 1] = _mm256_blendv_ps(_mm256_add_ps(lower, upper), s[j], eq);
            }
            m >>= 1;
        }
        bad = _mm256_or_ps(bad, _mm256_cmp_ps(s[0], s[0], _CMP_UNORD_Q)); // second pass: scalar
        storeOrRedoF(s[0], bad, q, out, outStride, one);
    }
    for (; q < e; ++q)
        out[q * outStride] = one(q);
}

#else

template <int D, class One>
void linearScatteredF(const SimdAxisF*, const float*, const std::int32_t*, const float* const*,
                      u64 b, u64 e, float* out, u64 outStride, One&& one) {
    for (u64 q = b; q < e; ++q)
        out[q * outStride] = one(q);
}

#endif

} // namespace mathinterp::simd
