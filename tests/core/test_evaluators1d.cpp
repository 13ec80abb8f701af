// The 1-D evaluators and their query loops: routing between interpolation and extrapolation
// methods, serial and parallel runs giving the same bits around the thresholds, output
// placement of value sets and complex planes, complex splitting, and exceptions leaving a
// parallel loop.
#include "mathinterp/core/ComplexSplit.hpp"
#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/Step1D.hpp"

#include "support/Bits.hpp"
#include "support/Engine.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <thread>

using namespace mathinterp;
using testsupport::GridData;

namespace {

// Records which kernel saw which query: the value written is +1 for the interpolation
// method and -1 for the extrapolation method.
template <class G, class V>
class Tagging : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = true;
    Tagging(const G* g, u64 n, const V* p, V tag) : InterpMethod1D<G, V>(g, n, p), tag_(tag) {}
    template <class Q>
    V kernel(Q, u64) const noexcept {
        return tag_;
    }

private:
    V tag_;
};
template <class G, class V>
struct InTag final : Tagging<G, V> {
    InTag(const G* g, u64 n, const V* p) : Tagging<G, V>(g, n, p, V(1)) {}
};
template <class G, class V>
struct OutTag final : Tagging<G, V> {
    OutTag(const G* g, u64 n, const V* p) : Tagging<G, V>(g, n, p, V(-1)) {}
};

template <class G, class V>
class Throwing final : public InterpMethod1D<G, V> {
public:
    static constexpr bool available = true;
    using InterpMethod1D<G, V>::InterpMethod1D;
    template <class Q>
    V kernel(Q x, u64) const {
        if (x == Q(7777)) throw std::runtime_error("kernel failed");
        return V(0);
    }
};

GridData<double, double> lineData(std::uint64_t planes = 1) {
    GridData<double, double> d;
    d.grids = {{0.0, 1.0, 2.5, 4.0, 10.0}};
    d.numPlanes = planes;
    for (std::uint64_t k = 0; k < planes; ++k)
        for (double x : d.grids[0])
            d.values.push_back(x * x + static_cast<double>(k) * 100.0);
    return d;
}

std::vector<double> randomQueries(std::size_t n, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(-2.0, 12.0);
    std::vector<double> q(n);
    for (auto& v : q)
        v = u(rng);
    return q;
}

} // namespace

TEST(EvaluatorInterpExtrap, RoutesClosedRangeInsideAndNaNOutside) {
    const auto d = lineData();
    EvaluatorInterpExtrap<InTag<double, double>, OutTag<double, double>> ev(d.setup());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const std::vector<double> q{
        0.0, 10.0, 4.0, std::nextafter(0.0, -1.0), std::nextafter(10.0, 11.0), nan, inf, -inf, 5.0};
    const auto r = testsupport::evaluate1D<double>(ev, q);
    const std::vector<double> expect{1, 1, 1, -1, -1, -1, -1, -1, 1};
    EXPECT_EQ(r, expect);
}

TEST(EvaluatorInterpExtrap, NoneFillsOutsideWithTheEngineNaN) {
    const auto d = lineData();
    auto ev = d.make(MethodId::Linear, MethodId::None);
    const auto r = testsupport::evaluate1D<double>(*ev, std::vector<double>{-1.0, 0.0, 10.0, 11.0});
    EXPECT_SAME_BITS(r[0], engineNaN<double>());
    EXPECT_SAME_BITS(r[1], 0.0);
    EXPECT_SAME_BITS(r[2], 100.0);
    EXPECT_SAME_BITS(r[3], engineNaN<double>());
}

TEST(EvaluatorInterpExtrap, MethodAndExtrapolationAreIndependent) {
    const auto d = lineData();
    auto ev = d.make(MethodId::Linear, MethodId::Nearest);
    auto lin = d.make(MethodId::Linear, MethodId::Linear);
    const std::vector<double> q{-3.0, 0.5, 3.0, 12.0};
    const auto r = testsupport::evaluate1D<double>(*ev, q);
    const auto l = testsupport::evaluate1D<double>(*lin, q);
    EXPECT_EQ(r[0], 0.0);
    EXPECT_EQ(r[3], 100.0);
    EXPECT_SAME_BITS(r[1], l[1]);
    EXPECT_SAME_BITS(r[2], l[2]);
    EXPECT_NE(l[0], 0.0) << "linear extrapolates on its own";
}

TEST(Evaluators1D, SerialAndParallelGiveIdenticalBitsAroundTheThreshold) {
    for (MethodId m : {MethodId::Linear, MethodId::Nearest, MethodId::Next, MethodId::Previous}) {
        const auto d = lineData(2);
        auto ev = d.make(m, m == MethodId::Linear ? MethodId::None : m);
        const auto q = randomQueries(5000, 7);
        for (std::size_t n : {2047u, 2048u, 2049u, 4096u, 5000u}) {
            const std::vector<double> part(q.begin(), q.begin() + static_cast<long>(n));
            const auto r = testsupport::evaluate1D<double>(*ev, part);
            for (std::size_t i = 0; i < n; i += 97) {
                // Serial single-query evaluation of the same point.
                const auto one = testsupport::evaluate1D<double>(*ev, std::vector<double>{part[i]});
                EXPECT_SAME_BITS(r[i], one[0]);
                EXPECT_SAME_BITS(r[n + i], one[1]);
            }
        }
    }
}

TEST(Evaluators1D, ValueSetKLandsAtKTimesM) {
    const auto d = lineData(3);
    auto ev = d.make(MethodId::Linear, MethodId::Linear);
    const std::vector<double> q{0.0, 2.5, 10.0};
    const auto r = testsupport::evaluate1D<double>(*ev, q);
    ASSERT_EQ(r.size(), 9u);
    for (int k = 0; k < 3; ++k)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(r[k * 3 + i], q[i] * q[i] + 100.0 * k);
}

TEST(Evaluators1D, ComplexPlanesStaySeparate) {
    // Two value sets of complex values: planes re0, re1, im0, im1.
    GridData<double, double> d;
    d.grids = {{0.0, 1.0, 2.0}};
    d.numPlanes = 4;
    d.values = {1, 2, 3, /*re1*/ 10, 20, 30, /*im0*/ 0, 0, 0, /*im1*/ -1, -2, -3};
    auto ev = d.make(MethodId::Linear, MethodId::Linear);
    const std::vector<double> q{0.5, 2.0};
    const platform::HostArray qa = testsupport::queryColumn(q);
    platform::HostArray out =
        platform::HostArray::createNumeric({2, 2}, platform::ClassId::Double, true);
    ev->evaluateScattered(2, qa, out);
    const auto* c = out.data<std::complex<double>>();
    EXPECT_EQ(c[0], std::complex<double>(1.5, 0.0));
    EXPECT_EQ(c[1], std::complex<double>(3.0, 0.0));
    EXPECT_EQ(c[2], std::complex<double>(15.0, -1.5));
    EXPECT_EQ(c[3], std::complex<double>(30.0, -3.0));
    EXPECT_SAME_BITS(c[0].imag(), 0.0) << "a zero imaginary plane gives +0 everywhere";
}

TEST(Evaluators1D, ZeroPlanesAndZeroQueriesTouchNothing) {
    auto d = lineData();
    d.numPlanes = 0;
    auto ev = d.make(MethodId::Linear, MethodId::Linear);
    platform::HostArray out = platform::HostArray::createNumeric({3, 1}, platform::ClassId::Double);
    out.data<double>()[0] = 42.0;
    ev->evaluateScattered(3, testsupport::queryColumn(std::vector<double>{1, 2, 3}), out);
    EXPECT_EQ(out.data<double>()[0], 42.0);
    auto ev1 = lineData().make(MethodId::Linear, MethodId::Linear);
    platform::HostArray empty =
        platform::HostArray::createNumeric({0, 1}, platform::ClassId::Double);
    ev1->evaluateScattered(0, testsupport::queryColumn(std::vector<double>{}), empty);
}

TEST(Evaluators1D, GriddedOneDimensionIsTheScatteredLoop) {
    const auto d = lineData(2);
    auto ev = d.make(MethodId::Linear, MethodId::Nearest);
    const auto q = randomQueries(3000, 11);
    const auto r = testsupport::evaluate1D<double>(*ev, q);
    platform::HostArray cell = platform::HostArray::cellOf({testsupport::queryColumn(q)});
    platform::HostArray out =
        platform::HostArray::createNumeric({q.size(), 2}, platform::ClassId::Double);
    ev->evaluateGridded(cell, out);
    EXPECT_EQ(0, std::memcmp(out.data<double>(), r.data(), r.size() * sizeof(double)));
}

TEST(Evaluators1D, AllPrecisionPairsAndQueryPrecisions) {
    auto run = [](auto g, auto v, auto qt) {
        using G = decltype(g);
        using V = decltype(v);
        using Q = decltype(qt);
        GridData<G, V> d;
        d.grids = {{G(0), G(1), G(2), G(4)}};
        d.values = {V(0), V(1), V(4), V(16)};
        auto ev = d.make(MethodId::Linear, MethodId::None);
        const auto r = testsupport::evaluate1D<V>(*ev, std::vector<Q>{Q(0.5), Q(3), Q(5)});
        EXPECT_EQ(r[0], V(0.5));
        EXPECT_EQ(r[1], V(10));
        EXPECT_SAME_BITS(r[2], engineNaN<V>());
    };
    run(0.0, 0.0, 0.0);
    run(0.0, 0.0f, 0.0);
    run(0.0f, 0.0, 0.0);
    run(0.0f, 0.0f, 0.0);
    run(0.0, 0.0, 0.0f);
    run(0.0, 0.0f, 0.0f);
    run(0.0f, 0.0, 0.0f);
    run(0.0f, 0.0f, 0.0f);
}

TEST(Evaluators1D, ExceptionInAParallelBodyReachesTheCaller) {
    const auto d = lineData();
    EvaluatorInterp<Throwing<double, double>> ev(d.setup());
    std::vector<double> q(100000, 1.0);
    q[77777] = 7777.0;
    EXPECT_THROW(testsupport::evaluate1D<double>(ev, q), std::runtime_error);
    std::vector<double> small(100, 1.0);
    small[50] = 7777.0;
    EXPECT_THROW(testsupport::evaluate1D<double>(ev, small), std::runtime_error);
    // The evaluator stays usable.
    EXPECT_NO_THROW(testsupport::evaluate1D<double>(ev, std::vector<double>(5000, 1.0)));
}

TEST(ComplexSplit, SerialAndParallelSplitsAgree) {
    for (u64 n : {0u, 1u, 1024u, 1025u, 5000u}) {
        std::vector<double> in(2 * n);
        for (u64 i = 0; i < 2 * n; ++i)
            in[i] = static_cast<double>(i) * 0.5 - 3.0;
        std::vector<double> out(2 * n, -1.0);
        interleaved2split(in.data(), out.data(), n);
        for (u64 i = 0; i < n; ++i) {
            ASSERT_EQ(out[i], in[2 * i]);
            ASSERT_EQ(out[n + i], in[2 * i + 1]);
        }
    }
    std::vector<float> fin{1, 2, 3, 4};
    std::vector<float> fout(4);
    interleaved2split(fin.data(), fout.data(), 2);
    EXPECT_EQ(fout, (std::vector<float>{1, 3, 2, 4}));
}

TEST(ForEachRange, ThresholdAndGrain) {
    std::atomic<int> calls{0};
    auto body = [&](u64 b, u64 e) {
        calls.fetch_add(1);
        EXPECT_LT(b, e);
    };
    forEachRange(2047, body);
    EXPECT_EQ(calls.load(), 1) << "below 2048 the body runs once, serially";
    calls = 0;
    std::vector<std::atomic<int>> seen(100000);
    auto mark = [&](u64 b, u64 e) {
        for (u64 i = b; i < e; ++i)
            seen[i].fetch_add(1);
    };
    forEachRange(100000, mark);
    for (const auto& s : seen)
        ASSERT_EQ(s.load(), 1);
    // Inside a SerialScope (nested in an outer parallel loop) the body runs once, here.
    {
        const SerialScope serial;
        const auto self = std::this_thread::get_id();
        calls = 0;
        auto once = [&](u64 b, u64 e) {
            calls.fetch_add(1);
            EXPECT_EQ(b, 0u);
            EXPECT_EQ(e, 100000u);
            EXPECT_EQ(std::this_thread::get_id(), self);
        };
        forEachRange(100000, once);
        EXPECT_EQ(calls.load(), 1);
    }
    EXPECT_FALSE(detail::inSerialScope()) << "the scope ends with its block";
}
