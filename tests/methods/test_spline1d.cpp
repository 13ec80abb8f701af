// Spline1D and the shared spline coefficient routine: the line and the parabola to the bit,
// the not-a-knot and C2 conditions read back from the coefficients, cubic reproduction on a
// non-uniform grid, the fixed order of the slope-to-coefficient step, the multi-column solve
// against column-by-column solves, and the evaluator paths (NaN per value set, serial and
// parallel, precision pairs, rebinding, allocation failure).
#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/methods/Spline1D.hpp"
#include "mathinterp/methods/SplineCoefficients.hpp"
#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/HostArray.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#define ASSERT_SAME_BITS(a, b) ASSERT_TRUE(::testsupport::sameBits((a), (b)))

using namespace mathinterp;
using platform::HostArray;

namespace {

template <class G_, class V_>
struct Pair {
    using G = G_;
    using V = V_;
};
using Pairs = ::testing::Types<Pair<double, double>, Pair<double, float>, Pair<float, double>,
                               Pair<float, float>>;

template <class T, class S>
std::vector<T> cast(const std::vector<S>& v) {
    return std::vector<T>(v.begin(), v.end());
}

// All planes of `values` (planes of x.size() points each) through a factory-built evaluator.
template <class G, class V, class Q>
std::vector<V> evaluate(const std::vector<G>& x, const std::vector<V>& values,
                        const std::vector<Q>& q, MethodId extrap = MethodId::Spline) {
    const testsupport::GridData<G, V> d{{x}, values, values.size() / x.size()};
    return testsupport::evaluate1D<V>(*d.make(MethodId::Spline, extrap), q);
}

template <class G, class V>
std::vector<V> blocksOf(const std::vector<G>& x, const std::vector<V>& y) {
    const G* grids[] = {x.data()};
    const u64 sizes[] = {x.size()};
    const SplineRecord<V> r = splineCoefficients<V, G>(y.data(), grids, sizes, 1);
    EXPECT_EQ(r.pieces, x.size() - 1);
    EXPECT_EQ(r.columns, 1u);
    return std::vector<V>(r.coefficients.get(), r.coefficients.get() + 4 * r.pieces);
}

template <class V>
void expectBits(const std::vector<V>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_SAME_BITS(actual[i], static_cast<V>(expected[i])) << "entry " << i;
}

// A grid of n points with random spacings in [0.2, 1.5) starting at x0.
std::vector<double> randomGrid(std::mt19937& rng, int n, double x0) {
    std::uniform_real_distribution<double> u(0.2, 1.5);
    std::vector<double> x{x0};
    for (int i = 1; i < n; ++i)
        x.push_back(x.back() + u(rng));
    return x;
}

double cubic(double x) {
    return ((0.5 * x - 1.0) * x + 2.0) * x - 1.0;
}

template <class T>
class SplinePairs : public ::testing::Test {};
TYPED_TEST_SUITE(SplinePairs, Pairs);

// Two points: the line; three points: the parabola x^2 + 1 through (0,1), (1,2), (3,10),
// with one quadratic term on both intervals. Dyadic data, so both are exact in every pair
// and continue exactly outside the grid.
TYPED_TEST(SplinePairs, LineAndParabolaExactly) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    const std::vector<G> x2{1, 3};
    const std::vector<V> y2{2, 6};
    expectBits(blocksOf<G, V>(x2, y2), {0, 0, 2, 2});
    expectBits(evaluate<G, V, double>(x2, y2, std::vector<double>{-1, 2.5, 5}), {-2, 5, 10});

    const std::vector<G> x3{0, 1, 3};
    const std::vector<V> y3{1, 2, 10};
    expectBits(blocksOf<G, V>(x3, y3), {0, 0, 1, 1, 0, 2, 1, 2});
    expectBits(evaluate<G, V, float>(x3, y3, std::vector<float>{-1, 0.5, 1, 3, 5}),
               {2, 1.25, 2, 10, 26});
}

// Four points: the not-a-knot spline is the one cubic through them, so the cubic term is the
// same on all three intervals and the curve matches the Lagrange cubic.
TEST(Spline1D, FourPointsGiveOneCubic) {
    const std::vector<double> x{0, 0.7, 1.9, 3.2};
    const std::vector<double> y{1.3, -0.4, 2.2, 0.9};
    const auto c = blocksOf<double, double>(x, y);
    EXPECT_ULP_CLOSE(c[1], c[0], 64);
    EXPECT_ULP_CLOSE(c[2], c[0], 64);
    auto lagrange = [&](double t) {
        double s = 0;
        for (int i = 0; i < 4; ++i) {
            double l = y[i];
            for (int j = 0; j < 4; ++j)
                if (j != i) l *= (t - x[j]) / (x[i] - x[j]);
            s += l;
        }
        return s;
    };
    const std::vector<double> q{-1, 0.3, 1.0, 2.5, 3.2, 4.5};
    const auto r = evaluate<double, double, double>(x, y, q);
    for (std::size_t i = 0; i < q.size(); ++i)
        EXPECT_NEAR(r[i], lagrange(q[i]), 1e-12 * (1 + std::abs(lagrange(q[i]))));
}

// The coefficients of a random spline satisfy what defines it: values at the nodes (exactly),
// continuity of value, slope and curvature at every interior node, and equal cubic terms on
// the first two and on the last two intervals (not-a-knot).
TEST(Spline1D, CoefficientsAreC2AndNotAKnot) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> w(-2, 2);
    const std::vector<double> x = randomGrid(rng, 11, -1.0);
    std::vector<double> y;
    for (std::size_t i = 0; i < x.size(); ++i)
        y.push_back(w(rng));
    const auto c = blocksOf<double, double>(x, y);
    const std::size_t p = x.size() - 1;
    auto c3 = [&](std::size_t k) { return c[k]; };
    auto c2 = [&](std::size_t k) { return c[p + k]; };
    auto c1 = [&](std::size_t k) { return c[2 * p + k]; };
    auto c0 = [&](std::size_t k) { return c[3 * p + k]; };
    auto near = [](double a, double b, double scale) {
        return std::abs(a - b) <= 1e-11 * (scale + std::abs(a) + std::abs(b));
    };
    for (std::size_t k = 0; k < p; ++k) {
        EXPECT_SAME_BITS(c0(k), y[k]);
        const double h = x[k + 1] - x[k];
        const double v = ((c3(k) * h + c2(k)) * h + c1(k)) * h + c0(k);
        EXPECT_TRUE(near(v, y[k + 1], 1)) << "value at node " << k + 1;
        if (k + 1 < p) {
            const double d1 = (3 * c3(k) * h + 2 * c2(k)) * h + c1(k);
            const double d2 = 6 * c3(k) * h + 2 * c2(k);
            EXPECT_TRUE(near(d1, c1(k + 1), 1)) << "slope at node " << k + 1;
            EXPECT_TRUE(near(d2, 2 * c2(k + 1), 1)) << "curvature at node " << k + 1;
        }
    }
    EXPECT_TRUE(near(c3(0), c3(1), 1));
    EXPECT_TRUE(near(c3(p - 2), c3(p - 1), 1));
}

// Cubic data on a non-uniform grid are reproduced inside and outside the grid, in every pair
// and for both query precisions (tolerance of the value type).
TYPED_TEST(SplinePairs, ReproducesCubicDataInsideAndOutside) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    std::mt19937 rng(9);
    const std::vector<G> x = cast<G>(randomGrid(rng, 12, -2.0));
    std::vector<V> y;
    for (G xi : x)
        y.push_back(static_cast<V>(cubic(static_cast<double>(xi))));
    std::vector<double> q;
    const double a = static_cast<double>(x.front()) - 1.5, b = static_cast<double>(x.back()) + 1.5;
    for (int i = 0; i <= 400; ++i)
        q.push_back(a + (b - a) * i / 400.0);
    const auto rd = evaluate<G, V, double>(x, y, q);
    const auto rs = evaluate<G, V, float>(x, y, cast<float>(q));
    const bool single = std::is_same_v<V, float> || std::is_same_v<G, float>;
    const double rel = single ? 2e-5 : 1e-12;
    double scale = 0;
    for (double t : q)
        scale = std::max(scale, std::abs(cubic(t)));
    for (std::size_t i = 0; i < q.size(); ++i) {
        // With single queries the position itself is rounded: compare at the rounded query.
        const double qs = static_cast<double>(static_cast<G>(static_cast<float>(q[i])));
        const double qd = static_cast<double>(static_cast<G>(q[i]));
        EXPECT_NEAR(static_cast<double>(rd[i]), cubic(qd), rel * scale) << "query " << q[i];
        EXPECT_NEAR(static_cast<double>(rs[i]), cubic(qs), rel * scale) << "query " << q[i];
    }
}

// From the node slopes (third block): t = (s_k + s_{k+1} - (delta_k + delta_k))/h_k,
// c2 = (delta_k - s_k)/h_k - t, c3 = t/h_k, bit for bit. The last slope is overwritten by
// the first value, so the last interval is left out.
TYPED_TEST(SplinePairs, SlopesToCoefficientsInTheFixedOrder) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    std::mt19937 rng(13);
    std::uniform_real_distribution<double> w(-3, 3);
    const std::vector<G> x = cast<G>(randomGrid(rng, 30, 0.0));
    std::vector<V> y;
    for (std::size_t i = 0; i < x.size(); ++i)
        y.push_back(static_cast<V>(w(rng)));
    const auto c = blocksOf<G, V>(x, y);
    const std::size_t p = x.size() - 1;
    for (std::size_t k = 0; k + 1 < p; ++k) {
        const V h = static_cast<V>(x[k + 1]) - static_cast<V>(x[k]);
        const V delta = (y[k + 1] - y[k]) / h;
        const V s0 = c[2 * p + k], s1 = c[2 * p + k + 1];
        const V t = (s0 + s1 - (delta + delta)) / h;
        EXPECT_SAME_BITS(c[p + k], (delta - s0) / h - t) << "interval " << k;
        EXPECT_SAME_BITS(c[k], t / h) << "interval " << k;
        EXPECT_SAME_BITS(c[3 * p + k], y[k]);
    }
}

// m columns solved together (serially for m <= 2, in parallel from 3) equal m single-column
// solves bit for bit; point i of column j sits at i*m + j. Also through three dimensions,
// where m is the product of the first two lengths.
template <class T, class G>
void checkColumnsAgainstSingles(u64 n, const std::vector<u64>& leading) {
    std::mt19937 rng(static_cast<unsigned>(17 + n));
    std::uniform_real_distribution<double> w(-4, 4);
    const std::vector<G> x = cast<G>(randomGrid(rng, static_cast<int>(n), 1.0));
    u64 m = 1;
    for (u64 l : leading)
        m *= l;
    std::vector<T> values(n * m);
    for (T& v : values)
        v = static_cast<T>(w(rng));
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
        const auto single = blocksOf<G, T>(x, column);
        for (u64 e = 0; e < 4 * (n - 1); ++e)
            ASSERT_SAME_BITS(all.coefficients[j * 4 * (n - 1) + e], single[e])
                << "n " << n << " column " << j << " entry " << e;
    }
}

TEST(SplineCoefficients, ManyColumnsEqualSingleColumnSolves) {
    for (u64 n : {2u, 3u, 4u, 5u, 61u}) {
        for (u64 m : {1u, 2u, 3u, 7u}) {
            checkColumnsAgainstSingles<double, double>(n, {m});
            checkColumnsAgainstSingles<float, float>(n, {m});
        }
        checkColumnsAgainstSingles<double, float>(n, {2, 3});
        checkColumnsAgainstSingles<float, double>(n, {3, 1, 2});
    }
}

// NaN in one value of a set makes that whole set NaN (the solve couples every node); the
// other set of the same evaluator is exactly what it is alone.
TEST(Spline1D, NaNPoisonsOnlyItsValueSet) {
    std::mt19937 rng(21);
    std::uniform_real_distribution<double> w(-1, 1);
    const std::vector<double> x = randomGrid(rng, 20, 0.0);
    std::vector<double> clean;
    for (std::size_t i = 0; i < x.size(); ++i)
        clean.push_back(w(rng));
    std::vector<double> both = clean;
    both.insert(both.end(), clean.begin(), clean.end());
    both[x.size() + 7] = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> q{x.front() - 1, x.front(), x.back(), x.back() + 1};
    for (std::size_t i = 0; i + 1 < x.size(); ++i)
        q.push_back(0.5 * (x[i] + x[i + 1]));
    const auto r = evaluate<double, double, double>(x, both, q);
    const auto ref = evaluate<double, double, double>(x, clean, q);
    for (std::size_t i = 0; i < q.size(); ++i) {
        EXPECT_SAME_BITS(r[i], ref[i]) << "query " << q[i];
        EXPECT_SAME_BITS(r[q.size() + i], engineNaN<double>()) << "query " << q[i];
    }
}

// The last node belongs to the last interval and gives its value up to rounding; queries in
// a parallel loop (>= 2048) equal the same queries in serial slices, bit for bit.
TEST(Spline1D, SerialAndParallelRunsAgreeBitForBit) {
    std::mt19937 rng(4);
    std::uniform_real_distribution<double> w(-5, 5);
    const std::vector<double> x = randomGrid(rng, 500, 0.0);
    std::vector<double> y;
    for (std::size_t i = 0; i < x.size(); ++i)
        y.push_back(w(rng));
    std::uniform_real_distribution<double> uq(x.front() - 2, x.back() + 2);
    std::vector<double> q(7000);
    for (double& v : q)
        v = uq(rng);
    q[5] = x.back();
    const auto all = evaluate<double, double, double>(x, y, q);
    EXPECT_NEAR(all[5], y.back(), 1e-12 * 5);
    Spline1D<double, double> m(x.data(), x.size(), y.data());
    m.complete();
    EXPECT_SAME_BITS(all[5], m.kernel(x.back(), x.size() - 2));
    for (std::size_t b = 0; b < q.size(); b += 2000) {
        const std::vector<double> slice(q.begin() + static_cast<long>(b),
                                        q.begin() +
                                            static_cast<long>(std::min(b + 2000, q.size())));
        const auto part = evaluate<double, double, double>(x, y, slice);
        for (std::size_t i = 0; i < part.size(); ++i)
            ASSERT_SAME_BITS(all[b + i], part[i]);
    }
}

// Every pair and both query precisions agree with the double results to single tolerance.
TYPED_TEST(SplinePairs, AgreesWithDoubleToSingleTolerance) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    std::vector<double> x, y, q;
    for (int i = 0; i < 40; ++i) {
        x.push_back(i * 0.25 + 0.01 * (i % 3));
        y.push_back(std::sin(x.back()) + 0.2 * x.back());
    }
    for (int i = 0; i < 500; ++i)
        q.push_back(-1.0 + 12.0 * i / 499.0);
    const auto ref = evaluate<double, double, double>(x, y, q);
    const auto rd = evaluate<G, V, double>(cast<G>(x), cast<V>(y), q);
    const auto rs = evaluate<G, V, float>(cast<G>(x), cast<V>(y), cast<float>(q));
    for (std::size_t i = 0; i < q.size(); ++i) {
        const double tol = 5e-5 * (1 + std::abs(ref[i]));
        EXPECT_NEAR(static_cast<double>(rd[i]), ref[i], tol) << "query " << q[i];
        EXPECT_NEAR(static_cast<double>(rs[i]), ref[i], tol) << "query " << q[i];
    }
}

// Rebinding drops the coefficients; with "none" outside, out-of-range queries are NaN and
// in-range ones keep the spline.
TEST(Spline1D, RebindingAndExtrapolationChoice) {
    const std::vector<double> x{0, 1, 3};
    const std::vector<double> a{1, 2, 10}, b{0, 1, 2};
    const std::vector<double> q{-1, 2, 5};
    const testsupport::GridData<double, double> d{{x}, a, 1};
    auto ev = d.make(MethodId::Spline, MethodId::Spline);
    expectBits(testsupport::evaluate1D<double>(*ev, q), {2, 5, 26});
    const void* planes[] = {b.data()};
    ev->rebindValues(planes);
    // b: d0 = 1, d1 = 0.5, q = -1/6: not dyadic, so compare with a fresh evaluator.
    const auto got = testsupport::evaluate1D<double>(*ev, q);
    const auto fresh = evaluate<double, double, double>(x, b, q);
    for (int i = 0; i < 3; ++i)
        EXPECT_SAME_BITS(got[i], fresh[i]);

    const auto none =
        evaluate<double, double, double>(x, a, std::vector<double>{-1, 2, 5}, MethodId::None);
    EXPECT_TRUE(std::isnan(none[0]));
    EXPECT_SAME_BITS(none[1], 5.0);
    EXPECT_TRUE(std::isnan(none[2]));
}

// Each allocation (coefficient array, workspace) failing in turn: bad_alloc, nothing kept,
// and the next completion succeeds. The routine itself behaves the same way.
TEST(Spline1D, AllocationFailureIsBadAllocAndRetryable) {
    if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "no fault injection in this build";
    const std::vector<double> x{0, 0.5, 1.5, 2, 4};
    const std::vector<double> y{1, -1, 2, 0, 3};
    const auto want = blocksOf<double, double>(x, y);
    for (std::uint64_t k = 1;; ++k) {
        Spline1D<double, double> m(x.data(), x.size(), y.data());
        platform::failAllocationAfter(k);
        bool threw = false;
        try {
            m.complete();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        platform::failAllocationAfter(0);
        if (!threw) {
            EXPECT_GE(k, 3u);
            break;
        }
        EXPECT_EQ(m.coefficientBlocks(), nullptr);
        m.complete();
        const std::vector<double> got(m.coefficientBlocks(), m.coefficientBlocks() + want.size());
        EXPECT_EQ(got, want);
    }
    // A size product that overflows is an allocation failure, before anything is allocated.
    const double* grids[] = {x.data(), x.data()};
    const u64 sizes[] = {u64{1} << 62, x.size()};
    EXPECT_THROW((splineCoefficients<double, double>(y.data(), grids, sizes, 2)), std::bad_alloc);
}

} // namespace
