// Gradients of the N-D family on single grids.
#include "mathinterp/interpolant/GradientDispatchImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_GRADIENT_ND(float, double)
MATHINTERP_DEFINE_GRADIENT_ND(float, float)
