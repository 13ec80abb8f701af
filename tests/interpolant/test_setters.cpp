// Property setters and the after-load fix-up: Method and ExtrapolationMethod rerun the
// selection; GridVectors is validated (lengths deliberately not compared) and checked against
// the values at the next evaluation; Values rebinds an unshared, current evaluator in place
// and otherwise drops it; a failed set changes nothing; the copy properties share values and
// evaluator; setters only store while the object is not fully constructed.
#include "support/Interpolant.hpp"
#include "support/InterpolantMaking.hpp"

#include "mathinterp/core/Numeric.hpp"
#include "support/Bits.hpp"

#include <cmath>
#include <complex>

using namespace itest;
using mathinterp::GriddedInterpolant;

namespace {

HostArray at(GriddedInterpolant& g, double x) {
    return eval(g, {HostArray::scalar(x)});
}

const double kNaN = mathinterp::engineNaN<double>();

} // namespace

TEST(Setters, MethodAndExtrapolationRerunTheSelection) {
    GriddedInterpolant g = make({row({1, 2}), row({5, 7})});
    ASSERT_TRUE(g.evaluator());
    WarningCounter w;
    g.setMethod(text("cubic"));
    EXPECT_EQ(w.count("CubicNeedsThreeWarnId"), 1);
    EXPECT_EQ(w.total(), 1);
    EXPECT_EQ(textOf(g.method()), "linear");
    EXPECT_EQ(textOf(g.extrapolationMethod()), "linear");
    EXPECT_FALSE(g.evaluator());
    g.setMethod(text("nearest"));
    EXPECT_EQ(textOf(g.extrapolationMethod()), "linear"); // the current word, not a default
    EXPECT_SAME_BITS(at(g, 1.4).realAt(0), 5.0);
    EXPECT_SAME_BITS(at(g, 3.0).realAt(0), 9.0);
    g.setExtrapolationMethod(HostArray::stringScalar("none"));
    EXPECT_TRUE(g.extrapolationMethod().isChar());
    EXPECT_SAME_BITS(at(g, 3.0).realAt(0), kNaN);
    EXPECT_SAME_BITS(at(g, 1.6).realAt(0), 7.0);
}

// Each failed set raises its identifier and leaves grid, values, words and evaluator as they
// were. GridVectors checks classes over all vectors first, then shapes, then the points.
TEST(Setters, FailedSetsChangeNothing) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 10, 20})});
    const HostArray grid = g.gridVectors(), values = g.values(), method = g.method(),
                    extrap = g.extrapolationMethod();
    const auto ev = g.evaluator();
    HostArray hole = HostArray::createCell(1, 2);
    hole.setCell(0, oneTo(3));
    const HostArray i32 = HostArray::createNumeric({1, 3}, ClassId::Int32);
    auto grids = [&](HostArray c) { return [&g, c] { g.setGridVectors(c); }; };
    auto vals = [&](HostArray v) { return [&g, v] { g.setValues(v); }; };
    const std::vector<std::pair<std::function<void()>, const char*>> cases = {
        {[&] { g.setMethod(text("none")); }, "BadInterpTypeErrId"},
        {[&] { g.setExtrapolationMethod(HostArray::scalar(1)); }, "ExtrapolationMethodInvalid"},
        {grids(oneTo(3)), "NonCellCompVecErrId"},
        {grids(HostArray::createCell(1, 0)), "DegenerateGridErrId"},
        {grids(HostArray::cellOf({i32})), "NonFloatInpPtsErrId"},
        {grids(hole), "NonFloatInpPtsErrId"},
        {grids(HostArray::cellOf({sparse(oneTo(3))})), "SparseDataPtErrId"},
        {grids(HostArray::cellOf({HostArray::fromComplex({1, 2}, {{1, 0}, {2, 0}})})),
         "ComplexDataPointErrId"},
        {grids(HostArray::cellOf({oneTo(3), rowSingle({1, 2})})), "GridOfMixedDataTypesErrId"},
        {grids(HostArray::cellOf({filled({2, 2}, [](auto i) { return double(i); })})),
         "NonVecCompVecErrId"},
        {grids(HostArray::cellOf({oneTo(1)})), "DegenerateGridErrId"},
        {grids(HostArray::cellOf({row({1, 1, 2})})), "NonUniqueCompVecsPtsErrId"},
        {grids(HostArray::cellOf({row({1, NAN})})), "NonFiniteInputPtsErrId"},
        {grids(HostArray::cellOf({row({2, 1})})), "NonMonotonicCompVecsErrId"},
        {grids(HostArray::cellOf({row({1, 1}), rowSingle({1, 2})})), "GridOfMixedDataTypesErrId"},
        {grids(HostArray::cellOf({row({2, 1}), oneTo(1)})), "DegenerateGridErrId"},
        {vals(i32), "NonFloatValuesErrId"},
        {vals(text("abc")), "NonFloatValuesErrId"},
        {vals(sparse(oneTo(3))), "SparseInterpValuesErrId"},
        {vals(HostArray::createNumeric({0, 3}, ClassId::Double)), "DegenerateGridErrId"},
        {vals(sparse(HostArray::createNumeric({0, 0}, ClassId::Int8))), "NonFloatValuesErrId"},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(raisedId(cases[i].first), gi(cases[i].second)) << "case " << i;
        EXPECT_TRUE(g.gridVectors().sameArray(grid) && g.values().sameArray(values) &&
                    g.method().sameArray(method) && g.extrapolationMethod().sameArray(extrap) &&
                    g.evaluator() == ev)
            << "case " << i;
    }
}

TEST(Setters, GridVectorsLengthsAreCheckedAtEvaluation) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 10, 20})});
    const HostArray longer = HostArray::cellOf({oneTo(5)});
    g.setGridVectors(longer); // accepted: lengths are not compared here
    EXPECT_TRUE(g.gridVectors().sameArray(longer));
    EXPECT_FALSE(g.evaluator());
    EXPECT_EQ(evalId(g, {HostArray::scalar(1)}), gi("CompVecValueMismatchErrId"));
    EXPECT_TRUE(g.gridVectors().sameArray(longer));
    g.setGridVectors(HostArray::cellOf({row({0, 2, 4})}));
    EXPECT_SAME_BITS(at(g, 3).realAt(0), 15.0);

    // A second dimension: the 1-D-only method is replaced at once; the values (a vector) now
    // lack a second dimension of at least 2 points.
    GriddedInterpolant n = make({row({0, 1, 2}), row({0, 10, 20}), text("next")});
    WarningCounter w;
    n.setGridVectors(HostArray::cellOf({oneTo(3), oneTo(2)}));
    EXPECT_EQ(w.count("Next1DonlyWarnId"), 1);
    EXPECT_EQ(w.total(), 1);
    EXPECT_EQ(textOf(n.method()), "linear");
    EXPECT_EQ(evalId(n, {HostArray::scalar(1)}), gi("DegenerateGridErrId"));
}

TEST(Setters, SameSizeValuesRebindTheEvaluatorOthersDropIt) {
    // Same size and class, real or complex: the same evaluator, now on the new values.
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 10, 20})});
    GriddedInterpolant c =
        make({row({0, 1, 2}), HostArray::fromComplex({1, 3}, {{0, 0}, {1, 1}, {2, 2}})});
    (void)at(g, 0.5);
    // Raw pointers: holding another shared pointer would share the evaluator.
    const mathinterp::Evaluator *ev = g.evaluator().get(), *cev = c.evaluator().get();
    const HostArray v2 = row({100, 200, 400});
    g.setValues(v2);
    c.setValues(HostArray::fromComplex({1, 3}, {{0, 8}, {2, 4}, {4, 0}}));
    EXPECT_EQ(g.evaluator().get(), ev);
    EXPECT_EQ(c.evaluator().get(), cev);
    EXPECT_TRUE(g.evaluatorCurrent());
    EXPECT_TRUE(g.internalValues().sameArray(v2));
    EXPECT_SAME_BITS(at(g, 1.5).realAt(0), 300.0);
    EXPECT_SAME_BITS(at(c, 0.5).imagAt(0), 6.0);

    const HostArray x = row({0, 1, 2});
    const std::vector<std::pair<Args, HostArray>> dropping = {
        {{x, row({0, 1, 2})}, row({0, 1, 2, 3})},
        {{x, row({0, 1, 2})}, col({0, 1, 2})},
        {{x, row({0, 1, 2})}, rowSingle({0, 1, 2})},
        {{x, row({0, 1, 2})}, HostArray::fromComplex({1, 3}, {{0, 1}, {1, 1}, {2, 1}})},
        {{HostArray::cellOf({x}), filled({3, 2}, [](auto i) { return double(i); })},
         filled({3, 2}, [](auto i) { return double(2 * i); })},
    };
    for (std::size_t i = 0; i < dropping.size(); ++i) {
        GriddedInterpolant d = make(dropping[i].first);
        d.setValues(dropping[i].second);
        EXPECT_FALSE(d.evaluator()) << "case " << i;
        EXPECT_TRUE(d.values().sameArray(dropping[i].second)) << "case " << i;
    }
    // Rebuilt at the next evaluation in the new class; a longer vector no longer fits.
    GriddedInterpolant s = make({x, row({0, 1, 2})});
    s.setValues(rowSingle({0, 4, 8}));
    const HostArray out = at(s, 0.5);
    EXPECT_EQ(out.classId(), ClassId::Single);
    EXPECT_SAME_BITS(out.data<float>()[0], 2.0f);
    s.setValues(row({0, 1, 2, 3}));
    EXPECT_EQ(evalId(s, {HostArray::scalar(1)}), gi("CompVecValueMismatchErrId"));
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
    EXPECT_SAME_BITS(at(b, 3.0).realAt(0), kNaN);
    // Same-size values on the original: the shared evaluator is not rebound; the copy keeps
    // evaluating the old values.
    a.setValues(row({0, 100, 200}));
    EXPECT_FALSE(a.evaluator());
    EXPECT_SAME_BITS(at(a, 0.5).realAt(0), 50.0);
    EXPECT_SAME_BITS(at(b, 0.5).realAt(0), 5.0);
    EXPECT_EQ(b.evaluator().use_count(), 1);
    // The copy's evaluator was not built by it: setting values drops it.
    b.setValues(row({0, 1, 2}));
    EXPECT_FALSE(b.evaluator());
    EXPECT_SAME_BITS(at(b, 0.5).realAt(0), 0.5);
    EXPECT_SAME_BITS(at(a, 0.5).realAt(0), 50.0);
}

TEST(Setters, CopyPropertiesWithComplexValues) {
    const HostArray v = HostArray::fromComplex({1, 3}, {{0, 2}, {1, 4}, {2, 6}});
    // A shared evaluator outlives its original: it still reads the grid and split values it
    // was built on, whatever the copy's Values say.
    GriddedInterpolant b;
    {
        GriddedInterpolant a = make({HostArray::cellOf({row({0, 1, 2})}), v});
        b.setEvaluatorForCopy(a.evaluator());
        b.setGridVectors(HostArray::cellOf({row({0, 1, 2})}));
        b.setValues(HostArray::fromComplex({1, 3}, {{9, 9}, {9, 9}, {9, 9}}));
        b.setMethod(text("linear"));
        b.setExtrapolationMethod(text("linear"));
        a.clear();
    }
    EXPECT_SAME_BITS(at(b, 1.5).realAt(0), 1.5);
    EXPECT_SAME_BITS(at(b, 1.5).imagAt(0), 5.0);
    // ValuesForCopy before or after Values: the split data given are kept.
    GriddedInterpolant a = make({row({0, 1, 2}), v});
    for (bool valuesFirst : {true, false}) {
        GriddedInterpolant c;
        if (valuesFirst) c.setValues(a.values());
        c.setValuesForCopy(a.internalValues());
        if (!valuesFirst) c.setValues(a.values());
        EXPECT_TRUE(c.internalValues().sameArray(a.internalValues())) << valuesFirst;
    }
    // Values alone: the split copy is made when first needed.
    GriddedInterpolant c;
    c.setGridVectors(a.gridVectors());
    c.setValues(v);
    c.setMethod(text("linear"));
    c.setExtrapolationMethod(text("linear"));
    EXPECT_TRUE(c.internalValues().isNull());
    EXPECT_SAME_BITS(at(c, 0.5).imagAt(0), 3.0);
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
    EXPECT_SAME_BITS(at(lin, 0.5).realAt(0), 5.0);
    EXPECT_SAME_BITS(at(lin, -1.0).realAt(0), kNaN);

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
    huge.setValues(HostArray::createNumeric({0, std::uint64_t{1} << 31}, ClassId::Single));
    huge.afterLoadFixup();
    ASSERT_EQ(huge.gridVectors().numberOfElements(), 2u);
    EXPECT_EQ(huge.gridVectors().getCell(1).numberOfElements(), 0u);
    EXPECT_EQ(huge.gridVectors().getCell(1).classId(), ClassId::Single);
    EXPECT_EQ(evalId(huge, {HostArray::scalar(1)}), gi("DegenerateGridErrId"));
}
