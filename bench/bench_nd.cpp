// N-D linear and nearest through the evaluator: 10^6 scattered queries on a 2-D 1000x1000
// grid and on a 3-D 100^3 grid, and gridded output of 2000x2000 points on the 2-D grid;
// double grid and values, double queries, with 1 and 2 worker threads. Reported: ns per
// query (scattered) or per output point (gridded).
//   ./build/bench/bench_nd --benchmark_min_time=0.5
#include "mathinterp/interpolant/EvaluatorFactory.hpp"

#include <platform/HostArray.hpp>

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <cmath>
#include <random>
#include <vector>

using namespace mathinterp;
using platform::ClassId;
using platform::HostArray;

namespace {

// A uniform grid on [0, 1]^d with n points per dimension and smooth values.
struct GridCase {
    std::vector<std::vector<double>> axes;
    std::vector<double> values;

    GridCase(u64 d, u64 n) : axes(d) {
        for (auto& a : axes)
            for (u64 i = 0; i < n; ++i)
                a.push_back(static_cast<double>(i) / static_cast<double>(n - 1));
        u64 p = 1;
        for (u64 k = 0; k < d; ++k)
            p *= n;
        values.resize(p);
        for (u64 j = 0; j < p; ++j)
            values[j] = std::sin(0.001 * static_cast<double>(j));
    }
    EvaluatorSetup<double, double> setup() const {
        EvaluatorSetup<double, double> s;
        for (const auto& a : axes) {
            s.grids.push_back(a.data());
            s.sizes.push_back(a.size());
        }
        s.values = values.data();
        s.pointsPerPlane = values.size();
        s.numPlanes = 1;
        return s;
    }
};

void setRate(benchmark::State& state, u64 count) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
    state.counters["ns/query"] = benchmark::Counter(static_cast<double>(count) * 1e-9,
                                                    benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}

// range(0): dimensions; range(1): points per dimension; range(2): worker threads.
void BM_Scattered(benchmark::State& state, MethodId method) {
    const auto d = static_cast<u64>(state.range(0));
    const auto n = static_cast<u64>(state.range(1));
    tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                static_cast<std::size_t>(state.range(2)));
    const u64 m = 1000000;
    GridCase g(d, n);
    auto ev = makeEvaluator<double, double>(method, method, g.setup());
    HostArray q = HostArray::createUninitialisedNumeric({m, d}, ClassId::Double);
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (u64 i = 0; i < m * d; ++i)
        q.data<double>()[i] = u(rng);
    HostArray out = HostArray::createUninitialisedNumeric({m, 1}, ClassId::Double);
    for (auto _ : state) {
        ev->evaluateScattered(m, q, out);
        benchmark::DoNotOptimize(out.data<double>());
    }
    setRate(state, m);
}

// 2000 x 2000 gridded output on the 1000 x 1000 grid; range(0): worker threads.
void BM_Gridded(benchmark::State& state, MethodId method) {
    tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                static_cast<std::size_t>(state.range(0)));
    GridCase g(2, 1000);
    auto ev = makeEvaluator<double, double>(method, method, g.setup());
    const u64 mq = 2000;
    std::vector<double> xv(mq);
    for (u64 i = 0; i < mq; ++i)
        xv[i] = static_cast<double>(i) / static_cast<double>(mq - 1);
    HostArray v = HostArray::createUninitialisedNumeric({1, mq}, ClassId::Double);
    std::copy(xv.begin(), xv.end(), v.data<double>());
    HostArray cell = HostArray::cellOf({v, v});
    HostArray out = HostArray::createUninitialisedNumeric({mq, mq}, ClassId::Double);
    for (auto _ : state) {
        ev->evaluateGridded(cell, out);
        benchmark::DoNotOptimize(out.data<double>());
    }
    setRate(state, mq * mq);
}

void scatteredArgs(benchmark::internal::Benchmark* b) {
    for (int t : {1, 2}) {
        b->Args({2, 1000, t});
        b->Args({3, 100, t});
    }
    // Grids that fit in the first-level cache: the cost of the arithmetic alone.
    b->Args({2, 10, 1});
    b->Args({3, 10, 1});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

void griddedArgs(benchmark::internal::Benchmark* b) {
    for (int t : {1, 2})
        b->Arg(t);
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK_CAPTURE(BM_Scattered, linear, MethodId::Linear)->Apply(scatteredArgs);
BENCHMARK_CAPTURE(BM_Scattered, nearest, MethodId::Nearest)->Apply(scatteredArgs);
BENCHMARK_CAPTURE(BM_Gridded, linear, MethodId::Linear)->Apply(griddedArgs);
BENCHMARK_CAPTURE(BM_Gridded, nearest, MethodId::Nearest)->Apply(griddedArgs);

} // namespace

BENCHMARK_MAIN();
