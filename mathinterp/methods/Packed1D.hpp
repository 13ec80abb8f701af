// The 1-D linear, nearest, next, previous and cubic-convolution kernels four queries at a
// time with AVX2 (double grid, values and queries): the packed interval search (bucket index
// or guess), then the scalar kernel's operations in its order. A lane the packed form does not
// cover (a NaN query or result, a missed guess, next/previous beyond the grid, cubic's end
// cells with their ghost values) is redone by the scalar kernel, so every lane has the scalar
// kernel's bits.
#pragma once

#include "mathinterp/core/BucketIndex.hpp"
#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/core/SimdSearch.hpp"

#include <type_traits>

namespace mathinterp::simd {

enum class Kind1D { Linear, Nearest, Next, Previous, Cubic };

#ifdef MATHINTERP_SIMD

// Cubic convolution of the interior cells i (1 <= i < last): the four values y[i-1 .. i+2]
// of each lane (four loads and a transpose), cubicWeights' operations and the scalar sum's
// order; lanes in the end cells are flagged (their indices are clamped so that every load
// stays inside the plane, which has at least four values).
__attribute__((target("avx2"))) inline __m256d
cubicInterior(const SimdAxis& ax, const double* y, __m128i i, __m256d t, __m256d& bad) noexcept {
    const __m128i edge = _mm_or_si128(_mm_cmpeq_epi32(i, _mm_setzero_si128()),
                                      _mm_cmpeq_epi32(i, _mm_set1_epi32(ax.last)));
    bad = _mm256_or_pd(bad, _mm256_castsi256_pd(_mm256_cvtepi32_epi64(edge)));
    const __m128i k =
        _mm_min_epi32(_mm_max_epi32(i, _mm_set1_epi32(1)), _mm_set1_epi32(ax.last - 1));
    alignas(16) std::int32_t kk[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(kk), k);
    const __m256d r0 = _mm256_loadu_pd(y + kk[0] - 1), r1 = _mm256_loadu_pd(y + kk[1] - 1);
    const __m256d r2 = _mm256_loadu_pd(y + kk[2] - 1), r3 = _mm256_loadu_pd(y + kk[3] - 1);
    const __m256d lo01 = _mm256_unpacklo_pd(r0, r1), hi01 = _mm256_unpackhi_pd(r0, r1);
    const __m256d lo23 = _mm256_unpacklo_pd(r2, r3), hi23 = _mm256_unpackhi_pd(r2, r3);
    const __m256d ym1 = _mm256_permute2f128_pd(lo01, lo23, 0x20);
    const __m256d y0 = _mm256_permute2f128_pd(hi01, hi23, 0x20);
    const __m256d y1 = _mm256_permute2f128_pd(lo01, lo23, 0x31);
    const __m256d y2 = _mm256_permute2f128_pd(hi01, hi23, 0x31);
    const __m256d one = _mm256_set1_pd(1.0);
    const __m256d t2 = _mm256_mul_pd(t, t);
    const __m256d wm1 = _mm256_mul_pd(
        _mm256_sub_pd(_mm256_mul_pd(_mm256_sub_pd(_mm256_set1_pd(2.0), t), t), one), t);
    const __m256d w0 = _mm256_add_pd(
        _mm256_mul_pd(_mm256_sub_pd(_mm256_mul_pd(_mm256_set1_pd(3.0), t), _mm256_set1_pd(5.0)),
                      t2),
        _mm256_set1_pd(2.0));
    const __m256d w1 = _mm256_mul_pd(
        _mm256_add_pd(
            _mm256_mul_pd(_mm256_sub_pd(_mm256_set1_pd(4.0), _mm256_mul_pd(_mm256_set1_pd(3.0), t)),
                          t),
            one),
        t);
    const __m256d w2 = _mm256_mul_pd(_mm256_sub_pd(t, one), t2);
    const __m256d inner = _mm256_add_pd(
        _mm256_add_pd(_mm256_mul_pd(w0, y0), _mm256_mul_pd(wm1, ym1)), _mm256_mul_pd(w1, y1));
    return _mm256_mul_pd(_mm256_set1_pd(0.5), _mm256_add_pd(_mm256_mul_pd(w2, y2), inner));
}

// Queries x[b, e) to out[q * outStride]; one(q) is the scalar kernel of query q.
template <Kind1D K, class One>
__attribute__((target("avx2"))) void scattered1D(const SimdAxis& ax, const double* values,
                                                 const double* x, u64 b, u64 e, double* out,
                                                 u64 outStride, One&& one) {
    const __m256i pack = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6); // 64-bit masks to 32-bit
    const double lastPoint = ax.g[ax.last + 1];
    u64 q = b;
    for (; q + 4 <= e; q += 4) {
        prefetchQueries(&x, 1, q, e);
        const __m256d xv = _mm256_loadu_pd(x + q);
        __m128i i;
        __m256d gi, gi1, r;
        __m256d bad = _mm256_cmp_pd(xv, xv, _CMP_UNORD_Q); // NaN queries: the scalar rule
        locateAny(ax, xv, i, gi, gi1, bad);
        if constexpr (K == Kind1D::Linear) {
            // t = (x - g[i]) / w[i] with w[i] = g[i+1] - g[i]; (1 - t) a + b t.
            const __m256d t = _mm256_div_pd(_mm256_sub_pd(xv, gi), _mm256_sub_pd(gi1, gi));
            __m256d a, c;
            loadPairs(values, i, a, c);
            const __m256d lower = _mm256_mul_pd(_mm256_sub_pd(_mm256_set1_pd(1.0), t), a);
            const __m256d upper = _mm256_mul_pd(c, t);
            r = _mm256_blendv_pd(_mm256_add_pd(lower, upper), a, _mm256_cmp_pd(a, c, _CMP_EQ_OQ));
            bad = _mm256_or_pd(bad, _mm256_cmp_pd(r, r, _CMP_UNORD_Q)); // the scalar's NaN rules
        } else if constexpr (K == Kind1D::Cubic) {
            const __m256d t = _mm256_div_pd(_mm256_sub_pd(xv, gi), _mm256_sub_pd(gi1, gi));
            r = cubicInterior(ax, values, i, t, bad);
            bad = _mm256_or_pd(bad, _mm256_cmp_pd(r, r, _CMP_UNORD_Q)); // the engine's NaN
        } else {
            __m256d up; // take values[i + 1]
            if constexpr (K == Kind1D::Nearest) {
                up = _mm256_cmp_pd(_mm256_sub_pd(xv, gi), _mm256_sub_pd(gi1, xv), _CMP_GE_OQ);
            } else if constexpr (K == Kind1D::Next) {
                up = _mm256_cmp_pd(xv, gi, _CMP_GT_OQ);
                bad = _mm256_or_pd(bad, _mm256_cmp_pd(xv, _mm256_set1_pd(lastPoint), _CMP_GT_OQ));
            } else {
                up = _mm256_cmp_pd(xv, _mm256_set1_pd(lastPoint), _CMP_GE_OQ);
                bad = _mm256_or_pd(bad, _mm256_cmp_pd(xv, _mm256_set1_pd(ax.g[0]), _CMP_LT_OQ));
            }
            const __m128i upI =
                _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_castpd_si256(up), pack));
            r = gatherPd(values, _mm_sub_epi32(i, upI)); // an all-ones lane adds one
        }
        storeLanes(r, q, out, outStride);
        redoLanes(static_cast<unsigned>(_mm256_movemask_pd(bad)), q, out, outStride, one);
    }
    for (; q < e; ++q)
        out[q * outStride] = one(q);
}

#else

template <Kind1D K, class One>
void scattered1D(const SimdAxis&, const double*, const double*, u64 b, u64 e, double* out,
                 u64 outStride, One&& one) {
    for (u64 q = b; q < e; ++q)
        out[q * outStride] = one(q);
}

#endif

// The packed record of a 1-D method's grid: empty (the packed path off) unless the grid,
// values and queries are double, the processor has AVX2 and the grid has minPoints points.
template <class G>
struct Packed1DAxis {
    SimdAxis axis;
    bool usable = false;

    template <class Index>
    void build(const G* g, u64 n, G meanSpacing, const Index& index, u64 minPoints = 2) {
        if constexpr (std::is_same_v<G, double>) {
            if (!avx2Available() || n < minPoints || n >= (u64{1} << 31)) return;
            axis = simdAxis(g, n, meanSpacing, 1);
            if (!index.empty()) {
                axis.bucketStart = index.start.data();
                axis.bucketFirst = index.first;
                axis.bucketScale = index.scale;
                axis.bucketMax = index.maxBucket;
            }
            usable = true;
        }
    }
};

} // namespace mathinterp::simd

namespace mathinterp {

// A step method's bucket index and packed record of its grid, built once on the first
// evaluation and kept across rebinding (they depend on the grid only).
template <class G>
class GridIndex1D {
public:
    void ensure(const G* g, u64 n, G meanSpacing) {
        guard_.ensure([&] {
            index_ = buildBucketIndex(g, n);
            packed_.build(g, n, meanSpacing, index_);
        });
    }
    const BucketIndex* bucketIndex() const noexcept {
        return guard_.ready() && !index_.empty() ? &index_ : nullptr;
    }
    bool packedUsable() const noexcept { return guard_.ready() && packed_.usable; }
    const simd::SimdAxis& packedAxis() const noexcept { return packed_.axis; }

private:
    BucketIndex index_;
    simd::Packed1DAxis<G> packed_;
    OnceGuard guard_;
};

} // namespace mathinterp
