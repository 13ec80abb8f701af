// Pchip1D: hand-computed coefficient blocks (dyadic data, so every step is exact in both
// precisions), the slope rules and their clamps, the fixed order of the Hermite terms,
// monotonicity, NaN locality, and the evaluator paths (serial/parallel, precision pairs,
// rebinding, extrapolation, allocation failure, concurrent first use).
#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/methods/Pchip1D.hpp"
#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/HostArray.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <thread>
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
std::vector<V> evaluate(MethodId method, MethodId extrap, const std::vector<G>& x,
                        const std::vector<V>& values, const std::vector<Q>& q) {
    const testsupport::GridData<G, V> d{{x}, values, values.size() / x.size()};
    return testsupport::evaluate1D<V>(*d.make(method, extrap), q);
}

template <class G, class V>
std::vector<V> blocksOf(const std::vector<G>& x, const std::vector<V>& y) {
    Pchip1D<G, V> m(x.data(), x.size(), y.data());
    m.complete();
    const V* c = m.coefficientBlocks();
    return std::vector<V>(c, c + 4 * (x.size() - 1));
}

template <class V>
void expectBlocks(const std::vector<V>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_SAME_BITS(actual[i], static_cast<V>(expected[i])) << "entry " << i;
}

template <class T>
class PchipPairs : public ::testing::Test {};
TYPED_TEST_SUITE(PchipPairs, Pairs);

// Hand-computed cases. Three points with a maximum in the middle: the middle slope is 0; on
// the left the three-point formula gives 4 > 3*delta_0 = 3, so it is clamped to 3; on the
// right it gives -8, within 3*|delta_1| = 15. Blocks: c3 | c2 | c1 | c0.
TYPED_TEST(PchipPairs, ExtremumSlopeIsZeroAndEndIsClampedToThreeDelta) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    const std::vector<G> x{0, 1, 2};
    expectBlocks(blocksOf<G, V>(x, {0, 1, -4}), {1, 2, -3, -7, 3, 0, 0, 1});
    // Mirrored: the right end is clamped to 3*delta_1 = -3, the left end formula (8) is kept.
    expectBlocks(blocksOf<G, V>(x, {-4, 1, 0}), {-2, -1, -1, 0, 8, 0, -4, 1});
}

// Five points on a non-uniform grid: a flat first interval (slope 0 at both of its ends; the
// left end formula -2.5 disagrees with delta_0 = 0 and becomes 0), harmonic means with
// unequal weights inside (4.5 = 9/(5/5 + 4/4), 4 = 9/(4/4 + 5/4)) and the right end formula
// ((2*1 + 2)*4 - 1*4)/3 = 4.
TYPED_TEST(PchipPairs, FiveNonUniformPointsHandComputed) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    const std::vector<G> x{0, 1, 2, 4, 5};
    const std::vector<V> y{1, 1, 6, 14, 18};
    expectBlocks(blocksOf<G, V>(x, y),
                 {0, -5.5, 0.125, 0, 0, 10.5, -0.5, 0, 0, 0, 4.5, 4, 1, 1, 6, 14});

    // Through the evaluator, double and single queries: nodes, an interior point, both ends
    // continued (interval 0 is constant, interval 3 is the line 14 + 4s).
    const std::vector<double> q{-1, 0, 2, 3, 4, 5, 6};
    const std::vector<double> want{1, 1, 6, 10.125, 14, 18, 22};
    const auto rd = evaluate<G, V, double>(MethodId::Pchip, MethodId::Pchip, x, y, q);
    const auto rs = evaluate<G, V, float>(MethodId::Pchip, MethodId::Pchip, x, y, cast<float>(q));
    for (std::size_t i = 0; i < q.size(); ++i) {
        EXPECT_SAME_BITS(rd[i], static_cast<V>(want[i])) << "query " << q[i];
        EXPECT_SAME_BITS(rs[i], static_cast<V>(want[i])) << "query " << q[i];
    }
}

TYPED_TEST(PchipPairs, TwoPointsGiveTheLine) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    const std::vector<G> x{1, 3};
    const std::vector<V> y{2, 6};
    expectBlocks(blocksOf<G, V>(x, y), {0, 0, 2, 2});
    const auto r = evaluate<G, V, double>(MethodId::Pchip, MethodId::Pchip, x, y,
                                          std::vector<double>{-1, 1, 2.5, 3, 5});
    expectBlocks(r, {-2, 2, 5, 6, 10});
}

// The slope rules one by one. Weights: w1 = 2*h_right + h_left, w2 = 2*h_left + h_right.
TEST(PchipSlopes, InteriorRule) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        double dl, dr, hl, hr, want;
    };
    const Case cases[] = {
        {1, -1, 1, 1, 0},    // change of sign
        {0, 2, 1, 1, 0},     // flat on the left
        {2, 0, 1, 1, 0},     // flat on the right
        {-2, -2, 1, 3, -2},  // equal slopes: the mean is the slope
        {5, 4, 1, 2, 4.5},   // 9 / (5/5 + 4/4); swapped weights would not give 4.5
        {2, 8, 1, 1, 3.2},   // equal weights: 2*2*8/(2 + 8)
        {-1, nan, 1, 1, 0},  // NaN is not negative: it disagrees with a negative slope
        {1, nan, 1, 1, nan}, // ... and agrees with a positive one: the mean is NaN
        {nan, 1, 1, 1, nan},
    };
    for (const Case& c : cases) {
        const double d = pchip::interiorSlope(c.dl, c.dr, c.hl, c.hr);
        if (std::isnan(c.want))
            EXPECT_TRUE(std::isnan(d)) << c.dl << " " << c.dr;
        else
            EXPECT_SAME_BITS(d, c.want) << c.dl << " " << c.dr;
    }
}

TEST(PchipSlopes, EndRuleAndClamps) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        double h0, h1, d0, d1, want;
    };
    const Case cases[] = {
        {1, 1, 1, -5, 3},    // formula 4 > 3*delta_0 at a turn: clamped
        {1, 1, -1, 5, -3},   // the same, negative
        {1, 1, 1, -1, 2},    // formula 2 within 3*delta_0: kept
        {1, 1, 1, 2, 0.5},   // no turn: kept
        {1, 1, 1, 4, 0},     // formula -0.5 disagrees with delta_0: zero
        {2, 1, 0, 3, 0},     // formula -2 disagrees with a flat delta_0 (not negative)
        {2, 1, 3, 0, 5},     // (5*3 - 2*0)/3 on unequal widths
        {1, 1, nan, 1, nan}, // NaN slopes propagate...
        {1, 1, 1, nan, nan},
        {1, 1, -1, nan, 0}, // ... unless the NaN formula disagrees with a negative delta_0
    };
    for (const Case& c : cases) {
        const double d = pchip::endSlope(c.h0, c.h1, c.d0, c.d1);
        if (std::isnan(c.want))
            EXPECT_TRUE(std::isnan(d)) << c.d0 << " " << c.d1;
        else
            EXPECT_SAME_BITS(d, c.want) << c.d0 << " " << c.d1;
    }
    EXPECT_SAME_BITS(pchip::endSlope(1.0f, 1.0f, 1.0f, -5.0f), 3.0f);
}

// c2 = a + a - b and c3 = (b - a)/h with a = (delta - d_k)/h, b = (d_{k+1} - delta)/h, taken
// from the stored derivatives (the third block) on data where rounding makes the order
// visible. The last derivative is overwritten by the values, so the last interval is left out.
TYPED_TEST(PchipPairs, HermiteTermsInTheFixedOrder) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(0.1, 1.3), w(-3, 3);
    std::vector<G> x{0};
    std::vector<V> y{static_cast<V>(w(rng))};
    for (int i = 1; i < 40; ++i) {
        x.push_back(static_cast<G>(x.back() + static_cast<G>(u(rng))));
        y.push_back(static_cast<V>(w(rng)));
    }
    const auto c = blocksOf<G, V>(x, y);
    const std::size_t p = x.size() - 1;
    for (std::size_t k = 0; k + 1 < p; ++k) {
        const V h = static_cast<V>(x[k + 1]) - static_cast<V>(x[k]);
        const V delta = (y[k + 1] - y[k]) / h;
        const V a = (delta - c[2 * p + k]) / h;
        const V b = (c[2 * p + k + 1] - delta) / h;
        EXPECT_SAME_BITS(c[p + k], a + a - b) << "interval " << k;
        EXPECT_SAME_BITS(c[k], (b - a) / h) << "interval " << k;
        EXPECT_SAME_BITS(c[3 * p + k], y[k]);
    }
}

// Monotone data (with flat stretches) sampled densely: the curve never turns back and never
// leaves the range of its interval's end values.
TYPED_TEST(PchipPairs, MonotoneDataStayMonotone) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(0.05, 2.0), step(0, 3);
    std::vector<G> x{0};
    std::vector<V> y{0};
    for (int i = 1; i < 30; ++i) {
        x.push_back(static_cast<G>(x.back() + static_cast<G>(u(rng))));
        const double s = (i % 7 == 3) ? 0.0 : step(rng) * step(rng) * step(rng);
        y.push_back(static_cast<V>(y.back() + static_cast<V>(s)));
    }
    std::vector<double> q;
    for (std::size_t k = 0; k + 1 < x.size(); ++k)
        for (int j = 0; j <= 200; ++j)
            q.push_back(static_cast<double>(x[k]) +
                        (static_cast<double>(x[k + 1]) - static_cast<double>(x[k])) * j / 200.0);
    for (std::size_t sign = 0; sign < 2; ++sign) {
        std::vector<V> ys = y;
        if (sign) std::reverse(ys.begin(), ys.end()); // decreasing data
        const auto r = evaluate<G, V, double>(MethodId::Pchip, MethodId::Pchip, x, ys, q);
        // Rounding of the polynomial may leave a node value by a few ulps; real overshoot
        // is orders of magnitude larger.
        const double tol = 8 * std::numeric_limits<V>::epsilon() * static_cast<double>(y.back());
        std::size_t k = 0;
        for (std::size_t i = 0; i < q.size(); ++i) {
            while (k + 2 < x.size() && q[i] >= static_cast<double>(x[k + 1]))
                ++k;
            const double lo = std::min(ys[k], ys[k + 1]), hi = std::max(ys[k], ys[k + 1]);
            const double ri = r[i];
            ASSERT_GE(ri, lo - tol) << "query " << q[i];
            ASSERT_LE(ri, hi + tol) << "query " << q[i];
            if (i > 0) {
                const double rise = sign ? r[i - 1] - ri : ri - r[i - 1];
                ASSERT_GE(rise, -tol) << "query " << q[i];
            }
        }
    }
}

// A NaN value makes only the derivatives next to it NaN. With a negative slope before it,
// the NaN slope disagrees and the node derivative is 0, so interval 0 stays finite; with a
// positive slope before it, the derivative at node 1 and so interval 0 are NaN. Value sets
// are independent: the other plane of the same evaluator is untouched.
TEST(Pchip1D, NaNValueIsLocalAndStaysInItsValueSet) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> x{0, 1, 2, 3, 4, 5, 6};
    const std::vector<double> clean{1, 0, 2, 3, 4, 6, 7};
    std::vector<double> both = clean;
    both.insert(both.end(), {1, 0, nan, 3, 4, 6, 7});
    const std::vector<double> q{-0.5, 0.25, 0.5, 1.5, 2.5, 4.5, 5.5, 7};
    const auto r = evaluate<double, double, double>(MethodId::Pchip, MethodId::Pchip, x, both, q);
    const auto ref =
        evaluate<double, double, double>(MethodId::Pchip, MethodId::Pchip, x, clean, q);
    for (std::size_t i = 0; i < q.size(); ++i)
        EXPECT_SAME_BITS(r[i], ref[i]) << "query " << q[i];
    // Plane 1: interval 0 is 1 - 3 s^2 + 2 s^3 (slopes 0 at both ends), exact at s = 0.5.
    EXPECT_SAME_BITS(r[q.size() + 2], 0.5);
    EXPECT_TRUE(std::isnan(r[q.size() + 3])); // intervals 1 and 2 touch the NaN
    EXPECT_TRUE(std::isnan(r[q.size() + 4]));
    EXPECT_FALSE(std::isnan(r[q.size() + 5])); // interval 4 does not
    EXPECT_FALSE(std::isnan(r[q.size() + 7]));

    const std::vector<double> rising{0, 1, nan, 3, 4, 6, 7};
    const auto r2 = evaluate<double, double, double>(MethodId::Pchip, MethodId::Pchip, x, rising,
                                                     std::vector<double>{0.5});
    EXPECT_SAME_BITS(r2[0], engineNaN<double>()); // the engine's NaN, whatever NaN came in
}

// Queries through a parallel loop (>= 2048) and the same queries in serial slices give
// identical bits; a NaN query gives the engine's NaN.
TEST(Pchip1D, SerialAndParallelRunsAgreeBitForBit) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(0.01, 1), w(-5, 5);
    std::vector<double> x{0}, y{w(rng)};
    for (int i = 1; i < 300; ++i) {
        x.push_back(x.back() + u(rng));
        y.push_back(w(rng));
    }
    std::uniform_real_distribution<double> uq(x.front() - 3, x.back() + 3);
    std::vector<double> q(6000);
    for (double& v : q)
        v = uq(rng);
    q[17] = std::numeric_limits<double>::quiet_NaN();
    q[18] = x.back();
    const auto all = evaluate<double, double, double>(MethodId::Pchip, MethodId::Pchip, x, y, q);
    for (std::size_t b = 0; b < q.size(); b += 2000) {
        const std::vector<double> slice(q.begin() + static_cast<long>(b),
                                        q.begin() +
                                            static_cast<long>(std::min(b + 2000, q.size())));
        const auto part =
            evaluate<double, double, double>(MethodId::Pchip, MethodId::Pchip, x, y, slice);
        for (std::size_t i = 0; i < part.size(); ++i)
            ASSERT_SAME_BITS(all[b + i], part[i]);
    }
    EXPECT_SAME_BITS(all[17], engineNaN<double>()); // a positive NaN query gives the engine's NaN
}

// The four precision pairs and both query precisions agree with the double results to
// single-precision tolerance on smooth data.
TYPED_TEST(PchipPairs, AgreesWithDoubleToSingleTolerance) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    std::vector<double> x, y, q;
    for (int i = 0; i < 40; ++i) {
        x.push_back(i * 0.25 + 0.01 * (i % 3));
        y.push_back(std::sin(x.back()) + 0.2 * x.back());
    }
    for (int i = 0; i < 500; ++i)
        q.push_back(-1.0 + 12.0 * i / 499.0);
    const auto ref = evaluate<double, double, double>(MethodId::Pchip, MethodId::Pchip, x, y, q);
    const auto xd = cast<G>(x);
    const auto yd = cast<V>(y);
    const auto rd = evaluate<G, V, double>(MethodId::Pchip, MethodId::Pchip, xd, yd, q);
    const auto rs = evaluate<G, V, float>(MethodId::Pchip, MethodId::Pchip, xd, yd, cast<float>(q));
    for (std::size_t i = 0; i < q.size(); ++i) {
        const double tol = 2e-5 * (1 + std::abs(ref[i]));
        EXPECT_NEAR(static_cast<double>(rd[i]), ref[i], tol) << "query " << q[i];
        EXPECT_NEAR(static_cast<double>(rs[i]), ref[i], tol) << "query " << q[i];
    }
}

// Rebinding drops the coefficients: the next evaluation uses the new values, exactly as a
// fresh evaluator would.
TEST(Pchip1D, RebindingValuesRebuildsCoefficients) {
    const std::vector<double> x{0, 1, 2, 4, 5};
    const std::vector<double> a{1, 1, 6, 14, 18}, b{0, 1, -4, 2, 2};
    const std::vector<double> q{-1, 0.5, 3, 4.5, 7};
    const testsupport::GridData<double, double> d{{x}, a, 1};
    auto ev = d.make(MethodId::Pchip, MethodId::Pchip);
    EXPECT_SAME_BITS(testsupport::evaluate1D<double>(*ev, q)[2], 10.125);
    const void* planes[] = {b.data()};
    ev->rebindValues(planes);
    const auto got = testsupport::evaluate1D<double>(*ev, q);
    const auto fresh = evaluate<double, double, double>(MethodId::Pchip, MethodId::Pchip, x, b, q);
    for (int i = 0; i < 5; ++i)
        EXPECT_SAME_BITS(got[i], fresh[i]);
}

// As an extrapolation method pchip serves only queries outside [x0, x_{n-1}]; as the
// interpolation method with "none" outside, those queries are NaN.
TEST(Pchip1D, ServesAsInterpolationAndAsExtrapolationMethod) {
    const std::vector<double> x{0, 1, 2, 4, 5};
    const std::vector<double> y{1, 1, 6, 14, 18};
    const std::vector<double> q{-1, 0, 3, 5, 6};
    const auto lin = evaluate<double, double, double>(MethodId::Linear, MethodId::Pchip, x, y, q);
    expectBlocks(lin, {1, 1, 10, 18, 22});
    const auto none = evaluate<double, double, double>(MethodId::Pchip, MethodId::None, x, y, q);
    EXPECT_TRUE(std::isnan(none[0]));
    EXPECT_SAME_BITS(none[2], 10.125);
    EXPECT_SAME_BITS(none[3], 18.0);
    EXPECT_TRUE(std::isnan(none[4]));
}

// Each allocation of the fill failing in turn: bad_alloc, no coefficients kept, and the next
// completion succeeds with the usual result.
TEST(Pchip1D, AllocationFailureIsBadAllocAndRetryable) {
    if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "no fault injection in this build";
    const std::vector<double> x{0, 1, 2, 4, 5};
    const std::vector<double> y{1, 1, 6, 14, 18};
    const auto want = blocksOf<double, double>(x, y);
    for (std::uint64_t k = 1;; ++k) {
        Pchip1D<double, double> m(x.data(), x.size(), y.data());
        platform::failAllocationAfter(k);
        bool threw = false;
        try {
            m.complete();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        platform::failAllocationAfter(0);
        if (!threw) {
            EXPECT_GE(k, 3u); // the coefficient block and the widths were both tried
            break;
        }
        EXPECT_EQ(m.coefficientBlocks(), nullptr);
        m.complete();
        const std::vector<double> got(m.coefficientBlocks(), m.coefficientBlocks() + want.size());
        EXPECT_EQ(got, want);
    }
}

// Copies of an interpolant share one evaluator: concurrent first evaluations fill the
// coefficients once and all see the same bits.
TEST(Pchip1D, ConcurrentFirstEvaluationsAgree) {
    std::vector<double> x, y;
    for (int i = 0; i < 5000; ++i) {
        x.push_back(i);
        y.push_back(std::cos(0.01 * i));
    }
    const testsupport::GridData<double, double> d{{x}, y, 1};
    auto ev = d.make(MethodId::Pchip, MethodId::Pchip);
    std::vector<double> qv;
    for (int i = 0; i < 3000; ++i)
        qv.push_back(1.7 * i);
    const HostArray q = HostArray::columnVector(qv);
    std::vector<HostArray> outs;
    for (int t = 0; t < 4; ++t)
        outs.push_back(HostArray::createNumeric({qv.size(), 1}, platform::ClassId::Double));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] { ev->evaluateScattered(qv.size(), q, outs[t]); });
    for (auto& th : threads)
        th.join();
    for (int t = 1; t < 4; ++t)
        for (std::size_t i = 0; i < qv.size(); ++i)
            ASSERT_SAME_BITS(outs[t].data<double>()[i], outs[0].data<double>()[i]);
}

} // namespace
