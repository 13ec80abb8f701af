// Allocation failure: the host allocator fails its k-th allocation, for k = 1, 2, ... until
// the call succeeds, over construction (every argument form, real and complex values, value
// sets, 1-D and N-D), the first evaluation (every lazily built table), each property set,
// copy, save and load, and each gateway. Every failed run must end in the host's
// out-of-memory error, leave the caller's arrays untouched (and unshared) and the object
// evaluating exactly as before the failed call; leaks are the ASan job's (LSan) to find.
#include "HostTestSupport.hpp"

#include <platform/HostAllocator.hpp>

#include <functional>

using namespace hosttest;
using platform::ClassId;

namespace {

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

struct Scene {
    std::string name;
    std::vector<HostArray> args;
    HostArray queries;
};

// 1-D on a uniform grid (cubic stays cubic) with 3000 queries over and beyond it (so that
// the parallel loop runs too), real, complex and value sets; 2-D gridded and scattered; and
// values only (the default grid is built).
std::vector<Scene> setups() {
    std::vector<Scene> out;
    const HostArray x = HostArray::rowVector(ramp(12, 0, 0.5));
    const HostArray y = HostArray::rowVector({0, 1, 3, 4, 7});
    const HostArray q1 = HostArray::columnVector(ramp(3000, -1, 0.0025));
    std::vector<double> pts = ramp(2100, -0.5, 0.003), py = ramp(2100, -1, 0.004);
    pts.insert(pts.end(), py.begin(), py.end());
    for (const std::string m : kMethods) {
        const HostArray word = HostArray::charRow(m.c_str());
        for (bool complex : {false, true})
            out.push_back({"1-D " + m + (complex ? " complex" : ""),
                           {HostArray::cellOf({x}), waves({1, 12}, complex), word},
                           q1});
        out.push_back(
            {"1-D sets " + m, {x, waves({12, 3}, false), word, HostArray::charRow("none")}, q1});
        if (hasNdForm(m)) {
            out.push_back(
                {"2-D gridded " + m,
                 {HostArray::cellOf({x, y}), waves({12, 5}, false), word},
                 HostArray::cellOf({HostArray::rowVector({-0.5, 0.25, 1.0, 2.5, 4.0, 5.75, 6.5}),
                                    HostArray::rowVector({-1, 0, 2, 3.5, 7, 8})})});
            out.push_back({"2-D scattered complex " + m,
                           {HostArray::cellOf({x, y}), waves({12, 5, 2}, true), word,
                            HostArray::charRow("nearest")},
                           HostArray::fromDoubles({2100, 2}, pts)});
        }
    }
    out.push_back(
        {"default grid",
         {waves({4, 6}, false)},
         HostArray::cellOf({HostArray::rowVector({1, 2.5}), HostArray::rowVector({0, 3, 6})})});
    return out;
}

// Handles per argument, to check that a failed call keeps no shared copy of any.
std::vector<long> useCounts(const std::vector<HostArray>& arrays) {
    std::vector<long> n;
    for (const HostArray& a : arrays)
        n.push_back(a.useCount());
    return n;
}

class AllocationFailure : public QuietModule {
protected:
    void SetUp() override {
        if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "fault injection is off";
        QuietModule::SetUp();
    }
    void TearDown() override { platform::failAllocationAfter(0); }
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
        const std::uint64_t n = sweep([&] { F.release(); }, [&] { F = construct(s.args); },
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
        const HostArray reference = paren(construct(s.args), {s.queries});
        HostArray F, result;
        // A fresh object each time: every lazily built table is built in the call.
        const std::uint64_t n =
            sweep([&] { F = construct(s.args); }, [&] { result = paren(F, {s.queries}); },
                  [&] { EXPECT_TRUE(sameBits(paren(F, {s.queries}), reference)); });
        EXPECT_GT(n, 0u);
        EXPECT_TRUE(sameBits(result, reference));
    }
}

TEST_F(AllocationFailure, PropertySetsFailWithoutChangingTheObject) {
    for (Scene& s : setups()) {
        SCOPED_TRACE(s.name);
        const HostArray& v = s.args[s.args.size() > 1 ? 1 : 0];
        const std::pair<const char*, HostArray> changes[] = {
            {"Values", waves(v.dimensions(), v.isComplex(), 1.0)}, // same size: rebinds
            {"Values", waves({13, 2}, false)},                     // new size: rebuilds
            {"Method", HostArray::charRow("nearest")},
            {"ExtrapolationMethod", HostArray::charRow("none")},
        };
        for (const auto& [property, value] : changes) {
            SCOPED_TRACE(property);
            HostArray F, before;
            sweep(
                [&] {
                    F = construct(s.args);
                    before = paren(F, {s.queries}); // evaluator and tables built
                },
                [&] { ClassSystem::setProperty(F, property, value); },
                [&] {
                    EXPECT_EQ(
                        errorId([&] { EXPECT_TRUE(sameBits(paren(F, {s.queries}), before)); }),
                        "none");
                });
        }
    }
}

TEST_F(AllocationFailure, CopySaveAndLoadLeaveTheSourceAsItWas) {
    for (Scene& s : setups()) {
        SCOPED_TRACE(s.name);
        const HostArray F = construct(s.args);
        const HostArray before = paren(F, {s.queries});
        const auto unchanged = [&] { EXPECT_TRUE(sameBits(paren(F, {s.queries}), before)); };
        HostArray G, record, H, loaded;
        sweep([] {}, [&] { G = ClassSystem::copyObject(F); }, unchanged);
        EXPECT_TRUE(sameBits(paren(G, {s.queries}), before));
        sweep([] {}, [&] { record = ClassSystem::saveObject(F); }, unchanged);
        sweep([] {}, [&] { H = ClassSystem::loadObject("griddedInterpolant", record); }, unchanged);
        sweep([] {}, [&] { loaded = paren(H, {s.queries}); }, unchanged);
        EXPECT_TRUE(sameBits(loaded, before));
    }
}

TEST_F(AllocationFailure, GatewaysEndInOutOfMemoryAndKeepTheirInputs) {
    for (Scene& s : setups()) {
        if (s.args.size() < 3) continue;
        SCOPED_TRACE(s.name);
        // The extrapolation word is the method itself unless one is given.
        std::vector<HostArray> in{s.args[0], s.args[1], s.args[2], s.args.back(), s.queries};
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
