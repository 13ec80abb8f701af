// Evaluators of the ND family for grid float, values float.
#include "mathinterp/interpolant/EvaluatorFactoryImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_FACTORY_ND(float, float)
