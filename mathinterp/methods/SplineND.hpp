// SplineND: tensor-product not-a-knot spline in N dimensions. Not built yet: the evaluator factory refuses it while available is false.
#pragma once

#include "mathinterp/methods/InterpMethodND.hpp"

namespace mathinterp {

template <class G, class V>
class SplineND final : public InterpMethodND<G, V> {
public:
    static constexpr bool available = false;
    using InterpMethodND<G, V>::InterpMethodND;
};

} // namespace mathinterp
