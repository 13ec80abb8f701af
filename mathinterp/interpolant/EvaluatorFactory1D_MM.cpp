// Evaluators of the 1D family for grid float, values float.
#include "mathinterp/interpolant/EvaluatorFactoryImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_FACTORY_1D(float, float)
