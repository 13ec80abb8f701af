// What is special to "makima": the method is the Akima service on the grid it passes (1-D: a
// single grid under double values widened once; N-D: the 2-D, 3-D and general kernels and
// the gridded passes all take the service routine's bits), one precomputation per plane
// however often it is evaluated and again after new values. The flat-interval rule and the
// N-D block are the service's (tests/platform/test_akima_service.cpp).
#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <platform/AkimaFixedGridService.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <type_traits>

using namespace mathinterp;
using namespace testsupport;

namespace {

template <class G, class V>
OwnedEvaluator<G, V> makima(std::vector<std::vector<G>> g, std::vector<V> v, u64 planes,
                            MethodId m = MethodId::Makima) {
    return OwnedEvaluator<G, V>(std::move(g), std::move(v), planes, m, m);
}

// The engine's interval of x (converted to the grid type): 0 below g[1], n-2 from g[n-2] on.
template <class G>
u64 intervalOf(const std::vector<G>& g, G x) {
    u64 k = 0;
    while (k + 2 < g.size() && !(x < g[k + 1]))
        ++k;
    return k;
}

// The service's value at point p (query type Q), on the grid as the method passes it.
template <class G, class V, class Q>
V serviceValue(const std::vector<std::vector<G>>& g, const std::vector<V>& v,
               const std::vector<double>& p) {
    const u64 d = g.size();
    std::vector<G> x(d);
    std::vector<u64> k(d), dims(d);
    std::vector<const G*> gp(d);
    for (u64 j = 0; j < d; ++j) {
        x[j] = static_cast<G>(static_cast<Q>(p[j]));
        k[j] = intervalOf(g[j], x[j]);
        dims[j] = g[j].size();
        gp[j] = g[j].data();
    }
    u64 w1, w2, r, s, si;
    platform::akimaFixedGrid_precomputeWS(d, dims.data(), &w1, &w2, &r);
    platform::akimaFixedGrid_interpolateWS(d, &s, &si);
    std::vector<V> ws1(w1), block(r), scratch(s);
    std::vector<u64> ws2(w2), iscratch(si);
    V out = 0;
    if constexpr (std::is_same_v<V, double>) {
        platform::akimaFixedGrid_precompute_double(d, dims.data(), gp.data(), v.data(), ws1.data(),
                                                   ws2.data(), block.data());
        platform::akimaFixedGrid_interpolate_double(d, dims.data(), gp.data(), 0, 1, block.data(),
                                                    x.data(), k.data(), 1, scratch.data(),
                                                    iscratch.data(), &out);
    } else {
        platform::akimaFixedGrid_precompute_float(d, dims.data(), gp.data(), v.data(), ws1.data(),
                                                  ws2.data(), block.data());
        platform::akimaFixedGrid_interpolate_float(d, dims.data(), gp.data(), 0, 1, block.data(),
                                                   x.data(), k.data(), 1, scratch.data(),
                                                   iscratch.data(), &out);
    }
    return std::isnan(out) ? engineNaN<V>() : out; // as the engine writes NaN
}

std::vector<std::vector<double>> column(const std::vector<double>& q) {
    std::vector<std::vector<double>> p;
    for (double x : q)
        p.push_back({x});
    return p;
}

template <class P>
class MakimaPairs : public ::testing::Test {};
TYPED_TEST_SUITE(MakimaPairs, PrecisionPairs);

} // namespace

TYPED_TEST(MakimaPairs, OneDimensionIsTheServiceOnTheWidenedGrid) {
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    std::mt19937_64 rng(2);
    const auto xd = irregularGrid(rng, 12);
    const auto x = as<G>(xd);
    const auto y = as<V>(randomValues(rng, 12));
    const auto m = makima<G, V>({x}, y, 1);
    // Single grids under double values are widened; the query goes to the grid type first.
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
    for (u64 i = 0; i < q.size(); ++i)
        for (int pass = 0; pass < 2; ++pass) {
            const SG xq = pass == 0 ? static_cast<SG>(static_cast<G>(q[i]))
                                    : static_cast<SG>(static_cast<G>(static_cast<float>(q[i])));
            const u64 k = intervalOf(sx, xq);
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

TYPED_TEST(MakimaPairs, NDimensionsTakeTheServiceRoutineBits) {
    // 2-D and 3-D take the unrolled kernels, 4-D the general one; scattered queries in both
    // query precisions and a full query grid (dimension-wise passes) against the routine.
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    std::mt19937_64 rng(4);
    const std::vector<std::vector<u64>> shapes{{9, 6}, {5, 4, 6}, {3, 4, 2, 3}};
    for (const std::vector<u64>& n : shapes) {
        SCOPED_TRACE(::testing::PrintToString(n));
        std::vector<std::vector<double>> gd, vecs;
        std::vector<std::vector<G>> g;
        u64 P = 1;
        for (u64 k : n) {
            gd.push_back(irregularGrid(rng, k));
            g.push_back(as<G>(gd.back()));
            vecs.push_back({gd.back().front(), gd.back().back(), NAN, -0.5, 1.3, gd.back()[1]});
            P *= k;
        }
        const auto v = as<V>(randomValues(rng, P));
        const auto m = makima<G, V>(g, v, 1);
        auto pts = randomPoints(rng, gd, 500, 1.0);
        pts.push_back(std::vector<double>(n.size(), NAN));
        const auto r = evaluatePoints<V>(*m, pts);
        const auto rs = evaluatePoints<V, float>(*m, pts);
        for (u64 i = 0; i < pts.size(); ++i) {
            EXPECT_SAME_BITS(r[i], (serviceValue<G, V, double>(g, v, pts[i]))) << i;
            EXPECT_SAME_BITS(rs[i], (serviceValue<G, V, float>(g, v, pts[i]))) << i;
        }
        const auto rg = evaluateVectors<V>(*m, vecs);
        for (u64 p = 0; p < rg.size(); ++p) {
            std::vector<double> pt;
            for (u64 j = 0, rest = p; j < n.size(); rest /= vecs[j++].size())
                pt.push_back(vecs[j][rest % vecs[j].size()]);
            EXPECT_SAME_BITS(rg[p], (serviceValue<G, V, double>(g, v, pt))) << p;
        }
    }
}

TEST(Makima, PrecomputesOncePerPlaneUntilRebound) {
    struct Case {
        std::vector<u64> n;
        u64 planes;
    };
    std::mt19937_64 rng(3);
    for (const Case& c : {Case{{9}, 3}, Case{{6, 4}, 2}}) {
        std::vector<std::vector<double>> g, vecs;
        u64 P = 1;
        for (u64 k : c.n) {
            g.push_back(irregularGrid(rng, k));
            vecs.push_back({0.1, 1.0, 2.0});
            P *= k;
        }
        const auto m = makima<double, double>(g, randomValues(rng, P * c.planes), c.planes);
        const auto pts = randomPoints(rng, g, 5000, 0.5); // parallel
        const std::uint64_t before = platform::akimaFixedGrid_precomputeCount();
        const auto first = evaluatePoints<double>(*m, pts);
        EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + c.planes);
        const auto second = evaluatePoints<double>(*m, pts);
        (void)evaluateVectors<double>(*m, vecs);
        EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + c.planes);
        EXPECT_EQ(first, second);

        // New values: the blocks are dropped and rebuilt once, from the new planes.
        std::vector<double> other = randomValues(rng, P * c.planes);
        std::vector<const void*> ptrs;
        for (u64 k = 0; k < c.planes; ++k)
            ptrs.push_back(other.data() + k * P);
        m->rebindValues(ptrs.data());
        const auto third = evaluatePoints<double>(*m, pts);
        (void)evaluatePoints<double>(*m, pts);
        EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 2 * c.planes);
        const auto expect =
            evaluatePoints<double>(*makima<double, double>(g, other, c.planes), pts);
        for (u64 i = 0; i < third.size(); ++i)
            EXPECT_SAME_BITS(third[i], expect[i]);
    }
}
