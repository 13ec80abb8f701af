// The interpolant's own costs around the engine: construction (validation pass over the grid
// vectors plus the evaluator build) against grid size, and the query forms of a 2-D
// evaluation on the same points (cell of query vectors, ndgrid arrays that must be
// recognised and reduced to vectors, a point matrix, two scattered arrays that must be
// packed). Fixed seed; results land in the values' class.
#include "mathinterp/interpolant/GriddedInterpolant.hpp"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

using mathinterp::GriddedInterpolant;
using platform::ClassId;
using platform::HostArray;

namespace {

HostArray ramp(std::uint64_t n, double step) {
    HostArray a = HostArray::createUninitialisedNumeric({1, n}, ClassId::Double);
    for (std::uint64_t i = 0; i < n; ++i)
        a.data<double>()[i] = double(i) * step;
    return a;
}

void BM_Construct1D(benchmark::State& state) {
    const auto n = static_cast<std::uint64_t>(state.range(0));
    const HostArray x = ramp(n, 0.5), v = ramp(n, 2.0);
    const HostArray args[] = {x, v};
    for (auto _ : state) {
        GriddedInterpolant g;
        g.construct(2, args);
        benchmark::DoNotOptimize(g.evaluator().get());
    }
    state.SetComplexityN(static_cast<std::int64_t>(n));
}
BENCHMARK(BM_Construct1D)->RangeMultiplier(10)->Range(1000, 1000000)->Complexity();

// A 2-D interpolant on 200 x 300 points and a 400 x 500 query grid in four forms.
struct Query2D {
    GriddedInterpolant g;
    HostArray xq, yq, X, Y, P, Xs, Ys;
    Query2D() {
        const std::uint64_t n = 200, m = 300, p = 400, q = 500;
        HostArray v = HostArray::createUninitialisedNumeric({n, m}, ClassId::Double);
        std::mt19937_64 rng(42);
        std::uniform_real_distribution<double> u(0, 1);
        for (std::uint64_t i = 0; i < n * m; ++i)
            v.data<double>()[i] = u(rng);
        const HostArray args[] = {HostArray::cellOf({ramp(n, 1.0), ramp(m, 1.0)}), v};
        g.construct(2, args);
        xq = ramp(p, 199.0 / double(p));
        yq = ramp(q, 299.0 / double(q));
        X = HostArray::createUninitialisedNumeric({p, q}, ClassId::Double);
        Y = HostArray::createUninitialisedNumeric({p, q}, ClassId::Double);
        P = HostArray::createUninitialisedNumeric({p * q, 2}, ClassId::Double);
        for (std::uint64_t j = 0; j < q; ++j)
            for (std::uint64_t i = 0; i < p; ++i) {
                X.data<double>()[j * p + i] = xq.data<double>()[i];
                Y.data<double>()[j * p + i] = yq.data<double>()[j];
                P.data<double>()[j * p + i] = xq.data<double>()[i];
                P.data<double>()[p * q + j * p + i] = yq.data<double>()[j];
            }
        // The same points, shuffled: no longer an ndgrid.
        Xs = X.deepCopy();
        Ys = Y.deepCopy();
        std::mt19937_64 shuffle(7);
        for (std::uint64_t i = p * q - 1; i > 0; --i) {
            const std::uint64_t k = shuffle() % (i + 1);
            std::swap(Xs.data<double>()[i], Xs.data<double>()[k]);
            std::swap(Ys.data<double>()[i], Ys.data<double>()[k]);
        }
    }
};

Query2D& fixture() {
    static Query2D f;
    return f;
}

void BM_Eval2D_CellOfVectors(benchmark::State& state) {
    Query2D& f = fixture();
    const HostArray q[] = {HostArray::cellOf({f.xq, f.yq})};
    for (auto _ : state)
        benchmark::DoNotOptimize(f.g.evaluate(1, q).rawData());
}
void BM_Eval2D_NdgridArrays(benchmark::State& state) {
    Query2D& f = fixture();
    const HostArray q[] = {f.X, f.Y};
    for (auto _ : state)
        benchmark::DoNotOptimize(f.g.evaluate(2, q).rawData());
}
void BM_Eval2D_PointMatrix(benchmark::State& state) {
    Query2D& f = fixture();
    const HostArray q[] = {f.P};
    for (auto _ : state)
        benchmark::DoNotOptimize(f.g.evaluate(1, q).rawData());
}
void BM_Eval2D_ScatteredArrays(benchmark::State& state) {
    Query2D& f = fixture();
    const HostArray q[] = {f.Xs, f.Ys};
    for (auto _ : state)
        benchmark::DoNotOptimize(f.g.evaluate(2, q).rawData());
}
BENCHMARK(BM_Eval2D_CellOfVectors)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Eval2D_NdgridArrays)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Eval2D_PointMatrix)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Eval2D_ScatteredArrays)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
