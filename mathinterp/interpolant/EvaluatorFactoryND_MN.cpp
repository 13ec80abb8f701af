// Evaluators of the ND family for grid float, values double.
#include "mathinterp/interpolant/EvaluatorFactoryImpl.hpp"

using namespace mathinterp;
MATHINTERP_DEFINE_FACTORY_ND(float, double)
