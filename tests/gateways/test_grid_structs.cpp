// gridStructsInterpFcn: each literal message and identifier reached by the smallest input that
// triggers it, in the order of the checks; the method routes including "boundary"; complex
// and mixed real/complex fields; and results equal to griddedInterpolant evaluated field
// element by field element, bit for bit, below and above the parallel threshold.
#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/methods/LinearND.hpp"

#include "support/Bits.hpp"

#include <platform/HostError.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

using platform::ClassId;
using platform::Dims;
using platform::HostArray;
using platform::HostErrorException;

namespace {

struct Outcome {
    std::string identifier;
    std::string message;
    HostArray result;
};

Outcome call(std::vector<HostArray> in, int nlhs = 1) {
    Outcome o;
    HostArray out[2];
    try {
        gridStructsInterpFcn(nlhs, out, static_cast<int>(in.size()), in.data());
        o.result = out[0];
    } catch (const HostErrorException& e) {
        o.identifier = e.identifier();
        o.message = e.message();
    }
    return o;
}

HostArray row(std::vector<double> v) {
    return HostArray::rowVector(v);
}

// A struct array over an nx x ny grid with fields "p" (3 reals, p_k = f(x, y) + k) and
// "z" (2x2 complex, z = (x + k) + i*(y - k)).
HostArray records(const std::vector<double>& x, const std::vector<double>& y) {
    HostArray s = HostArray::createStruct({x.size(), y.size()}, {"p", "z"});
    for (std::size_t j = 0; j < y.size(); ++j)
        for (std::size_t i = 0; i < x.size(); ++i) {
            const std::size_t g = i + j * x.size();
            std::vector<double> p;
            for (int k = 0; k < 3; ++k)
                p.push_back(std::sin(x[i]) * std::cos(y[j]) + k);
            std::vector<std::complex<double>> z;
            for (int k = 0; k < 4; ++k)
                z.emplace_back(x[i] + k, y[j] * y[j] - k);
            s.setField(g, 0, HostArray::fromDoubles({3, 1}, p));
            s.setField(g, 1, HostArray::fromComplex({2, 2}, z));
        }
    return s;
}

const std::vector<double> gx{0.0, 1.0, 2.5, 4.0};
const std::vector<double> gy{-1.0, 0.0, 2.0};

HostArray goodGrid() {
    return HostArray::cellOf({row(gx), row(gy)});
}
HostArray goodValues() {
    return HostArray::cellOf({records(gx, gy)});
}
HostArray goodQueries() {
    return HostArray::cellOf({row({-1.0, 0.5, 4.0, 5.0}), row({-2.0, 1.0, 3.0})});
}

} // namespace

class GridStructsTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!mathinterp::LinearND<double, double>::available)
            GTEST_SKIP() << "N-D linear not built";
    }
};

TEST(GridStructsArguments, CountsAndWords) {
    EXPECT_EQ(call({goodGrid(), goodValues(), goodQueries()}, 2).identifier, "QUARTZ:maxlhs");
    std::vector<HostArray> six(6, goodGrid());
    EXPECT_EQ(call(six).identifier, "QUARTZ:maxrhs");
    EXPECT_EQ(call({goodGrid(), goodValues()}).identifier, "QUARTZ:minrhs");
    auto base = [] { return std::vector<HostArray>{goodGrid(), goodValues(), goodQueries()}; };
    auto with = [&](std::vector<HostArray> extra) {
        auto v = base();
        v.insert(v.end(), extra.begin(), extra.end());
        return call(v).message;
    };
    EXPECT_EQ(with({HostArray::scalar(1)}), "Interpolation must be nearest or linear.");
    EXPECT_EQ(with({HostArray::charRow("cubic")}), "Interpolation must be nearest or linear.");
    EXPECT_EQ(with({HostArray::charRow("Linear")}), "Interpolation must be nearest or linear.");
    EXPECT_EQ(with({HostArray::charRow("boundary")}), "Interpolation must be nearest or linear.");
    EXPECT_EQ(with({HostArray::charRow("linear"), HostArray::scalar(1)}),
              "Extrapolation must be nearest or linear.");
    EXPECT_EQ(with({HostArray::charRow("linear"), HostArray::charRow("none")}),
              "Extrapolation must be nearest, linear, or boundary.");
}

TEST(GridStructsArguments, GridVectorChecksInOrder) {
    auto grid = [](HostArray a, HostArray b) {
        return call({HostArray::cellOf({a, b}), goodValues(), goodQueries()});
    };
    EXPECT_EQ(call({row(gx), goodValues(), goodQueries()}).message,
              "Grid vectors (first input) must be a cell of compact grid vectors.");
    EXPECT_EQ(call({HostArray::createCell(1, 0), goodValues(), goodQueries()}).message,
              "Grid vectors (first input) must be a cell of compact grid vectors.");
    EXPECT_EQ(grid(row(gx), HostArray()).identifier,
              "QUARTZ:griddedInterpolant:NumCoordsGridNdimsMismatchErrId");
    EXPECT_EQ(grid(row(gx), HostArray::fromSingles({1, 3}, {1, 2, 3})).identifier,
              "QUARTZ:griddedInterpolant:GridOfMixedDataTypesErrId");
    EXPECT_EQ(grid(row(gx), HostArray::fromComplex({1, 3}, {1, 2, 3})).identifier,
              "QUARTZ:griddedInterpolant:ComplexDataPointErrId");
    HostArray sparse = row(gy);
    sparse.setSparse(true);
    EXPECT_EQ(grid(row(gx), sparse).identifier, "QUARTZ:griddedInterpolant:SparseDataPtErrId");
    HostArray ints = HostArray::createNumeric({1, 3}, ClassId::Int32);
    EXPECT_EQ(call({HostArray::cellOf({ints, ints}), goodValues(), goodQueries()}).identifier,
              "QUARTZ:griddedInterpolant:NonFloatInpPtsErrId");
    EXPECT_EQ(grid(row(gx), row({1, NAN, 0})).identifier,
              "QUARTZ:griddedInterpolant:NonFiniteInputPtsErrId");
    EXPECT_EQ(grid(row(gx), row({1, 1, 2})).identifier,
              "QUARTZ:griddedInterpolant:NonUniqueCompVecsPtsErrId");
    EXPECT_EQ(grid(row(gx), row({3, 2, 1})).identifier,
              "QUARTZ:griddedInterpolant:NonMonotonicCompVecsErrId");
}

TEST(GridStructsArguments, ValuesAndQueryChecks) {
    const std::string values =
        "Grid values (second input) must be a cell of struct arrays matching the grid size.";
    const std::string query =
        "Query points (third input) must be a cell with compact grid vectors.";
    const std::string field = "Grid values (second input) class or numel mismatch.";
    EXPECT_EQ(call({goodGrid(), records(gx, gy), goodQueries()}).message, values);
    EXPECT_EQ(call({goodGrid(), goodValues(), row({1.0})}).message, query);
    EXPECT_EQ(call({goodGrid(), goodValues(), HostArray::cellOf({row({1.0})})}).message, query);
    EXPECT_EQ(call({goodGrid(), goodValues(),
                    HostArray::cellOf({HostArray::fromSingles({1, 1}, {1.0f}),
                                       HostArray::fromSingles({1, 1}, {1.0f})})})
                  .message,
              query);
    EXPECT_EQ(call({goodGrid(), goodValues(),
                    HostArray::cellOf({row({1.0}), HostArray::fromComplex({1, 1}, {1.0})})})
                  .identifier,
              "QUARTZ:griddedInterpolant:ComplexDataPointErrId");
    EXPECT_EQ(call({goodGrid(), HostArray::createCell(1, 0), goodQueries()}).message, query)
        << "an empty values cell reports the query message";
    EXPECT_EQ(call({goodGrid(), HostArray::cellOf({row({1.0})}), goodQueries()}).message, values);
    EXPECT_EQ(call({goodGrid(), HostArray::cellOf({records(gy, gx)}), goodQueries()}).message,
              values);
    HostArray badClass = records(gx, gy);
    badClass.setField(5, 0, HostArray::fromSingles({3, 1}, {1, 2, 3}));
    EXPECT_EQ(call({goodGrid(), HostArray::cellOf({badClass}), goodQueries()}).message, field);
    HostArray badCount = records(gx, gy);
    badCount.setField(7, 0, row({1, 2}));
    EXPECT_EQ(call({goodGrid(), HostArray::cellOf({badCount}), goodQueries()}).message, field);
}

TEST_F(GridStructsTest, EqualsTheInterpolantElementByElement) {
    // Queries inside and outside; a second query grid above the parallel threshold.
    std::vector<double> qxBig, qyBig;
    for (int i = 0; i < 60; ++i)
        qxBig.push_back(-1.0 + i * 0.1);
    for (int j = 0; j < 50; ++j)
        qyBig.push_back(-1.5 + j * 0.08);
    for (HostArray queries : {goodQueries(), HostArray::cellOf({row(qxBig), row(qyBig)})}) {
        for (const char* words :
             {"linear/linear", "nearest/nearest", "linear/nearest", "nearest/linear"}) {
            const std::string w(words);
            const std::string m = w.substr(0, w.find('/')), e = w.substr(w.find('/') + 1);
            const Outcome o = call(
                {goodGrid(), goodValues(), queries, HostArray::charRow(m), HostArray::charRow(e)});
            ASSERT_TRUE(o.identifier.empty() && o.message.empty()) << o.message;
            const HostArray out = o.result.getCell(0);
            const HostArray s = records(gx, gy);
            for (std::uint64_t f = 0; f < 2; ++f) {
                const std::uint64_t numel = s.getField(0, f).numberOfElements();
                for (std::uint64_t el = 0; el < numel; ++el) {
                    // The values of element el of field f as a complex (or real) grid array.
                    const bool cx = s.getField(0, f).isComplex();
                    HostArray v =
                        HostArray::createNumeric({gx.size(), gy.size()}, ClassId::Double, cx);
                    for (std::uint64_t g = 0; g < s.numberOfElements(); ++g) {
                        const HostArray fv = s.getField(g, f);
                        v.data<double>()[cx ? 2 * g : g] = fv.realAt(el);
                        if (cx) v.data<double>()[2 * g + 1] = fv.imagAt(el);
                    }
                    mathinterp::GriddedInterpolant gi;
                    HostArray args[] = {goodGrid(), v, HostArray::charRow(m),
                                        HostArray::charRow(e)};
                    gi.construct(4, args);
                    const HostArray expect = gi.evaluate(1, &queries);
                    for (std::uint64_t q = 0; q < expect.numberOfElements(); ++q) {
                        const HostArray got = out.getField(q, f);
                        ASSERT_EQ(got.dimensions(), s.getField(0, f).dimensions());
                        EXPECT_SAME_BITS(got.realAt(el), expect.realAt(q))
                            << w << " field " << f << " q " << q;
                        if (cx) {
                            EXPECT_SAME_BITS(got.imagAt(el), expect.imagAt(q));
                        }
                    }
                }
            }
        }
    }
}

TEST_F(GridStructsTest, DefaultsBoundaryAndCallerQueriesUntouched) {
    HostArray queries = goodQueries();
    const HostArray before = queries.deepCopy();
    const Outcome def = call({goodGrid(), goodValues(), queries});
    const Outcome lin = call({goodGrid(), goodValues(), queries, HostArray::charRow("linear"),
                              HostArray::charRow("linear")});
    const Outcome bnd = call({goodGrid(), goodValues(), queries, HostArray::charRow("linear"),
                              HostArray::charRow("boundary")});
    const Outcome nn = call({goodGrid(), goodValues(), queries, HostArray::charRow("nearest"),
                             HostArray::charRow("nearest")});
    const Outcome nb = call({goodGrid(), goodValues(), queries, HostArray::charRow("nearest"),
                             HostArray::charRow("boundary")});
    for (std::uint64_t k = 0; k < 2; ++k)
        EXPECT_EQ(0, std::memcmp(queries.getCell(k).rawData(), before.getCell(k).rawData(),
                                 before.getCell(k).numberOfElements() * sizeof(double)));
    const HostArray d = def.result.getCell(0), l = lin.result.getCell(0), b = bnd.result.getCell(0);
    const HostArray n1 = nn.result.getCell(0), n2 = nb.result.getCell(0);
    ASSERT_EQ(d.dimensions(), (platform::Dims{4, 3}));
    for (std::uint64_t q = 0; q < 12; ++q) {
        EXPECT_SAME_BITS(d.getField(q, "p").realAt(1), l.getField(q, "p").realAt(1));
        EXPECT_SAME_BITS(n1.getField(q, "z").imagAt(3), n2.getField(q, "z").imagAt(3));
        EXPECT_SAME_BITS(n1.getField(q, "p").realAt(0), n2.getField(q, "p").realAt(0));
    }
    // Query (5.0, 3.0) lies beyond both ends: boundary gives the corner grid value (4, 2).
    const std::uint64_t corner = 3 + 2 * 4;
    EXPECT_SAME_BITS(b.getField(corner, "p").realAt(2), std::sin(4.0) * std::cos(2.0) + 2);
    EXPECT_SAME_BITS(b.getField(corner, "z").imagAt(0), 4.0);
    // Query (-1, -2): clamped to (0, -1).
    EXPECT_SAME_BITS(b.getField(0, "z").realAt(1), 1.0);
    EXPECT_NE(l.getField(corner, "z").realAt(0), b.getField(corner, "z").realAt(0));
}

TEST_F(GridStructsTest, MixedRealAndComplexFieldGivesComplexOutput) {
    HostArray s = HostArray::createStruct({2, 2}, {"w"});
    for (std::uint64_t g = 0; g < 4; ++g) {
        if (g == 3)
            s.setField(g, 0, HostArray::fromComplex({1, 1}, {{4.0, 8.0}}));
        else
            s.setField(g, 0, HostArray::scalar(static_cast<double>(g)));
    }
    const Outcome o = call({HostArray::cellOf({row({0, 1}), row({0, 1})}), HostArray::cellOf({s}),
                            HostArray::cellOf({row({0.5}), row({1.0})})});
    ASSERT_TRUE(o.message.empty()) << o.message;
    const HostArray w = o.result.getCell(0).getField(0, 0);
    ASSERT_TRUE(w.isComplex());
    EXPECT_EQ(w.realAt(0), 3.0); // between 2 and 4
    EXPECT_EQ(w.imagAt(0), 4.0); // between 0 and 8
}

namespace {

std::vector<double> spaced(std::uint64_t n, double lo, double step) {
    std::vector<double> v(n);
    for (std::uint64_t i = 0; i < n; ++i)
        v[i] = lo + step * static_cast<double>(i);
    return v;
}

template <class G>
HostArray vectorOf(const std::vector<double>& v) {
    const Dims dims{1, v.size()};
    if constexpr (sizeof(G) == 8) return HostArray::fromDoubles(dims, v);
    return HostArray::fromSingles(dims, std::vector<float>(v.begin(), v.end()));
}

// Large fields on large query grids: the query grid is evaluated in many sub-grids (split
// along the first and the last query dimension), whose results are transposed into the
// records; an odd element count leaves one element for the transpose's remainder loop.
// Every checked element equals the interpolant on that element's values, bit for bit.
template <class G>
void checkSubGrids(const std::vector<std::vector<double>>& grid,
                   const std::vector<std::vector<double>>& queries, const char* method,
                   const char* extrap) {
    constexpr std::uint64_t kElems = 301;
    constexpr ClassId cls = sizeof(G) == 8 ? ClassId::Double : ClassId::Single;
    Dims gridDims;
    std::uint64_t points = 1;
    for (const auto& g : grid) {
        gridDims.push_back(g.size());
        points *= g.size();
    }
    if (gridDims.size() == 1) gridDims.push_back(1);
    auto value = [](std::uint64_t g, std::uint64_t el) {
        const double e = static_cast<double>(el);
        return static_cast<G>(std::sin(0.37 * static_cast<double>(g) + 0.011 * e) + 0.5 * e);
    };
    HostArray s = HostArray::createStruct(gridDims, {"v", "z"});
    for (std::uint64_t g = 0; g < points; ++g) {
        HostArray v = HostArray::createNumeric({kElems, 1}, cls);
        for (std::uint64_t el = 0; el < kElems; ++el)
            v.data<G>()[el] = value(g, el);
        s.setField(g, 0, v);
        // Complex at every third grid point only.
        HostArray z = HostArray::createNumeric({1, 3}, cls, g % 3 == 0);
        for (std::uint64_t el = 0; el < 3; ++el) {
            if (g % 3 == 0) {
                z.data<G>()[2 * el] = value(g, el);
                z.data<G>()[2 * el + 1] = value(g + 7, el);
            } else {
                z.data<G>()[el] = value(g, el);
            }
        }
        s.setField(g, 1, z);
    }
    std::vector<HostArray> gridVectors, queryVectors;
    for (const auto& g : grid)
        gridVectors.push_back(vectorOf<G>(g));
    for (const auto& q : queries)
        queryVectors.push_back(vectorOf<G>(q));
    HostArray gridCell = HostArray::createCell(1, grid.size());
    HostArray queryCell = HostArray::createCell(1, grid.size());
    for (std::uint64_t k = 0; k < grid.size(); ++k) {
        gridCell.setCell(k, gridVectors[k]);
        queryCell.setCell(k, queryVectors[k]);
    }
    const Outcome o = call({gridCell, HostArray::cellOf({s}), queryCell, HostArray::charRow(method),
                            HostArray::charRow(extrap)});
    ASSERT_TRUE(o.message.empty() && o.identifier.empty()) << o.message;
    const HostArray out = o.result.getCell(0);
    for (std::uint64_t f = 0; f < 2; ++f) {
        const bool cx = f == 1;
        for (std::uint64_t el : f == 0 ? std::vector<std::uint64_t>{0, 1, 150, kElems - 1}
                                       : std::vector<std::uint64_t>{0, 2}) {
            HostArray v = HostArray::createNumeric(gridDims, cls, cx);
            for (std::uint64_t g = 0; g < points; ++g) {
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
                ASSERT_EQ(got.numberOfElements(), f == 0 ? kElems : 3);
                ASSERT_EQ(got.isComplex(), cx);
                EXPECT_SAME_BITS(static_cast<G>(got.realAt(el)), static_cast<G>(expect.realAt(q)))
                    << method << " field " << f << " element " << el << " q " << q;
                if (cx) {
                    EXPECT_SAME_BITS(static_cast<G>(got.imagAt(el)),
                                     static_cast<G>(expect.imagAt(q)));
                }
            }
        }
    }
}

} // namespace

TEST_F(GridStructsTest, ManySubGridsEqualTheInterpolant) {
    const std::vector<std::vector<double>> grid3{spaced(6, 0.0, 1.0), spaced(4, -1.0, 0.7),
                                                 spaced(3, 2.0, 1.5)};
    // 300 x 3 x 5 queries: rows split in three blocks, the last dimension in 2 + 2 + 1.
    const std::vector<std::vector<double>> queries3{spaced(300, -0.5, 0.02), spaced(3, -1.2, 1.1),
                                                    spaced(5, 1.0, 1.0)};
    checkSubGrids<double>(grid3, queries3, "linear", "linear");
    checkSubGrids<double>(grid3, queries3, "nearest", "linear");
    // One dimension: the only query dimension is split.
    const std::vector<std::vector<double>> grid1{spaced(9, 0.0, 0.5)};
    const std::vector<std::vector<double>> queries1{spaced(5000, -0.3, 0.001)};
    checkSubGrids<double>(grid1, queries1, "linear", "nearest");
    checkSubGrids<float>(grid1, queries1, "linear", "linear");
}
