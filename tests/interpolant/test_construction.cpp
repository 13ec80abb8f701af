// Construction of the interpolant: every accepted argument form, the identifier of the first
// failing check for every invalid input (and the precedence between checks), the stored
// fields and the default grid, grid vectors from ndgrid arrays, the split layout of complex
// values, and that a failed construction stores nothing.
#include "support/Interpolant.hpp"
#include "support/InterpolantMaking.hpp"

#include "mathinterp/interpolant/GridValidation.hpp"
#include "mathinterp/methods/LinearND.hpp"

#include <cmath>
#include <complex>
#include <limits>

using namespace itest;
using mathinterp::GriddedInterpolant;

namespace {

HostArray int32Row() {
    return HostArray::createNumeric({1, 3}, ClassId::Int32);
}

HostArray complexRow(std::vector<double> re) {
    std::vector<std::complex<double>> z;
    for (double r : re)
        z.emplace_back(r, 1.0);
    return HostArray::fromComplex({1, z.size()}, z);
}

// Arrays whose element i holds f(sub) for its subscripts sub (first fastest).
HostArray bySubscript(Dims dims, const std::function<double(const std::vector<double>&)>& f) {
    return filled(dims, [&](std::uint64_t i) {
        std::vector<double> sub;
        for (std::uint64_t e : dims)
            sub.push_back(double(i % e)), i /= e;
        return f(sub);
    });
}

// ndgrid arrays of two vectors: X varies along dimension 1, Y along dimension 2.
std::pair<HostArray, HostArray> ndgrid2(const std::vector<double>& x,
                                        const std::vector<double>& y) {
    const Dims d{x.size(), y.size()};
    return {bySubscript(d, [&](auto& s) { return x[std::size_t(s[0])]; }),
            bySubscript(d, [&](auto& s) { return y[std::size_t(s[1])]; })};
}

HostArray V34() {
    return filled({3, 4}, [](std::uint64_t i) { return static_cast<double>(i); });
}

HostArray zeros(Dims d) {
    return filled(d, [](std::uint64_t) { return 0.0; });
}

} // namespace

TEST(Construction, FirstFailingCheckWins) {
    const HostArray x3 = oneTo(3), x4 = oneTo(4), v3 = oneTo(3), v5 = oneTo(5);
    const auto [X, Y] = ndgrid2({1, 2, 3}, {1, 2, 3, 4});
    const auto [X4, Y3] = ndgrid2({1, 2, 3, 4}, {1, 2, 3});
    const auto [Xdown, Yup] = ndgrid2({3, 2, 1}, {1, 2, 3, 4});
    HostArray hole = HostArray::createCell(1, 2), Xnan = X.deepCopy();
    hole.setCell(0, oneTo(3));
    Xnan.data<double>()[5] = NAN;
    auto cell = [](std::initializer_list<HostArray> v) { return HostArray::cellOf(v); };
    // meshgrid(1:3, 1:4) and meshgrid(1:2, 1:3, 1:4): the first two extents swapped.
    auto mesh = [](Dims d, std::size_t k) {
        return bySubscript(d, [k](auto& s) { return 1 + s[k == 0 ? 1 : k == 1 ? 0 : k]; });
    };
    const float finf = std::numeric_limits<float>::infinity();
    const struct {
        Args args;
        const char* key;
    } cases[] = {
        // Argument sorting.
        {{text("linear")}, "NonFloatValuesErrId"},
        {{cell({x3})}, "NonFloatValuesErrId"},
        {{int32Row()}, "NonFloatValuesErrId"},
        {{v3, cell({oneTo(1)})}, "NonFloatValuesErrId"},
        {{x3, v3, text("linear"), HostArray::scalar(1)}, "NonFloatValuesErrId"},
        {{x3, v3, text("linear"), text("none"), text("x")}, "NonFloatValuesErrId"},
        {{int32Row(), v3}, "NonFloatValuesErrId"},
        {{cell({x3}), v3, v3}, "SampleValuesNotSecond"},
        // Values.
        {{sparse(oneTo(3))}, "SparseInterpValuesErrId"},
        {{HostArray::scalar(1)}, "DegenerateGridErrId"},
        {{HostArray::createNumeric({0, 0}, ClassId::Double)}, "DegenerateGridErrId"},
        {{v5, HostArray::scalar(5)}, "DegenerateGridErrId"},
        {{cell({x3, x3}), v3}, "DegenerateGridErrId"},
        {{X, Y, zeros({3, 1})}, "DegenerateGridErrId"},
        {{cell({int32Row()}), sparse(oneTo(3))}, "SparseInterpValuesErrId"},
        // Cell grids.
        {{cell({x3, x4, x4}), V34()}, "NumCoordsGridNdimsMismatchErrId"},
        {{HostArray::createCell(1, 0), v3}, "NumCoordsGridNdimsMismatchErrId"},
        {{hole, V34()}, "NumCoordsGridNdimsMismatchErrId"},
        {{cell({int32Row()}), v3}, "NonFloatInpPtsErrId"},
        {{cell({sparse(oneTo(3))}), v3}, "SparseDataPtErrId"},
        {{cell({complexRow({1, 2, 3})}), v3}, "ComplexDataPointErrId"},
        {{cell({x3, rowSingle({1, 2, 3, 4})}), V34()}, "GridOfMixedDataTypesErrId"},
        {{cell({oneTo(7), rowSingle({1, 2, 3, 4})}), V34()}, "GridOfMixedDataTypesErrId"},
        {{cell({V34()}), zeros({3, 3})}, "NonVecCompVecErrId"},
        {{cell({x4}), v5}, "CompVecValueMismatchErrId"},
        {{cell({x3, oneTo(5)}), V34()}, "CompVecValueMismatchErrId"},
        {{cell({row({1, NAN, 2})}), v5}, "CompVecValueMismatchErrId"},
        {{cell({row({3, 2, 1})}), v3}, "NonMonotonicCompVecsErrId"},
        {{cell({row({1, 1, 2})}), v3}, "NonUniqueCompVecsPtsErrId"},
        {{cell({row({0, 1, 1})}), v3}, "NonUniqueCompVecsPtsErrId"},
        {{cell({row({1, NAN, 2})}), v3}, "NonFiniteInputPtsErrId"},
        {{cell({row({2, 1, 1, 3})}), oneTo(4)}, "NonUniqueCompVecsPtsErrId"},
        {{cell({row({3, 2, INFINITY})}), v3}, "NonFiniteInputPtsErrId"},
        {{cell({rowSingle({1, 2, finf})}), v3}, "NonFiniteInputPtsErrId"},
        // Full grid arrays.
        {{zeros({2, 2}), v3}, "MixedGridCoordSizeErrId"},
        {{x4, v5}, "CompVecValueMismatchErrId"},
        {{row({1, 1, 2}), v3}, "NonUniqueCompVecsPtsErrId"},
        {{X, Y, X, V34()}, "NumCoordsGridNdimsMismatchErrId"},
        {{X, int32Row(), V34()}, "NonFloatValuesErrId"},
        {{complexRow({1, 2, 3}), v3}, "ComplexDataPointErrId"},
        {{sparse(oneTo(3)), v3}, "SparseDataPtErrId"},
        {{X, HostArray::fromSingles({3, 4}, std::vector<float>(12, 1.f)), V34()},
         "GridOfMixedDataTypesErrId"},
        {{X4, Y3, V34()}, "MixedGridCoordSizeErrId"},
        {{mesh({4, 3}, 0), mesh({4, 3}, 1), zeros({4, 3})}, "NdgridNotMeshgrid2DErrId"},
        {{mesh({3, 2, 4}, 0), mesh({3, 2, 4}, 1), mesh({3, 2, 4}, 2), zeros({3, 2, 4})},
         "NdgridNotMeshgrid3DErrId"},
        {{V34(), V34(), V34()}, "BadGridErrId"},
        {{Xnan, Y, V34()}, "BadGridErrId"},
        {{Xdown, Yup, V34()}, "NonMonotonicCompVecsErrId"},
        // Words.
        {{x3, v3, text("cubical")}, "BadInterpTypeErrId"},
        {{x3, v3, text("Linear")}, "BadInterpTypeErrId"},
        {{x3, v3, text("none")}, "BadInterpTypeErrId"},
        {{x3, v3, HostArray::createChar({2, 2}, u"lili")}, "BadInterpTypeErrId"},
        {{x3, v3, HostArray::createString({1, 2}, {"linear", "linear"})}, "BadInterpTypeErrId"},
        {{x3, v3, text("linear ")}, "BadInterpTypeErrId"},
        {{x3, v3, text("")}, "BadInterpTypeErrId"},
        {{x3, v3, text("lin\xC3\xA9")}, "BadInterpTypeErrId"},
        {{x3, v3, text("linear"), text("constant")}, "ExtrapolationMethodInvalid"},
        {{x3, v3, text("linear"), text("nones")}, "ExtrapolationMethodInvalid"},
        {{x3, v3, text("linear"), HostArray::createChar({2, 3}, u"abcdef")},
         "ExtrapolationMethodInvalid"},
        {{x3, v3, text("foo"), text("bar")}, "BadInterpTypeErrId"},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(constructId(cases[i].args), gi(cases[i].key)) << "case " << i;
    EXPECT_EQ(constructId({x3, x3, text("linear"), HostArray::missingString()}),
              "QUARTZ:string:MissingNotSupported");
    try {
        GriddedInterpolant g;
        const Args a{cell({oneTo(3), oneTo(5)}), V34()};
        g.construct(2, a.data());
        FAIL() << "no error";
    } catch (const mathinterp::CompVecValueMismatchErrId& e) {
        ASSERT_EQ(e.args().size(), 2u);
        EXPECT_EQ(std::get<std::int64_t>(e.args()[0]), 2);
        EXPECT_EQ(std::get<std::int64_t>(e.args()[1]), 4);
    }
}

TEST(Construction, AcceptedForms) {
    const HostArray x = row({0, 1, 3}), v = row({0, 10, 30});
    const std::vector<std::pair<const char*, Args>> oneD = {
        {"(V)", {v}},
        {"(V, m)", {v, text("nearest")}},
        {"(V, m, e)", {v, text("nearest"), text("none")}},
        {"(x, V)", {x, v}},
        {"(x, V, m, e) as strings",
         {x, v, HostArray::stringScalar("previous"), HostArray::stringScalar("next")}},
        {"({x}, V)", {HostArray::cellOf({x}), v}},
        {"({x}, V, m)", {HostArray::cellOf({x}), v, text("next")}},
        {"(column x, row V)", {col({0, 1, 3}), v}},
        {"single grid, double values", {rowSingle({0, 1, 3}), v}},
        {"double grid, single values", {x, rowSingle({0, 10, 30})}},
        {"complex values", {x, complexRow({0, 10, 30})}},
        {"value sets", {HostArray::cellOf({x}), V34()}},
    };
    for (const auto& [name, args] : oneD) {
        GriddedInterpolant g;
        EXPECT_EQ(constructId(g, args), "") << name;
        EXPECT_TRUE(g.evaluator() && g.evaluatorCurrent() && g.fullyConstructed()) << name;
    }
    // N-D: ndgrid arrays (also over the first two extents of values with value sets), a cell,
    // or the default grid.
    const std::string nd = mathinterp::LinearND<double, double>::available ? "" : "MethodNotBuilt";
    const auto [X, Y] = ndgrid2({1, 2, 3}, {1, 2, 3, 4});
    EXPECT_EQ(constructId({X, Y, V34()}), nd);
    EXPECT_EQ(constructId({X, Y, filled({3, 4, 2}, [](auto i) { return double(i); })}), nd);
    EXPECT_EQ(constructId({HostArray::cellOf({oneTo(3), oneTo(4)}), V34()}), nd);
    EXPECT_EQ(constructId({V34(), text("linear"), text("none")}), nd);
}

TEST(Construction, StoredFieldsAndDefaultGrid) {
    const HostArray x = row({0, 1, 3}), v = col({0, 10, 30});
    GriddedInterpolant g;
    const Args a{HostArray::cellOf({x}), v, HostArray::stringScalar("nearest")};
    g.construct(3, a.data());
    // The user's arrays are shared, not copied; real values are the internal values. Final
    // words are char rows; the extrapolation word defaults to the method.
    EXPECT_TRUE(g.values().sameArray(v));
    EXPECT_TRUE(g.internalValues().sameArray(v));
    EXPECT_TRUE(g.gridVectors().sameArray(a[0]));
    EXPECT_FALSE(g.gridDefaulted());
    ASSERT_TRUE(g.method().isChar());
    EXPECT_EQ(g.method().dimension(0), 1u);
    EXPECT_EQ(textOf(g.method()), "nearest");
    EXPECT_EQ(textOf(g.extrapolationMethod()), "nearest");
    // Full grid array in 1-D: the vector itself is the grid vector.
    GriddedInterpolant h;
    EXPECT_EQ(constructId(h, {x, v}), "");
    EXPECT_TRUE(h.gridVectors().getCell(0).sameArray(x));
    // No grid: 1..n as a row, one vector per dimension for arrays, in the values' class.
    GriddedInterpolant d;
    EXPECT_EQ(constructId(d, {col({4, 5, 6, 7, 8})}), "");
    EXPECT_TRUE(d.gridDefaulted());
    EXPECT_EQ(d.gridVectors().getCell(0).dimensions(), (Dims{1, 5}));
    EXPECT_EQ(d.gridVectors().getCell(0).realAt(4), 5.0);
    const HostArray grid =
        mathinterp::makeDefaultGrid(HostArray::fromSingles({3, 2, 4}, std::vector<float>(24)));
    ASSERT_EQ(grid.numberOfElements(), 3u);
    const std::uint64_t lengths[] = {3, 2, 4};
    for (std::uint64_t k = 0; k < 3; ++k) {
        EXPECT_EQ(grid.getCell(k).classId(), ClassId::Single);
        EXPECT_EQ(grid.getCell(k).dimensions(), (Dims{1, lengths[k]}));
        EXPECT_EQ(grid.getCell(k).realAt(lengths[k] - 1), double(lengths[k]));
    }
    // No arguments: empty values, no evaluator, and evaluation reports the degenerate grid.
    GriddedInterpolant e;
    e.construct(0, nullptr);
    EXPECT_TRUE(e.values().isEmpty());
    EXPECT_FALSE(e.values().isNull());
    EXPECT_FALSE(e.evaluator());
    EXPECT_EQ(textOf(e.method()), "linear");
    EXPECT_EQ(evalId(e, {oneTo(2)}), gi("DegenerateGridErrId"));
}

TEST(Construction, NdgridArraysGiveTheirVectors) {
    const auto [X, Y] = ndgrid2({0.5, 1, 4}, {-2, 0, 7, 9});
    const HostArray cell = mathinterp::validateFullGrid(Args{X, Y}.data(), 2, V34());
    ASSERT_EQ(cell.numberOfElements(), 2u);
    EXPECT_EQ(cell.getCell(0).dimensions(), (Dims{1, 3}));
    EXPECT_EQ(cell.getCell(1).dimensions(), (Dims{1, 4}));
    EXPECT_EQ(cell.getCell(0).realAt(2), 4.0);
    EXPECT_EQ(cell.getCell(1).realAt(3), 9.0);
    // A three-dimensional ndgrid, single precision; one changed element breaks it.
    auto axis = [](std::size_t k) {
        const HostArray a =
            bySubscript({2, 3, 2}, [k](auto& s) { return 10.0 * double(k) + s[k]; });
        std::vector<float> f;
        for (std::uint64_t i = 0; i < 12; ++i)
            f.push_back(static_cast<float>(a.realAt(i)));
        return HostArray::fromSingles({2, 3, 2}, f);
    };
    const Args a3{axis(0), axis(1), axis(2)};
    const auto vecs = mathinterp::extractNdgrid(a3.data(), 3);
    ASSERT_TRUE(vecs.has_value());
    EXPECT_EQ((*vecs)[1].classId(), ClassId::Single);
    EXPECT_EQ((*vecs)[1].numberOfElements(), 3u);
    EXPECT_EQ((*vecs)[2].realAt(1), 21.0);
    HostArray broken = a3[1].deepCopy();
    broken.data<float>()[7] += 1.0f;
    EXPECT_FALSE(mathinterp::extractNdgrid(Args{a3[0], broken, a3[2]}.data(), 3).has_value());
}

TEST(Construction, ComplexValuesAreKeptSplit) {
    const std::vector<std::complex<double>> z = {{1, -1}, {2, -2}, {3, -3},
                                                 {4, -4}, {5, -5}, {6, -6}};
    const HostArray v = HostArray::fromComplex({3, 2}, z);
    GriddedInterpolant g;
    EXPECT_EQ(constructId(g, {HostArray::cellOf({row({0, 1, 2})}), v}), "");
    EXPECT_TRUE(g.values().sameArray(v));
    const HostArray& in = g.internalValues();
    EXPECT_FALSE(in.isComplex());
    EXPECT_EQ(in.classId(), ClassId::Double);
    ASSERT_EQ(in.numberOfElements(), 12u);
    for (std::uint64_t i = 0; i < 6; ++i) {
        EXPECT_EQ(in.realAt(i), z[i].real());
        EXPECT_EQ(in.realAt(6 + i), z[i].imag());
    }
    EXPECT_EQ(g.evaluator()->numPlanes(), 4u); // two value sets, real and imaginary
}

TEST(Construction, FailureStoresNothing) {
    GriddedInterpolant g;
    const Args good{row({0, 1, 2}), row({1, 2, 3})};
    EXPECT_EQ(constructId(g, good), "");
    EXPECT_EQ(constructId(g, {row({0, 1, 2}), row({1, 2, 3}), text("bogus")}),
              gi("BadInterpTypeErrId"));
    EXPECT_FALSE(g.evaluator());
    EXPECT_FALSE(g.evaluatorCurrent());
    EXPECT_TRUE(g.values().isNull());
    EXPECT_TRUE(g.gridVectors().isNull());
    EXPECT_TRUE(g.method().isNull());
    EXPECT_FALSE(g.fullyConstructed());
}
