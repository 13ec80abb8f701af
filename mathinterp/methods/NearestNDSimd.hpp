// The scattered 2-D and 3-D nearest-point kernel with AVX2, four double or eight single
// queries at a time (grid, values and queries of one precision): the packed interval search,
// the same half-way comparison as NearestND::makePair (ties go up), and one load per query.
// A group (double) or lane (single) with a NaN coordinate or a guess that needs a bisection
// takes the scalar kernel.
#pragma once

#include "mathinterp/core/SimdSearch.hpp"
#include "mathinterp/core/SimdSearchF32.hpp"

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

template <int D, class One>
__attribute__((target("avx2"))) void nearestScattered(const SimdAxisF* ax, const float* values,
                                                      const float* const* col, u64 b, u64 e,
                                                      float* out, u64 outStride, One&& one) {
    const __m256 allOnes = _mm256_castsi256_ps(_mm256_set1_epi32(-1));
    u64 q = b;
    for (; q + 8 <= e; q += 8) {
        if (q + kQueryAhead + 8 <= e)
            for (int k = 0; k < D; ++k)
                prefetchLine(col[k] + q + kQueryAhead);
        __m256i offset = _mm256_setzero_si256();
        __m256 bad = _mm256_setzero_ps();
        for (int k = 0; k < D; ++k) {
            const __m256 x = _mm256_loadu_ps(col[k] + q);
            __m256i i;
            __m256 gi, gi1;
            locateCellF(ax[k], x, i, gi, gi1, bad);
            bad = _mm256_or_ps(bad, _mm256_cmp_ps(x, x, _CMP_UNORD_Q)); // NaN: scalar rule
            const __m256 up =
                _mm256_cmp_ps(_mm256_sub_ps(x, gi), _mm256_sub_ps(gi1, x), _CMP_GE_OQ);
            const __m256i chosen = _mm256_sub_epi32(i, _mm256_castps_si256(up)); // all-ones adds 1
            offset = _mm256_add_epi32(offset,
                                      _mm256_mullo_epi32(chosen, _mm256_set1_epi32(ax[k].stride)));
        }
        // Bad lanes may hold any index: they read the first value instead, then are redone.
        const __m256i safe = _mm256_andnot_si256(_mm256_castps_si256(bad), offset);
        const __m256 r = _mm256_mask_i32gather_ps(_mm256_setzero_ps(), values, safe, allOnes, 4);
        storeOrRedoF(r, bad, q, out, outStride, one);
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

template <int D, class One>
void nearestScattered(const SimdAxisF*, const float*, const float* const*, u64 b, u64 e, float* out,
                      u64 outStride, One&& one) {
    for (u64 q = b; q < e; ++q)
        out[q * outStride] = one(q);
}

#endif

} // namespace mathinterp::simd
