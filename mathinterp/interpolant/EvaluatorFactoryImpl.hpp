// Definitions behind EvaluatorFactory.hpp; included only by the per-pair translation units.
// A method class whose `available` flag is false is never instantiated into an evaluator:
// asking for it raises MethodNotBuiltError naming the word.
#pragma once

#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/methods/ConstantND.hpp"
#include "mathinterp/methods/Cubic1D.hpp"
#include "mathinterp/methods/CubicND.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/Makima1D.hpp"
#include "mathinterp/methods/MakimaND.hpp"
#include "mathinterp/methods/NearestND.hpp"
#include "mathinterp/methods/Pchip1D.hpp"
#include "mathinterp/methods/Spline1D.hpp"
#include "mathinterp/methods/SplineND.hpp"
#include "mathinterp/methods/Step1D.hpp"

#include <string>
#include <type_traits>

namespace mathinterp::detail {

template <class T>
struct TypeTag {
    using type = T;
};

// Calls f(TypeTag<Method>) for the 1-D class of a word.
template <class G, class V, class F>
auto withMethod1D(MethodId id, F&& f) {
    switch (id) {
    case MethodId::Linear: return f(TypeTag<Linear1D<G, V>>{});
    case MethodId::Nearest: return f(TypeTag<Nearest1D<G, V>>{});
    case MethodId::Next: return f(TypeTag<Next1D<G, V>>{});
    case MethodId::Previous: return f(TypeTag<Previous1D<G, V>>{});
    case MethodId::Pchip: return f(TypeTag<Pchip1D<G, V>>{});
    case MethodId::Spline: return f(TypeTag<Spline1D<G, V>>{});
    case MethodId::Cubic: return f(TypeTag<Cubic1D<G, V>>{});
    case MethodId::Makima: return f(TypeTag<Makima1D<G, V>>{});
    case MethodId::None: return f(TypeTag<Constant1D<G, V>>{});
    }
    throw std::logic_error("unknown method");
}

// Calls f(TypeTag<Method>) for the N-D class of a word; 1-D-only words never get here.
template <class G, class V, class F>
auto withMethodND(MethodId id, F&& f) {
    switch (id) {
    case MethodId::Linear: return f(TypeTag<LinearND<G, V>>{});
    case MethodId::Nearest: return f(TypeTag<NearestND<G, V>>{});
    case MethodId::Spline: return f(TypeTag<SplineND<G, V>>{});
    case MethodId::Cubic: return f(TypeTag<CubicND<G, V>>{});
    case MethodId::Makima: return f(TypeTag<MakimaND<G, V>>{});
    case MethodId::None: return f(TypeTag<ConstantND<G, V>>{});
    default: break;
    }
    throw std::logic_error("method \"" + std::string(methodWord(id)) +
                           "\" has no N-D class; selection must replace it first");
}

template <bool ND, class G, class V, class F>
auto withMethod(MethodId id, F&& f) {
    if constexpr (ND)
        return withMethodND<G, V>(id, std::forward<F>(f));
    else
        return withMethod1D<G, V>(id, std::forward<F>(f));
}

template <bool ND, class G, class V>
std::unique_ptr<Evaluator> makeEvaluatorFamily(MethodId method, MethodId extrap,
                                               const EvaluatorSetup<G, V>& s) {
    if (method == MethodId::None) throw std::logic_error("\"none\" is not an interpolation method");
    return withMethod<ND, G, V>(method, [&](auto ti) -> std::unique_ptr<Evaluator> {
        using MI = typename decltype(ti)::type;
        if constexpr (!MI::available) {
            throw MethodNotBuiltError(std::string(methodWord(method)), ND);
        } else {
            if (method == extrap) return std::make_unique<EvaluatorInterp<MI>>(s);
            return withMethod<ND, G, V>(extrap, [&](auto te) -> std::unique_ptr<Evaluator> {
                using ME = typename decltype(te)::type;
                if constexpr (std::is_same_v<MI, ME>) {
                    throw std::logic_error("equal words take EvaluatorInterp");
                } else if constexpr (!ME::available) {
                    throw MethodNotBuiltError(std::string(methodWord(extrap)), ND);
                } else {
                    return std::make_unique<EvaluatorInterpExtrap<MI, ME>>(s);
                }
            });
        }
    });
}

} // namespace mathinterp::detail

namespace mathinterp {

template <class G, class V>
std::unique_ptr<Evaluator> makeEvaluator1D(MethodId method, MethodId extrap,
                                           const EvaluatorSetup<G, V>& setup) {
    return detail::makeEvaluatorFamily<false, G, V>(method, extrap, setup);
}

template <class G, class V>
std::unique_ptr<Evaluator> makeEvaluatorND(MethodId method, MethodId extrap,
                                           const EvaluatorSetup<G, V>& setup) {
    return detail::makeEvaluatorFamily<true, G, V>(method, extrap, setup);
}

} // namespace mathinterp

#define MATHINTERP_DEFINE_FACTORY_1D(G, V)                                                     \
    template std::unique_ptr<mathinterp::Evaluator> mathinterp::makeEvaluator1D<G, V>(         \
        MethodId, MethodId, const EvaluatorSetup<G, V>&);
#define MATHINTERP_DEFINE_FACTORY_ND(G, V)                                                     \
    template std::unique_ptr<mathinterp::Evaluator> mathinterp::makeEvaluatorND<G, V>(         \
        MethodId, MethodId, const EvaluatorSetup<G, V>&);
