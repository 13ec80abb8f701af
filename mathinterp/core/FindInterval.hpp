// The interval (bin) search shared by every 1-D method and by each dimension of the N-D
// methods, with the in-range test of the interpolation-plus-extrapolation drivers made in the
// same pass. The guess from the mean spacing gives constant time on uniform grids; a
// branchless halving of the cells on the guess's side corrects it on irregular ones; a 1-D
// method that keeps a bucket index of its grid has that index answer instead. No state is
// kept between queries, so queries may be split across threads in any order.
#pragma once

#include "mathinterp/core/BucketIndex.hpp"
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
        : gridPoints(x), numPoints(n), meanSpacing((x[n - 1] - x[0]) / static_cast<G>(n - 1)),
          lastInterval(n - 2), firstPoint(x[0]), secondPoint(x[1]), penultimatePoint(x[n - 2]) {}
};

// The search over one axis for queries of type Q. Comparisons promote: a double query meets
// single grid points widened to double, a single query is widened on a double grid. The guess
// is formed in that common type as x * (1 / meanSpacing) - firstPoint * (1 / meanSpacing), the
// reciprocal and the second product once here. The guess only picks where the comparisons
// start: the interval found is the one the comparisons admit, whatever the guess, so a product
// (one cycle) serves as well as a quotient (a dozen, on the critical path of every query).
template <class G, class Q>
class IntervalSearch {
public:
    using C = std::common_type_t<G, Q>;

    template <class Axis>
    explicit IntervalSearch(const Axis& a) noexcept
        : g_(a.gridPoints), last_(a.lastInterval), first_(a.firstPoint), second_(a.secondPoint),
          penultimate_(a.penultimatePoint), lastPoint_(a.gridPoints[a.numPoints - 1]),
          invMs_(C(1) / static_cast<C>(a.meanSpacing)),
          firstOverMs_(static_cast<C>(a.firstPoint) * invMs_) {
        if constexpr (requires { a.bucketIndex(); }) buckets_ = a.bucketIndex();
    }

    // Interval i in [0, n-2]: x[i] <= x < x[i+1] inside; 0 below x[1] and for NaN; n-2 at
    // or above x[n-2] (so x[n-2] and x[n-1] fall into the last interval).
    [[gnu::always_inline]] u64 find(Q x) const noexcept { return search<false>(x, nullptr); }
    // The same; inRange is set when x lies in the closed range [x[0], x[n-1]] (NaN is out).
    [[gnu::always_inline]] u64 find(Q x, bool& inRange) const noexcept {
        return search<true>(x, &inRange);
    }

private:
    // Forced inline: the query loops call it once per query and its fast path is a few
    // compares; as a call it costs a quarter of a cheap method's time.
    template <bool WantRange>
    [[gnu::always_inline]] u64 search(Q x, bool* inRange) const noexcept {
        if (!(x >= second_)) { // below x[1], or NaN
            if constexpr (WantRange) *inRange = (x >= first_);
            return 0;
        }
        if (x >= penultimate_) {
            if constexpr (WantRange) *inRange = (lastPoint_ >= x);
            return last_;
        }
        if constexpr (WantRange) *inRange = true;
        if (buckets_) return buckets_->find(g_, static_cast<C>(x));
        const C q = static_cast<C>(x) * invMs_ - firstOverMs_;
        // Extreme magnitudes can push the guess outside the grid: clamp before converting.
        u64 j;
        if (!(q > C(0)))
            j = 0;
        else if (!(q < static_cast<C>(last_)))
            j = last_;
        else
            j = static_cast<u64>(q);
        const G* g = g_;
        // The answer lies in [base, base + len): above the guess, or below it (g[1] <= x
        // holds, so cell 1 is a candidate there).
        u64 base, len;
        if (x >= g[j]) {
            if (x < g[j + 1]) return j;
            base = j + 1;
            len = last_ - j;
        } else {
            base = 1;
            len = j - 1;
        }
        // The last cell in the range whose left end is <= x, halving with a conditional move
        // rather than a branch: on irregular grids each step's direction is a coin toss, and
        // a mispredicted branch costs more than the step.
        while (len > 1) {
            const u64 half = len >> 1;
            base = (x >= g[base + half]) ? base + half : base;
            len -= half;
        }
        return base;
    }

    const G* g_;
    u64 last_;
    G first_, second_, penultimate_, lastPoint_;
    C invMs_;
    C firstOverMs_;
    const BucketIndex* buckets_ = nullptr; // null: the guess and the halving
};

template <class Axis>
using AxisGridType = std::remove_cv_t<std::remove_pointer_t<decltype(Axis::gridPoints)>>;

// One-off searches (tests, setup code); query loops hold an IntervalSearch instead.
template <class Axis, class Q>
inline u64 findInterval(const Axis& a, Q x) noexcept {
    return IntervalSearch<AxisGridType<Axis>, Q>(a).find(x);
}

template <class Axis, class Q>
inline u64 findInterval(const Axis& a, Q x, bool& inRange) noexcept {
    return IntervalSearch<AxisGridType<Axis>, Q>(a).find(x, inRange);
}

} // namespace mathinterp
