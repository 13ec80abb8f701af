// The two concrete evaluators, templates over their method classes: EvaluatorInterp (one
// method inside and outside the grid) and EvaluatorInterpExtrap (an interpolation method in
// the closed grid box, an extrapolation method outside it and for NaN queries). Both serve
// 1-D methods (Drivers1D) and N-D methods (DriversND), chosen by M::isND.
#pragma once

#include "mathinterp/core/Drivers1D.hpp"
#include "mathinterp/core/DriversND.hpp"
#include "mathinterp/core/Evaluator.hpp"

#include <memory>
#include <vector>

namespace mathinterp {

template <class M, class G, class V>
std::unique_ptr<M> makeMethod(const EvaluatorSetup<G, V>& s, u64 k) {
    if constexpr (M::isND)
        return std::make_unique<M>(s.grids.data(), s.sizes.data(), s.plane(k), s.numDims());
    else
        return std::make_unique<M>(s.grids[0], s.sizes[0], s.plane(k));
}

namespace detail {
// The one query vector of a 1-D gridded query.
inline platform::HostArray singleQueryVector(const platform::HostArray& cell) {
    return cell.isCell() ? cell.getCell(0) : cell;
}
} // namespace detail

template <class M>
class EvaluatorInterp final : public Evaluator {
public:
    using G = typename M::GridType;
    using V = typename M::ValueType;

    explicit EvaluatorInterp(const EvaluatorSetup<G, V>& s) {
        methodObjects.reserve(s.numPlanes);
        for (u64 k = 0; k < s.numPlanes; ++k)
            methodObjects.push_back(makeMethod<M>(s, k));
    }

    void rebindValues(const void* const* planes) override {
        for (u64 k = 0; k < methodObjects.size(); ++k)
            methodObjects[k]->rebindValues(static_cast<const V*>(planes[k]));
    }

    void evaluateGridded(const platform::HostArray& queryVectors,
                         platform::HostArray& out) override {
        if constexpr (M::isND) {
            evaluateGriddedND<M>(methodObjects, nullptr, queryVectors, out);
        } else {
            const platform::HostArray x = detail::singleQueryVector(queryVectors);
            evaluatePlanes1D<M>(methodObjects, nullptr, x, x.rawData(), x.numberOfElements(), out);
        }
    }

    void evaluateScattered(u64 m, const platform::HostArray& queries,
                           platform::HostArray& out) override {
        if constexpr (M::isND)
            evaluateScatteredND<M>(methodObjects, nullptr, m, queries, out);
        else
            evaluatePlanes1D<M>(methodObjects, nullptr, queries, queries.rawData(), m, out);
    }

    u64 numPlanes() const noexcept override { return methodObjects.size(); }

    std::vector<std::unique_ptr<M>> methodObjects;
};

template <class MI, class ME>
class EvaluatorInterpExtrap final : public Evaluator {
public:
    using G = typename MI::GridType;
    using V = typename MI::ValueType;
    static_assert(MI::isND == ME::isND, "methods of one evaluator share a dimension family");

    explicit EvaluatorInterpExtrap(const EvaluatorSetup<G, V>& s) {
        methodObjects.reserve(s.numPlanes);
        extrapObjects.reserve(s.numPlanes);
        for (u64 k = 0; k < s.numPlanes; ++k) {
            methodObjects.push_back(makeMethod<MI>(s, k));
            extrapObjects.push_back(makeMethod<ME>(s, k));
        }
    }

    void rebindValues(const void* const* planes) override {
        for (u64 k = 0; k < methodObjects.size(); ++k) {
            methodObjects[k]->rebindValues(static_cast<const V*>(planes[k]));
            extrapObjects[k]->rebindValues(static_cast<const V*>(planes[k]));
        }
    }

    void evaluateGridded(const platform::HostArray& queryVectors,
                         platform::HostArray& out) override {
        if constexpr (MI::isND) {
            evaluateGriddedND<MI, ME>(methodObjects, &extrapObjects, queryVectors, out);
        } else {
            const platform::HostArray x = detail::singleQueryVector(queryVectors);
            evaluatePlanes1D<MI, ME>(methodObjects, &extrapObjects, x, x.rawData(),
                                     x.numberOfElements(), out);
        }
    }

    void evaluateScattered(u64 m, const platform::HostArray& queries,
                           platform::HostArray& out) override {
        if constexpr (MI::isND)
            evaluateScatteredND<MI, ME>(methodObjects, &extrapObjects, m, queries, out);
        else
            evaluatePlanes1D<MI, ME>(methodObjects, &extrapObjects, queries, queries.rawData(), m,
                                     out);
    }

    u64 numPlanes() const noexcept override { return methodObjects.size(); }

    std::vector<std::unique_ptr<MI>> methodObjects;
    std::vector<std::unique_ptr<ME>> extrapObjects;
};

} // namespace mathinterp
