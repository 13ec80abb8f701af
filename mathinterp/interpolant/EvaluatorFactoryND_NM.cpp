// Evaluators of the ND family for grid double, values float.
#include "mathinterp/interpolant/EvaluatorFactoryImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_FACTORY_ND(double, float)
