// Linear1D: piecewise linear interpolation in 1-D, extrapolating linearly from the end
// intervals. The blend (1 - t)*y[i] + y[i+1]*t is fixed to the bit; a constant stretch
// returns its value exactly, and when the blend is NaN an exactly-zero weight keeps an
// infinite neighbour out, an infinite query on a sloped interval gives a signed infinity.
#pragma once

#include "mathinterp/core/BucketIndex.hpp"
#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/methods/InterpMethod1D.hpp"
#include "mathinterp/methods/Packed1D.hpp"

#include <platform/HostAllocator.hpp>

#include <cmath>
#include <limits>
#include <utility>

namespace mathinterp {

template <class G, class V>
class Linear1D final : public InterpMethod1D<G, V> {
    using Base = InterpMethod1D<G, V>;

public:
    static constexpr bool available = true;
    using Base::Base;

    // intervalWidths and the bucket index depend on the grid only: filled once, kept across
    // rebinding.
    void complete() {
        widthsGuard_.ensure([this] {
            platform::HostVector<G> w(this->numPoints - 1);
            for (u64 i = 0; i + 1 < this->numPoints; ++i)
                w[i] = this->gridPoints[i + 1] - this->gridPoints[i];
            BucketIndex index = buildBucketIndex(this->gridPoints, this->numPoints);
            intervalWidths.swap(w);
            buckets_ = std::move(index);
            packed_.build(this->gridPoints, this->numPoints, this->meanSpacing, buckets_);
        });
    }
    const BucketIndex* bucketIndex() const noexcept {
        return widthsGuard_.ready() && !buckets_.empty() ? &buckets_ : nullptr;
    }

    // The packed path (see Packed1D.hpp): grid, values and queries all double or all single.
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q> || simd::allSingle<G, V, Q>;
    bool simdUsable() const noexcept { return widthsGuard_.ready() && packed_.usable; }
    template <class Q, class One>
    void scatteredSimd(const Q* x, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (hasSimdPath<Q>)
            simd::scattered1D<simd::Kind1D::Linear>(packed_.axis, this->values, x, b, e, out,
                                                    stride, one);
    }

    template <class Q>
    V kernel(Q xq, u64 i) const noexcept {
        const V* y = this->values;
        const G x = static_cast<G>(xq);
        const V t = static_cast<V>((x - this->gridPoints[i]) / intervalWidths[i]);
        const V a = y[i];
        const V b = y[i + 1];
        const V r = (V(1) - t) * a + b * t;
        if (!isNaN(r)) return (a == b) ? a : r;
        if (t == V(0)) return a;
        if (t == V(1)) return b;
        if (a == b && !isNaN(x)) return a;
        if (std::abs(t) > std::numeric_limits<V>::max()) return (b - a) * t;
        return r;
    }

    platform::HostVector<G> intervalWidths;

private:
    BucketIndex buckets_;
    simd::Packed1DAxis<G> packed_;
    OnceGuard widthsGuard_;
};

} // namespace mathinterp
