// The scattered 2-D cubic-convolution gradient four queries at a time with AVX2 (double grid,
// values and queries), for interior cells: the packed search of the value kernel plus the
// cell widths, four rows of four values per query transposed into lanes, and the same sums in
// the same order as GradientND<CubicND> (rows reduced with the value and the derivative
// weights of dimension 0, then both reduced along dimension 1), so each lane gets the scalar
// kernel's bits. A query in a boundary cell, whose guess needs a bisection, that is NaN or
// whose gradient is NaN takes the scalar kernel alone.
#pragma once

#include "mathinterp/methods/CubicNDSimd.hpp"

namespace mathinterp::simd {

#ifdef MATHINTERP_SIMD

// The derivatives in t of the weights, formed as grad::cubicWeightDerivatives<1> forms them.
__attribute__((target("avx2"))) inline PackedCubicWeights
packedCubicWeightDerivatives(__m256d t) noexcept {
    const __m256d one = _mm256_set1_pd(1.0), three = _mm256_set1_pd(3.0),
                  nine = _mm256_set1_pd(9.0);
    PackedCubicWeights w;
    w.wm1 = _mm256_sub_pd(
        _mm256_mul_pd(_mm256_sub_pd(_mm256_set1_pd(4.0), _mm256_mul_pd(three, t)), t), one);
    w.w0 = _mm256_mul_pd(_mm256_sub_pd(_mm256_mul_pd(nine, t), _mm256_set1_pd(10.0)), t);
    w.w1 = _mm256_add_pd(
        _mm256_mul_pd(_mm256_sub_pd(_mm256_set1_pd(8.0), _mm256_mul_pd(nine, t)), t), one);
    w.w2 = _mm256_mul_pd(_mm256_sub_pd(_mm256_mul_pd(three, t), _mm256_set1_pd(2.0)), t);
    return w;
}

struct CubicGradientGroup {
    alignas(16) std::int32_t first[4];
    __m256d t[2], h[2];
    unsigned bad; // bit l: lane l
};

// locateInterior (CubicNDSimd.hpp) that also keeps the cell width g[i+1] - g[i].
__attribute__((target("avx2"))) inline void locateInteriorWidth(const SimdAxis& a, __m256d x,
                                                                __m128i& iOut, __m256d& tOut,
                                                                __m256d& hOut,
                                                                __m256d& bad) noexcept {
    __m256d guess =
        _mm256_sub_pd(_mm256_mul_pd(x, _mm256_set1_pd(a.inv)), _mm256_set1_pd(a.firstTimesInv));
    guess = _mm256_min_pd(_mm256_max_pd(guess, _mm256_set1_pd(1.0)),
                          _mm256_set1_pd(static_cast<double>(a.last - 1)));
    const __m128i i = _mm256_cvttpd_epi32(guess);
    __m256d gi, gi1;
    cellEnds(a, i, gi, gi1);
    const __m256d inCell =
        _mm256_and_pd(_mm256_cmp_pd(x, gi, _CMP_GE_OQ), _mm256_cmp_pd(x, gi1, _CMP_LT_OQ));
    bad = _mm256_or_pd(bad, _mm256_andnot_pd(inCell, _mm256_castsi256_pd(_mm256_set1_epi64x(-1))));
    iOut = i;
    hOut = _mm256_sub_pd(gi1, gi);
    tOut = _mm256_div_pd(_mm256_sub_pd(x, gi), hOut);
}

__attribute__((target("avx2"))) inline void
locateGradientGroup(const SimdAxis* ax, const double* values, const double* const* col, u64 q,
                    u64 e, CubicGradientGroup& g) noexcept {
    prefetchQueries(col, 2, q, e);
    __m256d bad = _mm256_setzero_pd();
    __m128i i0, i1;
    locateInteriorWidth(ax[0], _mm256_loadu_pd(col[0] + q), i0, g.t[0], g.h[0], bad);
    locateInteriorWidth(ax[1], _mm256_loadu_pd(col[1] + q), i1, g.t[1], g.h[1], bad);
    g.bad = static_cast<unsigned>(_mm256_movemask_pd(bad));
    const __m128i one32 = _mm_set1_epi32(1);
    const std::int32_t s1 = ax[1].stride;
    _mm_store_si128(reinterpret_cast<__m128i*>(g.first),
                    _mm_add_epi32(_mm_sub_epi32(i0, one32),
                                  _mm_mullo_epi32(_mm_sub_epi32(i1, one32), _mm_set1_epi32(s1))));
    for (int l = 0; l < 4; ++l)
        for (int r = 0; r < 4; ++r) {
            const double* row = values + g.first[l] + r * s1;
            prefetchLine(row);
            prefetchLine(row + 3);
        }
}

// Both components of the four lanes; bad gains the lanes whose gradient is NaN.
__attribute__((target("avx2"))) inline void reduceCubicGradient(const double* values,
                                                                std::int32_t s1,
                                                                CubicGradientGroup& g, __m256d& g0,
                                                                __m256d& g1) noexcept {
    const PackedCubicWeights w0 = packedCubicWeights(g.t[0]);
    const PackedCubicWeights d0 = packedCubicWeightDerivatives(g.t[0]);
    __m256d rows[4], drows[4];
    for (int r = 0; r < 4; ++r) {
        __m256d v[4];
        loadRows(values, g.first, r * s1, v);
        drows[r] = convolve4(d0, v[0], v[1], v[2], v[3]);
        rows[r] = convolve4(w0, v[0], v[1], v[2], v[3]);
    }
    const PackedCubicWeights w1 = packedCubicWeights(g.t[1]);
    const PackedCubicWeights d1 = packedCubicWeightDerivatives(g.t[1]);
    // The division by 2^d = 4 as a product with 0.25: the same correctly rounded quotient.
    const __m256d quarter = _mm256_set1_pd(0.25);
    g0 = _mm256_div_pd(
        _mm256_mul_pd(convolve4(w1, drows[0], drows[1], drows[2], drows[3]), quarter), g.h[0]);
    g1 = _mm256_div_pd(_mm256_mul_pd(convolve4(d1, rows[0], rows[1], rows[2], rows[3]), quarter),
                       g.h[1]);
    const __m256d nan =
        _mm256_or_pd(_mm256_cmp_pd(g0, g0, _CMP_UNORD_Q), _mm256_cmp_pd(g1, g1, _CMP_UNORD_Q));
    g.bad |= static_cast<unsigned>(_mm256_movemask_pd(nan));
}

// Queries [b, e) of two columns; component k of query q to outs[k][q * stride]. one(q) runs
// the scalar kernel for query q. Groups are located kAhead groups before they are reduced, as
// in cubicScattered2.
template <class One>
__attribute__((target("avx2"))) void
cubicGradientScattered2(const SimdAxis* ax, const double* values, const double* const* col, u64 b,
                        u64 e, double* const* outs, u64 stride, One&& one) {
    constexpr u64 kAhead = 8; // a power of two: the ring index is a mask
    CubicGradientGroup ring[kAhead];
    const std::int32_t s1 = ax[1].stride;
    const u64 groups = (e - b) / 4;
    for (u64 j = 0; j < groups && j < kAhead; ++j)
        locateGradientGroup(ax, values, col, b + 4 * j, e, ring[j]);
    for (u64 j = 0; j < groups; ++j) {
        CubicGradientGroup& g = ring[j % kAhead];
        const u64 q = b + 4 * j;
        __m256d g0, g1;
        reduceCubicGradient(values, s1, g, g0, g1);
        storeLanes(g0, q, outs[0], stride);
        storeLanes(g1, q, outs[1], stride);
        for (unsigned bad = g.bad; bad != 0; bad &= bad - 1)
            one(q + static_cast<u64>(__builtin_ctz(bad)));
        if (j + kAhead < groups) locateGradientGroup(ax, values, col, b + 4 * (j + kAhead), e, g);
    }
    for (u64 q = b + 4 * groups; q < e; ++q)
        one(q);
}

#else

template <class One>
void cubicGradientScattered2(const SimdAxis*, const double*, const double* const*, u64 b, u64 e,
                             double* const*, u64, One&& one) {
    for (u64 q = b; q < e; ++q)
        one(q);
}

#endif

} // namespace mathinterp::simd
