// interp1Fcn and interp2Fcn: argument counts before anything is built, one-call
// interpolation (grid forms, words, fallbacks with their warnings) and the identifiers of its
// errors, and the temporary interpolant released when a call fails inside the gateway (the
// allocation-failure sweep over both gateways is host_test_alloc_failure's).
#include "host/HostTestSupport.hpp"
#include "support/Bits.hpp"

#include "mathinterp/methods/LinearND.hpp"

#include <platform/HostAllocator.hpp>

#include <limits>

using namespace hosttest;
using platform::HostArray;

namespace {

using Gateway = void (*)(int, HostArray*, int, const HostArray*);
const std::pair<const char*, Gateway> kGateways[] = {{"interp1Fcn", &interp1Fcn},
                                                     {"interp2Fcn", &interp2Fcn}};

HostArray call(Gateway fn, std::vector<HostArray> in, int nlhs = 1) {
    HostArray out[2];
    fn(nlhs, out, static_cast<int>(in.size()), in.data());
    return out[0];
}

TEST(Interp12, ArgumentCountsAreCheckedBeforeAnythingIsBuilt) {
    for (const auto& [name, fn] : kGateways) {
        SCOPED_TRACE(name);
        // Inputs that would fail validation: the count errors must come first.
        std::vector<HostArray> junk(6, HostArray::charRow("x"));
        HostArray out[2];
        const bool counted = platform::faultInjectionAvailable();
        if (counted) platform::failAllocationAfter(std::numeric_limits<std::uint64_t>::max());
        EXPECT_EQ(errorId([&] { fn(1, out, 4, junk.data()); }), platform::kTooFewInputsId);
        EXPECT_EQ(errorId([&] { fn(1, out, 0, nullptr); }), platform::kTooFewInputsId);
        EXPECT_EQ(errorId([&] { fn(1, out, 6, junk.data()); }), platform::kTooManyInputsId);
        EXPECT_EQ(errorId([&] { fn(2, out, 5, junk.data()); }), platform::kTooManyOutputsId);
        EXPECT_EQ(errorId([&] { fn(2, out, 4, junk.data()); }), platform::kTooManyOutputsId);
        if (counted) {
            EXPECT_EQ(platform::allocationCount(), 0u) << "something was built";
            platform::failAllocationAfter(0);
        }
        EXPECT_TRUE(out[0].isNull());
        // Five inputs get past the counts and into validation.
        EXPECT_EQ(errorId([&] { fn(1, out, 5, junk.data()); }), gi("NonFloatValuesErrId"));
    }
}

// (grid, values, method, extrapolation, queries): the result, or the error's identifier,
// and the warnings on the way, the same through both gateways; no output requested still
// returns the result in the first slot.
TEST(Interp12, OneCallInterpolation) {
    const bool nd = mathinterp::LinearND<double, double>::available;
    const double nan = -std::numeric_limits<double>::quiet_NaN(); // the engine's NaN
    const HostArray x = HostArray::rowVector({1, 2, 3}), v = HostArray::rowVector({4, 5, 7});
    HostArray sparse = HostArray::rowVector({1.5});
    sparse.setSparse(true);
    const HostArray cell2 =
        HostArray::cellOf({HostArray::rowVector({0, 1, 2}), HostArray::rowVector({0, 1})});
    const HostArray v2 = HostArray::fromDoubles({3, 2}, {0, 1, 2, 10, 11, 12});
    const struct {
        std::vector<HostArray> in;
        std::string error;
        std::vector<double> result;
        std::vector<std::string> warnings;
    } cases[] = {
        {{x, v, HostArray::charRow("linear"), HostArray::charRow("none"),
          HostArray::fromDoubles({2, 2}, {0.5, 1.5, 2.5, 3.5})},
         "none",
         {nan, 4.5, 6.0, nan},
         {}},
        {{HostArray::rowVector({1, 2}), HostArray::rowVector({3, 5}), HostArray::charRow("cubic"),
          HostArray::charRow("cubic"), HostArray::rowVector({1.25, 1.5, 3})},
         "none",
         {3.5, 4, 7},
         {gi("CubicNeedsThreeWarnId")}},
        {{cell2, v2, HostArray::charRow("linear"), HostArray::charRow("linear"),
          HostArray::fromDoubles({2, 2}, {0.5, 2, 0.5, 1})},
         nd ? "none" : "MethodNotBuilt",
         {5.5, 12},
         {}},
        {{HostArray::rowVector({1, 1, 2}), v, HostArray::charRow("linear"),
          HostArray::charRow("linear"), HostArray::scalar(1)},
         gi("NonUniqueCompVecsPtsErrId"),
         {},
         {}},
        {{x, v, HostArray::charRow("spiral"), HostArray::charRow("linear"), HostArray::scalar(1)},
         gi("BadInterpTypeErrId"),
         {},
         {}},
        {{x, v, HostArray::charRow("linear"), HostArray::charRow("linear"),
          HostArray::charRow("q")},
         gi("NonFloatInpPtsErrId"),
         {},
         {}},
        {{x, v, HostArray::charRow("linear"), HostArray::charRow("linear"), sparse},
         gi("SparseDataPtErrId"),
         {},
         {}},
    };
    for (const auto& [name, fn] : kGateways)
        for (std::size_t i = 0; i < std::size(cases); ++i) {
            const auto& c = cases[i];
            if (c.error == "MethodNotBuilt") continue;
            WarningLog log;
            HostArray none[1];
            EXPECT_EQ(errorId([&] { fn(0, none, 5, c.in.data()); }), c.error) << name << i;
            if (c.error == "none") {
                EXPECT_EQ(none[0].numberOfElements(), c.result.size()) << name << i;
                for (std::size_t k = 0; k < c.result.size(); ++k)
                    EXPECT_SAME_BITS(none[0].realAt(k), c.result[k]) << name << i;
            }
            EXPECT_EQ(log.ids(), c.warnings) << name << i;
        }
}

// An evaluation that fails after the construction stored x and v, and a construction that
// fails after storing the values: the temporary's references are gone afterwards.
TEST(Interp12, FailuresInsideTheGatewayReleaseTheTemporary) {
    HostArray x = HostArray::rowVector({1, 2, 3}), v = HostArray::rowVector({4, 5, 7});
    HostArray y = HostArray::rowVector({3, 2, 1});
    const HostArray lin = HostArray::charRow("linear");
    EXPECT_EQ(errorId([&] {
                  call(&interp1Fcn, {x, v, lin, lin, HostArray::fromComplex({1, 1}, {{1, 2}})});
              }),
              gi("ComplexDataPointErrId"));
    EXPECT_EQ(errorId([&] {
                  call(&interp2Fcn, {y, v, lin, lin, HostArray::scalar(1)});
              }),
              gi("NonMonotonicCompVecsErrId"));
    EXPECT_EQ(x.useCount(), 1);
    EXPECT_EQ(v.useCount(), 1);
    EXPECT_EQ(y.useCount(), 1);
}

} // namespace
