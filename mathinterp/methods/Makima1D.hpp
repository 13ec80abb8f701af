// Makima1D: modified Akima ("makima") interpolation in 1-D, computed by the host's
// AkimaFixedGridService (definition in docs/makima.md). The first evaluation precomputes the
// service's result block for this value plane, once, under a guard; every query is then one
// service call on the interval the search found, the end cubics continuing outside the grid.
// A query on a grid point returns that point's value exactly. Any NaN result is the engine's.
#pragma once

#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/methods/InterpMethod1D.hpp"

#include <platform/AkimaFixedGridService.hpp>
#include <platform/HostAllocator.hpp>

#include <new>
#include <type_traits>

namespace mathinterp {

namespace detail {
// A zero-filled host array of n elements; a length the array cannot hold is out of memory.
template <class T>
platform::HostVector<T> zeroFilled(u64 n) {
    if (n > platform::HostVector<T>().max_size()) throw std::bad_alloc();
    return platform::HostVector<T>(static_cast<std::size_t>(n));
}
} // namespace detail

template <class G, class V>
class Makima1D final : public InterpMethod1D<G, V> {
    using Base = InterpMethod1D<G, V>;
    // The service interpolates double values on a double grid: a single grid under double
    // values is widened once, with the precomputation, not per query.
    static constexpr bool widensGrid = std::is_same_v<G, float> && std::is_same_v<V, double>;
    using ServiceGrid = std::conditional_t<widensGrid, double, G>;

public:
    static constexpr bool available = true;
    using Base::Base;

    void complete() {
        guard_.ensure([this] { precompute(); });
    }

    // The block derives from the values: dropped here, rebuilt by the next evaluation. The
    // widened grid depends on the grid only and stays.
    void rebindValues(const V* plane) noexcept {
        Base::rebindValues(plane);
        guard_.reset();
        platform::HostVector<V>().swap(precomputedData);
    }

    template <class Q>
    V kernel(Q xq, u64 k) const noexcept {
        // Position arithmetic in the grid type: the query is converted to it first.
        const ServiceGrid x = static_cast<ServiceGrid>(static_cast<G>(xq));
        V out = V(0);
        if constexpr (std::is_same_v<V, double>)
            platform::akimaFixedGrid_interpolate_1D_double(this->numPoints, serviceGrid(), 0, 1,
                                                           precomputedData.data(), 1, &x, &k, &out);
        else
            platform::akimaFixedGrid_interpolate_1D_float(this->numPoints, serviceGrid(), 0, 1,
                                                          precomputedData.data(), 1, &x, &k, &out);
        return isNaN(out) ? engineNaN<V>() : out;
    }

    // The service's result block for this plane; empty until the first evaluation.
    platform::HostVector<V> precomputedData;
    // The grid widened to double (single grid, double values only).
    platform::HostVector<double> widenedGrid;

private:
    const ServiceGrid* serviceGrid() const noexcept {
        if constexpr (widensGrid)
            return widenedGrid.data();
        else
            return this->gridPoints;
    }

    void precompute() {
        const u64 n = this->numPoints;
        if constexpr (widensGrid) {
            if (widenedGrid.empty()) {
                platform::HostVector<double> g = detail::zeroFilled<double>(n);
                for (u64 i = 0; i < n; ++i)
                    g[i] = static_cast<double>(this->gridPoints[i]);
                widenedGrid.swap(g);
            }
        }
        u64 workspaceLength = 0, resultLength = 0;
        platform::akimaFixedGrid_precomputeWS_1D(n, &workspaceLength, &resultLength);
        // Block and workspace live together: both must fit before either is made.
        platform::checkMemoryFits(checkedBytes<V>(checkedAdd(resultLength, workspaceLength)));
        platform::HostVector<V> block = detail::zeroFilled<V>(resultLength);
        platform::HostVector<V> workspace = detail::zeroFilled<V>(workspaceLength);
        if constexpr (std::is_same_v<V, double>)
            platform::akimaFixedGrid_precompute_1D_double(n, serviceGrid(), this->values,
                                                          workspace.data(), block.data());
        else
            platform::akimaFixedGrid_precompute_1D_float(n, serviceGrid(), this->values,
                                                         workspace.data(), block.data());
        precomputedData.swap(block);
    }

    OnceGuard guard_;
};

} // namespace mathinterp
