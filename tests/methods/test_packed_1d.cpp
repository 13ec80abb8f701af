// The 1-D query loop (packed kernels where the processor has them, the bucket index on
// irregular grids) gives, query by query, the bits of the scalar kernel on the plain
// search's interval: linear, nearest, next and previous, at every packed level, on uniform
// and irregular grids, with queries on, beside and between grid points, outside, NaN. Also
// the single-precision packed N-D linear kernel against its scalar kernel.
#include "mathinterp/core/Drivers1D.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/Step1D.hpp"

#include "support/Bits.hpp"
#include "support/SimdLevels.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using namespace mathinterp;

#define ASSERT_SAME_BITS(a, b) ASSERT_TRUE(::testsupport::sameBits((a), (b)))

namespace {

template <class T>
struct Data {
    std::string name;
    std::vector<T> grid, values;
};

template <class T>
std::vector<Data<T>> dataSets() {
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> u(0.0, 1000.0);
    std::vector<Data<T>> sets;
    auto add = [&](std::string name, std::vector<double> g) {
        Data<T> d{std::move(name), {}, {}};
        for (const double v : g)
            if (d.grid.empty() || static_cast<T>(v) > d.grid.back()) d.grid.push_back(T(v));
        for (std::size_t i = 0; i < d.grid.size(); ++i)
            d.values.push_back(static_cast<T>(std::sin(0.37 * double(i)) * 5));
        // Equal neighbours, an infinite and a NaN value: the kernels' special rules.
        d.values[5] = d.values[6];
        d.values[10] = std::numeric_limits<T>::infinity();
        d.values[14] = std::numeric_limits<T>::quiet_NaN();
        sets.push_back(std::move(d));
    };
    std::vector<double> uniform(300), integers(300), random(500), geometric(400);
    for (int i = 0; i < 300; ++i) {
        uniform[i] = i / 299.0; // not arithmetic: cell ends are loaded
        integers[i] = i;        // arithmetic: cell ends are computed
    }
    for (double& v : random)
        v = u(rng);
    std::sort(random.begin(), random.end());
    for (int i = 0; i < 400; ++i)
        geometric[i] = std::pow(1e6, i / 399.0) - 1.0;
    add("uniform", uniform);
    add("integers", integers);
    add("sorted random", random);
    add("geometric", geometric);
    return sets;
}

template <class T>
std::vector<T> queriesFor(const std::vector<T>& g) {
    const T inf = std::numeric_limits<T>::infinity();
    std::vector<T> q = {std::numeric_limits<T>::quiet_NaN(), -inf, inf};
    for (std::size_t i = 0; i < g.size(); ++i) {
        q.insert(q.end(), {g[i], std::nextafter(g[i], -inf), std::nextafter(g[i], inf)});
        if (i + 1 < g.size()) q.push_back((g[i] + g[i + 1]) / 2);
        if (i % 7 == 0) q.push_back(std::numeric_limits<T>::quiet_NaN()); // NaN mid-group
    }
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> u(double(g.front()) - 10, double(g.back()) + 10);
    for (int k = 0; k < 3001; ++k) // an odd count: a tail shorter than a group
        q.push_back(static_cast<T>(u(rng)));
    return q;
}

template <template <class, class> class M, class T>
void checkMethod() {
    for (const Data<T>& d : dataSets<T>()) {
        SCOPED_TRACE(d.name);
        const std::vector<T> x = queriesFor(d.grid);
        testsupport::forEachSimdLevel([&] {
            M<T, T> m(d.grid.data(), d.grid.size(), d.values.data());
            m.complete();
            if constexpr (std::is_same_v<T, double>) { // else the check would prove nothing
                ASSERT_EQ(m.simdUsable(), simd::avx2Available());
            }
            std::vector<T> out(x.size());
            const QueryColumns<T> cols(x.data(), 1, x.size());
            InterpScatteredQueriesFtor1D<M<T, T>, T> f{&m, &cols, out.data(), 1};
            f(0, x.size());
            const GridAxis<T> plain(d.grid.data(), d.grid.size());
            const IntervalSearch<T, T> search(plain);
            for (std::size_t q = 0; q < x.size(); ++q)
                ASSERT_SAME_BITS(out[q], m.kernel(x[q], search.find(x[q])))
                    << "query " << q << " = " << x[q];
        });
    }
}

} // namespace

#define ASSERT_SAME_BITS(a, b) ASSERT_TRUE(::testsupport::sameBits((a), (b)))

TEST(Packed1D, LinearMatchesScalarKernel) {
    checkMethod<Linear1D, double>();
    checkMethod<Linear1D, float>();
}

TEST(Packed1D, StepMethodsMatchScalarKernel) {
    checkMethod<Nearest1D, double>();
    checkMethod<Next1D, double>();
    checkMethod<Previous1D, double>();
    checkMethod<Nearest1D, float>();
}

// Eight-lane single-precision 2-D and 3-D linear: every lane the scalar kernel's bits, on an
// integer grid (the guess hits) and an irregular one (misses are redone), with values that
// take the kernel's special rules.
template <u64 D>
void checkLinearSingleND(bool irregular) {
    std::mt19937_64 rng(D);
    std::vector<std::vector<float>> grids(D);
    std::vector<const float*> gp(D);
    std::vector<u64> sizes(D);
    u64 total = 1;
    for (u64 k = 0; k < D; ++k) {
        sizes[k] = 9 + k;
        for (u64 i = 0; i < sizes[k]; ++i)
            grids[k].push_back(irregular ? float(i) + float(i * i % 5) * 0.15f : float(i));
        gp[k] = grids[k].data();
        total *= sizes[k];
    }
    std::vector<float> values(total);
    for (u64 i = 0; i < total; ++i)
        values[i] = float(std::sin(0.7 * double(i)));
    values[3] = values[4];
    values[20] = std::numeric_limits<float>::infinity();
    values[40] = std::numeric_limits<float>::quiet_NaN();
    std::vector<std::vector<float>> cols(D);
    std::uniform_real_distribution<float> u(-1.0f, float(sizes[0]));
    for (u64 k = 0; k < D; ++k) {
        for (const float g : grids[k]) // on and beside grid lines, lined up with the others
            cols[k].insert(cols[k].end(), {g, std::nextafter(g, -1e9f), std::nextafter(g, 1e9f)});
        cols[k].resize(3 * 12, 0.5f);
    }
    for (u64 k = 0; k < D; ++k) {
        cols[k].push_back(k == 1 ? std::numeric_limits<float>::quiet_NaN() : 1.5f);
        for (int j = 0; j < 1001; ++j)
            cols[k].push_back(u(rng));
    }
    const u64 m = cols[0].size();
    std::vector<const float*> cp(D);
    for (u64 k = 0; k < D; ++k)
        cp[k] = cols[k].data();
    testsupport::forEachSimdLevel([&] {
        LinearND<float, float> lin(gp.data(), sizes.data(), values.data(), D);
        lin.prepare();
        ASSERT_EQ(lin.simdUsable(), simd::avx2Available());
        std::vector<IntervalSearch<float, float>> search;
        for (u64 k = 0; k < D; ++k)
            search.emplace_back(lin.axis(k));
        auto one = [&](u64 q) {
            LinearND<float, float>::Pair p[D];
            for (u64 k = 0; k < D; ++k)
                p[k] = lin.makePair(k, cp[k][q], search[k].find(cp[k][q]));
            return lin.template kernelFixed<D>(p);
        };
        std::vector<float> out(m);
        if (lin.simdUsable())
            lin.template scatteredSimd<D>(cp.data(), 0, m, out.data(), 1, one);
        else
            for (u64 q = 0; q < m; ++q)
                out[q] = one(q);
        for (u64 q = 0; q < m; ++q)
            ASSERT_SAME_BITS(out[q], one(q)) << "query " << q;
    });
}

TEST(PackedSingle, LinearNDMatchesScalarKernel) {
    for (const bool irregular : {false, true}) {
        checkLinearSingleND<2>(irregular);
        checkLinearSingleND<3>(irregular);
    }
}
