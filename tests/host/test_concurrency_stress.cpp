// Concurrency stress, one interpolant per method (1-D and 2-D): eight host threads make their
// first evaluation at the same moment (std::barrier) on copies that share one evaluator whose
// lazy tables are not built yet, and on the original, while three more threads copy the
// original and set Values on their copies. Every result equals the single-threaded result
// bit for bit, and the original never sees a copy's values. Run under TSan by the CI's
// concurrency job.
#include "HostTestSupport.hpp"

#include <oneapi/tbb/global_control.h>

#include <atomic>
#include <barrier>
#include <functional>
#include <thread>

using namespace hosttest;

namespace {

struct Case {
    std::vector<HostArray> args; // grid cell, values, method
    HostArray newValues;         // same size and class: a copy's setter rebinds
    HostArray queries;
};

// 1-D: 25 uniform points (cubic stays cubic), two value sets; 3000 queries (parallel loop).
// 2-D: a 9 x 7 grid of complex values; 2500 scattered points as a 2500 x 2 matrix.
Case makeCase(const char* method, bool nd) {
    const HostArray word = HostArray::charRow(method);
    if (!nd)
        return {{HostArray::cellOf({HostArray::rowVector(ramp(25, 0, 0.4))}), waves({25, 2}, false),
                 word},
                waves({25, 2}, false, 2.0),
                HostArray::columnVector(ramp(3000, -1, 0.0037))};
    std::vector<double> q = ramp(2500, -1, 0.0041), qy = ramp(2500, -0.5, 0.0017);
    q.insert(q.end(), qy.begin(), qy.end());
    return {{HostArray::cellOf(
                 {HostArray::rowVector(ramp(9, 0, 1)), HostArray::rowVector(ramp(7, 0, 0.5))}),
             waves({9, 7}, true), word},
            waves({9, 7}, true, 2.0),
            HostArray::fromDoubles({2500, 2}, q)};
}

// The result of a fresh object evaluated on one thread.
HostArray singleThreaded(std::vector<HostArray> args, const HostArray& values, const HostArray& q) {
    tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
    args[1] = values;
    return paren(construct(args), {q});
}

// The first m points (rows) of a query column or point matrix.
HostArray firstRows(const HostArray& q, std::uint64_t m) {
    const std::uint64_t total = q.dimension(0), d = q.dimension(1);
    HostArray out = HostArray::createUninitialisedNumeric({m, d}, q.classId());
    for (std::uint64_t j = 0; j < d; ++j)
        std::memcpy(out.data<double>() + j * m, q.data<double>() + j * total, m * sizeof(double));
    return out;
}

void stress(const Case& c) {
    constexpr int kEvaluators = 8, kCopiers = 3, kRounds = 3;
    // Half of the evaluating threads start with 1000 points: those loops run serially on the
    // host thread, outside any oneTBB frame, so TSan checks them without suppressions.
    const HostArray small = firstRows(c.queries, 1000);
    const HostArray referenceSmall = singleThreaded(c.args, c.args[1], small);
    const HostArray reference = singleThreaded(c.args, c.args[1], c.queries);
    const HostArray referenceNew = singleThreaded(c.args, c.newValues, c.queries);
    ASSERT_FALSE(sameBits(reference, referenceNew));

    for (int round = 0; round < kRounds; ++round) {
        const HostArray F = construct(c.args);
        // Copies made before any evaluation share the evaluator with its tables still empty.
        std::vector<HostArray> handles{F};
        for (int t = 1; t < kEvaluators; ++t)
            handles.push_back(ClassSystem::copyObject(F));
        ASSERT_EQ(evaluatorOf(handles.back()), evaluatorOf(F));
        std::barrier start(kEvaluators + kCopiers);
        std::atomic<int> mismatches{0}, errors{0};
        const auto count = [&](const std::function<void()>& f) {
            if (errorId(f) != "none") ++errors;
        };
        std::vector<std::thread> threads;
        for (int t = 0; t < kEvaluators; ++t)
            threads.emplace_back([&, t] {
                start.arrive_and_wait();
                for (int k = 0; k < 3; ++k) {
                    const bool serial = (t + k) % 2 == 0;
                    count([&] {
                        if (!sameBits(paren(handles[t], {serial ? small : c.queries}),
                                      serial ? referenceSmall : reference))
                            ++mismatches;
                    });
                }
            });
        for (int t = 0; t < kCopiers; ++t)
            threads.emplace_back([&] {
                start.arrive_and_wait();
                for (int k = 0; k < 3; ++k)
                    count([&] {
                        const HostArray G = ClassSystem::copyObject(F);
                        ClassSystem::setProperty(G, "Values", c.newValues);
                        if (!sameBits(paren(G, {c.queries}), referenceNew)) ++mismatches;
                        ClassSystem::setProperty(G, "Values", c.args[1]);
                        if (!sameBits(paren(G, {c.queries}), reference)) ++mismatches;
                    });
            });
        for (auto& th : threads)
            th.join();
        EXPECT_EQ(mismatches.load(), 0) << "round " << round;
        EXPECT_EQ(errors.load(), 0) << "round " << round;
        EXPECT_TRUE(sameBits(paren(F, {c.queries}), reference));
    }
}

class ConcurrencyStress : public QuietModule, public ::testing::WithParamInterface<const char*> {};
using OneObjectConcurrency = QuietModule;

} // namespace

TEST_P(ConcurrencyStress, OneDimension) {
    stress(makeCase(GetParam(), false));
}

TEST_P(ConcurrencyStress, TwoDimensions) {
    if (!hasNdForm(GetParam())) GTEST_SKIP() << GetParam() << " has no N-D form";
    stress(makeCase(GetParam(), true));
}

INSTANTIATE_TEST_SUITE_P(EveryMethod, ConcurrencyStress, ::testing::ValuesIn(kMethods),
                         [](const auto& p) { return std::string(p.param); });

// One object without copies: same-size Values set on it (the evaluator is rebound in place)
// while other threads evaluate it; the class system serialises the calls.
TEST_F(OneObjectConcurrency, OneObjectRebindsWhileOtherThreadsEvaluateIt) {
    const Case c = makeCase("linear", false);
    const HostArray F = construct(c.args);
    const HostArray small = firstRows(c.queries, 1000);
    const HostArray reference = singleThreaded(c.args, c.args[1], small);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (int r = 0; r < 10; ++r) {
                if (t == 0) ClassSystem::setProperty(F, "Values", c.args[1].deepCopy());
                if (!sameBits(paren(F, {small}), reference)) ++wrong;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
}
