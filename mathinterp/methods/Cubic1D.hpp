// Cubic1D: cubic convolution (Keys' kernel, a = -1/2) on uniform 1-D grids of at least three
// points. Each query blends the four values around its interval; beyond the ends two ghost
// values continue the quadratic through the three end points, so quadratic data are
// reproduced exactly everywhere. Outside the grid the end interval's cubic in t continues.
// Cost: O(1) per query after an O(n) preparation (spacings, ghosts) done once per plane under
// once-guards, so concurrent first evaluations from several host threads are safe.
#pragma once

#include "mathinterp/core/BucketIndex.hpp"
#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/methods/CubicConvolution.hpp"
#include "mathinterp/methods/InterpMethod1D.hpp"
#include "mathinterp/methods/Packed1D.hpp"

#include <platform/HostAllocator.hpp>

namespace mathinterp {

template <class G, class V>
class Cubic1D final : public InterpMethod1D<G, V> {
    using Base = InterpMethod1D<G, V>;

public:
    static constexpr bool available = true;

    // The selection builds this class only for uniform grids with n >= 3.
    Cubic1D(const G* grid, u64 n, const V* plane) : Base(grid, n, plane), intervalCount(n - 1) {}

    // Spacings depend on the grid (kept across rebinding); ghosts on the values. Idempotent.
    virtual void prepare() {
        spacingsGuard_.ensure([this] {
            platform::HostVector<G> h(intervalCount);
            const G* x = this->gridPoints;
            for (u64 k = 0; k < intervalCount; ++k)
                h[k] = x[k + 1] - x[k];
            // Four points at least: an interior cell's four values are then in the plane.
            packed_.build(x, this->numPoints, this->meanSpacing, BucketIndex{}, 4);
            spacings.swap(h);
        });
        ghostsGuard_.ensure([this] {
            const V* y = this->values;
            const u64 n = this->numPoints;
            if (n < 3) { // never built so; NaN rather than a read past the plane
                leftGhost = rightGhost = engineNaN<V>();
                return;
            }
            leftGhost = (y[0] - y[1]) * V(3) + y[2];
            rightGhost = (y[n - 1] - y[n - 2]) * V(3) + y[n - 3];
        });
    }
    void complete() { prepare(); }

    bool prepared() const noexcept { return spacingsGuard_.ready() && ghostsGuard_.ready(); }

    // Only while no evaluation runs: the ghosts are recomputed on the next evaluation.
    void rebindValues(const V* plane) noexcept {
        this->values = plane;
        ghostsGuard_.reset();
    }

    // The packed path (see Packed1D.hpp): grid, values and queries all double or all
    // single; the end cells (ghost values) take this kernel.
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q> || simd::allSingle<G, V, Q>;
    bool simdUsable() const noexcept { return spacingsGuard_.ready() && packed_.usable; }
    template <class Q, class One>
    void scatteredSimd(const Q* x, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (hasSimdPath<Q>)
            simd::scattered1D<simd::Kind1D::Cubic>(packed_.axis, this->values, x, b, e, out, stride,
                                                   one);
    }

    template <class Q>
    V kernel(Q xq, u64 k) const noexcept {
        if (isNaN(xq)) return engineNaN<V>();
        const G x = static_cast<G>(xq);
        const V t = static_cast<V>((x - this->gridPoints[k]) / spacings[k]);
        const CubicWeights<V> w = cubicWeights(t);
        const V* y = this->values;
        const V y0 = y[k];
        const V y1 = y[k + 1];
        const V y2 = (k == this->lastInterval) ? rightGhost : y[k + 2];
        V sum;
        if (k == 0)
            sum = ((w.wm1 * leftGhost + w.w0 * y0) + w.w1 * y1) + w.w2 * y2;
        else
            sum = w.w2 * y2 + ((w.w0 * y0 + w.wm1 * y[k - 1]) + w.w1 * y1);
        const V r = V(0.5) * sum;
        return isNaN(r) ? engineNaN<V>() : r; // a NaN value: the engine's NaN
    }

    platform::HostVector<G> spacings; // h_k = x[k+1] - x[k], empty until prepared
    u64 intervalCount;                // n - 1
    V leftGhost = V(0);               // y[-1] = (y0 - y1)*3 + y2
    V rightGhost = V(0);              // y[n] = (y[n-1] - y[n-2])*3 + y[n-3]

private:
    simd::Packed1DAxis<G> packed_;
    OnceGuard spacingsGuard_;
    OnceGuard ghostsGuard_;
};

} // namespace mathinterp
