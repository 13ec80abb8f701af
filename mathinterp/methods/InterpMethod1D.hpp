// InterpMethod1D: the base of every 1-D method. A method object points at the interpolant's
// grid vector and at one value plane, owns neither, and carries the fields the interval
// search reads. Every 1-D method class provides, non-virtually:
//   void complete();                       fill its lazy caches (once-guarded, thread-safe)
//   template <class Q> V kernel(Q x, u64 i) const;   value at query x on interval i
//   void rebindValues(const V* plane);     new plane; caches derived from values dropped
//   static constexpr bool available;       false while the method is not built yet
#pragma once

#include "mathinterp/core/FindInterval.hpp"
#include "mathinterp/core/Numeric.hpp"

namespace mathinterp {

template <class G, class V>
class InterpMethod1D {
public:
    using GridType = G;
    using ValueType = V;
    static constexpr bool isND = false;

    InterpMethod1D(const G* grid, u64 n, const V* plane)
        : gridPoints(grid), numPoints(n), values(plane),
          meanSpacing((grid[n - 1] - grid[0]) / static_cast<G>(n - 1)), lastInterval(n - 2),
          firstPoint(grid[0]), secondPoint(grid[1]), penultimatePoint(grid[n - 2]) {}
    virtual ~InterpMethod1D() = default;
    InterpMethod1D(const InterpMethod1D&) = delete;
    InterpMethod1D& operator=(const InterpMethod1D&) = delete;

    void complete() {}
    void rebindValues(const V* plane) noexcept { values = plane; }
    G lastPoint() const noexcept { return gridPoints[numPoints - 1]; }

    const G* gridPoints;
    u64 numPoints;
    const V* values;
    G meanSpacing;
    u64 lastInterval;
    G firstPoint;
    G secondPoint;
    G penultimatePoint;
    u64 numDims = 1;
};

} // namespace mathinterp
