// The scattered 2-D and 3-D multilinear, nearest-point and cubic-convolution kernels a vector
// of queries at a time (grid, values and queries of one precision; cubic in double), written
// once over Highway in PackedND.cpp and compiled per instruction set: the packed interval
// search, makePair's fraction or the half-way comparison (ties go up), and the reductions in
// the scalar kernels' order. A lane whose guess misses, in a cell the packed form does not
// cover (cubic's boundary cells), or with a NaN coordinate or result, is redone by the
// scalar kernel, so every lane has the scalar kernel's bits.
#pragma once

#include "mathinterp/core/SimdSearch.hpp"
#include "mathinterp/core/SimdSearchF32.hpp"

#include <cstdint>
#include <type_traits>

namespace mathinterp::simd {

enum class KindND { Linear, Nearest, Cubic }; // Cubic: double only

// Queries [b, e) of columns col[0 .. d) (d = 2 or 3) to out[q * outStride], the queries
// left to the scalar kernel listed in redo (room for e - b) and counted in the result.
// cornerOffsets: the 2^d corners' offsets from a cell's first value (multilinear only).
template <class T>
using PackedNDKernel = u64 (*)(KindND kind, int d, const SimdAxisOf<T>* axes, const T* values,
                               const std::int32_t* cornerOffsets, const T* const* col, u64 b, u64 e,
                               T* out, u64 outStride, u64* redo);

// The compiled kernel for a packed level (T double or float); null: none at that level.
template <class T>
PackedNDKernel<T> packedNDKernel(SimdLevel level) noexcept;

// Queries [b, e) through kernel; one(q) is the scalar kernel of query q.
template <class T, class One>
void scatteredND(PackedNDKernel<T> kernel, KindND kind, int d, const SimdAxisOf<T>* axes,
                 const T* values, const std::int32_t* cornerOffsets, const T* const* col, u64 b,
                 u64 e, T* out, u64 outStride, One&& one) {
    runPacked(
        [&](u64 s, u64 t, u64* redo) {
            return kernel(kind, d, axes, values, cornerOffsets, col, s, t, out, outStride, redo);
        },
        b, e, out, outStride, one);
}

// The multilinear gradient (double, d = 2 or 3): component k of query q to
// outs[k][q * stride]; the queries left to the scalar kernel listed in redo as above.
using PackedGradientKernel = u64 (*)(int d, const SimdAxis* axes, const double* values,
                                     const std::int32_t* cornerOffsets, const double* const* col,
                                     u64 b, u64 e, double* const* outs, u64 stride, u64* redo);
PackedGradientKernel packedLinearGradientKernel(SimdLevel level) noexcept;
// The cubic-convolution gradient (double, d = 2 only; cornerOffsets unused).
PackedGradientKernel packedCubicGradientKernel(SimdLevel level) noexcept;

// Queries [b, e) through a gradient kernel; one(q) runs the scalar kernel for query q and
// writes its components.
template <class One>
void scatteredGradient(PackedGradientKernel kernel, int d, const SimdAxis* axes,
                       const double* values, const std::int32_t* cornerOffsets,
                       const double* const* col, u64 b, u64 e, double* const* outs, u64 stride,
                       One&& one) {
    runPackedBlocks(
        [&](u64 s, u64 t, u64* redo) {
            return kernel(d, axes, values, cornerOffsets, col, s, t, outs, stride, redo);
        },
        b, e, one);
}

} // namespace mathinterp::simd
