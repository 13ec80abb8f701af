// Gradients of every method in 1-4 dimensions, through the interpolant: one table of
// (method, d) rows run by one checker over double and single precision. Per row: agreement
// with central differences of our own values away from cell ends, inside and beyond each end
// (0 for the steps; NaN where the value is NaN); NaN for a NaN coordinate; a full query grid
// giving the bits of the same points queried one by one (the N-D spline, reduced dimension by
// dimension on a full grid, to rounding); the same bits with one thread as with many. Then the
// packed multilinear gradient against the scalar kernel's bits.
#include "mathinterp/interpolant/GridValidation.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "support/SimdLevels.hpp"

#include <platform/HostArray.hpp>

#include <gtest/gtest.h>
#include <tbb/task_arena.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using mathinterp::GriddedInterpolant;
using mathinterp::u64;
using platform::ClassId;
using platform::HostArray;

namespace {

struct Row {
    const char* method;
    u64 d;
};

const Row kRows[] = {
    {"linear", 1}, {"nearest", 1}, {"next", 1},    {"previous", 1}, {"pchip", 1},   {"spline", 1},
    {"cubic", 1},  {"makima", 1},  {"linear", 2},  {"nearest", 2},  {"spline", 2},  {"cubic", 2},
    {"makima", 2}, {"linear", 3},  {"nearest", 3}, {"spline", 3},   {"cubic", 3},   {"makima", 3},
    {"linear", 4}, {"spline", 4},  {"cubic", 4},   {"makima", 4},   {"nearest", 4},
};

bool isStep(const std::string& m) {
    return m == "nearest" || m == "next" || m == "previous";
}

template <class T>
HostArray array(platform::Dims dims, const std::vector<double>& v) {
    HostArray a = HostArray::createNumeric(dims, std::is_same_v<T, double> ? ClassId::Double
                                                                           : ClassId::Single);
    for (u64 i = 0; i < v.size(); ++i)
        a.data<T>()[i] = static_cast<T>(v[i]);
    return a;
}

template <class T>
std::vector<double> read(const HostArray& a) {
    std::vector<double> v(a.numberOfElements());
    for (u64 i = 0; i < v.size(); ++i)
        v[i] = static_cast<double>(a.data<T>()[i]);
    return v;
}

// T: grid, values and queries.
template <class T>
void checkRow(const Row& row) {
    const std::string method = row.method;
    const u64 d = row.d;
    SCOPED_TRACE(method + " d=" + std::to_string(d) + (sizeof(T) == 4 ? " single" : " double"));
    std::mt19937 gen(static_cast<unsigned>(7 * d + method.size()));
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    const u64 sizes[4] = {7, 6, 5, 4};
    std::vector<std::vector<double>> x(d);
    std::vector<HostArray> vecs;
    u64 points = 1;
    for (u64 k = 0; k < d; ++k) {
        double at = -1.0;
        for (u64 i = 0; i < sizes[k]; ++i) {
            x[k].push_back(at);
            at += method == "cubic" ? 0.5 : 0.3 + 0.7 * uni(gen);
        }
        vecs.push_back(array<T>({1, sizes[k]}, x[k]));
        points *= sizes[k];
    }
    std::vector<double> vals(points);
    for (double& v : vals)
        v = 2.0 * uni(gen) - 1.0;
    platform::Dims vdims(sizes, sizes + d);
    if (d == 1) vdims.push_back(1);
    GriddedInterpolant F;
    const HostArray args[3] = {mathinterp::makeCell(vecs), array<T>(vdims, vals),
                               HostArray::charRow(method)};
    F.construct(3, args);

    // M points, column-major (coordinate k of point i at k*M + i): cell interiors (t in
    // [0.2, 0.8]), then points beyond an end in some dimension, then one NaN coordinate.
    const u64 M = 6000;
    std::vector<double> P(M * d);
    for (u64 i = 0; i < M; ++i) {
        for (u64 k = 0; k < d; ++k) {
            const u64 c = gen() % (sizes[k] - 1);
            double v = x[k][c] + (0.2 + 0.6 * uni(gen)) * (x[k][c + 1] - x[k][c]);
            if (i % 5 == 4 && k == i % d) v = (i % 2) ? x[k].back() + 0.4 : x[k][0] - 0.3;
            P[k * M + i] = v;
        }
    }
    P[(d - 1) * M + M - 1] = std::nan("");
    auto eval = [&](const std::vector<double>& q, bool gradient) {
        const HostArray a = array<T>({M, d}, q);
        return read<T>(gradient ? F.gradient(1, &a) : F.evaluate(1, &a));
    };
    const std::vector<double> g = eval(P, true);
    const std::vector<double> f = eval(P, false);
    ASSERT_EQ(g.size(), M * d);

    const double tol = sizeof(T) == 8 ? 2e-6 : 1e-2;
    for (u64 j = 0; j < d; ++j) {
        const double h = (sizeof(T) == 8 ? 1e-6 : 3e-3) * (x[j].back() - x[j][0]);
        std::vector<double> up = P, down = P;
        for (u64 i = 0; i < M; ++i) {
            up[j * M + i] = static_cast<double>(static_cast<T>(P[j * M + i] + h));
            down[j * M + i] = static_cast<double>(static_cast<T>(P[j * M + i] - h));
        }
        const std::vector<double> fu = eval(up, false), fd = eval(down, false);
        for (u64 i = 0; i + 1 < M; ++i) {
            const double step = up[j * M + i] - down[j * M + i];
            const double fdv = isStep(method) ? 0.0 : (fu[i] - fd[i]) / step;
            if (std::isnan(f[i])) { // next beyond the last point, previous below the first
                ASSERT_TRUE(std::isnan(g[j * M + i])) << "point " << i;
                continue;
            }
            ASSERT_NEAR(g[j * M + i], fdv, tol * (1 + std::abs(fdv)))
                << "point " << i << " dimension " << j;
        }
        EXPECT_TRUE(std::isnan(g[j * M + M - 1])) << "NaN coordinate, dimension " << j;
    }

    // A full grid of queries: the bits of the same points one by one.
    std::vector<HostArray> qv;
    std::vector<std::vector<double>> qx(d);
    for (u64 k = 0; k < d; ++k) {
        for (u64 i = 0; i < 3 + k; ++i)
            qx[k].push_back(P[k * M + i]);
        qv.push_back(array<T>({1, qx[k].size()}, qx[k]));
    }
    const HostArray cell = mathinterp::makeCell(qv);
    const std::vector<double> gg = read<T>(F.gradient(1, &cell));
    u64 total = 1;
    for (u64 k = 0; k < d; ++k)
        total *= qx[k].size();
    std::vector<double> pts(total * d);
    for (u64 p = 0; p < total; ++p) {
        u64 r = p;
        for (u64 k = 0; k < d; ++k) {
            pts[k * total + p] = qx[k][r % qx[k].size()];
            r /= qx[k].size();
        }
    }
    const HostArray pa = array<T>({total, d}, pts);
    const std::vector<double> gs = read<T>(F.gradient(1, &pa));
    ASSERT_EQ(gg.size(), gs.size());
    // The N-D spline reduces a full grid dimension by dimension (other roundings).
    const bool separable = method == "spline" && d > 1;
    for (u64 i = 0; i < gs.size(); ++i) {
        if (separable)
            ASSERT_NEAR(gg[i], gs[i], (sizeof(T) == 8 ? 1e-11 : 1e-3) * (1 + std::abs(gs[i])))
                << "gridded entry " << i;
        else
            ASSERT_TRUE(std::memcmp(&gg[i], &gs[i], sizeof(double)) == 0) << "gridded entry " << i;
    }

    // One thread against many.
    std::vector<double> serial;
    tbb::task_arena(1).execute([&] { serial = eval(P, true); });
    ASSERT_EQ(std::memcmp(serial.data(), g.data(), g.size() * sizeof(double)), 0);
}

TEST(Gradient, EveryMethodAndDimensionDouble) {
    for (const Row& r : kRows)
        checkRow<double>(r);
}

TEST(Gradient, EveryMethodAndDimensionSingle) {
    for (const Row& r : kRows)
        checkRow<float>(r);
}

} // namespace

// Values with plateaus (equal neighbours, where the multilinear step passes a value through
// unrounded), queries on grid lines, beyond the ends and NaN: every packed level gives the
// bits of the scalar kernel (multilinear in 2-D and 3-D, cubic convolution in 2-D, nearest).
TEST(Gradient, PackedKernelsGiveTheScalarBits) {
    const Row rows[] = {{"linear", 2}, {"linear", 3}, {"cubic", 2}, {"nearest", 3}};
    for (const Row& row : rows) {
        const u64 d = row.d;
        const bool uniform = std::string(row.method) == "cubic";
        std::mt19937 gen(static_cast<unsigned>(d));
        std::vector<HostArray> vecs;
        std::vector<std::vector<double>> x(d);
        u64 points = 1;
        for (u64 k = 0; k < d; ++k) {
            for (u64 i = 0; i < 9; ++i)
                x[k].push_back(k == 0 || uniform ? 0.5 * static_cast<double>(i) - 0.3
                                                 : static_cast<double>(i * i) / 7.0);
            vecs.push_back(array<double>({1, 9}, x[k]));
            points *= 9;
        }
        std::vector<double> vals(points);
        for (double& v : vals)
            v = static_cast<double>(gen() % 3) / 3.0;
        GriddedInterpolant F;
        const HostArray args[3] = {mathinterp::makeCell(vecs),
                                   array<double>(platform::Dims(d, 9), vals),
                                   HostArray::charRow(row.method)};
        F.construct(3, args);
        const u64 M = 4099;
        std::vector<double> P(M * d);
        for (u64 i = 0; i < M; ++i)
            for (u64 k = 0; k < d; ++k)
                P[k * M + i] = (i % 7 == 0) ? x[k][gen() % 9]
                                            : x[k][0] - 0.5 +
                                                  static_cast<double>(gen() % 10000) * 1e-4 *
                                                      (x[k].back() - x[k][0] + 1.0);
        P[M + 5] = std::nan("");
        const HostArray q = array<double>({M, d}, P);
        std::vector<double> scalar;
        testsupport::forEachSimdLevel([&] {
            const std::vector<double> g = read<double>(F.gradient(1, &q));
            if (scalar.empty()) {
                mathinterp::simd::limitSimd(mathinterp::simd::SimdLevel::None);
                scalar = read<double>(F.gradient(1, &q));
                mathinterp::simd::limitSimd(mathinterp::simd::SimdLevel::Avx512);
            }
            for (u64 i = 0; i < g.size(); ++i)
                ASSERT_EQ(std::memcmp(&g[i], &scalar[i], sizeof(double)), 0)
                    << row.method << " d=" << d << " entry " << i << ": " << g[i] << " vs "
                    << scalar[i];
        });
    }
}
