// The cubic-convolution weights (Keys' kernel with a = -1/2), shared by Cubic1D and CubicND.
// The weights are twice Keys' weights, so callers apply one factor 0.5 (1-D) or 1/2^d (N-D)
// at the end. t^2 is formed once as t*t; the order of operations below is part of the result.
#pragma once

namespace mathinterp {

template <class V>
struct CubicWeights {
    V wm1; // weight of the value left of the cell
    V w0;  // lower cell end
    V w1;  // upper cell end
    V w2;  // value right of the cell
};

// At t = 0 the weights are (0, 2, 0, 0) and at t = 1 (0, 0, 2, 0), so grid points are exact.
template <class V>
inline CubicWeights<V> cubicWeights(V t) noexcept {
    const V t2 = t * t;
    return {((V(2) - t) * t - V(1)) * t, (V(3) * t - V(5)) * t2 + V(2),
            ((V(4) - V(3) * t) * t + V(1)) * t, (t - V(1)) * t2};
}

} // namespace mathinterp
