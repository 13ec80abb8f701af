// ConstantND: extrapolation only. Every query routed outside the grid (any coordinate below the
// first grid point, above the last, or NaN) gets extrapConstant, the engine's NaN: constant
// extrapolation is extrapolation switched off. It needs no pairs, so the outside test stops at
// the first outside coordinate.
#pragma once

#include "mathinterp/methods/InterpMethodND.hpp"

namespace mathinterp {

template <class G, class V>
class ConstantND final : public InterpMethodND<G, V> {
public:
    static constexpr bool available = true;
    static constexpr bool usesPairs = false;
    using InterpMethodND<G, V>::InterpMethodND;

    struct Pair {};
    using Buffer = NoBuffer;

    Buffer makeBuffer() const noexcept { return {}; }

    template <class Q>
    Pair makePair(u64, Q, u64) const noexcept {
        return {};
    }

    V kernel(const Pair*, Buffer&) const noexcept { return extrapConstant; }

    V extrapConstant = engineNaN<V>();
};

} // namespace mathinterp
