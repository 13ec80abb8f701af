// interp1Fcn and interp2Fcn: build a temporary interpolant from the first four inputs and
// evaluate it at the fifth. The two are the same gateway under two exported names.
#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"

#include <platform/HostError.hpp>

#include <utility>

namespace mathinterp {
namespace {

void interpolateOnce(int nlhs, platform::HostArray* plhs, int nrhs,
                     const platform::HostArray* prhs) {
    // Argument counts are checked before anything is built.
    if (nlhs > 1) platform::HostError::tooManyOutputs();
    if (nrhs > 5) platform::HostError::tooManyInputs();
    if (nrhs < 5) platform::HostError::tooFewInputs();
    try {
        // The temporary's destructor releases its arrays and evaluator on every path.
        GriddedInterpolant interpolant;
        interpolant.construct(4, prhs);
        platform::HostArray result = interpolant.evaluate(1, prhs + 4);
        interpolant.clear();
        plhs[0] = std::move(result);
    } catch (...) {
        rethrowAsHostError();
    }
}

} // namespace
} // namespace mathinterp

extern "C" void interp1Fcn(int nlhs, platform::HostArray* plhs, int nrhs,
                           const platform::HostArray* prhs) {
    mathinterp::interpolateOnce(nlhs, plhs, nrhs, prhs);
}

extern "C" void interp2Fcn(int nlhs, platform::HostArray* plhs, int nrhs,
                           const platform::HostArray* prhs) {
    mathinterp::interpolateOnce(nlhs, plhs, nrhs, prhs);
}
