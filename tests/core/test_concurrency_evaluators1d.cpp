// Several host threads evaluating one shared evaluator at once, all starting with its first
// evaluation (the lazily filled interval widths and index tables), 1-D and 3-D, with an
// extrapolation method of its own: every result equals a single-threaded evaluation of a
// fresh evaluator bit for bit. Run under TSan by the concurrency job (the 3-D calls stay
// below the parallel threshold: oneTBB is not instrumented).
#include "mathinterp/core/Evaluator.hpp"

#include "support/Engine.hpp"

#include <gtest/gtest.h>

#include <barrier>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

using namespace mathinterp;

namespace {

template <class V>
void raceFirstEvaluations(const testsupport::GridData<double, V>& d,
                          const std::vector<std::vector<double>>& points) {
    auto reference = d.make(MethodId::Linear, MethodId::Nearest);
    const auto expect = testsupport::evaluatePoints<V>(*reference, points);
    for (int round = 0; round < 5; ++round) {
        auto shared = d.make(MethodId::Linear, MethodId::Nearest);
        constexpr int kThreads = 6;
        std::barrier start(kThreads);
        std::vector<std::vector<V>> results(kThreads);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                start.arrive_and_wait();
                results[t] = testsupport::evaluatePoints<V>(*shared, points);
            });
        for (auto& th : threads)
            th.join();
        for (const auto& r : results) {
            ASSERT_EQ(r.size(), expect.size());
            EXPECT_EQ(0, std::memcmp(r.data(), expect.data(), r.size() * sizeof(V)));
        }
    }
}

} // namespace

TEST(ConcurrentEvaluation, FirstEvaluationsRaceSafely) {
    std::mt19937_64 rng(5);
    testsupport::GridData<double, double> line;
    line.grids = {testsupport::irregularGrid(rng, 200)};
    line.values = testsupport::randomValues(rng, 200);
    raceFirstEvaluations(line, testsupport::randomPoints(rng, line.grids, 6000, 5.0));

    testsupport::GridData<double, float> box;
    box.numPlanes = 2;
    for (std::uint64_t n : {30u, 40u, 5u})
        box.grids.push_back(testsupport::irregularGrid(rng, n));
    for (double v : testsupport::randomValues(rng, 2 * 30 * 40 * 5))
        box.values.push_back(static_cast<float>(v));
    raceFirstEvaluations(box, testsupport::randomPoints(rng, box.grids, 2000, 1.0));
}
