// The interval search against plain bisection, on uniform, irregular and extreme grids, in
// every grid/query precision combination; the in-range test at the ends and for NaN/inf.
#include "mathinterp/core/FindInterval.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using mathinterp::findInterval;
using mathinterp::GridAxis;
using mathinterp::u64;

namespace {

// Reference: the interval rules stated plainly (the last interval takes x >= x[n-2]).
template <class G, class Q>
u64 referenceInterval(const std::vector<G>& x, Q q) {
    const u64 n = x.size();
    if (std::isnan(q) || q < x[1]) return 0;
    if (q >= x[n - 2]) return n - 2;
    u64 lo = 1, hi = n - 2; // x[lo] <= q < x[hi]
    while (hi - lo > 1) {
        const u64 mid = (lo + hi) / 2;
        (q < x[mid] ? hi : lo) = mid;
    }
    return lo;
}

template <class G, class Q>
void checkAgainstReference(const std::vector<G>& x, const std::vector<Q>& queries) {
    const GridAxis<G> axis(x.data(), x.size());
    for (Q q : queries) {
        bool inRange = false;
        const u64 j = findInterval(axis, q, inRange);
        ASSERT_EQ(j, referenceInterval(x, q)) << "query " << q;
        ASSERT_EQ(findInterval(axis, q), j);
        const bool expectIn = q >= x.front() && q <= x.back();
        ASSERT_EQ(inRange, expectIn) << "query " << q;
    }
}

template <class T>
std::vector<T> probesAround(const std::vector<T>& x) {
    std::vector<T> q;
    for (T v : x) {
        q.push_back(v);
        q.push_back(std::nextafter(v, -std::numeric_limits<T>::infinity()));
        q.push_back(std::nextafter(v, std::numeric_limits<T>::infinity()));
    }
    for (std::size_t i = 0; i + 1 < x.size(); ++i)
        q.push_back(x[i] + (x[i + 1] - x[i]) / 2);
    q.push_back(std::numeric_limits<T>::infinity());
    q.push_back(-std::numeric_limits<T>::infinity());
    q.push_back(std::numeric_limits<T>::quiet_NaN());
    q.push_back(std::numeric_limits<T>::max());
    q.push_back(-std::numeric_limits<T>::max());
    return q;
}

} // namespace

TEST(FindInterval, EndsAndSpecialValues) {
    const std::vector<double> x{0.0, 1.0, 2.0, 3.0, 4.0};
    const GridAxis<double> a(x.data(), x.size());
    bool in = false;
    EXPECT_EQ(findInterval(a, 0.0, in), 0u);
    EXPECT_TRUE(in);
    EXPECT_EQ(findInterval(a, 4.0, in), 3u);
    EXPECT_TRUE(in);
    EXPECT_EQ(findInterval(a, 3.0, in), 3u) << "x[n-2] falls into the last interval";
    EXPECT_TRUE(in);
    EXPECT_EQ(findInterval(a, 2.0, in), 2u) << "an interior point starts its interval";
    EXPECT_EQ(findInterval(a, std::nextafter(0.0, -1.0), in), 0u);
    EXPECT_FALSE(in);
    EXPECT_EQ(findInterval(a, std::numeric_limits<double>::infinity(), in), 3u);
    EXPECT_FALSE(in);
    EXPECT_EQ(findInterval(a, -std::numeric_limits<double>::infinity(), in), 0u);
    EXPECT_FALSE(in);
    EXPECT_EQ(findInterval(a, std::numeric_limits<double>::quiet_NaN(), in), 0u);
    EXPECT_FALSE(in);
}

TEST(FindInterval, TwoPointsAlwaysIntervalZero) {
    const std::vector<double> x{-1.0, 5.0};
    const GridAxis<double> a(x.data(), x.size());
    for (double q : {-10.0, -1.0, 0.0, 5.0, 7.0})
        EXPECT_EQ(findInterval(a, q), 0u);
}

TEST(FindInterval, IrregularGridEveryQueryInItsTrueInterval) {
    const std::vector<double> x{0.0, 1.0, 1000.0, 1001.0};
    checkAgainstReference(x, probesAround(x));
    std::vector<double> q;
    for (double v = -5.0; v <= 1010.0; v += 0.25)
        q.push_back(v);
    checkAgainstReference(x, q);
}

TEST(FindInterval, RandomGridsAgreeWithBisection) {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> step(1e-3, 1.0);
    std::exponential_distribution<double> wild(0.01);
    for (int trial = 0; trial < 40; ++trial) {
        const std::size_t n = 2 + static_cast<std::size_t>(trial) * 7;
        std::vector<double> x{trial % 2 ? -50.0 : 3.0};
        for (std::size_t i = 1; i < n; ++i)
            x.push_back(x.back() + (trial % 3 == 0 ? wild(rng) + 1e-9 : step(rng)));
        std::vector<double> q = probesAround(x);
        std::uniform_real_distribution<double> inside(x.front() - 1, x.back() + 1);
        for (int i = 0; i < 500; ++i)
            q.push_back(inside(rng));
        checkAgainstReference(x, q);
    }
}

TEST(FindInterval, MixedPrecisionComparesInTheWiderType) {
    // A double query just above a single grid point must not be rounded onto it.
    const std::vector<float> xs{0.0f, 0.1f, 0.2f, 0.3f, 0.4f};
    checkAgainstReference(xs, probesAround(std::vector<double>(xs.begin(), xs.end())));
    const std::vector<double> xd{0.0, 0.1, 0.2, 0.3, 0.4};
    checkAgainstReference(xd, probesAround(std::vector<float>{0.0f, 0.1f, 0.2f, 0.3f, 0.4f}));
    checkAgainstReference(xs, probesAround(xs));
}

TEST(FindInterval, ExtremeMagnitudesStayInsideTheGrid) {
    const double big = std::numeric_limits<double>::max();
    const std::vector<double> x{-big, -1.0, 0.0, 1.0, big};
    checkAgainstReference(x, probesAround(x));
    const std::vector<double> tiny{0.0, 5e-324, 1e-323, 1.5e-323, 1.0};
    checkAgainstReference(tiny, probesAround(tiny));
    const std::vector<double> far{1e300, 1e300 * (1 + 1e-15), 2e300, 3e300};
    checkAgainstReference(far, probesAround(far));
}
