// The gradient entry of the engine: runs the derivative kernels over an interpolant's own
// evaluator (its method objects and their caches), chosen by the interpolant's final method
// words. Instantiated in a few translation units (GradientDispatch1D.cpp, GradientDispatchND*.cpp)
// apart from the evaluator factories, one query loop per method rather than per method pair.
#pragma once

#include "mathinterp/core/Evaluator.hpp"
#include "mathinterp/interpolant/MethodId.hpp"

#include <platform/HostArray.hpp>

namespace mathinterp {

struct GradientJob {
    MethodId method; // the words the evaluator was built from (fallbacks applied)
    MethodId extrap;
    bool gridded;                       // queries: a cell of d query vectors
    u64 m;                              // scattered: number of points
    const platform::HostArray* queries; // scattered: d columns of m coordinates
    platform::HostArray* out;           // the values' class; d blocks per value plane
    int order;                          // 1; 2 for the second derivative (1-D only)
};

template <class G, class V>
void runGradient1D(Evaluator& ev, const GradientJob& job);
template <class G, class V>
void runGradientND(Evaluator& ev, const GradientJob& job);

#define MATHINTERP_DECLARE_GRADIENT(G, V)                                                          \
    extern template void runGradient1D<G, V>(Evaluator&, const GradientJob&);                      \
    extern template void runGradientND<G, V>(Evaluator&, const GradientJob&);
MATHINTERP_DECLARE_GRADIENT(double, double)
MATHINTERP_DECLARE_GRADIENT(double, float)
MATHINTERP_DECLARE_GRADIENT(float, double)
MATHINTERP_DECLARE_GRADIENT(float, float)
#undef MATHINTERP_DECLARE_GRADIENT

} // namespace mathinterp
