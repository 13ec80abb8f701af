// What the class system adds to an evaluation: F(Xq) through ClassSystem::invokeMethod
// ("parenReference") against GriddedInterpolant::evaluate called directly, and the cost of a
// shallow copy (copyObject) against a fresh construction. Linear 1-D, 1000 grid points.
#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"

#include <platform/ClassSystem.hpp>

#include <benchmark/benchmark.h>

#include <vector>

using platform::ClassSystem;
using platform::HostArray;

namespace {

std::vector<HostArray> constructionArgs() {
    std::vector<double> x(1000), v(1000);
    for (std::size_t i = 0; i < x.size(); ++i) {
        x[i] = static_cast<double>(i);
        v[i] = static_cast<double>(i * i % 17);
    }
    return {HostArray::rowVector(x), HostArray::rowVector(v)};
}

HostArray queries(std::int64_t m) {
    std::vector<double> q(static_cast<std::size_t>(m));
    for (std::size_t i = 0; i < q.size(); ++i)
        q[i] = static_cast<double>(i * 7919 % 999000) / 1000;
    return HostArray::columnVector(q);
}

void BM_ParenThroughClassSystem(benchmark::State& state) {
    KVInitialize_libqzmathinterp();
    auto args = constructionArgs();
    HostArray f = ClassSystem::construct("griddedInterpolant", 2, args.data());
    HostArray in[] = {f, queries(state.range(0))}, out[1];
    for (auto _ : state) {
        ClassSystem::invokeMethod("parenReference", 1, out, 2, in);
        benchmark::DoNotOptimize(out[0].rawData());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_EvaluateDirect(benchmark::State& state) {
    auto args = constructionArgs();
    mathinterp::GriddedInterpolant g;
    g.construct(2, args.data());
    HostArray q = queries(state.range(0));
    for (auto _ : state) {
        HostArray out = g.evaluate(1, &q);
        benchmark::DoNotOptimize(out.rawData());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_CopyObject(benchmark::State& state) {
    KVInitialize_libqzmathinterp();
    auto args = constructionArgs();
    HostArray f = ClassSystem::construct("griddedInterpolant", 2, args.data());
    for (auto _ : state)
        benchmark::DoNotOptimize(ClassSystem::copyObject(f).rawData());
}

void BM_ConstructObject(benchmark::State& state) {
    KVInitialize_libqzmathinterp();
    auto args = constructionArgs();
    for (auto _ : state)
        benchmark::DoNotOptimize(
            ClassSystem::construct("griddedInterpolant", 2, args.data()).rawData());
}

} // namespace

BENCHMARK(BM_ParenThroughClassSystem)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(BM_EvaluateDirect)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(BM_CopyObject);
BENCHMARK(BM_ConstructObject);
BENCHMARK_MAIN();
