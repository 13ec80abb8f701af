// Concurrency stress, one interpolant per method (1-D and 2-D): eight host threads make their
// first evaluation at the same moment (std::barrier) on copies that share one evaluator whose
// lazy tables are not built yet, and on the original, while three more threads copy the
// original and set Values on their copies. Every result equals the single-threaded result
// bit for bit, and the original never sees a copy's values. Run under TSan by the CI's
// concurrency job. Methods missing from the build are skipped.
#include "HostTestSupport.hpp"

#include "mathinterp/methods/Cubic1D.hpp"
#include "mathinterp/methods/CubicND.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/Makima1D.hpp"
#include "mathinterp/methods/MakimaND.hpp"
#include "mathinterp/methods/NearestND.hpp"
#include "mathinterp/methods/Pchip1D.hpp"
#include "mathinterp/methods/Spline1D.hpp"
#include "mathinterp/methods/SplineND.hpp"
#include "mathinterp/methods/Step1D.hpp"

#include <oneapi/tbb/global_control.h>

#include <atomic>
#include <barrier>
#include <cmath>
#include <complex>
#include <cstring>
#include <thread>

using namespace hosttest;
using platform::HostArray;

namespace {

bool built(const std::string& w, bool nd) {
    using namespace mathinterp;
    if (w == "linear")
        return nd ? LinearND<double, double>::available : Linear1D<double, double>::available;
    if (w == "nearest")
        return nd ? NearestND<double, double>::available : Nearest1D<double, double>::available;
    if (w == "next") return !nd && Next1D<double, double>::available;
    if (w == "previous") return !nd && Previous1D<double, double>::available;
    if (w == "pchip") return !nd && Pchip1D<double, double>::available;
    if (w == "spline")
        return nd ? SplineND<double, double>::available : Spline1D<double, double>::available;
    if (w == "cubic")
        return nd ? CubicND<double, double>::available : Cubic1D<double, double>::available;
    if (w == "makima")
        return nd ? MakimaND<double, double>::available : Makima1D<double, double>::available;
    return false;
}

bool sameBits(const HostArray& a, const HostArray& b) {
    return !a.isNull() && !b.isNull() && a.classId() == b.classId() &&
           a.dimensions() == b.dimensions() && a.isComplex() == b.isComplex() &&
           std::memcmp(a.rawData(), b.rawData(), a.numberOfElements() * a.elementBytes()) == 0;
}

struct Case {
    std::vector<HostArray> args; // grid cell, values, method
    HostArray newValues;         // same size and class: a copy's setter rebinds
    HostArray queries;
};

// 1-D: 25 uniform points (cubic stays cubic), two value sets; 3000 queries (parallel loop).
Case case1D(const char* method) {
    std::vector<double> x(25), v(50), w(50), q(3000);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] = 0.4 * static_cast<double>(i);
    for (std::size_t i = 0; i < v.size(); ++i) {
        v[i] = std::sin(0.37 * static_cast<double>(i));
        w[i] = std::cos(0.11 * static_cast<double>(i)) + 2.0;
    }
    for (std::size_t i = 0; i < q.size(); ++i)
        q[i] = -1.0 + 0.0037 * static_cast<double>(i);
    return {{HostArray::cellOf({HostArray::rowVector(x)}), HostArray::fromDoubles({25, 2}, v),
             HostArray::charRow(method)},
            HostArray::fromDoubles({25, 2}, w),
            HostArray::columnVector(q)};
}

// 2-D: a 9 x 7 grid of complex values; 2500 scattered points as a 2500 x 2 matrix.
Case case2D(const char* method) {
    std::vector<double> x(9), y(7), q(5000);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] = static_cast<double>(i);
    for (std::size_t i = 0; i < y.size(); ++i)
        y[i] = 0.5 * static_cast<double>(i);
    std::vector<std::complex<double>> v(63), w(63);
    for (std::size_t i = 0; i < v.size(); ++i) {
        const double t = static_cast<double>(i);
        v[i] = {std::sin(0.3 * t), std::cos(0.2 * t)};
        w[i] = {0.5 * t, -0.25 * t};
    }
    for (std::size_t i = 0; i < 2500; ++i) {
        q[i] = -1.0 + 0.0041 * static_cast<double>(i);
        q[2500 + i] = -0.5 + 0.0017 * static_cast<double>(i);
    }
    return {{HostArray::cellOf({HostArray::rowVector(x), HostArray::rowVector(y)}),
             HostArray::fromComplex({9, 7}, v), HostArray::charRow(method)},
            HostArray::fromComplex({9, 7}, w),
            HostArray::fromDoubles({2500, 2}, q)};
}

HostArray build(const std::vector<HostArray>& args) {
    return ClassSystem::construct("griddedInterpolant", static_cast<int>(args.size()), args.data());
}

// The result of a fresh object evaluated on one thread.
HostArray singleThreaded(std::vector<HostArray> args, const HostArray& values, const HostArray& q) {
    tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
    args[1] = values;
    return paren(build(args), {q});
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
        const HostArray F = build(c.args);
        // Copies made before any evaluation share the evaluator with its tables still empty.
        std::vector<HostArray> handles{F};
        for (int t = 1; t < kEvaluators; ++t)
            handles.push_back(ClassSystem::copyObject(F));
        std::barrier start(kEvaluators + kCopiers);
        std::atomic<int> mismatches{0}, errors{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kEvaluators; ++t)
            threads.emplace_back([&, t] {
                start.arrive_and_wait();
                for (int k = 0; k < 3; ++k) {
                    const bool serial = (t + k) % 2 == 0;
                    const std::string id = errorId([&] {
                        if (!sameBits(paren(handles[t], {serial ? small : c.queries}),
                                      serial ? referenceSmall : reference))
                            ++mismatches;
                    });
                    if (id != "none") ++errors;
                }
            });
        for (int t = 0; t < kCopiers; ++t)
            threads.emplace_back([&] {
                start.arrive_and_wait();
                for (int k = 0; k < 3; ++k) {
                    const std::string id = errorId([&] {
                        const HostArray G = ClassSystem::copyObject(F);
                        ClassSystem::setProperty(G, "Values", c.newValues);
                        if (!sameBits(paren(G, {c.queries}), referenceNew)) ++mismatches;
                        ClassSystem::setProperty(G, "Values", c.args[1]);
                        if (!sameBits(paren(G, {c.queries}), reference)) ++mismatches;
                    });
                    if (id != "none") ++errors;
                }
            });
        for (auto& th : threads)
            th.join();
        EXPECT_EQ(mismatches.load(), 0) << "round " << round;
        EXPECT_EQ(errors.load(), 0) << "round " << round;
        EXPECT_TRUE(sameBits(paren(F, {c.queries}), reference));
    }
}

class ConcurrencyStress : public RegisteredModule,
                          public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        RegisteredModule::SetUp();
        previous_ = platform::setWarningSink([](auto&, auto&) {});
    }
    void TearDown() override { platform::setWarningSink(previous_); }

private:
    platform::WarningSink previous_;
};

} // namespace

TEST_P(ConcurrencyStress, OneDimension) {
    if (!built(GetParam(), false)) GTEST_SKIP() << GetParam() << " is not built";
    stress(case1D(GetParam()));
}

TEST_P(ConcurrencyStress, TwoDimensions) {
    if (!built(GetParam(), true)) GTEST_SKIP() << GetParam() << " is not built for N-D grids";
    stress(case2D(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(EveryMethod, ConcurrencyStress,
                         ::testing::Values("linear", "nearest", "next", "previous", "pchip",
                                           "spline", "cubic", "makima"),
                         [](const auto& p) { return std::string(p.param); });
