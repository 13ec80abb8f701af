// Pchip1D: shape-preserving piecewise cubic Hermite interpolation in 1-D (Fritsch-Carlson
// monotone slopes with the Fritsch-Butland weighted harmonic mean inside, a one-sided
// three-point formula clamped to 3*delta at the ends). Monotone data give a monotone curve,
// a local extremum of the data gets a zero slope; the curve is C1. Outside the grid the end
// cubics continue. Coefficients are built once per value plane, in the value type.
#pragma once

#include "mathinterp/methods/PiecewiseCubic.hpp"

#include <cmath>

namespace mathinterp {

namespace pchip {

// Slopes agree when both are negative or both are not; a NaN counts as not negative.
template <class V>
inline bool agree(V a, V b) noexcept {
    return (a < V(0)) == (b < V(0));
}

// Node slope between intervals of widths hl, hr and slopes dl, dr: zero at a change of sign
// or next to a flat interval, otherwise the weighted harmonic mean. A NaN slope passes the
// tests and gives a NaN derivative.
template <class V>
inline V interiorSlope(V dl, V dr, V hl, V hr) noexcept {
    if (!agree(dl, dr) || dl == V(0) || dr == V(0)) return V(0);
    const V w1 = V(2) * hr + hl;
    const V w2 = V(2) * hl + hr;
    return (w1 + w2) / (w1 / dl + w2 / dr);
}

// End slope from the end interval (h0, d0) and its neighbour (h1, d1): the one-sided
// three-point formula, zero when it disagrees with d0, at most 3*d0 in magnitude when the
// data turn at the neighbouring node.
template <class V>
inline V endSlope(V h0, V h1, V d0, V d1) noexcept {
    V d = ((V(2) * h0 + h1) * d0 - h0 * d1) / (h0 + h1);
    if (!agree(d, d0))
        d = V(0);
    else if (!agree(d0, d1) && std::abs(d) > std::abs(V(3) * d0))
        d = V(3) * d0;
    return d;
}

} // namespace pchip

// Fill the four blocks coef[0 .. 4(n-1)) for grid x and values y (n >= 2). Grid points are
// converted to the value type before they are differenced. The first block holds the slopes
// and the third the node derivatives as scratch (the last derivative spills into the fourth
// block until the values are copied there); the order of every operation is fixed.
template <class V, class G>
void pchipCoefficients(V* coef, const G* x, const V* y, u64 n) {
    const u64 p = n - 1;
    V* c3 = coef;
    V* c2 = coef + p;
    V* d = coef + 2 * p;
    V* c0 = coef + 3 * p;
    if (n == 2) {
        c3[0] = V(0);
        c2[0] = V(0);
        d[0] = (y[1] - y[0]) / (static_cast<V>(x[1]) - static_cast<V>(x[0]));
        c0[0] = y[0];
        return;
    }
    platform::HostVector<V> widths(p);
    V* h = widths.data();
    V* delta = c3;
    for (u64 k = 0; k < p; ++k) {
        h[k] = static_cast<V>(x[k + 1]) - static_cast<V>(x[k]);
        delta[k] = (y[k + 1] - y[k]) / h[k];
    }
    for (u64 k = 1; k + 1 < n; ++k)
        d[k] = pchip::interiorSlope(delta[k - 1], delta[k], h[k - 1], h[k]);
    d[0] = pchip::endSlope(h[0], h[1], delta[0], delta[1]);
    d[n - 1] = pchip::endSlope(h[n - 2], h[n - 3], delta[n - 2], delta[n - 3]);
    for (u64 k = 0; k < p; ++k) {
        const V a = (delta[k] - d[k]) / h[k];
        const V b = (d[k + 1] - delta[k]) / h[k];
        c2[k] = a + a - b;
        c3[k] = (b - a) / h[k]; // overwrites delta[k], no longer needed
    }
    for (u64 k = 0; k < p; ++k)
        c0[k] = y[k];
}

template <class G, class V>
class Pchip1D final : public PiecewiseCubic1D<G, V> {
    using Base = PiecewiseCubic1D<G, V>;

public:
    static constexpr bool available = true;
    using Base::Base;

    void complete() {
        this->ensureCoefficients([this] {
            HostBlock<V> c = allocateHostBlock<V>(cubicCoefficientCount(this->numPieces, 1));
            pchipCoefficients(c.get(), this->gridPoints, this->values, this->numPoints);
            coefficients = std::move(c);
            return static_cast<const V*>(coefficients.get());
        });
    }

    void rebindValues(const V* plane) noexcept {
        this->values = plane;
        this->forgetCoefficients();
        coefficients.reset();
    }

    HostBlock<V> coefficients; // null until the first completion
};

} // namespace mathinterp
