// Placeholder for the struct-grid gateway until it is built: the module exports the name so
// that hosts link, and a call says plainly that the function is missing.
#include "mathinterp/ModuleExports.hpp"

#include <platform/HostError.hpp>

extern "C" void gridStructsInterpFcn(int, platform::HostArray*, int, const platform::HostArray*) {
    platform::HostError::raiseText("gridStructsInterpFcn is not available in this build.");
}
