// 1-D pchip and spline through the evaluator: evaluation of 10^6 random queries on a
// 1000-point grid (uniform and strongly irregular, double and single, 1 and 2 worker
// threads), and construction plus first evaluation (the coefficient fill) on 10^4 to 10^6
// grid points. Reference figures for the peer library come from timing its constructors and
// evaluation on the same sizes in one Python process.
//   ./build/bench/bench_cubic1d --benchmark_filter='Eval.*queries:1000000|Build'
#include "mathinterp/interpolant/EvaluatorFactory.hpp"

#include <platform/HostArray.hpp>

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <cmath>
#include <random>
#include <vector>

using namespace mathinterp;

namespace {

template <class T>
constexpr platform::ClassId cls() {
    return sizeof(T) == 8 ? platform::ClassId::Double : platform::ClassId::Single;
}

template <class T>
struct Data {
    std::vector<T> grid, values;

    Data(std::size_t n, bool irregular) {
        for (std::size_t i = 0; i < n; ++i) {
            const double t = static_cast<double>(i) / static_cast<double>(n - 1);
            // Irregular: spacing grows geometrically over six orders of magnitude.
            const double x = irregular ? std::pow(1e6, t) - 1.0 : 10.0 * t;
            grid.push_back(static_cast<T>(x));
            values.push_back(static_cast<T>(std::sin(x) + 0.1 * x));
        }
    }

    EvaluatorSetup<T, T> setup() const {
        EvaluatorSetup<T, T> s;
        s.grids = {grid.data()};
        s.sizes = {grid.size()};
        s.values = values.data();
        s.pointsPerPlane = grid.size();
        s.numPlanes = 1;
        return s;
    }

    platform::HostArray queries(std::size_t nq) const {
        std::mt19937_64 rng(1);
        std::uniform_real_distribution<double> u(grid.front(), grid.back());
        auto q = platform::HostArray::createUninitialisedNumeric({nq, 1}, cls<T>());
        for (std::size_t i = 0; i < nq; ++i)
            q.template data<T>()[i] = static_cast<T>(u(rng));
        return q;
    }
};

void perQuery(benchmark::State& state, std::size_t nq) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * nq));
    state.counters["ns/query"] =
        benchmark::Counter(static_cast<double>(nq), benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}

// Evaluation only: the coefficients are filled by a first call outside the timed loop.
template <class T>
void BM_Eval(benchmark::State& state, MethodId method) {
    const auto nq = static_cast<std::size_t>(state.range(0));
    tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                static_cast<std::size_t>(state.range(2)));
    const Data<T> d(1000, state.range(1) != 0);
    const platform::HostArray q = d.queries(nq);
    auto out = platform::HostArray::createUninitialisedNumeric({nq, 1}, cls<T>());
    auto ev = makeEvaluator<T, T>(method, method, d.setup());
    ev->evaluateScattered(nq, q, out);
    for (auto _ : state) {
        ev->evaluateScattered(nq, q, out);
        benchmark::DoNotOptimize(out.template data<T>());
    }
    perQuery(state, nq);
}

// A new evaluator on n grid points and its first evaluation at 1000 queries: dominated by the
// coefficient fill (slopes and Hermite terms for pchip, the tridiagonal solve for spline).
template <class T>
void BM_Build(benchmark::State& state, MethodId method) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const Data<T> d(n, false);
    const std::size_t nq = 1000;
    const platform::HostArray q = d.queries(nq);
    auto out = platform::HostArray::createUninitialisedNumeric({nq, 1}, cls<T>());
    for (auto _ : state) {
        auto ev = makeEvaluator<T, T>(method, method, d.setup());
        ev->evaluateScattered(nq, q, out);
        benchmark::DoNotOptimize(out.template data<T>());
    }
    state.counters["ns/point"] =
        benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}

void evalArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"queries", "irregular", "threads"});
    for (std::int64_t irr : {0, 1})
        for (std::int64_t t : {1, 2})
            b->Args({1000000, irr, t});
    b->Args({10000, 0, 2});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

void buildArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"points"});
    for (std::int64_t n : {10000, 1000000})
        b->Args({n});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

} // namespace

void BM_EvalPchipDouble(benchmark::State& s) {
    BM_Eval<double>(s, MethodId::Pchip);
}
void BM_EvalSplineDouble(benchmark::State& s) {
    BM_Eval<double>(s, MethodId::Spline);
}
void BM_EvalPchipSingle(benchmark::State& s) {
    BM_Eval<float>(s, MethodId::Pchip);
}
void BM_EvalSplineSingle(benchmark::State& s) {
    BM_Eval<float>(s, MethodId::Spline);
}
void BM_BuildPchipDouble(benchmark::State& s) {
    BM_Build<double>(s, MethodId::Pchip);
}
void BM_BuildSplineDouble(benchmark::State& s) {
    BM_Build<double>(s, MethodId::Spline);
}
BENCHMARK(BM_EvalPchipDouble)->Apply(evalArgs);
BENCHMARK(BM_EvalSplineDouble)->Apply(evalArgs);
BENCHMARK(BM_EvalPchipSingle)->Apply(evalArgs);
BENCHMARK(BM_EvalSplineSingle)->Apply(evalArgs);
BENCHMARK(BM_BuildPchipDouble)->Apply(buildArgs);
BENCHMARK(BM_BuildSplineDouble)->Apply(buildArgs);

BENCHMARK_MAIN();
