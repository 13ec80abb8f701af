// Test helpers for driving evaluators without the interpolant object: a grid and value
// planes held in vectors, an EvaluatorSetup over them, scattered and gridded evaluation into a
// fresh output array, and random grids, values and points.
#pragma once

#include "mathinterp/core/Evaluator.hpp"
#include "mathinterp/interpolant/EvaluatorFactory.hpp"

#include <platform/HostArray.hpp>

#include <gtest/gtest.h>

#include <complex>
#include <random>
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

// An evaluator together with the grid and values it points into.
template <class G, class V>
struct OwnedEvaluator {
    GridData<G, V> data;
    std::unique_ptr<mathinterp::Evaluator> ev;

    OwnedEvaluator(std::vector<std::vector<G>> g, std::vector<V> v, std::uint64_t planes,
                   mathinterp::MethodId method, mathinterp::MethodId extrap)
        : data{std::move(g), std::move(v), planes}, ev(data.make(method, extrap)) {}
    OwnedEvaluator(const OwnedEvaluator&) = delete;
    OwnedEvaluator& operator=(const OwnedEvaluator&) = delete;
    mathinterp::Evaluator& operator*() const { return *ev; }
    mathinterp::Evaluator* operator->() const { return ev.get(); }
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

// Scattered N-D points (one row each) of query type Q: results of every plane, plane after
// plane.
template <class V, class Q = double>
std::vector<V> evaluatePoints(mathinterp::Evaluator& ev,
                              const std::vector<std::vector<double>>& pts) {
    const std::uint64_t m = pts.size(), d = m ? pts[0].size() : 0, planes = ev.numPlanes();
    platform::HostArray q = platform::HostArray::createNumeric({m, d}, classOf<Q>());
    for (std::uint64_t i = 0; i < m; ++i)
        for (std::uint64_t k = 0; k < d; ++k)
            q.data<Q>()[k * m + i] = static_cast<Q>(pts[i][k]);
    platform::HostArray out = platform::HostArray::createNumeric({m, planes}, classOf<V>());
    ev.evaluateScattered(m, q, out);
    return std::vector<V>(out.data<V>(), out.data<V>() + m * planes);
}

// Gridded queries, one vector per dimension: results column-major over them, plane after plane.
template <class V>
std::vector<V> evaluateVectors(mathinterp::Evaluator& ev,
                               const std::vector<std::vector<double>>& vecs) {
    platform::HostArray cell = platform::HostArray::createCell(1, vecs.size());
    std::uint64_t total = 1;
    platform::Dims dims;
    for (std::uint64_t k = 0; k < vecs.size(); ++k) {
        cell.setCell(k, platform::HostArray::fromDoubles({vecs[k].size(), 1}, vecs[k]));
        total *= vecs[k].size();
        dims.push_back(vecs[k].size());
    }
    dims.push_back(ev.numPlanes());
    platform::HostArray out = platform::HostArray::createNumeric(dims, classOf<V>());
    ev.evaluateGridded(cell, out);
    return std::vector<V>(out.data<V>(), out.data<V>() + total * ev.numPlanes());
}

// n increasing points from 0 with random steps in [0.25, 2).
inline std::vector<double> irregularGrid(std::mt19937_64& rng, std::uint64_t n) {
    std::uniform_real_distribution<double> step(0.25, 2.0);
    std::vector<double> x(n);
    for (std::uint64_t i = 1; i < n; ++i)
        x[i] = x[i - 1] + step(rng);
    return x;
}

inline std::vector<double> randomValues(std::mt19937_64& rng, std::uint64_t n, double lo = -3,
                                        double hi = 3) {
    std::uniform_real_distribution<double> v(lo, hi);
    std::vector<double> y(n);
    for (auto& e : y)
        e = v(rng);
    return y;
}

// m points, each coordinate uniform over its grid widened by `margin` on both sides.
inline std::vector<std::vector<double>> randomPoints(std::mt19937_64& rng,
                                                     const std::vector<std::vector<double>>& g,
                                                     std::uint64_t m, double margin) {
    std::vector<std::vector<double>> pts(m, std::vector<double>(g.size()));
    for (auto& p : pts)
        for (std::uint64_t k = 0; k < g.size(); ++k) {
            std::uniform_real_distribution<double> u(g[k].front() - margin, g[k].back() + margin);
            p[k] = u(rng);
        }
    return pts;
}

// f over the grid, first dimension fastest.
template <class V, class F>
std::vector<V> sampleGrid(const std::vector<std::vector<double>>& g, F&& f) {
    std::vector<V> v;
    std::vector<std::uint64_t> i(g.size(), 0);
    for (;;) {
        std::vector<double> p(g.size());
        for (std::uint64_t k = 0; k < g.size(); ++k)
            p[k] = g[k][i[k]];
        v.push_back(static_cast<V>(f(p)));
        std::uint64_t k = 0;
        while (k < g.size() && ++i[k] == g[k].size())
            i[k++] = 0;
        if (k == g.size()) return v;
    }
}

template <class T, class U>
std::vector<T> as(const std::vector<U>& v) {
    return std::vector<T>(v.begin(), v.end());
}

// The four grid/value precision pairs as gtest types.
template <class G, class V>
struct PrecisionPair {
    using GridT = G;
    using ValT = V;
};
using PrecisionPairs =
    ::testing::Types<PrecisionPair<double, double>, PrecisionPair<double, float>,
                     PrecisionPair<float, double>, PrecisionPair<float, float>>;

} // namespace testsupport
