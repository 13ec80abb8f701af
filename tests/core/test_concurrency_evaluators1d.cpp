// Several host threads evaluating one shared evaluator at once, all starting with its first
// evaluation (the lazily filled interval widths): every result equals the single-threaded
// result bit for bit. Run under TSan by the concurrency job.
#include "mathinterp/core/Evaluator.hpp"

#include "support/Engine.hpp"

#include <gtest/gtest.h>

#include <barrier>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

using namespace mathinterp;

TEST(ConcurrentEvaluation, FirstEvaluationsRaceSafely) {
    testsupport::GridData<double, double> d;
    for (int i = 0; i < 200; ++i)
        d.grids.resize(1), d.grids[0].push_back(i * 0.5 + (i % 3) * 0.1);
    for (double x : d.grids[0])
        d.values.push_back(std::sin(x));
    std::vector<double> q;
    for (int i = 0; i < 6000; ++i)
        q.push_back(-5.0 + i * 0.02);

    const auto reference =
        testsupport::evaluate1D<double>(*d.make(MethodId::Linear, MethodId::Linear), q);
    for (int round = 0; round < 5; ++round) {
        auto shared = d.make(MethodId::Linear, MethodId::Nearest);
        auto referenceExtrap =
            testsupport::evaluate1D<double>(*d.make(MethodId::Linear, MethodId::Nearest), q);
        constexpr int kThreads = 6;
        std::barrier start(kThreads);
        std::vector<std::vector<double>> results(kThreads);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                start.arrive_and_wait();
                results[t] = testsupport::evaluate1D<double>(*shared, q);
            });
        for (auto& th : threads)
            th.join();
        for (const auto& r : results) {
            ASSERT_EQ(r.size(), referenceExtrap.size());
            EXPECT_EQ(0, std::memcmp(r.data(), referenceExtrap.data(), r.size() * sizeof(double)));
        }
        // Inside the grid the two evaluators agree.
        EXPECT_EQ(results[0][300], reference[300]);
    }
}
