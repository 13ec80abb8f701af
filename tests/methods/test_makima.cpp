// "makima" through the evaluators, 1-D and N-D: nodes exact and lines reproduced in every
// precision pair, N-D separable data as sums of 1-D interpolants,
// one precomputation per plane however often it is evaluated (and again after rebinding),
// no overshoot on steps, value sets and complex planes kept apart, serial and parallel runs
// bit for bit, and the method in both roles of a two-method evaluator.
#include "support/Bits.hpp"

#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/methods/Makima1D.hpp"
#include "mathinterp/methods/MakimaND.hpp"

#include <platform/AkimaFixedGridService.hpp>
#include <platform/HostArray.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <type_traits>
#include <vector>

using namespace mathinterp;
using platform::ClassId;
using platform::HostArray;

namespace {

template <class T>
constexpr ClassId classOf() {
    return std::is_same_v<T, double> ? ClassId::Double : ClassId::Single;
}

template <class T>
HostArray queryArray(const std::vector<double>& q) {
    if constexpr (std::is_same_v<T, double>)
        return HostArray::fromDoubles({q.size(), 1}, q);
    else
        return HostArray::fromSingles({q.size(), 1}, std::vector<float>(q.begin(), q.end()));
}

// One 1-D evaluator over grid x and planes stored back to back (complex: split layout).
template <class G, class V>
struct Makima1 {
    std::vector<G> x;
    std::vector<V> planes; // numPlanes blocks of x.size()
    u64 numPlanes;
    bool complex;
    std::unique_ptr<Evaluator> ev;

    Makima1(std::vector<G> gx, std::vector<V> p, u64 planesCount, bool isComplex = false,
            MethodId method = MethodId::Makima, MethodId extrap = MethodId::Makima)
        : x(std::move(gx)), planes(std::move(p)), numPlanes(planesCount), complex(isComplex) {
        EvaluatorSetup<G, V> s;
        s.grids = {x.data()};
        s.sizes = {x.size()};
        s.values = planes.data();
        s.pointsPerPlane = x.size();
        s.numPlanes = numPlanes;
        ev = makeEvaluator<G, V>(method, extrap, s);
    }

    // Results for every value set, block after block (complex: interleaved re, im).
    template <class Q = double>
    std::vector<V> operator()(const std::vector<double>& q) const {
        const u64 sets = complex ? numPlanes / 2 : numPlanes;
        HostArray out = HostArray::createNumeric({q.size(), sets}, classOf<V>(), complex);
        ev->evaluateScattered(q.size(), queryArray<Q>(q), out);
        const V* o = out.data<V>();
        return std::vector<V>(o, o + q.size() * sets * (complex ? 2 : 1));
    }
    V at(double q) const { return (*this)(std::vector<double>{q})[0]; }
};

std::vector<double> irregularGrid(std::mt19937_64& rng, u64 n) {
    std::uniform_real_distribution<double> step(0.25, 2.0);
    std::vector<double> x(n);
    for (u64 i = 1; i < n; ++i)
        x[i] = x[i - 1] + step(rng);
    return x;
}

std::vector<double> randomValues(std::mt19937_64& rng, u64 n) {
    std::uniform_real_distribution<double> v(-3.0, 3.0);
    std::vector<double> y(n);
    for (auto& e : y)
        e = v(rng);
    return y;
}

template <class T, class U>
std::vector<T> as(const std::vector<U>& v) {
    return std::vector<T>(v.begin(), v.end());
}

template <class P>
class Makima1DPairs : public ::testing::Test {};
template <class G, class V>
struct Pair {
    using GridT = G;
    using ValT = V;
};
using PrecisionPairs = ::testing::Types<Pair<double, double>, Pair<double, float>,
                                        Pair<float, double>, Pair<float, float>>;
TYPED_TEST_SUITE(Makima1DPairs, PrecisionPairs);

} // namespace

// ---- 1-D ------------------------------------------------------------------------------------

TYPED_TEST(Makima1DPairs, GridValuesExactAtNodesForBothQueryPrecisions) {
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    std::mt19937_64 rng(1);
    for (u64 n : {2u, 3u, 6u, 31u}) {
        // Grid points exact in single too, so both query precisions land on them.
        auto x = as<double>(as<float>(irregularGrid(rng, n)));
        const auto y = as<V>(randomValues(rng, n));
        const Makima1<G, V> m(as<G>(x), y, 1);
        const std::vector<V> rd = m(x);
        const std::vector<V> rs = m.template operator()<float>(x);
        for (u64 i = 0; i < n; ++i) {
            EXPECT_SAME_BITS(rd[i], y[i]) << n << " " << i;
            EXPECT_SAME_BITS(rs[i], y[i]) << n << " " << i;
        }
    }
}

TYPED_TEST(Makima1DPairs, LinesReproducedInsideAndOutside) {
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    // Slopes exact in binary: c2 = c3 = 0 and dyadic queries give the line exactly.
    const std::vector<double> x{-2, 0, 1, 2, 4, 5, 8};
    std::vector<double> y;
    for (double v : x)
        y.push_back(0.5 * v + 3);
    const Makima1<G, V> m(as<G>(x), as<V>(y), 1);
    const std::vector<double> q{-6.5, -2.0, -1.25, 0.5, 2.0, 3.75, 7.5, 8.0, 12.25};
    const std::vector<V> r = m(q);
    for (u64 i = 0; i < q.size(); ++i)
        EXPECT_SAME_BITS(r[i], static_cast<V>(0.5 * q[i] + 3));
}

TYPED_TEST(Makima1DPairs, AgreesWithTheServiceOnTheWidenedGrid) {
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    std::mt19937_64 rng(2);
    const auto xd = irregularGrid(rng, 12);
    const auto x = as<G>(xd);
    const auto y = as<V>(randomValues(rng, 12));
    const Makima1<G, V> m(x, y, 1);
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
    const std::vector<V> r = m(q);
    const std::vector<V> rs = m.template operator()<float>(q);
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
    const Makima1<double, double> m(x, planes, 3);
    std::vector<double> q(5000); // parallel
    std::uniform_real_distribution<double> qd(-1, x.back() + 1);
    for (auto& e : q)
        e = qd(rng);

    const std::uint64_t before = platform::akimaFixedGrid_precomputeCount();
    const auto first = m(q);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 3);
    const auto second = m(q);
    (void)m.at(0.5);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 3);
    for (u64 i = 0; i < first.size(); ++i)
        EXPECT_SAME_BITS(second[i], first[i]);

    // New values: the blocks are dropped and rebuilt once, from the new planes.
    std::vector<double> other = randomValues(rng, 27);
    const void* ptrs[] = {other.data(), other.data() + 9, other.data() + 18};
    m.ev->rebindValues(ptrs);
    const auto third = m(q);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 6);
    (void)m(q);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 6);
    const Makima1<double, double> fresh(x, other, 3);
    const auto expect = fresh(q);
    for (u64 i = 0; i < third.size(); ++i)
        EXPECT_SAME_BITS(third[i], expect[i]);
}

TEST(Makima1D, ConcurrentFirstEvaluationsShareOnePrecomputation) {
    std::mt19937_64 rng(4);
    const auto x = irregularGrid(rng, 50);
    const Makima1<double, double> m(x, randomValues(rng, 50), 1);
    std::vector<double> q(3000);
    std::uniform_real_distribution<double> qd(-1, x.back() + 1);
    for (auto& e : q)
        e = qd(rng);
    const std::uint64_t before = platform::akimaFixedGrid_precomputeCount();
    std::vector<std::vector<double>> results(4);
    std::vector<std::thread> threads;
    for (u64 t = 0; t < results.size(); ++t)
        threads.emplace_back([&, t] { results[t] = m(q); });
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 1);
    for (u64 t = 1; t < results.size(); ++t)
        for (u64 i = 0; i < q.size(); ++i)
            EXPECT_SAME_BITS(results[t][i], results[0][i]);
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
        const Makima1<double, double> m(x, y, 1);
        const Makima1<double, double> pchip(x, y, 1, false, MethodId::Pchip, MethodId::Pchip);
        std::vector<double> q;
        for (u64 k = 0; k + 1 < x.size(); ++k)
            for (int j = 0; j < 16; ++j)
                q.push_back(x[k] + (x[k + 1] - x[k]) * j / 16.0);
        const auto r = m(q);
        const auto rp = pchip(q);
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

TEST(Makima1D, ValueSetsAndComplexPlanesIndependent) {
    std::mt19937_64 rng(6);
    const auto x = irregularGrid(rng, 10);
    const auto a = randomValues(rng, 10), b = randomValues(rng, 10), c = randomValues(rng, 10);
    std::vector<double> q(100);
    std::uniform_real_distribution<double> qd(-1, x.back() + 1);
    for (auto& e : q)
        e = qd(rng);
    const auto ra = Makima1<double, double>(x, a, 1)(q);
    const auto rb = Makima1<double, double>(x, b, 1)(q);
    const auto rc = Makima1<double, double>(x, c, 1)(q);

    std::vector<double> sets(a);
    sets.insert(sets.end(), b.begin(), b.end());
    sets.insert(sets.end(), c.begin(), c.end());
    const auto r3 = Makima1<double, double>(x, sets, 3)(q);
    for (u64 i = 0; i < q.size(); ++i) {
        EXPECT_SAME_BITS(r3[i], ra[i]);
        EXPECT_SAME_BITS(r3[q.size() + i], rb[i]);
        EXPECT_SAME_BITS(r3[2 * q.size() + i], rc[i]);
    }

    // Complex values a + ib and c + 0i (split: real planes a, c, then imaginary b, 0).
    std::vector<double> split(a);
    split.insert(split.end(), c.begin(), c.end());
    split.insert(split.end(), b.begin(), b.end());
    split.insert(split.end(), 10, 0.0);
    const auto rz = Makima1<double, double>(x, split, 4, true)(q);
    for (u64 i = 0; i < q.size(); ++i) {
        EXPECT_SAME_BITS(rz[2 * i], ra[i]);
        EXPECT_SAME_BITS(rz[2 * i + 1], rb[i]);
        EXPECT_SAME_BITS(rz[2 * (q.size() + i)], rc[i]);
        EXPECT_SAME_BITS(rz[2 * (q.size() + i) + 1], 0.0);
    }
}

TEST(Makima1D, SerialAndParallelRunsAgreeBitForBit) {
    std::mt19937_64 rng(7);
    const auto x = irregularGrid(rng, 200);
    const Makima1<float, double> m(as<float>(x), randomValues(rng, 200), 1);
    std::vector<double> q(10000);
    std::uniform_real_distribution<double> qd(-5, x.back() + 5);
    for (auto& e : q)
        e = qd(rng);
    q[17] = NAN;
    const auto whole = m(q); // parallel
    for (u64 b = 0; b < q.size(); b += 2047) {
        const u64 e = std::min<u64>(b + 2047, q.size());
        const auto part = m(std::vector<double>(q.begin() + static_cast<long>(b),
                                                q.begin() + static_cast<long>(e)));
        for (u64 i = b; i < e; ++i)
            EXPECT_SAME_BITS(part[i - b], whole[i]) << i;
    }
    EXPECT_SAME_BITS(whole[17], engineNaN<double>());
}

TEST(Makima1D, ServesAsInterpolationAndAsExtrapolationMethod) {
    std::mt19937_64 rng(8);
    const auto x = irregularGrid(rng, 8);
    const auto y = randomValues(rng, 8);
    const Makima1<double, double> mk(x, y, 1);
    const Makima1<double, double> lin(x, y, 1, false, MethodId::Linear, MethodId::Linear);
    const Makima1<double, double> mkLin(x, y, 1, false, MethodId::Makima, MethodId::Linear);
    const Makima1<double, double> linMk(x, y, 1, false, MethodId::Linear, MethodId::Makima);
    const Makima1<double, double> mkNone(x, y, 1, false, MethodId::Makima, MethodId::None);
    std::vector<double> q{x.front(), x.back(), -3.0, x.back() + 2.5, NAN};
    std::uniform_real_distribution<double> qd(-2, x.back() + 2);
    for (int i = 0; i < 200; ++i)
        q.push_back(qd(rng));
    const auto a = mk(q), l = lin(q), ml = mkLin(q), lm = linMk(q), mn = mkNone(q);
    for (u64 i = 0; i < q.size(); ++i) {
        const bool inside = q[i] >= x.front() && q[i] <= x.back();
        EXPECT_SAME_BITS(ml[i], inside ? a[i] : l[i]) << q[i];
        EXPECT_SAME_BITS(lm[i], inside ? l[i] : a[i]) << q[i];
        EXPECT_SAME_BITS(mn[i], inside ? a[i] : engineNaN<double>()) << q[i];
    }
}

// ---- N dimensions ---------------------------------------------------------------------------

namespace {

// An N-D evaluator over grid vectors and planes stored back to back (complex: split layout).
template <class G, class V>
struct MakimaN {
    std::vector<std::vector<G>> grids;
    std::vector<V> planes;
    u64 numPlanes;
    bool complex;
    std::unique_ptr<Evaluator> ev;

    MakimaN(std::vector<std::vector<G>> g, std::vector<V> p, u64 planesCount,
            bool isComplex = false, MethodId method = MethodId::Makima,
            MethodId extrap = MethodId::Makima)
        : grids(std::move(g)), planes(std::move(p)), numPlanes(planesCount), complex(isComplex) {
        EvaluatorSetup<G, V> s;
        u64 points = 1;
        for (const auto& v : grids) {
            s.grids.push_back(v.data());
            s.sizes.push_back(v.size());
            points *= v.size();
        }
        s.values = planes.data();
        s.pointsPerPlane = points;
        s.numPlanes = numPlanes;
        ev = makeEvaluator<G, V>(method, extrap, s);
    }
    u64 sets() const { return complex ? numPlanes / 2 : numPlanes; }
    u64 width() const { return complex ? 2 : 1; }

    // Scattered points, one row per point; results block after block per value set.
    template <class Q = double>
    std::vector<V> operator()(const std::vector<std::vector<double>>& pts) const {
        const u64 m = pts.size(), d = grids.size();
        HostArray q = HostArray::createNumeric({m, d}, classOf<Q>());
        for (u64 i = 0; i < m; ++i)
            for (u64 k = 0; k < d; ++k)
                q.template data<Q>()[k * m + i] = static_cast<Q>(pts[i][k]);
        HostArray out = HostArray::createNumeric({m, sets()}, classOf<V>(), complex);
        ev->evaluateScattered(m, q, out);
        return std::vector<V>(out.data<V>(), out.data<V>() + m * sets() * width());
    }
    V at(const std::vector<double>& p) const { return (*this)({p})[0]; }

    // Gridded queries: one vector per dimension; results column-major over them.
    std::vector<V> gridded(const std::vector<std::vector<double>>& vecs) const {
        HostArray cell = HostArray::createCell(1, vecs.size());
        u64 total = 1;
        platform::Dims dims;
        for (u64 k = 0; k < vecs.size(); ++k) {
            cell.setCell(k, HostArray::fromDoubles({vecs[k].size(), 1}, vecs[k]));
            total *= vecs[k].size();
            dims.push_back(vecs[k].size());
        }
        dims.push_back(sets());
        HostArray out = HostArray::createNumeric(dims, classOf<V>(), complex);
        ev->evaluateGridded(cell, out);
        return std::vector<V>(out.data<V>(), out.data<V>() + total * sets() * width());
    }
};

// Values of f over the grid, column-major.
template <class V, class F>
std::vector<V> sample(const std::vector<std::vector<double>>& g, F&& f) {
    std::vector<V> v;
    std::vector<u64> i(g.size(), 0);
    for (;;) {
        std::vector<double> p(g.size());
        for (u64 k = 0; k < g.size(); ++k)
            p[k] = g[k][i[k]];
        v.push_back(static_cast<V>(f(p)));
        u64 k = 0;
        while (k < g.size() && ++i[k] == g[k].size())
            i[k++] = 0;
        if (k == g.size()) return v;
    }
}

std::vector<std::vector<double>> randomPoints(std::mt19937_64& rng,
                                              const std::vector<std::vector<double>>& g, u64 m,
                                              double margin) {
    std::vector<std::vector<double>> pts(m, std::vector<double>(g.size()));
    for (auto& p : pts)
        for (u64 k = 0; k < g.size(); ++k) {
            std::uniform_real_distribution<double> u(g[k].front() - margin, g[k].back() + margin);
            p[k] = u(rng);
        }
    return pts;
}

template <class P>
class MakimaNDPairs : public ::testing::Test {};
TYPED_TEST_SUITE(MakimaNDPairs, PrecisionPairs);

} // namespace

TYPED_TEST(MakimaNDPairs, GridValuesExactAndLinesReproduced) {
    using G = typename TypeParam::GridT;
    using V = typename TypeParam::ValT;
    // Index-coded values on irregular axes: every node returns its code exactly, scattered
    // and gridded.
    const std::vector<std::vector<double>> g{{0, 1, 3, 3.5}, {-2, -1.5, 0, 4}, {10, 11, 12.5}};
    const auto codes = sample<V>(g, [&](const std::vector<double>& p) {
        double c = 0, scale = 1;
        for (u64 k = 0; k < 3; ++k, scale *= 10)
            c += scale *
                 static_cast<double>(std::find(g[k].begin(), g[k].end(), p[k]) - g[k].begin());
        return c;
    });
    std::vector<std::vector<G>> gg;
    for (const auto& v : g)
        gg.push_back(as<G>(v));
    const MakimaN<G, V> m(gg, codes, 1);
    std::vector<std::vector<double>> nodes;
    for (double z : g[2])
        for (double y : g[1])
            for (double x : g[0])
                nodes.push_back({x, y, z});
    const auto rs = m(nodes);
    const auto rsf = m.template operator()<float>(nodes);
    const auto rg = m.gridded(g);
    for (u64 i = 0; i < codes.size(); ++i) {
        EXPECT_SAME_BITS(rs[i], codes[i]) << i;
        EXPECT_SAME_BITS(rsf[i], codes[i]) << i;
        EXPECT_SAME_BITS(rg[i], codes[i]) << i;
    }

    // A plane with slopes exact in binary (power-of-two spacings): exact inside and outside.
    const std::vector<std::vector<double>> h{{0, 1, 2, 4, 8}, {-2, -1, 0, 0.5}};
    auto f = [](const std::vector<double>& p) { return 1 + 2 * p[0] - 3 * p[1]; };
    const MakimaN<G, V> lin({as<G>(h[0]), as<G>(h[1])}, sample<V>(h, f), 1);
    std::vector<std::vector<double>> pts;
    for (double x : {-1.5, 0.5, 3.0, 8.0, 9.25})
        for (double y : {-3.0, -1.5, 0.25, 1.0})
            pts.push_back({x, y});
    const auto r = lin(pts);
    for (u64 i = 0; i < pts.size(); ++i)
        EXPECT_SAME_BITS(r[i], static_cast<V>(f(pts[i])));
}

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
    const MakimaN<double, double> m(g, v, 1);
    const Makima1<double, double> fx(g[0], f, 1), fy(g[1], gy, 1), fz(g[2], hz, 1);
    const auto pts = randomPoints(rng, g, 400, 1.0);
    std::vector<double> cx, cy, cz;
    for (const auto& p : pts) {
        cx.push_back(p[0]);
        cy.push_back(p[1]);
        cz.push_back(p[2]);
    }
    const auto r = m(pts), rx = fx(cx), ry = fy(cy), rz = fz(cz);
    for (u64 i = 0; i < pts.size(); ++i) {
        const double sum = rx[i] + ry[i] + rz[i];
        EXPECT_NEAR(r[i], sum, 1e-13 * (1 + std::fabs(sum))) << i;
    }
}

TEST(MakimaND, PrecomputesOncePerPlaneUntilRebound) {
    std::mt19937_64 rng(41);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 6), irregularGrid(rng, 4)};
    const MakimaN<double, double> m(g, randomValues(rng, 48), 2);
    const auto pts = randomPoints(rng, g, 3000, 0.5);
    const std::vector<std::vector<double>> vecs{{0.1, 1.0, 2.0}, {0.3, 0.7}};

    const std::uint64_t before = platform::akimaFixedGrid_precomputeCount();
    const auto first = m(pts);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 2);
    const auto second = m(pts);
    (void)m.gridded(vecs);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 2);
    for (u64 i = 0; i < first.size(); ++i)
        EXPECT_SAME_BITS(second[i], first[i]);

    std::vector<double> other = randomValues(rng, 48);
    const void* ptrs[] = {other.data(), other.data() + 24};
    m.ev->rebindValues(ptrs);
    const auto third = m(pts);
    (void)m(pts);
    EXPECT_EQ(platform::akimaFixedGrid_precomputeCount(), before + 4);
    const auto expect = MakimaN<double, double>(g, other, 2)(pts);
    for (u64 i = 0; i < third.size(); ++i)
        EXPECT_SAME_BITS(third[i], expect[i]);
}

TEST(MakimaND, StepDataWithoutOvershoot) {
    // Steps along both axes with plateaus of three points or more, as in 1-D.
    const std::vector<std::vector<double>> g{{0, 1, 2, 3, 4, 5, 6, 7, 8}, {0, 0.5, 1, 2, 3, 4}};
    auto f = [](const std::vector<double>& p) {
        return (p[0] >= 3 ? 1.0 : 0.0) + (p[0] >= 6 ? 4.0 : 0.0) + (p[1] >= 2 ? -2.0 : 0.0);
    };
    const MakimaN<double, double> m(g, sample<double>(g, f), 1);
    std::vector<double> xs, ys;
    for (double x = 0; x <= 8; x += 0.125)
        xs.push_back(x);
    for (double y = 0; y <= 4; y += 0.125)
        ys.push_back(y);
    const auto r = m.gridded({xs, ys});
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

TEST(MakimaND, ValueSetsAndComplexPlanesIndependent) {
    std::mt19937_64 rng(42);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 5), irregularGrid(rng, 4)};
    const auto a = randomValues(rng, 20), b = randomValues(rng, 20), c = randomValues(rng, 20);
    const auto pts = randomPoints(rng, g, 50, 0.5);
    const auto ra = MakimaN<double, double>(g, a, 1)(pts);
    const auto rb = MakimaN<double, double>(g, b, 1)(pts);
    const auto rc = MakimaN<double, double>(g, c, 1)(pts);
    std::vector<double> sets(a);
    sets.insert(sets.end(), b.begin(), b.end());
    sets.insert(sets.end(), c.begin(), c.end());
    const auto r3 = MakimaN<double, double>(g, sets, 3)(pts);
    const u64 m = pts.size();
    for (u64 i = 0; i < m; ++i) {
        EXPECT_SAME_BITS(r3[i], ra[i]);
        EXPECT_SAME_BITS(r3[m + i], rb[i]);
        EXPECT_SAME_BITS(r3[2 * m + i], rc[i]);
    }
    // Complex a + ib and c + 0i: real planes a, c, then imaginary planes b, 0.
    std::vector<double> split(a);
    split.insert(split.end(), c.begin(), c.end());
    split.insert(split.end(), b.begin(), b.end());
    split.insert(split.end(), 20, 0.0);
    const auto rz = MakimaN<double, double>(g, split, 4, true)(pts);
    for (u64 i = 0; i < m; ++i) {
        EXPECT_SAME_BITS(rz[2 * i], ra[i]);
        EXPECT_SAME_BITS(rz[2 * i + 1], rb[i]);
        EXPECT_SAME_BITS(rz[2 * (m + i)], rc[i]);
        EXPECT_SAME_BITS(rz[2 * (m + i) + 1], 0.0);
    }
}

TEST(MakimaND, SerialParallelAndGriddedRunsAgreeBitForBit) {
    std::mt19937_64 rng(43);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 30), irregularGrid(rng, 20)};
    const MakimaN<float, double> m({as<float>(g[0]), as<float>(g[1])}, randomValues(rng, 600), 1);
    auto pts = randomPoints(rng, g, 9000, 2.0);
    pts[5][1] = NAN;
    const auto whole = m(pts); // parallel
    for (u64 b = 0; b < pts.size(); b += 2047) {
        const u64 e = std::min<u64>(b + 2047, pts.size());
        const auto part = m(std::vector<std::vector<double>>(pts.begin() + static_cast<long>(b),
                                                             pts.begin() + static_cast<long>(e)));
        for (u64 i = b; i < e; ++i)
            EXPECT_SAME_BITS(part[i - b], whole[i]) << i;
    }
    EXPECT_SAME_BITS(whole[5], engineNaN<double>());

    // A 60 x 50 query grid (parallel) against the same points scattered.
    const auto vx = randomPoints(rng, {g[0]}, 60, 1.0), vy = randomPoints(rng, {g[1]}, 50, 1.0);
    std::vector<double> xs, ys;
    for (const auto& p : vx)
        xs.push_back(p[0]);
    for (const auto& p : vy)
        ys.push_back(p[0]);
    std::vector<std::vector<double>> all;
    for (double y : ys)
        for (double x : xs)
            all.push_back({x, y});
    const auto rg = m.gridded({xs, ys});
    const auto rs = m(all);
    for (u64 i = 0; i < all.size(); ++i)
        EXPECT_SAME_BITS(rg[i], rs[i]) << i;
}

TEST(MakimaND, ServesAsInterpolationAndAsExtrapolationMethod) {
    std::mt19937_64 rng(44);
    const std::vector<std::vector<double>> g{irregularGrid(rng, 6), irregularGrid(rng, 5)};
    const auto v = randomValues(rng, 30);
    const MakimaN<double, double> mk(g, v, 1);
    const MakimaN<double, double> lin(g, v, 1, false, MethodId::Linear, MethodId::Linear);
    const MakimaN<double, double> mkLin(g, v, 1, false, MethodId::Makima, MethodId::Linear);
    const MakimaN<double, double> linMk(g, v, 1, false, MethodId::Linear, MethodId::Makima);
    const MakimaN<double, double> mkNone(g, v, 1, false, MethodId::Makima, MethodId::None);
    auto pts = randomPoints(rng, g, 300, 1.5);
    pts.push_back({g[0].front(), g[1].back()});
    const auto a = mk(pts), l = lin(pts), ml = mkLin(pts), lm = linMk(pts), mn = mkNone(pts);
    for (u64 i = 0; i < pts.size(); ++i) {
        const bool inside = pts[i][0] >= g[0].front() && pts[i][0] <= g[0].back() &&
                            pts[i][1] >= g[1].front() && pts[i][1] <= g[1].back();
        EXPECT_SAME_BITS(ml[i], inside ? a[i] : l[i]) << i;
        EXPECT_SAME_BITS(lm[i], inside ? l[i] : a[i]) << i;
        EXPECT_SAME_BITS(mn[i], inside ? a[i] : engineNaN<double>()) << i;
    }
}
