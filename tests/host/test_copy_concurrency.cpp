// An object and its shallow copy share one evaluator; hosts evaluate them from several
// threads at once (run under ThreadSanitizer by the concurrency label). Results must be
// those of a serial evaluation, also while the copy's values are being replaced.
#include "host/HostTestSupport.hpp"

#include <atomic>
#include <thread>

using namespace hosttest;

namespace {

// Above the parallel threshold, except under ThreadSanitizer: the system's oneTBB is not
// instrumented, so TSan cannot see a loop's task hand-off and reports every parallel loop.
// Below the threshold each host thread evaluates on its own, and every access of the shared
// evaluator and its caches is visible to TSan.
#if defined(__SANITIZE_THREAD__)
constexpr std::uint64_t kQueries = 1500;
#else
constexpr std::uint64_t kQueries = 5000;
#endif

HostArray queries() {
    std::vector<double> q(kQueries);
    for (std::uint64_t i = 0; i < kQueries; ++i)
        q[i] = -0.5 + 5.0 * static_cast<double>(i) / static_cast<double>(kQueries - 1);
    return HostArray::columnVector(q);
}

// Grid 0..4, values of a line 3x + 1, so that the exact answer is known everywhere.
HostArray lineInterpolant() {
    return construct(
        {HostArray::rowVector({0, 1, 2, 3, 4}), HostArray::rowVector({1, 4, 7, 10, 13})});
}

class CopyConcurrency : public RegisteredModule {};

TEST_F(CopyConcurrency, OriginalAndCopyEvaluateAtOnce) {
    HostArray f = lineInterpolant();
    HostArray g = ClassSystem::copyObject(f); // shares the evaluator, caches still empty
    ASSERT_EQ(evaluatorOf(f), evaluatorOf(g));
    const HostArray q = queries();
    // The reference is computed afterwards on a fresh object, so that both threads above
    // race on the first (cache-filling) evaluation of the shared evaluator.
    std::vector<double> fromF, fromG;
    std::thread a([&] {
        for (int r = 0; r < 20; ++r)
            fromF = doubles(paren(f, {q}));
    });
    std::thread b([&] {
        for (int r = 0; r < 20; ++r)
            fromG = doubles(paren(g, {q}));
    });
    a.join();
    b.join();
    const std::vector<double> expected = doubles(paren(lineInterpolant(), {q}));
    EXPECT_EQ(fromF, expected);
    EXPECT_EQ(fromG, expected);
    for (std::uint64_t i = 0; i < kQueries; i += 499) // and the line itself
        EXPECT_NEAR(expected[i], 3 * q.realAt(i) + 1, 1e-12);
}

TEST_F(CopyConcurrency, ReplacingTheCopysValuesNeverDisturbsTheOriginal) {
    HostArray f = lineInterpolant();
    HostArray g = ClassSystem::copyObject(f);
    const HostArray q = queries();
    const std::vector<double> expected = doubles(paren(lineInterpolant(), {q}));
    std::atomic<int> wrong{0};
    std::thread reader([&] {
        for (int r = 0; r < 30; ++r)
            if (doubles(paren(f, {q})) != expected) ++wrong;
    });
    std::thread writer([&] {
        for (int r = 0; r < 30; ++r) {
            const double s = r;
            ClassSystem::setProperty(g, "Values", HostArray::rowVector({s, s, s, s, s}));
            const std::vector<double> got = doubles(paren(g, {q}));
            if (got.front() != s || got.back() != s) ++wrong;
        }
    });
    reader.join();
    writer.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(CopyConcurrency, OneObjectFromSeveralThreads) {
    HostArray f = lineInterpolant();
    const HostArray q = queries();
    const std::vector<double> expected = doubles(paren(lineInterpolant(), {q}));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (int r = 0; r < 10; ++r) {
                if (t == 0) // same-size values: the evaluator is rebound in place
                    ClassSystem::setProperty(f, "Values", HostArray::rowVector({1, 4, 7, 10, 13}));
                if (doubles(paren(f, {q})) != expected) ++wrong;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
}

} // namespace
