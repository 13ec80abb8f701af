// Makima1D: modified Akima interpolation in 1-D through the fixed-grid service. Not built yet: the evaluator factory refuses it while available is false.
#pragma once

#include "mathinterp/methods/InterpMethod1D.hpp"

namespace mathinterp {

template <class G, class V>
class Makima1D final : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = false;
    using InterpMethod1D<G, V>::InterpMethod1D;

    template <class Q>
    V kernel(Q, u64) const noexcept {
        return engineNaN<V>();
    }
};

} // namespace mathinterp
