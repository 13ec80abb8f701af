// The packed search's per-dimension record and level, the block runner of the compiled
// packed kernels, and the hand-written AVX2 helpers the 2-D cubic kernels still use (a cell's
// ends, pair loads, stores and redone lanes), with packed IEEE operations and no fused
// multiply-add.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define MATHINTERP_SIMD 1
#include <immintrin.h>
#endif

#include <cstdint>
#include <type_traits>

namespace mathinterp::simd {

// One dimension as the packed search sees it.
struct SimdAxis {
    const double* g = nullptr;
    double second = 0, penultimate = 0; // g[1], g[n-2]
    double inv = 0, firstTimesInv = 0;  // guess = x * inv - firstTimesInv
    // Set when every g[i] is g[0] + i * step as the packed code evaluates it (a product, then
    // a sum, each rounded): a cell's ends are then computed, not loaded, with the same bits.
    bool arithmetic = false;
    double step = 0;
    std::int32_t last = 0; // n - 2
    std::int32_t stride = 0;
    // A 1-D method's bucket index (BucketIndex's fields), or null: then the guess above.
    const std::uint32_t* bucketStart = nullptr;
    double bucketFirst = 0, bucketScale = 0, bucketMax = 0;
};

// The packed kernels take double grids, values and queries only.
template <class G, class V, class Q>
inline constexpr bool allDouble =
    std::is_same_v<G, double>&& std::is_same_v<V, double>&& std::is_same_v<Q, double>;

// Dimension with grid g[0..n), n >= 2 and mean spacing ms; stride in the value plane.
SimdAxis simdAxis(const double* g, u64 n, double ms, u64 stride) noexcept;

// The widest packed instruction set the kernels may take: what the processor offers, capped
// by limitSimd. A method reads it when it builds its tables; every level gives the same bits,
// so the cap only lets tests run each path on one machine (and a user rule a path out).
enum class SimdLevel : int { None = 0, Avx2 = 1, Avx512 = 2 };
SimdLevel simdLevel() noexcept;
void limitSimd(SimdLevel cap) noexcept;

// Asks for the coordinates of query q + kQueryAhead in each of d columns. The packed kernels'
// value loads miss often enough that the hardware's stream prefetch alone falls behind on
// the query columns (half of the 2-D cubic time went to query loads before this).
inline constexpr u64 kQueryAhead = 64;
inline void prefetchQueries(const double* const* col, int d, u64 q, u64 e) noexcept {
    if (q + kQueryAhead + 4 > e) return;
    for (int k = 0; k < d; ++k)
        prefetchLine(col[k] + q + kQueryAhead);
}

// Runs a compiled packed kernel over queries [b, e) a block at a time: kernel(s, t, redo)
// writes queries [s, t) and lists those it leaves to the scalar kernel (lanes the packed form
// does not cover, and a tail shorter than a vector) in redo, returning how many; redoOne(q)
// then writes each of them.
template <class Kernel, class RedoOne>
void runPackedBlocks(Kernel&& kernel, u64 b, u64 e, RedoOne&& redoOne) {
    constexpr u64 kBlock = 512; // a multiple of every vector's lane count
    u64 redo[kBlock];
    for (u64 s = b; s < e; s += kBlock) {
        const u64 t = s + kBlock < e ? s + kBlock : e;
        const u64 n = kernel(s, t, redo);
        for (u64 k = 0; k < n; ++k)
            redoOne(redo[k]);
    }
}

// The same for kernels of one output: one(q) is the scalar kernel's value of query q.
template <class V, class Kernel, class One>
void runPacked(Kernel&& kernel, u64 b, u64 e, V* out, u64 outStride, One&& one) {
    runPackedBlocks(kernel, b, e, [&](u64 q) { out[q * outStride] = one(q); });
}

#ifdef MATHINTERP_SIMD

inline bool avx2Available() noexcept {
    return simdLevel() >= SimdLevel::Avx2;
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

// g[i] and g[i+1] of four lanes: computed on an arithmetic grid, loaded otherwise.
__attribute__((target("avx2"))) inline void cellEnds(const SimdAxis& a, __m128i i, __m256d& gi,
                                                     __m256d& gi1) noexcept {
    if (a.arithmetic) {
        const __m256d fi = _mm256_cvtepi32_pd(i), step = _mm256_set1_pd(a.step);
        const __m256d g0 = _mm256_set1_pd(a.g[0]);
        gi = _mm256_add_pd(g0, _mm256_mul_pd(fi, step));
        gi1 = _mm256_add_pd(g0, _mm256_mul_pd(_mm256_add_pd(fi, _mm256_set1_pd(1.0)), step));
    } else {
        loadPairs(a.g, i, gi, gi1);
    }
}

// The lanes set in bad (bit l: query q + l) redone by the scalar kernel one(q + l).
template <class One>
inline void redoLanes(unsigned bad, u64 q, double* out, u64 outStride, One& one) {
    for (; bad != 0; bad &= bad - 1) {
        const u64 l = static_cast<u64>(__builtin_ctz(bad));
        out[(q + l) * outStride] = one(q + l);
    }
}

// Results r of queries q..q+3 to out[(q + l) * outStride].
__attribute__((target("avx2"))) inline void storeLanes(__m256d r, u64 q, double* out,
                                                       u64 outStride) noexcept {
    if (outStride == 1) {
        _mm256_storeu_pd(out + q, r);
        return;
    }
    alignas(32) double v[4];
    _mm256_store_pd(v, r);
    for (u64 l = 0; l < 4; ++l)
        out[(q + l) * outStride] = v[l];
}

#else

inline bool avx2Available() noexcept {
    return false;
}

#endif

} // namespace mathinterp::simd
