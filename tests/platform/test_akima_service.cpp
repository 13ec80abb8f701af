// The modified Akima service's own facts: hand-computed 1-D blocks (the flat-interval rule
// among them), the N-D block node by node and its values against 1-D interpolants (sums and
// blends), and size queries that match what the routines touch. That the inline cell
// evaluation and the gridded passes take the N-D routine's bits is checked through the
// engine, which uses them (tests/methods/test_makima.cpp).
#include "support/Bits.hpp"

#include <platform/AkimaFixedGridService.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <new>
#include <random>
#include <stdexcept>
#include <vector>

using namespace platform;
using u64 = std::uint64_t;

namespace {

// Interval of a query by the engine's rule: 0 below x[1], n-2 at or above x[n-2] (and NaN).
template <class G>
u64 intervalOf(const std::vector<G>& x, G q) {
    u64 i = 0;
    while (i + 2 < x.size() && !(q < x[i + 1]))
        ++i;
    return i;
}

// A 1-D double interpolant: its block and one query at a time.
struct Akima1 {
    std::vector<double> x, y, block, sets;
    Akima1(std::vector<double> gx, std::vector<double> gy) : x(std::move(gx)), y(std::move(gy)) {
        u64 wsLen = 0, resLen = 0;
        akimaFixedGrid_precomputeWS_1D(x.size(), &wsLen, &resLen);
        std::vector<double> ws(wsLen);
        block.assign(resLen, 0.0);
        akimaFixedGrid_precompute_1D_double(x.size(), x.data(), y.data(), ws.data(), block.data());
        sets.assign(resLen, NAN); // queries read set 1 of 2
        sets.insert(sets.end(), block.begin(), block.end());
    }
    double c(int power, u64 k) const { return block[(3 - power) * (x.size() - 1) + k]; }
    double operator()(double q) const {
        const u64 k = intervalOf(x, q);
        double out = 0;
        akimaFixedGrid_interpolate_1D_double(x.size(), x.data(), 1, 2, sets.data(), 1, &q, &k,
                                             &out);
        return out;
    }
};

// An N-D interpolant (grid G, values V) through the N-D routine.
template <class G, class V>
struct AkimaN {
    std::vector<std::vector<G>> grids;
    std::vector<u64> dims;
    std::vector<const G*> gp;
    std::vector<V> block;

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
    }
    V operator()(const std::vector<G>& q) const {
        u64 s = 0, si = 0;
        akimaFixedGrid_interpolateWS(dims.size(), &s, &si);
        std::vector<V> scratch(s);
        std::vector<u64> iscratch(si), k(q.size());
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

std::vector<double> grid(std::mt19937_64& rng, u64 n) {
    std::uniform_real_distribution<double> step(0.1, 2.0);
    std::vector<double> x(n, 0.5);
    for (u64 i = 1; i < n; ++i)
        x[i] = x[i - 1] + step(rng);
    return x;
}

std::vector<double> values(std::mt19937_64& rng, u64 n) {
    std::uniform_real_distribution<double> v(-2.0, 2.0);
    std::vector<double> y(n);
    for (auto& e : y)
        e = v(rng);
    return y;
}

} // namespace

// ---- 1-D ------------------------------------------------------------------------------------

TEST(AkimaService1D, HandComputedBlocks) {
    struct Case {
        std::vector<double> x, y, c1, c2, c3; // c1..c3 of the first intervals (all if empty)
        std::vector<std::pair<double, double>> values;
    };
    const Case cases[] = {
        // Slopes 0, 1, 0, 0 extended by -1, -2 | 0, 0: node derivatives -3/8, 1/2, 0, 0, 0
        // (docs/makima.md); the plateau of two intervals gets zero derivatives and stays flat.
        {{0, 1, 2, 3, 4},
         {0, 0, 1, 1, 1},
         {-0.375, 0.5, 0, 0},
         {0.25, 2, 0, 0},
         {0.125, -1.5, 0, 0},
         {{0.5, -0.109375}, {1.5, 0.5625}, {-1, 0.5}, {2.5, 1}, {3.75, 1}, {7, 1}}},
        // A symmetric peak: slopes 1, -1 extended to 5, 3 | -3, -5.
        {{0, 1, 2}, {0, 1, 0}, {1.5, 0}, {}, {}, {{1, 1}, {2, 0}}},
        // Two points: the line, continued on both sides.
        {{1, 3}, {2, 5}, {1.5}, {0}, {0}, {{0, 0.5}, {2, 3.5}, {4, 6.5}}},
        // Constant data: every weight is zero and every derivative exactly zero, no NaN.
        {{0, 0.5, 2, 3, 7},
         {4.25, 4.25, 4.25, 4.25, 4.25},
         {0, 0, 0, 0},
         {0, 0, 0, 0},
         {0, 0, 0, 0},
         {{-100, 4.25}, {0.1, 4.25}, {2.5, 4.25}, {1e6, 4.25}}},
        // A flat stretch of two intervals inside varying data stays flat ...
        {{0, 1, 2, 3, 4, 5, 6}, {3, 1, 2, 2, 2, 5, 4}, {}, {}, {}, {{2.5, 2}, {3.75, 2}}},
        // ... while a single flat interval between two rises gets the rises' slopes.
        {{0, 1, 2, 3, 4, 5}, {0, 0, 1, 1, 2, 2}, {-0.375, 0.5, 0.5, 0.5, 0.5}, {}, {}, {}},
    };
    for (const Case& c : cases) {
        const Akima1 a(c.x, c.y);
        SCOPED_TRACE(::testing::PrintToString(c.y));
        ASSERT_EQ(a.block.size(), 4 * (c.x.size() - 1) + 1);
        for (u64 k = 0; k < c.x.size(); ++k)
            EXPECT_SAME_BITS(a.block[3 * (c.x.size() - 1) + k], c.y[k]); // c0: the values
        for (u64 k = 0; k < c.c1.size(); ++k)
            EXPECT_SAME_BITS(a.c(1, k), c.c1[k]) << k;
        for (u64 k = 0; k < c.c2.size(); ++k)
            EXPECT_SAME_BITS(a.c(2, k), c.c2[k]) << k;
        for (u64 k = 0; k < c.c3.size(); ++k)
            EXPECT_SAME_BITS(a.c(3, k), c.c3[k]) << k;
        for (const auto& [q, v] : c.values)
            EXPECT_SAME_BITS(a(q), v) << q;
        EXPECT_TRUE(std::isnan(a(NAN)));
    }
}

// ---- N dimensions ---------------------------------------------------------------------------

TEST(AkimaServiceND, BlockAndValuesAgreeWithOneDimensionalInterpolants) {
    // Separable data f(x) + g(y) (+ e(z)): node entries {value, d/dx, d/dy, mixed ...} are the
    // 1-D derivatives (mixed ones zero up to rounding) and values the sum of 1-D interpolants.
    // A two-point dimension y blends two 1-D interpolants linearly.
    struct Case {
        std::vector<u64> n;
        bool blend;
    };
    const Case cases[] = {{{7, 5}, false}, {{4, 6, 5}, false}, {{8, 2}, true}};
    std::mt19937_64 rng(29);
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.n));
        const u64 d = c.n.size();
        std::vector<std::vector<double>> g, f;
        u64 P = 1;
        for (u64 j = 0; j < d; ++j) {
            g.push_back(grid(rng, c.n[j]));
            f.push_back(values(rng, c.n[j] * (c.blend ? 2 : 1)));
            P *= c.n[j];
        }
        std::vector<double> v(P);
        for (u64 p = 0; p < P; ++p) { // blend: f[0] holds both rows
            v[p] = c.blend ? f[0][p] : 0.0;
            for (u64 j = 0, rest = p; j < d && !c.blend; rest /= c.n[j++])
                v[p] += f[j][rest % c.n[j]];
        }
        const AkimaN<double, double> a(g, v);
        std::vector<Akima1> lines;
        for (u64 j = 0; j < d; ++j)
            lines.emplace_back(g[j], std::vector<double>(f[j].begin(), f[j].begin() + c.n[j]));
        const u64 K = u64{1} << d;
        for (u64 p = 0; p < P && !c.blend; ++p)
            for (u64 j = 0, rest = p; j < d; rest /= c.n[j++]) {
                const u64 i = rest % c.n[j]; // the 1-D block holds c1 of every node but the last
                if (i + 1 < c.n[j]) {
                    EXPECT_NEAR(a.block[p * K + (u64{1} << j)], lines[j].c(1, i), 1e-12) << p;
                }
                EXPECT_NEAR(a.block[p * K + K - 1], 0.0, 1e-12) << p; // the mixed derivative
            }
        const Akima1 row1(g[0],
                          c.blend ? std::vector<double>(f[0].begin() + c.n[0], f[0].end()) : f[0]);
        for (int i = 0; i < 300; ++i) {
            std::vector<double> q(d);
            double expect = 0;
            for (u64 j = 0; j < d; ++j) {
                std::uniform_real_distribution<double> u(g[j].front() - 1, g[j].back() + 1);
                q[j] = u(rng);
                expect += c.blend ? 0.0 : lines[j](q[j]);
            }
            if (c.blend) {
                const double t = (q[1] - g[1][0]) / (g[1][1] - g[1][0]);
                expect = (1 - t) * lines[0](q[0]) + t * row1(q[0]);
            }
            EXPECT_NEAR(a(q), expect, 1e-12 * (1 + std::fabs(expect)));
        }
    }
}

// ---- sizes -----------------------------------------------------------------------------------

TEST(AkimaServiceSizes, RoutinesStayInsideTheQueriedLengths) {
    // Buffers of exactly the queried length plus a guard zone: the routines fill every result
    // entry and touch nothing beyond any buffer (under ASan also nothing before).
    const double canary = -12345.5;
    auto guarded = [&](u64 len) { return std::vector<double>(len + 16, canary); };
    auto check = [&](const std::vector<double>& b, u64 len) {
        for (u64 i = 0; i < b.size(); ++i)
            EXPECT_EQ(b[i] == canary, i >= len) << i;
    };
    for (u64 n : {2u, 3u, 7u}) {
        std::vector<double> x(n), y(n);
        for (u64 i = 0; i < n; ++i)
            x[i] = static_cast<double>(i * i + i), y[i] = std::sin(static_cast<double>(i));
        u64 wl = 0, rl = 0;
        akimaFixedGrid_precomputeWS_1D(n, &wl, &rl);
        EXPECT_TRUE(rl == 4 * (n - 1) + 1 && wl == 2 * n + 3);
        std::vector<double> ws = guarded(wl), r = guarded(rl);
        akimaFixedGrid_precompute_1D_double(n, x.data(), y.data(), ws.data(), r.data());
        check(r, rl);
        EXPECT_EQ(ws[wl], canary);
    }
    const std::vector<std::vector<double>> g{{0, 1, 3}, {0, 2}, {1, 2, 3, 5}};
    const u64 dims[] = {3, 2, 4};
    const double* gp[] = {g[0].data(), g[1].data(), g[2].data()};
    std::vector<double> v(24);
    for (u64 i = 0; i < 24; ++i)
        v[i] = std::cos(static_cast<double>(i));
    u64 w1 = 0, w2 = 0, rl = 0, s = 0, si = 0;
    akimaFixedGrid_precomputeWS(3, dims, &w1, &w2, &rl);
    akimaFixedGrid_interpolateWS(3, &s, &si);
    EXPECT_TRUE(rl == 24u * 8u && w1 == 3u * 4u + 3u && w2 == 3u && s == 64u + 6u && si == 8u);
    std::vector<double> ws1 = guarded(w1), r = guarded(rl), sc = guarded(s);
    std::vector<u64> ws2(w2 + 16, 777), isc(si + 16, 777);
    akimaFixedGrid_precompute_double(3, dims, gp, v.data(), ws1.data(), ws2.data(), r.data());
    const double q[] = {3.0, 2.0, 5.0}; // the upper corner in every dimension
    const u64 k[] = {1, 0, 2};
    double out = 0;
    akimaFixedGrid_interpolate_double(3, dims, gp, 0, 1, r.data(), q, k, 1, sc.data(), isc.data(),
                                      &out);
    EXPECT_SAME_BITS(out, v[23]);
    check(r, rl);
    EXPECT_TRUE(ws1[w1] == canary && sc[s] == canary && ws2[w2] == 777u && isc[si] == 777u);
}

TEST(AkimaServiceSizes, OverflowAndBadShapesAreReportedAndPrecomputationsCounted) {
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
    EXPECT_NO_THROW(akimaFixedGrid_interpolateWS(20, &a, &b));
    EXPECT_EQ(b, u64{1} << 20);

    const u64 before = akimaFixedGrid_precomputeCount();
    const Akima1 one({0, 1, 2}, {1, 2, 0});
    const AkimaN<double, double> two({{0, 1}, {0, 1}}, {1, 2, 3, 4});
    (void)one(0.5);
    (void)two({0.5, 0.5});
    EXPECT_EQ(akimaFixedGrid_precomputeCount(), before + 2);
}
