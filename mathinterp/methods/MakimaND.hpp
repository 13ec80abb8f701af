// MakimaND: modified Akima ("makima") interpolation in N dimensions, computed by the host's
// AkimaFixedGridService: per grid node the 2^d derivative tensors of the 1-D modified Akima
// operator, then tensor-product cubic Hermite evaluation on the query's cell (docs/makima.md).
// prepare() precomputes the service's result block once, under a guard; each query is one
// service call with the thread's MakimaBuffer as scratch. Outside the grid the end cells'
// cubics continue. Grid points are returned exactly; any NaN result is the engine's.
#pragma once

#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/methods/InterpMethodND.hpp"
#include "mathinterp/methods/Makima1D.hpp"

#include <platform/AkimaFixedGridService.hpp>
#include <platform/HostAllocator.hpp>

#include <type_traits>

namespace mathinterp {

// One thread's scratch for MakimaND: the service's two interpolation scratch arrays, sized by
// akimaFixedGrid_interpolateWS, and the query's coordinates and interval indices laid out as
// the service reads them.
template <class G, class V>
struct MakimaBuffer {
    platform::HostVector<V> valueScratch;
    platform::HostVector<u64> indexScratch;
    platform::HostVector<G> coordinates;
    platform::HostVector<u64> intervals;

    MakimaBuffer() = default;
    explicit MakimaBuffer(u64 d) {
        u64 valueLength = 0, indexLength = 0;
        platform::akimaFixedGrid_interpolateWS(d, &valueLength, &indexLength);
        valueScratch = detail::zeroFilled<V>(valueLength);
        indexScratch = detail::zeroFilled<u64>(indexLength);
        coordinates = detail::zeroFilled<G>(d);
        intervals = detail::zeroFilled<u64>(d);
    }
};

template <class G, class V>
class MakimaND final : public InterpMethodND<G, V> {
    using Base = InterpMethodND<G, V>;

public:
    static constexpr bool available = true;

    // The query coordinate in the grid type (position arithmetic) and its interval.
    struct Pair {
        G x;
        u64 i;
    };
    using Buffer = MakimaBuffer<G, V>;

    using Base::Base;

    void prepare() override {
        guard_.ensure([this] {
            const u64 d = this->numDims;
            const u64* dims = this->gridSizes.data();
            u64 ws1Length = 0, ws2Length = 0, resultLength = 0;
            platform::akimaFixedGrid_precomputeWS(d, dims, &ws1Length, &ws2Length, &resultLength);
            // The block and both workspaces live together: all must fit before any is made.
            platform::checkMemoryFits(
                checkedAdd(checkedBytes<V>(checkedAdd(resultLength, ws1Length)),
                           checkedBytes<u64>(ws2Length)));
            platform::HostVector<V> block = detail::zeroFilled<V>(resultLength);
            platform::HostVector<V> ws1 = detail::zeroFilled<V>(ws1Length);
            platform::HostVector<u64> ws2 = detail::zeroFilled<u64>(ws2Length);
            if constexpr (std::is_same_v<V, double>)
                platform::akimaFixedGrid_precompute_double(d, dims, this->gridVectors.data(),
                                                           this->values, ws1.data(), ws2.data(),
                                                           block.data());
            else
                platform::akimaFixedGrid_precompute_float(d, dims, this->gridVectors.data(),
                                                          this->values, ws1.data(), ws2.data(),
                                                          block.data());
            precomputedData.swap(block);
        });
    }

    // The block derives from the values: dropped here, rebuilt by the next prepare().
    void rebindValues(const V* plane) noexcept {
        Base::rebindValues(plane);
        guard_.reset();
        platform::HostVector<V>().swap(precomputedData);
    }

    Buffer makeBuffer() const { return Buffer(this->numDims); }

    template <class Q>
    Pair makePair(u64, Q xq, u64 i) const noexcept {
        return {static_cast<G>(xq), i};
    }

    V kernel(const Pair* p, Buffer& scratch) const noexcept {
        const u64 d = this->numDims;
        G* x = scratch.coordinates.data();
        u64* k = scratch.intervals.data();
        for (u64 j = 0; j < d; ++j) {
            x[j] = p[j].x;
            k[j] = p[j].i;
        }
        V out = V(0);
        if constexpr (std::is_same_v<V, double>)
            platform::akimaFixedGrid_interpolate_double(
                d, this->gridSizes.data(), this->gridVectors.data(), 0, 1, precomputedData.data(),
                x, k, 1, scratch.valueScratch.data(), scratch.indexScratch.data(), &out);
        else
            platform::akimaFixedGrid_interpolate_float(
                d, this->gridSizes.data(), this->gridVectors.data(), 0, 1, precomputedData.data(),
                x, k, 1, scratch.valueScratch.data(), scratch.indexScratch.data(), &out);
        return isNaN(out) ? engineNaN<V>() : out;
    }

    // The service's result block for this plane; empty until prepared.
    platform::HostVector<V> precomputedData;

private:
    OnceGuard guard_;
};

} // namespace mathinterp
