// Spline1D: the interpolating cubic spline with not-a-knot end conditions in 1-D (C2; two
// points give the line, three the parabola through them). The coefficients come from the
// shared spline routine with the value plane as a single column, once per plane, in the
// value type; outside the grid the end cubics continue.
#pragma once

#include "mathinterp/methods/PiecewiseCubic.hpp"
#include "mathinterp/methods/SplineCoefficients.hpp"

namespace mathinterp {

template <class G, class V>
class Spline1D final : public PiecewiseCubic1D<G, V> {
    using Base = PiecewiseCubic1D<G, V>;

public:
    static constexpr bool available = true;
    using Base::Base;

    void complete() {
        this->ensureCoefficients([this] {
            const G* grids[1] = {this->gridPoints};
            const u64 sizes[1] = {this->numPoints};
            splineRecord = splineCoefficients<V, G>(this->values, grids, sizes, 1);
            return static_cast<const V*>(splineRecord.coefficients.get());
        });
    }

    void rebindValues(const V* plane) noexcept {
        this->values = plane;
        this->forgetCoefficients();
        splineRecord = SplineRecord<V>{};
    }

    SplineRecord<V> splineRecord; // empty until the first completion
};

} // namespace mathinterp
