// The step methods in 1-D: Nearest1D (ties take the upper neighbour), Next1D, Previous1D,
// and the extrapolation-only Constant1D. Next and previous compare the query with the grid
// points exactly, as the interval search does (a double query is not rounded to a single
// grid's precision first).
#pragma once

#include "mathinterp/methods/InterpMethod1D.hpp"
#include "mathinterp/methods/Packed1D.hpp"

namespace mathinterp {

template <class G, class V>
class Nearest1D final : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = true;
    using InterpMethod1D<G, V>::InterpMethod1D;

    void complete() { index_.ensure(this->gridPoints, this->numPoints, this->meanSpacing); }
    const BucketIndex* bucketIndex() const noexcept { return index_.bucketIndex(); }

    // The packed path (see Packed1D.hpp): grid, values and queries all double or all single.
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q> || simd::allSingle<G, V, Q>;
    bool simdUsable() const noexcept { return index_.packedUsable(); }
    template <class Q, class One>
    void scatteredSimd(const Q* x, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (hasSimdPath<Q>)
            simd::scattered1D<simd::Kind1D::Nearest>(index_.packedAxis(), this->values, x, b, e,
                                                     out, stride, one);
    }

    template <class Q>
    V kernel(Q xq, u64 i) const noexcept {
        if (isNaN(xq)) return engineNaN<V>();
        const G x = static_cast<G>(xq);
        const G* g = this->gridPoints;
        // Index arithmetic instead of a branch: the comparison is unpredictable.
        return this->values[i + static_cast<u64>((x - g[i]) >= (g[i + 1] - x))];
    }

private:
    GridIndex1D<G> index_;
};

template <class G, class V>
class Next1D final : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = true;
    using InterpMethod1D<G, V>::InterpMethod1D;

    void complete() { index_.ensure(this->gridPoints, this->numPoints, this->meanSpacing); }
    const BucketIndex* bucketIndex() const noexcept { return index_.bucketIndex(); }

    // The packed path (see Packed1D.hpp): grid, values and queries all double or all single.
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q> || simd::allSingle<G, V, Q>;
    bool simdUsable() const noexcept { return index_.packedUsable(); }
    template <class Q, class One>
    void scatteredSimd(const Q* x, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (hasSimdPath<Q>)
            simd::scattered1D<simd::Kind1D::Next>(index_.packedAxis(), this->values, x, b, e, out,
                                                  stride, one);
    }

    template <class Q>
    V kernel(Q x, u64 i) const noexcept {
        if (isNaN(x)) return engineNaN<V>();
        if (x > this->lastPoint()) return engineNaN<V>();
        return (x > this->gridPoints[i]) ? this->values[i + 1] : this->values[i];
    }

private:
    GridIndex1D<G> index_;
};

template <class G, class V>
class Previous1D final : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = true;
    using InterpMethod1D<G, V>::InterpMethod1D;

    void complete() { index_.ensure(this->gridPoints, this->numPoints, this->meanSpacing); }
    const BucketIndex* bucketIndex() const noexcept { return index_.bucketIndex(); }

    // The packed path (see Packed1D.hpp): grid, values and queries all double or all single.
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q> || simd::allSingle<G, V, Q>;
    bool simdUsable() const noexcept { return index_.packedUsable(); }
    template <class Q, class One>
    void scatteredSimd(const Q* x, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (hasSimdPath<Q>)
            simd::scattered1D<simd::Kind1D::Previous>(index_.packedAxis(), this->values, x, b, e,
                                                      out, stride, one);
    }

    template <class Q>
    V kernel(Q x, u64 i) const noexcept {
        if (isNaN(x)) return engineNaN<V>();
        if (x < this->firstPoint) return engineNaN<V>();
        return (x >= this->lastPoint()) ? this->values[i + 1] : this->values[i];
    }

private:
    GridIndex1D<G> index_;
};

// Extrapolation only: every query handed to it (NaN included) gets extrapConstant, which
// stays the engine's NaN: constant extrapolation is extrapolation switched off.
template <class G, class V>
class Constant1D final : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = true;
    using InterpMethod1D<G, V>::InterpMethod1D;

    template <class Q>
    V kernel(Q, u64) const noexcept {
        return extrapConstant;
    }

    V extrapConstant = engineNaN<V>();
};

} // namespace mathinterp
