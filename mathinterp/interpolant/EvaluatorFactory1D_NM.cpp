// Evaluators of the 1D family for grid double, values float.
#include "mathinterp/interpolant/EvaluatorFactoryImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_FACTORY_1D(double, float)
