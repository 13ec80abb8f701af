// What is special to 1-D linear and the step methods, as tables with one checker each:
// linear's blend with infinite and NaN values and queries, the weight's rounding in mixed
// precision, the widths kept over new values; nearest's ties, next and previous beside grid
// points and beyond the ends; and the 1-D query loop (packed kernels, the bucket index on
// irregular grids) giving query by query the scalar kernel's bits on the plain search's
// interval, at every packed level.
#include "mathinterp/core/Drivers1D.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/Step1D.hpp"
#include "support/Bits.hpp"
#include "support/SimdLevels.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <type_traits>
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

struct Rows {
    std::vector<double> x, y;
    std::vector<std::pair<double, double>> queryWant; // NaN: any NaN
};

// A weight of 0 or 1 takes the node's value as it is (never inf * 0); the blend itself keeps
// the arithmetic's infinities; a NaN value reaches only its two intervals.
const Rows kLinear[] = {
    {{0, 1}, {inf, 0}, {{1, 0}, {0, inf}, {0.5, inf}}},
    {{0, 1, 3}, {inf, 0, 2}, {{0.5, inf}, {-1, inf}, {1.5, 0.5}, {3, 2}, {1, 0}}},
    {{0, 1}, {0, inf}, {{0, 0}, {1, inf}}},
    {{0, 0.1, 0.7},
     {5, 5, 5},
     {{-1e300, 5},
      {-3, 5},
      {0, 5},
      {0.033, 5},
      {0.1, 5},
      {0.69999, 5},
      {0.7, 5},
      {12, 5},
      {1e300, 5},
      {inf, 5},
      {-inf, 5},
      {qnan, qnan}}},
    {{0, 1}, {0, 1}, {{inf, inf}, {-inf, -inf}}},
    {{0, 1}, {1, 0}, {{inf, -inf}}},
    {{0, 1, 2, 3}, {0, qnan, 2, 3}, {{0.5, qnan}, {1.5, qnan}, {0, 0}, {2, 2}, {2.5, 2.5}}},
};

TEST(Linear1D, BlendBitsAndNaNRules) {
    for (const Rows& r : kLinear) {
        Linear1D<double, double> m(r.x.data(), r.x.size(), r.y.data());
        for (const auto& [q, want] : r.queryWant) {
            if (std::isnan(want))
                EXPECT_TRUE(std::isnan(at(m, q))) << "query " << q;
            else
                EXPECT_SAME_BITS(at(m, q), want) << "query " << q << " on " << r.y[0];
        }
    }
}

// Double grid, single values: t formed in double, then rounded to single. Single grid,
// double values: the query rounded to the grid type first. The widths are built once and
// kept when new values come.
TEST(Linear1D, MixedPrecisionWeightsAndKeptWidths) {
    const std::vector<double> x{0.0, 3.0};
    const std::vector<float> y{0.0f, 1.0f};
    Linear1D<double, float> m(x.data(), 2, y.data());
    const float t = static_cast<float>(1.0 / 3.0);
    EXPECT_SAME_BITS(at(m, 1.0), (1.0f - t) * 0.0f + 1.0f * t);
    const std::vector<float> xs{0.0f, 3.0f};
    const std::vector<double> yd{0.0, 1.0}, y2{10.0, 20.0};
    Linear1D<float, double> ms(xs.data(), 2, yd.data());
    EXPECT_SAME_BITS(at(ms, 0.1), static_cast<double>((static_cast<float>(0.1) - 0.0f) / 3.0f));
    const auto* widths = ms.intervalWidths.data();
    ms.rebindValues(y2.data());
    EXPECT_SAME_BITS(at(ms, 1.5), 15.0);
    EXPECT_EQ(ms.intervalWidths.data(), widths);
}

// Nearest: a tie takes the upper neighbour. Next and previous: beside a grid point the next
// or previous node; beyond their end, NaN.
TEST(StepMethods, TiesAndNeighbours) {
    const std::vector<double> x{0.0, 1.0, 2.0, 4.0}, y{1.0, 2.0, 3.0, 4.0};
    Nearest1D<double, double> ne(x.data(), 4, y.data());
    Next1D<double, double> nx(x.data(), 4, y.data());
    Previous1D<double, double> pv(x.data(), 4, y.data());
    struct Case {
        char method;
        double q, want;
    };
    const Case cases[] = {
        {'n', 0.5, 2},
        {'n', 3.0, 4},
        {'n', std::nextafter(0.5, 0.0), 1},
        {'n', -0.5, 1},
        {'n', 4.5, 4},
        {'x', -0.5, 1},
        {'x', std::nextafter(1.0, 0.0), 2},
        {'x', 2.1, 4},
        {'x', std::nextafter(1.0, 2.0), 3},
        {'x', std::nextafter(4.0, 5.0), qnan},
        {'p', std::nextafter(1.0, 0.0), 1},
        {'p', std::nextafter(1.0, 2.0), 2},
        {'p', 3.9, 3},
        {'p', 4.5, 4},
        {'p', std::nextafter(0.0, -1.0), qnan},
    };
    for (const Case& c : cases) {
        const double r = c.method == 'n'   ? at(ne, c.q)
                         : c.method == 'x' ? at(nx, c.q)
                                           : at(pv, c.q);
        if (std::isnan(c.want))
            EXPECT_TRUE(std::isnan(r)) << c.method << " " << c.q;
        else
            EXPECT_EQ(r, c.want) << c.method << " " << c.q;
    }
    // 0.1 as double lies below 0.1f: a double query is not rounded onto a single grid.
    const std::vector<float> xf{0.0f, 0.1f, 0.2f}, yf{1.0f, 2.0f, 3.0f};
    Next1D<float, float> nxf(xf.data(), 3, yf.data());
    Previous1D<float, float> pvf(xf.data(), 3, yf.data());
    ASSERT_LT(0.1, static_cast<double>(0.1f));
    EXPECT_EQ(at(nxf, 0.1), 2.0f);
    EXPECT_EQ(at(pvf, 0.1), 1.0f);
    EXPECT_EQ(at(pvf, 0.1f), 2.0f);
}

TEST(StepMethods, ConstantIsAlwaysTheEngineNaN) {
    const std::vector<float> x{0.0f, 1.0f}, y{1.0f, 2.0f};
    Constant1D<float, float> c(x.data(), 2, y.data());
    EXPECT_SAME_BITS(c.kernel(5.0, 0), engineNaN<float>());
    EXPECT_SAME_BITS(c.kernel(std::numeric_limits<float>::quiet_NaN(), 0), engineNaN<float>());
    EXPECT_EQ(testsupport::bitsOf(engineNaN<float>()), 0xFFC00000u);
    EXPECT_EQ(testsupport::bitsOf(engineNaN<double>()), 0xFFF8000000000000ull);
}

// Grids for the query loop: uniform but not arithmetic (cell ends loaded), integers
// (arithmetic: cell ends computed), sorted random and geometric (the bucket index), with
// equal neighbours, an infinite and a NaN value.
template <class T>
std::vector<std::pair<std::vector<T>, std::vector<T>>> loopGrids() {
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> u(0.0, 1000.0);
    std::vector<std::vector<double>> raw(4);
    for (int i = 0; i < 300; ++i) {
        raw[0].push_back(i / 299.0);
        raw[1].push_back(i);
    }
    for (int i = 0; i < 500; ++i)
        raw[2].push_back(u(rng));
    std::sort(raw[2].begin(), raw[2].end());
    for (int i = 0; i < 400; ++i)
        raw[3].push_back(std::pow(1e6, i / 399.0) - 1.0);
    std::vector<std::pair<std::vector<T>, std::vector<T>>> sets;
    for (const auto& g : raw) {
        std::vector<T> x, y;
        for (const double v : g)
            if (x.empty() || static_cast<T>(v) > x.back()) x.push_back(T(v));
        for (std::size_t i = 0; i < x.size(); ++i)
            y.push_back(static_cast<T>(std::sin(0.37 * double(i)) * 5));
        y[5] = y[6];
        y[10] = std::numeric_limits<T>::infinity();
        y[14] = std::numeric_limits<T>::quiet_NaN();
        sets.emplace_back(x, y);
    }
    return sets;
}

// On, just beside and half-way between grid points, NaN inside groups, infinities, and an
// odd count of random queries (a tail shorter than a group).
template <class T>
std::vector<T> loopQueries(const std::vector<T>& g) {
    const T tinf = std::numeric_limits<T>::infinity(), tnan = std::numeric_limits<T>::quiet_NaN();
    std::vector<T> q = {tnan, -tinf, tinf};
    for (std::size_t i = 0; i < g.size(); ++i) {
        q.insert(q.end(), {g[i], std::nextafter(g[i], -tinf), std::nextafter(g[i], tinf)});
        if (i + 1 < g.size()) q.push_back((g[i] + g[i + 1]) / 2);
        if (i % 7 == 0) q.push_back(tnan);
    }
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> u(double(g.front()) - 10, double(g.back()) + 10);
    for (int k = 0; k < 3001; ++k)
        q.push_back(static_cast<T>(u(rng)));
    return q;
}

template <template <class, class> class M, class T>
void checkQueryLoop() {
    for (const auto& [grid, values] : loopGrids<T>()) {
        const std::vector<T> x = loopQueries(grid);
        testsupport::forEachSimdLevel([&] {
            M<T, T> m(grid.data(), grid.size(), values.data());
            m.complete();
            if constexpr (std::is_same_v<T, double>) { // else the check would prove nothing
                ASSERT_EQ(m.simdUsable(), simd::avx2Available());
            }
            std::vector<T> out(x.size());
            const QueryColumns<T> cols(x.data(), 1, x.size());
            InterpScatteredQueriesFtor1D<M<T, T>, T> f{&m, &cols, out.data(), 1};
            f(0, x.size());
            const GridAxis<T> plain(grid.data(), grid.size());
            const IntervalSearch<T, T> search(plain);
            for (std::size_t q = 0; q < x.size(); ++q)
                ASSERT_SAME_BITS(out[q], m.kernel(x[q], search.find(x[q])))
                    << "query " << q << " = " << x[q] << ", grid of " << grid.size();
        });
    }
}

TEST(Packed1D, QueryLoopGivesTheScalarKernelsBits) {
    checkQueryLoop<Linear1D, double>();
    checkQueryLoop<Linear1D, float>();
    checkQueryLoop<Nearest1D, double>();
    checkQueryLoop<Next1D, double>();
    checkQueryLoop<Previous1D, double>();
    checkQueryLoop<Nearest1D, float>();
}

} // namespace
