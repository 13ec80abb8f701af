// The modified Akima service: hand-computed coefficient blocks, nodes hit exactly, lines
// reproduced, no overshoot on steps, flat data without NaN, N-D against sums and blends of
// 1-D interpolants, an independent long-double reference, and size queries that match what
// the routines touch.
#include "support/Bits.hpp"

#include <platform/AkimaFixedGridService.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace platform;
using u64 = std::uint64_t;

namespace {

// ---- small drivers over the service ------------------------------------------------------

void precompute1(u64 n, const double* x, const double* y, double* ws, double* r) {
    akimaFixedGrid_precompute_1D_double(n, x, y, ws, r);
}
void interpolate1(u64 n, const double* x, const double* r, const double* q, const u64* k,
                  double* o) {
    akimaFixedGrid_interpolate_1D_double(n, x, 0, 1, r, 1, q, k, o);
}

// Interval of a query by the engine's rule: 0 below x[1] and for NaN, n-2 at or above x[n-2].
template <class G, class Q>
u64 intervalOf(const std::vector<G>& x, Q q) {
    const u64 n = x.size();
    if (!(q >= x[1])) return 0;
    if (q >= x[n - 2]) return n - 2;
    u64 i = 1;
    while (!(q < x[i + 1]))
        ++i;
    return i;
}

// A 1-D interpolant held by the test: grid G, values V.
template <class G, class V>
struct Akima1 {
    std::vector<G> x;
    std::vector<V> y;
    std::vector<V> block;

    Akima1(std::vector<G> gx, std::vector<V> gy) : x(std::move(gx)), y(std::move(gy)) {
        u64 wsLen = 0, resLen = 0;
        akimaFixedGrid_precomputeWS_1D(x.size(), &wsLen, &resLen);
        std::vector<V> ws(wsLen);
        block.assign(resLen, V(0));
        precompute1(x.size(), x.data(), y.data(), ws.data(), block.data());
    }
    u64 m() const { return x.size() - 1; }
    V c3(u64 k) const { return block[k]; }
    V c2(u64 k) const { return block[m() + k]; }
    V c1(u64 k) const { return block[2 * m() + k]; }
    V c0(u64 k) const { return block[3 * m() + k]; }
    V operator()(G q) const {
        const u64 k = intervalOf(x, q);
        V out = 0;
        interpolate1(x.size(), x.data(), block.data(), &q, &k, &out);
        return out;
    }
};

// An N-D interpolant held by the test.
template <class G, class V>
struct AkimaN {
    std::vector<std::vector<G>> grids;
    std::vector<u64> dims;
    std::vector<const G*> gp;
    std::vector<V> block;
    mutable std::vector<V> scratch;
    mutable std::vector<u64> iscratch;

    AkimaN(std::vector<std::vector<G>> g, const std::vector<V>& values) : grids(std::move(g)) {
        for (const auto& v : grids) {
            dims.push_back(v.size());
            gp.push_back(v.data());
        }
        u64 w1 = 0, w2 = 0, r = 0;
        akimaFixedGrid_precomputeWS(dims.size(), dims.data(), &w1, &w2, &r);
        std::vector<V> ws1(w1);
        std::vector<u64> ws2(w2);
        block.assign(r, V(0));
        if constexpr (sizeof(V) == 8)
            akimaFixedGrid_precompute_double(dims.size(), dims.data(), gp.data(), values.data(),
                                             ws1.data(), ws2.data(), block.data());
        else
            akimaFixedGrid_precompute_float(dims.size(), dims.data(), gp.data(), values.data(),
                                            ws1.data(), ws2.data(), block.data());
        u64 s = 0, si = 0;
        akimaFixedGrid_interpolateWS(dims.size(), &s, &si);
        scratch.resize(s);
        iscratch.resize(si);
    }
    V operator()(const std::vector<G>& q) const {
        std::vector<u64> k(q.size());
        for (u64 j = 0; j < q.size(); ++j)
            k[j] = intervalOf(grids[j], q[j]);
        V out = 0;
        if constexpr (sizeof(V) == 8)
            akimaFixedGrid_interpolate_double(dims.size(), dims.data(), gp.data(), 0, 1,
                                              block.data(), q.data(), k.data(), 1, scratch.data(),
                                              iscratch.data(), &out);
        else
            akimaFixedGrid_interpolate_float(dims.size(), dims.data(), gp.data(), 0, 1,
                                             block.data(), q.data(), k.data(), 1, scratch.data(),
                                             iscratch.data(), &out);
        return out;
    }
};

// ---- independent reference (long double, no extension arrays, Hermite basis form) --------

long double refSlope(const std::vector<double>& x, const std::vector<double>& y, long long j) {
    const long long m = static_cast<long long>(x.size()) - 1;
    auto raw = [&](long long k) {
        return (static_cast<long double>(y[k + 1]) - y[k]) /
               (static_cast<long double>(x[k + 1]) - x[k]);
    };
    if (j >= 0 && j < m) return raw(j);
    if (j == -1) return 2 * raw(0) - raw(1);
    if (j == -2) return 2 * refSlope(x, y, -1) - raw(0);
    if (j == m) return 2 * raw(m - 1) - raw(m - 2);
    return 2 * refSlope(x, y, m) - raw(m - 1); // j == m + 1
}

long double refDerivative(const std::vector<double>& x, const std::vector<double>& y, u64 i) {
    if (x.size() == 2) return refSlope(x, y, 0);
    const long long ii = static_cast<long long>(i);
    const long double dm2 = refSlope(x, y, ii - 2), dm1 = refSlope(x, y, ii - 1);
    const long double d0 = refSlope(x, y, ii), dp1 = refSlope(x, y, ii + 1);
    const long double w1 = std::fabs(dp1 - d0) + std::fabs(dp1 + d0) / 2;
    const long double w2 = std::fabs(dm1 - dm2) + std::fabs(dm1 + dm2) / 2;
    return (w1 + w2 == 0) ? 0 : (w1 * dm1 + w2 * d0) / (w1 + w2);
}

long double refValue(const std::vector<double>& x, const std::vector<double>& y, double q) {
    const u64 k = intervalOf(x, q);
    const long double h = static_cast<long double>(x[k + 1]) - x[k];
    const long double t = (q - static_cast<long double>(x[k])) / h;
    const long double h00 = (1 + 2 * t) * (1 - t) * (1 - t), h10 = t * (1 - t) * (1 - t);
    const long double h01 = t * t * (3 - 2 * t), h11 = t * t * (t - 1);
    return h00 * y[k] + h10 * h * refDerivative(x, y, k) + h01 * y[k + 1] +
           h11 * h * refDerivative(x, y, k + 1);
}

std::vector<double> irregularGrid(std::mt19937_64& rng, u64 n, double start) {
    std::uniform_real_distribution<double> step(0.1, 2.0);
    std::vector<double> x(n);
    x[0] = start;
    for (u64 i = 1; i < n; ++i)
        x[i] = x[i - 1] + step(rng);
    return x;
}

std::vector<double> randomValues(std::mt19937_64& rng, u64 n) {
    std::uniform_real_distribution<double> v(-2.0, 2.0);
    std::vector<double> y(n);
    for (auto& e : y)
        e = v(rng);
    return y;
}

} // namespace

// ---- 1-D ----------------------------------------------------------------------------------

TEST(AkimaService1D, HandComputedBlockAndValues) {
    // Slopes 0, 1, 0, 0 extended by -1, -2 on the left and 0, 0 on the right give node
    // derivatives -3/8, 1/2, 0, 0, 0 (worked out in docs/makima.md).
    const Akima1<double, double> a({0, 1, 2, 3, 4}, {0, 0, 1, 1, 1});
    ASSERT_EQ(a.block.size(), 17u);
    const double c1[] = {-0.375, 0.5, 0, 0};
    const double c2[] = {0.25, 2, 0, 0};
    const double c3[] = {0.125, -1.5, 0, 0};
    for (u64 k = 0; k < std::size(c1); ++k) {
        EXPECT_SAME_BITS(a.c1(k), c1[k]) << k;
        EXPECT_SAME_BITS(a.c2(k), c2[k]) << k;
        EXPECT_SAME_BITS(a.c3(k), c3[k]) << k;
    }
    for (u64 k = 0; k < 5; ++k)
        EXPECT_SAME_BITS(a.c0(k), a.y[k]);
    EXPECT_SAME_BITS(a(0.5), -0.109375); // 1/64 + 1/16 - 3/16
    EXPECT_SAME_BITS(a(1.5), 0.5625);    // -3/16 + 1/2 + 1/4
    EXPECT_SAME_BITS(a(-1.0), 0.5);      // the first cubic continued
    EXPECT_SAME_BITS(a(7.0), 1.0);       // the flat end continued

    // Three points, a symmetric peak: slopes 1, -1 extended to 5, 3 | 1, -1 | -3, -5.
    const Akima1<double, double> p({0, 1, 2}, {0, 1, 0});
    EXPECT_SAME_BITS(p.c1(0), 1.5);
    EXPECT_SAME_BITS(p.c1(1), 0.0);
    // Two points: the line, continued on both sides.
    const Akima1<double, double> l({1, 3}, {2, 5});
    EXPECT_SAME_BITS(l(0.0), 0.5);
    EXPECT_SAME_BITS(l(2.0), 3.5);
    EXPECT_SAME_BITS(l(4.0), 6.5);
}

TEST(AkimaService1D, MatchesIndependentReference) {
    std::mt19937_64 rng(7);
    for (u64 n : {2u, 3u, 4u, 5u, 17u}) {
        const auto x = irregularGrid(rng, n, 1.0);
        const auto y = randomValues(rng, n);
        const Akima1<double, double> a(x, y);
        for (u64 i = 0; i + 1 < n; ++i)
            EXPECT_NEAR(a.c1(i), static_cast<double>(refDerivative(x, y, i)), 1e-13);
        std::uniform_real_distribution<double> qd(x.front() - 1, x.back() + 1);
        for (int i = 0; i < 200; ++i) {
            const double q = qd(rng);
            EXPECT_NEAR(a(q), static_cast<double>(refValue(x, y, q)), 1e-12) << n << " " << q;
        }
    }
}

TEST(AkimaService1D, StepsDoNotOvershootAndFlatDataStaysFlat) {
    std::mt19937_64 rng(3);
    for (int rep = 0; rep < 30; ++rep) {
        // Monotone steps: plateaus of 3 to 5 points (two flat intervals or more; a single
        // flat interval between two rises is not kept flat), jumps of random height.
        std::vector<double> y;
        double level = 0;
        std::uniform_int_distribution<int> len(3, 5);
        std::uniform_real_distribution<double> jump(0.1, 10.0);
        while (y.size() < 30) {
            for (int i = len(rng); i > 0; --i)
                y.push_back(level);
            level += jump(rng);
        }
        const auto x = irregularGrid(rng, y.size(), 0.0);
        const Akima1<double, double> a(x, y);
        double prev = -INFINITY;
        for (u64 k = 0; k + 1 < x.size(); ++k) {
            for (int j = 0; j <= 16; ++j) {
                const double q = x[k] + (x[k + 1] - x[k]) * j / 16.0;
                const double v = a(q);
                EXPECT_GE(v, y[k]) << q;
                EXPECT_LE(v, y[k + 1]) << q;
                EXPECT_GE(v, prev) << q;
                prev = v;
            }
        }
    }
    // Constant data: every weight is zero, every derivative exactly zero, no NaN anywhere.
    const Akima1<double, double> c({0, 0.5, 2, 3, 7}, {4.25, 4.25, 4.25, 4.25, 4.25});
    for (u64 k = 0; k < 4; ++k)
        EXPECT_SAME_BITS(c.c1(k), 0.0);
    for (double q : {-100.0, 0.1, 1.0, 2.5, 6.0, 1e6})
        EXPECT_SAME_BITS(c(q), 4.25) << q;
    // A flat stretch inside varying data stays flat.
    const Akima1<double, double> f({0, 1, 2, 3, 4, 5, 6}, {3, 1, 2, 2, 2, 5, 4});
    EXPECT_SAME_BITS(f.c1(3), 0.0);
    EXPECT_SAME_BITS(f(2.5), 2.0);
    EXPECT_SAME_BITS(f(3.75), 2.0);
}

TEST(AkimaService1D, MirroredDataGiveTheMirroredInterpolant) {
    std::mt19937_64 rng(9);
    const auto x = irregularGrid(rng, 11, 0.0);
    const auto y = randomValues(rng, 11);
    std::vector<double> mx, my;
    for (u64 i = x.size(); i-- > 0;) {
        mx.push_back(-x[i]);
        my.push_back(y[i]);
    }
    const Akima1<double, double> a(x, y), b(mx, my);
    std::uniform_real_distribution<double> qd(x.front() - 2, x.back() + 2);
    for (int i = 0; i < 300; ++i) {
        const double q = qd(rng);
        EXPECT_NEAR(a(q), b(-q), 1e-12) << q;
    }
}

TEST(AkimaService1D, SetsQueriesInBatchAndNaN) {
    std::mt19937_64 rng(17);
    const auto x = irregularGrid(rng, 8, 0.0);
    const Akima1<double, double> a(x, randomValues(rng, 8)), b(x, randomValues(rng, 8));
    std::vector<double> both(a.block);
    both.insert(both.end(), b.block.begin(), b.block.end());
    std::vector<double> q;
    std::vector<u64> k;
    std::uniform_real_distribution<double> qd(x.front() - 1, x.back() + 1);
    for (int i = 0; i < 64; ++i) {
        q.push_back(qd(rng));
        k.push_back(intervalOf(x, q.back()));
    }
    std::vector<double> out(q.size());
    akimaFixedGrid_interpolate_1D_double(x.size(), x.data(), 1, 2, both.data(), q.size(), q.data(),
                                         k.data(), out.data());
    for (u64 i = 0; i < q.size(); ++i)
        EXPECT_SAME_BITS(out[i], b(q[i]));
    EXPECT_TRUE(std::isnan(a(NAN)));
}

// ---- N dimensions ---------------------------------------------------------------------------

TEST(AkimaServiceND, TwoPointDimensionIsLinear) {
    std::mt19937_64 rng(29);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 8, 0), {1.0, 3.0}};
    const auto row0 = randomValues(rng, 8), row1 = randomValues(rng, 8);
    std::vector<double> v(row0);
    v.insert(v.end(), row1.begin(), row1.end());
    const AkimaN<double, double> a(g, v);
    const Akima1<double, double> r0(g[0], row0), r1(g[0], row1);
    std::uniform_real_distribution<double> ux(g[0].front() - 1, g[0].back() + 1), uy(0, 4);
    for (int i = 0; i < 300; ++i) {
        const double x = ux(rng), y = uy(rng), t = (y - 1.0) / 2.0;
        EXPECT_NEAR(a({x, y}), (1 - t) * r0(x) + t * r1(x), 1e-13) << x << " " << y;
    }
}

// ---- sizes -----------------------------------------------------------------------------------

TEST(AkimaServiceSizes, RoutinesStayInsideTheQueriedLengths) {
    // Buffers of exactly the queried length plus a guard zone: the routines must fill every
    // result entry and touch nothing beyond any buffer (under ASan also nothing before).
    const double canary = -12345.5;
    const u64 guard = 16;
    for (u64 n : {2u, 3u, 7u}) {
        std::vector<double> x(n), y(n);
        for (u64 i = 0; i < n; ++i)
            x[i] = static_cast<double>(i * i) + static_cast<double>(i);
        for (u64 i = 0; i < n; ++i)
            y[i] = std::sin(static_cast<double>(i));
        u64 wl = 0, rl = 0;
        akimaFixedGrid_precomputeWS_1D(n, &wl, &rl);
        EXPECT_EQ(rl, 4 * (n - 1) + 1);
        std::vector<double> ws(wl + guard, canary), r(rl + guard, canary);
        akimaFixedGrid_precompute_1D_double(n, x.data(), y.data(), ws.data(), r.data());
        for (u64 i = 0; i < rl; ++i)
            EXPECT_NE(r[i], canary) << n << " " << i;
        for (u64 i = 0; i < guard; ++i) {
            EXPECT_EQ(r[rl + i], canary);
            EXPECT_EQ(ws[wl + i], canary);
        }
    }
    const std::vector<std::vector<double>> g{{0, 1, 3}, {0, 2}, {1, 2, 3, 5}};
    const u64 dims[] = {3, 2, 4};
    const double* gp[] = {g[0].data(), g[1].data(), g[2].data()};
    std::vector<double> v(24);
    for (u64 i = 0; i < 24; ++i)
        v[i] = std::cos(static_cast<double>(i));
    u64 w1 = 0, w2 = 0, rl = 0;
    akimaFixedGrid_precomputeWS(3, dims, &w1, &w2, &rl);
    EXPECT_EQ(rl, 24u * 8u);
    std::vector<double> ws1(w1 + guard, canary), r(rl + guard, canary);
    std::vector<u64> ws2(w2 + guard, 777);
    akimaFixedGrid_precompute_double(3, dims, gp, v.data(), ws1.data(), ws2.data(), r.data());
    for (u64 i = 0; i < rl; ++i)
        EXPECT_NE(r[i], canary) << i;
    for (u64 i = 0; i < guard; ++i) {
        EXPECT_EQ(r[rl + i], canary);
        EXPECT_EQ(ws1[w1 + i], canary);
        EXPECT_EQ(ws2[w2 + i], 777u);
    }
    u64 s = 0, si = 0;
    akimaFixedGrid_interpolateWS(3, &s, &si);
    EXPECT_EQ(s, 64u + 6u);
    EXPECT_EQ(si, 8u);
    std::vector<double> sc(s + guard, canary);
    std::vector<u64> isc(si + guard, 777);
    const double q[] = {3.0, 2.0, 5.0}; // the upper corner in every dimension
    const u64 k[] = {1, 0, 2};
    double out = 0;
    akimaFixedGrid_interpolate_double(3, dims, gp, 0, 1, r.data(), q, k, 1, sc.data(), isc.data(),
                                      &out);
    EXPECT_SAME_BITS(out, v[23]);
    for (u64 i = 0; i < guard; ++i) {
        EXPECT_EQ(sc[s + i], canary);
        EXPECT_EQ(isc[si + i], 777u);
    }
}

TEST(AkimaServiceSizes, OverflowAndBadShapesAreReported) {
    u64 a = 0, b = 0, c = 0;
    EXPECT_THROW(akimaFixedGrid_precomputeWS_1D(u64{1} << 62, &a, &b), std::bad_alloc);
    EXPECT_THROW(akimaFixedGrid_precomputeWS_1D(1, &a, &b), std::invalid_argument);
    const u64 big[] = {u64{1} << 32, u64{1} << 32, 2};
    EXPECT_THROW(akimaFixedGrid_precomputeWS(3, big, &a, &b, &c), std::bad_alloc);
    const u64 wide[] = {u64{1} << 30, u64{1} << 30};
    EXPECT_THROW(akimaFixedGrid_precomputeWS(2, wide, &a, &b, &c), std::bad_alloc); // x 4 x 8
    const u64 zero[] = {3, 0};
    EXPECT_THROW(akimaFixedGrid_precomputeWS(2, zero, &a, &b, &c), std::invalid_argument);
    EXPECT_THROW(akimaFixedGrid_precomputeWS(0, zero, &a, &b, &c), std::invalid_argument);
    EXPECT_THROW(akimaFixedGrid_interpolateWS(32, &a, &b), std::bad_alloc);
    EXPECT_THROW(akimaFixedGrid_interpolateWS(64, &a, &b), std::bad_alloc);
    EXPECT_NO_THROW(akimaFixedGrid_interpolateWS(20, &a, &b));
    EXPECT_EQ(b, u64{1} << 20);
}

TEST(AkimaServiceSizes, PrecomputationsAreCounted) {
    const u64 before = akimaFixedGrid_precomputeCount();
    const Akima1<double, double> a({0, 1, 2}, {1, 2, 0});
    const AkimaN<double, double> b({{0, 1}, {0, 1}}, {1, 2, 3, 4});
    EXPECT_EQ(akimaFixedGrid_precomputeCount(), before + 2);
    (void)a(0.5);
    (void)b({0.5, 0.5});
    EXPECT_EQ(akimaFixedGrid_precomputeCount(), before + 2);
}
