// InterpMethodND: the base of every N-D method. It points at the grid vectors and at one
// value plane (column-major over the grid, first dimension fastest), owns neither, and keeps
// per-dimension tables: sizes, mean spacings, strides and last-interval indices.
//
// The method concept the N-D drivers (core/DriversND.hpp) compile against. A method class
// derives from InterpMethodND<G, V> and provides, non-virtually unless noted:
//   static constexpr bool available;   false while the method is not built yet
//   using Pair = ...;                  what the kernel needs of one coordinate of one query
//                                      (trivially copyable; LinearND: offset and t)
//   using Buffer = ...;                per-thread scratch (DefaultBuffer<V>, NoBuffer, or a
//                                      method's own type); copy-constructible
//   Buffer makeBuffer() const;         the exemplar every thread's copy is made from; called
//                                      after preparation, once per evaluation
//   template <class Q> Pair makePair(u64 k, Q x, u64 i) const;
//                                      pair of coordinate x (query precision Q) in dimension k,
//                                      i = findInterval(axis(k), x). Depends on the grid only:
//                                      gridded tables are built once, from plane 0's object,
//                                      and serve every plane
//   V kernel(const Pair* pairs, Buffer& scratch) const;
//                                      value at one query from its d pairs
//   void prepare();                    virtual; idempotent; safe when several host threads
//                                      evaluate one evaluator at once (fill under OnceGuard)
// Optional, with defaults here:
//   void prepareForPoints();           called on the calling thread before any per-point
//                                      kernel runs (scattered, or gridded point by point);
//                                      default: prepare(). A method with query-form specific
//                                      tables (SplineND) hides it with its own.
//   static constexpr bool usesPairs;   false for ConstantND: as an extrapolation method it is
//                                      called with no pairs, and the outside test may stop at
//                                      the first outside coordinate
//   static constexpr bool hasGriddedPath;  true: a gridded evaluation with this method alone
//                                      calls evaluateGriddedPlane(const GriddedPairs<Pair>&,
//                                      V* out, u64 stride) per plane instead of the per-point
//                                      loop (SplineND's dimension-by-dimension reduction). The
//                                      driver then calls prepare() (not prepareForPoints())
//                                      before building the pair tables; the method prepares
//                                      what the path needs itself
#pragma once

#include "mathinterp/core/FindInterval.hpp"
#include "mathinterp/core/NDBuffers.hpp"
#include "mathinterp/core/Numeric.hpp"

#include <platform/HostAllocator.hpp>

namespace mathinterp {

template <class G, class V>
class InterpMethodND {
public:
    using GridType = G;
    using ValueType = V;
    static constexpr bool isND = true;
    static constexpr bool usesPairs = true;
    static constexpr bool hasGriddedPath = false;

    // Every grid vector holds at least 2 points (the interpolant refuses shorter ones).
    InterpMethodND(const G* const* grids, const u64* sizes, const V* valuesPlane, u64 d)
        : gridVectors(grids, grids + d), gridSizes(sizes, sizes + d), values(valuesPlane),
          meanSpacing(d), strides(d), lastInterval(d), numDims(d) {
        u64 stride = 1;
        for (u64 k = 0; k < d; ++k) {
            const u64 n = sizes[k];
            meanSpacing[k] = n > 1 ? (grids[k][n - 1] - grids[k][0]) / static_cast<G>(n - 1) : G(0);
            strides[k] = stride;
            stride *= n; // sizes were checked against overflow when the values were stored
            lastInterval[k] = n >= 2 ? n - 2 : 0;
        }
    }
    virtual ~InterpMethodND() = default;
    InterpMethodND(const InterpMethodND&) = delete;
    InterpMethodND& operator=(const InterpMethodND&) = delete;

    virtual void prepare() {}
    void prepareForPoints() { prepare(); }
    void rebindValues(const V* plane) noexcept { values = plane; }

    // The interval search's view of dimension k.
    GridAxis<G> axis(u64 k) const noexcept { return GridAxis<G>(gridVectors[k], gridSizes[k]); }

    platform::HostVector<const G*> gridVectors;
    platform::HostVector<u64> gridSizes;
    const V* values;
    platform::HostVector<G> meanSpacing;
    platform::HostVector<u64> strides;
    platform::HostVector<u64> lastInterval;
    u64 numDims;
};

} // namespace mathinterp
