// Gradients of the 1-D family, every precision pair.
#include "mathinterp/interpolant/GradientDispatchImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_GRADIENT_1D(double, double)
MATHINTERP_DEFINE_GRADIENT_1D(double, float)
MATHINTERP_DEFINE_GRADIENT_1D(float, double)
MATHINTERP_DEFINE_GRADIENT_1D(float, float)
