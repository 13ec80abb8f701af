// Linear1D and the step methods: the bit patterns of the linear rules with NaN and
// infinities, the step methods at and beside grid points and beyond the grid, for every
// precision pair and both query precisions.
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/Step1D.hpp"

#include "support/Bits.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using namespace mathinterp;

namespace {
constexpr double inf = std::numeric_limits<double>::infinity();
const double qnan = std::numeric_limits<double>::quiet_NaN();

template <class M, class Q>
auto at(M& m, Q x) {
    m.complete();
    return m.kernel(x, findInterval(m, x));
}
} // namespace

TEST(Linear1D, InfiniteEndLeavesTheOtherGridPointExact) {
    const std::vector<double> x{0.0, 1.0};
    const std::vector<double> y{inf, 0.0};
    Linear1D<double, double> m(x.data(), 2, y.data());
    EXPECT_SAME_BITS(at(m, 1.0), 0.0); // t = 1: y[1], not NaN
    EXPECT_SAME_BITS(at(m, 0.0), inf); // t = 0: y[0]
    EXPECT_SAME_BITS(at(m, 0.5), inf); // (1 - 0.5)*inf + 0*0.5: the blend itself
}

TEST(Linear1D, BlendBitsAndNaNRules) {
    const std::vector<double> x{0.0, 1.0, 3.0};
    const std::vector<double> y{inf, 0.0, 2.0};
    Linear1D<double, double> m(x.data(), 3, y.data());
    // (1 - t)*inf + 0*t with t = 0.5: inf + 0 = inf.
    EXPECT_SAME_BITS(at(m, 0.5), inf);
    // Below the grid t < 0: (1 - t)*inf = inf.
    EXPECT_SAME_BITS(at(m, -1.0), inf);
    // Exact blend on a sloped interval: t = 0.25 -> 0.75*0 + 2*0.25.
    EXPECT_SAME_BITS(at(m, 1.5), 0.5);
    EXPECT_SAME_BITS(at(m, 3.0), 2.0);
    EXPECT_SAME_BITS(at(m, 1.0), 0.0);
}

TEST(Linear1D, InfiniteValueBesideAQueryOnTheOtherNode) {
    // y = [0, inf]: the query on x[0] has t = 0 and r = 1*0 + inf*0 = NaN, so rule (a).
    const std::vector<double> x{0.0, 1.0};
    const std::vector<double> y{0.0, inf};
    Linear1D<double, double> m(x.data(), 2, y.data());
    EXPECT_SAME_BITS(at(m, 0.0), 0.0);
    EXPECT_SAME_BITS(at(m, 1.0), inf);
}

TEST(Linear1D, ConstantStretchIsExactAndNaNQueryIsNaN) {
    const std::vector<double> x{0.0, 0.1, 0.7};
    const std::vector<double> y{5.0, 5.0, 5.0};
    Linear1D<double, double> m(x.data(), 3, y.data());
    for (double q : {-1e300, -3.0, 0.0, 0.033, 0.1, 0.69999, 0.7, 12.0, 1e300})
        EXPECT_SAME_BITS(at(m, q), 5.0) << q;
    EXPECT_TRUE(std::isnan(at(m, qnan)));
    // Infinite queries on a constant stretch: r = NaN (inf*0 + ...), rule (c) gives y[i].
    EXPECT_SAME_BITS(at(m, inf), 5.0);
    EXPECT_SAME_BITS(at(m, -inf), 5.0);
}

TEST(Linear1D, InfiniteQueryOnASlopeGivesSignedInfinity) {
    const std::vector<double> x{0.0, 1.0};
    const std::vector<double> y{0.0, 1.0};
    Linear1D<double, double> m(x.data(), 2, y.data());
    EXPECT_SAME_BITS(at(m, inf), inf);
    EXPECT_SAME_BITS(at(m, -inf), -inf);
    const std::vector<double> yd{1.0, 0.0};
    Linear1D<double, double> d(x.data(), 2, yd.data());
    EXPECT_SAME_BITS(at(d, inf), -inf);
}

TEST(Linear1D, NaNValuePoisonsOnlyItsIntervals) {
    const std::vector<double> x{0.0, 1.0, 2.0, 3.0};
    const std::vector<double> y{0.0, qnan, 2.0, 3.0};
    Linear1D<double, double> m(x.data(), 4, y.data());
    EXPECT_TRUE(std::isnan(at(m, 0.5)));
    EXPECT_TRUE(std::isnan(at(m, 1.5)));
    EXPECT_SAME_BITS(at(m, 0.0), 0.0); // t = 0 rule
    EXPECT_SAME_BITS(at(m, 2.0), 2.0); // interval 2 does not touch the NaN
    EXPECT_SAME_BITS(at(m, 2.5), 2.5);
}

TEST(Linear1D, MixedPrecisionRoundsTheWeightToTheValueType) {
    // Grid double, values single: t is formed in double, then rounded to single.
    const std::vector<double> x{0.0, 3.0};
    const std::vector<float> y{0.0f, 1.0f};
    Linear1D<double, float> m(x.data(), 2, y.data());
    const double q = 1.0;
    const float t = static_cast<float>(q / 3.0);
    const float expect = (1.0f - t) * 0.0f + 1.0f * t;
    EXPECT_SAME_BITS(at(m, q), expect);
    // Single grid, double values: the query is rounded to the grid type first.
    const std::vector<float> xs{0.0f, 3.0f};
    const std::vector<double> yd{0.0, 1.0};
    Linear1D<float, double> ms(xs.data(), 2, yd.data());
    const float tq = (static_cast<float>(0.1) - 0.0f) / 3.0f;
    EXPECT_SAME_BITS(at(ms, 0.1), static_cast<double>(tq));
}

TEST(Linear1D, IntervalWidthsFilledOnceAndKeptOverRebinding) {
    const std::vector<double> x{0.0, 1.0, 4.0};
    const std::vector<double> y1{0.0, 1.0, 2.0};
    const std::vector<double> y2{10.0, 20.0, 30.0};
    Linear1D<double, double> m(x.data(), 3, y1.data());
    EXPECT_TRUE(m.intervalWidths.empty());
    m.complete();
    ASSERT_EQ(m.intervalWidths.size(), 2u);
    const double* widths = m.intervalWidths.data();
    m.rebindValues(y2.data());
    m.complete();
    EXPECT_EQ(m.intervalWidths.data(), widths);
    EXPECT_SAME_BITS(at(m, 2.5), 25.0);
}

TEST(StepMethods, EdgesTable) {
    const std::vector<double> x{0.0, 1.0, 2.0};
    const std::vector<double> y{10.0, 20.0, 30.0};
    Nearest1D<double, double> ne(x.data(), 3, y.data());
    Next1D<double, double> nx(x.data(), 3, y.data());
    Previous1D<double, double> pv(x.data(), 3, y.data());
    const double below = -0.5, above = 2.5, justAbove = std::nextafter(2.0, 3.0);
    EXPECT_EQ(at(ne, below), 10.0);
    EXPECT_EQ(at(ne, above), 30.0);
    EXPECT_EQ(at(nx, below), 10.0);
    EXPECT_TRUE(std::isnan(at(nx, justAbove)));
    EXPECT_TRUE(std::isnan(at(pv, std::nextafter(0.0, -1.0))));
    EXPECT_EQ(at(pv, above), 30.0);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(at(ne, x[k]), y[k]);
        EXPECT_EQ(at(nx, x[k]), y[k]);
        EXPECT_EQ(at(pv, x[k]), y[k]);
    }
    for (double q : {qnan}) {
        EXPECT_SAME_BITS(at(ne, q), engineNaN<double>());
        EXPECT_SAME_BITS(at(nx, q), engineNaN<double>());
        EXPECT_SAME_BITS(at(pv, q), engineNaN<double>());
    }
}

TEST(StepMethods, BesideGridPointsAndTies) {
    const std::vector<double> x{0.0, 1.0, 2.0, 4.0};
    const std::vector<double> y{1.0, 2.0, 3.0, 4.0};
    Nearest1D<double, double> ne(x.data(), 4, y.data());
    Next1D<double, double> nx(x.data(), 4, y.data());
    Previous1D<double, double> pv(x.data(), 4, y.data());
    EXPECT_EQ(at(ne, 0.5), 2.0) << "a tie takes the upper neighbour";
    EXPECT_EQ(at(ne, 3.0), 4.0);
    EXPECT_EQ(at(ne, std::nextafter(0.5, 0.0)), 1.0);
    EXPECT_EQ(at(nx, std::nextafter(1.0, 0.0)), 2.0);
    EXPECT_EQ(at(nx, std::nextafter(1.0, 2.0)), 3.0);
    EXPECT_EQ(at(pv, std::nextafter(1.0, 0.0)), 1.0);
    EXPECT_EQ(at(pv, std::nextafter(1.0, 2.0)), 2.0);
    EXPECT_EQ(at(pv, 3.9), 3.0);
    EXPECT_EQ(at(nx, 2.1), 4.0);
}

TEST(StepMethods, DoubleQueryIsNotRoundedOntoASingleGrid) {
    // 0.1 as double lies below 0.1f; next and previous must see that.
    const std::vector<float> x{0.0f, 0.1f, 0.2f};
    const std::vector<float> y{1.0f, 2.0f, 3.0f};
    Next1D<float, float> nx(x.data(), 3, y.data());
    Previous1D<float, float> pv(x.data(), 3, y.data());
    ASSERT_LT(0.1, static_cast<double>(0.1f));
    EXPECT_EQ(at(nx, 0.1), 2.0f);
    EXPECT_EQ(at(pv, 0.1), 1.0f);
    EXPECT_EQ(at(pv, 0.1f), 2.0f);
}

TEST(StepMethods, ConstantIsAlwaysTheEngineNaN) {
    const std::vector<float> x{0.0f, 1.0f};
    const std::vector<float> y{1.0f, 2.0f};
    Constant1D<float, float> c(x.data(), 2, y.data());
    EXPECT_SAME_BITS(c.kernel(5.0, 0), engineNaN<float>());
    EXPECT_SAME_BITS(c.kernel(std::numeric_limits<float>::quiet_NaN(), 0), engineNaN<float>());
    EXPECT_EQ(testsupport::bitsOf(engineNaN<float>()), 0xFFC00000u);
    EXPECT_EQ(testsupport::bitsOf(engineNaN<double>()), 0xFFF8000000000000ull);
}
