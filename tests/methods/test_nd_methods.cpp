// What is special to the N-D methods, as tables with one checker each: the two passes of the
// multilinear kernel to the bit (infinite and NaN corners, zero weights, the last slice),
// nearest's ties, index-coded grids of one to twenty dimensions, cubic convolution's phantom
// layers against an independently extended grid, the N-D spline's two- and three-point
// dimensions, tensor cubics and table layout (gridded against scattered, value sets, complex
// planes, tables dropped and index tables kept on new values, allocation failures).
#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/methods/CubicND.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/NearestND.hpp"
#include "mathinterp/methods/SplineND.hpp"
#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <platform/HostAllocator.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

using namespace mathinterp;
using namespace testsupport;
using platform::HostArray;

namespace {

using Point = std::vector<double>;
using Grids = std::vector<std::vector<double>>;
constexpr double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::nan("");

OwnedEvaluator<double, double> make(Grids g, std::vector<double> v, MethodId m,
                                    MethodId extrap = MethodId::None, u64 planes = 1) {
    return OwnedEvaluator<double, double>(std::move(g), std::move(v), planes, m,
                                          extrap == MethodId::None ? m : extrap);
}
double at1(const OwnedEvaluator<double, double>& e, const Point& p) {
    return evaluatePoints<double>(*e, {p})[0];
}

std::vector<double> uniform(double a, double h, u64 n) {
    std::vector<double> x(n);
    for (u64 i = 0; i < n; ++i)
        x[i] = a + h * static_cast<double>(i);
    return x;
}

// The points of a query grid in output order (dimension 0 fastest).
std::vector<Point> expand(const Grids& qv) {
    return sampleGrid<Point>(qv, [](const Point& p) { return p; });
}

// Values f(multi-index) over the grid, dimension 0 fastest.
std::vector<double> byIndex(const Grids& g,
                            const std::function<double(const std::vector<u64>&)>& f) {
    u64 total = 1;
    for (const auto& a : g)
        total *= a.size();
    std::vector<double> v(total);
    std::vector<u64> idx(g.size());
    for (u64 j = 0; j < total; ++j) {
        u64 r = j;
        for (u64 k = 0; k < g.size(); ++k) {
            idx[k] = r % g[k].size();
            r /= g[k].size();
        }
        v[j] = f(idx);
    }
    return v;
}

struct BitCase {
    const char* what;
    MethodId method;
    Grids g;
    std::vector<double> v; // v(i0, i1) at i0 + n0 i1
    Point p;
    double want; // NaN: not finite
};

const double t3 = 1.0 / 3.0, u3 = 1.0 - t3;
const Grids k3x3{{0, 1, 2}, {0, 1, 2}}, k2x2{{0, 1}, {0, 2}};
// Corner (2, 0) holds inf, -inf or NaN.
std::vector<double> corner(double v) {
    return {1, 5, v, 3, 7, 9, 4, 6, 8};
}
const BitCase kBitCases[] = {
    // Grid lines and nodes beside a special corner keep finite values.
    {"on x = 1 beside inf", MethodId::Linear, k3x3, corner(kInf), {1, 0.5}, 6},
    {"on x = 1 beside -inf", MethodId::Linear, k3x3, corner(-kInf), {1, 0.25}, 5.5},
    {"on y = 1 beside NaN", MethodId::Linear, k3x3, corner(kNaN), {1.5, 1}, 8},
    {"node beside inf", MethodId::Linear, k3x3, corner(kInf), {1, 0}, 5},
    {"on x = 2 above inf", MethodId::Linear, k3x3, corner(kInf), {2, 1.5}, 8.5},
    {"the infinite node", MethodId::Linear, k3x3, corner(-kInf), {2, 0}, -kInf},
    {"inside the infinite cell", MethodId::Linear, k3x3, corner(kInf), {1.5, 0.5}, kNaN},
    // t0 = 1: each pair is b + an exact 0; then along y with t1 = 1/3.
    {"zero weight, first pass",
     MethodId::Linear,
     {{0, 1}, {0, 3}},
     {kInf, 0.1, kInf, 0.7},
     {1, 1},
     t3 * 0.7 + 0.1 * u3},
    // The row above (inf, -inf) has weight 0 along y and is dropped.
    {"zero weight, second pass",
     MethodId::Linear,
     {{0, 3}, {0, 1}},
     {0.1, 0.3, kInf, -kInf},
     {1, 0},
     t3 * 0.3 + 0.1 * u3},
    // (a u) + (b w) per pair, dimension 0 first.
    {"first pass order",
     MethodId::Linear,
     {{0, 3}, {0, 7}},
     {0.1, 0.2, 0.3, 0.7},
     {1, 2},
     ((0.1 * u3) + (0.2 * t3)) * (1 - 2.0 / 7) + ((0.3 * u3) + (0.7 * t3)) * (2.0 / 7)},
    // Nearest: a tie goes to the upper neighbour, in every dimension.
    {"nearest tie", MethodId::Nearest, k2x2, {1, 2, 3, 4}, {0.5, 0}, 2},
    {"nearest ties", MethodId::Nearest, k2x2, {1, 2, 3, 4}, {0.5, 1}, 4},
    {"nearest below a tie", MethodId::Nearest, k2x2, {1, 2, 3, 4}, {0.4999, 0.9999}, 1},
    {"nearest far outside", MethodId::Nearest, k2x2, {1, 2, 3, 4}, {kInf, -1e300}, 2},
};

TEST(NDMethods, KernelBitsTable) {
    for (const BitCase& c : kBitCases) {
        const double r = at1(make(c.g, c.v, c.method), c.p);
        if (std::isnan(c.want))
            EXPECT_FALSE(std::isfinite(r)) << c.what;
        else
            EXPECT_SAME_BITS(r, c.want) << c.what;
    }
    // Single values on a double grid: t rounded to single first.
    const OwnedEvaluator<double, float> f({{0, 1}, {0, 3}}, {HUGE_VALF, 0.1f, HUGE_VALF, 0.7f}, 1,
                                          MethodId::Linear, MethodId::Linear);
    const float tf = static_cast<float>(1.0 / 3.0);
    EXPECT_SAME_BITS(evaluatePoints<float>(*f, {{1.0, 1.0}})[0], tf * 0.7f + 0.1f * (1.0f - tf));
    // The last grid point gives the last slice; the slice before it holds infinities.
    const Grids g3{{0, 1, 3}, {-2, -1.5, 0, 4}, {10, 11, 12.5, 13, 20}};
    const auto lin =
        make(g3,
             byIndex(g3,
                     [](const std::vector<u64>& i) {
                         return i[0] == 1 ? kInf : double(i[0] + 10 * i[1] + 100 * i[2]);
                     }),
             MethodId::Linear);
    EXPECT_SAME_BITS(at1(lin, {3.0, -1.5, 11.0}), 112.0);
    EXPECT_SAME_BITS(at1(lin, {3.0, 4.0, 20.0}), 432.0);
    EXPECT_SAME_BITS(at1(lin, {3.0, -1.125, 11.0}), 114.5);
}

// Index-coded values v = sum i_k 2^k in one to six dimensions of {0, 1, 3} (fixed-size and
// general kernels) and twenty of {0, 1}: a swapped axis or stride shows in the value.
TEST(NDMethods, IndexCodedAnyDimensionCount) {
    for (u64 d : {1u, 2u, 3u, 4u, 5u, 6u, 20u}) {
        const Grids g(d, d < 20 ? std::vector<double>{0, 1, 3} : std::vector<double>{0, 1});
        std::vector<double> v(u64{1} << 20); // on {0, 1}: the flat index itself
        std::iota(v.begin(), v.end(), 0.0);
        if (d < 20)
            v = byIndex(g, [](const std::vector<u64>& i) {
                double s = 0;
                for (u64 k = 0; k < i.size(); ++k)
                    s += std::ldexp(double(i[k]), int(k));
                return s;
            });
        // EvaluatorInterp directly, so that d = 1 runs through the N-D code as well.
        const GridData<double, double> data{g, v, 1};
        EvaluatorInterp<LinearND<double, double>> lin(data.setup());
        EvaluatorInterp<NearestND<double, double>> near(data.setup());
        const double ones = std::ldexp(1.0, int(d)) - 1, last = g[0].back();
        EXPECT_SAME_BITS(evaluatePoints<double>(lin, {Point(d, 0.25)})[0], 0.25 * ones) << d;
        EXPECT_SAME_BITS(evaluatePoints<double>(lin, {Point(d, last)})[0],
                         (last == 3 ? 2 : 1) * ones)
            << d;
        EXPECT_SAME_BITS(evaluatePoints<double>(near, {Point(d, 0.5)})[0], ones) << d; // ties up
        Point p(d, 0.0);
        p[0] = p[d - 1] = 1;
        EXPECT_SAME_BITS(evaluatePoints<double>(near, {p})[0],
                         d == 1 ? 1 : 1 + std::ldexp(1.0, int(d - 1)));
    }
}

// ---- cubic convolution against an independently extended grid ----------------------------
// One phantom layer at each end of every dimension, dimension by dimension (a later dimension
// extends the layers already added), and Keys' kernel (a = -1/2) in the distances 1 + t, t,
// 1 - t, 2 - t.
double cubicReference(const Grids& g, const std::vector<double>& v, const Point& x) {
    const u64 d = g.size();
    std::vector<u64> n, stride(d + 1, 1);
    for (u64 k = 0; k < d; ++k) {
        n.push_back(g[k].size() + 2);
        stride[k + 1] = stride[k] * n[k];
    }
    std::vector<double> e(stride[d], 0.0);
    for (u64 j = 0; j < v.size(); ++j) {
        u64 r = j, f = 0;
        for (u64 k = 0; k < d; ++k) {
            f += (r % g[k].size() + 1) * stride[k];
            r /= g[k].size();
        }
        e[f] = v[j];
    }
    for (u64 k = 0; k < d; ++k) {
        const u64 s = stride[k];
        for (u64 j = 0; j < e.size(); ++j) {
            const u64 ik = (j / s) % n[k];
            if (ik == 0) e[j] = 3 * (e[j + s] - e[j + 2 * s]) + e[j + 3 * s];
            if (ik == n[k] - 1) e[j] = 3 * (e[j - s] - e[j - 2 * s]) + e[j - 3 * s];
        }
    }
    auto nearW = [](double s) { return 1.5 * s * s * s - 2.5 * s * s + 1; };
    auto farW = [](double s) { return -0.5 * s * s * s + 2.5 * s * s - 4 * s + 2; };
    std::vector<u64> cell(d);
    std::vector<std::array<double, 4>> w(d);
    for (u64 k = 0; k < d; ++k) {
        const u64 i = findInterval(GridAxis<double>(g[k].data(), g[k].size()), x[k]);
        const double t = (x[k] - g[k][i]) / (g[k][i + 1] - g[k][i]);
        cell[k] = i;
        w[k] = {farW(1 + t), nearW(t), nearW(1 - t), farW(2 - t)};
    }
    double sum = 0;
    for (u64 c = 0; c < (u64{1} << (2 * d)); ++c) {
        double wt = 1;
        u64 f = 0;
        for (u64 k = 0; k < d; ++k) {
            const u64 digit = (c >> (2 * k)) & 3u;
            f += (cell[k] + digit) * stride[k];
            wt *= w[k][digit];
        }
        sum += wt * e[f];
    }
    return sum;
}

// Integer data and dyadic steps keep both sides exact: the bits must agree, inside and a
// cell beyond. With three points a dimension has only boundary cells (the lower phantom in
// cell 0, the upper one in cell 1).
TEST(CubicND, PhantomLayersMatchAnExtendedGrid) {
    const Grids cases[] = {{uniform(0, 1, 3), uniform(10, 2, 5)},
                           {uniform(0, 0.5, 4), uniform(-1, 0.25, 6), uniform(1, 1, 3)}};
    for (const Grids& g : cases) {
        std::mt19937_64 rng(g.size());
        const auto v =
            byIndex(g, [&](const std::vector<u64>&) { return double(rng() % 101) - 50; });
        const auto m = make(g, v, MethodId::Cubic);
        for (int i = 0; i < 700; ++i) {
            Point p(g.size()); // multiples of a sixteenth step, up to a cell beyond either end
            for (u64 k = 0; k < g.size(); ++k)
                p[k] = g[k][0] +
                       double(int(rng() % (16 * g[k].size() + 16)) - 16) / 16 * (g[k][1] - g[k][0]);
            EXPECT_SAME_BITS(at1(m, p), cubicReference(g, v, p)) << i;
        }
    }
}

// ---- the N-D spline -----------------------------------------------------------------------
double cubicOf(double x, double a, double b, double c) {
    return ((a * x + b) * x + c) * x - 1;
}

// |a - b| within tol of the larger of both and `scale`.
bool relClose(double a, double b, double tol, double scale = 1.0) {
    return std::abs(a - b) <= tol * std::max({scale, std::abs(a), std::abs(b)});
}

// Tensor cubics on non-uniform grids, inside and outside; a two-point dimension gives the
// line, a three-point one the parabola (data linear, quadratic and cubic along them are
// reproduced), also in four dimensions (the kernels' general path).
TEST(SplineND, ReproducesWhatItsPointCountsAllow) {
    struct Case {
        Grids g;
        std::function<double(const Point&)> f;
    };
    const Case cases[] = {
        {{{-1, -0.3, 0.4, 0.6, 1.5, 2}, {0, 0.5, 0.75, 1.6, 2.2}, {-2, -1.1, -0.2, 0.1, 0.9, 2.4}},
         [](const Point& p) {
             return cubicOf(p[0], 0.5, -1, 2) * cubicOf(p[1], -1, 0.25, 0) * cubicOf(p[2], 1, 0, 1);
         }},
        {{{0.5, 2}, {-1, 0.2, 1}, {0, 0.4, 1, 1.3, 2}},
         [](const Point& p) {
             return (3 * p[0] - 1) * (p[1] * p[1] - 2 * p[1] + 0.5) * cubicOf(p[2], 1, 0, 1) +
                    p[0] * p[1];
         }},
        {{uniform(0, 0.5, 4), {-1, -0.2, 0.5, 1, 1.25}, uniform(1, 0.25, 5), {0, 0.3, 1, 1.1}},
         [](const Point& p) {
             return cubicOf(p[0], 0.5, -1, 2) * cubicOf(p[1], -1, 0.25, 0) +
                    p[2] * cubicOf(p[3], 1, 0, 1);
         }},
    };
    for (const Case& c : cases) {
        const auto m = make(c.g, sampleGrid<double>(c.g, c.f), MethodId::Spline);
        std::mt19937_64 rng(c.g.size());
        const std::vector<Point> pts = randomPoints(rng, c.g, 500, 1.0);
        const std::vector<double> r = evaluatePoints<double>(*m, pts);
        double scale = 0; // cancellation brings some results far below the data's magnitude
        for (const Point& p : pts)
            scale = std::max(scale, std::abs(c.f(p)));
        for (std::size_t i = 0; i < pts.size(); ++i)
            EXPECT_TRUE(relClose(r[i], c.f(pts[i]), 1e-11, scale)) << r[i] << " vs " << c.f(pts[i]);
    }
    // Arbitrary data stay linear along the two-point and quadratic along the three-point
    // dimension: vanishing second and third differences.
    const Grids g = cases[1].g;
    std::mt19937_64 rng(8);
    const auto m = make(g, randomValues(rng, 30), MethodId::Spline);
    const double h = 0.375;
    for (const Point& p : randomPoints(rng, g, 100, 0.5)) {
        std::vector<Point> q;
        for (int s = 0; s < 3; ++s)
            q.push_back({p[0] + s * h, p[1], p[2]});
        for (int s = 0; s < 4; ++s)
            q.push_back({p[0], p[1] + s * h, p[2]});
        const auto r = evaluatePoints<double>(*m, q);
        double scale = 1;
        for (double x : r)
            scale += std::abs(x);
        EXPECT_NEAR(r[0] - 2 * r[1] + r[2], 0.0, 1e-12 * scale);
        EXPECT_NEAR(r[6] - 3 * r[5] + 3 * r[4] - r[3], 0.0, 1e-11 * scale);
    }
}

const Grids kSplineGrid{{-1.0, -0.3, 0.4, 0.6, 1.5, 2.0},
                        {0.0, 0.5, 0.75, 1.6, 2.2},
                        {-2.0, -1.1, -0.2, 0.1, 0.9, 1.3, 2.4}};

// The dimension-by-dimension reduction of a query grid and the tensor table agree up to
// rounding (relative to the data's magnitude; outside the grid the end pieces amplify it):
// more queries than grid points (intermediates in the output), fewer (in a block of their
// own), two value sets, and complex output (stride 2, so the intermediates cannot live there).
TEST(SplineND, GriddedEqualsScattered) {
    std::mt19937_64 rng(10);
    const GridData<double, double> d{kSplineGrid, randomValues(rng, 2 * 6 * 5 * 7), 2};
    EvaluatorInterp<SplineND<double, double>> e(d.setup());
    const std::vector<Grids> cases = {
        {uniform(-1.5, 0.17, 25), uniform(-0.5, 0.13, 23), uniform(-2.5, 0.2, 27)},
        {{0.1, 1.9}, {0.3}, {-1.0, 0.0, 2.5}},
        {uniform(-1, 0.5, 7), uniform(0, 0.55, 5), {0.05}},
    };
    for (const Grids& qv : cases) {
        const std::vector<double> gr = evaluateVectors<double>(e, qv);
        const std::vector<Point> pts = expand(qv);
        const std::vector<double> sc = evaluatePoints<double>(e, pts);
        ASSERT_EQ(gr.size(), sc.size());
        double scale = 0;
        for (double x : sc)
            scale = std::max(scale, std::abs(x));
        for (u64 i = 0; i < gr.size(); ++i) {
            const Point& p = pts[i % pts.size()];
            bool in = true;
            for (u64 k = 0; k < 3; ++k)
                in = in && p[k] >= kSplineGrid[k].front() && p[k] <= kSplineGrid[k].back();
            ASSERT_TRUE(relClose(gr[i], sc[i], in ? 1e-13 : 1e-11, scale))
                << i << ": " << gr[i] << " vs " << sc[i];
        }
    }
    const Grids qv{uniform(-0.5, 0.25, 21), uniform(0, 0.1, 21), {0.3}};
    HostArray cell = HostArray::createCell(1, 3);
    for (u64 k = 0; k < 3; ++k)
        cell.setCell(k, HostArray::columnVector(qv[k]));
    HostArray out = HostArray::createNumeric({21, 21}, platform::ClassId::Double, true);
    e.evaluateGridded(cell, out);
    const std::vector<double> plain = evaluateVectors<double>(e, qv);
    for (u64 i = 0; i < 2 * 21 * 21; ++i)
        EXPECT_TRUE(relClose(out.data<double>()[2 * (i % 441) + i / 441], plain[i], 1e-13)) << i;
}

// New values drop both coefficient tables and keep the index tables; the results are a fresh
// evaluator's bits. An allocation failing anywhere while the tables are built is
// std::bad_alloc, nothing is half stored, and the next evaluation gives the right bits.
TEST(SplineND, TablesOnNewValuesAndAllocationFailures) {
    std::mt19937_64 rng(11);
    const GridData<double, double> d{kSplineGrid, randomValues(rng, 210), 1};
    const std::vector<Point> pts = randomPoints(rng, kSplineGrid, 100, 0.3);
    const Grids qv{uniform(-1, 0.3, 11), {0.2, 1.1}, {0.0, 1.0}};
    EvaluatorInterp<SplineND<double, double>> e(d.setup());
    (void)evaluatePoints<double>(e, pts);
    (void)evaluateVectors<double>(e, qv);
    SplineND<double, double>& m = *e.methodObjects[0];
    ASSERT_TRUE(m.indexTablesReady());
    ASSERT_TRUE(m.coefficientTable.coefficients && m.lastDimTable.coefficients);
    const u64* strides = m.coefficientStrides.data();
    const GridData<double, double> d2{kSplineGrid, randomValues(rng, 210), 1};
    const void* planes[] = {d2.values.data()};
    e.rebindValues(planes);
    EXPECT_FALSE(m.coefficientTable.coefficients);
    EXPECT_FALSE(m.lastDimTable.coefficients);
    EXPECT_TRUE(m.indexTablesReady());
    const auto sc = evaluatePoints<double>(e, pts), gr = evaluateVectors<double>(e, qv);
    EXPECT_EQ(m.coefficientStrides.data(), strides);
    EvaluatorInterp<SplineND<double, double>> fresh(d2.setup());
    const auto sc2 = evaluatePoints<double>(fresh, pts), gr2 = evaluateVectors<double>(fresh, qv);
    for (u64 i = 0; i < sc.size(); ++i)
        ASSERT_SAME_BITS(sc[i], sc2[i]);
    for (u64 i = 0; i < gr.size(); ++i)
        ASSERT_SAME_BITS(gr[i], gr2[i]);

    if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "fault injection off";
    u64 failures = 0;
    for (u64 k = 1; k < 200; ++k) {
        EvaluatorInterp<SplineND<double, double>> f(d2.setup());
        platform::failAllocationAfter(k);
        bool threw = false;
        try {
            (void)evaluatePoints<double>(f, pts);
            (void)evaluateVectors<double>(f, qv);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        platform::failAllocationAfter(0);
        if (!threw) break;
        ++failures;
        const auto got = evaluatePoints<double>(f, pts), gotG = evaluateVectors<double>(f, qv);
        for (u64 i = 0; i < got.size(); ++i)
            ASSERT_SAME_BITS(got[i], sc2[i]);
        for (u64 i = 0; i < gotG.size(); ++i)
            ASSERT_SAME_BITS(gotG[i], gr2[i]);
    }
    EXPECT_GT(failures, 5u);
    // A query grid whose intermediate sizes overflow allocates nothing.
    const SplineND<double, double>::Pair* tables[3] = {nullptr, nullptr, nullptr};
    const u64 lengths[3] = {u64{1} << 40, u64{1} << 40, u64{1} << 40};
    const GriddedPairs<SplineND<double, double>::Pair> q{tables, lengths, 3, 1};
    double out = 0;
    const u64 before = platform::allocationCount();
    EXPECT_THROW(m.evaluateGriddedPlane(q, &out, 1), std::bad_alloc);
    EXPECT_EQ(platform::allocationCount(), before);
}

} // namespace
