// The module's external entry points, exported with C linkage from libqzmathinterp; nothing
// else of the module is visible outside it. Gateways take the host gateway signature:
// output count, output slots, input count, inputs.
#pragma once

#include <platform/HostArray.hpp>

#define MATHINTERP_EXPORT __attribute__((visibility("default")))

extern "C" {
MATHINTERP_EXPORT void KVInitialize_libqzmathinterp();
MATHINTERP_EXPORT void KVTerminate_libqzmathinterp();
MATHINTERP_EXPORT void interp1Fcn(int nlhs, platform::HostArray* plhs, int nrhs,
                                  const platform::HostArray* prhs);
MATHINTERP_EXPORT void interp2Fcn(int nlhs, platform::HostArray* plhs, int nrhs,
                                  const platform::HostArray* prhs);
MATHINTERP_EXPORT void gridStructsInterpFcn(int nlhs, platform::HostArray* plhs, int nrhs,
                                            const platform::HostArray* prhs);
}
