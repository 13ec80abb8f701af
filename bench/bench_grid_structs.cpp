// gridStructsInterpFcn on a 200x200 grid of structs with two fields of 16 doubles each,
// evaluated on a 500x500 query grid, beside the same interpolation done by one interpolant
// with 32 value sets (the gateway's goal: no more than twice its time).
//   ./build/bench/bench_grid_structs
#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"

#include <platform/HostArray.hpp>

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

using platform::ClassId;
using platform::HostArray;

namespace {

constexpr std::uint64_t kGrid = 200, kQuery = 500, kElems = 16;

std::vector<double> axis(std::uint64_t n, double scale) {
    std::vector<double> v(n);
    for (std::uint64_t i = 0; i < n; ++i)
        v[i] = static_cast<double>(i) * scale;
    return v;
}

double value(std::uint64_t g, std::uint64_t f, std::uint64_t e) {
    return std::sin(0.001 * static_cast<double>(g) + static_cast<double>(f * kElems + e));
}

HostArray gridCell() {
    return HostArray::cellOf(
        {HostArray::rowVector(axis(kGrid, 1.0)), HostArray::rowVector(axis(kGrid, 1.0))});
}

HostArray queryCell() {
    const double s = static_cast<double>(kGrid - 1) / static_cast<double>(kQuery - 1);
    return HostArray::cellOf(
        {HostArray::rowVector(axis(kQuery, s)), HostArray::rowVector(axis(kQuery, s))});
}

void BM_GridStructs(benchmark::State& state) {
    HostArray s = HostArray::createStruct({kGrid, kGrid}, {"a", "b"});
    for (std::uint64_t g = 0; g < kGrid * kGrid; ++g)
        for (std::uint64_t f = 0; f < 2; ++f) {
            HostArray v = HostArray::createUninitialisedNumeric({kElems, 1}, ClassId::Double);
            for (std::uint64_t e = 0; e < kElems; ++e)
                v.data<double>()[e] = value(g, f, e);
            s.setField(g, f, v);
        }
    HostArray in[] = {gridCell(), HostArray::cellOf({s}), queryCell()};
    for (auto _ : state) {
        HostArray out;
        gridStructsInterpFcn(1, &out, 3, in);
        benchmark::DoNotOptimize(out.rawData());
    }
}

void BM_InterpolantWith32Sets(benchmark::State& state) {
    HostArray v =
        HostArray::createUninitialisedNumeric({kGrid, kGrid, 2 * kElems}, ClassId::Double);
    for (std::uint64_t f = 0; f < 2; ++f)
        for (std::uint64_t e = 0; e < kElems; ++e)
            for (std::uint64_t g = 0; g < kGrid * kGrid; ++g)
                v.data<double>()[(f * kElems + e) * kGrid * kGrid + g] = value(g, f, e);
    mathinterp::GriddedInterpolant gi;
    HostArray args[] = {gridCell(), v};
    gi.construct(2, args);
    HostArray q = queryCell();
    for (auto _ : state) {
        HostArray out = gi.evaluate(1, &q);
        benchmark::DoNotOptimize(out.rawData());
    }
}

} // namespace

BENCHMARK(BM_GridStructs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_InterpolantWith32Sets)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
