// LinearND, NearestND and ConstantND through the evaluators: index-coded fixtures (a swapped
// axis or stride shows in the value), the two passes of the linear kernel to the bit, ties of
// nearest, the engine's NaN, routing between interpolation and extrapolation, multilinear
// reproduction, many dimensions, and size overflow refused before any allocation.
#include "support/Bits.hpp"
#include "support/SimdLevels.hpp"

#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/methods/ConstantND.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/NearestND.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/HostArray.hpp>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace mathinterp;
using platform::ClassId;
using platform::HostArray;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::nan("");

template <class T>
constexpr ClassId classOf() {
    return std::is_same_v<T, double> ? ClassId::Double : ClassId::Single;
}

template <class G, class V>
struct Grid {
    std::vector<std::vector<G>> axes;
    std::vector<V> values;

    EvaluatorSetup<G, V> setup() const {
        EvaluatorSetup<G, V> s;
        for (const auto& a : axes) {
            s.grids.push_back(a.data());
            s.sizes.push_back(a.size());
        }
        s.values = values.data();
        s.pointsPerPlane = values.size();
        s.numPlanes = 1;
        return s;
    }
    u64 size() const {
        u64 p = 1;
        for (const auto& a : axes)
            p *= a.size();
        return p;
    }
    // Values from f(multi-index).
    template <class F>
    void fill(F f) {
        values.assign(size(), V(0));
        std::vector<u64> idx(axes.size(), 0);
        for (u64 j = 0; j < values.size(); ++j) {
            u64 r = j;
            for (u64 k = 0; k < axes.size(); ++k) {
                idx[k] = r % axes[k].size();
                r /= axes[k].size();
            }
            values[j] = static_cast<V>(f(idx));
        }
    }
};

// Evaluate scattered points (one row per point) on an evaluator.
template <class V, class Q = double>
std::vector<V> at(Evaluator& e, const std::vector<std::vector<Q>>& points) {
    const u64 m = points.size();
    const u64 d = m ? points[0].size() : 0;
    HostArray q = HostArray::createNumeric({m, d}, classOf<Q>());
    for (u64 i = 0; i < m; ++i)
        for (u64 k = 0; k < d; ++k)
            q.data<Q>()[k * m + i] = points[i][k];
    HostArray out = HostArray::createNumeric({m, 1}, classOf<V>());
    e.evaluateScattered(m, q, out);
    return std::vector<V>(out.data<V>(), out.data<V>() + m);
}

template <class V>
V at1(Evaluator& e, const std::vector<double>& point) {
    return at<V>(e, {point})[0];
}

template <class G, class V>
std::unique_ptr<Evaluator> make(const Grid<G, V>& g, MethodId mi, MethodId me) {
    return makeEvaluator<G, V>(mi, me, g.setup());
}

// Index-coded 3-D fixture on non-uniform axes: v = i0 + 10 i1 + 100 i2.
Grid<double, double> indexCoded() {
    Grid<double, double> g;
    g.axes = {{0.0, 1.0, 3.0}, {-2.0, -1.5, 0.0, 4.0}, {10.0, 11.0, 12.5, 13.0, 20.0}};
    g.fill([](const std::vector<u64>& i) { return double(i[0] + 10 * i[1] + 100 * i[2]); });
    return g;
}

TEST(LinearND, IndexCodedNodesAndMidpoints) {
    const auto g = indexCoded();
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    auto near = make(g, MethodId::Nearest, MethodId::Nearest);
    for (u64 i0 = 0; i0 < 3; ++i0)
        for (u64 i1 = 0; i1 < 4; ++i1)
            for (u64 i2 = 0; i2 < 5; ++i2) {
                const std::vector<double> p = {g.axes[0][i0], g.axes[1][i1], g.axes[2][i2]};
                const double v = double(i0 + 10 * i1 + 100 * i2);
                EXPECT_SAME_BITS(at1<double>(*lin, p), v);
                EXPECT_SAME_BITS(at1<double>(*near, p), v);
            }
    // Half-way along one axis at a time: the index code moves by half a unit of that axis.
    EXPECT_SAME_BITS(at1<double>(*lin, {2.0, -1.5, 11.0}), 1.5 + 10 + 100);
    EXPECT_SAME_BITS(at1<double>(*lin, {1.0, 2.0, 11.0}), 1 + 25.0 + 100);
    EXPECT_SAME_BITS(at1<double>(*lin, {1.0, -1.5, 16.5}), 1 + 10 + 350.0);
    // A quarter of the way in every axis at once: 0.25 + 2.5 + 25.
    EXPECT_SAME_BITS(at1<double>(*lin, {0.25, -1.875, 10.25}), 27.75);
}

// One to six dimensions (fixed-size and general kernels): index-coded v = sum i_k 10^k on
// axes {0, 1, 3}; a quarter into the first cell of every axis adds 0.25 * 10^k per axis.
TEST(LinearND, IndexCodedAnyDimensionCount) {
    for (u64 d = 1; d <= 6; ++d) {
        Grid<double, double> g;
        g.axes.assign(d, {0.0, 1.0, 3.0});
        g.fill([](const std::vector<u64>& i) {
            double v = 0, scale = 1;
            for (u64 k : i) {
                v += double(k) * scale;
                scale *= 10;
            }
            return v;
        });
        // EvaluatorInterp directly, so that d = 1 runs through the N-D code as well.
        EvaluatorInterp<LinearND<double, double>> lin(g.setup());
        EvaluatorInterp<NearestND<double, double>> near(g.setup());
        double quarter = 0, last = 0, ones = 0, scale = 1;
        for (u64 k = 0; k < d; ++k) {
            quarter += 0.25 * scale;
            last += 2 * scale;
            ones += scale;
            scale *= 10;
        }
        EXPECT_SAME_BITS(at1<double>(lin, std::vector<double>(d, 0.25)), quarter) << d;
        EXPECT_SAME_BITS(at1<double>(lin, std::vector<double>(d, 3.0)), last) << d;
        EXPECT_SAME_BITS(at1<double>(near, std::vector<double>(d, 3.0)), last) << d;
        EXPECT_SAME_BITS(at1<double>(near, std::vector<double>(d, 0.5)), ones)
            << d; // ties up: every index 1
    }
}

TEST(LinearND, LastGridPointGivesLastSlice) {
    auto g = indexCoded();
    // The second-to-last slice of dimension 0 holds infinities: t = 1 must ignore them.
    g.fill([](const std::vector<u64>& i) {
        return i[0] == 1 ? kInf : double(i[0] + 10 * i[1] + 100 * i[2]);
    });
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    EXPECT_SAME_BITS(at1<double>(*lin, {3.0, -1.5, 11.0}), 2.0 + 10 + 100);
    EXPECT_SAME_BITS(at1<double>(*lin, {3.0, 4.0, 20.0}), 2.0 + 30 + 400);
    // Inside the last slice along dimension 1: 2 + 10*(1 + 0.25) + 100.
    EXPECT_SAME_BITS(at1<double>(*lin, {3.0, -1.125, 11.0}), 114.5);
}

// 2-D 3x3 grid; corner (2, 0) holds an infinity.
Grid<double, double> withInfinity(double special) {
    Grid<double, double> g;
    g.axes = {{0.0, 1.0, 2.0}, {0.0, 1.0, 2.0}};
    g.values = {1, 5, special, 3, 7, 9, 4, 6, 8}; // v(i0, i1) = values[i0 + 3 i1]
    return g;
}

TEST(LinearND, SecondPassGivesGridLinesTheirFiniteValue) {
    for (double special : {kInf, -kInf, kNaN}) {
        auto g = withInfinity(special);
        auto lin = make(g, MethodId::Linear, MethodId::Linear);
        // On the grid line x = 1 (t0 = 0 in the cell [1, 2]): between v(1,0) = 5 and v(1,1) = 7.
        EXPECT_SAME_BITS(at1<double>(*lin, {1.0, 0.5}), 6.0);
        EXPECT_SAME_BITS(at1<double>(*lin, {1.0, 0.25}), 5.5);
        // On y = 1 the cell above is finite: v(1,1), v(2,1) only.
        EXPECT_SAME_BITS(at1<double>(*lin, {1.5, 1.0}), 8.0);
        // On the grid point next to it, and on x = 2 (t0 = 1) higher up.
        EXPECT_SAME_BITS(at1<double>(*lin, {1.0, 0.0}), 5.0);
        EXPECT_SAME_BITS(at1<double>(*lin, {2.0, 1.5}), 8.5);
        // Strictly inside the cell with the special corner: not finite.
        EXPECT_FALSE(std::isfinite(at1<double>(*lin, {1.5, 0.5})));
        // The special value itself on its node.
        EXPECT_SAME_BITS(at1<double>(*lin, {2.0, 0.0}), special);
    }
}

// The second pass rules to the bit: u = 0 gives the upper value plus an exact zero.
TEST(LinearND, SecondPassExactZeroWeights) {
    Grid<double, double> g;
    g.axes = {{0.0, 1.0}, {0.0, 3.0}};
    g.values = {kInf, 0.1, kInf, 0.7};
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    // t0 = 1: each pair becomes b + 0 -> (0.1, 0.7); then along y with t1 = 1/3.
    const double t = 1.0 / 3.0, u = 1.0 - t;
    EXPECT_SAME_BITS(at1<double>(*lin, {1.0, 1.0}), t * 0.7 + 0.1 * u);
    // Single precision values, double grid: t rounded to single first.
    Grid<double, float> gf;
    gf.axes = g.axes;
    gf.values = {std::numeric_limits<float>::infinity(), 0.1f,
                 std::numeric_limits<float>::infinity(), 0.7f};
    auto linf = make(gf, MethodId::Linear, MethodId::Linear);
    const float tf = static_cast<float>(1.0 / 3.0), uf = 1.0f - tf;
    EXPECT_SAME_BITS(at1<float>(*linf, {1.0, 1.0}), tf * 0.7f + 0.1f * uf);
    // Zero weight along dimension 1: the row above (inf, -inf) blends to NaN and is dropped.
    g.values = {0.1, 0.3, kInf, -kInf};
    g.axes = {{0.0, 3.0}, {0.0, 1.0}};
    auto lin2 = make(g, MethodId::Linear, MethodId::Linear);
    EXPECT_SAME_BITS(at1<double>(*lin2, {1.0, 0.0}), (t * 0.3) + (0.1 * u));
}

// First pass to the bit: (a*u) + (b*w) per pair, dimension 0 first.
TEST(LinearND, FirstPassOrder) {
    Grid<double, double> g;
    g.axes = {{0.0, 3.0}, {0.0, 7.0}};
    g.values = {0.1, 0.2, 0.3, 0.7};
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    const double w0 = 1.0 / 3.0, u0 = 1.0 - w0, w1 = 2.0 / 7.0, u1 = 1.0 - w1;
    const double r0 = (0.1 * u0) + (0.2 * w0), r1 = (0.3 * u0) + (0.7 * w0);
    EXPECT_SAME_BITS(at1<double>(*lin, {1.0, 2.0}), (r0 * u1) + (r1 * w1));
}

TEST(LinearND, ConstantCellIsExactEverywhere) {
    Grid<double, double> g;
    g.axes = {{0.0, 0.3, 1.0}, {-1.0, 2.0, 2.5}, {0.0, 1.0}};
    g.fill([](const std::vector<u64>&) { return 0.1; });
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> u(-1e6, 1e6);
    for (int i = 0; i < 200; ++i)
        EXPECT_SAME_BITS(at1<double>(*lin, {u(rng), u(rng), u(rng)}), 0.1);
    EXPECT_SAME_BITS(at1<double>(*lin, {1e300, -1e300, 0.5}), 0.1);
    EXPECT_SAME_BITS(at1<double>(*lin, {kInf, 0.5, 0.5}), 0.1);
}

// f = a + b x + c y + e xy (+ z terms) is reproduced; inside within a few ULP, outside too.
TEST(LinearND, ReproducesMultilinearFunctions) {
    Grid<double, double> g;
    g.axes = {{0.5, 0.9, 2.0, 2.2, 4.0}, {0.5, 1.5, 1.75, 4.0}, {1.0, 2.0, 5.0}};
    auto f = [](double x, double y, double z) {
        return 1.0 + 2.0 * x + 3.0 * y + 0.5 * x * y + 0.25 * z + 0.125 * x * y * z;
    };
    g.fill([&](const std::vector<u64>& i) {
        return f(g.axes[0][i[0]], g.axes[1][i[1]], g.axes[2][i[2]]);
    });
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> ux(0.5, 4.0), uz(1.0, 5.0), far(5.0, 9.0);
    for (int i = 0; i < 500; ++i) {
        const double x = ux(rng), y = ux(rng), z = uz(rng);
        EXPECT_ULP_CLOSE(at1<double>(*lin, {x, y, z}), f(x, y, z), 8);
        const double xo = far(rng), yo = far(rng), zo = far(rng);
        EXPECT_NEAR(at1<double>(*lin, {xo, yo, zo}), f(xo, yo, zo), 1e-12 * f(xo, yo, zo));
    }
}

TEST(NearestND, TiesGoUpAndEndsExtrapolate) {
    const auto g = indexCoded();
    auto near = make(g, MethodId::Nearest, MethodId::Nearest);
    EXPECT_EQ(at1<double>(*near, {0.5, -2.0, 10.0}), 1.0); // half-way: upper
    EXPECT_EQ(at1<double>(*near, {0.4999, -2.0, 10.0}), 0.0);
    EXPECT_EQ(at1<double>(*near, {2.0, -1.75, 10.0}), 2.0 + 10);       // both ties up
    EXPECT_EQ(at1<double>(*near, {1.0, -1.75, 16.5}), 1.0 + 10 + 400); // (13 + 20) / 2
    EXPECT_EQ(at1<double>(*near, {-50.0, 100.0, 10.0}), 0.0 + 30);
    EXPECT_EQ(at1<double>(*near, {kInf, -kInf, 1e300}), 2.0 + 0 + 400);
}

// NaN coordinates: NaN under every method, and "outside" under an extrapolation method.
TEST(NDMethods, NaNCoordinateGivesEngineNaN) {
    const auto g = indexCoded();
    const std::pair<MethodId, MethodId> combos[] = {
        {MethodId::Linear, MethodId::Linear},  {MethodId::Nearest, MethodId::Nearest},
        {MethodId::Linear, MethodId::Nearest}, {MethodId::Nearest, MethodId::Linear},
        {MethodId::Linear, MethodId::None},    {MethodId::Nearest, MethodId::None}};
    for (auto [mi, me] : combos)
        for (u64 k = 0; k < 3; ++k) {
            std::vector<double> p = {1.0, -1.0, 11.0};
            p[k] = kNaN;
            EXPECT_SAME_BITS(at1<double>(*make(g, mi, me), p), engineNaN<double>())
                << methodWord(mi) << "/" << methodWord(me) << " dim " << k;
        }
    // Single values and single queries too.
    Grid<float, float> gf;
    gf.axes = {{0.f, 1.f}, {0.f, 1.f}};
    gf.values = {1.f, 2.f, 3.f, 4.f};
    for (auto [mi, me] : combos) {
        auto e = make(gf, mi, me);
        EXPECT_SAME_BITS((at<float, float>(*e, {{0.5f, std::nanf("")}})[0]), engineNaN<float>());
    }
}

// Routing: the closed grid box goes to the interpolation method, everything else to the
// extrapolation method; ConstantND answers with the engine's NaN.
TEST(NDMethods, InterpExtrapRouting) {
    const auto g = indexCoded();
    auto linNear = make(g, MethodId::Linear, MethodId::Nearest);
    auto nearLin = make(g, MethodId::Nearest, MethodId::Linear);
    auto linNone = make(g, MethodId::Linear, MethodId::None);
    // On the box faces: inside.
    EXPECT_EQ(at1<double>(*linNear, {3.0, -2.0, 20.0}), 2.0 + 0 + 400);
    EXPECT_EQ(at1<double>(*linNone, {0.0, 4.0, 10.0}), 30.0);
    EXPECT_EQ(at1<double>(*linNone, {0.5, 4.0, 10.0}), 30.5);
    // Just outside in one dimension: the other method takes the whole point.
    const double below = std::nextafter(-2.0, -kInf);
    EXPECT_EQ(at1<double>(*linNear, {0.5, below, 10.0}), 1.0); // nearest, tie up
    EXPECT_SAME_BITS(at1<double>(*linNone, {0.5, below, 10.0}), engineNaN<double>());
    EXPECT_SAME_BITS(at1<double>(*linNone, {0.5, 0.0, 21.0}), engineNaN<double>());
    // Nearest inside, linear outside: 4 past the end of dimension 0 continues the last cell.
    EXPECT_EQ(at1<double>(*nearLin, {7.0, -2.0, 10.0}), 4.0);
    EXPECT_EQ(at1<double>(*nearLin, {0.5, -2.0, 10.0}), 1.0);
}

// 20 dimensions with 2 points each: 2^20 corners per query.
TEST(LinearND, TwentyDimensions) {
    Grid<double, double> g;
    g.axes.assign(20, {0.0, 1.0});
    g.values.resize(u64{1} << 20);
    for (u64 c = 0; c < g.values.size(); ++c)
        g.values[c] = double(c);
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    auto near = make(g, MethodId::Nearest, MethodId::Nearest);
    // Every t = 1/2: the mean of 0 .. 2^20 - 1, exactly.
    EXPECT_SAME_BITS(at1<double>(*lin, std::vector<double>(20, 0.5)), 524287.5);
    // Corners come back exactly: bit k of the index is coordinate k.
    std::vector<double> p(20, 0.0);
    for (u64 k : {0u, 3u, 19u})
        p[k] = 1.0;
    const double code = double((1u << 0) + (1u << 3) + (1u << 19));
    EXPECT_SAME_BITS(at1<double>(*lin, p), code);
    EXPECT_SAME_BITS(at1<double>(*near, p), code);
    // v is linear in the coordinates (sum of 2^k x_k), so it is reproduced anywhere.
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> u(-0.5, 1.5);
    for (int i = 0; i < 3; ++i) {
        double expect = 0.0;
        for (u64 k = 0; k < 20; ++k) {
            p[k] = u(rng);
            expect += std::ldexp(p[k], static_cast<int>(k));
        }
        EXPECT_NEAR(at1<double>(*lin, p), expect, 1e-9 * 1048576.0);
    }
}

// Corner tables whose byte count does not fit raise std::bad_alloc before allocating.
TEST(LinearND, OverflowingCornerCountIsRefusedBeforeAllocating) {
    std::vector<double> axis = {0.0, 1.0};
    double value = 0.0;
    auto build = [&](u64 d) {
        std::vector<const double*> grids(d, axis.data());
        std::vector<u64> sizes(d, 2);
        return std::make_unique<LinearND<double, double>>(grids.data(), sizes.data(), &value, d);
    };
    EXPECT_THROW(build(64), std::bad_alloc);
    EXPECT_THROW(build(70), std::bad_alloc);
    auto m = build(61); // 2^61 corners of 8 bytes: 2^64 bytes
    if (platform::faultInjectionAvailable()) platform::failAllocationAfter(0);
    const u64 before = platform::allocationCount();
    EXPECT_THROW(m->prepare(), std::bad_alloc);
    EXPECT_THROW((DefaultBuffer<double>(u64{1} << 61)), std::bad_alloc);
    EXPECT_EQ(platform::allocationCount(), before);
}

TEST(ConstantND, HoldsTheEngineNaN) {
    std::vector<double> a = {0.0, 1.0};
    std::vector<float> v = {1.f, 2.f, 3.f, 4.f};
    const double* grids[] = {a.data(), a.data()};
    const u64 sizes[] = {2, 2};
    ConstantND<double, float> c(grids, sizes, v.data(), 2);
    ConstantND<double, float>::Buffer b;
    EXPECT_SAME_BITS(c.kernel(nullptr, b), engineNaN<float>());
}

} // namespace

namespace {

// Queries that stress every branch of a batched scattered loop: inside, on grid lines and
// nodes, half-way between nodes, outside on either side, far away, infinite and NaN
// coordinates.
std::vector<std::vector<double>> awkwardPoints(const Grid<double, double>& g, u64 count,
                                               unsigned seed) {
    std::mt19937_64 rng(seed);
    std::vector<std::vector<double>> pts(count, std::vector<double>(g.axes.size()));
    for (auto& p : pts)
        for (u64 k = 0; k < p.size(); ++k) {
            const auto& a = g.axes[k];
            const double lo = a.front(), hi = a.back();
            switch (rng() % 10) {
            case 0:
                p[k] = a[rng() % a.size()]; // a node
                break;
            case 1:
                p[k] = lo - (hi - lo) * std::uniform_real_distribution<double>(0, 2)(rng);
                break;
            case 2:
                p[k] = hi + (hi - lo) * std::uniform_real_distribution<double>(0, 2)(rng);
                break;
            case 3: {
                const double special[] = {kInf, -kInf, kNaN, 1e300, -1e300};
                p[k] = (rng() % 8 == 0) ? special[rng() % 5] : lo;
                break;
            }
            case 4: { // half-way between neighbours: nearest's ties
                const u64 j = rng() % (a.size() - 1);
                p[k] = 0.5 * (a[j] + a[j + 1]);
                break;
            }
            default:
                p[k] = std::uniform_real_distribution<double>(lo, hi)(rng);
            }
        }
    return pts;
}

} // namespace

// Many queries at once take the batched (packed) loop; one query at a time takes the plain
// kernel (linear and nearest). Both give the same bits, for values with infinities and NaNs too, in
// 2-D and 3-D, uniform, arithmetic and irregular axes, with two value sets, at every packed level.
TEST(NDMethods, BatchedQueriesEqualOneAtATime) {
    testsupport::forEachSimdLevel([] {
        for (MethodId method : {MethodId::Linear, MethodId::Nearest}) {
            std::vector<Grid<double, double>> grids(5);
            grids[0].axes = {{0.0, 1.0, 3.0, 3.5, 7.0}, {-2.0, -1.5, 0.0, 4.0}};
            grids[1].axes = {
                {0.0, 0.5, 1.0, 1.5, 2.0, 2.5}, {1.0, 2.0, 3.0}, {0.0, 0.25, 0.5, 0.75}};
            grids[2].axes = {{0.0, 1.0}, {5.0, 6.0}};
            grids[3].axes = {{-1.0, 0.1, 0.2, 0.3, 10.0}, {0.0, 1e-3, 1.0}, {0.0, 2.0}};
            // Arithmetic axes: the packed search computes their cell ends.
            grids[4].axes.assign(2, {});
            for (u64 i = 0; i < 12; ++i)
                grids[4].axes[0].push_back(0.1 + 0.1 * static_cast<double>(i));
            for (u64 i = 0; i < 6; ++i)
                grids[4].axes[1].push_back(-3.0 + 0.7 * static_cast<double>(i));
            unsigned seed = 11;
            for (auto& g : grids) {
                std::mt19937_64 rng(seed);
                std::uniform_real_distribution<double> uv(-5.0, 5.0);
                g.fill([&](const std::vector<u64>&) {
                    const u64 r = rng() % 40;
                    return r == 0 ? kInf : r == 1 ? -kInf : r == 2 ? kNaN : r < 8 ? 0.5 : uv(rng);
                });
                // A second value set.
                const u64 n = g.values.size();
                std::vector<double> two(g.values);
                for (u64 j = 0; j < n; ++j)
                    two.push_back(std::isfinite(g.values[j]) ? -2.0 * g.values[j] + 1.0
                                                             : g.values[j]);
                EvaluatorSetup<double, double> s = g.setup();
                s.values = two.data();
                s.numPlanes = 2;
                auto lin = makeEvaluator<double, double>(method, method, s);
                const auto pts = awkwardPoints(g, 1001, seed++);
                const u64 m = pts.size(), d = g.axes.size();
                HostArray q = HostArray::createNumeric({m, d}, ClassId::Double);
                for (u64 i = 0; i < m; ++i)
                    for (u64 k = 0; k < d; ++k)
                        q.data<double>()[k * m + i] = pts[i][k];
                HostArray out = HostArray::createNumeric({m, 2}, ClassId::Double);
                lin->evaluateScattered(m, q, out);
                for (u64 i = 0; i < m; ++i) {
                    HostArray q1 = HostArray::createNumeric({1, d}, ClassId::Double);
                    bool nanQuery = false;
                    for (u64 k = 0; k < d; ++k) {
                        q1.data<double>()[k] = pts[i][k];
                        nanQuery = nanQuery || std::isnan(pts[i][k]);
                    }
                    HostArray o1 = HostArray::createNumeric({1, 2}, ClassId::Double);
                    lin->evaluateScattered(1, q1, o1);
                    for (u64 plane = 0; plane < 2; ++plane) {
                        const double batched = out.data<double>()[plane * m + i];
                        const double single = o1.data<double>()[plane];
                        if (nanQuery) {
                            EXPECT_SAME_BITS(batched, engineNaN<double>()) << "point " << i;
                        } else if (std::isnan(single)) {
                            // A NaN made from NaN or infinite values: which operand's NaN an
                            // addition keeps is the compiler's choice, so only NaN-ness is a
                            // contract.
                            EXPECT_TRUE(std::isnan(batched)) << "point " << i;
                        } else {
                            EXPECT_SAME_BITS(batched, single) << "point " << i;
                        }
                    }
                }
            }
        }
    });
}

// Gridded 2-D output takes the separable path (dimension 0 reduced once per query coordinate
// and grid column) when query columns outnumber the cell columns they use; it must give the
// per-point kernel's bits, for values with infinities and NaNs (second pass) too.
TEST(LinearND, GriddedSeparablePathEqualsScatteredPoints) {
    Grid<double, double> g;
    g.axes = {{0.0, 1.0, 3.0, 3.5, 7.0, 8.0, 9.5}, {-2.0, -1.5, 0.0, 4.0, 4.5}};
    std::mt19937_64 rng(21);
    std::uniform_real_distribution<double> uv(-5.0, 5.0);
    g.fill([&](const std::vector<u64>&) {
        const u64 r = rng() % 30;
        return r == 0 ? kInf : r == 1 ? -kInf : r == 2 ? kNaN : r < 6 ? 0.5 : uv(rng);
    });
    auto lin = make(g, MethodId::Linear, MethodId::Linear);
    for (bool withNaN : {false, true}) {
        std::vector<std::vector<double>> qv(2);
        for (u64 k = 0; k < 2; ++k) {
            for (const auto& p : awkwardPoints(g, 60 + 20 * k, 31 + static_cast<unsigned>(k)))
                if (!std::isnan(p[k])) qv[k].push_back(p[k]);
            if (withNaN) qv[k][3] = kNaN;
        }
        const u64 m0 = qv[0].size(), m1 = qv[1].size();
        HostArray cell = HostArray::createCell({1, 2});
        for (u64 k = 0; k < 2; ++k)
            cell.setCell(k, HostArray::columnVector(qv[k]));
        HostArray out = HostArray::createNumeric({m0, m1}, ClassId::Double);
        lin->evaluateGridded(cell, out);
        std::vector<std::vector<double>> pts;
        for (u64 j = 0; j < m1; ++j)
            for (u64 i = 0; i < m0; ++i)
                pts.push_back({qv[0][i], qv[1][j]});
        const auto scattered = at<double>(*lin, pts);
        for (u64 n = 0; n < pts.size(); ++n) {
            const double gv = out.data<double>()[n];
            if (std::isnan(pts[n][0]) || std::isnan(pts[n][1]))
                EXPECT_SAME_BITS(gv, engineNaN<double>()) << n;
            else if (std::isnan(scattered[n]))
                EXPECT_TRUE(std::isnan(gv)) << n; // which NaN an addition keeps is free
            else
                EXPECT_SAME_BITS(gv, scattered[n]) << n;
        }
    }
}
