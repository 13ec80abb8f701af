// Internal: lets the implementation files of the interpolant (construction, selection,
// evaluation) reach the fields of GriddedInterpolant. Not for use outside this folder.
#pragma once

#include "mathinterp/interpolant/GriddedInterpolant.hpp"

namespace mathinterp {

struct GriddedInterpolantAccess {
    static platform::HostArray& grid(GriddedInterpolant& g) noexcept { return g.gridVectors_; }
    static platform::HostArray& internalValues(GriddedInterpolant& g) noexcept {
        return g.internalValues_;
    }
    static platform::HostArray& values(GriddedInterpolant& g) noexcept { return g.values_; }
    static platform::HostArray& method(GriddedInterpolant& g) noexcept { return g.method_; }
    static platform::HostArray& extrap(GriddedInterpolant& g) noexcept { return g.extrapMethod_; }
    static std::shared_ptr<Evaluator>& evaluator(GriddedInterpolant& g) noexcept {
        return g.evaluator_;
    }
    static bool& current(GriddedInterpolant& g) noexcept { return g.evaluatorCurrent_; }
    static bool& gridDefaulted(GriddedInterpolant& g) noexcept { return g.gridDefaulted_; }
};

} // namespace mathinterp

namespace mathinterp {

// Deleter of every evaluator the object builds: the method objects point into the grid
// vectors and the internal values, so the evaluator keeps both alive (an evaluator shared
// with a copy never outlives its data). `values` follows rebindValues.
struct EvaluatorKeeper {
    platform::HostArray grid;
    platform::HostArray values;
    void operator()(Evaluator* e) const noexcept { delete e; }
};

// The values as the evaluator reads them: the array itself when real; for complex values a
// new real array of the same class holding all real parts, then all imaginary parts.
platform::HostArray makeInternalValues(const platform::HostArray& values);

// The object's internal values, derived from its values first when none are stored (values
// set one by one while loading).
const platform::HostArray& ensureInternalValues(GriddedInterpolant& obj);

} // namespace mathinterp
