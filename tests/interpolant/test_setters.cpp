// Property setters and the after-load fix-up: Method and ExtrapolationMethod rerun the
// selection; GridVectors is validated (lengths deliberately not compared) and checked against
// the values at the next evaluation; Values rebinds an unshared, current evaluator in place
// and otherwise drops it; the copy properties share values and evaluator; setters only store
// while the object is not fully constructed.
#include "support/Interpolant.hpp"

#include "mathinterp/core/Numeric.hpp"
#include "support/Bits.hpp"

#include <cmath>
#include <complex>

using namespace itest;
using mathinterp::GriddedInterpolant;

namespace {

GriddedInterpolant make(const Args& a) {
    GriddedInterpolant g;
    g.construct(static_cast<int>(a.size()), a.data());
    return g;
}

double at(GriddedInterpolant& g, double x) {
    return eval(g, {HostArray::scalar(x)}).realAt(0);
}

HostArray sparse(HostArray a) {
    a.setSparse(true);
    return a;
}

// The fields a failed setter must leave alone.
struct Snapshot {
    HostArray grid, values, method, extrap;
    std::shared_ptr<mathinterp::Evaluator> ev;
    explicit Snapshot(const GriddedInterpolant& g)
        : grid(g.gridVectors()), values(g.values()), method(g.method()),
          extrap(g.extrapolationMethod()), ev(g.evaluator()) {}
    void expectSame(const GriddedInterpolant& g, const std::string& what) const {
        EXPECT_TRUE(g.gridVectors().sameArray(grid)) << what;
        EXPECT_TRUE(g.values().sameArray(values)) << what;
        EXPECT_TRUE(g.method().sameArray(method)) << what;
        EXPECT_TRUE(g.extrapolationMethod().sameArray(extrap)) << what;
        EXPECT_EQ(g.evaluator(), ev) << what;
    }
};

const double kNaN = mathinterp::engineNaN<double>();

} // namespace

TEST(Setters, MethodAndExtrapolationRerunTheSelection) {
    GriddedInterpolant g = make({row({1, 2}), row({5, 7})});
    ASSERT_TRUE(g.evaluator());
    {
        WarningCounter w;
        g.setMethod(text("cubic"));
        EXPECT_EQ(w.count("CubicNeedsThreeWarnId"), 1);
        EXPECT_EQ(w.total(), 1);
    }
    EXPECT_EQ(textOf(g.method()), "linear");
    EXPECT_EQ(textOf(g.extrapolationMethod()), "linear");
    EXPECT_FALSE(g.evaluator());

    g.setMethod(text("nearest"));
    EXPECT_EQ(textOf(g.method()), "nearest");
    EXPECT_EQ(textOf(g.extrapolationMethod()), "linear"); // the current word, not a default
    EXPECT_SAME_BITS(at(g, 1.4), 5.0);
    EXPECT_SAME_BITS(at(g, 3.0), 9.0);

    g.setExtrapolationMethod(HostArray::stringScalar("none"));
    EXPECT_TRUE(g.extrapolationMethod().isChar());
    EXPECT_EQ(textOf(g.extrapolationMethod()), "none");
    EXPECT_SAME_BITS(at(g, 3.0), kNaN);
    EXPECT_SAME_BITS(at(g, 1.6), 7.0);

    const Snapshot s(g);
    EXPECT_EQ(raisedId([&] { g.setMethod(text("none")); }), gi("BadInterpTypeErrId"));
    s.expectSame(g, "bad method");
    EXPECT_EQ(raisedId([&] { g.setExtrapolationMethod(HostArray::scalar(1)); }),
              gi("ExtrapolationMethodInvalid"));
    s.expectSame(g, "bad extrapolation");
}

TEST(Setters, GridVectorsChecks) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 10, 20})});
    const Snapshot s(g);
    HostArray hole = HostArray::createCell(1, 2);
    hole.setCell(0, oneTo(3));
    const std::vector<std::pair<HostArray, const char*>> cases = {
        {oneTo(3), "NonCellCompVecErrId"},
        {HostArray::createCell(1, 0), "DegenerateGridErrId"},
        {HostArray::cellOf({HostArray::createNumeric({1, 3}, ClassId::Int32)}),
         "NonFloatInpPtsErrId"},
        {hole, "NonFloatInpPtsErrId"},
        {HostArray::cellOf({sparse(oneTo(3))}), "SparseDataPtErrId"},
        {HostArray::cellOf({HostArray::fromComplex({1, 2}, {{1, 0}, {2, 0}})}),
         "ComplexDataPointErrId"},
        {HostArray::cellOf({oneTo(3), rowSingle({1, 2})}), "GridOfMixedDataTypesErrId"},
        {HostArray::cellOf({filled({2, 2}, [](auto i) { return double(i); })}),
         "NonVecCompVecErrId"},
        {HostArray::cellOf({oneTo(1)}), "DegenerateGridErrId"},
        {HostArray::cellOf({row({1, 1, 2})}), "NonUniqueCompVecsPtsErrId"},
        {HostArray::cellOf({row({1, NAN})}), "NonFiniteInputPtsErrId"},
        {HostArray::cellOf({row({2, 1})}), "NonMonotonicCompVecsErrId"},
        // Class checks over all vectors first, then shapes, then the values of the vectors.
        {HostArray::cellOf({row({1, 1}), rowSingle({1, 2})}), "GridOfMixedDataTypesErrId"},
        {HostArray::cellOf({row({2, 1}), oneTo(1)}), "DegenerateGridErrId"},
    };
    for (const auto& [cell, key] : cases) {
        EXPECT_EQ(raisedId([&] { g.setGridVectors(cell); }), gi(key)) << key;
        s.expectSame(g, key);
    }
}

TEST(Setters, GridVectorsLengthsAreCheckedAtEvaluation) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 10, 20})});
    const HostArray longer = HostArray::cellOf({oneTo(5)});
    g.setGridVectors(longer); // accepted: lengths are not compared here
    EXPECT_TRUE(g.gridVectors().sameArray(longer));
    EXPECT_FALSE(g.evaluator());
    const Snapshot s(g);
    EXPECT_EQ(evalId(g, {HostArray::scalar(1)}), gi("CompVecValueMismatchErrId"));
    s.expectSame(g, "failed evaluation");

    g.setGridVectors(HostArray::cellOf({row({0, 2, 4})}));
    EXPECT_SAME_BITS(at(g, 1), 5.0);
    EXPECT_SAME_BITS(at(g, 3), 15.0);

    // A second dimension: the 1-D-only method is replaced at once.
    GriddedInterpolant n = make({row({0, 1, 2}), row({0, 10, 20}), text("next")});
    WarningCounter w;
    n.setGridVectors(HostArray::cellOf({oneTo(3), oneTo(2)}));
    EXPECT_EQ(w.count("Next1DonlyWarnId"), 1);
    EXPECT_EQ(w.total(), 1);
    EXPECT_EQ(textOf(n.method()), "linear");
    // The values (a vector) now lack a second dimension of at least 2 points.
    EXPECT_EQ(evalId(n, {HostArray::scalar(1)}), gi("DegenerateGridErrId"));
}

TEST(Setters, SameSizeValuesRebindTheEvaluator) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 10, 20})});
    (void)at(g, 0.5);
    // A raw pointer: holding another shared pointer would share the evaluator.
    const mathinterp::Evaluator* ev = g.evaluator().get();
    const HostArray v2 = row({100, 200, 400});
    g.setValues(v2);
    EXPECT_EQ(g.evaluator().get(), ev);
    EXPECT_TRUE(g.evaluatorCurrent());
    EXPECT_TRUE(g.values().sameArray(v2));
    EXPECT_TRUE(g.internalValues().sameArray(v2));
    EXPECT_SAME_BITS(at(g, 0.5), 150.0);
    EXPECT_SAME_BITS(at(g, 1.5), 300.0);

    // Complex values: both planes follow.
    GriddedInterpolant c =
        make({row({0, 1, 2}), HostArray::fromComplex({1, 3}, {{0, 0}, {1, 1}, {2, 2}})});
    const mathinterp::Evaluator* cev = c.evaluator().get();
    c.setValues(HostArray::fromComplex({1, 3}, {{0, 8}, {2, 4}, {4, 0}}));
    EXPECT_EQ(c.evaluator().get(), cev);
    const HostArray out = eval(c, {HostArray::scalar(0.5)});
    EXPECT_SAME_BITS(out.realAt(0), 1.0);
    EXPECT_SAME_BITS(out.imagAt(0), 6.0);
}

TEST(Setters, OtherValuesDropTheEvaluator) {
    const HostArray x = row({0, 1, 2});
    struct Case {
        const char* name;
        Args construct;
        HostArray values;
    };
    const Case cases[] = {
        {"another size", {x, row({0, 1, 2})}, row({0, 1, 2, 3})},
        {"same count, other shape", {x, row({0, 1, 2})}, col({0, 1, 2})},
        {"another class", {x, row({0, 1, 2})}, rowSingle({0, 1, 2})},
        {"complex for real",
         {x, row({0, 1, 2})},
         HostArray::fromComplex({1, 3}, {{0, 1}, {1, 1}, {2, 1}})},
        {"several value sets",
         {HostArray::cellOf({x}), filled({3, 2}, [](auto i) { return double(i); })},
         filled({3, 2}, [](auto i) { return double(2 * i); })},
    };
    for (const Case& c : cases) {
        GriddedInterpolant g = make(c.construct);
        ASSERT_TRUE(g.evaluator()) << c.name;
        g.setValues(c.values);
        EXPECT_FALSE(g.evaluator()) << c.name;
        EXPECT_TRUE(g.values().sameArray(c.values)) << c.name;
    }
    // Rebuilt at the next evaluation: the new class and values are used.
    GriddedInterpolant g = make({x, row({0, 1, 2})});
    g.setValues(rowSingle({0, 4, 8}));
    const HostArray out = eval(g, {HostArray::scalar(0.5)});
    EXPECT_EQ(out.classId(), ClassId::Single);
    EXPECT_SAME_BITS(out.data<float>()[0], 2.0f);
    EXPECT_TRUE(g.evaluatorCurrent());
    // A longer vector no longer matches the grid.
    g.setValues(row({0, 1, 2, 3}));
    EXPECT_EQ(evalId(g, {HostArray::scalar(1)}), gi("CompVecValueMismatchErrId"));
}

TEST(Setters, ValuesChecks) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 10, 20})});
    const Snapshot s(g);
    const std::vector<std::pair<HostArray, const char*>> cases = {
        {HostArray::createNumeric({1, 3}, ClassId::Int32), "NonFloatValuesErrId"},
        {text("abc"), "NonFloatValuesErrId"},
        {sparse(oneTo(3)), "SparseInterpValuesErrId"},
        {HostArray::createNumeric({0, 3}, ClassId::Double), "DegenerateGridErrId"},
        {sparse(HostArray::createNumeric({0, 0}, ClassId::Int8)), "NonFloatValuesErrId"},
    };
    for (const auto& [v, key] : cases) {
        EXPECT_EQ(raisedId([&] { g.setValues(v); }), gi(key)) << key;
        s.expectSame(g, key);
    }
}

TEST(Setters, CopiesShareValuesAndEvaluator) {
    GriddedInterpolant a = make({row({0, 1, 2}), row({0, 10, 20}), text("linear"), text("none")});
    GriddedInterpolant b;
    // The copy protocol: public properties while not fully constructed, then the hidden ones.
    b.setGridVectors(a.gridVectors());
    b.setValues(a.values());
    b.setMethod(a.method());
    b.setExtrapolationMethod(a.extrapolationMethod());
    b.setValuesForCopy(a.internalValues());
    b.setEvaluatorForCopy(a.evaluator());
    EXPECT_TRUE(b.fullyConstructed());
    EXPECT_EQ(b.evaluator(), a.evaluator());
    EXPECT_FALSE(b.evaluatorCurrent());
    EXPECT_TRUE(a.evaluatorCurrent());
    EXPECT_EQ(a.evaluator().use_count(), 2);
    EXPECT_SAME_BITS(at(b, 0.5), 5.0);
    EXPECT_SAME_BITS(at(b, 3.0), kNaN);

    // Same-size values on the original: the shared evaluator is not rebound; the copy keeps
    // evaluating the old values.
    a.setValues(row({0, 100, 200}));
    EXPECT_FALSE(a.evaluator());
    EXPECT_SAME_BITS(at(a, 0.5), 50.0);
    EXPECT_SAME_BITS(at(b, 0.5), 5.0);
    EXPECT_EQ(b.evaluator().use_count(), 1);

    // The copy's evaluator was not built by it: setting values drops it.
    b.setValues(row({0, 1, 2}));
    EXPECT_FALSE(b.evaluator());
    EXPECT_SAME_BITS(at(b, 0.5), 0.5);
    EXPECT_TRUE(b.evaluatorCurrent());
    EXPECT_SAME_BITS(at(a, 0.5), 50.0);
}

TEST(Setters, SharedEvaluatorOutlivesTheOriginal) {
    GriddedInterpolant b;
    {
        GriddedInterpolant a = make({HostArray::cellOf({row({0, 1, 2})}),
                                     HostArray::fromComplex({3, 1}, {{0, 2}, {1, 4}, {2, 6}})});
        b.setEvaluatorForCopy(a.evaluator());
        b.setGridVectors(HostArray::cellOf({row({0, 1, 2})}));
        b.setValues(HostArray::fromComplex({3, 1}, {{9, 9}, {9, 9}, {9, 9}}));
        b.setMethod(text("linear"));
        b.setExtrapolationMethod(text("linear"));
        a.clear();
    }
    // b's evaluator still reads the grid and split values it was built on.
    const HostArray out = eval(b, {HostArray::scalar(1.5)});
    EXPECT_SAME_BITS(out.realAt(0), 1.5);
    EXPECT_SAME_BITS(out.imagAt(0), 5.0);
}

TEST(Setters, ComplexValuesWhileCopying) {
    const HostArray v = HostArray::fromComplex({1, 3}, {{0, 2}, {1, 4}, {2, 6}});
    GriddedInterpolant a = make({row({0, 1, 2}), v});
    // ValuesForCopy before and after Values: the split data given are kept.
    for (bool valuesFirst : {true, false}) {
        GriddedInterpolant b;
        if (valuesFirst) b.setValues(a.values());
        b.setValuesForCopy(a.internalValues());
        if (!valuesFirst) b.setValues(a.values());
        EXPECT_TRUE(b.internalValues().sameArray(a.internalValues())) << valuesFirst;
    }
    // Values alone: the split copy is made when first needed.
    GriddedInterpolant c;
    c.setGridVectors(a.gridVectors());
    c.setValues(v);
    c.setMethod(text("linear"));
    c.setExtrapolationMethod(text("linear"));
    EXPECT_TRUE(c.internalValues().isNull());
    const HostArray out = eval(c, {HostArray::scalar(0.5)});
    EXPECT_SAME_BITS(out.imagAt(0), 3.0);
    ASSERT_EQ(c.internalValues().numberOfElements(), 6u);
    EXPECT_EQ(c.internalValues().realAt(4), 4.0);
}

TEST(Setters, NotFullyConstructedOnlyStores) {
    GriddedInterpolant g;
    g.setMethod(text("bogus"));
    g.setGridVectors(HostArray::scalar(3));
    g.setValues(text("not values"));
    EXPECT_EQ(textOf(g.method()), "bogus");
    EXPECT_FALSE(g.fullyConstructed());
    EXPECT_FALSE(g.evaluator());
    g.setValuesForCopy(HostArray::scalar(1)); // no checks either
    EXPECT_EQ(g.internalValues().realAt(0), 1.0);
}

TEST(Setters, AfterLoadFixup) {
    auto loaded = [](HostArray method, HostArray extrap) {
        GriddedInterpolant g;
        g.setGridVectors(HostArray::cellOf({row({0, 1, 2})}));
        g.setValues(row({0, 10, 20}));
        if (!method.isNull()) g.setMethod(method);
        if (!extrap.isNull()) g.setExtrapolationMethod(extrap);
        g.afterLoadFixup();
        return g;
    };
    EXPECT_EQ(textOf(loaded(text("pchip"), {}).extrapolationMethod()), "pchip");
    EXPECT_EQ(textOf(loaded(HostArray::stringScalar("spline"), {}).extrapolationMethod()),
              "spline");
    EXPECT_EQ(textOf(loaded(text("nearest"), text("linear")).extrapolationMethod()), "linear");
    GriddedInterpolant lin = loaded(text("linear"), {});
    EXPECT_EQ(textOf(lin.extrapolationMethod()), "none");
    EXPECT_SAME_BITS(at(lin, 0.5), 5.0);
    EXPECT_SAME_BITS(at(lin, -1.0), kNaN);

    // Empty values: the default grid of the empty values; the evaluator is dropped.
    GriddedInterpolant e;
    e.construct(0, nullptr);
    e.setEvaluatorForCopy(std::make_shared<RecordingEvaluator>(1));
    e.afterLoadFixup();
    EXPECT_FALSE(e.evaluator());
    EXPECT_TRUE(e.gridDefaulted());
    EXPECT_EQ(e.gridVectors().numberOfElements(), 2u);
    EXPECT_EQ(evalId(e, {HostArray::scalar(1)}), gi("DegenerateGridErrId"));

    // A few bytes of saved record must not make it allocate gigabytes: empty values of huge
    // extent (0 x 2^31) get empty default grid vectors.
    GriddedInterpolant huge;
    huge.setValues(HostArray::createNumeric({0, std::uint64_t{1} << 31}, platform::ClassId::Single));
    huge.afterLoadFixup();
    ASSERT_EQ(huge.gridVectors().numberOfElements(), 2u);
    EXPECT_EQ(huge.gridVectors().getCell(1).numberOfElements(), 0u);
    EXPECT_EQ(huge.gridVectors().getCell(1).classId(), platform::ClassId::Single);
    EXPECT_EQ(evalId(huge, {HostArray::scalar(1)}), gi("DegenerateGridErrId"));
}
