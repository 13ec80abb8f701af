// griddedInterpolant driven through the class system only: what the host adds to the engine's
// object (the setters' rules are the interpolant tests'): construction and indexing through
// the registry, argument counts, copies (through the host-only properties, whose access codes
// test_module_lifecycle checks) that share values and evaluator yet never see each other's
// changes, save and load with the after-load fix-up.
#include "host/HostTestSupport.hpp"
#include "support/Bits.hpp"

#include <limits>

using namespace hosttest;
using platform::Caller;

namespace {

const double kNaN = -std::numeric_limits<double>::quiet_NaN(); // the engine's NaN

// F = griddedInterpolant([1 2 3], [4 5 7]): linear inside and out.
HostArray line3() {
    return construct({HostArray::rowVector({1, 2, 3}), HostArray::rowVector({4, 5, 7})});
}

double at(const HostArray& f, double x) {
    return paren(f, {HostArray::scalar(x)}).realAt(0);
}

using GriddedInterpolantClass = RegisteredModule;

TEST_F(GriddedInterpolantClass, ConstructsEvaluatesAndCountsArgumentsThroughTheRegistry) {
    HostArray f = line3();
    EXPECT_TRUE(ClassSystem::isA(f, "quartz.mixin.internal.indexing.Paren"));
    EXPECT_EQ(text(prop(f, "Method")), "linear");
    EXPECT_EQ(text(prop(f, "ExtrapolationMethod")), "linear");
    // Inside on each interval, a node, and linear extrapolation on both sides.
    EXPECT_EQ(doubles(paren(f, {HostArray::rowVector({1.5, 2.5, 2, 0, 4})})),
              (std::vector<double>{4.5, 6, 5, 3, 9}));
    EXPECT_EQ(paren(f, {HostArray::fromDoubles({2, 3}, {1, 1.5, 2, 2.5, 3, 0})}).dimensions(),
              (platform::Dims{2, 3}));
    // Engine errors arrive as host errors with their identifiers.
    EXPECT_EQ(errorId([&] {
                  construct({HostArray::rowVector({3, 2, 1}), HostArray::rowVector({4, 5, 7})});
              }),
              gi("NonMonotonicCompVecsErrId"));
    EXPECT_EQ(errorId([&] {
                  paren(f, {HostArray::fromComplex({1, 1}, {{1, 1}})});
              }),
              gi("ComplexDataPointErrId"));

    HostArray in[] = {f, HostArray::scalar(1.5)}, out[2];
    EXPECT_EQ(errorId([&] { ClassSystem::invokeMethod("parenReference", 1, out, 1, in); }),
              platform::kTooFewInputsId);
    EXPECT_EQ(errorId([&] { ClassSystem::invokeMethod("parenReference", 2, out, 2, in); }),
              platform::kTooManyOutputsId);
    EXPECT_EQ(errorId([&] { ClassSystem::construct("griddedInterpolant", -1, nullptr); }),
              platform::kTooFewInputsId);
    // No arguments: an empty interpolant, whose evaluation reports the degenerate grid.
    HostArray empty = construct({});
    EXPECT_TRUE(prop(empty, "Values").isEmpty());
    EXPECT_EQ(errorId([&] { at(empty, 1); }), gi("DegenerateGridErrId"));
}

TEST_F(GriddedInterpolantClass, ShallowCopySharesValuesAndEvaluator) {
    HostArray f = line3();
    HostArray g = ClassSystem::copyObject(f);
    EXPECT_FALSE(g.sameArray(f));
    EXPECT_EQ(evaluatorOf(g), evaluatorOf(f));
    EXPECT_TRUE(ClassSystem::getPropertyArray(f, "ValuesForCopy", Caller::Host)
                    .sameArray(ClassSystem::getPropertyArray(g, "ValuesForCopy", Caller::Host)));
    for (const char* name : {"Values", "GridVectors"})
        EXPECT_TRUE(prop(f, name).sameArray(prop(g, name))) << name;
    EXPECT_EQ(text(prop(g, "Method")), "linear");
    EXPECT_EQ(at(g, 2.5), 6.0);
}

TEST_F(GriddedInterpolantClass, ValuesSetOnACopyOrTheOriginalNeverReachTheOther) {
    for (bool onCopy : {true, false}) {
        SCOPED_TRACE(onCopy ? "set on the copy" : "set on the original");
        HostArray f = line3();
        HostArray g = ClassSystem::copyObject(f);
        HostArray& changed = onCopy ? g : f;
        const HostArray& other = onCopy ? f : g;
        ClassSystem::setProperty(changed, "Values", HostArray::rowVector({10, 20, 40}));
        EXPECT_EQ(at(changed, 2.5), 30.0);
        EXPECT_EQ(at(other, 2.5), 6.0);
        EXPECT_EQ(doubles(prop(other, "Values")), (std::vector<double>{4, 5, 7}));
        // And later changes stay where they were made.
        ClassSystem::setProperty(changed, "Values", HostArray::rowVector({0, 0, 2}));
        EXPECT_EQ(at(changed, 2.5), 1.0);
        EXPECT_EQ(at(other, 2.5), 6.0);
    }
}

TEST_F(GriddedInterpolantClass, SaveAndLoadRestoreAnEquivalentObject) {
    HostArray f = construct({HostArray::rowVector({1, 2, 3}), HostArray::rowVector({4, 5, 7}),
                             HostArray::charRow("nearest"), HostArray::charRow("none")});
    HostArray saved = ClassSystem::saveObject(f);
    EXPECT_EQ(saved.fieldNames(),
              (std::vector<std::string>{"GridVectors", "Values", "Method", "ExtrapolationMethod"}));
    HostArray g = ClassSystem::loadObject("griddedInterpolant", saved);
    EXPECT_EQ(text(prop(g, "Method")), "nearest");
    EXPECT_EQ(text(prop(g, "ExtrapolationMethod")), "none");
    HostArray out = paren(g, {HostArray::rowVector({1.4, 2.6, 5})});
    EXPECT_EQ(out.realAt(0), 4.0);
    EXPECT_EQ(out.realAt(1), 7.0);
    EXPECT_SAME_BITS(out.realAt(2), kNaN);
}

// Records saved before extrapolation words existed: linear loads with "none", other methods
// extrapolate with themselves (pchip continues its end piece, as a fresh object does).
TEST_F(GriddedInterpolantClass, LoadedRecordsWithoutExtrapolationWordGoThroughTheFixup) {
    for (const char* method : {"linear", "pchip"}) {
        SCOPED_TRACE(method);
        const std::vector<HostArray> args{HostArray::rowVector({1, 2, 3, 4}),
                                          HostArray::rowVector({0, 1, 0, 1}),
                                          HostArray::charRow(method)};
        HostArray r = HostArray::createStruct({1, 1}, {"GridVectors", "Values", "Method"});
        r.setField(0, 0, HostArray::cellOf({args[0]}));
        r.setField(0, 1, args[1]);
        r.setField(0, 2, args[2]);
        HostArray g = ClassSystem::loadObject("griddedInterpolant", r);
        const bool linear = std::string(method) == "linear";
        EXPECT_EQ(text(prop(g, "ExtrapolationMethod")), linear ? "none" : method);
        HostArray a = paren(g, {HostArray::rowVector({0.5, 2.5, 4.5})});
        HostArray b = paren(construct(args), {HostArray::rowVector({0.5, 2.5, 4.5})});
        EXPECT_SAME_BITS(a.realAt(1), b.realAt(1));
        for (std::uint64_t k : {0, 2})
            EXPECT_SAME_BITS(a.realAt(k), linear ? kNaN : b.realAt(k));
    }
}

} // namespace
