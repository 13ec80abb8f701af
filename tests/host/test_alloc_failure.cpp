// Allocation failure: the host allocator fails its k-th allocation, for k = 1, 2, ... until
// the call succeeds, over construction (every argument form, real and complex values, value
// sets, 1-D and N-D), the first evaluation (every lazily built table), each property set,
// copy, save and load, and each gateway. Every failed run must end in the host's
// out-of-memory error, leave the caller's arrays untouched (and unshared) and the object
// evaluating exactly as before the failed call; leaks are the ASan job's (LSan) to find.
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

#include <platform/HostAllocator.hpp>

#include <cmath>
#include <complex>
#include <cstring>
#include <functional>

using namespace hosttest;
using platform::ClassId;
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

const char* const kMethods[] = {"linear", "nearest", "next",  "previous",
                                "pchip",  "spline",  "cubic", "makima"};

bool sameBits(const HostArray& a, const HostArray& b) {
    return a.classId() == b.classId() && a.dimensions() == b.dimensions() &&
           a.isComplex() == b.isComplex() &&
           std::memcmp(a.rawData(), b.rawData(), a.numberOfElements() * a.elementBytes()) == 0;
}

// Runs `call` with the k-th allocation failing, for k = 1, 2, ... until it succeeds. After
// each failure `afterFailure` checks the state. Returns the number of allocations the call
// made (the k at which it first succeeded, minus one).
std::uint64_t sweep(const std::function<void()>& prepare, const std::function<void()>& call,
                    const std::function<void()>& afterFailure) {
    for (std::uint64_t k = 1; k < 100000; ++k) {
        prepare();
        platform::failAllocationAfter(k);
        const std::string id = errorId(call);
        platform::failAllocationAfter(0);
        if (id == "none") return k - 1;
        EXPECT_EQ(id, platform::kOutOfMemoryId) << "allocation " << k;
        if (id != platform::kOutOfMemoryId) return k;
        afterFailure();
        if (::testing::Test::HasFatalFailure()) return k;
    }
    ADD_FAILURE() << "the call never succeeded";
    return 0;
}

// Test data: 1-D on a uniform grid (cubic stays cubic), and a 2-D grid; real or complex
// values, with value sets when asked.
HostArray grid1D() {
    std::vector<double> x(12);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] = 0.5 * static_cast<double>(i);
    return HostArray::rowVector(x);
}

HostArray values(platform::Dims dims, bool complex) {
    std::uint64_t n = 1;
    for (auto e : dims)
        n *= e;
    if (complex) {
        std::vector<std::complex<double>> c(n);
        for (std::uint64_t i = 0; i < n; ++i)
            c[i] = {std::sin(0.7 * static_cast<double>(i)), std::cos(0.3 * static_cast<double>(i))};
        return HostArray::fromComplex(dims, c);
    }
    std::vector<double> v(n);
    for (std::uint64_t i = 0; i < n; ++i)
        v[i] = std::sin(0.7 * static_cast<double>(i)) + 0.01 * static_cast<double>(i * i % 7);
    return HostArray::fromDoubles(dims, v);
}

// Queries over and beyond the grid, 3000 of them so that the parallel loop runs too.
HostArray queries1D() {
    std::vector<double> q(3000);
    for (std::size_t i = 0; i < q.size(); ++i)
        q[i] = -1.0 + 0.0025 * static_cast<double>(i);
    return HostArray::columnVector(q);
}

struct Scene {
    std::string name;
    std::vector<HostArray> args;
    std::vector<HostArray> queries;
};

std::vector<Scene> setups() {
    std::vector<Scene> out;
    const HostArray x = grid1D();
    const HostArray y = HostArray::rowVector({0, 1, 3, 4, 7});
    for (const char* m : kMethods) {
        if (built(m, false)) {
            for (bool complex : {false, true})
                out.push_back(
                    {std::string("1-D ") + m + (complex ? " complex" : ""),
                     {HostArray::cellOf({x}), values({1, 12}, complex), HostArray::charRow(m)},
                     {queries1D()}});
            // Value sets, full-grid form, "none" outside.
            out.push_back(
                {std::string("1-D sets ") + m,
                 {x, values({12, 3}, false), HostArray::charRow(m), HostArray::charRow("none")},
                 {queries1D()}});
        }
        if (built(m, true)) {
            HostArray qx = HostArray::rowVector({-0.5, 0.25, 1.0, 2.5, 4.0, 5.75, 6.5});
            HostArray qy = HostArray::rowVector({-1, 0, 2, 3.5, 7, 8});
            out.push_back(
                {std::string("2-D gridded ") + m,
                 {HostArray::cellOf({x, y}), values({12, 5}, false), HostArray::charRow(m)},
                 {HostArray::cellOf({qx, qy})}});
            std::vector<double> pts;
            for (int i = 0; i < 2 * 2100; ++i)
                pts.push_back(i < 2100 ? -0.5 + 0.003 * i : -1.0 + 0.004 * (i - 2100));
            out.push_back({std::string("2-D scattered complex ") + m,
                           {HostArray::cellOf({x, y}), values({12, 5, 2}, true),
                            HostArray::charRow(m), HostArray::charRow("nearest")},
                           {HostArray::fromDoubles({2100, 2}, pts)}});
        }
    }
    // Values only: the default grid is built.
    out.push_back(
        {"default grid",
         {values({4, 6}, false)},
         {HostArray::cellOf({HostArray::rowVector({1, 2.5}), HostArray::rowVector({0, 3, 6})})}});
    return out;
}

// Handles per argument, to check that a failed call keeps no shared copy of any.
std::vector<long> useCounts(const std::vector<HostArray>& arrays) {
    std::vector<long> n;
    for (const HostArray& a : arrays)
        n.push_back(a.useCount());
    return n;
}

class AllocationFailure : public RegisteredModule {
protected:
    void SetUp() override {
        if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "fault injection is off";
        RegisteredModule::SetUp();
        previous_ = platform::setWarningSink([](auto&, auto&) {});
    }
    void TearDown() override {
        platform::failAllocationAfter(0);
        platform::setWarningSink(previous_);
    }

private:
    platform::WarningSink previous_;
};

} // namespace

TEST_F(AllocationFailure, ConstructionEndsInOutOfMemoryAndHoldsNothing) {
    for (Scene& s : setups()) {
        SCOPED_TRACE(s.name);
        std::vector<HostArray> snapshot;
        for (const HostArray& a : s.args)
            snapshot.push_back(a.deepCopy());
        HostArray F;
        const std::vector<long> counts = useCounts(s.args);
        const std::uint64_t n =
            sweep([&] { F.release(); },
                  [&] {
                      F = ClassSystem::construct("griddedInterpolant",
                                                 static_cast<int>(s.args.size()), s.args.data());
                  },
                  [&] {
                      EXPECT_TRUE(F.isNull());
                      EXPECT_EQ(useCounts(s.args), counts);
                  });
        EXPECT_GT(n, 0u);
        F.release();
        EXPECT_EQ(useCounts(s.args), counts);
        for (std::size_t k = 0; k < s.args.size(); ++k)
            if (s.args[k].isNumeric()) {
                EXPECT_TRUE(sameBits(s.args[k], snapshot[k]));
            }
    }
}

TEST_F(AllocationFailure, FirstEvaluationFailsCleanlyAndTheNextOneIsExact) {
    for (Scene& s : setups()) {
        SCOPED_TRACE(s.name);
        const HostArray reference =
            paren(ClassSystem::construct("griddedInterpolant", static_cast<int>(s.args.size()),
                                         s.args.data()),
                  {s.queries[0]});
        HostArray F;
        HostArray result;
        const std::uint64_t n = sweep(
            [&] {
                // A fresh object each time: every lazily built table is built in the call.
                F = ClassSystem::construct("griddedInterpolant", static_cast<int>(s.args.size()),
                                           s.args.data());
            },
            [&] { result = paren(F, {s.queries[0]}); },
            [&] { EXPECT_TRUE(sameBits(paren(F, {s.queries[0]}), reference)); });
        EXPECT_GT(n, 0u);
        EXPECT_TRUE(sameBits(result, reference));
    }
}

TEST_F(AllocationFailure, PropertySetsFailWithoutChangingTheObject) {
    for (Scene& s : setups()) {
        SCOPED_TRACE(s.name);
        const HostArray& v = s.args[s.args.size() > 1 ? 1 : 0];
        HostArray newValues = v.deepCopy();
        if (newValues.classId() == ClassId::Double)
            for (std::uint64_t i = 0; i < newValues.numberOfElements(); ++i)
                newValues.data<double>()[i * (newValues.isComplex() ? 2 : 1)] += 1.0;
        struct Change {
            const char* property;
            HostArray value;
        };
        const Change changes[] = {
            {"Values", newValues},              // same size: rebinds
            {"Values", values({13, 2}, false)}, // new size: rebuilds
            {"Method", HostArray::charRow("nearest")},
            {"ExtrapolationMethod", HostArray::charRow("none")},
        };
        for (const Change& c : changes) {
            SCOPED_TRACE(c.property);
            HostArray F;
            HostArray before;
            sweep(
                [&] {
                    F = ClassSystem::construct("griddedInterpolant",
                                               static_cast<int>(s.args.size()), s.args.data());
                    before = paren(F, {s.queries[0]}); // evaluator and tables built
                },
                [&] { ClassSystem::setProperty(F, c.property, c.value); },
                [&] {
                    const std::string id =
                        errorId([&] { EXPECT_TRUE(sameBits(paren(F, {s.queries[0]}), before)); });
                    EXPECT_EQ(id, "none");
                });
        }
    }
}

TEST_F(AllocationFailure, CopySaveAndLoadLeaveTheSourceAsItWas) {
    for (Scene& s : setups()) {
        SCOPED_TRACE(s.name);
        const HostArray F = ClassSystem::construct("griddedInterpolant",
                                                   static_cast<int>(s.args.size()), s.args.data());
        const HostArray before = paren(F, {s.queries[0]});
        const auto unchanged = [&] { EXPECT_TRUE(sameBits(paren(F, {s.queries[0]}), before)); };
        HostArray G;
        sweep([] {}, [&] { G = ClassSystem::copyObject(F); }, unchanged);
        EXPECT_TRUE(sameBits(paren(G, {s.queries[0]}), before));
        HostArray record;
        sweep([] {}, [&] { record = ClassSystem::saveObject(F); }, unchanged);
        HostArray H;
        sweep([] {}, [&] { H = ClassSystem::loadObject("griddedInterpolant", record); }, unchanged);
        HostArray loaded;
        sweep([] {}, [&] { loaded = paren(H, {s.queries[0]}); }, unchanged);
        EXPECT_TRUE(sameBits(loaded, before));
    }
}

TEST_F(AllocationFailure, GatewaysEndInOutOfMemoryAndKeepTheirInputs) {
    for (Scene& s : setups()) {
        if (s.args.size() < 3 || s.queries.size() != 1) continue;
        SCOPED_TRACE(s.name);
        // The extrapolation word is the method itself unless one is given.
        std::vector<HostArray> in{s.args[0], s.args[1], s.args[2], s.args.back(), s.queries[0]};
        HostArray expected[1];
        interp1Fcn(1, expected, 5, in.data());
        const std::vector<long> counts = useCounts(in);
        for (auto fn : {&interp1Fcn, &interp2Fcn}) {
            HostArray out[1];
            sweep([&] { out[0].release(); }, [&] { fn(1, out, 5, in.data()); },
                  [&] {
                      EXPECT_TRUE(out[0].isNull());
                      EXPECT_EQ(useCounts(in), counts);
                  });
            EXPECT_TRUE(sameBits(out[0], expected[0]));
        }
    }
}

TEST_F(AllocationFailure, StructGridGatewayEndsInOutOfMemory) {
    // A 3 x 2 grid of structs with a real and a complex field; boundary clamping on a copy.
    const HostArray grid =
        HostArray::cellOf({HostArray::rowVector({0, 1, 2}), HostArray::rowVector({0, 1})});
    HostArray st = HostArray::createStruct({3, 2}, {"a", "b"});
    for (std::uint64_t e = 0; e < 6; ++e) {
        const double v = static_cast<double>(e);
        st.setField(e, 0, HostArray::rowVector({v, 2.0 * v}));
        st.setField(e, 1, HostArray::fromComplex({1, 1}, {{0.5 * v, -v}}));
    }
    const HostArray q =
        HostArray::cellOf({HostArray::rowVector({-1, 0.5, 3}), HostArray::rowVector({0.25, 2})});
    for (const char* extrap : {"linear", "nearest", "boundary"}) {
        SCOPED_TRACE(extrap);
        std::vector<HostArray> in{grid, HostArray::cellOf({st}), q, HostArray::charRow("linear"),
                                  HostArray::charRow(extrap)};
        const HostArray qBefore = q.deepCopy();
        HostArray out[1];
        const std::uint64_t n =
            sweep([&] { out[0].release(); }, [&] { gridStructsInterpFcn(1, out, 5, in.data()); },
                  [&] { EXPECT_TRUE(out[0].isNull()); });
        EXPECT_GT(n, 0u);
        ASSERT_TRUE(out[0].isCell());
        for (std::uint64_t k = 0; k < 2; ++k)
            EXPECT_TRUE(sameBits(q.getCell(k), qBefore.getCell(k)));
    }
}
