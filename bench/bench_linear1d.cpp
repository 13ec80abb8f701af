// 1-D linear and nearest, scattered queries through the evaluator: 10^3, 10^5 and 10^7
// queries on uniform and strongly irregular 1000-point grids, double and single, with 1 and
// 2 worker threads; beside them the "stream" baseline: the same parallel loop reading each
// query and writing one output.
//   ./build/bench/bench_linear1d --benchmark_filter=10000000
#include "mathinterp/core/Parallel.hpp"
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
struct Case {
    std::vector<T> grid, values;
    platform::HostArray queries, out;

    Case(bool irregular, std::size_t nq) {
        const int n = 1000;
        for (int i = 0; i < n; ++i) {
            // Irregular: spacing grows geometrically over six orders of magnitude.
            const double x = irregular ? std::pow(1e6, i / double(n - 1)) - 1.0 : i * 0.01;
            grid.push_back(static_cast<T>(x));
            values.push_back(static_cast<T>(std::sin(x)));
        }
        std::mt19937_64 rng(1);
        std::uniform_real_distribution<double> u(grid.front(), grid.back());
        queries = platform::HostArray::createUninitialisedNumeric({nq, 1}, cls<T>());
        for (std::size_t i = 0; i < nq; ++i)
            queries.data<T>()[i] = static_cast<T>(u(rng));
        out = platform::HostArray::createUninitialisedNumeric({nq, 1}, cls<T>());
    }
};

template <class T>
void BM_Method(benchmark::State& state, MethodId method) {
    const auto nq = static_cast<std::size_t>(state.range(0));
    const bool irregular = state.range(1) != 0;
    tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                static_cast<std::size_t>(state.range(2)));
    Case<T> c(irregular, nq);
    EvaluatorSetup<T, T> s;
    s.grids = {c.grid.data()};
    s.sizes = {c.grid.size()};
    s.values = c.values.data();
    s.pointsPerPlane = c.grid.size();
    s.numPlanes = 1;
    auto ev = makeEvaluator<T, T>(method, method, s);
    for (auto _ : state) {
        ev->evaluateScattered(nq, c.queries, c.out);
        benchmark::DoNotOptimize(c.out.template data<T>());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * nq));
    state.counters["ns/query"] =
        benchmark::Counter(static_cast<double>(nq), benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}

template <class T>
void BM_Stream(benchmark::State& state) {
    const auto nq = static_cast<std::size_t>(state.range(0));
    tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                static_cast<std::size_t>(state.range(2)));
    Case<T> c(false, nq);
    const T* q = c.queries.template data<T>();
    T* o = c.out.template data<T>();
    for (auto _ : state) {
        auto body = [q, o](u64 b, u64 e) {
            for (u64 i = b; i < e; ++i)
                o[i] = q[i] + T(1);
        };
        forEachRange(nq, body);
        benchmark::DoNotOptimize(o);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * nq));
    state.counters["ns/query"] =
        benchmark::Counter(static_cast<double>(nq), benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}

void args(benchmark::internal::Benchmark* b) {
    b->ArgNames({"queries", "irregular", "threads"});
    for (std::int64_t n : {1000, 100000, 10000000})
        for (std::int64_t irr : {0, 1})
            for (std::int64_t t : {1, 2})
                b->Args({n, irr, t});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

void streamArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"queries", "irregular", "threads"});
    for (std::int64_t n : {1000, 100000, 10000000})
        for (std::int64_t t : {1, 2})
            b->Args({n, 0, t});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

} // namespace

void BM_LinearDouble(benchmark::State& s) {
    BM_Method<double>(s, MethodId::Linear);
}
void BM_NearestDouble(benchmark::State& s) {
    BM_Method<double>(s, MethodId::Nearest);
}
void BM_LinearSingle(benchmark::State& s) {
    BM_Method<float>(s, MethodId::Linear);
}
void BM_NearestSingle(benchmark::State& s) {
    BM_Method<float>(s, MethodId::Nearest);
}
BENCHMARK(BM_LinearDouble)->Apply(args);
BENCHMARK(BM_NearestDouble)->Apply(args);
BENCHMARK(BM_LinearSingle)->Apply(args);
BENCHMARK(BM_NearestSingle)->Apply(args);
BENCHMARK_TEMPLATE(BM_Stream, double)->Apply(streamArgs);
BENCHMARK_TEMPLATE(BM_Stream, float)->Apply(streamArgs);

BENCHMARK_MAIN();
