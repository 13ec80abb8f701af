// gridStructsInterpFcn: each literal message and identifier reached by the smallest input that
// triggers it, in the order of the checks; the default words and "boundary" (clamping a copy
// of the queries); and every field element equal to griddedInterpolant evaluated on that
// element's values, bit for bit, for real, complex and mixed fields, single and double, below
// and above the parallel threshold and over many sub-grids of a large query grid.
#include "host/HostTestSupport.hpp"
#include "support/Bits.hpp"

#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/methods/LinearND.hpp"

#include <cmath>
#include <complex>
#include <cstring>

using namespace hosttest;
using platform::ClassId;
using platform::Dims;

namespace {

HostArray call(std::vector<HostArray> in, int nlhs = 1) {
    HostArray out[2];
    gridStructsInterpFcn(nlhs, out, static_cast<int>(in.size()), in.data());
    return out[0].getCell(0);
}

HostArray row(std::vector<double> v) {
    return HostArray::rowVector(v);
}

std::vector<double> spaced(std::uint64_t n, double lo, double step) {
    std::vector<double> v(n);
    for (std::uint64_t i = 0; i < n; ++i)
        v[i] = lo + step * static_cast<double>(i);
    return v;
}

template <class G>
HostArray cellOf(const std::vector<std::vector<double>>& vecs) {
    HostArray c = HostArray::createCell(1, vecs.size());
    for (std::size_t k = 0; k < vecs.size(); ++k) {
        const Dims dims{1, vecs[k].size()};
        if constexpr (sizeof(G) == 8)
            c.setCell(k, HostArray::fromDoubles(dims, vecs[k]));
        else
            c.setCell(k, HostArray::fromSingles(
                             dims, std::vector<float>(vecs[k].begin(), vecs[k].end())));
    }
    return c;
}

// A struct array over the grid with field "v" (`elems` values, f(g, el)) and field "z" (1 x 3,
// complex at every third grid point only).
template <class G>
HostArray records(const std::vector<std::vector<double>>& grid, std::uint64_t elems) {
    constexpr ClassId cls = sizeof(G) == 8 ? ClassId::Double : ClassId::Single;
    Dims dims;
    std::uint64_t points = 1;
    for (const auto& g : grid)
        dims.push_back(g.size()), points *= g.size();
    if (dims.size() == 1) dims.push_back(1);
    auto value = [](std::uint64_t g, std::uint64_t el) {
        const double e = static_cast<double>(el);
        return static_cast<G>(std::sin(0.37 * static_cast<double>(g) + 0.011 * e) + 0.5 * e);
    };
    HostArray s = HostArray::createStruct(dims, {"v", "z"});
    for (std::uint64_t g = 0; g < points; ++g) {
        HostArray v = HostArray::createNumeric({elems, 1}, cls);
        for (std::uint64_t el = 0; el < elems; ++el)
            v.data<G>()[el] = value(g, el);
        HostArray z = HostArray::createNumeric({1, 3}, cls, g % 3 == 0);
        for (std::uint64_t el = 0; el < 3; ++el) {
            z.data<G>()[g % 3 == 0 ? 2 * el : el] = value(g, el);
            if (g % 3 == 0) z.data<G>()[2 * el + 1] = value(g + 7, el);
        }
        s.setField(g, 0, v);
        s.setField(g, 1, z);
    }
    return s;
}

// The gateway's result for every query and the listed elements of each field equals
// griddedInterpolant built on that element's values (complex when any grid point is).
template <class G>
void checkAgainstInterpolant(const std::vector<std::vector<double>>& grid,
                             const std::vector<std::vector<double>>& queries, const char* method,
                             const char* extrap, std::uint64_t elems) {
    SCOPED_TRACE(std::string(method) + "/" + extrap);
    const HostArray s = records<G>(grid, elems), gridCell = cellOf<G>(grid);
    const HostArray queryCell = cellOf<G>(queries);
    const HostArray out = call({gridCell, HostArray::cellOf({s}), queryCell,
                                HostArray::charRow(method), HostArray::charRow(extrap)});
    for (std::uint64_t f = 0; f < 2; ++f)
        for (std::uint64_t el : f == 0 ? std::vector<std::uint64_t>{0, 1, elems / 2, elems - 1}
                                       : std::vector<std::uint64_t>{0, 2}) {
            const bool cx = f == 1;
            HostArray v = HostArray::createNumeric(s.dimensions(), s.getField(0, 1).classId(), cx);
            for (std::uint64_t g = 0; g < s.numberOfElements(); ++g) {
                const HostArray fv = s.getField(g, f);
                v.data<G>()[cx ? 2 * g : g] = static_cast<G>(fv.realAt(el));
                if (cx) v.data<G>()[2 * g + 1] = static_cast<G>(fv.imagAt(el));
            }
            mathinterp::GriddedInterpolant gi;
            HostArray args[] = {gridCell, v, HostArray::charRow(method),
                                HostArray::charRow(extrap)};
            gi.construct(4, args);
            const HostArray expect = gi.evaluate(1, &queryCell);
            ASSERT_EQ(expect.numberOfElements(), out.numberOfElements());
            for (std::uint64_t q = 0; q < expect.numberOfElements(); ++q) {
                const HostArray got = out.getField(q, f);
                ASSERT_EQ(got.dimensions(), s.getField(0, f).dimensions());
                ASSERT_EQ(got.isComplex(), cx);
                EXPECT_SAME_BITS(static_cast<G>(got.realAt(el)), static_cast<G>(expect.realAt(q)))
                    << "field " << f << " element " << el << " query " << q;
                if (cx) {
                    EXPECT_SAME_BITS(static_cast<G>(got.imagAt(el)),
                                     static_cast<G>(expect.imagAt(q)));
                }
            }
        }
}

const std::vector<std::vector<double>> kGrid{{0.0, 1.0, 2.5, 4.0}, {-1.0, 0.0, 2.0}};
const std::vector<std::vector<double>> kQueries{{-1.0, 0.5, 4.0, 5.0}, {-2.0, 1.0, 3.0}};

class GridStructsTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!mathinterp::LinearND<double, double>::available)
            GTEST_SKIP() << "N-D linear not built";
    }
};

} // namespace

TEST(GridStructsArguments, ChecksInOrder) {
    const HostArray grid = cellOf<double>(kGrid),
                    values = HostArray::cellOf({records<double>(kGrid, 3)});
    const HostArray queries = cellOf<double>(kQueries), gx = row(kGrid[0]);
    auto with = [&](std::size_t at, HostArray a) {
        std::vector<HostArray> in{grid, values, queries};
        in[at] = std::move(a);
        return in;
    };
    auto withGrid = [&](HostArray b) { return with(0, HostArray::cellOf({gx, b})); };
    auto words = [&](std::vector<HostArray> w) {
        std::vector<HostArray> in{grid, values, queries};
        in.insert(in.end(), w.begin(), w.end());
        return in;
    };
    HostArray sparse = row(kGrid[1]), badClass = records<double>(kGrid, 3);
    HostArray badCount = records<double>(kGrid, 3);
    sparse.setSparse(true);
    badClass.setField(5, 0, HostArray::fromSingles({3, 1}, {1, 2, 3}));
    badCount.setField(7, 0, row({1, 2}));
    const HostArray ints = HostArray::createNumeric({1, 3}, ClassId::Int32);
    const HostArray one = row({1.0}), oneSingle = HostArray::fromSingles({1, 1}, {1.0f});
    const std::string interp = "text:Interpolation must be nearest or linear.";
    const std::string gridMsg =
        "text:Grid vectors (first input) must be a cell of compact grid vectors.";
    const std::string valuesMsg =
        "text:Grid values (second input) must be a cell of struct arrays matching the grid size.";
    const std::string queryMsg =
        "text:Query points (third input) must be a cell with compact grid vectors.";
    const std::string fieldMsg = "text:Grid values (second input) class or numel mismatch.";
    const std::vector<std::pair<std::vector<HostArray>, std::string>> cases = {
        {std::vector<HostArray>(6, grid), "QUARTZ:maxrhs"},
        {{grid, values}, "QUARTZ:minrhs"},
        {words({HostArray::scalar(1)}), interp},
        {words({HostArray::charRow("cubic")}), interp},
        {words({HostArray::charRow("Linear")}), interp},
        {words({HostArray::charRow("boundary")}), interp},
        {words({HostArray::charRow("linear"), HostArray::scalar(1)}),
         "text:Extrapolation must be nearest or linear."},
        {words({HostArray::charRow("linear"), HostArray::charRow("none")}),
         "text:Extrapolation must be nearest, linear, or boundary."},
        {with(0, gx), gridMsg},
        {with(0, HostArray::createCell(1, 0)), gridMsg},
        {withGrid(HostArray()), gi("NumCoordsGridNdimsMismatchErrId")},
        {withGrid(HostArray::fromSingles({1, 3}, {1, 2, 3})), gi("GridOfMixedDataTypesErrId")},
        {withGrid(HostArray::fromComplex({1, 3}, {1, 2, 3})), gi("ComplexDataPointErrId")},
        {withGrid(sparse), gi("SparseDataPtErrId")},
        {with(0, HostArray::cellOf({ints, ints})), gi("NonFloatInpPtsErrId")},
        {withGrid(row({1, NAN, 0})), gi("NonFiniteInputPtsErrId")},
        {withGrid(row({1, 1, 2})), gi("NonUniqueCompVecsPtsErrId")},
        {withGrid(row({3, 2, 1})), gi("NonMonotonicCompVecsErrId")},
        {with(1, records<double>(kGrid, 3)), valuesMsg},
        {with(2, one), queryMsg},
        {with(2, HostArray::cellOf({one})), queryMsg},
        {with(2, HostArray::cellOf({oneSingle, oneSingle})), queryMsg},
        {with(2, HostArray::cellOf({one, HostArray::fromComplex({1, 1}, {1.0})})),
         gi("ComplexDataPointErrId")},
        {with(1, HostArray::createCell(1, 0)), queryMsg}, // an empty values cell
        {with(1, HostArray::cellOf({one})), valuesMsg},
        {with(1, HostArray::cellOf({records<double>({kGrid[1], kGrid[0]}, 3)})), valuesMsg},
        {with(1, HostArray::cellOf({badClass})), fieldMsg},
        {with(1, HostArray::cellOf({badCount})), fieldMsg},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(errorId([&] { call(cases[i].first); }), cases[i].second) << "case " << i;
    EXPECT_EQ(errorId([&] { call({grid, values, queries}, 2); }), "QUARTZ:maxlhs");
}

TEST_F(GridStructsTest, EqualsTheInterpolantElementByElement) {
    const std::vector<std::vector<double>> big{spaced(60, -1.0, 0.1), spaced(50, -1.5, 0.08)};
    for (const auto& queries : {kQueries, big})
        for (const char* m : {"linear", "nearest"})
            for (const char* e : {"linear", "nearest"})
                checkAgainstInterpolant<double>(kGrid, queries, m, e, 3);
}

// Large fields on large query grids: the query grid is evaluated in many sub-grids (split
// along the first and the last query dimension), whose results are transposed into the
// records; an odd element count leaves one element for the transpose's remainder loop.
TEST_F(GridStructsTest, ManySubGridsEqualTheInterpolant) {
    const std::vector<std::vector<double>> grid3{spaced(6, 0.0, 1.0), spaced(4, -1.0, 0.7),
                                                 spaced(3, 2.0, 1.5)};
    // 300 x 3 x 5 queries: rows split in three blocks, the last dimension in 2 + 2 + 1.
    const std::vector<std::vector<double>> queries3{spaced(300, -0.5, 0.02), spaced(3, -1.2, 1.1),
                                                    spaced(5, 1.0, 1.0)};
    checkAgainstInterpolant<double>(grid3, queries3, "linear", "linear", 301);
    checkAgainstInterpolant<double>(grid3, queries3, "nearest", "linear", 301);
    // One dimension: the only query dimension is split.
    const std::vector<std::vector<double>> grid1{spaced(9, 0.0, 0.5)};
    const std::vector<std::vector<double>> queries1{spaced(5000, -0.3, 0.001)};
    checkAgainstInterpolant<double>(grid1, queries1, "linear", "nearest", 301);
    checkAgainstInterpolant<float>(grid1, queries1, "linear", "linear", 301);
}

// Without words: linear and linear. "boundary" clamps a copy of the queries to the grid box:
// beyond both ends the corner value, for either method; the caller's queries are unchanged.
TEST_F(GridStructsTest, DefaultsBoundaryAndCallerQueriesUntouched) {
    const HostArray grid = cellOf<double>(kGrid),
                    values = HostArray::cellOf({records<double>(kGrid, 3)});
    const HostArray queries = cellOf<double>(kQueries), before = queries.deepCopy();
    auto with = [&](const char* m, const char* e) {
        return call({grid, values, queries, HostArray::charRow(m), HostArray::charRow(e)});
    };
    const HostArray d = call({grid, values, queries}), l = with("linear", "linear");
    const HostArray b = with("linear", "boundary"), nb = with("nearest", "boundary");
    const HostArray s = records<double>(kGrid, 3);
    for (std::uint64_t k = 0; k < 2; ++k)
        EXPECT_EQ(0, std::memcmp(queries.getCell(k).rawData(), before.getCell(k).rawData(),
                                 before.getCell(k).numberOfElements() * sizeof(double)));
    ASSERT_EQ(d.dimensions(), (Dims{4, 3}));
    for (std::uint64_t q = 0; q < 12; ++q)
        EXPECT_SAME_BITS(d.getField(q, "v").realAt(1), l.getField(q, "v").realAt(1));
    // Query (5, 3) is beyond both ends: grid point (4, 2); query (-1, -2) clamps to (0, -1).
    for (const HostArray& r : {b, nb}) {
        EXPECT_SAME_BITS(r.getField(11, "v").realAt(2), s.getField(11, "v").realAt(2));
        EXPECT_SAME_BITS(r.getField(11, "z").realAt(0), s.getField(11, "z").realAt(0));
        EXPECT_SAME_BITS(r.getField(0, "z").imagAt(1), s.getField(0, "z").imagAt(1));
    }
    EXPECT_NE(l.getField(11, "v").realAt(2), b.getField(11, "v").realAt(2));
}
