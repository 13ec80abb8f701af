// The scattered 2-D and 3-D multilinear kernel four queries at a time with AVX2 (double grid,
// values and queries): interval search, cell fractions, corner loads and the first reduction
// pass in packed form. Packed IEEE operations give each lane exactly the bits of the scalar
// kernel (no fused multiply-add: the target is avx2 without fma). A group of four whose guess
// needs a bisection, or with a NaN fraction or result, is handed to the scalar kernel whole.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define MATHINTERP_LINEAR_SIMD 1
#include <immintrin.h>
#endif

#include <cstdint>

namespace mathinterp::simd {

// One dimension as the packed search sees it.
struct LinearAxis {
    const double* g = nullptr;
    double second = 0, penultimate = 0; // g[1], g[n-2]
    double inv = 0, firstTimesInv = 0;  // guess = x * inv - firstTimesInv
    std::int32_t last = 0;              // n - 2
    std::int32_t stride = 0;
};

#ifdef MATHINTERP_LINEAR_SIMD

inline bool avx2Available() noexcept {
    static const bool yes = __builtin_cpu_supports("avx2");
    return yes;
}

// base[idx[l]] and base[idx[l] + 1] of four lanes as two vectors: four 16-byte loads and a
// transpose, cheaper than two gathers.
__attribute__((target("avx2"))) inline void loadPairs(const double* base, __m128i idx, __m256d& lo,
                                                      __m256d& hi) noexcept {
    alignas(16) std::int32_t o[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(o), idx);
    const __m256d v02 = _mm256_set_m128d(_mm_loadu_pd(base + o[2]), _mm_loadu_pd(base + o[0]));
    const __m256d v13 = _mm256_set_m128d(_mm_loadu_pd(base + o[3]), _mm_loadu_pd(base + o[1]));
    lo = _mm256_unpacklo_pd(v02, v13);
    hi = _mm256_unpackhi_pd(v02, v13);
}

// Queries [b, e) of columns col[0..D); out[q * outStride]. one(q) is the scalar kernel.
template <int D, class One>
__attribute__((target("avx2"))) void
linearScattered(const LinearAxis* ax, const double* values, const std::int32_t* cornerOffsets,
                const double* const* col, u64 b, u64 e, double* out, u64 outStride, One&& one) {
    constexpr int C = 1 << D;
    const __m256d zero = _mm256_setzero_pd();
    const __m256d oneV = _mm256_set1_pd(1.0);
    const __m256i pack = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6); // 64-bit masks to 32-bit
    u64 q = b;
    for (; q + 4 <= e; q += 4) {
        __m128i offset = _mm_setzero_si128();
        __m256d t[D];
        __m256d bad = zero;
        for (int k = 0; k < D; ++k) {
            const LinearAxis& a = ax[k];
            const __m256d x = _mm256_loadu_pd(col[k] + q);
            const __m256d low = _mm256_cmp_pd(x, _mm256_set1_pd(a.second), _CMP_NGE_UQ);
            const __m256d high = _mm256_cmp_pd(x, _mm256_set1_pd(a.penultimate), _CMP_GE_OQ);
            __m256d guess = _mm256_sub_pd(_mm256_mul_pd(x, _mm256_set1_pd(a.inv)),
                                          _mm256_set1_pd(a.firstTimesInv));
            guess = _mm256_min_pd(_mm256_max_pd(guess, zero),
                                  _mm256_set1_pd(static_cast<double>(a.last)));
            __m128i i = _mm256_cvttpd_epi32(guess);
            const __m128i lowI =
                _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_castpd_si256(low), pack));
            const __m128i highI = _mm256_castsi256_si128(
                _mm256_permutevar8x32_epi32(_mm256_castpd_si256(high), pack));
            i = _mm_andnot_si128(lowI, i);
            i = _mm_blendv_epi8(i, _mm_set1_epi32(a.last), highI);
            __m256d gi, gi1;
            loadPairs(a.g, i, gi, gi1);
            const __m256d inCell =
                _mm256_and_pd(_mm256_cmp_pd(x, gi, _CMP_GE_OQ), _mm256_cmp_pd(x, gi1, _CMP_LT_OQ));
            bad = _mm256_or_pd(bad, _mm256_andnot_pd(_mm256_or_pd(_mm256_or_pd(low, high), inCell),
                                                     _mm256_castsi256_pd(_mm256_set1_epi64x(-1))));
            t[k] = _mm256_div_pd(_mm256_sub_pd(x, gi), _mm256_sub_pd(gi1, gi));
            bad = _mm256_or_pd(bad, _mm256_cmp_pd(t[k], t[k], _CMP_UNORD_Q)); // a NaN query
            offset = _mm_add_epi32(offset, _mm_mullo_epi32(i, _mm_set1_epi32(a.stride)));
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
        if (_mm256_movemask_pd(bad) != 0) {
            for (u64 l = 0; l < 4; ++l)
                out[(q + l) * outStride] = one(q + l);
        } else if (outStride == 1) {
            _mm256_storeu_pd(out + q, s[0]);
        } else {
            alignas(32) double r[4];
            _mm256_store_pd(r, s[0]);
            for (u64 l = 0; l < 4; ++l)
                out[(q + l) * outStride] = r[l];
        }
    }
    for (; q < e; ++q)
        out[q * outStride] = one(q);
}

#else

inline bool avx2Available() noexcept {
    return false;
}

template <int D, class One>
void linearScattered(const LinearAxis*, const double*, const std::int32_t*, const double* const*,
                     u64 b, u64 e, double* out, u64 outStride, One&& one) {
    for (u64 q = b; q < e; ++q)
        out[q * outStride] = one(q);
}

#endif

} // namespace mathinterp::simd
