// "makima" through the evaluator: 1-D evaluation of 10^6 scattered queries on a 1000-point
// grid (1 and 2 worker threads), construction plus first evaluation on a 10^6-point grid,
// and 2-D evaluation of 10^6 scattered queries on a 1000 x 1000 grid.
//   ./build/bench/bench_makima
// The SciPy peer on the same data (Debian's /usr/bin/python3; its SciPy has Akima's original
// weights only, the same cost per query):
//   x = np.linspace(0, 10, 1000); f = Akima1DInterpolator(x, np.sin(x))
//   time f(q) for 10^6 uniform q in [0, 10]; time Akima1DInterpolator on 10^6 points.
// Compare CPU times when the machine is shared: real time then mostly measures the load.
#include "mathinterp/interpolant/EvaluatorFactory.hpp"

#include <platform/HostArray.hpp>

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <cmath>
#include <random>
#include <vector>

using namespace mathinterp;

namespace {

std::vector<double> linspace(double a, double b, std::size_t n) {
    std::vector<double> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = a + (b - a) * static_cast<double>(i) / static_cast<double>(n - 1);
    return x;
}

platform::HostArray uniformQueries(std::size_t m, std::size_t d, double a, double b) {
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> u(a, b);
    auto q = platform::HostArray::createUninitialisedNumeric({m, d}, platform::ClassId::Double);
    for (std::size_t i = 0; i < m * d; ++i)
        q.data<double>()[i] = u(rng);
    return q;
}

void setNsPerQuery(benchmark::State& state, std::size_t m) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * m));
    state.counters["ns/query"] =
        benchmark::Counter(static_cast<double>(m), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}

// 10^6 queries, 1000-point grid; the evaluator is built and precomputed before timing.
void BM_Makima1D_Evaluate(benchmark::State& state) {
    tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                static_cast<std::size_t>(state.range(0)));
    const std::size_t m = 1000000;
    const auto x = linspace(0, 10, 1000);
    std::vector<double> y(x.size());
    for (std::size_t i = 0; i < x.size(); ++i)
        y[i] = std::sin(x[i]);
    EvaluatorSetup<double, double> s;
    s.grids = {x.data()};
    s.sizes = {x.size()};
    s.values = y.data();
    s.pointsPerPlane = x.size();
    s.numPlanes = 1;
    auto ev = makeEvaluator<double, double>(MethodId::Makima, MethodId::Makima, s);
    const auto q = uniformQueries(m, 1, 0, 10);
    auto out = platform::HostArray::createUninitialisedNumeric({m, 1}, platform::ClassId::Double);
    ev->evaluateScattered(m, q, out);
    for (auto _ : state) {
        ev->evaluateScattered(m, q, out);
        benchmark::DoNotOptimize(out.data<double>());
    }
    setNsPerQuery(state, m);
}
BENCHMARK(BM_Makima1D_Evaluate)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Building the evaluator on 10^6 grid points and evaluating one query (which precomputes).
void BM_Makima1D_BuildAndFirstEvaluation(benchmark::State& state) {
    const std::size_t n = 1000000;
    const auto x = linspace(0, 10, n);
    std::vector<double> y(n);
    for (std::size_t i = 0; i < n; ++i)
        y[i] = std::sin(x[i]);
    const auto q = uniformQueries(1, 1, 0, 10);
    auto out = platform::HostArray::createUninitialisedNumeric({1, 1}, platform::ClassId::Double);
    for (auto _ : state) {
        EvaluatorSetup<double, double> s;
        s.grids = {x.data()};
        s.sizes = {n};
        s.values = y.data();
        s.pointsPerPlane = n;
        s.numPlanes = 1;
        auto ev = makeEvaluator<double, double>(MethodId::Makima, MethodId::Makima, s);
        ev->evaluateScattered(1, q, out);
        benchmark::DoNotOptimize(out.data<double>());
    }
}
BENCHMARK(BM_Makima1D_BuildAndFirstEvaluation)->Unit(benchmark::kMillisecond)->UseRealTime();

// 2-D: 1000 x 1000 grid, 10^6 scattered queries; precomputed before timing.
void BM_Makima2D_Evaluate(benchmark::State& state) {
    tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                static_cast<std::size_t>(state.range(0)));
    const std::size_t n = 1000, m = 1000000;
    const auto x = linspace(0, 10, n), yv = linspace(-5, 5, n);
    std::vector<double> v(n * n);
    for (std::size_t j = 0; j < n; ++j)
        for (std::size_t i = 0; i < n; ++i)
            v[i + n * j] = std::sin(x[i]) * std::cos(yv[j]);
    EvaluatorSetup<double, double> s;
    s.grids = {x.data(), yv.data()};
    s.sizes = {n, n};
    s.values = v.data();
    s.pointsPerPlane = n * n;
    s.numPlanes = 1;
    auto q = uniformQueries(m, 2, 0, 10);
    for (std::size_t i = 0; i < m; ++i)
        q.data<double>()[m + i] -= 5; // second coordinate
    auto out = platform::HostArray::createUninitialisedNumeric({m, 1}, platform::ClassId::Double);
    std::unique_ptr<Evaluator> ev;
    try {
        ev = makeEvaluator<double, double>(MethodId::Makima, MethodId::Makima, s);
        ev->evaluateScattered(m, q, out);
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
        return;
    }
    for (auto _ : state) {
        ev->evaluateScattered(m, q, out);
        benchmark::DoNotOptimize(out.data<double>());
    }
    setNsPerQuery(state, m);
}
BENCHMARK(BM_Makima2D_Evaluate)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
