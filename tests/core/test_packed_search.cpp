// The bucket index of irregular grids: the interval it gives equals the plain search's for
// every query (on and one ulp beside every grid point, outside, infinite, NaN), for single
// and double grids with single and double queries, on grids from nearly uniform to strongly
// clustered.
#include "mathinterp/core/FindInterval.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace mathinterp;

namespace {

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
};

std::vector<GridCase> irregularGrids() {
    std::mt19937_64 rng(7);
    std::vector<GridCase> cases;
    std::vector<double> random(1000);
    std::uniform_real_distribution<double> u(-50.0, 950.0);
    for (double& v : random)
        v = u(rng);
    std::sort(random.begin(), random.end());
    cases.push_back({"sorted random", random});
    std::vector<double> geometric(600);
    for (int i = 0; i < 600; ++i)
        geometric[i] = std::pow(1e6, i / 599.0) - 1.0;
    cases.push_back({"geometric over six decades", geometric});
    std::vector<double> cluster;
    for (int i = 0; i < 200; ++i)
        cluster.push_back(1.0 + i * 1e-7); // 200 points in one bucket of any table
    cluster.push_back(10.0);
    cluster.push_back(1e4);
    cluster.insert(cluster.begin(), -3.0);
    cases.push_back({"one tight cluster", cluster});
    std::vector<double> bumped(50);
    for (int i = 0; i < 50; ++i)
        bumped[i] = i;
    bumped[20] = 20.02; // just irregular enough for an index
    cases.push_back({"uniform with one point moved", bumped});
    cases.push_back({"four points", {0.0, 0.001, 0.5, 7.0}});
    return cases;
}

// Every point, its neighbours one ulp either side (in the query type), midpoints, the ends,
// far outside, infinities and NaN.
template <class Q, class G>
std::vector<Q> adversarialQueries(const std::vector<G>& g) {
    const Q inf = std::numeric_limits<Q>::infinity();
    std::vector<Q> q = {std::numeric_limits<Q>::quiet_NaN(), -inf, inf,
                        std::numeric_limits<Q>::lowest(), std::numeric_limits<Q>::max()};
    for (std::size_t i = 0; i < g.size(); ++i) {
        const Q p = static_cast<Q>(g[i]);
        q.insert(q.end(), {p, std::nextafter(p, -inf), std::nextafter(p, inf)});
        if (i + 1 < g.size()) q.push_back(static_cast<Q>((double(g[i]) + double(g[i + 1])) / 2));
    }
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> u(double(g.front()) - 1, double(g.back()) + 1);
    for (int k = 0; k < 2000; ++k)
        q.push_back(static_cast<Q>(u(rng)));
    return q;
}

template <class G, class Q>
void checkSameIntervals(const GridCase& c) {
    SCOPED_TRACE(c.name);
    std::vector<G> g;
    for (const double v : c.points)
        if (g.empty() || static_cast<G>(v) > g.back()) g.push_back(static_cast<G>(v));
    const IndexedAxis<G> indexed(g.data(), g.size());
    ASSERT_NE(indexed.bucketIndex(), nullptr) << "the grid should get an index";
    const GridAxis<G> plain(g.data(), g.size());
    const IntervalSearch<G, Q> fast(indexed), slow(plain);
    for (const Q x : adversarialQueries<Q>(g)) {
        bool inFast = false, inSlow = true;
        const u64 i = fast.find(x, inFast);
        ASSERT_EQ(i, slow.find(x, inSlow)) << "query " << x;
        ASSERT_EQ(inFast, inSlow) << "query " << x;
        ASSERT_EQ(fast.find(x), i);
    }
}

} // namespace

TEST(BucketIndex, GivesThePlainSearchsInterval) {
    for (const GridCase& c : irregularGrids()) {
        checkSameIntervals<double, double>(c);
        checkSameIntervals<double, float>(c);
        checkSameIntervals<float, float>(c);
        checkSameIntervals<float, double>(c);
    }
}

// Uniform grids keep the mean-spacing guess (it hits), too-short grids have nothing to index.
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
