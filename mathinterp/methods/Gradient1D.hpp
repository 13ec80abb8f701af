// Derivatives of the 1-D methods: Derivative1D<M>::at<Order>(m, x, i) is the Order-th
// derivative (1 or 2) at query x of the piece the value kernel uses on interval i. Each reads
// the tables the method's value kernel reads (coefficient blocks, widths, ghosts), so it runs
// after complete(). Steps (nearest, next, previous) have derivative 0, "none" NaN; a NaN query,
// or a NaN reaching the piece from the values, gives the engine's NaN.
#pragma once

#include "mathinterp/methods/Cubic1D.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/Makima1D.hpp"
#include "mathinterp/methods/Pchip1D.hpp"
#include "mathinterp/methods/Spline1D.hpp"
#include "mathinterp/methods/Step1D.hpp"

namespace mathinterp {

namespace grad {

template <class V>
inline V nanAsEngine(V r) noexcept {
    return isNaN(r) ? engineNaN<V>() : r;
}

// Derivative of ((c3 s + c2) s + c1) s + c0: (3 c3 s + 2 c2) s + c1, or 6 c3 s + 2 c2.
template <int Order, class V>
inline V cubicPieceDerivative(const V* coef, u64 pieces, u64 k, V s) noexcept {
    const V c3 = coef[k];
    const V c2 = coef[pieces + k];
    if constexpr (Order == 1)
        return (V(3) * c3 * s + V(2) * c2) * s + coef[2 * pieces + k];
    else
        return V(6) * c3 * s + V(2) * c2;
}

// Derivatives of the cubic-convolution weights (CubicConvolution.hpp) in t, same factor 2.
template <int Order, class V>
inline CubicWeights<V> cubicWeightDerivatives(V t) noexcept {
    if constexpr (Order == 1)
        return {(V(4) - V(3) * t) * t - V(1), (V(9) * t - V(10)) * t, (V(8) - V(9) * t) * t + V(1),
                (V(3) * t - V(2)) * t};
    else
        return {V(4) - V(6) * t, V(18) * t - V(10), V(8) - V(18) * t, V(6) * t - V(2)};
}

} // namespace grad

// The primary template serves the steps: 0 where the value is a number, NaN where it is NaN.
template <class M>
struct Derivative1D {
    template <int Order, class Q>
    static typename M::ValueType at(const M& m, Q x, u64 i) noexcept {
        using V = typename M::ValueType;
        return isNaN(m.kernel(x, i)) ? engineNaN<V>() : V(0);
    }
};

template <class G, class V>
struct Derivative1D<Constant1D<G, V>> {
    template <int Order, class Q>
    static V at(const Constant1D<G, V>&, Q, u64) noexcept {
        return engineNaN<V>();
    }
};

// The slope (y[i+1] - y[i]) / h_i of interval i (0 for equal ends, whatever they are); the
// second derivative is 0 wherever the slope is a number.
template <class G, class V>
struct Derivative1D<Linear1D<G, V>> {
    template <int Order, class Q>
    static V at(const Linear1D<G, V>& m, Q x, u64 i) noexcept {
        if (isNaN(x)) return engineNaN<V>();
        const V a = m.values[i];
        const V b = m.values[i + 1];
        const V slope = (a == b) ? V(0) : (b - a) / static_cast<V>(m.intervalWidths[i]);
        if constexpr (Order == 1)
            return grad::nanAsEngine(slope);
        else
            return isNaN(slope) ? engineNaN<V>() : V(0);
    }
};

// pchip and spline: the piece of interval k, its offset formed as the value kernel forms it.
template <class G, class V>
struct Derivative1D<PiecewiseCubic1D<G, V>> {
    template <int Order, class Q>
    static V at(const PiecewiseCubic1D<G, V>& m, Q x, u64 k) noexcept {
        const V s = cubicOffset<G, V>(x, m.gridPoints[k]);
        return grad::nanAsEngine(
            grad::cubicPieceDerivative<Order>(m.coefficientBlocks(), m.numPieces, k, s));
    }
};
template <class G, class V>
struct Derivative1D<Pchip1D<G, V>> : Derivative1D<PiecewiseCubic1D<G, V>> {};
template <class G, class V>
struct Derivative1D<Spline1D<G, V>> : Derivative1D<PiecewiseCubic1D<G, V>> {};

// makima: the service's block has the same four-block layout (c3, c2, c1, c0) of n - 1 pieces.
// The offset is the service's (query in the grid type, the difference in the service's grid
// type), which equals cubicOffset's for every precision pair.
template <class G, class V>
struct Derivative1D<Makima1D<G, V>> {
    template <int Order, class Q>
    static V at(const Makima1D<G, V>& m, Q x, u64 k) noexcept {
        const V s = cubicOffset<G, V>(x, m.gridPoints[k]);
        return grad::nanAsEngine(
            grad::cubicPieceDerivative<Order>(m.precomputedData.data(), m.numPoints - 1, k, s));
    }
};

// Cubic convolution: the value kernel's sum with the weights differentiated in t, divided by
// the spacing (once per order).
template <class G, class V>
struct Derivative1D<Cubic1D<G, V>> {
    template <int Order, class Q>
    static V at(const Cubic1D<G, V>& m, Q xq, u64 k) noexcept {
        if (isNaN(xq)) return engineNaN<V>();
        const G x = static_cast<G>(xq);
        const V t = static_cast<V>((x - m.gridPoints[k]) / m.spacings[k]);
        const CubicWeights<V> w = grad::cubicWeightDerivatives<Order>(t);
        const V* y = m.values;
        const V ym1 = (k == 0) ? m.leftGhost : y[k - 1];
        const V y2 = (k == m.lastInterval) ? m.rightGhost : y[k + 2];
        const V sum = ((w.wm1 * ym1 + w.w0 * y[k]) + w.w1 * y[k + 1]) + w.w2 * y2;
        const V h = static_cast<V>(m.spacings[k]);
        V r = (V(0.5) * sum) / h;
        if constexpr (Order == 2) r = r / h;
        return grad::nanAsEngine(r);
    }
};

} // namespace mathinterp
