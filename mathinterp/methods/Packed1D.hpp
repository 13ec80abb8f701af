// The 1-D linear, nearest, next and previous kernels four queries at a time with AVX2 (double
// grid, values and queries): the packed interval search (bucket index or guess), then the
// scalar kernel's operations in its order. A lane the packed form does not cover (a NaN
// query or result, a missed guess, next/previous beyond the grid) is redone by the scalar
// kernel, so every lane has the scalar kernel's bits.
#pragma once

#include "mathinterp/core/BucketIndex.hpp"
#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/core/SimdSearch.hpp"

#include <type_traits>

namespace mathinterp::simd {

enum class Kind1D { Linear, Nearest, Next, Previous };

#ifdef MATHINTERP_SIMD

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
// values and queries are double and the processor has AVX2.
template <class G>
struct Packed1DAxis {
    SimdAxis axis;
    bool usable = false;

    template <class Index>
    void build(const G* g, u64 n, G meanSpacing, const Index& index) {
        if constexpr (std::is_same_v<G, double>) {
            if (!avx2Available() || n < 2 || n >= (u64{1} << 31)) return;
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
