// ConstantND: extrapolation only: the engine's NaN outside the grid. Not built yet: the evaluator factory refuses it while available is false.
#pragma once

#include "mathinterp/methods/InterpMethodND.hpp"

namespace mathinterp {

template <class G, class V>
class ConstantND final : public InterpMethodND<G, V> {
public:
    static constexpr bool available = false;
    using InterpMethodND<G, V>::InterpMethodND;
};

} // namespace mathinterp
