// Evaluation entry: every query form, its checks and their identifiers, the output shape
// (with and without value sets, empty queries), the output class and complexity, the
// packing of scattered N-D queries, the meshgrid warning, lazy rebuilding of the evaluator,
// and that a failed evaluation changes nothing. 1-D results are checked end to end; the N-D
// query handling is checked through a recording evaluator, and end to end once N-D linear
// interpolation is part of the build.
#include "support/Interpolant.hpp"

#include "mathinterp/core/Numeric.hpp"
#include "mathinterp/methods/LinearND.hpp"
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

HostArray sparse(HostArray a) {
    a.setSparse(true);
    return a;
}

const double kNaN = mathinterp::engineNaN<double>();

} // namespace

TEST(Evaluation1D, LinearAndStepMethodsEndToEnd) {
    const HostArray x = row({0, 1, 3}), v = row({0, 10, 30});
    const HostArray q = row({0.5, 2, 4, -1, 3, 0});
    struct Case {
        const char* method;
        const char* extrap; // nullptr: the method itself
        std::vector<double> expected;
    };
    const Case cases[] = {
        {"linear", nullptr, {5, 20, 40, -10, 30, 0}},
        {"linear", "none", {5, 20, kNaN, kNaN, 30, 0}},
        {"nearest", nullptr, {10, 30, 30, 0, 30, 0}},
        {"previous", nullptr, {0, 10, 30, kNaN, 30, 0}},
        {"next", nullptr, {10, 30, kNaN, 0, 30, 0}},
        {"linear", "nearest", {5, 20, 30, 0, 30, 0}},
    };
    for (const Case& c : cases) {
        Args a{x, v, text(c.method)};
        if (c.extrap) a.push_back(text(c.extrap));
        GriddedInterpolant g = make(a);
        const HostArray out = eval(g, {q});
        ASSERT_EQ(out.dimensions(), q.dimensions()) << c.method;
        for (std::uint64_t i = 0; i < std::size(c.expected); ++i)
            EXPECT_SAME_BITS(out.data<double>()[i], c.expected[i]) << c.method << " query " << i;
    }
}

TEST(Evaluation1D, OutputClassFollowsTheValues) {
    GriddedInterpolant gd = make({row({0, 1, 2}), row({0, 1, 4})});
    const HostArray outD = eval(gd, {rowSingle({0.5f, 1.5f})});
    ASSERT_EQ(outD.classId(), ClassId::Double);
    EXPECT_SAME_BITS(outD.data<double>()[0], 0.5);
    EXPECT_SAME_BITS(outD.data<double>()[1], 2.5);

    GriddedInterpolant gs = make({row({0, 1, 2}), rowSingle({0, 1, 4})});
    const HostArray outS = eval(gs, {row({0.5, 1.5})});
    ASSERT_EQ(outS.classId(), ClassId::Single);
    EXPECT_SAME_BITS(outS.data<float>()[0], 0.5f);
    EXPECT_SAME_BITS(outS.data<float>()[1], 2.5f);
    // A cell query of single vectors on double values is still double.
    EXPECT_EQ(eval(gd, {HostArray::cellOf({rowSingle({1})})}).classId(), ClassId::Double);
}

TEST(Evaluation1D, ComplexValuesGiveComplexOutput) {
    const HostArray v = HostArray::fromComplex({1, 3}, {{0, 4}, {2, 0}, {4, -4}});
    GriddedInterpolant g = make({row({0, 1, 2}), v});
    const HostArray out = eval(g, {col({0.5, 1.5, 2})});
    ASSERT_TRUE(out.isComplex());
    EXPECT_EQ(out.dimensions(), (Dims{3, 1}));
    const double re[] = {1, 3, 4}, im[] = {2, -2, -4};
    for (std::uint64_t i = 0; i < 3; ++i) {
        EXPECT_SAME_BITS(out.realAt(i), re[i]);
        EXPECT_SAME_BITS(out.imagAt(i), im[i]);
    }
}

TEST(Evaluation1D, OutputShapes) {
    const HostArray x = row({0, 1, 2, 3, 4});
    // V: n x 4 value sets, value set s holds 100 s + grid index.
    const HostArray sets = filled({5, 4}, [](auto i) { return double(100 * (i / 5) + i % 5); });
    const HostArray sets3 = filled({5, 4, 2}, [](auto i) { return double(i); });
    GriddedInterpolant plain = make({x, col({0, 1, 2, 3, 4})});
    GriddedInterpolant g = make({HostArray::cellOf({x}), sets});
    GriddedInterpolant g3 = make({HostArray::cellOf({x}), sets3});
    const HostArray q23 = filled({2, 3}, [](auto i) { return double(i) * 0.5; });

    EXPECT_EQ(eval(plain, {q23}).dimensions(), (Dims{2, 3}));
    EXPECT_EQ(eval(plain, {row({1, 2})}).dimensions(), (Dims{1, 2}));
    const HostArray out = eval(g, {q23});
    ASSERT_EQ(out.dimensions(), (Dims{6, 4}));
    for (std::uint64_t s = 0; s < 4; ++s)
        for (std::uint64_t i = 0; i < 6; ++i)
            EXPECT_SAME_BITS(out.realAt(s * 6 + i), 100.0 * double(s) + 0.5 * double(i));
    EXPECT_EQ(eval(g3, {row({1, 2, 3})}).dimensions(), (Dims{3, 4, 2}));
    // Cell queries: the vector lengths, then the value-set extents.
    EXPECT_EQ(eval(plain, {HostArray::cellOf({row({1, 2, 3})})}).dimensions(), (Dims{3, 1}));
    EXPECT_EQ(eval(g, {HostArray::cellOf({row({1, 2, 3})})}).dimensions(), (Dims{3, 4}));
    // Empty queries: the shape rule still holds, nothing is evaluated.
    const HostArray empty = HostArray::createNumeric({0, 0}, ClassId::Double);
    EXPECT_EQ(eval(plain, {empty}).dimensions(), (Dims{0, 0}));
    EXPECT_EQ(eval(g, {empty}).dimensions(), (Dims{0, 4}));
    EXPECT_EQ(eval(g, {HostArray::cellOf({empty})}).dimensions(), (Dims{0, 4}));
}

TEST(Evaluation1D, QueryChecks) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 1, 4})});
    HostArray i32 = HostArray::createNumeric({1, 2}, ClassId::Int32);
    const HostArray z = HostArray::fromComplex({1, 1}, {{1, 1}});
    const std::vector<std::pair<Args, const char*>> cases = {
        {{row({1}), row({1})}, "BadArgInterpEvalErrId"},
        {{i32}, "NonFloatInpPtsErrId"},
        {{text("a")}, "NonFloatInpPtsErrId"},
        {{sparse(row({1}))}, "SparseDataPtErrId"},
        {{z}, "ComplexDataPointErrId"},
        {{HostArray::cellOf({row({1}), row({1})})}, "NumCoordsGridNdimsMismatchErrId"},
        {{HostArray::createCell(1, 1)}, "NumCoordsGridNdimsMismatchErrId"},
        {{HostArray::cellOf({i32})}, "NonFloatInpPtsErrId"},
        {{HostArray::cellOf({filled({2, 2}, [](auto) { return 0.; })})}, "NonVecCompVecErrId"},
        {{HostArray::cellOf({z})}, "ComplexDataPointErrId"},
    };
    for (const auto& [q, key] : cases)
        EXPECT_EQ(evalId(g, q), gi(key)) << key;
    try {
        (void)eval(g, {row({1}), row({1})});
    } catch (const mathinterp::BadArgInterpEvalErrId& e) {
        ASSERT_EQ(e.args().size(), 1u);
        EXPECT_EQ(std::get<std::int64_t>(e.args()[0]), 1);
    }
}

TEST(Evaluation1D, FailedEvaluationChangesNothing) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 1, 4}), text("nearest"), text("none")});
    const HostArray grid = g.gridVectors(), values = g.values(), m = g.method(),
                    e = g.extrapolationMethod();
    const auto ev = g.evaluator();
    EXPECT_EQ(evalId(g, {HostArray::fromComplex({1, 1}, {{1, 1}})}), gi("ComplexDataPointErrId"));
    EXPECT_TRUE(g.gridVectors().sameArray(grid));
    EXPECT_TRUE(g.values().sameArray(values));
    EXPECT_TRUE(g.method().sameArray(m));
    EXPECT_TRUE(g.extrapolationMethod().sameArray(e));
    EXPECT_EQ(g.evaluator(), ev);
}

TEST(Evaluation1D, LazyRebuild) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 1, 4})});
    const HostArray before = eval(g, {row({0.25, 1.75})});
    g.discardEvaluator();
    EXPECT_FALSE(g.evaluator());
    const HostArray after = eval(g, {row({0.25, 1.75})});
    EXPECT_TRUE(g.evaluator());
    EXPECT_TRUE(g.evaluatorCurrent());
    for (std::uint64_t i = 0; i < 2; ++i)
        EXPECT_SAME_BITS(after.realAt(i), before.realAt(i));
}

// ---- N-D query handling, through the recording evaluator ----------------------------------

namespace {

struct NdFixture {
    GriddedInterpolant g;
    std::shared_ptr<RecordingEvaluator> rec;
    NdFixture(Dims valueDims, std::uint64_t planes, std::uint64_t d = 2) {
        std::vector<HostArray> vecs;
        for (std::uint64_t k = 0; k < d; ++k)
            vecs.push_back(oneTo(valueDims[k]));
        HostArray grid = HostArray::createCell(1, d);
        for (std::uint64_t k = 0; k < d; ++k)
            grid.setCell(k, vecs[k]);
        rec = withRecorder(g, grid, filled(valueDims, [](auto i) { return double(i); }), planes);
    }
};

// The recorder's function of a point.
double f2(double x, double y, std::uint64_t plane = 0) {
    return 1000.0 * double(plane) + x + 20 * y;
}

} // namespace

TEST(EvaluationND, PointMatrix) {
    NdFixture plain({3, 4}, 1);
    const HostArray pts = filled({5, 2}, [](auto i) { return double(i) + 0.5; });
    const HostArray out = eval(plain.g, {pts});
    EXPECT_EQ(out.dimensions(), (Dims{5, 1}));
    EXPECT_EQ(plain.rec->scatteredCalls, 1);
    EXPECT_EQ(plain.rec->lastM, 5u);
    EXPECT_TRUE(plain.rec->lastQueries.sameArray(pts)); // already d columns of m points
    for (std::uint64_t i = 0; i < 5; ++i)
        EXPECT_EQ(out.realAt(i), f2(double(i) + 0.5, double(i) + 5.5));

    NdFixture sets({3, 4, 2}, 2);
    const HostArray outSets = eval(sets.g, {pts});
    EXPECT_EQ(outSets.dimensions(), (Dims{5, 1, 2}));
    EXPECT_EQ(outSets.realAt(5 + 1), f2(1.5, 6.5, 1));

    EXPECT_EQ(evalId(plain.g, {filled({5, 3}, [](auto) { return 0.; })}),
              gi("BadArgInterpEvalErrId"));
    EXPECT_EQ(evalId(plain.g, {filled({5, 2, 2}, [](auto) { return 0.; })}),
              gi("BadArgInterpEvalErrId"));
    EXPECT_EQ(evalId(plain.g, {oneTo(3), oneTo(3), oneTo(3)}), gi("BadArgInterpEvalErrId"));
    EXPECT_EQ(eval(plain.g, {HostArray::createNumeric({0, 2}, ClassId::Double)}).dimensions(),
              (Dims{0, 1}));
}

TEST(EvaluationND, NdgridArraysAreEvaluatedGridded) {
    NdFixture f({3, 4, 2}, 2);
    // ndgrid of [0.5 1.5 2.5] and [1 3]: 3 x 2 arrays.
    const HostArray X = filled({3, 2}, [](auto i) { return 0.5 + double(i % 3); });
    const HostArray Y = filled({3, 2}, [](auto i) { return 1.0 + 2.0 * double(i / 3); });
    WarningCounter w;
    const HostArray out = eval(f.g, {X, Y});
    EXPECT_EQ(w.total(), 0);
    EXPECT_EQ(f.rec->griddedCalls, 1);
    EXPECT_EQ(f.rec->scatteredCalls, 0);
    EXPECT_EQ(out.dimensions(), (Dims{3, 2, 2}));
    ASSERT_EQ(f.rec->lastVectors.numberOfElements(), 2u);
    EXPECT_EQ(f.rec->lastVectors.getCell(0).dimensions(), (Dims{1, 3}));
    EXPECT_EQ(f.rec->lastVectors.getCell(1).dimensions(), (Dims{1, 2}));
    for (std::uint64_t p = 0; p < 2; ++p)
        for (std::uint64_t i = 0; i < 6; ++i)
            EXPECT_EQ(out.realAt(p * 6 + i), f2(X.realAt(i), Y.realAt(i), p));
}

TEST(EvaluationND, MeshgridArraysWarnAndAreEvaluatedPointByPoint) {
    NdFixture f({3, 4}, 1);
    // meshgrid of x = [0.5 1.5 2.5], y = [1 3]: 2 x 3 arrays.
    const HostArray X = filled({2, 3}, [](auto i) { return 0.5 + double(i / 2); });
    const HostArray Y = filled({2, 3}, [](auto i) { return 1.0 + 2.0 * double(i % 2); });
    WarningCounter w;
    const HostArray out = eval(f.g, {X, Y});
    EXPECT_EQ(w.count("MeshgridEval2DWarnId"), 1);
    EXPECT_EQ(w.total(), 1);
    EXPECT_EQ(f.rec->scatteredCalls, 1);
    EXPECT_EQ(out.dimensions(), (Dims{2, 3}));
    for (std::uint64_t i = 0; i < 6; ++i)
        EXPECT_EQ(out.realAt(i), f2(X.realAt(i), Y.realAt(i)));

    NdFixture f3({3, 4, 5}, 1, 3);
    auto mesh = [](int k) {
        // meshgrid(1:2, 1:3, 1:4) arrays, 3 x 2 x 4.
        return filled({3, 2, 4}, [k](auto i) {
            const double sub[] = {double((i / 3) % 2), double(i % 3), double(i / 6)};
            return 1.0 + sub[k];
        });
    };
    WarningCounter w3;
    EXPECT_EQ(eval(f3.g, {mesh(0), mesh(1), mesh(2)}).dimensions(), (Dims{3, 2, 4}));
    EXPECT_EQ(w3.count("MeshgridEval3DWarnId"), 1);
    EXPECT_EQ(f3.rec->scatteredCalls, 1);
}

TEST(EvaluationND, ScatteredArraysArePackedColumnByColumn) {
    NdFixture f({3, 4}, 1);
    const HostArray X = HostArray::fromSingles({2, 3}, {0.5f, 2.5f, 1, 2, 0.25f, 3});
    const HostArray Y = HostArray::fromSingles({2, 3}, {1, 4, 3, 3.5f, 2, 1});
    WarningCounter w;
    const HostArray out = eval(f.g, {X, Y});
    EXPECT_EQ(w.total(), 0);
    EXPECT_EQ(out.classId(), ClassId::Double); // the values' class, not the queries'
    EXPECT_EQ(out.dimensions(), (Dims{2, 3}));
    const HostArray& packed = f.rec->lastQueries;
    EXPECT_EQ(f.rec->lastM, 6u);
    ASSERT_EQ(packed.classId(), ClassId::Single);
    ASSERT_EQ(packed.numberOfElements(), 12u);
    for (std::uint64_t i = 0; i < 6; ++i) {
        EXPECT_EQ(packed.realAt(i), X.realAt(i));
        EXPECT_EQ(packed.realAt(6 + i), Y.realAt(i));
        EXPECT_EQ(out.realAt(i), f2(X.realAt(i), Y.realAt(i)));
    }
}

TEST(EvaluationND, ScatteredShapesWithValueSets) {
    auto scattered = [](Dims dims) {
        // Distinct values everywhere: never an ndgrid.
        return filled(dims, [](auto i) { return 0.1 * double(i * i); });
    };
    NdFixture f({3, 4, 2}, 2);
    EXPECT_EQ(eval(f.g, {scattered({2, 3}), scattered({2, 3})}).dimensions(), (Dims{2, 3, 2}));
    EXPECT_EQ(eval(f.g, {scattered({2, 3, 2}), scattered({2, 3, 2})}).dimensions(),
              (Dims{12, 1, 2}));
    NdFixture plain({3, 4}, 1);
    EXPECT_EQ(eval(plain.g, {scattered({2, 3, 2}), scattered({2, 3, 2})}).dimensions(),
              (Dims{2, 3, 2}));
    // Fewer dimensions than the grid: extents first, then 1 up to d, then the sets.
    NdFixture f3({3, 4, 5, 2}, 2, 3);
    EXPECT_EQ(eval(f3.g, {scattered({2, 3}), scattered({2, 3}), scattered({2, 3})}).dimensions(),
              (Dims{2, 3, 1, 2}));
    // Empty arrays: shaped, not evaluated.
    const HostArray e = HostArray::createNumeric({0, 3}, ClassId::Double);
    EXPECT_EQ(eval(f.g, {e, e}).dimensions(), (Dims{0, 3, 2}));
    EXPECT_EQ(f.rec->scatteredCalls + f.rec->griddedCalls, 2);
}

TEST(EvaluationND, CoordinateArrayChecks) {
    NdFixture f({3, 4}, 1);
    const HostArray a = oneTo(3);
    HostArray i32 = HostArray::createNumeric({1, 3}, ClassId::Int32);
    const std::vector<std::pair<Args, const char*>> cases = {
        {{a, i32}, "NonFloatInpPtsErrId"},
        {{a, sparse(oneTo(3))}, "SparseDataPtErrId"},
        {{a, HostArray::fromComplex({1, 3}, {{1, 0}, {2, 0}, {3, 0}})}, "ComplexDataPointErrId"},
        {{a, rowSingle({1, 2, 3})}, "QueryOfMixedDataTypesErrId"},
        {{a, oneTo(4)}, "InputMixSizeErrId"},
        {{a, col({1, 2, 3})}, "InputMixSizeErrId"},
        {{i32, rowSingle({1, 2, 3})}, "NonFloatInpPtsErrId"},
    };
    for (const auto& [q, key] : cases)
        EXPECT_EQ(evalId(f.g, q), gi(key)) << key;
    EXPECT_EQ(f.rec->scatteredCalls + f.rec->griddedCalls, 0);
}

TEST(EvaluationND, CellOfQueryVectors) {
    NdFixture f({3, 4, 2}, 2);
    const HostArray out = eval(f.g, {HostArray::cellOf({row({0.5, 1.5, 2.5}), col({1, 3})})});
    EXPECT_EQ(out.dimensions(), (Dims{3, 2, 2}));
    EXPECT_EQ(f.rec->griddedCalls, 1);
    EXPECT_EQ(out.realAt(6 + 4), f2(1.5, 3, 1));
    // An empty vector gives extent 0 and no engine call.
    const HostArray e = HostArray::createNumeric({0, 0}, ClassId::Double);
    EXPECT_EQ(eval(f.g, {HostArray::cellOf({e, oneTo(4)})}).dimensions(), (Dims{0, 4, 2}));
    EXPECT_EQ(f.rec->griddedCalls, 1);

    HostArray hole = HostArray::createCell(1, 2);
    hole.setCell(0, oneTo(2));
    const std::vector<std::pair<HostArray, const char*>> cases = {
        {HostArray::cellOf({oneTo(2)}), "NumCoordsGridNdimsMismatchErrId"},
        {HostArray::cellOf({oneTo(2), oneTo(2), oneTo(2)}), "NumCoordsGridNdimsMismatchErrId"},
        {hole, "NumCoordsGridNdimsMismatchErrId"},
        {HostArray::cellOf({oneTo(2), rowSingle({1})}), "GridOfMixedDataTypesErrId"},
        {HostArray::cellOf({oneTo(2), filled({2, 2}, [](auto) { return 1.; })}),
         "NonVecCompVecErrId"},
        {HostArray::cellOf({filled({2, 2}, [](auto) { return 1.; }), rowSingle({1})}),
         "GridOfMixedDataTypesErrId"},
    };
    for (const auto& [q, key] : cases)
        EXPECT_EQ(evalId(f.g, {q}), gi(key)) << key;
}

TEST(EvaluationND, SingleValuesGiveSingleOutput) {
    GriddedInterpolant g;
    const HostArray values = HostArray::fromSingles({3, 4}, std::vector<float>(12, 1.f));
    auto rec = withRecorder(g, HostArray::cellOf({oneTo(3), oneTo(4)}), values, 1);
    EXPECT_EQ(eval(g, {filled({4, 2}, [](auto) { return 1.5; })}).classId(), ClassId::Single);
    EXPECT_EQ(eval(g, {oneTo(2), oneTo(2)}).classId(), ClassId::Single);
}

// ---- N-D end to end, once N-D linear interpolation is built --------------------------------

TEST(EvaluationND, LinearEndToEnd) {
    if (!mathinterp::LinearND<double, double>::available)
        GTEST_SKIP() << "N-D linear interpolation is not part of this build yet";
    // v = x + 10 y on x = 0, 1, 3 and y = 0, 2, 4, 8: reproduced exactly (dyadic weights).
    const std::vector<double> x{0, 1, 3}, y{0, 2, 4, 8};
    const HostArray v = filled({3, 4}, [&](auto i) { return x[i % 3] + 10 * y[i / 3]; });
    GriddedInterpolant g = make({HostArray::cellOf({row(x), row(y)}), v});
    const HostArray pts = HostArray::fromDoubles({3, 2}, {0.5, 2, 3, 1, 3, 6});
    const HostArray out = eval(g, {pts});
    ASSERT_EQ(out.dimensions(), (Dims{3, 1}));
    EXPECT_SAME_BITS(out.realAt(0), 0.5 + 10);
    EXPECT_SAME_BITS(out.realAt(1), 2.0 + 30);
    EXPECT_SAME_BITS(out.realAt(2), 3.0 + 60);
    const HostArray grid = eval(g, {HostArray::cellOf({row({0.5, 2}), row({1, 6})})});
    ASSERT_EQ(grid.dimensions(), (Dims{2, 2}));
    EXPECT_SAME_BITS(grid.realAt(3), 2.0 + 60);
    EXPECT_EQ(evalId(g, {filled({5, 3}, [](auto) { return 0.; })}), gi("BadArgInterpEvalErrId"));
}

TEST(EvaluationND, QueryFormsAgreeEndToEnd) {
    if (!mathinterp::LinearND<double, double>::available)
        GTEST_SKIP() << "N-D linear interpolation is not part of this build yet";
    // Values encode the index (v = i + 10 j + 100 s) so a swapped axis or a wrong value-set
    // stride shows; random-ish values on top keep the interpolation non-trivial.
    const std::vector<double> x{0, 1, 2.5, 4}, y{-1, 0, 3};
    const HostArray v = filled({4, 3, 2}, [](auto i) {
        return double(i % 4) + 10.0 * double((i / 4) % 3) + 100.0 * double(i / 12) +
               0.125 * double((i * 7) % 5);
    });
    for (const char* extrap : {"linear", "none", "nearest"}) {
        GriddedInterpolant g =
            make({HostArray::cellOf({row(x), row(y)}), v, text("linear"), text(extrap)});
        const std::vector<double> xq{-0.5, 0.25, 1, 3.75, 5}, yq{-1.5, -0.5, 2, 3};
        const std::uint64_t p = xq.size(), q = yq.size();
        const HostArray X = filled({p, q}, [&](auto i) { return xq[i % p]; });
        const HostArray Y = filled({p, q}, [&](auto i) { return yq[i / p]; });
        HostArray P = HostArray::createNumeric({p * q, 2}, ClassId::Double);
        for (std::uint64_t i = 0; i < p * q; ++i) {
            P.data<double>()[i] = X.realAt(i);
            P.data<double>()[p * q + i] = Y.realAt(i);
        }
        WarningCounter w;
        const HostArray gridded = eval(g, {HostArray::cellOf({row(xq), row(yq)})});
        const HostArray ndgrid = eval(g, {X, Y});
        const HostArray matrix = eval(g, {P});
        // Meshgrid order of the same points: transposed arrays, evaluated point by point.
        const HostArray MX = filled({q, p}, [&](auto i) { return xq[i / q]; });
        const HostArray MY = filled({q, p}, [&](auto i) { return yq[i % q]; });
        const HostArray mesh = eval(g, {MX, MY});
        EXPECT_EQ(w.count("MeshgridEval2DWarnId"), 1);
        ASSERT_EQ(gridded.dimensions(), (Dims{p, q, 2}));
        ASSERT_EQ(ndgrid.dimensions(), (Dims{p, q, 2}));
        ASSERT_EQ(matrix.dimensions(), (Dims{p * q, 1, 2}));
        ASSERT_EQ(mesh.dimensions(), (Dims{q, p, 2}));
        for (std::uint64_t s = 0; s < 2; ++s)
            for (std::uint64_t j = 0; j < q; ++j)
                for (std::uint64_t i = 0; i < p; ++i) {
                    const std::uint64_t k = s * p * q + j * p + i;
                    const double ref = gridded.realAt(k);
                    EXPECT_SAME_BITS(ndgrid.realAt(k), ref) << extrap;
                    EXPECT_SAME_BITS(matrix.realAt(k), ref) << extrap;
                    EXPECT_SAME_BITS(mesh.realAt(s * p * q + i * q + j), ref) << extrap;
                }
        // A node of the grid is reproduced exactly: (x=2.5, y=0) in value set 1.
        const HostArray node = eval(g, {HostArray::fromDoubles({1, 2}, {2.5, 0})});
        EXPECT_SAME_BITS(node.realAt(1), v.realAt(12 + 4 + 2));
    }
}
