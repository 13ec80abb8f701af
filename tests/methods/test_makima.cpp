// What is special to "makima": the 1-D method is the Akima service on the grid it passes (a
// single grid under double values widened once), one precomputation per plane however often it
// is evaluated and again after new values, no overshoot next to plateaus (the flat-interval
// rule), and N-D separable data as sums of 1-D interpolants.
#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <platform/AkimaFixedGridService.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace mathinterp;
using namespace testsupport;

namespace {

template <class G, class V>
OwnedEvaluator<G, V> makima(std::vector<std::vector<G>> g, std::vector<V> v, u64 planes,
                            MethodId m = MethodId::Makima) {
    return OwnedEvaluator<G, V>(std::move(g), std::move(v), planes, m, m);
}

std::vector<std::vector<double>> column(const std::vector<double>& q) {
    std::vector<std::vector<double>> p;
    for (double x : q)
        p.push_back({x});
    return p;
}

template <class P>
class Makima1DPairs : public ::testing::Test {};
TYPED_TEST_SUITE(Makima1DPairs, PrecisionPairs);

} // namespace

TYPED_TEST(Makima1DPairs, AgreesWithTheServiceOnTheWidenedGrid) {
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    std::mt19937_64 rng(2);
    const auto xd = irregularGrid(rng, 12);
    const auto x = as<G>(xd);
    const auto y = as<V>(randomValues(rng, 12));
    const auto m = makima<G, V>({x}, y, 1);
    // The reference: the service on the grid as the method passes it (single grids under
    // double values widened) with the query converted to the grid type first.
    using SG = std::conditional_t<std::is_same_v<V, double>, double, G>;
    const std::vector<SG> sx(x.begin(), x.end());
    u64 wl = 0, rl = 0;
    platform::akimaFixedGrid_precomputeWS_1D(12, &wl, &rl);
    std::vector<V> ws(wl), block(rl);
    if constexpr (std::is_same_v<V, double>)
        platform::akimaFixedGrid_precompute_1D_double(12, sx.data(), y.data(), ws.data(),
                                                      block.data());
    else
        platform::akimaFixedGrid_precompute_1D_float(12, sx.data(), y.data(), ws.data(),
                                                     block.data());
    std::uniform_real_distribution<double> qd(xd.front() - 2, xd.back() + 2);
    std::vector<double> q(300);
    for (auto& e : q)
        e = qd(rng);
    const std::vector<V> r = evaluatePoints<V>(*m, column(q));
    const std::vector<V> rs = evaluatePoints<V, float>(*m, column(q));
    for (u64 i = 0; i < q.size(); ++i) {
        for (int pass = 0; pass < 2; ++pass) {
            const SG xq = pass == 0 ? static_cast<SG>(static_cast<G>(q[i]))
                                    : static_cast<SG>(static_cast<G>(static_cast<float>(q[i])));
            u64 k = 0;
            while (k + 2 < x.size() && !(xq < x[k + 1]))
                ++k;
            V expect = 0;
            if constexpr (std::is_same_v<V, double>)
                platform::akimaFixedGrid_interpolate_1D_double(12, sx.data(), 0, 1, block.data(), 1,
                                                               &xq, &k, &expect);
            else
                platform::akimaFixedGrid_interpolate_1D_float(12, sx.data(), 0, 1, block.data(), 1,
                                                              &xq, &k, &expect);
            EXPECT_SAME_BITS(pass == 0 ? r[i] : rs[i], expect) << q[i];
        }
    }
}

TEST(Makima1D, PrecomputesOncePerPlaneUntilRebound) {
    std::mt19937_64 rng(3);
    const auto x = irregularGrid(rng, 9);
    std::vector<double> planes = randomValues(rng, 27);
    const auto m = makima<double, double>({x}, planes, 3);
    std::vector<double> q(5000); // parallel
    std::uniform_real_distribution<double> qd(-1, x.back() + 1);
    for (auto& e : q)
        e = qd(rng);

    const std::uint64_t before = platform::akimaFixedGrid_precomputeCount();
    const auto first = evaluatePoints<double>(*m, column(q));
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 3);
    const auto second = evaluatePoints<double>(*m, column(q));
    (void)evaluatePoints<double>(*m, {{0.5}});
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 3);
    for (u64 i = 0; i < first.size(); ++i)
        EXPECT_SAME_BITS(second[i], first[i]);

    // New values: the blocks are dropped and rebuilt once, from the new planes.
    std::vector<double> other = randomValues(rng, 27);
    const void* ptrs[] = {other.data(), other.data() + 9, other.data() + 18};
    m->rebindValues(ptrs);
    const auto third = evaluatePoints<double>(*m, column(q));
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 6);
    (void)evaluatePoints<double>(*m, column(q));
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 6);
    const auto expect = evaluatePoints<double>(*makima<double, double>({x}, other, 3), column(q));
    for (u64 i = 0; i < third.size(); ++i)
        EXPECT_SAME_BITS(third[i], expect[i]);
}

TEST(Makima1D, StepDataWithoutOvershoot) {
    // Plateaus of three or more points: every node derivative next to a jump is zero, so each
    // rise is monotone and each plateau flat, as with pchip.
    std::mt19937_64 rng(5);
    for (int rep = 0; rep < 20; ++rep) {
        std::vector<double> y;
        double level = 0;
        std::uniform_int_distribution<int> len(3, 6);
        std::uniform_real_distribution<double> jump(-5.0, 5.0);
        while (y.size() < 40) {
            for (int i = len(rng); i > 0; --i)
                y.push_back(level);
            level += jump(rng);
        }
        const auto x = irregularGrid(rng, y.size());
        const auto m = makima<double, double>({x}, y, 1);
        const auto pchip = makima<double, double>({x}, y, 1, MethodId::Pchip);
        std::vector<double> q;
        for (u64 k = 0; k + 1 < x.size(); ++k)
            for (int j = 0; j < 16; ++j)
                q.push_back(x[k] + (x[k + 1] - x[k]) * j / 16.0);
        const auto r = evaluatePoints<double>(*m, column(q));
        const auto rp = evaluatePoints<double>(*pchip, column(q));
        for (u64 i = 0; i < q.size(); ++i) {
            const u64 k = i / 16;
            const double lo = std::min(y[k], y[k + 1]), hi = std::max(y[k], y[k + 1]);
            ASSERT_TRUE(rp[i] >= lo && rp[i] <= hi) << "pchip overshoots at " << q[i];
            EXPECT_GE(r[i], lo) << q[i];
            EXPECT_LE(r[i], hi) << q[i];
            if (y[k] == y[k + 1]) {
                EXPECT_SAME_BITS(r[i], y[k]) << q[i];
            }
        }
    }
}

// ---- N dimensions ---------------------------------------------------------------------------

TEST(MakimaND, SeparableDataGiveTheSumOfOneDimensionalInterpolants) {
    std::mt19937_64 rng(40);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 7), irregularGrid(rng, 5),
                                             irregularGrid(rng, 6)};
    const auto f = randomValues(rng, 7), gy = randomValues(rng, 5), hz = randomValues(rng, 6);
    std::vector<double> v;
    for (u64 k = 0; k < 6; ++k)
        for (u64 j = 0; j < 5; ++j)
            for (u64 i = 0; i < 7; ++i)
                v.push_back(f[i] + gy[j] + hz[k]);
    const auto m = makima<double, double>(g, v, 1);
    const auto pts = randomPoints(rng, g, 400, 1.0);
    std::vector<double> cx, cy, cz;
    for (const auto& p : pts) {
        cx.push_back(p[0]);
        cy.push_back(p[1]);
        cz.push_back(p[2]);
    }
    const auto r = evaluatePoints<double>(*m, pts);
    const auto rx = evaluatePoints<double>(*makima<double, double>({g[0]}, f, 1), column(cx));
    const auto ry = evaluatePoints<double>(*makima<double, double>({g[1]}, gy, 1), column(cy));
    const auto rz = evaluatePoints<double>(*makima<double, double>({g[2]}, hz, 1), column(cz));
    for (u64 i = 0; i < pts.size(); ++i) {
        const double sum = rx[i] + ry[i] + rz[i];
        EXPECT_NEAR(r[i], sum, 1e-13 * (1 + std::fabs(sum))) << i;
    }
}

TEST(MakimaND, PrecomputesOncePerPlaneUntilRebound) {
    std::mt19937_64 rng(41);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 6), irregularGrid(rng, 4)};
    const auto m = makima<double, double>(g, randomValues(rng, 48), 2);
    const auto pts = randomPoints(rng, g, 3000, 0.5);
    const std::vector<std::vector<double>> vecs{{0.1, 1.0, 2.0}, {0.3, 0.7}};

    const std::uint64_t before = platform::akimaFixedGrid_precomputeCount();
    const auto first = evaluatePoints<double>(*m, pts);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 2);
    const auto second = evaluatePoints<double>(*m, pts);
    (void)evaluateVectors<double>(*m, vecs);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 2);
    for (u64 i = 0; i < first.size(); ++i)
        EXPECT_SAME_BITS(second[i], first[i]);

    std::vector<double> other = randomValues(rng, 48);
    const void* ptrs[] = {other.data(), other.data() + 24};
    m->rebindValues(ptrs);
    const auto third = evaluatePoints<double>(*m, pts);
    (void)evaluatePoints<double>(*m, pts);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 4);
    const auto expect = evaluatePoints<double>(*makima<double, double>(g, other, 2), pts);
    for (u64 i = 0; i < third.size(); ++i)
        EXPECT_SAME_BITS(third[i], expect[i]);
}

TEST(MakimaND, StepDataWithoutOvershoot) {
    // Steps along both axes with plateaus of three points or more, as in 1-D.
    const std::vector<std::vector<double>> g{{0, 1, 2, 3, 4, 5, 6, 7, 8}, {0, 0.5, 1, 2, 3, 4}};
    auto f = [](const std::vector<double>& p) {
        return (p[0] >= 3 ? 1.0 : 0.0) + (p[0] >= 6 ? 4.0 : 0.0) + (p[1] >= 2 ? -2.0 : 0.0);
    };
    const auto m = makima<double, double>(g, sampleGrid<double>(g, f), 1);
    std::vector<double> xs, ys;
    for (double x = 0; x <= 8; x += 0.125)
        xs.push_back(x);
    for (double y = 0; y <= 4; y += 0.125)
        ys.push_back(y);
    const auto r = evaluateVectors<double>(*m, {xs, ys});
    for (u64 j = 0; j < ys.size(); ++j)
        for (u64 i = 0; i < xs.size(); ++i) {
            const double v = r[i + xs.size() * j];
            EXPECT_GE(v, -2.0) << xs[i] << " " << ys[j];
            EXPECT_LE(v, 5.0) << xs[i] << " " << ys[j];
            // On a plateau cell in both directions the value is the plateau's.
            if (xs[i] <= 2 && ys[j] <= 1) {
                EXPECT_SAME_BITS(v, 0.0) << xs[i] << " " << ys[j];
            }
        }
}
