// interp1Fcn and interp2Fcn: argument counts before anything is built, one-call
// interpolation with fallbacks and errors, and no leak on any failure path (run under
// AddressSanitizer/LeakSanitizer, and with the host allocator failing at each allocation).
#include "host/HostTestSupport.hpp"
#include "support/Bits.hpp"

#include "mathinterp/methods/LinearND.hpp"

#include <platform/HostAllocator.hpp>

#include <limits>

using namespace hosttest;
using platform::HostArray;

namespace {

using Gateway = void (*)(int, HostArray*, int, const HostArray*);
const double kNaN = -std::numeric_limits<double>::quiet_NaN(); // the engine's NaN

struct Named {
    const char* name;
    Gateway fn;
};
const Named kGateways[] = {{"interp1Fcn", &interp1Fcn}, {"interp2Fcn", &interp2Fcn}};

std::vector<HostArray> args1D(const char* method, const char* extrap, HostArray query) {
    return {HostArray::rowVector({1, 2, 3}), HostArray::rowVector({4, 5, 7}),
            HostArray::charRow(method), HostArray::charRow(extrap), std::move(query)};
}

HostArray call(Gateway fn, std::vector<HostArray> in, int nlhs = 1) {
    HostArray out[2];
    fn(nlhs, out, static_cast<int>(in.size()), in.data());
    return out[0];
}

TEST(Interp12, ArgumentCountsAreCheckedBeforeAnythingIsBuilt) {
    for (const Named& g : kGateways) {
        SCOPED_TRACE(g.name);
        // Inputs that would fail validation: the count errors must come first.
        std::vector<HostArray> junk(6, HostArray::charRow("x"));
        HostArray out[2];
        const bool counted = platform::faultInjectionAvailable();
        if (counted) platform::failAllocationAfter(std::numeric_limits<std::uint64_t>::max());
        EXPECT_EQ(errorId([&] { g.fn(1, out, 4, junk.data()); }), platform::kTooFewInputsId);
        EXPECT_EQ(errorId([&] { g.fn(1, out, 0, nullptr); }), platform::kTooFewInputsId);
        EXPECT_EQ(errorId([&] { g.fn(1, out, 6, junk.data()); }), platform::kTooManyInputsId);
        EXPECT_EQ(errorId([&] { g.fn(2, out, 5, junk.data()); }), platform::kTooManyOutputsId);
        EXPECT_EQ(errorId([&] { g.fn(2, out, 4, junk.data()); }), platform::kTooManyOutputsId);
        if (counted) {
            EXPECT_EQ(platform::allocationCount(), 0u) << "something was built";
            platform::failAllocationAfter(0);
        }
        EXPECT_TRUE(out[0].isNull());
        // Five inputs get past the counts and into validation.
        EXPECT_EQ(errorId([&] { g.fn(1, out, 5, junk.data()); }), gi("NonFloatValuesErrId"));
        // No output requested still returns the result in the first slot.
        HostArray none[1];
        auto in = args1D("linear", "linear", HostArray::scalar(2.5));
        g.fn(0, none, 5, in.data());
        EXPECT_EQ(none[0].realAt(0), 6.0);
    }
}

TEST(Interp12, LinearWithNoneGivesTheEngineNaNOutside) {
    for (const Named& g : kGateways) {
        SCOPED_TRACE(g.name);
        HostArray out = call(
            g.fn, args1D("linear", "none", HostArray::fromDoubles({2, 2}, {0.5, 1.5, 2.5, 3.5})));
        EXPECT_EQ(out.dimensions(), (platform::Dims{2, 2}));
        EXPECT_SAME_BITS(out.realAt(0), kNaN);
        EXPECT_EQ(out.realAt(1), 4.5);
        EXPECT_EQ(out.realAt(2), 6.0);
        EXPECT_SAME_BITS(out.realAt(3), kNaN);
    }
}

TEST(Interp12, CubicOnTwoPointsWarnsOnceAndInterpolatesLinearly) {
    for (const Named& g : kGateways) {
        SCOPED_TRACE(g.name);
        WarningLog log;
        HostArray out = call(g.fn, {HostArray::rowVector({1, 2}), HostArray::rowVector({3, 5}),
                                    HostArray::charRow("cubic"), HostArray::charRow("cubic"),
                                    HostArray::rowVector({1.25, 1.5, 3})});
        EXPECT_EQ(log.ids(), std::vector<std::string>{gi("CubicNeedsThreeWarnId")});
        EXPECT_EQ(doubles(out), (std::vector<double>{3.5, 4, 7})); // linear, also outside
    }
}

TEST(Interp12, ConstructionAndEvaluationErrorsKeepTheirIdentifiers) {
    for (const Named& g : kGateways) {
        SCOPED_TRACE(g.name);
        EXPECT_EQ(errorId([&] {
                      call(g.fn, {HostArray::rowVector({1, 1, 2}), HostArray::rowVector({4, 5, 7}),
                                  HostArray::charRow("linear"), HostArray::charRow("linear"),
                                  HostArray::scalar(1)});
                  }),
                  gi("NonUniqueCompVecsPtsErrId"));
        EXPECT_EQ(errorId([&] { call(g.fn, args1D("spiral", "linear", HostArray::scalar(1))); }),
                  gi("BadInterpTypeErrId"));
        EXPECT_EQ(errorId([&] { call(g.fn, args1D("linear", "linear", HostArray::charRow("q"))); }),
                  gi("NonFloatInpPtsErrId"));
        HostArray sparse = HostArray::rowVector({1.5});
        sparse.setSparse(true);
        EXPECT_EQ(errorId([&] { call(g.fn, args1D("linear", "linear", sparse)); }),
                  gi("SparseDataPtErrId"));
    }
}

TEST(Interp12, TwoDimensionalGridCell) {
    if (!mathinterp::LinearND<double, double>::available)
        GTEST_SKIP() << "the N-D linear method is not built yet";
    // v(i, j) = i + 10 j on x1 = 0..2, x2 = 0..1; the bilinear interpolant is exact.
    HostArray v = HostArray::fromDoubles({3, 2}, {0, 1, 2, 10, 11, 12});
    HostArray cell =
        HostArray::cellOf({HostArray::rowVector({0, 1, 2}), HostArray::rowVector({0, 1})});
    HostArray pts = HostArray::fromDoubles({2, 2}, {0.5, 2, 0.5, 1}); // (0.5,0.5), (2,1)
    for (const Named& g : kGateways) {
        SCOPED_TRACE(g.name);
        HostArray out =
            call(g.fn, {cell, v, HostArray::charRow("linear"), HostArray::charRow("linear"), pts});
        EXPECT_EQ(doubles(out), (std::vector<double>{5.5, 12}));
    }
}

// Every allocation of a call in turn fails: each attempt ends in the out-of-memory error
// (or succeeds once nothing is left to fail) and leaks nothing (LeakSanitizer checks at
// exit; the counts of the shared arrays are checked here).
TEST(Interp12, EveryFailedAllocationIsReportedAndLeaksNothing) {
    if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "no fault injection in this build";
    HostArray x = HostArray::rowVector({1, 2, 3, 4, 5});
    HostArray v = HostArray::rowVector({1, 4, 9, 16, 25});
    std::vector<double> qv(3000);
    for (std::size_t i = 0; i < qv.size(); ++i)
        qv[i] = 0.002 * static_cast<double>(i);
    HostArray q = HostArray::columnVector(qv);
    for (const char* method : {"linear", "spline", "pchip", "makima", "cubic"}) {
        SCOPED_TRACE(method);
        bool succeeded = false;
        int outOfMemory = 0;
        std::string last;
        for (std::uint64_t k = 1; k < 10000 && !succeeded; ++k) {
            std::vector<HostArray> in{x, v, HostArray::charRow(method),
                                      HostArray::charRow("nearest"), q};
            platform::failAllocationAfter(k);
            const std::string id = errorId([&] { call(&interp1Fcn, in); });
            platform::failAllocationAfter(0);
            last = id;
            if (id == "none")
                succeeded = true;
            else if (id.rfind("text:", 0) == 0)
                break; // method not built in this build
            else if (id == platform::kOutOfMemoryId)
                ++outOfMemory;
            else
                ADD_FAILURE() << id << " at allocation " << k;
        }
        // Built methods allocate (grid cell, result, caches): some attempts must have failed.
        if (succeeded)
            EXPECT_GT(outOfMemory, 0);
        else
            EXPECT_EQ(last.rfind("text:", 0), 0u) << last;
        EXPECT_EQ(x.useCount(), 1);
        EXPECT_EQ(v.useCount(), 1);
        EXPECT_EQ(q.useCount(), 1);
    }
}

TEST(Interp12, FailuresInsideTheGatewayReleaseTheTemporary) {
    HostArray x = HostArray::rowVector({1, 2, 3});
    HostArray v = HostArray::rowVector({4, 5, 7});
    HostArray bad = HostArray::fromComplex({1, 1}, {{1, 2}});
    // Construction succeeds and stores x and v, evaluation then fails: the temporary's
    // references are gone afterwards.
    EXPECT_EQ(errorId([&] {
                  call(&interp1Fcn,
                       {x, v, HostArray::charRow("linear"), HostArray::charRow("linear"), bad});
              }),
              gi("ComplexDataPointErrId"));
    EXPECT_EQ(x.useCount(), 1);
    EXPECT_EQ(v.useCount(), 1);
    // Construction fails after storing the values.
    HostArray y = HostArray::rowVector({3, 2, 1});
    EXPECT_EQ(errorId([&] {
                  call(&interp2Fcn, {y, v, HostArray::charRow("linear"),
                                     HostArray::charRow("linear"), HostArray::scalar(1)});
              }),
              gi("NonMonotonicCompVecsErrId"));
    EXPECT_EQ(y.useCount(), 1);
    EXPECT_EQ(v.useCount(), 1);
}

} // namespace
