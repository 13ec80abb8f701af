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
void precompute1(u64 n, const float* x, const float* y, float* ws, float* r) {
    akimaFixedGrid_precompute_1D_float(n, x, y, ws, r);
}
void precompute1(u64 n, const double* x, const float* y, float* ws, float* r) {
    akimaFixedGrid_precompute_1D_float(n, x, y, ws, r);
}
void interpolate1(u64 n, const double* x, const double* r, const double* q, const u64* k,
                  double* o) {
    akimaFixedGrid_interpolate_1D_double(n, x, 0, 1, r, 1, q, k, o);
}
void interpolate1(u64 n, const double* x, const float* r, const double* q, const u64* k, float* o) {
    akimaFixedGrid_interpolate_1D_float(n, x, 0, 1, r, 1, q, k, o);
}
void interpolate1(u64 n, const float* x, const float* r, const float* q, const u64* k, float* o) {
    akimaFixedGrid_interpolate_1D_float(n, x, 0, 1, r, 1, q, k, o);
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

TEST(AkimaService1D, NodesExactInEveryPrecision) {
    std::mt19937_64 rng(11);
    for (u64 n : {2u, 3u, 4u, 9u, 40u}) {
        const auto x = irregularGrid(rng, n, -3.0);
        auto y = randomValues(rng, n);
        y[n / 2] = -0.0; // the sign of a zero survives too
        const Akima1<double, double> dd(x, y);
        const std::vector<float> xf(x.begin(), x.end()), yf(y.begin(), y.end());
        const Akima1<float, float> ff(xf, yf);
        const Akima1<double, float> df(x, yf);
        for (u64 i = 0; i < n; ++i) {
            EXPECT_SAME_BITS(dd(x[i]), y[i]) << n << " " << i;
            EXPECT_SAME_BITS(ff(xf[i]), yf[i]) << n << " " << i;
            EXPECT_SAME_BITS(df(x[i]), yf[i]) << n << " " << i;
        }
    }
    // An infinite neighbour does not reach a node's value.
    const Akima1<double, double> inf({0, 1, 2, 3}, {1, INFINITY, 2, 3});
    EXPECT_SAME_BITS(inf(0.0), 1.0);
    EXPECT_SAME_BITS(inf(3.0), 3.0);
}

TEST(AkimaService1D, LinesReproduced) {
    // Slopes exact in binary: every derivative is exactly 3, so c2 = c3 = 0 and dyadic
    // queries give exact values inside and outside.
    const std::vector<double> x{0, 1, 2, 4, 5, 8};
    std::vector<double> y;
    for (double v : x)
        y.push_back(3 * v - 2);
    const Akima1<double, double> a(x, y);
    for (u64 k = 0; k + 1 < x.size(); ++k) {
        EXPECT_SAME_BITS(a.c1(k), 3.0);
        EXPECT_SAME_BITS(a.c2(k), 0.0);
        EXPECT_SAME_BITS(a.c3(k), 0.0);
    }
    for (double q : {-4.5, -0.25, 0.5, 1.75, 3.0, 4.5, 6.25, 8.0, 11.5})
        EXPECT_SAME_BITS(a(q), 3 * q - 2) << q;

    // General lines on irregular grids: within rounding of the slopes.
    std::mt19937_64 rng(5);
    for (int rep = 0; rep < 20; ++rep) {
        const auto gx = irregularGrid(rng, 12, -1.0);
        std::vector<double> gy;
        for (double v : gx)
            gy.push_back(0.7 - 1.3 * v);
        const Akima1<double, double> b(gx, gy);
        std::uniform_real_distribution<double> qd(gx.front() - 3, gx.back() + 3);
        for (int i = 0; i < 50; ++i) {
            const double q = qd(rng);
            EXPECT_NEAR(b(q), 0.7 - 1.3 * q, 1e-13 * (1 + std::fabs(q))) << q;
        }
    }
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

TEST(AkimaService1D, PrecisionPairsAgreeWithDouble) {
    std::mt19937_64 rng(13);
    const auto x = irregularGrid(rng, 25, -5.0);
    const auto y = randomValues(rng, 25);
    const std::vector<float> xf(x.begin(), x.end()), yf(y.begin(), y.end());
    const Akima1<double, float> df(x, yf);
    const Akima1<float, float> ff(xf, yf);
    const Akima1<double, double> dd(x, std::vector<double>(yf.begin(), yf.end()));
    std::uniform_real_distribution<double> qd(x.front() - 1, x.back() + 1);
    for (int i = 0; i < 200; ++i) {
        const double q = qd(rng);
        // Single grid points differenced lose about |x| eps / h relative: 2e-5 here.
        const double tol = 1e-4 * (1 + std::fabs(dd(q)));
        EXPECT_NEAR(df(q), dd(q), tol);
        EXPECT_NEAR(ff(static_cast<float>(q)), dd(static_cast<float>(q)), tol);
    }
    // The offset of a single query on a double grid is formed in double: on a grid far from
    // zero a single query would be rounded to a coarse step first.
    const Akima1<double, float> far({1e4, 1e4 + 1, 1e4 + 2}, {0.f, 1.f, 2.f});
    EXPECT_SAME_BITS(far(1e4 + 0.3), 0.3f);
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

TEST(AkimaServiceND, NodesExactAndLinesReproduced) {
    // f = 1 + 2x - 3y + z/2 on grids with power-of-two spacings: every derivative entry is
    // exact (cross derivatives exactly 0) and dyadic queries give exact values.
    const std::vector<std::vector<double>> g{{0, 1, 2, 4, 8}, {-2, -1, 0, 0.5}, {0, 4, 6}};
    auto f = [](double x, double y, double z) { return 1 + 2 * x - 3 * y + z / 2; };
    std::vector<double> v;
    for (double z : g[2])
        for (double y : g[1])
            for (double x : g[0])
                v.push_back(f(x, y, z));
    const AkimaN<double, double> a(g, v);
    for (u64 p = 0; p < v.size(); ++p) {
        const double* node = &a.block[p * 8];
        EXPECT_SAME_BITS(node[0], v[p]);
        EXPECT_SAME_BITS(node[1], 2.0);
        EXPECT_SAME_BITS(node[2], -3.0);
        EXPECT_SAME_BITS(node[4], 0.5);
        for (u64 s : {3u, 5u, 6u, 7u})
            EXPECT_SAME_BITS(node[s], 0.0);
    }
    for (double x : {-1.5, 0.0, 0.5, 3.0, 8.0, 9.25})
        for (double y : {-3.0, -1.5, 0.25, 0.5, 1.0})
            for (double z : {-2.0, 0.0, 5.0, 6.0, 8.0})
                EXPECT_SAME_BITS(a({x, y, z}), f(x, y, z)) << x << " " << y << " " << z;

    // Random data: nodes exact.
    std::mt19937_64 rng(21);
    const std::vector<std::vector<double>> h{irregularGrid(rng, 6, 0), irregularGrid(rng, 4, 2)};
    const auto w = randomValues(rng, 24);
    const AkimaN<double, double> b(h, w);
    for (u64 j = 0; j < 4; ++j)
        for (u64 i = 0; i < 6; ++i)
            EXPECT_SAME_BITS(b({h[0][i], h[1][j]}), w[i + 6 * j]);
}

TEST(AkimaServiceND, SeparableDataGiveTheSumOfOneDimensionalInterpolants) {
    std::mt19937_64 rng(23);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 7, -1), irregularGrid(rng, 5, 0),
                                             irregularGrid(rng, 6, 3)};
    const auto f = randomValues(rng, 7), gy = randomValues(rng, 5), hz = randomValues(rng, 6);
    std::vector<double> v;
    for (u64 k = 0; k < 6; ++k)
        for (u64 j = 0; j < 5; ++j)
            for (u64 i = 0; i < 7; ++i)
                v.push_back(f[i] + gy[j] + hz[k]);
    const AkimaN<double, double> a(g, v);
    const Akima1<double, double> fx(g[0], f), fy(g[1], gy), fz(g[2], hz);
    std::uniform_real_distribution<double> u(-0.2, 1.2);
    for (int i = 0; i < 500; ++i) {
        std::vector<double> q(3);
        for (u64 j = 0; j < 3; ++j)
            q[j] = g[j].front() + u(rng) * (g[j].back() - g[j].front());
        const double sum = fx(q[0]) + fy(q[1]) + fz(q[2]);
        EXPECT_NEAR(a(q), sum, 1e-13 * (1 + std::fabs(sum))) << q[0] << " " << q[1] << " " << q[2];
    }
}

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

TEST(AkimaServiceND, OneDimensionAgreesWithTheOneDimensionalService) {
    std::mt19937_64 rng(31);
    const auto x = irregularGrid(rng, 10, 0);
    const auto y = randomValues(rng, 10);
    const AkimaN<double, double> a({x}, y);
    const Akima1<double, double> b(x, y);
    // Node-major: value, then derivative; the derivatives are the 1-D ones bit for bit.
    for (u64 i = 0; i < 10; ++i)
        EXPECT_SAME_BITS(a.block[2 * i], y[i]);
    for (u64 i = 0; i + 1 < 10; ++i)
        EXPECT_SAME_BITS(a.block[2 * i + 1], b.c1(i));
    std::uniform_real_distribution<double> qd(x.front() - 1, x.back() + 1);
    for (int i = 0; i < 200; ++i) {
        const double q = qd(rng);
        EXPECT_NEAR(a({q}), b(q), 1e-13) << q;
    }
}

TEST(AkimaServiceND, StepsDoNotOvershootAndFlatDataGiveZeroDerivatives) {
    const std::vector<std::vector<double>> g{{0, 1, 2, 3, 4, 5, 6}, {0, 0.5, 1, 2, 3, 4}};
    std::vector<double> v;
    for (double y : g[1])
        for (double x : g[0])
            v.push_back((x >= 3 ? 1.0 : 0.0) + (y >= 2 ? 2.0 : 0.0));
    const AkimaN<double, double> a(g, v);
    for (double x = -0.5; x <= 6.5; x += 0.125)
        for (double y = -0.25; y <= 4.25; y += 0.125) {
            const double r = a({x, y});
            EXPECT_GE(r, 0.0) << x << " " << y;
            EXPECT_LE(r, 3.0) << x << " " << y;
        }
    const std::vector<double> flat(42, -1.5);
    const AkimaN<double, double> c(g, flat);
    for (u64 p = 0; p < 42; ++p)
        for (u64 s = 1; s < 4; ++s)
            EXPECT_SAME_BITS(c.block[4 * p + s], 0.0);
    for (double x : {-3.0, 0.3, 2.7, 9.0})
        for (double y : {-1.0, 0.7, 3.3})
            EXPECT_SAME_BITS(c({x, y}), -1.5);
}

TEST(AkimaServiceND, SinglePrecisionAgreesWithDouble) {
    std::mt19937_64 rng(37);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 6, 0), irregularGrid(rng, 5, 0)};
    const auto vd = randomValues(rng, 30);
    const std::vector<float> vf(vd.begin(), vd.end());
    std::vector<std::vector<float>> gf;
    for (const auto& e : g)
        gf.emplace_back(e.begin(), e.end());
    const AkimaN<double, float> df(g, vf);
    const AkimaN<float, float> ff(gf, vf);
    const AkimaN<double, double> dd(g, std::vector<double>(vf.begin(), vf.end()));
    std::uniform_real_distribution<double> u(-0.1, 1.1);
    for (int i = 0; i < 200; ++i) {
        const double x = g[0].front() + u(rng) * (g[0].back() - g[0].front());
        const double y = g[1].front() + u(rng) * (g[1].back() - g[1].front());
        EXPECT_NEAR(df({x, y}), dd({x, y}), 2e-5);
        const float xf = static_cast<float>(x), yf = static_cast<float>(y);
        EXPECT_NEAR(ff({xf, yf}), dd({xf, yf}), 2e-5);
    }
}

TEST(AkimaServiceND, ConcurrentQueriesOnOneBlockMatchSerial) {
    std::mt19937_64 rng(41);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 9, 0), irregularGrid(rng, 7, 0)};
    const auto v = randomValues(rng, 63);
    const AkimaN<double, double> a(g, v);
    const u64 m = 4000;
    std::vector<double> q(2 * m);
    std::vector<u64> k(2 * m);
    std::uniform_real_distribution<double> u(-1, 15);
    for (u64 i = 0; i < m; ++i)
        for (u64 j = 0; j < 2; ++j) {
            q[2 * i + j] = u(rng);
            k[2 * i + j] = intervalOf(g[j], q[2 * i + j]);
        }
    std::vector<double> serial(m);
    for (u64 i = 0; i < m; ++i)
        serial[i] = a({q[2 * i], q[2 * i + 1]});
    std::vector<double> par(m);
    std::vector<std::thread> threads;
    for (u64 t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            std::vector<double> s(a.scratch.size());
            std::vector<u64> si(a.iscratch.size());
            const u64 b = t * m / 4, e = (t + 1) * m / 4;
            akimaFixedGrid_interpolate_double(2, a.dims.data(), a.gp.data(), 0, 1, a.block.data(),
                                              &q[2 * b], &k[2 * b], e - b, s.data(), si.data(),
                                              &par[b]);
        });
    for (auto& th : threads)
        th.join();
    for (u64 i = 0; i < m; ++i)
        EXPECT_SAME_BITS(par[i], serial[i]);
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
