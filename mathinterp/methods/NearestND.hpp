// NearestND: the value of the nearest grid point, chosen per dimension; a query exactly half-way
// between two grid points takes the upper one. Outside the grid the first or last point of the
// dimension is nearest, so the same method extrapolates by the end values. A NaN coordinate
// gives NaN. No scratch; prepare() does nothing and kernels only read.
#pragma once

#include "mathinterp/methods/InterpMethodND.hpp"
#include "mathinterp/methods/PackedND.hpp"

#include <cstdint>
#include <type_traits>

namespace mathinterp {

template <class G, class V>
class NearestND final : public InterpMethodND<G, V> {
public:
    static constexpr bool available = true;
    NearestND(const G* const* grids, const u64* sizes, const V* valuesPlane, u64 d)
        : InterpMethodND<G, V>(grids, sizes, valuesPlane, d) {
        if constexpr (hasSimdPath<double> || hasSimdPath<float>) {
            u64 total = 1;
            for (u64 k = 0; k < d; ++k)
                total *= sizes[k]; // checked against overflow when the values were stored
            kernel_ = simd::packedNDKernel<G>(simd::simdLevel());
            if (kernel_ == nullptr || d < 2 || d > 3 || total >= (u64{1} << 31)) return;
            simdAxes.resize(d);
            for (u64 k = 0; k < d; ++k) {
                if constexpr (std::is_same_v<G, double>)
                    simdAxes[k] =
                        simd::simdAxis(grids[k], sizes[k], this->meanSpacing[k], this->strides[k]);
                else
                    simdAxes[k] =
                        simd::simdAxisF(grids[k], sizes[k], this->meanSpacing[k], this->strides[k]);
            }
        }
    }

    // The packed scattered path (PackedND.hpp): grid, values and queries all double or all
    // single, d = 2 or 3, a packed level with a kernel, and a value plane small enough for
    // 32-bit offsets.
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q> || simd::allSingle<G, V, Q>;
    bool simdUsable() const noexcept { return !simdAxes.empty(); }

    // Queries [b, e) of d = D columns; one(q) evaluates query q the scalar way.
    template <u64 D, class Q, class One>
    void scatteredSimd(const Q* const* col, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (hasSimdPath<Q>)
            simd::scatteredND<V>(kernel_, simd::KindND::Nearest, static_cast<int>(D),
                                 simdAxes.data(), this->values, nullptr, col, b, e, out, stride,
                                 one);
    }

    // offset = (chosen index) * stride of the dimension; isNaN set when the coordinate is NaN.
    struct Pair {
        u64 offset;
        unsigned char isNaN;
    };
    using Buffer = NoBuffer;

    Buffer makeBuffer() const noexcept { return {}; }

    template <class Q>
    Pair makePair(u64 k, Q xq, u64 i) const noexcept {
        const G x = static_cast<G>(xq);
        const G* g = this->gridVectors[k];
        // Branch-free: on scattered queries the comparison is a coin toss.
        const u64 chosen = i + static_cast<u64>((x - g[i]) >= (g[i + 1] - x));
        return {chosen * this->strides[k], static_cast<unsigned char>(mathinterp::isNaN(xq))};
    }

    // Ask for the value's cache line ahead of the kernel (results do not depend on it).
    void prefetch(const Pair* p) const noexcept {
        u64 offset = 0;
        for (u64 k = 0; k < this->numDims; ++k)
            offset += p[k].offset;
        __builtin_prefetch(this->values + offset);
    }

    V kernel(const Pair* p, Buffer&) const noexcept {
        u64 offset = 0;
        for (u64 k = 0; k < this->numDims; ++k) {
            if (p[k].isNaN) return engineNaN<V>();
            offset += p[k].offset;
        }
        return this->values[offset];
    }

private:
    // The packed search's view of each dimension (empty: the packed path is off).
    using Axis = std::conditional_t<std::is_same_v<G, float>, simd::SimdAxisF, simd::SimdAxis>;
    platform::HostVector<Axis> simdAxes;
    simd::PackedNDKernel<std::conditional_t<std::is_same_v<G, float>, float, double>> kernel_ =
        nullptr;
};

} // namespace mathinterp
