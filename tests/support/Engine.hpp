// Test helpers for driving evaluators without the interpolant object: a grid and value
// planes held in vectors, an EvaluatorSetup over them, and scattered evaluation into a
// fresh output array.
#pragma once

#include "mathinterp/core/Evaluator.hpp"
#include "mathinterp/interpolant/EvaluatorFactory.hpp"

#include <platform/HostArray.hpp>

#include <complex>
#include <memory>
#include <type_traits>
#include <vector>

namespace testsupport {

template <class T>
constexpr platform::ClassId classOf() {
    return std::is_same_v<T, double> ? platform::ClassId::Double : platform::ClassId::Single;
}

// Owns the grid vectors and the planes an evaluator points into.
template <class G, class V>
struct GridData {
    std::vector<std::vector<G>> grids;
    std::vector<V> values; // planes one after another
    std::uint64_t numPlanes = 1;

    mathinterp::EvaluatorSetup<G, V> setup() const {
        mathinterp::EvaluatorSetup<G, V> s;
        std::uint64_t points = 1;
        for (const auto& g : grids) {
            s.grids.push_back(g.data());
            s.sizes.push_back(g.size());
            points *= g.size();
        }
        s.values = values.data();
        s.pointsPerPlane = points;
        s.numPlanes = numPlanes;
        return s;
    }

    std::unique_ptr<mathinterp::Evaluator> make(mathinterp::MethodId method,
                                                mathinterp::MethodId extrap) const {
        return mathinterp::makeEvaluator<G, V>(method, extrap, setup());
    }
};

template <class Q>
platform::HostArray queryColumn(const std::vector<Q>& q) {
    platform::HostArray a =
        platform::HostArray::createUninitialisedNumeric({q.size(), 1}, classOf<Q>());
    std::copy(q.begin(), q.end(), a.data<Q>());
    return a;
}

// Scattered 1-D evaluation of every plane: result k*m + i for plane k, query i.
template <class V, class Q>
std::vector<V> evaluate1D(mathinterp::Evaluator& ev, const std::vector<Q>& q) {
    const platform::HostArray qa = queryColumn(q);
    const std::uint64_t planes = ev.numPlanes();
    platform::HostArray out = platform::HostArray::createNumeric({q.size(), planes}, classOf<V>());
    ev.evaluateScattered(q.size(), qa, out);
    return std::vector<V>(out.data<V>(), out.data<V>() + q.size() * planes);
}

} // namespace testsupport
