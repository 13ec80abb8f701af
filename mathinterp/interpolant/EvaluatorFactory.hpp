// The evaluator factory: the Evaluator instantiation for a pair of method words, a dimension
// family and a precision pair. Instantiated in one translation unit per family and pair
// (EvaluatorFactory1D_*.cpp, EvaluatorFactoryND_*.cpp) to keep builds fast.
#pragma once

#include "mathinterp/core/Evaluator.hpp"
#include "mathinterp/interpolant/MethodId.hpp"

#include <memory>
#include <stdexcept>
#include <string>

namespace mathinterp {

// A method word whose engine is not part of this build.
class MethodNotBuiltError : public std::runtime_error {
public:
    explicit MethodNotBuiltError(std::string word, bool nd)
        : std::runtime_error("The interpolation method \"" + word + "\" is not available" +
                             (nd ? " for grids of two or more dimensions" : "") +
                             " in this build."),
          word_(std::move(word)) {}
    const std::string& word() const noexcept { return word_; }

private:
    std::string word_;
};

// EvaluatorInterp when method == extrap, else EvaluatorInterpExtrap. The words must already
// be final (fallbacks applied): no "next", "previous" or "pchip" for d >= 2, "none" only as
// extrapolation.
template <class G, class V>
std::unique_ptr<Evaluator> makeEvaluator1D(MethodId method, MethodId extrap,
                                           const EvaluatorSetup<G, V>& setup);
template <class G, class V>
std::unique_ptr<Evaluator> makeEvaluatorND(MethodId method, MethodId extrap,
                                           const EvaluatorSetup<G, V>& setup);

template <class G, class V>
std::unique_ptr<Evaluator> makeEvaluator(MethodId method, MethodId extrap,
                                         const EvaluatorSetup<G, V>& setup) {
    return setup.numDims() == 1 ? makeEvaluator1D<G, V>(method, extrap, setup)
                                : makeEvaluatorND<G, V>(method, extrap, setup);
}

#define MATHINTERP_DECLARE_FACTORY(G, V)                                                       \
    extern template std::unique_ptr<Evaluator> makeEvaluator1D<G, V>(                          \
        MethodId, MethodId, const EvaluatorSetup<G, V>&);                                      \
    extern template std::unique_ptr<Evaluator> makeEvaluatorND<G, V>(                          \
        MethodId, MethodId, const EvaluatorSetup<G, V>&);
MATHINTERP_DECLARE_FACTORY(double, double)
MATHINTERP_DECLARE_FACTORY(double, float)
MATHINTERP_DECLARE_FACTORY(float, double)
MATHINTERP_DECLARE_FACTORY(float, float)
#undef MATHINTERP_DECLARE_FACTORY

} // namespace mathinterp
