// Cubic1D: exact bits on small hand-computed cases (both summation orders, the four precision
// pairs), quadratic reproduction, grid points, NaN queries, ghost recomputation after
// rebinding, serial == parallel and concurrent first evaluations.
#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/methods/Cubic1D.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "support/Bits.hpp"

#include <cmath>
#include <random>
#include <thread>
#include <vector>

using namespace mathinterp;
using platform::ClassId;
using platform::HostArray;

namespace {

// One query through the method as the 1-D drivers run it.
template <class G, class V, class Q>
V evalOne(Cubic1D<G, V>& m, Q xq) {
    m.complete();
    return m.kernel(xq, findInterval(m, xq));
}

template <class G, class V>
struct Case {
    std::vector<G> x;
    std::vector<V> y;
    G xq; // queries are given in the grid type (a double query on a double grid)
    V expected;
};

template <class G, class V>
void checkCases(const std::vector<Case<G, V>>& cases) {
    for (const auto& c : cases) {
        Cubic1D<G, V> m(c.x.data(), c.x.size(), c.y.data());
        EXPECT_SAME_BITS(evalOne(m, c.xq), c.expected) << "n = " << c.x.size() << ", xq = " << c.xq;
    }
}

} // namespace

// Expected values were worked out separately, term by term in the documented order: ghosts,
// t = (xq - x[k]) / h[k], the four weights with t^2 = t*t, the four products summed left to
// right ((w-1 y-1 + w0 y0) + w1 y1) + w2 y2, then times 0.5. The data were chosen so that
// any other association of the four products rounds to a different result.
TEST(Cubic1DBits, ThreeAndFourPointsBothSummationOrders) {
    checkCases<double, double>({
        // three points: interval 0 with the left ghost, interval 1 with the right ghost
        {{0.0, 0.5, 1.0}, {-1.59, 2.97, -0.18}, 0.1, -0x1.f559b3d07c847p-5},
        {{0.0, 0.5, 1.0}, {-0.16, 1.31, 2.27}, 0.7, 0x1.c154c985f06f7p+0},
        // four points: left ghost, all-data interior interval, right ghost
        {{1.0, 1.25, 1.5, 1.75}, {-2.18, -1.7, 2.79, -0.38}, 1.1, -0x1.3c0ebedfa43ffp+1},
        {{1.0, 1.25, 1.5, 1.75}, {1.31, -1.01, 2.29, 2.88}, 1.3, -0x1.5527e52157686p-1},
        {{1.0, 1.25, 1.5, 1.75}, {-0.82, -1.12, -0.79, 0.57}, 1.7, 0x1.b98c7e28240a9p-3},
    });
}

// Spacings and t in the grid type, ghosts, weights and the sum in the value type.
TEST(Cubic1DBits, PrecisionPairs) {
    checkCases<double, double>({
        {{0.0, 0.5, 1.0}, {2.89, 2.23, -1.26}, 0.1, 0x1.7e00d1b71758fp+1},
        {{0.0, 0.5, 1.0}, {2.77, 0.24, 1.07}, 0.7, 0x1.59b3d07c84b62p-3},
        {{1.0, 1.25, 1.5, 1.75}, {-1.77, 2.65, 1.14, 2.8}, 1.3, 0x1.56a161e4f765fp+1},
    });
    checkCases<float, double>({
        {{0.0f, 0.5f, 1.0f}, {1.59, -2.04, 1.78}, 0.1f, 0x1.126e966106250p-2},
        {{0.0f, 0.5f, 1.0f}, {-2.17, 0.7, -2.24}, 0.7f, 0x1.c50488fb7e8d4p-3},
        {{1.0f, 1.25f, 1.5f, 1.75f}, {-2.99, 2.23, -1.74, -1.71}, 1.3f, 0x1.f5cd158159bdbp+0},
    });
    checkCases<double, float>({
        {{0.0, 0.5, 1.0}, {2.41f, -2.32f, -0.19f}, 0.1, 0x1.d49516p-1f},
        {{0.0, 0.5, 1.0}, {-1.52f, 0.26f, 0.44f}, 0.7, 0x1.0c49b8p-1f},
        {{1.0, 1.25, 1.5, 1.75}, {-2.92f, -1.7f, -1.32f, 2.5f}, 1.3, -0x1.a0125ap+0f},
    });
    checkCases<float, float>({
        {{0.0f, 0.5f, 1.0f}, {0.74f, 1.45f, 1.77f}, 0.1f, 0x1.d38ef4p-1f},
        {{0.0f, 0.5f, 1.0f}, {2.65f, 1.44f, 2.53f}, 0.7f, 0x1.99999ap+0f},
        {{1.0f, 1.25f, 1.5f, 1.75f}, {-2.83f, -0.21f, 2.66f, 0.89f}, 1.3f, 0x1.b05f84p-2f},
    });
}

TEST(Cubic1DBits, GhostsAreTheQuadraticThroughTheEndPoints) {
    const std::vector<double> x{0, 1, 2, 3, 4};
    const std::vector<double> y{1, 4, 2, 8, 5};
    Cubic1D<double, double> m(x.data(), x.size(), y.data());
    EXPECT_FALSE(m.prepared());
    m.complete();
    EXPECT_TRUE(m.prepared());
    EXPECT_EQ(m.leftGhost, (1.0 - 4.0) * 3 + 2);  // -7
    EXPECT_EQ(m.rightGhost, (5.0 - 8.0) * 3 + 2); // -7
    ASSERT_EQ(m.spacings.size(), 4u);
    EXPECT_EQ(m.intervalCount, 4u);
}

// Keys' kernel with these ghosts reproduces quadratics. With dyadic grid, t and integer data
// every operation is exact, so the reproduction is exact to the bit, also outside the grid.
TEST(Cubic1DProperties, QuadraticOnUniformGridReproducedExactly) {
    auto f = [](double v) { return 2 * v * v - 3 * v + 1; };
    const u64 n = 7;
    std::vector<double> x(n), y(n);
    for (u64 k = 0; k < n; ++k) {
        x[k] = -1.0 + 0.5 * static_cast<double>(k);
        y[k] = f(x[k]);
    }
    Cubic1D<double, double> m(x.data(), n, y.data());
    for (int j = -24; j <= 8 * static_cast<int>(n - 1) + 24; ++j) {
        const double xq = -1.0 + 0.5 * j / 8.0; // from 1.5 cells below to 1.5 cells above
        EXPECT_SAME_BITS(evalOne(m, xq), f(xq)) << "xq = " << xq;
    }
    // Non-dyadic queries and a non-dyadic step: rounding only.
    const double h = 0.1;
    for (u64 k = 0; k < n; ++k) {
        x[k] = 3.0 + h * static_cast<double>(k);
        y[k] = f(x[k]);
    }
    Cubic1D<double, double> m2(x.data(), n, y.data());
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> u(2.85, 3.75);
    for (int j = 0; j < 500; ++j) {
        const double xq = u(rng);
        EXPECT_NEAR(evalOne(m2, xq), f(xq), 1e-12 * std::abs(f(xq))) << "xq = " << xq;
    }
}

TEST(Cubic1DProperties, GridPointsReturnGridValuesExactly) {
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> u(-5, 5);
    for (u64 n : {3u, 4u, 9u}) {
        std::vector<double> x(n), y(n);
        std::vector<float> yf(n);
        for (u64 k = 0; k < n; ++k) {
            x[k] = 0.3 + 0.7 * static_cast<double>(k);
            y[k] = u(rng);
            yf[k] = static_cast<float>(y[k]);
        }
        Cubic1D<double, double> m(x.data(), n, y.data());
        Cubic1D<double, float> mf(x.data(), n, yf.data());
        for (u64 k = 0; k < n; ++k) { // x[n-1] goes through interval n-2 at t = 1
            EXPECT_SAME_BITS(evalOne(m, x[k]), y[k]) << "n = " << n << ", k = " << k;
            EXPECT_SAME_BITS(evalOne(mf, x[k]), yf[k]) << "n = " << n << ", k = " << k;
        }
    }
}

TEST(Cubic1DProperties, NaNQueryGivesTheEngineNaN) {
    const std::vector<double> x{0, 1, 2, 3};
    const std::vector<double> y{1, 2, 3, 4};
    const std::vector<float> xf{0, 1, 2, 3};
    const std::vector<float> yf{1, 2, 3, 4};
    const double qnan = std::nan("");
    const float qnanf = std::nanf("");
    Cubic1D<double, double> nn(x.data(), 4, y.data());
    Cubic1D<double, float> nm(x.data(), 4, yf.data());
    Cubic1D<float, double> mn(xf.data(), 4, y.data());
    Cubic1D<float, float> mm(xf.data(), 4, yf.data());
    EXPECT_SAME_BITS(evalOne(nn, qnan), engineNaN<double>());
    EXPECT_SAME_BITS(evalOne(nn, qnanf), engineNaN<double>());
    EXPECT_SAME_BITS(evalOne(nm, qnan), engineNaN<float>());
    EXPECT_SAME_BITS(evalOne(mn, qnan), engineNaN<double>());
    EXPECT_SAME_BITS(evalOne(mm, qnanf), engineNaN<float>());
    EXPECT_SAME_BITS(evalOne(mm, -qnanf), engineNaN<float>());
    // A (positive) NaN value reaching the sum.
    const std::vector<double> yn{1, qnan, 3, 4};
    Cubic1D<double, double> withNaN(x.data(), 4, yn.data());
    EXPECT_SAME_BITS(evalOne(withNaN, 0.5), engineNaN<double>());
    EXPECT_SAME_BITS(evalOne(withNaN, 2.5), engineNaN<double>());
}

namespace {

struct Fixture1D {
    std::vector<double> x, y;
    EvaluatorSetup<double, double> setup;

    Fixture1D(u64 n, u64 planes, u64 seed) : x(n), y(n * planes) {
        std::mt19937_64 rng(seed);
        std::uniform_real_distribution<double> u(-1, 1);
        for (u64 k = 0; k < n; ++k)
            x[k] = -2.0 + 0.125 * static_cast<double>(k);
        for (auto& v : y)
            v = u(rng);
        setup.grids = {x.data()};
        setup.sizes = {n};
        setup.values = y.data();
        setup.pointsPerPlane = n;
        setup.numPlanes = planes;
    }
};

std::vector<double> randomQueries(u64 m, double lo, double hi, u64 seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(lo, hi);
    std::vector<double> q(m);
    for (auto& v : q)
        v = u(rng);
    q[0] = std::nan("");
    return q;
}

std::vector<double> run(Evaluator& e, const std::vector<double>& q, u64 planes) {
    const HostArray qa = HostArray::fromDoubles({q.size(), 1}, q);
    HostArray out = HostArray::createNumeric({q.size(), planes}, ClassId::Double);
    e.evaluateScattered(q.size(), qa, out);
    const double* p = out.data<double>();
    return std::vector<double>(p, p + q.size() * planes);
}

} // namespace

// The parallel loop (from 2048 queries) gives the same bits as one query at a time.
TEST(Cubic1DDrivers, SerialEqualsParallel) {
    Fixture1D fx(50, 2, 3);
    EvaluatorInterp<Cubic1D<double, double>> e(fx.setup);
    for (u64 m : {2047u, 2048u, 10000u}) {
        const std::vector<double> q = randomQueries(m, -3.0, 5.0, m);
        const std::vector<double> r = run(e, q, 2);
        for (u64 k = 0; k < 2; ++k) {
            Cubic1D<double, double> one(fx.x.data(), 50, fx.setup.plane(k));
            for (u64 i = 0; i < m; ++i)
                ASSERT_TRUE(testsupport::sameBits(r[k * m + i], evalOne(one, q[i])))
                    << "m = " << m << ", plane " << k << ", query " << i;
        }
    }
}

// As extrapolation method, outside the grid only; NaN queries go to the extrapolation.
TEST(Cubic1DDrivers, AsExtrapolationOfLinear) {
    Fixture1D fx(20, 1, 5);
    EvaluatorInterpExtrap<Linear1D<double, double>, Cubic1D<double, double>> e(fx.setup);
    const std::vector<double> q = randomQueries(3000, -3.0, 1.0, 9);
    const std::vector<double> r = run(e, q, 1);
    Cubic1D<double, double> c(fx.x.data(), 20, fx.y.data());
    Linear1D<double, double> l(fx.x.data(), 20, fx.y.data());
    l.complete();
    for (u64 i = 0; i < q.size(); ++i) {
        const bool inside = q[i] >= fx.x.front() && q[i] <= fx.x.back();
        const double want = inside ? l.kernel(q[i], findInterval(l, q[i])) : evalOne(c, q[i]);
        ASSERT_TRUE(testsupport::sameBits(r[i], want)) << "query " << i << " = " << q[i];
    }
}

// Ghosts derive from the values: rebinding recomputes them, the spacings stay.
TEST(Cubic1DDrivers, RebindRecomputesGhostsKeepsSpacings) {
    Fixture1D fx(30, 1, 13);
    EvaluatorInterp<Cubic1D<double, double>> e(fx.setup);
    const std::vector<double> q = randomQueries(4000, -2.5, 2.0, 17);
    run(e, q, 1);
    const double* spacingsBefore = e.methodObjects[0]->spacings.data();

    std::vector<double> y2(30);
    for (u64 k = 0; k < 30; ++k)
        y2[k] = std::cos(0.3 * static_cast<double>(k));
    const void* planes[] = {y2.data()};
    e.rebindValues(planes);
    EXPECT_EQ(e.methodObjects[0]->spacings.data(), spacingsBefore);
    const std::vector<double> r = run(e, q, 1);
    EXPECT_EQ(e.methodObjects[0]->spacings.data(), spacingsBefore);

    Cubic1D<double, double> fresh(fx.x.data(), 30, y2.data());
    for (u64 i = 0; i < q.size(); ++i)
        ASSERT_TRUE(testsupport::sameBits(r[i], evalOne(fresh, q[i]))) << "query " << i;
}

// Copies of an interpolant share one evaluator: concurrent first evaluations prepare the
// method once and all give the same bits.
TEST(Cubic1DDrivers, ConcurrentFirstEvaluations) {
    Fixture1D fx(200, 3, 21);
    EvaluatorInterp<Cubic1D<double, double>> e(fx.setup);
    const std::vector<double> q = randomQueries(3000, -2.5, 23.0, 23);
    std::vector<std::vector<double>> results(4);
    std::vector<std::thread> threads;
    for (auto& r : results)
        threads.emplace_back([&e, &q, &r] { r = run(e, q, 3); });
    for (auto& t : threads)
        t.join();
    for (u64 j = 1; j < results.size(); ++j) {
        ASSERT_EQ(results[j].size(), results[0].size());
        for (u64 i = 0; i < results[0].size(); ++i)
            ASSERT_TRUE(testsupport::sameBits(results[j][i], results[0][i])) << "index " << i;
    }
}
