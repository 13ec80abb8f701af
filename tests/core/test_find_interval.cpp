// The interval search against plain bisection, and the bucket index of irregular grids against
// the plain search: uniform, irregular, clustered and extreme grids, every grid/query
// precision pair, queries on and one ulp beside every point, outside, infinite and NaN; the
// in-range test at the ends. Then the packed search's record of a dimension (which grids count
// as arithmetic) and the cap on the packed level.
#include "mathinterp/core/FindInterval.hpp"
#include "mathinterp/core/SimdSearch.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace mathinterp;

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

// A grid axis that also offers a bucket index, as the 1-D methods do.
template <class G>
struct IndexedAxis : GridAxis<G> {
    BucketIndex index;
    IndexedAxis(const G* x, u64 n) : GridAxis<G>(x, n), index(buildBucketIndex(x, n)) {}
    const BucketIndex* bucketIndex() const noexcept { return index.empty() ? nullptr : &index; }
};

struct GridCase {
    std::string name;
    std::vector<double> points;
    bool indexed; // irregular enough for a bucket index (others may get one too)
};

std::vector<GridCase> grids() {
    const double big = std::numeric_limits<double>::max();
    std::vector<GridCase> cases = {
        {"uniform", {0.0, 1.0, 2.0, 3.0, 4.0}, false},
        {"two points", {-1.0, 5.0}, false},
        {"two far clusters", {0.0, 1.0, 1000.0, 1001.0}, false},
        {"decimal steps", {0.0, 0.1, 0.2, 0.3, 0.4}, false},
        {"extreme magnitudes", {-big, -1.0, 0.0, 1.0, big}, false},
        {"subnormal steps", {0.0, 5e-324, 1e-323, 1.5e-323, 1.0}, false},
        {"far from zero", {1e300, 1e300 * (1 + 1e-15), 2e300, 3e300}, false},
        {"four points", {0.0, 0.001, 0.5, 7.0}, true},
    };
    std::mt19937_64 rng(7);
    std::vector<double> random(1000);
    std::uniform_real_distribution<double> u(-50.0, 950.0);
    for (double& v : random)
        v = u(rng);
    std::sort(random.begin(), random.end());
    cases.push_back({"sorted random", random, true});
    std::vector<double> geometric(600);
    for (int i = 0; i < 600; ++i)
        geometric[i] = std::pow(1e6, i / 599.0) - 1.0;
    cases.push_back({"geometric over six decades", geometric, true});
    std::vector<double> cluster{-3.0};
    for (int i = 0; i < 200; ++i)
        cluster.push_back(1.0 + i * 1e-7); // 200 points in one bucket of any table
    cluster.insert(cluster.end(), {10.0, 1e4});
    cases.push_back({"one tight cluster", cluster, true});
    std::vector<double> bumped(50);
    for (int i = 0; i < 50; ++i)
        bumped[i] = i;
    bumped[20] = 20.02; // just irregular enough for an index
    cases.push_back({"uniform with one point moved", bumped, true});
    std::uniform_real_distribution<double> step(1e-3, 1.0);
    std::exponential_distribution<double> wild(0.01);
    for (int trial = 0; trial < 20; ++trial) {
        std::vector<double> x{trial % 2 ? -50.0 : 3.0};
        for (int i = 1; i < 2 + trial * 7; ++i)
            x.push_back(x.back() + (trial % 3 == 0 ? wild(rng) + 1e-9 : step(rng)));
        cases.push_back({"random " + std::to_string(trial), x, false});
    }
    return cases;
}

// Every point, its neighbours one ulp either side (in the query type), midpoints, far
// outside, infinities, NaN and random points around the grid.
template <class Q, class G>
std::vector<Q> probes(const std::vector<G>& g) {
    const Q inf = std::numeric_limits<Q>::infinity();
    std::vector<Q> q = {std::numeric_limits<Q>::quiet_NaN(), -inf, inf,
                        std::numeric_limits<Q>::lowest(), std::numeric_limits<Q>::max()};
    for (std::size_t i = 0; i < g.size(); ++i) {
        const Q p = static_cast<Q>(g[i]);
        q.insert(q.end(), {p, std::nextafter(p, -inf), std::nextafter(p, inf)});
        if (i + 1 < g.size()) q.push_back(static_cast<Q>(g[i] / 2 + g[i + 1] / 2));
    }
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> u(double(g.front()) - 1, double(g.back()) + 1);
    for (int k = 0; k < 500 && std::isfinite(u.b() - u.a()); ++k)
        q.push_back(static_cast<Q>(u(rng)));
    return q;
}

template <class G, class Q>
void checkSearch(const GridCase& c) {
    SCOPED_TRACE(c.name + (sizeof(G) == 4 ? " single grid" : " double grid") +
                 (sizeof(Q) == 4 ? " single queries" : " double queries"));
    std::vector<G> g; // the points the grid type holds, finite and increasing
    for (const double v : c.points)
        if (std::isfinite(static_cast<G>(v)) && (g.empty() || static_cast<G>(v) > g.back()))
            g.push_back(static_cast<G>(v));
    if (g.size() < 2) return;
    const GridAxis<G> plain(g.data(), g.size());
    const IndexedAxis<G> indexed(g.data(), g.size());
    if (c.indexed) {
        ASSERT_NE(indexed.bucketIndex(), nullptr) << "the grid should get an index";
    }
    const IntervalSearch<G, Q> withIndex(indexed);
    for (const Q x : probes<Q>(g)) {
        bool in = false, inIndexed = false;
        const u64 j = findInterval(plain, x, in);
        ASSERT_EQ(j, referenceInterval(g, x)) << "query " << x;
        ASSERT_EQ(findInterval(plain, x), j);
        ASSERT_EQ(in, x >= g.front() && x <= g.back()) << "query " << x;
        ASSERT_EQ(withIndex.find(x, inIndexed), j) << "bucket index, query " << x;
        ASSERT_EQ(inIndexed, in) << "bucket index, query " << x;
        ASSERT_EQ(withIndex.find(x), j);
    }
}

bool arithmetic(const std::vector<double>& g) {
    return simd::simdAxis(g.data(), g.size(), (g.back() - g.front()) / double(g.size() - 1), 1)
        .arithmetic;
}

std::vector<double> startPlusSteps(double a, double h, int n) {
    std::vector<double> g(n);
    for (int i = 0; i < n; ++i)
        g[i] = a + static_cast<double>(i) * h;
    return g;
}

} // namespace

// The two ends are inside; x[n-2] and x[n-1] fall into the last interval; NaN and infinite
// queries are outside and never index outside the grid; the bucket index gives the same.
TEST(FindInterval, ExtremeMagnitudesStayInsideTheGrid) {
    for (const GridCase& c : grids()) {
        checkSearch<double, double>(c);
        checkSearch<double, float>(c);
        checkSearch<float, double>(c);
        checkSearch<float, float>(c);
    }
}

// Uniform grids keep the mean-spacing guess, too-short grids have nothing to index.
TEST(BucketIndex, OnlyIrregularGridsGetOne) {
    std::vector<double> uniform(1000);
    for (int i = 0; i < 1000; ++i)
        uniform[i] = i / 999.0;
    EXPECT_TRUE(buildBucketIndex(uniform.data(), uniform.size()).empty());
    const double three[] = {0.0, 0.1, 5.0};
    EXPECT_TRUE(buildBucketIndex(three, 3).empty());
    const double clustered[] = {0.0, 0.1, 0.2, 5.0, 9.0};
    EXPECT_FALSE(buildBucketIndex(clustered, 5).empty());
}

// Integer grids, start plus i steps, and a 2-point grid are arithmetic; one point an ulp
// off (inside or last), a grid made by division, or an irregular one are not: for them the
// packed search must keep loading the cell ends, or it would put queries near that point
// in the wrong cell.
TEST(SimdAxis, ArithmeticGridsAreThoseThatComputeExactly) {
    EXPECT_TRUE(arithmetic(startPlusSteps(0.0, 1.0, 1000)));
    EXPECT_TRUE(arithmetic(startPlusSteps(0.1, 0.1, 23)));
    EXPECT_TRUE(arithmetic(startPlusSteps(-3.0, 0.7, 6)));
    EXPECT_TRUE(arithmetic({2.0, 7.5}));
    for (const int at : {11, 22}) {
        std::vector<double> g = startPlusSteps(0.1, 0.1, 23);
        g[at] = std::nextafter(g[at], 10.0);
        EXPECT_FALSE(arithmetic(g)) << at;
    }
    // i / 999 rounds once, start + i * step twice: some points differ.
    std::vector<double> divided(1000);
    for (int i = 0; i < 1000; ++i)
        divided[i] = i / 999.0;
    EXPECT_FALSE(arithmetic(divided));
    EXPECT_FALSE(arithmetic({0.0, 0.1, 0.5, 0.6, 2.0}));
}

// The cap lowers the level and lifting it restores what the processor has.
TEST(SimdLevel, CapLowersTheLevel) {
    using simd::SimdLevel;
    simd::limitSimd(SimdLevel::Avx512);
    const SimdLevel have = simd::simdLevel();
    simd::limitSimd(SimdLevel::None);
    EXPECT_EQ(simd::simdLevel(), SimdLevel::None);
    EXPECT_FALSE(simd::avx2Available());
    simd::limitSimd(SimdLevel::Avx2);
    EXPECT_EQ(simd::simdLevel(), std::min(have, SimdLevel::Avx2));
    simd::limitSimd(SimdLevel::Avx512);
    EXPECT_EQ(simd::simdLevel(), have);
}
