// The memory budget: blocks are counted and refused past the limit before they are made;
// cached large blocks are given back before a refusal; multi-pass builds refuse up front;
// a refusal leaves the object evaluating and the live figure where it was; concurrent
// evaluations under a tight limit never pass it (this file also runs under TSan).
#include "support/Interpolant.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/MemoryBudget.hpp>

#include <tbb/global_control.h>

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

using itest::Args;
using platform::HostArray;

namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

// The threads that matter here are the callers'. oneTBB's workers stay out: its library is
// not instrumented, so TSan would see a table built inside a parallel loop and read after it
// as a race.
const tbb::global_control g_callersOnly(tbb::global_control::max_allowed_parallelism, 1);

// Grid vectors 0..n-1 for d dimensions, values from a smooth formula, and an interpolant.
mathinterp::GriddedInterpolant makeSpline(std::uint64_t d, std::uint64_t n,
                                          const char* method = "spline") {
    HostArray grid = HostArray::createCell(1, d);
    platform::Dims dims;
    for (std::uint64_t k = 0; k < d; ++k) {
        std::vector<double> g(n);
        for (std::uint64_t i = 0; i < n; ++i)
            g[i] = static_cast<double>(i);
        grid.setCell(k, itest::row(g));
        dims.push_back(n);
    }
    if (d == 1) dims.push_back(1);
    const HostArray values =
        itest::filled(dims, [](std::uint64_t i) { return static_cast<double>((i * 7919) % 101); });
    mathinterp::GriddedInterpolant F;
    const Args args{grid, values, itest::text(method)};
    F.construct(3, args.data());
    return F;
}

// m scattered points in [0, hi)^d as an m x d matrix.
HostArray points(std::uint64_t m, std::uint64_t d, double hi) {
    return itest::filled({m, d}, [=](std::uint64_t i) {
        return hi * static_cast<double>((i * 2654435761u) % 1000) / 1000.0;
    });
}

// A spline's result on q; the interpolant is gone and cached blocks are given back after.
HostArray referenceOf(std::uint64_t d, std::uint64_t n, const HostArray& q) {
    HostArray r;
    {
        auto R = makeSpline(d, n);
        r = itest::eval(R, {q});
    }
    platform::releaseCachedMemory();
    return r;
}

std::string raised(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

std::uint64_t maxRssBytes() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return static_cast<std::uint64_t>(u.ru_maxrss) * 1024;
}

bool sameBits(const HostArray& a, const HostArray& b) {
    return a.numberOfElements() == b.numberOfElements() &&
           std::memcmp(a.data<double>(), b.data<double>(), a.numberOfElements() * 8) == 0;
}

TEST(MemoryBudget, RefusesPastTheLimitAndGivesCachedBlocksBackFirst) {
    platform::releaseCachedMemory();
    const std::uint64_t base = platform::liveBytes();
    {
        platform::ScopedMemoryLimit limit(base + 60 * kMiB);
        // Past the limit: refused, nothing counted, the refusal names sizes and limit.
        EXPECT_EQ(platform::hostMalloc(70 * kMiB), nullptr);
        EXPECT_EQ(platform::liveBytes(), base);
        try {
            platform::throwAllocationFailure();
        } catch (const platform::MemoryLimitError& e) {
            EXPECT_EQ(e.requested(), 70 * kMiB);
            EXPECT_EQ(e.limit(), base + 60 * kMiB);
            EXPECT_NE(std::string(e.what()).find(std::to_string(base + 60 * kMiB)),
                      std::string::npos);
        }
        // A freed large block stays counted while cached, and is given back before a
        // request that only fits without it is refused.
        void* a = platform::hostMalloc(40 * kMiB);
        ASSERT_NE(a, nullptr);
        EXPECT_GE(platform::liveBytes(), base + 40 * kMiB);
        platform::hostFree(a);
        void* b = platform::hostMalloc(50 * kMiB);
        ASSERT_NE(b, nullptr);
        platform::hostFree(b);
        EXPECT_THROW(platform::checkMemoryFits(61 * kMiB), platform::MemoryLimitError);
        EXPECT_NO_THROW(platform::checkMemoryFits(59 * kMiB));
    }
    platform::releaseCachedMemory();
    EXPECT_EQ(platform::liveBytes(), base);
    EXPECT_EQ(platform::memoryLimit(), platform::defaultMemoryLimit());
    const std::uint64_t physical = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                   static_cast<std::uint64_t>(sysconf(_SC_PAGE_SIZE));
    EXPECT_LE(platform::defaultMemoryLimit(), physical / 4 * 3);
    EXPECT_GT(platform::defaultMemoryLimit(), 0u);
}

// Tables of 4^16 and 4^20 entries for a grid of a few hundred kilobytes: refused before any
// pass runs, with the way around it in the message.
TEST(MemoryBudget, HighDimensionalSplineTablesAreRefusedUpFront) {
    for (std::uint64_t d : {16u, 20u}) {
        auto F = makeSpline(d, 2);
        const std::uint64_t live = platform::liveBytes();
        const std::uint64_t rss = maxRssBytes();
        platform::resetPeakLiveBytes();
        const auto start = std::chrono::steady_clock::now();
        const std::string what = raised([&] { (void)itest::eval(F, {points(3, d, 1.0)}); });
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        EXPECT_EQ(what.rfind("Out of memory: ", 0), 0u) << what;
        EXPECT_NE(what.find("full grid of queries"), std::string::npos) << what;
        EXPECT_LT(platform::peakLiveBytes() - live, 200 * kMiB);
        EXPECT_LT(maxRssBytes() - rss, 200 * kMiB);
        EXPECT_EQ(platform::liveBytes(), live);
    }
}

// A 3-D spline whose table needs ~100 MB, under a 64 MB budget: scattered refused, gridded
// served; with the default restored the scattered query gives the unlimited bits.
TEST(MemoryBudget, RefusedEvaluationsLeaveTheObjectAndTheFigureAsTheyWere) {
    const HostArray q = points(1000, 3, 58.0);
    const HostArray reference = referenceOf(3, 59, q);
    auto F = makeSpline(3, 59);
    const std::uint64_t live = platform::liveBytes();
    {
        platform::ScopedMemoryLimit limit(live + 64 * kMiB);
        EXPECT_EQ(raised([&] { (void)itest::eval(F, {q}); }).rfind("Out of memory", 0), 0u);
        EXPECT_EQ(platform::liveBytes(), live);
        HostArray cell = HostArray::createCell(1, 3);
        for (std::uint64_t k = 0; k < 3; ++k)
            cell.setCell(k, itest::row({0.5, 10.25, 40.0, 57.5}));
        EXPECT_EQ(itest::eval(F, {cell}).numberOfElements(), 64u);
    }
    EXPECT_TRUE(sameBits(itest::eval(F, {q}), reference));

    // A gridded output of 90% of physical memory is refused by the default limit.
    const double physical =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
    const auto side = static_cast<std::uint64_t>(std::sqrt(0.9 * physical / 8.0));
    auto L = makeSpline(2, 4, "linear");
    HostArray cell = HostArray::createCell(1, 2);
    cell.setCell(0, itest::filled({1, side}, [](std::uint64_t) { return 1.0; }));
    cell.setCell(1, itest::filled({1, side}, [](std::uint64_t) { return 2.0; }));
    EXPECT_EQ(raised([&] { (void)itest::eval(L, {cell}); }).rfind("Out of memory", 0), 0u);

    // Creating, evaluating and destroying interpolants returns the figure to its start.
    platform::releaseCachedMemory();
    const std::uint64_t start = platform::liveBytes();
    for (int i = 0; i < 1000; ++i) {
        auto G = makeSpline(2, 8, i % 2 ? "spline" : "makima");
        (void)itest::eval(G, {points(4, 2, 7.0)});
    }
    platform::releaseCachedMemory();
    EXPECT_EQ(platform::liveBytes(), start);
}

// Threads building 2-D spline tables of ~17 MB each under a limit that fits about two: each
// evaluation succeeds with the reference bits or is refused; the figure never passes the
// limit and comes back to its start.
TEST(MemoryBudget, ConcurrentEvaluationsNeverPassTheLimit) {
    const HostArray q = points(3000, 2, 360.0);
    const HostArray reference = referenceOf(2, 362, q);
    const std::uint64_t start = platform::liveBytes();
    const std::uint64_t limit = start + 48 * kMiB;
    std::atomic<int> served{0}, refused{0}, wrong{0};
    {
        platform::ScopedMemoryLimit scoped(limit);
        platform::resetPeakLiveBytes();
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&] {
                for (int i = 0; i < 3; ++i) {
                    try {
                        auto F = makeSpline(2, 362);
                        if (sameBits(itest::eval(F, {q}), reference))
                            ++served;
                        else
                            ++wrong;
                    } catch (const std::exception&) {
                        ++refused;
                    }
                }
            });
        for (auto& th : threads)
            th.join();
        EXPECT_LE(platform::peakLiveBytes(), limit);
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(served + refused, 12);
    EXPECT_GT(served.load(), 0);
    platform::releaseCachedMemory();
    EXPECT_EQ(platform::liveBytes(), start);
}

} // namespace
