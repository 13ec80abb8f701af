// The N-D query drivers: gridded == scattered bit for bit, serial == parallel for every split
// of the multi-index counter, one dimension through the N-D code, empty queries, value-set
// and complex output placement, column cells, and concurrent first evaluations.
#include "support/Bits.hpp"

#include "mathinterp/core/DriversND.hpp"
#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/NearestND.hpp"

#include <platform/HostArray.hpp>

#include <cmath>
#include <random>
#include <thread>
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
HostArray numeric(const std::vector<T>& v, u64 rows, u64 cols) {
    HostArray a = HostArray::createNumeric({rows, cols}, classOf<T>());
    for (u64 i = 0; i < v.size(); ++i)
        a.data<T>()[i] = v[i];
    return a;
}

// A grid with random non-uniform vectors and random values (plane count `planes`).
template <class G, class V>
struct Fixture {
    std::vector<std::vector<G>> axes;
    std::vector<V> values;
    u64 planes = 1;

    Fixture(std::vector<u64> sizes, u64 numPlanes, unsigned seed) : planes(numPlanes) {
        std::mt19937_64 rng(seed);
        std::uniform_real_distribution<double> step(0.2, 1.5), val(-5.0, 5.0);
        u64 p = 1;
        for (u64 n : sizes) {
            std::vector<G> g(n);
            double x = -1.0;
            for (u64 i = 0; i < n; ++i)
                g[i] = static_cast<G>(x += step(rng));
            axes.push_back(g);
            p *= n;
        }
        values.resize(p * planes);
        for (auto& v : values)
            v = static_cast<V>(val(rng));
    }
    u64 pointsPerPlane() const { return values.size() / planes; }
    EvaluatorSetup<G, V> setup() const {
        EvaluatorSetup<G, V> s;
        for (const auto& a : axes) {
            s.grids.push_back(a.data());
            s.sizes.push_back(a.size());
        }
        s.values = values.data();
        s.pointsPerPlane = pointsPerPlane();
        s.numPlanes = planes;
        return s;
    }
};

// Query coordinates for dimension k: grid points (first, interior, last), midpoints, points
// outside on both sides, NaN, and random points.
template <class Q, class G>
std::vector<Q> queryVector(const std::vector<G>& g, u64 count, unsigned seed) {
    std::vector<Q> q = {static_cast<Q>(g.front()),
                        static_cast<Q>(g.back()),
                        static_cast<Q>(g[1]),
                        static_cast<Q>((g[0] + g[1]) / 2),
                        static_cast<Q>(g.front() - 0.75),
                        static_cast<Q>(g.back() + 0.5),
                        std::numeric_limits<Q>::quiet_NaN()};
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(static_cast<double>(g.front()) - 1.0,
                                             static_cast<double>(g.back()) + 1.0);
    while (q.size() < count)
        q.push_back(static_cast<Q>(u(rng)));
    q.resize(count);
    return q;
}

template <class V, class Q = double>
std::vector<V> runGridded(Evaluator& e, const std::vector<std::vector<Q>>& vecs) {
    HostArray cell = HostArray::createCell(1, vecs.size());
    u64 total = 1;
    for (u64 k = 0; k < vecs.size(); ++k) {
        cell.setCell(k, numeric(vecs[k], 1, vecs[k].size()));
        total *= vecs[k].size();
    }
    HostArray out = HostArray::createNumeric({total, e.numPlanes()}, classOf<V>());
    e.evaluateGridded(cell, out);
    return std::vector<V>(out.data<V>(), out.data<V>() + total * e.numPlanes());
}

// Scattered points given as d columns of m coordinates.
template <class V, class Q = double>
std::vector<V> runScattered(Evaluator& e, const std::vector<std::vector<Q>>& cols) {
    const u64 m = cols.empty() ? 0 : cols[0].size();
    std::vector<Q> flat;
    for (const auto& c : cols)
        flat.insert(flat.end(), c.begin(), c.end());
    HostArray q = numeric(flat, m, cols.size());
    HostArray out = HostArray::createNumeric({m, e.numPlanes()}, classOf<V>());
    e.evaluateScattered(m, q, out);
    return std::vector<V>(out.data<V>(), out.data<V>() + m * e.numPlanes());
}

// The full grid of the query vectors as scattered columns, first vector fastest.
template <class Q>
std::vector<std::vector<Q>> ndgridColumns(const std::vector<std::vector<Q>>& vecs) {
    u64 total = 1;
    for (const auto& v : vecs)
        total *= v.size();
    std::vector<std::vector<Q>> cols(vecs.size(), std::vector<Q>(total));
    for (u64 j = 0; j < total; ++j) {
        u64 r = j;
        for (u64 k = 0; k < vecs.size(); ++k) {
            cols[k][j] = vecs[k][r % vecs[k].size()];
            r /= vecs[k].size();
        }
    }
    return cols;
}

template <class V>
void expectSameBits(const std::vector<V>& a, const std::vector<V>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (u64 i = 0; i < a.size(); ++i) {
        EXPECT_SAME_BITS(a[i], b[i]) << "at " << i;
        if (testing::Test::HasFailure()) return;
    }
}

const std::pair<MethodId, MethodId> kCombos[] = {
    {MethodId::Linear, MethodId::Linear},  {MethodId::Nearest, MethodId::Nearest},
    {MethodId::Linear, MethodId::Nearest}, {MethodId::Nearest, MethodId::Linear},
    {MethodId::Linear, MethodId::None},    {MethodId::Nearest, MethodId::None},
};

template <class P>
class DriversND : public ::testing::Test {};
template <class G_, class V_>
struct PairOfTypes {
    using G = G_;
    using V = V_;
};
using Pairs = ::testing::Types<PairOfTypes<double, double>, PairOfTypes<double, float>,
                               PairOfTypes<float, double>, PairOfTypes<float, float>>;
TYPED_TEST_SUITE(DriversND, Pairs);

template <class G, class V, class Q>
void griddedEqualsScattered(const std::vector<u64>& sizes, const std::vector<u64>& counts) {
    Fixture<G, V> fx(sizes, 2, 7);
    std::vector<std::vector<Q>> vecs;
    for (u64 k = 0; k < sizes.size(); ++k)
        vecs.push_back(queryVector<Q>(fx.axes[k], counts[k], 100 + static_cast<unsigned>(k)));
    const auto cols = ndgridColumns(vecs);
    for (auto [mi, me] : kCombos) {
        SCOPED_TRACE(std::string(methodWord(mi)) + "/" + std::string(methodWord(me)));
        auto e = makeEvaluator<G, V>(mi, me, fx.setup());
        expectSameBits(runGridded<V>(*e, vecs), runScattered<V>(*e, cols));
    }
}

TYPED_TEST(DriversND, GriddedEqualsScatteredBitForBit) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    griddedEqualsScattered<G, V, double>({4, 5, 3}, {9, 8, 7});
    griddedEqualsScattered<G, V, float>({4, 5, 3}, {9, 8, 7});
    griddedEqualsScattered<G, V, double>({6, 2}, {60, 50}); // parallel: 3000 points
    griddedEqualsScattered<G, V, float>({2, 3, 2, 2, 3}, {3, 4, 2, 5, 3}); // general kernel
}

// Every split of the counter: the reference evaluates each point on its own (serial loops).
TEST(DriversNDCounter, SerialEqualsParallelForEverySplit) {
    Fixture<double, double> fx({5, 4, 6}, 1, 11);
    const std::vector<std::vector<u64>> shapes = {
        {23, 89, 1},  {2047, 1, 1},               // 2047: serial
        {2, 1024, 1}, {32, 8, 8},   {1, 1, 2048}, // 2048: parallel from here on
        {3, 683, 1},  {683, 1, 3},                // 2049
        {50, 100, 1}, {10, 20, 25}, {1, 1, 5000}, // 5000
    };
    for (const auto& shape : shapes) {
        SCOPED_TRACE(::testing::Message() << shape[0] << "x" << shape[1] << "x" << shape[2]);
        std::vector<std::vector<double>> vecs;
        for (u64 k = 0; k < 3; ++k)
            vecs.push_back(queryVector<double>(fx.axes[k], shape[k], static_cast<unsigned>(k)));
        const auto cols = ndgridColumns(vecs);
        for (auto [mi, me] : kCombos) {
            auto e = makeEvaluator<double, double>(mi, me, fx.setup());
            const auto gridded = runGridded<double>(*e, vecs);
            const auto scattered = runScattered<double>(*e, cols);
            std::vector<double> single(gridded.size());
            for (u64 j = 0; j < gridded.size(); ++j)
                single[j] = runScattered<double>(*e, {{cols[0][j]}, {cols[1][j]}, {cols[2][j]}})[0];
            expectSameBits(gridded, single);
            expectSameBits(scattered, single);
        }
    }
}

// The counter derived by division at any start index equals the digits of that index.
TEST(DriversNDCounter, StartCounterMatchesDigits) {
    const std::vector<std::vector<u64>> shapes = {{7}, {3, 4}, {1, 5, 1}, {2, 3, 4, 5}, {5, 1, 1}};
    for (const auto& m : shapes) {
        const u64 d = m.size();
        u64 total = 1;
        for (u64 n : m)
            total *= n;
        std::vector<u64> c(d + 1), walk(d + 1, 0);
        for (u64 b = 0; b <= total; ++b) {
            detail::startCounter(c.data(), b, m.data(), d, total);
            EXPECT_EQ(c, walk) << "begin " << b;
            detail::advanceCounter(walk.data(), m.data(), d, [](u64) {});
        }
    }
}

// d = 1 runs through the N-D code and gives the 1-D method's bits on finite data.
TYPED_TEST(DriversND, OneDimensionThroughNDCode) {
    using G = typename TypeParam::G;
    using V = typename TypeParam::V;
    Fixture<G, V> fx({9}, 1, 3);
    const auto setup = fx.setup();
    EvaluatorInterp<LinearND<G, V>> linearND(setup);
    EvaluatorInterp<NearestND<G, V>> nearestND(setup);
    auto linear1D = makeEvaluator<G, V>(MethodId::Linear, MethodId::Linear, setup);
    auto nearest1D = makeEvaluator<G, V>(MethodId::Nearest, MethodId::Nearest, setup);
    auto q = queryVector<double>(fx.axes[0], 3000, 5);
    q.erase(q.begin() + 6); // NaN: the two families write different NaNs (checked elsewhere)
    expectSameBits(runScattered<V>(linearND, {q}), runScattered<V>(*linear1D, {q}));
    expectSameBits(runScattered<V>(nearestND, {q}), runScattered<V>(*nearest1D, {q}));
    expectSameBits(runGridded<V>(linearND, {q}), runScattered<V>(*linear1D, {q}));
    const V nan = runScattered<V>(linearND, {{std::nan("")}})[0];
    EXPECT_SAME_BITS(nan, engineNaN<V>());
}

TEST(DriversNDShapes, EmptyQueriesTouchNothing) {
    Fixture<double, double> fx({3, 4}, 2, 1);
    auto e = makeEvaluator<double, double>(MethodId::Linear, MethodId::Nearest, fx.setup());
    HostArray cell = HostArray::cellOf({numeric<double>({}, 1, 0), numeric<double>({1.0}, 1, 1)});
    HostArray out = HostArray::createNumeric({1, 2}, ClassId::Double);
    out.data<double>()[0] = 42.0;
    out.data<double>()[1] = 43.0;
    e->evaluateGridded(cell, out);
    HostArray cell2 = HostArray::cellOf({numeric<double>({1.0}, 1, 1), numeric<double>({}, 0, 0)});
    e->evaluateGridded(cell2, out);
    e->evaluateScattered(0, numeric<double>({}, 0, 2), out);
    EXPECT_EQ(out.data<double>()[0], 42.0);
    EXPECT_EQ(out.data<double>()[1], 43.0);
}

// Value set k writes out[k*m .. (k+1)*m); each set is evaluated on its own values.
TEST(DriversNDShapes, ValueSetsOccupyTheirBlocks) {
    Fixture<double, double> fx({3, 4}, 3, 2);
    const std::vector<std::vector<double>> cols = {queryVector<double>(fx.axes[0], 50, 1),
                                                   queryVector<double>(fx.axes[1], 50, 2)};
    auto all = makeEvaluator<double, double>(MethodId::Linear, MethodId::Nearest, fx.setup());
    const auto got = runScattered<double>(*all, cols);
    for (u64 k = 0; k < 3; ++k) {
        auto s = fx.setup();
        s.values = fx.values.data() + k * fx.pointsPerPlane();
        s.numPlanes = 1;
        auto one = makeEvaluator<double, double>(MethodId::Linear, MethodId::Nearest, s);
        const auto expect = runScattered<double>(*one, cols);
        expectSameBits(std::vector<double>(got.begin() + static_cast<long>(k * 50),
                                           got.begin() + static_cast<long>((k + 1) * 50)),
                       expect);
    }
}

// Complex output: real parts come only from the real planes, imaginary parts only from the
// imaginary planes; an imaginary plane of zeros gives zero imaginary parts.
TEST(DriversNDShapes, ComplexPlanesMeetOnlyInTheOutput) {
    Fixture<double, double> fx({3, 4}, 4, 9); // 2 value sets: planes re0, re1, im0, im1
    std::fill(fx.values.begin() + 3 * 12, fx.values.end(), 0.0);
    std::vector<std::vector<double>> vecs = {queryVector<double>(fx.axes[0], 40, 1),
                                             queryVector<double>(fx.axes[1], 60, 2)};
    auto e = makeEvaluator<double, double>(MethodId::Linear, MethodId::None, fx.setup());
    HostArray cell = HostArray::cellOf({numeric(vecs[0], 1, 40), numeric(vecs[1], 1, 60)});
    HostArray out = HostArray::createNumeric({2400, 2}, ClassId::Double, true);
    e->evaluateGridded(cell, out);
    for (u64 k = 0; k < 4; ++k) {
        auto s = fx.setup();
        s.values = fx.values.data() + k * 12;
        s.numPlanes = 1;
        auto one = makeEvaluator<double, double>(MethodId::Linear, MethodId::None, s);
        const auto expect = runGridded<double>(*one, vecs);
        const u64 set = k % 2, part = k / 2;
        for (u64 j = 0; j < 2400; ++j) {
            const double got = out.data<double>()[2 * (set * 2400 + j) + part];
            EXPECT_SAME_BITS(got, expect[j]) << "plane " << k << " point " << j;
            if (k == 3 && !std::isnan(expect[j])) {
                EXPECT_EQ(got, 0.0);
            }
            if (HasFailure()) return;
        }
    }
}

// Scattered coordinates may also come as a cell of one column per dimension.
TEST(DriversNDShapes, ColumnCellEqualsOneArray) {
    Fixture<float, double> fx({5, 3, 4}, 1, 4);
    std::vector<std::vector<float>> cols;
    for (u64 k = 0; k < 3; ++k)
        cols.push_back(queryVector<float>(fx.axes[k], 2500, 7));
    auto e = makeEvaluator<float, double>(MethodId::Linear, MethodId::Nearest, fx.setup());
    HostArray cell = HostArray::cellOf(
        {numeric(cols[0], 2500, 1), numeric(cols[1], 2500, 1), numeric(cols[2], 2500, 1)});
    HostArray out = HostArray::createNumeric({2500, 1}, ClassId::Double);
    e->evaluateScattered(2500, cell, out);
    expectSameBits(std::vector<double>(out.data<double>(), out.data<double>() + 2500),
                   runScattered<double>(*e, cols));
}

// Host threads sharing one fresh evaluator: the first evaluations race to prepare it.
TEST(DriversNDThreads, ConcurrentFirstEvaluationsAgree) {
    Fixture<double, float> fx({30, 40, 5}, 2, 5);
    std::vector<std::vector<double>> cols;
    for (u64 k = 0; k < 3; ++k)
        cols.push_back(queryVector<double>(fx.axes[k], 3000, 3));
    auto reference = makeEvaluator<double, float>(MethodId::Linear, MethodId::Nearest, fx.setup());
    const auto expect = runScattered<float>(*reference, cols);
    for (int round = 0; round < 5; ++round) {
        auto shared = makeEvaluator<double, float>(MethodId::Linear, MethodId::Nearest, fx.setup());
        std::vector<std::vector<float>> got(4);
        std::vector<std::thread> threads;
        for (u64 t = 0; t < 4; ++t)
            threads.emplace_back([&, t] { got[t] = runScattered<float>(*shared, cols); });
        for (auto& t : threads)
            t.join();
        for (const auto& g : got)
            expectSameBits(g, expect);
    }
}

} // namespace
