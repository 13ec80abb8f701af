// The scattered 2-D and 3-D multilinear kernel four queries at a time with AVX2 (double grid,
// values and queries): corner loads and the first reduction pass in packed form over the
// packed interval search. Each lane gets exactly the scalar kernel's bits; a group of four
// whose guess needs a bisection, or with a NaN fraction or result, takes the scalar kernel.
#pragma once

#include "mathinterp/core/SimdSearch.hpp"

namespace mathinterp::simd {

#ifdef MATHINTERP_SIMD

// Queries [b, e) of columns col[0..D); out[q * outStride]. one(q) is the scalar kernel.
template <int D, class One>
__attribute__((target("avx2"))) void
linearScattered(const SimdAxis* ax, const double* values, const std::int32_t* cornerOffsets,
                const double* const* col, u64 b, u64 e, double* out, u64 outStride, One&& one) {
    constexpr int C = 1 << D;
    const __m256d oneV = _mm256_set1_pd(1.0);
    u64 q = b;
    for (; q + 4 <= e; q += 4) {
        prefetchQueries(col, D, q, e);
        __m128i offset = _mm_setzero_si128();
        __m256d t[D];
        __m256d bad = _mm256_setzero_pd();
        for (int k = 0; k < D; ++k) {
            __m128i i;
            locate(ax[k], _mm256_loadu_pd(col[k] + q), i, t[k], bad);
            offset = _mm_add_epi32(offset, _mm_mullo_epi32(i, _mm_set1_epi32(ax[k].stride)));
        }
        __m256d s[C];
        for (int c = 0; c < C; c += 2) // corners c and c + 1 are neighbours in memory
            loadPairs(values, _mm_add_epi32(offset, _mm_set1_epi32(cornerOffsets[c])), s[c],
                      s[c + 1]);
        int m = C;
        for (int k = 0; k < D; ++k) {
            const __m256d w = t[k];
            const __m256d u = _mm256_sub_pd(oneV, w);
            for (int j = 0; j < m; j += 2) {
                const __m256d lower = _mm256_mul_pd(s[j], u);
                const __m256d upper = _mm256_mul_pd(s[j + 1], w);
                const __m256d eq = _mm256_cmp_pd(s[j], s[j + 1], _CMP_EQ_OQ);
                s[j >> 1] = _mm256_blendv_pd(_mm256_add_pd(lower, upper), s[j], eq);
            }
            m >>= 1;
        }
        // NaN results (the second pass's business) go the scalar way too.
        bad = _mm256_or_pd(bad, _mm256_cmp_pd(s[0], s[0], _CMP_UNORD_Q));
        storeOrFallBack(s[0], bad, q, out, outStride, one);
    }
    for (; q < e; ++q)
        out[q * outStride] = one(q);
}

#else

template <int D, class One>
void linearScattered(const SimdAxis*, const double*, const std::int32_t*, const double* const*,
                     u64 b, u64 e, double* out, u64 outStride, One&& one) {
    for (u64 q = b; q < e; ++q)
        out[q * outStride] = one(q);
}

#endif

} // namespace mathinterp::simd
