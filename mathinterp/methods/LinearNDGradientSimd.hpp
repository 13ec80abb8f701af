// The scattered 2-D and 3-D multilinear gradient four queries at a time with AVX2 (double
// grid, values and queries), over the packed interval search: the same steps as
// GradientND<LinearND>::atFixed (value steps with equal ends passing through, differences
// with equal ends giving 0, then the division by the cell width) on four lanes, so each lane
// gets the scalar kernel's bits. A group with a missed guess, a NaN coordinate or a NaN
// component takes the scalar kernel.
#pragma once

#include "mathinterp/core/SimdSearch.hpp"

namespace mathinterp::simd {

#ifdef MATHINTERP_SIMD

// The scalar kernel's value step (equal ends pass through) and difference. The difference
// needs no test for equal ends: finite ones give 0 anyway, infinite ones NaN, and a NaN
// component sends the group to the scalar kernel.
__attribute__((target("avx2"))) inline __m256d lerpLanes(__m256d a, __m256d c, __m256d w) noexcept {
    const __m256d r =
        _mm256_add_pd(_mm256_mul_pd(a, _mm256_sub_pd(_mm256_set1_pd(1.0), w)), _mm256_mul_pd(c, w));
    return _mm256_blendv_pd(r, a, _mm256_cmp_pd(a, c, _CMP_EQ_OQ));
}
__attribute__((target("avx2"))) inline __m256d diffLanes(__m256d a, __m256d c) noexcept {
    return _mm256_sub_pd(c, a);
}

// Queries [b, e) of columns col[0..D); component k of query q to outs[k][q * stride].
// one(q) runs the scalar kernel for query q and writes its components.
template <int D, class One>
__attribute__((target("avx2"))) void
linearGradientScattered(const SimdAxis* ax, const double* values, const std::int32_t* corners,
                        const double* const* col, u64 b, u64 e, double* const* outs, u64 stride,
                        One&& one) {
    constexpr int C = 1 << D;
    const __m256d zero = _mm256_setzero_pd();
    u64 q = b;
    for (; q + 4 <= e; q += 4) {
        prefetchQueries(col, D, q, e);
        __m128i offset = _mm_setzero_si128();
        __m256d t[D], invH[D];
        __m256d bad = zero;
        for (int k = 0; k < D; ++k) {
            __m128i i;
            __m256d gi, gi1;
            const __m256d x = _mm256_loadu_pd(col[k] + q);
            locateCell(ax[k], x, i, gi, gi1, bad);
            const __m256d h = _mm256_sub_pd(gi1, gi);
            t[k] = _mm256_div_pd(_mm256_sub_pd(x, gi), h);
            invH[k] = _mm256_div_pd(_mm256_set1_pd(1.0), h);
            bad = _mm256_or_pd(bad, _mm256_cmp_pd(t[k], t[k], _CMP_UNORD_Q));
            offset = _mm_add_epi32(offset, _mm_mullo_epi32(i, _mm_set1_epi32(ax[k].stride)));
        }
        __m256d s[C];
        for (int c = 0; c < C; c += 2) // corners c and c + 1 are neighbours in memory
            loadPairs(values, _mm_add_epi32(offset, _mm_set1_epi32(corners[c])), s[c], s[c + 1]);
        __m256d comp[D][C / 2];
        int n = C;
        for (int k = 0; k < D; ++k) {
            const __m256d w = t[k];
            for (int j = 0; j < k; ++j)
                for (int p = 0; p < n; p += 2)
                    comp[j][p >> 1] = lerpLanes(comp[j][p], comp[j][p + 1], w);
            for (int p = 0; p < n; p += 2) {
                comp[k][p >> 1] = _mm256_mul_pd(diffLanes(s[p], s[p + 1]), invH[k]);
                s[p >> 1] = lerpLanes(s[p], s[p + 1], w);
            }
            n >>= 1;
        }
        __m256d r[D];
        for (int k = 0; k < D; ++k) {
            r[k] = comp[k][0];
            bad = _mm256_or_pd(bad, _mm256_cmp_pd(r[k], r[k], _CMP_UNORD_Q));
        }
        if (_mm256_movemask_pd(bad) != 0) {
            for (u64 l = 0; l < 4; ++l)
                one(q + l);
            continue;
        }
        for (int k = 0; k < D; ++k)
            storeLanes(r[k], q, outs[k], stride);
    }
    for (; q < e; ++q)
        one(q);
}

#else

template <int D, class One>
void linearGradientScattered(const SimdAxis*, const double*, const std::int32_t*,
                             const double* const*, u64 b, u64 e, double* const*, u64, One&& one) {
    for (u64 q = b; q < e; ++q)
        one(q);
}

#endif

} // namespace mathinterp::simd
