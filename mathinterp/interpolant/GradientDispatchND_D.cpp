// Gradients of the N-D family on double grids.
#include "mathinterp/interpolant/GradientDispatchImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_GRADIENT_ND(double, double)
MATHINTERP_DEFINE_GRADIENT_ND(double, float)
