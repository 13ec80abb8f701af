// Determinism: a query's result does not depend on how many worker threads run the loop
// (one or two, through tbb::global_control) nor on how many other queries share its call
// (counts on both sides of the parallel threshold: 1, 2047, 2048, 2049, 4097 and more). Every
// built method, with itself, "none" and a third method as extrapolation, for every precision
// pair and both query precisions, with value sets and complex values; scattered and gridded
// queries in 1-D, 2-D and 3-D. Methods missing from the build are skipped.
#include "support/Interpolant.hpp"

#include "mathinterp/methods/ConstantND.hpp"
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

#include <oneapi/tbb/global_control.h>

#include <cmath>
#include <cstring>
#include <limits>

using namespace itest;
using mathinterp::GriddedInterpolant;
using mathinterp::MethodId;

namespace {

bool built(MethodId m, bool nd) {
    using namespace mathinterp;
    switch (m) {
    case MethodId::Linear:
        return nd ? LinearND<double, double>::available : Linear1D<double, double>::available;
    case MethodId::Nearest:
        return nd ? NearestND<double, double>::available : Nearest1D<double, double>::available;
    case MethodId::Next:
        return !nd && Next1D<double, double>::available;
    case MethodId::Previous:
        return !nd && Previous1D<double, double>::available;
    case MethodId::Pchip:
        return !nd && Pchip1D<double, double>::available;
    case MethodId::Spline:
        return nd ? SplineND<double, double>::available : Spline1D<double, double>::available;
    case MethodId::Cubic:
        return nd ? CubicND<double, double>::available : Cubic1D<double, double>::available;
    case MethodId::Makima:
        return nd ? MakimaND<double, double>::available : Makima1D<double, double>::available;
    case MethodId::None:
        return nd ? ConstantND<double, double>::available : Constant1D<double, double>::available;
    }
    return false;
}

constexpr MethodId kMethods[] = {MethodId::Linear,   MethodId::Nearest, MethodId::Next,
                                 MethodId::Previous, MethodId::Pchip,   MethodId::Spline,
                                 MethodId::Cubic,    MethodId::Makima};

// (method, extrapolation) pairs to run in d dimensions: each built method with itself, with
// "none" and with another built method.
std::vector<std::pair<MethodId, MethodId>> combinations(bool nd) {
    std::vector<std::pair<MethodId, MethodId>> out;
    for (MethodId m : kMethods) {
        if (!built(m, nd)) continue;
        out.emplace_back(m, m);
        if (built(MethodId::None, nd)) out.emplace_back(m, MethodId::None);
        const MethodId other = m == MethodId::Nearest ? MethodId::Linear : MethodId::Nearest;
        if (built(other, nd)) out.emplace_back(m, other);
    }
    return out;
}

HostArray word(MethodId m) {
    return text(std::string(mathinterp::methodWord(m)).c_str());
}

// A deterministic spread of doubles in [lo, hi].
std::vector<double> spread(std::uint64_t n, double lo, double hi, std::uint64_t seed) {
    std::vector<double> v(n);
    std::uint64_t s = seed;
    for (auto& x : v) {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        x = lo + (hi - lo) * static_cast<double>(s >> 11) * 0x1p-53;
    }
    return v;
}

HostArray asClass(Dims dims, const std::vector<double>& v, ClassId cls) {
    if (cls == ClassId::Double) return HostArray::fromDoubles(std::move(dims), v);
    std::vector<float> f(v.begin(), v.end());
    return HostArray::fromSingles(std::move(dims), f);
}

// Values on the grid: several value sets, complex when asked (imaginary parts differ).
HostArray makeValues(Dims dims, ClassId cls, bool complex) {
    std::uint64_t n = 1;
    for (auto e : dims)
        n *= e;
    const std::vector<double> re = spread(n, -3, 5, 7), im = spread(n, -1, 1, 8);
    if (!complex) return asClass(std::move(dims), re, cls);
    if (cls == ClassId::Double) {
        std::vector<std::complex<double>> c(n);
        for (std::uint64_t i = 0; i < n; ++i)
            c[i] = {re[i], im[i]};
        return HostArray::fromComplex(std::move(dims), c);
    }
    std::vector<std::complex<float>> c(n);
    for (std::uint64_t i = 0; i < n; ++i)
        c[i] = {static_cast<float>(re[i]), static_cast<float>(im[i])};
    return HostArray::fromComplexSingle(std::move(dims), c);
}

// Constructs; false when a fallback leads to a method missing from this build (cubic on a
// non-uniform grid becomes spline).
bool construct(GriddedInterpolant& g, const Args& args) {
    try {
        g.construct(static_cast<int>(args.size()), args.data());
        return true;
    } catch (const mathinterp::MethodNotBuiltError&) {
        return false;
    }
}

HostArray evaluateWith(int threads, GriddedInterpolant& g, const Args& q) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                              static_cast<std::size_t>(threads));
    return eval(g, q);
}

// Results of planes k of an m-query call equal entries [k*total, k*total + m) of the
// reference, bit for bit.
::testing::AssertionResult samePrefix(const HostArray& part, std::uint64_t m,
                                      const HostArray& whole, std::uint64_t total) {
    if (part.classId() != whole.classId() || part.isComplex() != whole.isComplex())
        return ::testing::AssertionFailure() << "class or complexity differs";
    const std::uint64_t planes = part.numberOfElements() / m;
    if (whole.numberOfElements() != planes * total)
        return ::testing::AssertionFailure() << "plane count differs";
    const std::size_t es = part.elementBytes();
    const auto* a = static_cast<const unsigned char*>(part.rawData());
    const auto* b = static_cast<const unsigned char*>(whole.rawData());
    for (std::uint64_t k = 0; k < planes; ++k)
        for (std::uint64_t i = 0; i < m; ++i)
            if (std::memcmp(a + (k * m + i) * es, b + (k * total + i) * es, es) != 0)
                return ::testing::AssertionFailure()
                       << "query " << i << " of plane " << k << " differs with " << m << " queries";
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult sameArray(const HostArray& a, const HostArray& b) {
    if (a.dimensions() != b.dimensions() || a.classId() != b.classId())
        return ::testing::AssertionFailure() << "shape or class differs";
    if (std::memcmp(a.rawData(), b.rawData(), a.numberOfElements() * a.elementBytes()) != 0)
        return ::testing::AssertionFailure() << "contents differ";
    return ::testing::AssertionSuccess();
}

// Scattered queries: inside and outside the box [lo, hi]^d, exactly on nodes, NaN and
// infinities, as an m x d matrix (a column in 1-D) of the query class.
HostArray scatteredQueries(std::uint64_t m, std::uint64_t d, double lo, double hi,
                           const std::vector<double>& nodes, ClassId cls) {
    std::vector<double> q = spread(m * d, lo - 1.5, hi + 1.5, 99);
    for (std::uint64_t i = 0; i < m * d; i += 13)
        q[i] = nodes[i % nodes.size()];
    const double specials[] = {std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(), lo, hi};
    for (std::uint64_t i = 5; i < m * d; i += 997)
        q[i] = specials[i % std::size(specials)];
    return asClass({m, d}, q, cls);
}

// First m points (rows) of an M x d matrix.
HostArray firstRows(const HostArray& q, std::uint64_t m) {
    const std::uint64_t total = q.dimension(0), d = q.dimension(1);
    HostArray out = HostArray::createUninitialisedNumeric({m, d}, q.classId());
    const std::size_t es = q.elementBytes();
    for (std::uint64_t j = 0; j < d; ++j)
        std::memcpy(static_cast<unsigned char*>(out.rawData()) + j * m * es,
                    static_cast<const unsigned char*>(q.rawData()) + j * total * es, m * es);
    return out;
}

constexpr std::uint64_t kTotal = 5003;
constexpr std::uint64_t kCounts[] = {1, 2047, 2048, 2049, 4097};

struct Pair {
    ClassId grid, values;
};
constexpr Pair kPairs[] = {{ClassId::Double, ClassId::Double},
                           {ClassId::Double, ClassId::Single},
                           {ClassId::Single, ClassId::Double},
                           {ClassId::Single, ClassId::Single}};

class QuietWarnings : public ::testing::Test {
protected:
    void SetUp() override {
        previous_ = platform::setWarningSink([](auto&, auto&) {});
    }
    void TearDown() override { platform::setWarningSink(previous_); }

private:
    platform::WarningSink previous_;
};

using Determinism = QuietWarnings;

// Checks one construction (grid cell, values) with every combination and query class.
void checkScattered(const std::vector<std::vector<double>>& grid, Dims valueDims, bool nd) {
    const std::uint64_t d = grid.size();
    std::vector<double> nodes;
    for (const auto& g : grid)
        nodes.insert(nodes.end(), g.begin(), g.end());
    for (const Pair& pair : kPairs)
        for (bool complex : {false, true})
            for (const auto& [m, e] : combinations(nd))
                for (ClassId qcls : {ClassId::Double, ClassId::Single}) {
                    HostArray cell = HostArray::createCell(1, d);
                    for (std::uint64_t k = 0; k < d; ++k)
                        cell.setCell(k, asClass({1, grid[k].size()}, grid[k], pair.grid));
                    const Args args{cell, makeValues(valueDims, pair.values, complex), word(m),
                                    word(e)};
                    SCOPED_TRACE(std::string(mathinterp::methodWord(m)) + "/" +
                                 std::string(mathinterp::methodWord(e)) +
                                 (complex ? " complex" : "") + " grid class " +
                                 std::to_string(static_cast<int>(pair.grid)) + " values class " +
                                 std::to_string(static_cast<int>(pair.values)) + " query class " +
                                 std::to_string(static_cast<int>(qcls)));
                    const HostArray q =
                        scatteredQueries(kTotal, d, grid[0].front(), grid[0].back(), nodes, qcls);
                    GriddedInterpolant one, two;
                    if (!construct(one, args) || !construct(two, args)) continue;
                    // Both first evaluations (lazy caches) happen under the limit.
                    const HostArray ref = evaluateWith(1, one, {q});
                    ASSERT_TRUE(sameArray(evaluateWith(2, two, {q}), ref));
                    for (std::uint64_t c : kCounts) {
                        EXPECT_TRUE(
                            samePrefix(evaluateWith(1, one, {firstRows(q, c)}), c, ref, kTotal));
                        EXPECT_TRUE(
                            samePrefix(evaluateWith(2, two, {firstRows(q, c)}), c, ref, kTotal));
                    }
                }
}

} // namespace

TEST_F(Determinism, OneDimensionScatteredAnyThreadCountAnyBatch) {
    // A uniform grid (so "cubic" stays cubic) and a non-uniform one; one value set and three.
    std::vector<double> uniform(41), uneven(29);
    for (std::size_t i = 0; i < uniform.size(); ++i)
        uniform[i] = -3.0 + 0.25 * static_cast<double>(i);
    for (std::size_t i = 0; i < uneven.size(); ++i)
        uneven[i] = static_cast<double>(i) + 0.3 * std::sin(static_cast<double>(i));
    checkScattered({uniform}, {1, uniform.size()}, false);
    checkScattered({uneven}, {uneven.size(), 3}, false);
}

TEST_F(Determinism, NDScatteredAnyThreadCountAnyBatch) {
    if (!built(MethodId::Linear, true)) GTEST_SKIP() << "N-D methods are not built";
    std::vector<double> a(9), b(6), c(4);
    for (std::size_t i = 0; i < a.size(); ++i)
        a[i] = 0.5 * static_cast<double>(i);
    for (std::size_t i = 0; i < b.size(); ++i)
        b[i] = static_cast<double>(i * i);
    for (std::size_t i = 0; i < c.size(); ++i)
        c[i] = -1.0 + static_cast<double>(i);
    checkScattered({a, b}, {a.size(), b.size()}, true);
    checkScattered({a, b, c}, {a.size(), b.size(), c.size(), 2}, true);
}

TEST_F(Determinism, NDGriddedAnyThreadCount) {
    if (!built(MethodId::Linear, true)) GTEST_SKIP() << "N-D methods are not built";
    std::vector<double> a(7), b(5), c(4);
    for (std::size_t i = 0; i < a.size(); ++i)
        a[i] = static_cast<double>(i);
    for (std::size_t i = 0; i < b.size(); ++i)
        b[i] = 0.5 * static_cast<double>(i * i);
    for (std::size_t i = 0; i < c.size(); ++i)
        c[i] = 2.0 * static_cast<double>(i);
    // Query grids of 2047, 2048, 2049 and 4097 points.
    const std::vector<std::vector<std::uint64_t>> shapes{
        {23, 89}, {32, 64}, {3, 683}, {17, 241}, {8, 16, 16}, {3, 683, 1}, {1, 1, 1}};
    for (const auto& shape : shapes) {
        const std::uint64_t d = shape.size();
        std::vector<std::vector<double>> grid{a, b};
        if (d == 3) grid.push_back(c);
        Dims vdims;
        for (const auto& g : grid)
            vdims.push_back(g.size());
        for (const auto& [m, e] : combinations(true))
            for (bool complex : {false, true}) {
                SCOPED_TRACE(std::string(mathinterp::methodWord(m)) + "/" +
                             std::string(mathinterp::methodWord(e)) + " d=" + std::to_string(d));
                HostArray cell = HostArray::createCell(1, d);
                HostArray queryCell = HostArray::createCell(1, d);
                for (std::uint64_t k = 0; k < d; ++k) {
                    cell.setCell(k, HostArray::rowVector(grid[k]));
                    queryCell.setCell(k, HostArray::rowVector(spread(shape[k], grid[k].front() - 1,
                                                                     grid[k].back() + 1, k + 3)));
                }
                const Args args{cell, makeValues(vdims, ClassId::Double, complex), word(m),
                                word(e)};
                GriddedInterpolant one, two;
                if (!construct(one, args) || !construct(two, args)) continue;
                const HostArray ref = evaluateWith(1, one, {queryCell});
                EXPECT_TRUE(sameArray(evaluateWith(2, two, {queryCell}), ref));
                EXPECT_TRUE(sameArray(evaluateWith(2, one, {queryCell}), ref));
            }
    }
}
