// Evaluation entry: every query form and its checks with their identifiers (a failed
// evaluation changes nothing), the output shape (value sets, fewer query dimensions than grid
// dimensions, empty queries), class and complexity, the packing of scattered N-D queries,
// ndgrid arrays evaluated as a grid and meshgrid arrays point by point with a warning. The
// N-D query handling is checked through a recording evaluator.
#include "support/Interpolant.hpp"
#include "support/InterpolantMaking.hpp"

#include "support/Bits.hpp"

#include <cmath>
#include <complex>

using namespace itest;
using mathinterp::GriddedInterpolant;

namespace {

HostArray constant(Dims d, double v) {
    return filled(d, [v](std::uint64_t) { return v; });
}

// An N-D interpolant over 1..n_k whose evaluator records its calls (see RecordingEvaluator).
struct Recorded {
    GriddedInterpolant g;
    std::shared_ptr<RecordingEvaluator> rec;
    Recorded(Dims valueDims, std::uint64_t planes, std::uint64_t d = 2) {
        HostArray grid = HostArray::createCell(1, d);
        for (std::uint64_t k = 0; k < d; ++k)
            grid.setCell(k, oneTo(valueDims[k]));
        rec = withRecorder(g, grid, filled(valueDims, [](auto i) { return double(i); }), planes);
    }
    int calls() const { return rec->scatteredCalls + rec->griddedCalls; }
};

// The recorder's function of a 2-D point.
double f2(double x, double y, std::uint64_t plane = 0) {
    return 1000.0 * double(plane) + x + 20 * y;
}

} // namespace

TEST(Evaluation, QueryChecks) {
    GriddedInterpolant g = make({row({0, 1, 2}), row({0, 1, 4}), text("nearest"), text("none")});
    Recorded f({3, 4}, 1);
    const HostArray grid = g.gridVectors(), values = g.values();
    const auto ev = g.evaluator();
    const HostArray i32 = HostArray::createNumeric({1, 3}, ClassId::Int32), a = oneTo(3);
    const HostArray z = HostArray::fromComplex({1, 1}, {{1, 1}});
    const HostArray m22 = constant({2, 2}, 1), e = HostArray::createCell(1, 1);
    HostArray hole = HostArray::createCell(1, 2);
    hole.setCell(0, oneTo(2));
    auto cell = [](std::initializer_list<HostArray> v) { return HostArray::cellOf(v); };
    const struct {
        GriddedInterpolant* g;
        Args q;
        const char* key;
    } cases[] = {
        {&g, {row({1}), row({1})}, "BadArgInterpEvalErrId"},
        {&g, {i32}, "NonFloatInpPtsErrId"},
        {&g, {text("a")}, "NonFloatInpPtsErrId"},
        {&g, {sparse(row({1}))}, "SparseDataPtErrId"},
        {&g, {z}, "ComplexDataPointErrId"},
        {&g, {cell({row({1}), row({1})})}, "NumCoordsGridNdimsMismatchErrId"},
        {&g, {e}, "NumCoordsGridNdimsMismatchErrId"},
        {&g, {cell({i32})}, "NonFloatInpPtsErrId"},
        {&g, {cell({m22})}, "NonVecCompVecErrId"},
        {&g, {cell({z})}, "ComplexDataPointErrId"},
        {&f.g, {constant({5, 3}, 0)}, "BadArgInterpEvalErrId"},
        {&f.g, {constant({5, 2, 2}, 0)}, "BadArgInterpEvalErrId"},
        {&f.g, {a, a, a}, "BadArgInterpEvalErrId"},
        {&f.g, {a, i32}, "NonFloatInpPtsErrId"},
        {&f.g, {a, sparse(oneTo(3))}, "SparseDataPtErrId"},
        {&f.g, {a, HostArray::fromComplex({1, 3}, {1, 2, 3})}, "ComplexDataPointErrId"},
        {&f.g, {a, rowSingle({1, 2, 3})}, "QueryOfMixedDataTypesErrId"},
        {&f.g, {a, oneTo(4)}, "InputMixSizeErrId"},
        {&f.g, {a, col({1, 2, 3})}, "InputMixSizeErrId"},
        {&f.g, {i32, rowSingle({1, 2, 3})}, "NonFloatInpPtsErrId"},
        {&f.g, {cell({oneTo(2)})}, "NumCoordsGridNdimsMismatchErrId"},
        {&f.g, {cell({oneTo(2), oneTo(2), oneTo(2)})}, "NumCoordsGridNdimsMismatchErrId"},
        {&f.g, {hole}, "NumCoordsGridNdimsMismatchErrId"},
        {&f.g, {cell({oneTo(2), rowSingle({1})})}, "GridOfMixedDataTypesErrId"},
        {&f.g, {cell({oneTo(2), m22})}, "NonVecCompVecErrId"},
        {&f.g, {cell({m22, rowSingle({1})})}, "GridOfMixedDataTypesErrId"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(evalId(*c.g, c.q), gi(c.key)) << c.key << " " << c.q.size();
    EXPECT_EQ(f.calls(), 0);
    EXPECT_TRUE(g.gridVectors().sameArray(grid) && g.values().sameArray(values));
    EXPECT_EQ(g.evaluator(), ev);
    try {
        (void)eval(g, {row({1}), row({1})});
    } catch (const mathinterp::BadArgInterpEvalErrId& err) {
        ASSERT_EQ(err.args().size(), 1u);
        EXPECT_EQ(std::get<std::int64_t>(err.args()[0]), 1);
    }
}

// The query's extents, then (fewer query dimensions than the grid) 1 up to d, then the
// value-set extents; empty queries keep the rule and are not evaluated; cell queries give the
// vector lengths.
TEST(Evaluation, OutputShapes) {
    const HostArray x = row({0, 1, 2, 3, 4});
    GriddedInterpolant plain = make({x, col({0, 1, 2, 3, 4})});
    GriddedInterpolant sets = make({HostArray::cellOf({x}), constant({5, 4}, 1)});
    GriddedInterpolant sets3 = make({HostArray::cellOf({x}), constant({5, 4, 2}, 1)});
    Recorded nd({3, 4}, 1), ndSets({3, 4, 2}, 2), nd3({3, 4, 5, 2}, 2, 3);
    // Distinct values everywhere: never an ndgrid.
    auto pts = [](Dims d) { return filled(d, [](auto i) { return 0.1 * double(i * i); }); };
    const HostArray q23 = pts({2, 3}), q232 = pts({2, 3, 2}), e00 = constant({0, 0}, 0);
    const HostArray e03 = constant({0, 3}, 0), v3 = row({1, 2, 3});
    const struct {
        GriddedInterpolant* g;
        Args q;
        Dims dims;
    } cases[] = {
        {&plain, {q23}, {2, 3}},
        {&plain, {row({1, 2})}, {1, 2}},
        {&sets, {q23}, {6, 4}},
        {&sets3, {v3}, {3, 4, 2}},
        {&plain, {HostArray::cellOf({v3})}, {3, 1}},
        {&sets, {HostArray::cellOf({v3})}, {3, 4}},
        {&plain, {e00}, {0, 0}},
        {&sets, {e00}, {0, 4}},
        {&sets, {HostArray::cellOf({e00})}, {0, 4}},
        {&nd.g, {pts({5, 2})}, {5, 1}},
        {&ndSets.g, {pts({5, 2})}, {5, 1, 2}},
        {&nd.g, {HostArray::createNumeric({0, 2}, ClassId::Double)}, {0, 1}},
        {&ndSets.g, {q23, q23}, {2, 3, 2}},
        {&ndSets.g, {q232, q232}, {12, 1, 2}},
        {&nd.g, {q232, q232}, {2, 3, 2}},
        {&nd3.g, {q23, q23, q23}, {2, 3, 1, 2}},
        {&ndSets.g, {e03, e03}, {0, 3, 2}},
        {&ndSets.g, {HostArray::cellOf({e00, oneTo(4)})}, {0, 4, 2}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(eval(*cases[i].g, cases[i].q).dimensions(), cases[i].dims) << "case " << i;
    EXPECT_EQ(ndSets.calls(), 3) << "empty queries reach no evaluator";
}

// The output takes the values' class and complexity, never the queries'.
TEST(Evaluation, OutputClassFollowsTheValues) {
    GriddedInterpolant gd = make({row({0, 1, 2}), row({0, 1, 4})});
    GriddedInterpolant gs = make({row({0, 1, 2}), rowSingle({0, 1, 4})});
    GriddedInterpolant gz =
        make({row({0, 1, 2}), HostArray::fromComplex({1, 3}, {{0, 4}, {2, 0}, {4, -4}})});
    const HostArray outD = eval(gd, {rowSingle({0.5f, 1.5f})}), outS = eval(gs, {row({0.5, 1.5})});
    ASSERT_EQ(outD.classId(), ClassId::Double);
    EXPECT_SAME_BITS(outD.data<double>()[1], 2.5);
    ASSERT_EQ(outS.classId(), ClassId::Single);
    EXPECT_SAME_BITS(outS.data<float>()[1], 2.5f);
    EXPECT_EQ(eval(gd, {HostArray::cellOf({rowSingle({1})})}).classId(), ClassId::Double);
    const HostArray outZ = eval(gz, {col({0.5, 1.5})});
    ASSERT_TRUE(outZ.isComplex());
    EXPECT_EQ(outZ.dimensions(), (Dims{2, 1}));
    EXPECT_SAME_BITS(outZ.realAt(1), 3.0);
    EXPECT_SAME_BITS(outZ.imagAt(1), -2.0);
    GriddedInterpolant nd;
    withRecorder(nd, HostArray::cellOf({oneTo(3), oneTo(4)}),
                 HostArray::fromSingles({3, 4}, std::vector<float>(12, 1.f)), 1);
    EXPECT_EQ(eval(nd, {constant({4, 2}, 1.5)}).classId(), ClassId::Single);
    EXPECT_EQ(eval(nd, {oneTo(2), oneTo(2)}).classId(), ClassId::Single);
}

TEST(Evaluation, PointMatrixIsPassedAsItIs) {
    Recorded f({3, 4, 2}, 2);
    const HostArray pts = filled({5, 2}, [](auto i) { return double(i) + 0.5; });
    const HostArray out = eval(f.g, {pts});
    EXPECT_EQ(f.rec->scatteredCalls, 1);
    EXPECT_EQ(f.rec->lastM, 5u);
    EXPECT_TRUE(f.rec->lastQueries.sameArray(pts)); // already d columns of m points
    for (std::uint64_t p = 0; p < 2; ++p)
        for (std::uint64_t i = 0; i < 5; ++i)
            EXPECT_EQ(out.realAt(p * 5 + i), f2(double(i) + 0.5, double(i) + 5.5, p));
}

TEST(Evaluation, ScatteredArraysArePackedColumnByColumn) {
    Recorded f({3, 4}, 1);
    const HostArray X = HostArray::fromSingles({2, 3}, {0.5f, 2.5f, 1, 2, 0.25f, 3});
    const HostArray Y = HostArray::fromSingles({2, 3}, {1, 4, 3, 3.5f, 2, 1});
    WarningCounter w;
    const HostArray out = eval(f.g, {X, Y});
    EXPECT_EQ(w.total(), 0);
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

// ndgrid arrays and cells of vectors are one gridded call on the vectors; meshgrid arrays
// (2-D and 3-D) warn once and are evaluated point by point.
TEST(Evaluation, GridArraysAndCellsAreGriddedMeshgridWarns) {
    Recorded f({3, 4, 2}, 2);
    const HostArray X = filled({3, 2}, [](auto i) { return 0.5 + double(i % 3); });
    const HostArray Y = filled({3, 2}, [](auto i) { return 1.0 + 2.0 * double(i / 3); });
    const HostArray vectors = HostArray::cellOf({row({0.5, 1.5, 2.5}), col({1, 3})});
    WarningCounter w;
    for (const Args& q : {Args{X, Y}, Args{vectors}}) {
        const HostArray out = eval(f.g, q);
        EXPECT_EQ(out.dimensions(), (Dims{3, 2, 2}));
        EXPECT_EQ(f.rec->lastVectors.getCell(0).numberOfElements(), 3u);
        EXPECT_EQ(f.rec->lastVectors.getCell(1).numberOfElements(), 2u);
        for (std::uint64_t p = 0; p < 2; ++p)
            for (std::uint64_t i = 0; i < 6; ++i)
                EXPECT_EQ(out.realAt(p * 6 + i), f2(X.realAt(i), Y.realAt(i), p));
    }
    EXPECT_EQ(f.rec->griddedCalls, 2);
    EXPECT_EQ(f.rec->scatteredCalls, 0);
    EXPECT_EQ(w.total(), 0);

    Recorded m({3, 4}, 1);
    const HostArray MX = filled({2, 3}, [](auto i) { return 0.5 + double(i / 2); });
    const HostArray MY = filled({2, 3}, [](auto i) { return 1.0 + 2.0 * double(i % 2); });
    const HostArray out = eval(m.g, {MX, MY});
    EXPECT_EQ(w.count("MeshgridEval2DWarnId"), 1);
    EXPECT_EQ(m.rec->scatteredCalls, 1);
    EXPECT_EQ(out.dimensions(), (Dims{2, 3}));
    for (std::uint64_t i = 0; i < 6; ++i)
        EXPECT_EQ(out.realAt(i), f2(MX.realAt(i), MY.realAt(i)));
    Recorded m3({3, 4, 5}, 1, 3);
    auto mesh = [](int k) { // meshgrid(1:2, 1:3, 1:4) arrays, 3 x 2 x 4
        return filled({3, 2, 4}, [k](auto i) {
            const double sub[] = {double((i / 3) % 2), double(i % 3), double(i / 6)};
            return 1.0 + sub[k];
        });
    };
    EXPECT_EQ(eval(m3.g, {mesh(0), mesh(1), mesh(2)}).dimensions(), (Dims{3, 2, 4}));
    EXPECT_EQ(w.count("MeshgridEval3DWarnId"), 1);
    EXPECT_EQ(w.total(), 2);
    EXPECT_EQ(m3.rec->scatteredCalls, 1);
}
