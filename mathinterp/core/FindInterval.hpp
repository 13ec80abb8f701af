// The interval (bin) search shared by every 1-D method and by each dimension of the N-D
// methods, with the in-range test of the interpolation-plus-extrapolation drivers made in the
// same pass. The guess from the mean spacing gives constant time on uniform grids; a
// bisection confined to [1, n-3] corrects it on irregular ones. No state is kept between
// queries, so queries may be split across threads in any order.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#include <type_traits>

namespace mathinterp {

// One grid axis as the search sees it. InterpMethod1D carries the same members.
template <class G>
struct GridAxis {
    const G* gridPoints = nullptr;
    u64 numPoints = 0;
    G meanSpacing{};
    u64 lastInterval = 0;
    G firstPoint{};
    G secondPoint{};
    G penultimatePoint{};

    GridAxis() = default;
    GridAxis(const G* x, u64 n)
        : gridPoints(x), numPoints(n),
          meanSpacing((x[n - 1] - x[0]) / static_cast<G>(n - 1)), lastInterval(n - 2),
          firstPoint(x[0]), secondPoint(x[1]), penultimatePoint(x[n - 2]) {}
};

namespace detail {
// Comparisons promote: a double query meets single grid points widened to double, a single
// query is widened on a double grid.
template <bool WantRange, class Axis, class Q>
inline u64 searchInterval(const Axis& a, Q x, bool* inRange) noexcept {
    const auto* g = a.gridPoints;
    if (!(x >= a.secondPoint)) { // below x[1], or NaN
        if constexpr (WantRange) *inRange = (x >= a.firstPoint);
        return 0;
    }
    if (x >= a.penultimatePoint) {
        if constexpr (WantRange) *inRange = (g[a.numPoints - 1] >= x);
        return a.lastInterval;
    }
    if constexpr (WantRange) *inRange = true;
    using C = std::common_type_t<Q, std::remove_cv_t<std::remove_reference_t<decltype(*g)>>>;
    const C ms = static_cast<C>(a.meanSpacing);
    const C q = static_cast<C>(x) / ms - static_cast<C>(a.firstPoint) / ms;
    // Extreme magnitudes can push the guess outside the grid: clamp before use.
    u64 j;
    if (!(q > C(0)))
        j = 0;
    else if (!(q < static_cast<C>(a.lastInterval)))
        j = a.lastInterval;
    else
        j = static_cast<u64>(q);
    u64 lo = 1, hi = a.lastInterval;
    if (x >= g[j]) {
        if (x < g[j + 1]) return j;
        j = j + 1;
        lo = j;
    } else {
        hi = j;
        j = j - 1;
    }
    for (;;) {
        if (x < g[j]) {
            hi = j;
            j = (lo + j) >> 1;
        } else if (x < g[j + 1]) {
            return j;
        } else {
            lo = j + 1;
            j = (lo + hi) >> 1;
        }
    }
}
} // namespace detail

// Interval i in [0, n-2]: x[i] <= x < x[i+1] inside; 0 below x[1] and for NaN; n-2 at or
// above x[n-2] (so x[n-2] and x[n-1] fall into the last interval).
template <class Axis, class Q>
inline u64 findInterval(const Axis& a, Q x) noexcept {
    return detail::searchInterval<false>(a, x, nullptr);
}

// The same search; inRange is set when x lies in the closed range [x[0], x[n-1]] (NaN is out).
template <class Axis, class Q>
inline u64 findInterval(const Axis& a, Q x, bool& inRange) noexcept {
    return detail::searchInterval<true>(a, x, &inRange);
}

} // namespace mathinterp
