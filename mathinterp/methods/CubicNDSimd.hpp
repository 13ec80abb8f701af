// The scattered 2-D cubic-convolution kernel four queries at a time with AVX2 (double grid,
// values and queries), for interior cells: the packed interval search, the weights, four
// rows of four values per query transposed into lanes, and the same sums in the same order
// as the scalar kernel, so each lane gets its bits. Groups with a boundary cell (phantom
// values), a guess that needs a bisection or a NaN query take the scalar kernel.
#pragma once

#include "mathinterp/core/SimdSearch.hpp"

namespace mathinterp::simd {

#ifdef MATHINTERP_SIMD

// Twice Keys' weights of four fractions, formed as cubicWeights forms them.
struct PackedCubicWeights {
    __m256d wm1, w0, w1, w2;
};

__attribute__((target("avx2"))) inline PackedCubicWeights packedCubicWeights(__m256d t) noexcept {
    const __m256d one = _mm256_set1_pd(1.0), two = _mm256_set1_pd(2.0), three = _mm256_set1_pd(3.0);
    const __m256d t2 = _mm256_mul_pd(t, t);
    PackedCubicWeights w;
    w.wm1 = _mm256_mul_pd(_mm256_sub_pd(_mm256_mul_pd(_mm256_sub_pd(two, t), t), one), t);
    w.w0 = _mm256_add_pd(
        _mm256_mul_pd(_mm256_sub_pd(_mm256_mul_pd(three, t), _mm256_set1_pd(5.0)), t2), two);
    w.w1 = _mm256_mul_pd(
        _mm256_add_pd(_mm256_mul_pd(_mm256_sub_pd(_mm256_set1_pd(4.0), _mm256_mul_pd(three, t)), t),
                      one),
        t);
    w.w2 = _mm256_mul_pd(_mm256_sub_pd(t, one), t2);
    return w;
}

// ((w0 b + w-1 a) + w1 c) + w2 e, lane by lane.
__attribute__((target("avx2"))) inline __m256d convolve4(const PackedCubicWeights& w, __m256d a,
                                                         __m256d b, __m256d c, __m256d e) noexcept {
    return _mm256_add_pd(
        _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(w.w0, b), _mm256_mul_pd(w.wm1, a)),
                      _mm256_mul_pd(w.w1, c)),
        _mm256_mul_pd(w.w2, e));
}

// Queries [b, e) of two columns; out[q * outStride]. one(q) is the scalar kernel; divisor 4.
template <class One>
__attribute__((target("avx2"))) void cubicScattered2(const SimdAxis* ax, const double* values,
                                                     const double* const* col, u64 b, u64 e,
                                                     double* out, u64 outStride, One&& one) {
    const __m256d four = _mm256_set1_pd(4.0); // 2^d
    const __m256d engineNan = _mm256_set1_pd(engineNaN<double>());
    const std::int32_t s1 = ax[1].stride;
    u64 q = b;
    for (; q + 4 <= e; q += 4) {
        __m256d bad = _mm256_setzero_pd();
        __m128i i0, i1;
        __m256d t0, t1;
        locate(ax[0], _mm256_loadu_pd(col[0] + q), i0, t0, bad);
        locate(ax[1], _mm256_loadu_pd(col[1] + q), i1, t1, bad);
        // Interior cells only: 0 < i < last in both dimensions.
        const __m128i one32 = _mm_set1_epi32(1);
        const __m128i outside =
            _mm_or_si128(_mm_or_si128(_mm_cmplt_epi32(i0, one32),
                                      _mm_cmpgt_epi32(i0, _mm_set1_epi32(ax[0].last - 1))),
                         _mm_or_si128(_mm_cmplt_epi32(i1, one32),
                                      _mm_cmpgt_epi32(i1, _mm_set1_epi32(ax[1].last - 1))));
        if (_mm_movemask_epi8(outside) != 0 || _mm256_movemask_pd(bad) != 0) {
            for (u64 l = 0; l < 4; ++l)
                out[(q + l) * outStride] = one(q + l);
            continue;
        }
        const __m128i first =
            _mm_add_epi32(_mm_sub_epi32(i0, one32),
                          _mm_mullo_epi32(_mm_sub_epi32(i1, one32), _mm_set1_epi32(s1)));
        alignas(16) std::int32_t o[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(o), first);
        const PackedCubicWeights w0 = packedCubicWeights(t0);
        const PackedCubicWeights w1 = packedCubicWeights(t1);
        __m256d rows[4];
        for (int r = 0; r < 4; ++r) {
            // Row r (four values along dimension 0) of each lane, transposed into columns.
            const __m256d a = _mm256_loadu_pd(values + o[0] + r * s1);
            const __m256d bb = _mm256_loadu_pd(values + o[1] + r * s1);
            const __m256d c = _mm256_loadu_pd(values + o[2] + r * s1);
            const __m256d d = _mm256_loadu_pd(values + o[3] + r * s1);
            const __m256d lo01 = _mm256_unpacklo_pd(a, bb), hi01 = _mm256_unpackhi_pd(a, bb);
            const __m256d lo23 = _mm256_unpacklo_pd(c, d), hi23 = _mm256_unpackhi_pd(c, d);
            const __m256d v0 = _mm256_permute2f128_pd(lo01, lo23, 0x20);
            const __m256d v1 = _mm256_permute2f128_pd(hi01, hi23, 0x20);
            const __m256d v2 = _mm256_permute2f128_pd(lo01, lo23, 0x31);
            const __m256d v3 = _mm256_permute2f128_pd(hi01, hi23, 0x31);
            rows[r] = convolve4(w0, v0, v1, v2, v3);
        }
        __m256d r = _mm256_div_pd(convolve4(w1, rows[0], rows[1], rows[2], rows[3]), four);
        r = _mm256_blendv_pd(r, engineNan, _mm256_cmp_pd(r, r, _CMP_UNORD_Q));
        storeOrFallBack(r, _mm256_setzero_pd(), q, out, outStride, one);
    }
    for (; q < e; ++q)
        out[q * outStride] = one(q);
}

#else

template <class One>
void cubicScattered2(const SimdAxis*, const double*, const double* const*, u64 b, u64 e,
                     double* out, u64 outStride, One&& one) {
    for (u64 q = b; q < e; ++q)
        out[q * outStride] = one(q);
}

#endif

} // namespace mathinterp::simd
