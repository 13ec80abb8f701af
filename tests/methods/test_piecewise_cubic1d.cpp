// What is special to the 1-D piecewise cubics, as tables with one checker each: pchip's slope
// rules, end clamps, monotonicity and local NaNs; the spline's two- and three-point cases, its
// not-a-knot and C2 conditions and the many-column solve; cubic convolution's phantom (ghost)
// values and exact bits; and for all three, coefficients rebuilt after new values and
// allocation failures that leave nothing half built.
#include "mathinterp/methods/Cubic1D.hpp"
#include "mathinterp/methods/Pchip1D.hpp"
#include "mathinterp/methods/Spline1D.hpp"
#include "mathinterp/methods/SplineCoefficients.hpp"
#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <platform/HostAllocator.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace mathinterp;
using namespace testsupport;

namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();

// Every plane of `values` (planes of x.size() points) through a factory-built evaluator.
template <class G, class V, class Q>
std::vector<V> evaluate(MethodId m, const std::vector<G>& x, const std::vector<V>& values,
                        const std::vector<Q>& q, MethodId extrap = MethodId::None) {
    const GridData<G, V> d{{x}, values, values.size() / x.size()};
    return evaluate1D<V>(*d.make(m, extrap == MethodId::None ? m : extrap), q);
}

// The blocks c3 | c2 | c1 | c0 of a pchip or spline (each n - 1 long).
template <template <class, class> class M, class G, class V>
std::vector<V> blocksOf(const std::vector<G>& x, const std::vector<V>& y) {
    M<G, V> m(x.data(), x.size(), y.data());
    m.complete();
    return std::vector<V>(m.coefficientBlocks(), m.coefficientBlocks() + 4 * (x.size() - 1));
}

// Dyadic data, so every step is exact in every precision pair.
struct BlockCase {
    const char* what;
    MethodId method;
    std::vector<double> x, y, blocks, q, want; // want: evaluator results at q
};
const BlockCase kBlockCases[] = {
    // The middle slope is 0 at the maximum; the left end formula 4 > 3 delta_0 is clamped to 3;
    // on the right -8 stays within 3 |delta_1|.
    {"pchip turn", MethodId::Pchip, {0, 1, 2}, {0, 1, -4}, {1, 2, -3, -7, 3, 0, 0, 1}, {}, {}},
    {"pchip turn mirrored",
     MethodId::Pchip,
     {0, 1, 2},
     {-4, 1, 0},
     {-2, -1, -1, 0, 8, 0, -4, 1},
     {},
     {}},
    // A flat first interval (the end formula -2.5 disagrees with delta_0 = 0: slope 0),
    // weighted harmonic means inside (4.5 = 9/(5/5 + 4/4), 4 = 9/(4/4 + 5/4)), end formula 4.
    {"pchip five non-uniform points",
     MethodId::Pchip,
     {0, 1, 2, 4, 5},
     {1, 1, 6, 14, 18},
     {0, -5.5, 0.125, 0, 0, 10.5, -0.5, 0, 0, 0, 4.5, 4, 1, 1, 6, 14},
     {-1, 0, 2, 3, 4, 5, 6},
     {1, 1, 6, 10.125, 14, 18, 22}},
    {"pchip two points", MethodId::Pchip, {1, 3}, {2, 6}, {0, 0, 2, 2}, {-1, 2.5, 5}, {-2, 5, 10}},
    {"spline two points",
     MethodId::Spline,
     {1, 3},
     {2, 6},
     {0, 0, 2, 2},
     {-1, 2.5, 5},
     {-2, 5, 10}},
    // Three points: the parabola x^2 + 1, one quadratic term on both intervals.
    {"spline three points",
     MethodId::Spline,
     {0, 1, 3},
     {1, 2, 10},
     {0, 0, 1, 1, 0, 2, 1, 2},
     {-1, 0.5, 1, 3, 5},
     {2, 1.25, 2, 10, 26}},
};

template <class P>
class PiecewiseCubicPairs : public ::testing::Test {};
TYPED_TEST_SUITE(PiecewiseCubicPairs, PrecisionPairs);

TYPED_TEST(PiecewiseCubicPairs, HandComputedBlocksAndValues) {
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    for (const BlockCase& c : kBlockCases) {
        SCOPED_TRACE(c.what);
        const auto x = as<G>(c.x);
        const auto y = as<V>(c.y);
        const auto b = c.method == MethodId::Pchip ? blocksOf<Pchip1D, G, V>(x, y)
                                                   : blocksOf<Spline1D, G, V>(x, y);
        ASSERT_EQ(b.size(), c.blocks.size());
        for (std::size_t i = 0; i < b.size(); ++i)
            EXPECT_SAME_BITS(b[i], static_cast<V>(c.blocks[i])) << "entry " << i;
        const auto rd = evaluate<G, V, double>(c.method, x, y, c.q);
        const auto rs = evaluate<G, V, float>(c.method, x, y, as<float>(c.q));
        for (std::size_t i = 0; i < c.q.size(); ++i) {
            EXPECT_SAME_BITS(rd[i], static_cast<V>(c.want[i])) << "query " << c.q[i];
            EXPECT_SAME_BITS(rs[i], static_cast<V>(c.want[i])) << "query " << c.q[i];
        }
    }
}

// Slope rules. Interior weights: w1 = 2 h_right + h_left, w2 = 2 h_left + h_right.
TEST(Pchip1D, SlopeRules) {
    struct Case {
        bool end;
        double a, b, c, d, want; // interior: dl, dr, hl, hr; end: h0, h1, d0, d1
    };
    const Case cases[] = {
        {false, 1, -1, 1, 1, 0},    // change of sign
        {false, 0, 2, 1, 1, 0},     // flat on the left
        {false, 2, 0, 1, 1, 0},     // flat on the right
        {false, -2, -2, 1, 3, -2},  // equal slopes
        {false, 5, 4, 1, 2, 4.5},   // swapped weights would not give 4.5
        {false, 2, 8, 1, 1, 3.2},   // 2*2*8/(2 + 8)
        {false, -1, nan, 1, 1, 0},  // NaN is not negative: it disagrees with a negative slope
        {false, 1, nan, 1, 1, nan}, // ... and agrees with a positive one
        {false, nan, 1, 1, 1, nan},
        {true, 1, 1, 1, -5, 3},    // formula 4 > 3 delta_0 at a turn: clamped
        {true, 1, 1, -1, 5, -3},   // the same, negative
        {true, 1, 1, 1, -1, 2},    // formula within 3 delta_0: kept
        {true, 1, 1, 1, 2, 0.5},   // no turn: kept
        {true, 1, 1, 1, 4, 0},     // formula -0.5 disagrees with delta_0: zero
        {true, 2, 1, 0, 3, 0},     // formula -2 disagrees with a flat delta_0
        {true, 2, 1, 3, 0, 5},     // (5*3 - 2*0)/3 on unequal widths
        {true, 1, 1, nan, 1, nan}, // NaN slopes propagate...
        {true, 1, 1, 1, nan, nan},
        {true, 1, 1, -1, nan, 0}, // ... unless the NaN formula disagrees with a negative delta_0
    };
    for (const Case& c : cases) {
        const double d =
            c.end ? pchip::endSlope(c.a, c.b, c.c, c.d) : pchip::interiorSlope(c.a, c.b, c.c, c.d);
        const float f = c.end
                            ? pchip::endSlope(float(c.a), float(c.b), float(c.c), float(c.d))
                            : pchip::interiorSlope(float(c.a), float(c.b), float(c.c), float(c.d));
        if (std::isnan(c.want)) {
            EXPECT_TRUE(std::isnan(d) && std::isnan(f)) << c.a << " " << c.b;
        } else {
            EXPECT_SAME_BITS(d, c.want) << c.a << " " << c.b << " " << c.c << " " << c.d;
            EXPECT_SAME_BITS(f, float(c.want)) << c.a << " " << c.b << " " << c.c << " " << c.d;
        }
    }
}

// Monotone data with flat stretches, increasing and decreasing, sampled densely: the curve
// never turns back and never leaves its interval's range (beyond a few ulps of rounding).
template <class T>
void checkMonotone() {
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(0.05, 2.0), step(0, 3);
    std::vector<T> x{0}, y{0};
    for (int i = 1; i < 30; ++i) {
        x.push_back(static_cast<T>(x.back() + static_cast<T>(u(rng))));
        const double s = (i % 7 == 3) ? 0.0 : step(rng) * step(rng) * step(rng);
        y.push_back(static_cast<T>(y.back() + static_cast<T>(s)));
    }
    std::vector<double> q;
    for (std::size_t k = 0; k + 1 < x.size(); ++k)
        for (int j = 0; j <= 200; ++j)
            q.push_back(double(x[k]) + (double(x[k + 1]) - double(x[k])) * j / 200.0);
    const double tol = 8 * std::numeric_limits<T>::epsilon() * double(y.back());
    for (const bool down : {false, true}) {
        std::vector<T> ys = y;
        if (down) std::reverse(ys.begin(), ys.end());
        const auto r = evaluate<T, T, double>(MethodId::Pchip, x, ys, q);
        std::size_t k = 0;
        for (std::size_t i = 0; i < q.size(); ++i) {
            while (k + 2 < x.size() && q[i] >= double(x[k + 1]))
                ++k;
            ASSERT_GE(r[i], std::min(ys[k], ys[k + 1]) - tol) << "query " << q[i];
            ASSERT_LE(r[i], std::max(ys[k], ys[k + 1]) + tol) << "query " << q[i];
            if (i > 0) {
                ASSERT_GE(down ? r[i - 1] - r[i] : r[i] - r[i - 1], -tol) << q[i];
            }
        }
    }
}

TEST(Pchip1D, MonotoneDataStayMonotone) {
    checkMonotone<double>();
    checkMonotone<float>();
}

// A NaN value reaches only the derivatives next to it: after a falling slope the NaN slope
// disagrees (derivative 0, interval 0 finite); after a rising one interval 0 is NaN. The
// spline's solve couples every node: one NaN makes its whole value set NaN. The other value
// set of the same evaluator is what it is alone.
TEST(PiecewiseCubic1D, NaNValueReach) {
    const std::vector<double> x{0, 1, 2, 3, 4, 5, 6};
    const std::vector<double> q{-0.5, 0.25, 0.5, 1.5, 2.5, 4.5, 5.5, 7};
    struct Case {
        MethodId method;
        std::vector<double> y;
        const char* nanAt; // per query: 'n' NaN, 'f' finite
    };
    const Case cases[] = {{MethodId::Pchip, {1, 0, nan, 3, 4, 6, 7}, "fffnnfff"},
                          {MethodId::Pchip, {0, 1, nan, 3, 4, 6, 7}, "nnnnnfff"},
                          {MethodId::Spline, {1, 0, nan, 3, 4, 6, 7}, "nnnnnnnn"}};
    const std::vector<double> clean{1, 0, 2, 3, 4, 6, 7};
    for (const Case& c : cases) {
        std::vector<double> both = clean;
        both.insert(both.end(), c.y.begin(), c.y.end());
        const auto r = evaluate<double, double, double>(c.method, x, both, q);
        const auto ref = evaluate<double, double, double>(c.method, x, clean, q);
        for (std::size_t i = 0; i < q.size(); ++i) {
            EXPECT_SAME_BITS(r[i], ref[i]) << "query " << q[i];
            EXPECT_EQ(std::isnan(r[q.size() + i]), c.nanAt[i] == 'n') << "query " << q[i];
        }
    }
    // Pchip interval 0 with slopes 0 at both ends: 1 - 3 s^2 + 2 s^3, exact at s = 0.5.
    const std::vector<double> half{0.5};
    EXPECT_SAME_BITS((evaluate<double, double, double>(MethodId::Pchip, x, cases[0].y, half)[0]),
                     0.5);
}

// Four points: the not-a-knot spline is the one cubic through them (one cubic term on all
// three intervals, the Lagrange cubic inside and outside). On eleven random points the
// coefficients meet the nodes exactly, are C2 at every interior node and not-a-knot at both
// ends.
TEST(Spline1D, NotAKnotAndC2Conditions) {
    const std::vector<double> x4{0, 0.7, 1.9, 3.2}, y4{1.3, -0.4, 2.2, 0.9};
    const auto c4 = blocksOf<Spline1D, double, double>(x4, y4);
    EXPECT_ULP_CLOSE(c4[1], c4[0], 64);
    EXPECT_ULP_CLOSE(c4[2], c4[0], 64);
    auto lagrange = [&](double t) {
        double s = 0;
        for (int i = 0; i < 4; ++i) {
            double l = y4[i];
            for (int j = 0; j < 4; ++j)
                if (j != i) l *= (t - x4[j]) / (x4[i] - x4[j]);
            s += l;
        }
        return s;
    };
    const std::vector<double> q{-1, 0.3, 1.0, 2.5, 3.2, 4.5};
    const auto r = evaluate<double, double, double>(MethodId::Spline, x4, y4, q);
    for (std::size_t i = 0; i < q.size(); ++i)
        EXPECT_NEAR(r[i], lagrange(q[i]), 1e-12 * (1 + std::abs(lagrange(q[i]))));

    std::mt19937_64 rng(5);
    const std::vector<double> x = irregularGrid(rng, 11), y = randomValues(rng, 11, -2, 2);
    const auto c = blocksOf<Spline1D, double, double>(x, y);
    const std::size_t p = x.size() - 1;
    auto near = [](double a, double b) {
        return std::abs(a - b) <= 1e-11 * (1 + std::abs(a) + std::abs(b));
    };
    for (std::size_t k = 0; k < p; ++k) {
        EXPECT_SAME_BITS(c[3 * p + k], y[k]);
        const double h = x[k + 1] - x[k];
        EXPECT_TRUE(near(((c[k] * h + c[p + k]) * h + c[2 * p + k]) * h + c[3 * p + k], y[k + 1]));
        if (k + 1 == p) break;
        EXPECT_TRUE(near((3 * c[k] * h + 2 * c[p + k]) * h + c[2 * p + k], c[2 * p + k + 1]))
            << "slope at node " << k + 1;
        EXPECT_TRUE(near(6 * c[k] * h + 2 * c[p + k], 2 * c[p + k + 1])) << "curvature " << k + 1;
    }
    EXPECT_TRUE(near(c[0], c[1]));
    EXPECT_TRUE(near(c[p - 2], c[p - 1]));
}

// m columns solved together (serially for m <= 2, in parallel from 3; point i of column j at
// i m + j; in 3-D m is the product of the leading lengths) equal m single-column solves.
template <class T, class G>
void checkColumns(u64 n, const std::vector<u64>& leading) {
    std::mt19937_64 rng(17 + n);
    const std::vector<G> x = as<G>(irregularGrid(rng, n));
    u64 m = 1;
    for (u64 l : leading)
        m *= l;
    const std::vector<T> values = as<T>(randomValues(rng, n * m, -4, 4));
    std::vector<const G*> grids(leading.size(), nullptr);
    grids.push_back(x.data());
    std::vector<u64> sizes = leading;
    sizes.push_back(n);
    const SplineRecord<T> all =
        splineCoefficients<T, G>(values.data(), grids.data(), sizes.data(), sizes.size());
    ASSERT_EQ(all.columns, m);
    ASSERT_EQ(all.pieces, n - 1);
    for (u64 j = 0; j < m; ++j) {
        std::vector<T> column(n);
        for (u64 i = 0; i < n; ++i)
            column[i] = values[i * m + j];
        const auto single = blocksOf<Spline1D, G, T>(x, column);
        for (u64 e = 0; e < 4 * (n - 1); ++e)
            ASSERT_SAME_BITS(all.coefficients[j * 4 * (n - 1) + e], single[e])
                << "n " << n << " column " << j << " entry " << e;
    }
}

TEST(SplineCoefficients, ManyColumnsEqualSingleColumnSolves) {
    for (u64 n : {2u, 3u, 4u, 5u, 61u}) {
        for (u64 m : {1u, 2u, 3u, 7u}) {
            checkColumns<double, double>(n, {m});
            checkColumns<float, float>(n, {m});
        }
        checkColumns<double, float>(n, {2, 3});
        checkColumns<float, double>(n, {3, 1, 2});
    }
    // A size product that overflows is an allocation failure before anything is allocated.
    const std::vector<double> x{0, 1, 2}, y{1, 2, 3};
    const double* grids[] = {x.data(), x.data()};
    const u64 sizes[] = {u64{1} << 62, x.size()};
    EXPECT_THROW((splineCoefficients<double, double>(y.data(), grids, sizes, 2)), std::bad_alloc);
}

// Cubic convolution, term by term in the documented order: ghosts, t = (xq - x[k]) / h[k],
// the four weights with t^2 = t*t, ((w-1 y-1 + w0 y0) + w1 y1) + w2 y2, times 0.5; spacings
// and t in the grid type, the rest in the value type. The data make any other association of
// the four products round differently. Three points: interval 0 with the left ghost,
// interval 1 with the right one; four: left ghost, all data, right ghost.
template <class G, class V>
struct CubicCase {
    std::vector<G> x;
    std::vector<V> y;
    G xq;
    V want;
};

template <class G, class V>
void checkCubic(const std::vector<CubicCase<G, V>>& cases) {
    for (const auto& c : cases) {
        Cubic1D<G, V> m(c.x.data(), c.x.size(), c.y.data());
        m.complete();
        EXPECT_SAME_BITS(m.kernel(c.xq, findInterval(m, c.xq)), c.want)
            << "n = " << c.x.size() << ", xq = " << c.xq;
    }
}

TEST(Cubic1D, ExactBitsInEveryPrecisionPair) {
    checkCubic<double, double>({
        {{0.0, 0.5, 1.0}, {-1.59, 2.97, -0.18}, 0.1, -0x1.f559b3d07c847p-5},
        {{0.0, 0.5, 1.0}, {-0.16, 1.31, 2.27}, 0.7, 0x1.c154c985f06f7p+0},
        {{1.0, 1.25, 1.5, 1.75}, {-2.18, -1.7, 2.79, -0.38}, 1.1, -0x1.3c0ebedfa43ffp+1},
        {{1.0, 1.25, 1.5, 1.75}, {1.31, -1.01, 2.29, 2.88}, 1.3, -0x1.5527e52157686p-1},
        {{1.0, 1.25, 1.5, 1.75}, {-0.82, -1.12, -0.79, 0.57}, 1.7, 0x1.b98c7e28240a9p-3},
        {{0.0, 0.5, 1.0}, {2.89, 2.23, -1.26}, 0.1, 0x1.7e00d1b71758fp+1},
        {{0.0, 0.5, 1.0}, {2.77, 0.24, 1.07}, 0.7, 0x1.59b3d07c84b62p-3},
        {{1.0, 1.25, 1.5, 1.75}, {-1.77, 2.65, 1.14, 2.8}, 1.3, 0x1.56a161e4f765fp+1},
    });
    checkCubic<float, double>({
        {{0.0f, 0.5f, 1.0f}, {1.59, -2.04, 1.78}, 0.1f, 0x1.126e966106250p-2},
        {{0.0f, 0.5f, 1.0f}, {-2.17, 0.7, -2.24}, 0.7f, 0x1.c50488fb7e8d4p-3},
        {{1.0f, 1.25f, 1.5f, 1.75f}, {-2.99, 2.23, -1.74, -1.71}, 1.3f, 0x1.f5cd158159bdbp+0},
    });
    checkCubic<double, float>({
        {{0.0, 0.5, 1.0}, {2.41f, -2.32f, -0.19f}, 0.1, 0x1.d49516p-1f},
        {{0.0, 0.5, 1.0}, {-1.52f, 0.26f, 0.44f}, 0.7, 0x1.0c49b8p-1f},
        {{1.0, 1.25, 1.5, 1.75}, {-2.92f, -1.7f, -1.32f, 2.5f}, 1.3, -0x1.a0125ap+0f},
    });
    checkCubic<float, float>({
        {{0.0f, 0.5f, 1.0f}, {0.74f, 1.45f, 1.77f}, 0.1f, 0x1.d38ef4p-1f},
        {{0.0f, 0.5f, 1.0f}, {2.65f, 1.44f, 2.53f}, 0.7f, 0x1.99999ap+0f},
        {{1.0f, 1.25f, 1.5f, 1.75f}, {-2.83f, -0.21f, 2.66f, 0.89f}, 1.3f, 0x1.b05f84p-2f},
    });
}

// The ghosts are the quadratic through the three end points, built on first use; with them
// a quadratic on a dyadic grid is reproduced to the bit from 1.5 cells below to 1.5 above.
TEST(Cubic1D, GhostsContinueTheEndQuadratic) {
    const std::vector<double> x{0, 1, 2, 3, 4}, y{1, 4, 2, 8, 5};
    Cubic1D<double, double> m(x.data(), x.size(), y.data());
    EXPECT_FALSE(m.prepared());
    m.complete();
    EXPECT_TRUE(m.prepared());
    EXPECT_EQ(m.leftGhost, (1.0 - 4.0) * 3 + 2);
    EXPECT_EQ(m.rightGhost, (5.0 - 8.0) * 3 + 2);
    auto f = [](double v) { return 2 * v * v - 3 * v + 1; };
    std::vector<double> xq(7), yq(7);
    for (u64 k = 0; k < 7; ++k) {
        xq[k] = -1.0 + 0.5 * double(k);
        yq[k] = f(xq[k]);
    }
    Cubic1D<double, double> quad(xq.data(), 7, yq.data());
    quad.complete();
    for (int j = -24; j <= 72; ++j) {
        const double t = -1.0 + 0.5 * j / 8.0;
        EXPECT_SAME_BITS(quad.kernel(t, findInterval(quad, t)), f(t)) << "xq = " << t;
    }
}

// New values (the rebuilt coefficients are the conformance suite's): cubic keeps its spacings
// and builds new ghosts.
TEST(Cubic1D, NewValuesKeepTheSpacings) {
    const std::vector<double> x{0, 1, 2, 4, 5}, a{1, 1, 6, 14, 18}, b{0, 1, -4, 2, 2};
    Cubic1D<double, double> c(x.data(), x.size(), a.data());
    c.complete();
    const double* spacings = c.spacings.data();
    c.rebindValues(b.data());
    c.complete();
    EXPECT_EQ(c.spacings.data(), spacings);
    EXPECT_EQ(c.leftGhost, (0.0 - 1.0) * 3 - 4);
}

// Each allocation of the fill failing in turn: std::bad_alloc, no coefficients kept, and the
// next completion gives the usual blocks.
template <template <class, class> class M>
void checkAllocationFailures() {
    const std::vector<double> x{0, 0.5, 1.5, 2, 4}, y{1, -1, 2, 0, 3};
    const auto want = blocksOf<M, double, double>(x, y);
    for (std::uint64_t k = 1;; ++k) {
        M<double, double> m(x.data(), x.size(), y.data());
        platform::failAllocationAfter(k);
        bool threw = false;
        try {
            m.complete();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        platform::failAllocationAfter(0);
        if (!threw) {
            EXPECT_GE(k, 3u); // more than one allocation was tried
            break;
        }
        EXPECT_EQ(m.coefficientBlocks(), nullptr);
        m.complete();
        EXPECT_EQ(std::vector<double>(m.coefficientBlocks(), m.coefficientBlocks() + want.size()),
                  want);
    }
}

TEST(PiecewiseCubic1D, AllocationFailureIsBadAllocAndRetryable) {
    if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "no fault injection in this build";
    checkAllocationFailures<Pchip1D>();
    checkAllocationFailures<Spline1D>();
}

} // namespace
