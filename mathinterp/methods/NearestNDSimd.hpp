// The scattered 2-D and 3-D nearest-point kernel four queries at a time with AVX2 (double
// grid, values and queries): the packed interval search, the same half-way comparison as
// NearestND::makePair (ties go up), and one load per query. A group with a NaN coordinate or a
// guess that needs a bisection takes the scalar kernel.
#pragma once

#include "mathinterp/core/SimdSearch.hpp"

namespace mathinterp::simd {

#ifdef MATHINTERP_SIMD

// Queries [b, e) of columns col[0..D); out[q * outStride]. one(q) is the scalar kernel.
template <int D, class One>
__attribute__((target("avx2"))) void nearestScattered(const SimdAxis* ax, const double* values,
                                                      const double* const* col, u64 b, u64 e,
                                                      double* out, u64 outStride, One&& one) {
    const __m256i pack = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6); // 64-bit masks to 32-bit
    u64 q = b;
    for (; q + 4 <= e; q += 4) {
        prefetchQueries(col, D, q, e);
        __m128i offset = _mm_setzero_si128();
        __m256d bad = _mm256_setzero_pd();
        for (int k = 0; k < D; ++k) {
            const __m256d x = _mm256_loadu_pd(col[k] + q);
            __m128i i;
            __m256d gi, gi1;
            locateCell(ax[k], x, i, gi, gi1, bad);
            bad = _mm256_or_pd(bad, _mm256_cmp_pd(x, x, _CMP_UNORD_Q)); // NaN: scalar rule
            const __m256d up =
                _mm256_cmp_pd(_mm256_sub_pd(x, gi), _mm256_sub_pd(gi1, x), _CMP_GE_OQ);
            const __m128i upI =
                _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_castpd_si256(up), pack));
            const __m128i chosen = _mm_sub_epi32(i, upI); // an all-ones lane adds one
            offset = _mm_add_epi32(offset, _mm_mullo_epi32(chosen, _mm_set1_epi32(ax[k].stride)));
        }
        if (_mm256_movemask_pd(bad) != 0) {
            for (u64 l = 0; l < 4; ++l)
                out[(q + l) * outStride] = one(q + l);
            continue;
        }
        alignas(16) std::int32_t o[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(o), offset);
        for (u64 l = 0; l < 4; ++l)
            out[(q + l) * outStride] = values[o[l]];
    }
    for (; q < e; ++q)
        out[q * outStride] = one(q);
}

#else

template <int D, class One>
void nearestScattered(const SimdAxis*, const double*, const double* const*, u64 b, u64 e,
                      double* out, u64 outStride, One&& one) {
    for (u64 q = b; q < e; ++q)
        out[q * outStride] = one(q);
}

#endif

} // namespace mathinterp::simd
