// Definitions behind GradientDispatch.hpp; included only by the GradientDispatch*.cpp units.
// The evaluator's concrete type follows from the words (as the factory chose it); a method
// alone covers every query, a pair runs the interpolation method inside the grid box and the
// extrapolation method outside it.
#pragma once

#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/core/GradientDrivers.hpp"
#include "mathinterp/interpolant/EvaluatorFactoryImpl.hpp"
#include "mathinterp/interpolant/GradientDispatch.hpp"
#include "mathinterp/methods/GradientND.hpp"
#include "mathinterp/methods/MakimaNDGradient.hpp"

#include <stdexcept>
#include <type_traits>

namespace mathinterp::detail {

template <class M, Region R>
void runMethodGradient(const std::vector<std::unique_ptr<M>>& methods, const GradientJob& job) {
    if constexpr (M::isND) {
        gradientPlanesND<M, R>(methods, job.gridded, job.m, *job.queries, *job.out);
    } else {
        const platform::HostArray x = job.gridded ? singleQueryVector(*job.queries) : *job.queries;
        const u64 count = job.gridded ? x.numberOfElements() : job.m;
        if (job.order == 2)
            derivativePlanes1D<M, 2, R>(methods, x, x.rawData(), count, *job.out);
        else
            derivativePlanes1D<M, 1, R>(methods, x, x.rawData(), count, *job.out);
    }
}

template <class E>
E& evaluatorAs(Evaluator& ev) {
    auto* e = dynamic_cast<E*>(&ev);
    if (!e) throw std::logic_error("the evaluator does not match the interpolant's methods");
    return *e;
}

template <bool ND, class G, class V>
void runGradientFamily(Evaluator& ev, const GradientJob& job) {
    withMethod<ND, G, V>(job.method, [&](auto ti) {
        using MI = typename decltype(ti)::type;
        if constexpr (MI::available) {
            if (job.method == job.extrap) {
                runMethodGradient<MI, Region::All>(
                    evaluatorAs<EvaluatorInterp<MI>>(ev).methodObjects, job);
                return;
            }
            withMethod<ND, G, V>(job.extrap, [&](auto te) {
                using ME = typename decltype(te)::type;
                if constexpr (!std::is_same_v<MI, ME> && ME::available) {
                    auto& e = evaluatorAs<EvaluatorInterpExtrap<MI, ME>>(ev);
                    runMethodGradient<MI, Region::Inside>(e.methodObjects, job);
                    runMethodGradient<ME, Region::Outside>(e.extrapObjects, job);
                }
            });
        }
    });
}

} // namespace mathinterp::detail

namespace mathinterp {

template <class G, class V>
void runGradient1D(Evaluator& ev, const GradientJob& job) {
    detail::runGradientFamily<false, G, V>(ev, job);
}

template <class G, class V>
void runGradientND(Evaluator& ev, const GradientJob& job) {
    detail::runGradientFamily<true, G, V>(ev, job);
}

} // namespace mathinterp

#define MATHINTERP_DEFINE_GRADIENT_1D(G, V)                                                        \
    template void mathinterp::runGradient1D<G, V>(Evaluator&, const GradientJob&);
#define MATHINTERP_DEFINE_GRADIENT_ND(G, V)                                                        \
    template void mathinterp::runGradientND<G, V>(Evaluator&, const GradientJob&);
