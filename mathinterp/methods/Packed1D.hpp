// The 1-D linear, nearest, next, previous and cubic-convolution kernels a vector of queries
// at a time (grid, values and queries of one precision), written once over Highway in
// Packed1D.cpp and
// compiled per instruction set: the packed interval search (bucket index or guess), then the
// scalar kernel's operations in its order. A lane the packed form does not cover (a NaN query
// or result, a missed guess, next/previous beyond the grid, cubic's end cells with their
// ghost values) is redone by the scalar kernel, so every lane has the scalar kernel's bits.
#pragma once

#include "mathinterp/core/BucketIndex.hpp"
#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/core/SimdSearch.hpp"
#include "mathinterp/core/SimdSearchF32.hpp"

#include <type_traits>

namespace mathinterp::simd {

enum class Kind1D { Linear, Nearest, Next, Previous, Cubic };

// Queries x[b, e) of kind k to out[q * outStride], packed; the queries left to the scalar
// kernel (lanes the packed form does not cover, and a tail shorter than a vector) are listed
// in redo (room for e - b entries) and counted in the result. T: double or float.
template <class T>
using Packed1DKernel = u64 (*)(Kind1D k, const SimdAxisOf<T>& axis, const T* values, const T* x,
                               u64 b, u64 e, T* out, u64 outStride, u64* redo);

// The compiled kernel for a packed level; null when the level has none (the scalar kernel).
template <class T>
Packed1DKernel<T> packed1DKernel(SimdLevel level) noexcept;

// A grid's packed record and the kernel chosen for it when the method built its tables.
template <class T>
struct PackedAxis1D {
    SimdAxisOf<T> axis;
    Packed1DKernel<T> kernel = nullptr;
};

// Queries x[b, e) to out[q * outStride]; one(q) is the scalar kernel of query q.
template <Kind1D K, class T, class One>
void scattered1D(const PackedAxis1D<T>& p, const T* values, const T* x, u64 b, u64 e, T* out,
                 u64 outStride, One&& one) {
    runPacked([&](u64 s, u64 t,
                  u64* redo) { return p.kernel(K, p.axis, values, x, s, t, out, outStride, redo); },
              b, e, out, outStride, one);
}

// The packed record of a 1-D method's grid: empty (the packed path off) unless the grid is
// double or single, the packed level has a kernel and the grid has minPoints points.
template <class G>
struct Packed1DAxis {
    PackedAxis1D<std::conditional_t<std::is_same_v<G, float>, float, double>> axis;
    bool usable = false;

    template <class Index>
    void build(const G* g, u64 n, G meanSpacing, const Index& index, u64 minPoints = 2) {
        if constexpr (std::is_same_v<G, double> || std::is_same_v<G, float>) {
            axis.kernel = packed1DKernel<G>(simdLevel());
            if (axis.kernel == nullptr || n < minPoints || n >= (u64{1} << 31)) return;
            auto& a = axis.axis;
            if constexpr (std::is_same_v<G, double>) {
                a = simdAxis(g, n, meanSpacing, 1);
                if (!index.empty()) {
                    a.bucketStart = index.start.data();
                    a.bucketFirst = index.first;
                    a.bucketScale = index.scale;
                    a.bucketMax = index.maxBucket;
                }
            } else {
                a = simdAxisF(g, n, meanSpacing, 1);
                if (!index.empty()) a.index = &index;
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
    const auto& packedAxis() const noexcept { return packed_.axis; }

private:
    BucketIndex index_;
    simd::Packed1DAxis<G> packed_;
    OnceGuard guard_;
};

} // namespace mathinterp
