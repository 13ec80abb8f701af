// InterpMethodND: the base of every N-D method. It points at the grid vectors and at one
// value plane (column-major over the grid, first dimension fastest), owns neither, and keeps
// per-dimension tables: sizes, mean spacings, strides and last-interval indices. prepare()
// builds a method's own tables once (idempotent, once-guarded in the derived classes).
#pragma once

#include "mathinterp/core/FindInterval.hpp"
#include "mathinterp/core/Numeric.hpp"

#include <platform/HostAllocator.hpp>

namespace mathinterp {

template <class G, class V>
class InterpMethodND {
public:
    using GridType = G;
    using ValueType = V;
    static constexpr bool isND = true;

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
