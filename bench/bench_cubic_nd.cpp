// Cubic convolution and the tensor spline through the evaluators, double grid and values:
//   Cubic1D   1000-point uniform grid, 10^6 scattered queries
//   CubicND   1000 x 1000 grid, 10^6 scattered queries (also on 0..999, and capped at AVX2)
//   SplineND  1000 x 1000 grid, 10^6 scattered queries and a 2000 x 2000 query grid
//   SplineND  100^3 grid, 10^6 scattered queries and a 200^3 query grid
//   the 2-D cubic kernels alone: hand-written against Highway, four and eight lanes
// Evaluation is timed with the tables built (the first evaluation is outside the timing);
// the *_Build cases time the table build alone (values rebound, then one evaluation).
// Thread count: the last argument (1 or 2). Fixed seeds.
//   ./build/bench/bench_cubic_nd --benchmark_filter=/2/
#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/methods/Cubic1D.hpp"
#include "mathinterp/methods/CubicND.hpp"
#include "mathinterp/methods/SplineND.hpp"

#include <platform/HostAllocator.hpp>
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

// A uniform grid of n^d points on [0, 1]^d with smooth values.
struct Data {
    std::vector<std::vector<double>> x;
    platform::HostVector<double> v; // the host's memory (large blocks on huge pages), as
                                    // the interpolant's values from Python
    EvaluatorSetup<double, double> setup;

    // integers: the grid is 0, 1, ..., n - 1 instead (pixel coordinates; an arithmetic grid,
    // whose cell ends the packed search computes).
    Data(u64 d, u64 n, bool integers = false) : x(d) {
        u64 total = 1;
        for (u64 k = 0; k < d; ++k) {
            x[k].resize(n);
            for (u64 i = 0; i < n; ++i)
                x[k][i] = integers ? static_cast<double>(i)
                                   : static_cast<double>(i) / static_cast<double>(n - 1);
            setup.grids.push_back(x[k].data());
            setup.sizes.push_back(n);
            total *= n;
        }
        v.resize(total);
        for (u64 j = 0; j < total; ++j) {
            u64 r = j;
            double s = 0;
            for (u64 k = 0; k < d; ++k) {
                s += std::sin(3.0 * static_cast<double>(k + 1) * x[k][r % n]);
                r /= n;
            }
            v[j] = s;
        }
        setup.values = v.data();
        setup.pointsPerPlane = total;
        setup.numPlanes = 1;
    }
};

HostArray scatteredQueries(u64 d, u64 m, double span = 1.0) {
    HostArray q = HostArray::createUninitialisedNumeric({m, d}, ClassId::Double);
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    double* p = q.data<double>();
    for (u64 i = 0; i < m * d; ++i)
        p[i] = span * u(rng);
    return q;
}

HostArray queryGrid(u64 d, u64 m) {
    HostArray cell = HostArray::createCell(1, d);
    std::vector<double> q(m);
    for (u64 i = 0; i < m; ++i)
        q[i] = static_cast<double>(i) / static_cast<double>(m - 1);
    for (u64 k = 0; k < d; ++k)
        cell.setCell(k, HostArray::columnVector(q));
    return cell;
}

void setCounters(benchmark::State& state, u64 points) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * points));
    state.counters["ns/point"] = benchmark::Counter(static_cast<double>(points),
                                                    benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}

std::unique_ptr<tbb::global_control> threads(benchmark::State& state) {
    return std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                 static_cast<std::size_t>(state.range(0)));
}

// Scattered: d-dimensional grid of n^d points, m queries.
template <class M>
void scatteredCase(benchmark::State& state, u64 d, u64 n, u64 m, bool integers = false) {
    const auto tc = threads(state);
    const Data data(d, n, integers);
    EvaluatorInterp<M> e(data.setup);
    const HostArray q = scatteredQueries(d, m, integers ? static_cast<double>(n - 1) : 1.0);
    HostArray out = HostArray::createUninitialisedNumeric({m, 1}, ClassId::Double);
    e.evaluateScattered(m, q, out); // builds the tables
    for (auto _ : state) {
        e.evaluateScattered(m, q, out);
        benchmark::DoNotOptimize(out.data<double>());
    }
    setCounters(state, m);
}

// Gridded: n^d grid, m^d query grid.
template <class M>
void griddedCase(benchmark::State& state, u64 d, u64 n, u64 m) {
    const auto tc = threads(state);
    const Data data(d, n);
    EvaluatorInterp<M> e(data.setup);
    const HostArray q = queryGrid(d, m);
    u64 total = 1;
    platform::Dims dims;
    for (u64 k = 0; k < d; ++k) {
        total *= m;
        dims.push_back(m);
    }
    HostArray out = HostArray::createUninitialisedNumeric(dims, ClassId::Double);
    e.evaluateGridded(q, out);
    for (auto _ : state) {
        e.evaluateGridded(q, out);
        benchmark::DoNotOptimize(out.data<double>());
    }
    setCounters(state, total);
}

// The table build alone: rebinding drops the tables, one query rebuilds them.
template <class M>
void buildCase(benchmark::State& state, u64 d, u64 n, bool gridded) {
    const auto tc = threads(state);
    const Data data(d, n);
    EvaluatorInterp<M> e(data.setup);
    const HostArray q = gridded ? queryGrid(d, 2) : scatteredQueries(d, 1);
    HostArray out = HostArray::createUninitialisedNumeric({u64{1} << d, 1}, ClassId::Double);
    const void* planes[] = {data.v.data()};
    auto build = [&] {
        e.rebindValues(planes);
        if (gridded)
            e.evaluateGridded(q, out);
        else
            e.evaluateScattered(1, q, out);
    };
    build(); // untimed: the first table's pages are fresh (1.4 s of page faults for 100^3)
    for (auto _ : state) {
        build();
        benchmark::DoNotOptimize(out.data<double>());
    }
}

using C1 = Cubic1D<double, double>;
using CN = CubicND<double, double>;
using SN = SplineND<double, double>;

void BM_Cubic1D_Scattered(benchmark::State& s) {
    scatteredCase<C1>(s, 1, 1000, 1000000);
}
void BM_CubicND_2D_Scattered(benchmark::State& s) {
    scatteredCase<CN>(s, 2, 1000, 1000000);
}
// The same on 0..999 (computed cell ends), and with the kernels capped at AVX2 (four lanes).
void BM_CubicND_2D_Scattered_IntegerGrid(benchmark::State& s) {
    scatteredCase<CN>(s, 2, 1000, 1000000, true);
}
void BM_CubicND_2D_Scattered_Avx2(benchmark::State& s) {
    simd::limitSimd(simd::SimdLevel::Avx2);
    scatteredCase<CN>(s, 2, 1000, 1000000);
    simd::limitSimd(simd::SimdLevel::Avx512);
}
void BM_SplineND_2D_Scattered(benchmark::State& s) {
    scatteredCase<SN>(s, 2, 1000, 1000000);
}
void BM_SplineND_2D_Gridded(benchmark::State& s) {
    griddedCase<SN>(s, 2, 1000, 2000);
}
void BM_SplineND_3D_Scattered(benchmark::State& s) {
    scatteredCase<SN>(s, 3, 100, 1000000);
}
void BM_SplineND_3D_Gridded(benchmark::State& s) {
    griddedCase<SN>(s, 3, 100, 200);
}
void BM_SplineND_2D_BuildTable(benchmark::State& s) {
    buildCase<SN>(s, 2, 1000, false);
}
void BM_SplineND_2D_BuildLastDim(benchmark::State& s) {
    buildCase<SN>(s, 2, 1000, true);
}
void BM_SplineND_3D_BuildTable(benchmark::State& s) {
    buildCase<SN>(s, 3, 100, false);
}
void BM_SplineND_3D_BuildLastDim(benchmark::State& s) {
    buildCase<SN>(s, 3, 100, true);
}

// The kernels-alone cases' data: the 1000^2 grid, its packed axes, 10^6 scattered queries.
struct KernelCase {
    static constexpr u64 n = 1000, m = 1000000;
    Data data{2, n};
    simd::SimdAxis axes[2] = {simd::simdAxis(data.x[0].data(), n, 1.0 / 999.0, 1),
                              simd::simdAxis(data.x[1].data(), n, 1.0 / 999.0, n)};
    HostArray q = scatteredQueries(2, m);
    const double* col[2] = {q.data<double>(), q.data<double>() + m};
};

bool levelAvailable(benchmark::State& state, simd::SimdLevel level) {
    if (simd::simdLevel() >= level) return true;
    state.SkipWithError("the processor lacks this level");
    return false;
}

// The 2-D cubic kernels alone, one thread, 10^6 queries on the 1000^2 grid of
// BM_CubicND_2D_Scattered: arg 0 the hand-written four lanes (AVX2), 1 the hand-written eight
// (AVX-512), 2 the Highway kernel at four lanes, 3 at eight. The lanes a kernel leaves to the
// scalar kernel (boundary cells, about 0.4%) get 0. Why 2-D cubic stays by hand: decision 52.
void BM_Cubic2D_Kernel(benchmark::State& state) {
    const KernelCase c;
    const u64 m = KernelCase::m;
    const auto& axes = c.axes;
    const auto& col = c.col;
    const Data& data = c.data;
    std::vector<double> out(m);
    const auto which = state.range(0);
    const simd::SimdLevel level = which % 2 ? simd::SimdLevel::Avx512 : simd::SimdLevel::Avx2;
    if (!levelAvailable(state, level)) return;
    const auto kernel = simd::packedNDKernel<double>(level);
    auto zero = [](u64) { return 0.0; };
    for (auto _ : state) {
        if (which == 0)
            simd::cubicScattered<2>(axes, data.v.data(), col, 0, m, out.data(), 1, zero);
        else if (which == 1)
            simd::cubicScattered2x8(axes, data.v.data(), col, 0, m, out.data(), 1, zero);
        else
            simd::scatteredND<double>(kernel, simd::KindND::Cubic, 2, axes, data.v.data(), nullptr,
                                      col, 0, m, out.data(), 1, zero);
        benchmark::DoNotOptimize(out.data());
    }
    setCounters(state, m);
}
BENCHMARK(BM_Cubic2D_Kernel)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();

// The 2-D cubic gradient kernel alone, as above, at four lanes (arg 2) and eight (arg 3). The
// hand-written four-lane kernel it replaced took 10.4 ms (decision 52).
void BM_Cubic2DGradient_Kernel(benchmark::State& state) {
    const KernelCase c;
    const u64 m = KernelCase::m;
    const auto& axes = c.axes;
    const auto& col = c.col;
    const Data& data = c.data;
    std::vector<double> g0(m), g1(m);
    double* outs[2] = {g0.data(), g1.data()};
    const auto which = state.range(0);
    const simd::SimdLevel level = which % 2 ? simd::SimdLevel::Avx512 : simd::SimdLevel::Avx2;
    if (!levelAvailable(state, level)) return;
    const auto kernel = simd::packedCubicGradientKernel(level);
    auto none = [](u64) {};
    for (auto _ : state) {
        simd::scatteredGradient(kernel, 2, axes, data.v.data(), nullptr, col, 0, m, outs, 1, none);
        benchmark::DoNotOptimize(g0.data());
    }
    setCounters(state, m);
}
BENCHMARK(BM_Cubic2DGradient_Kernel)
    ->Arg(0)
    ->Arg(2)
    ->Arg(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

#define MI_BENCH(f) BENCHMARK(f)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()
MI_BENCH(BM_Cubic1D_Scattered);
MI_BENCH(BM_CubicND_2D_Scattered);
MI_BENCH(BM_CubicND_2D_Scattered_IntegerGrid);
MI_BENCH(BM_CubicND_2D_Scattered_Avx2);
MI_BENCH(BM_SplineND_2D_Scattered);
MI_BENCH(BM_SplineND_2D_Gridded);
MI_BENCH(BM_SplineND_3D_Scattered);
MI_BENCH(BM_SplineND_3D_Gridded);
MI_BENCH(BM_SplineND_2D_BuildTable);
MI_BENCH(BM_SplineND_2D_BuildLastDim);
MI_BENCH(BM_SplineND_3D_BuildTable);
MI_BENCH(BM_SplineND_3D_BuildLastDim);

BENCHMARK_MAIN();
