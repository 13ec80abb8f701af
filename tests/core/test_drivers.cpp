// The query drivers below the interpolant: 1-D routing between the interpolation and the
// extrapolation method at the closed ends, empty calls, exceptions leaving a parallel loop,
// the complex split and the parallel ranges at their thresholds; the N-D multi-index counter
// (every split of it against one query at a time), one dimension through the N-D code, and
// scattered coordinates given as a cell of columns.
#include "mathinterp/core/ComplexSplit.hpp"
#include "mathinterp/core/DriversND.hpp"
#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/NearestND.hpp"

#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>

using namespace mathinterp;
using platform::ClassId;
using platform::HostArray;
using testsupport::GridData;
using Points = std::vector<std::vector<double>>;

namespace {

// Writes +1 for the interpolation role and -1 for the extrapolation role; throws at 7777.
template <class G, class V, int Tag>
class Tagging final : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = true;
    using InterpMethod1D<G, V>::InterpMethod1D;
    template <class Q>
    V kernel(Q x, u64) const {
        if (x == Q(7777)) throw std::runtime_error("kernel failed");
        return V(Tag);
    }
};

GridData<double, double> lineData() {
    GridData<double, double> d;
    d.grids = {{0.0, 1.0, 2.5, 4.0, 10.0}};
    for (double x : d.grids[0])
        d.values.push_back(x * x);
    return d;
}

// Random irregular axes of the given sizes and random values in `planes` planes.
GridData<double, double> boxData(const std::vector<u64>& sizes, u64 planes, unsigned seed) {
    std::mt19937_64 rng(seed);
    GridData<double, double> d;
    u64 points = 1;
    for (u64 n : sizes) {
        d.grids.push_back(testsupport::irregularGrid(rng, n));
        points *= n;
    }
    d.values = testsupport::randomValues(rng, points * planes, -5, 5);
    d.numPlanes = planes;
    return d;
}

// Coordinates for one axis: first, last and an interior point, a midpoint, outside on both
// sides, NaN, then random points around the axis.
std::vector<double> axisQueries(const std::vector<double>& g, u64 count, unsigned seed) {
    std::vector<double> q = {g.front(),        g.back(),       g[1],        (g[0] + g[1]) / 2,
                             g.front() - 0.75, g.back() + 0.5, std::nan("")};
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(g.front() - 1.0, g.back() + 1.0);
    while (q.size() < count)
        q.push_back(u(rng));
    q.resize(count);
    return q;
}

// The full grid of the query vectors as points, first vector fastest.
Points fullGrid(const Points& vecs) {
    u64 total = 1;
    for (const auto& v : vecs)
        total *= v.size();
    Points pts(total, std::vector<double>(vecs.size()));
    for (u64 j = 0; j < total; ++j)
        for (u64 k = 0, r = j; k < vecs.size(); r /= vecs[k].size(), ++k)
            pts[j][k] = vecs[k][r % vecs[k].size()];
    return pts;
}

template <class V>
void expectSameBits(const std::vector<V>& a, const std::vector<V>& b, const std::string& what) {
    ASSERT_EQ(a.size(), b.size()) << what;
    for (u64 i = 0; i < a.size(); ++i)
        ASSERT_TRUE(testsupport::sameBits(a[i], b[i])) << what << " at " << i;
}

} // namespace

// The closed range [x0, xn] is the interpolation method's; one ulp beyond, infinities and
// NaN are the extrapolation method's.
TEST(Drivers1D, RoutesTheClosedRangeInsideAndNaNOutside) {
    const auto d = lineData();
    EvaluatorInterpExtrap<Tagging<double, double, 1>, Tagging<double, double, -1>> ev(d.setup());
    const double inf = std::numeric_limits<double>::infinity();
    const std::vector<double> q{
        0.0, 10.0, 4.0, std::nextafter(0.0, -1.0), std::nextafter(10.0, 11.0), std::nan(""),
        inf, -inf, 5.0};
    EXPECT_EQ(testsupport::evaluate1D<double>(ev, q),
              (std::vector<double>{1, 1, 1, -1, -1, -1, -1, -1, 1}));
}

TEST(Drivers, EmptyQueriesAndNoPlanesTouchNothing) {
    auto d = lineData();
    d.numPlanes = 0;
    HostArray out = HostArray::createNumeric({3, 2}, ClassId::Double);
    out.data<double>()[0] = 42.0;
    d.make(MethodId::Linear, MethodId::Linear)
        ->evaluateScattered(3, testsupport::queryColumn(std::vector<double>{1, 2, 3}), out);
    auto e1 = lineData().make(MethodId::Linear, MethodId::Linear);
    e1->evaluateScattered(0, testsupport::queryColumn(std::vector<double>{}), out);
    const auto box = boxData({3, 4}, 2, 1);
    auto e = box.make(MethodId::Linear, MethodId::Nearest);
    const HostArray none = HostArray::createNumeric({1, 0}, ClassId::Double);
    const HostArray one = HostArray::scalar(1.0);
    e->evaluateGridded(HostArray::cellOf({none, one}), out);
    e->evaluateGridded(HostArray::cellOf({one, none}), out);
    e->evaluateScattered(0, HostArray::createNumeric({0, 2}, ClassId::Double), out);
    EXPECT_EQ(out.data<double>()[0], 42.0);
    EXPECT_EQ(out.data<double>()[1], 0.0);
}

TEST(Drivers1D, ExceptionInAParallelBodyReachesTheCaller) {
    const auto d = lineData();
    EvaluatorInterp<Tagging<double, double, 0>> ev(d.setup());
    for (u64 n : {100u, 100000u}) {
        std::vector<double> q(n, 1.0);
        q[n * 7 / 9] = 7777.0;
        EXPECT_THROW(testsupport::evaluate1D<double>(ev, q), std::runtime_error) << n;
    }
    EXPECT_NO_THROW(testsupport::evaluate1D<double>(ev, std::vector<double>(5000, 1.0)));
}

TEST(ComplexSplit, SerialAndParallelSplitsAgree) {
    for (u64 n : {0u, 1u, 1024u, 1025u, 5000u}) {
        std::vector<double> in(2 * n), out(2 * n, -1.0);
        for (u64 i = 0; i < 2 * n; ++i)
            in[i] = static_cast<double>(i) * 0.5 - 3.0;
        interleaved2split(in.data(), out.data(), n);
        for (u64 i = 0; i < n; ++i) {
            ASSERT_EQ(out[i], in[2 * i]) << n;
            ASSERT_EQ(out[n + i], in[2 * i + 1]) << n;
        }
    }
    std::vector<float> fin{1, 2, 3, 4}, fout(4);
    interleaved2split(fin.data(), fout.data(), 2);
    EXPECT_EQ(fout, (std::vector<float>{1, 3, 2, 4}));
}

// Below 2048 the body runs once, serially; above, every index exactly once; inside a
// SerialScope (nested in an outer parallel loop) once, on this thread.
TEST(ForEachRange, ThresholdAndGrain) {
    for (u64 n : {2047u, 2048u, 100000u})
        for (bool serialScope : {false, true}) {
            std::optional<SerialScope> scope;
            if (serialScope) scope.emplace();
            std::vector<std::atomic<int>> seen(n);
            std::atomic<int> calls{0}, elsewhere{0};
            const auto self = std::this_thread::get_id();
            auto body = [&](u64 b, u64 e) {
                ++calls;
                if (std::this_thread::get_id() != self) ++elsewhere;
                for (u64 i = b; i < e; ++i)
                    ++seen[i];
            };
            forEachRange(n, body);
            for (const auto& s : seen)
                ASSERT_EQ(s.load(), 1) << n;
            if (n < 2048 || serialScope) {
                EXPECT_EQ(calls.load(), 1) << n;
                EXPECT_EQ(elsewhere.load(), 0) << n;
            }
        }
    EXPECT_FALSE(detail::inSerialScope()) << "the scope ends with its block";
}

// The counter derived by division at any start index equals the digits of that index.
TEST(DriversNDCounter, StartCounterMatchesDigits) {
    const std::vector<std::vector<u64>> shapes = {{7}, {3, 4}, {1, 5, 1}, {2, 3, 4, 5}};
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

// Every split of the counter in gridded queries, and scattered batches, against each point on
// its own: query grids of 2047 (serial), 2048 and 2049 (parallel) and more points, and a
// five-dimensional grid for the general kernel.
TEST(DriversNDCounter, SerialEqualsParallelForEverySplit) {
    const std::pair<MethodId, MethodId> combos[] = {
        {MethodId::Linear, MethodId::Linear},  {MethodId::Nearest, MethodId::Nearest},
        {MethodId::Linear, MethodId::Nearest}, {MethodId::Nearest, MethodId::Linear},
        {MethodId::Linear, MethodId::None},    {MethodId::Nearest, MethodId::None},
    };
    const std::vector<std::vector<u64>> shapes = {
        {23, 89, 1}, {2047, 1, 1}, {2, 1024, 1}, {32, 8, 8},   {1, 1, 2048},
        {3, 683, 1}, {683, 1, 3},  {10, 20, 25}, {1, 1, 5000}, {3, 4, 2, 5, 3}};
    for (const auto& shape : shapes) {
        const auto fx =
            shape.size() == 3 ? boxData({5, 4, 6}, 1, 11) : boxData({2, 3, 2, 2, 3}, 1, 12);
        Points vecs;
        for (u64 k = 0; k < shape.size(); ++k)
            vecs.push_back(axisQueries(fx.grids[k], shape[k], static_cast<unsigned>(k)));
        const Points pts = fullGrid(vecs);
        for (auto [mi, me] : combos) {
            const std::string what = ::testing::PrintToString(shape) + " " +
                                     std::string(methodWord(mi)) + "/" +
                                     std::string(methodWord(me));
            auto e = fx.make(mi, me);
            std::vector<double> single;
            for (const auto& p : pts)
                single.push_back(testsupport::evaluatePoints<double>(*e, {p})[0]);
            expectSameBits(testsupport::evaluateVectors<double>(*e, vecs), single, what);
            expectSameBits(testsupport::evaluatePoints<double>(*e, pts), single, what);
        }
    }
}

// d = 1 runs through the N-D code and gives the 1-D method's bits on finite data, scattered
// and gridded, for every precision pair; a NaN query gives the engine's NaN.
template <class G, class V>
void oneDimensionThroughND() {
    GridData<G, V> d;
    std::mt19937_64 rng(3);
    const auto x = testsupport::irregularGrid(rng, 9);
    const auto y = testsupport::randomValues(rng, 9);
    d.grids = {std::vector<G>(x.begin(), x.end())};
    d.values.assign(y.begin(), y.end());
    EvaluatorInterp<LinearND<G, V>> linearND(d.setup());
    EvaluatorInterp<NearestND<G, V>> nearestND(d.setup());
    auto linear1D = d.make(MethodId::Linear, MethodId::Linear);
    auto nearest1D = d.make(MethodId::Nearest, MethodId::Nearest);
    std::vector<double> q = axisQueries(x, 3000, 5);
    q.erase(q.begin() + 6); // NaN: the two families write different NaNs
    const auto lin = testsupport::evaluate1D<V>(*linear1D, q);
    expectSameBits(testsupport::evaluate1D<V>(linearND, q), lin, "linear");
    expectSameBits(testsupport::evaluateVectors<V>(linearND, {q}), lin, "linear gridded");
    expectSameBits(testsupport::evaluate1D<V>(nearestND, q),
                   testsupport::evaluate1D<V>(*nearest1D, q), "nearest");
    EXPECT_SAME_BITS(testsupport::evaluate1D<V>(linearND, std::vector<double>{std::nan("")})[0],
                     engineNaN<V>());
}

TEST(DriversND, OneDimensionThroughNDCode) {
    oneDimensionThroughND<double, double>();
    oneDimensionThroughND<double, float>();
    oneDimensionThroughND<float, double>();
    oneDimensionThroughND<float, float>();
}

// Scattered coordinates may also come as a cell of one column per dimension.
TEST(DriversND, ColumnCellEqualsOneArray) {
    const auto fx = boxData({5, 3, 4}, 1, 4);
    Points cols, pts(2500, std::vector<double>(3));
    HostArray cell = HostArray::createCell(1, 3);
    for (u64 k = 0; k < 3; ++k) {
        cols.push_back(axisQueries(fx.grids[k], 2500, 7 + static_cast<unsigned>(k)));
        cell.setCell(k, HostArray::fromDoubles({2500, 1}, cols[k]));
        for (u64 i = 0; i < 2500; ++i)
            pts[i][k] = cols[k][i];
    }
    auto e = fx.make(MethodId::Linear, MethodId::Nearest);
    HostArray out = HostArray::createNumeric({2500, 1}, ClassId::Double);
    e->evaluateScattered(2500, cell, out);
    expectSameBits(std::vector<double>(out.data<double>(), out.data<double>() + 2500),
                   testsupport::evaluatePoints<double>(*e, pts), "cell of columns");
}
