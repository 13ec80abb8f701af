// NearestND: the value of the nearest grid point, chosen per dimension; a query exactly half-way
// between two grid points takes the upper one. Outside the grid the first or last point of the
// dimension is nearest, so the same method extrapolates by the end values. A NaN coordinate
// gives NaN. No tables and no scratch: prepare() does nothing and kernels only read.
#pragma once

#include "mathinterp/methods/InterpMethodND.hpp"

namespace mathinterp {

template <class G, class V>
class NearestND final : public InterpMethodND<G, V> {
public:
    static constexpr bool available = true;
    using InterpMethodND<G, V>::InterpMethodND;

    // offset = (chosen index) * stride of the dimension; isNaN set when the coordinate is NaN.
    struct Pair {
        u64 offset;
        unsigned char isNaN;
    };
    using Buffer = NoBuffer;

    Buffer makeBuffer() const noexcept { return {}; }

    template <class Q>
    Pair makePair(u64 k, Q xq, u64 i) const noexcept {
        const G x = static_cast<G>(xq);
        const G* g = this->gridVectors[k];
        // Branch-free: on scattered queries the comparison is a coin toss.
        const u64 chosen = i + static_cast<u64>((x - g[i]) >= (g[i + 1] - x));
        return {chosen * this->strides[k], static_cast<unsigned char>(mathinterp::isNaN(xq))};
    }

    // Ask for the value's cache line ahead of the kernel (results do not depend on it).
    void prefetch(const Pair* p) const noexcept {
        u64 offset = 0;
        for (u64 k = 0; k < this->numDims; ++k)
            offset += p[k].offset;
        __builtin_prefetch(this->values + offset);
    }

    V kernel(const Pair* p, Buffer&) const noexcept {
        u64 offset = 0;
        for (u64 k = 0; k < this->numDims; ++k) {
            if (p[k].isNaN) return engineNaN<V>();
            offset += p[k].offset;
        }
        return this->values[offset];
    }
};

} // namespace mathinterp
