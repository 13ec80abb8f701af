// CubicND and SplineND: grid points, polynomial reproduction (quadratic tensors for cubic
// convolution, cubic tensors for the spline), the phantom layers of a three-point dimension
// against an independently extended grid, the two- and three-point spline dimensions, gridded
// against scattered spline queries, rebinding, overflow and allocation failures, and serial
// against parallel bits.
#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/methods/CubicND.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/SplineND.hpp"
#include "support/Bits.hpp"
#include "support/SimdLevels.hpp"

#include <tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <new>
#include <random>
#include <vector>

using namespace mathinterp;
using platform::ClassId;
using platform::HostArray;

namespace {

using Point = std::vector<double>;

// A grid with its values: grid vectors, sizes, values column-major (dimension 0 fastest).
struct Grid {
    std::vector<std::vector<double>> x;
    std::vector<u64> n;
    std::vector<const double*> ptr;
    std::vector<double> v;

    u64 dims() const { return n.size(); }
    u64 points() const {
        u64 p = 1;
        for (u64 s : n)
            p *= s;
        return p;
    }
    // Values f(point) at every grid point, `planes` times (plane p gets f + p).
    void fill(const std::function<double(const Point&)>& f, u64 planes = 1) {
        const u64 P = points();
        v.assign(P * planes, 0.0);
        Point pt(dims());
        for (u64 j = 0; j < P; ++j) {
            u64 r = j;
            for (u64 k = 0; k < dims(); ++k) {
                pt[k] = x[k][r % n[k]];
                r /= n[k];
            }
            for (u64 p = 0; p < planes; ++p)
                v[p * P + j] = f(pt) + static_cast<double>(p);
        }
    }
};

Grid makeGrid(std::vector<std::vector<double>> x) {
    Grid g;
    g.x = std::move(x);
    for (const auto& xk : g.x) {
        g.n.push_back(xk.size());
        g.ptr.push_back(xk.data());
    }
    return g;
}

std::vector<double> uniform(double a, double h, u64 n) {
    std::vector<double> x(n);
    for (u64 i = 0; i < n; ++i)
        x[i] = a + h * static_cast<double>(i);
    return x;
}

template <class M>
std::unique_ptr<M> methodOn(const Grid& g, u64 plane = 0) {
    return std::make_unique<M>(g.ptr.data(), g.n.data(), g.v.data() + plane * g.points(), g.dims());
}

// One point through a method as the scattered driver runs it.
template <class M>
double at(M& m, const Point& x) {
    m.prepareForPoints();
    std::vector<typename M::Pair> p(x.size());
    for (u64 k = 0; k < x.size(); ++k)
        p[k] = m.makePair(k, x[k], findInterval(m.axis(k), x[k]));
    auto buf = m.makeBuffer();
    return m.kernel(p.data(), buf);
}

EvaluatorSetup<double, double> setupOf(const Grid& g, u64 planes = 1) {
    EvaluatorSetup<double, double> s;
    s.grids = g.ptr;
    s.sizes = g.n;
    s.values = g.v.data();
    s.pointsPerPlane = g.points();
    s.numPlanes = planes;
    return s;
}

// Scattered points as the evaluator takes them: d columns of m coordinates.
std::vector<double> scattered(Evaluator& e, const std::vector<Point>& pts, u64 planes = 1) {
    const u64 m = pts.size(), d = pts[0].size();
    std::vector<double> q(m * d);
    for (u64 i = 0; i < m; ++i)
        for (u64 k = 0; k < d; ++k)
            q[k * m + i] = pts[i][k];
    HostArray out = HostArray::createNumeric({m, planes}, ClassId::Double);
    e.evaluateScattered(m, HostArray::fromDoubles({m, d}, q), out);
    const double* o = out.data<double>();
    return std::vector<double>(o, o + m * planes);
}

HostArray queryCell(const std::vector<std::vector<double>>& qv) {
    HostArray cell = HostArray::createCell(1, qv.size());
    for (u64 k = 0; k < qv.size(); ++k)
        cell.setCell(k, HostArray::columnVector(qv[k]));
    return cell;
}

std::vector<double> gridded(Evaluator& e, const std::vector<std::vector<double>>& qv,
                            u64 planes = 1) {
    platform::Dims dims;
    u64 total = 1;
    for (const auto& q : qv) {
        dims.push_back(q.size());
        total *= q.size();
    }
    dims.push_back(planes);
    HostArray out = HostArray::createNumeric(dims, ClassId::Double);
    e.evaluateGridded(queryCell(qv), out);
    const double* o = out.data<double>();
    return std::vector<double>(o, o + total * planes);
}

// The points of a query grid in output order (dimension 0 fastest).
std::vector<Point> expand(const std::vector<std::vector<double>>& qv) {
    std::vector<Point> pts(1, Point());
    for (const auto& q : qv) {
        std::vector<Point> next;
        for (double c : q)
            for (const auto& p : pts) {
                Point r = p;
                r.push_back(c);
                next.push_back(r);
            }
        pts.swap(next);
    }
    // next-level loops put the new dimension slowest: output order already
    return pts;
}

std::vector<Point> randomPoints(u64 m, const std::vector<std::pair<double, double>>& box,
                                u64 seed) {
    std::mt19937_64 rng(seed);
    std::vector<Point> pts(m, Point(box.size()));
    for (auto& p : pts)
        for (u64 k = 0; k < box.size(); ++k)
            p[k] = std::uniform_real_distribution<double>(box[k].first, box[k].second)(rng);
    return pts;
}

// |a - b| within tol relative to the larger of both and `scale` (the data's magnitude: where
// the spline cancels to small values, rounding stays on the data's scale).
bool relClose(double a, double b, double tol, double scale = 1.0) {
    return std::abs(a - b) <= tol * std::max({scale, std::abs(a), std::abs(b)});
}

double largestMagnitude(const std::vector<double>& v) {
    double r = 0;
    for (double x : v)
        r = std::max(r, std::abs(x));
    return r;
}

// ---- an independent cubic-convolution reference ---------------------------------------
// The grid extended by one phantom layer at each end of every dimension, dimension by
// dimension (a later dimension extends the layers already added), and Keys' kernel (a = -1/2)
// as polynomials in the distances 1 + t, t, 1 - t, 2 - t.
struct Extended {
    std::vector<u64> n; // extended sizes n_k + 2
    std::vector<double> e;

    explicit Extended(const Grid& g) {
        const u64 d = g.dims();
        for (u64 s : g.n)
            n.push_back(s + 2);
        u64 total = 1;
        for (u64 s : n)
            total *= s;
        e.assign(total, 0.0);
        std::vector<u64> idx(d);
        for (u64 j = 0; j < g.points(); ++j) {
            u64 r = j;
            for (u64 k = 0; k < d; ++k) {
                idx[k] = r % g.n[k] + 1;
                r /= g.n[k];
            }
            e[flat(idx)] = g.v[j];
        }
        for (u64 k = 0; k < d; ++k) {
            const u64 step = strideOf(k), last = n[k] - 1;
            for (u64 j = 0; j < total; ++j) {
                const u64 ik = (j / step) % n[k];
                if (ik == 0) e[j] = 3 * (e[j + step] - e[j + 2 * step]) + e[j + 3 * step];
                if (ik == last) e[j] = 3 * (e[j - step] - e[j - 2 * step]) + e[j - 3 * step];
            }
        }
    }
    u64 strideOf(u64 k) const {
        u64 s = 1;
        for (u64 j = 0; j < k; ++j)
            s *= n[j];
        return s;
    }
    u64 flat(const std::vector<u64>& idx) const {
        u64 f = 0;
        for (u64 k = 0; k < n.size(); ++k)
            f += idx[k] * strideOf(k);
        return f;
    }
};

double keysNear(double s) {
    return 1.5 * s * s * s - 2.5 * s * s + 1;
}
double keysFar(double s) {
    return -0.5 * s * s * s + 2.5 * s * s - 4 * s + 2;
}

double cubicReference(const Grid& g, const Point& x) {
    const Extended ext(g);
    const u64 d = g.dims();
    std::vector<u64> cell(d);
    std::vector<std::array<double, 4>> w(d);
    for (u64 k = 0; k < d; ++k) {
        const u64 i = findInterval(GridAxis<double>(g.x[k].data(), g.n[k]), x[k]);
        const double t = (x[k] - g.x[k][i]) / (g.x[k][i + 1] - g.x[k][i]);
        cell[k] = i; // extended index of g[i - 1] is i
        w[k] = {keysFar(1 + t), keysNear(t), keysNear(1 - t), keysFar(2 - t)};
    }
    double sum = 0;
    std::vector<u64> idx(d);
    for (u64 c = 0; c < (u64{1} << (2 * d)); ++c) {
        double wt = 1;
        for (u64 k = 0; k < d; ++k) {
            const u64 digit = (c >> (2 * k)) & 3u;
            idx[k] = cell[k] + digit;
            wt *= w[k][digit];
        }
        sum += wt * ext.e[ext.flat(idx)];
    }
    return sum;
}

} // namespace

// =========================================================================================
// CubicND
// =========================================================================================

TEST(CubicND, GridPointsReturnGridValuesExactly) {
    Grid g = makeGrid({uniform(0.1, 0.3, 5), uniform(-2, 0.7, 4), uniform(3, 1.1, 3)});
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> u(-10, 10);
    g.fill([&](const Point&) { return u(rng); });
    auto m = methodOn<CubicND<double, double>>(g);
    for (u64 j = 0; j < g.points(); ++j) {
        const Point p{g.x[0][j % 5], g.x[1][(j / 5) % 4], g.x[2][j / 20]};
        EXPECT_SAME_BITS(at(*m, p), g.v[j]) << "grid point " << j;
    }
}

// Cubic convolution with the phantom rule is exact for quadratics in every dimension; with
// dyadic steps, queries and small integer coefficients every operation is exact.
TEST(CubicND, QuadraticTensorDataReproducedOnUniformGrids) {
    auto f = [](const Point& p) {
        const double x = p[0], y = p[1], z = p[2];
        return (x * x - 2 * x + 3) * (2 * y * y + y - 1) + (z * z + 4) * (x - y) + 5 * z;
    };
    Grid g = makeGrid({uniform(-1, 0.5, 6), uniform(0, 0.25, 5), uniform(2, 1, 4)});
    g.fill(f);
    auto m = methodOn<CubicND<double, double>>(g);
    u64 checked = 0;
    // From one cell below to one cell above the grid in every dimension, steps of h/8.
    for (int a = -8; a <= 48; a += 3)
        for (int b = -8; b <= 40; b += 5)
            for (int c = -8; c <= 32; c += 7) {
                const Point p{-1 + 0.5 * a / 8, 0.25 * b / 8, 2.0 + c / 8.0};
                EXPECT_SAME_BITS(at(*m, p), f(p)) << p[0] << ", " << p[1] << ", " << p[2];
                ++checked;
            }
    EXPECT_GT(checked, 500u);
}

// With three points a dimension has only boundary cells: the lower phantom in cell 0, the
// upper one in cell 1. Integer data and dyadic t keep both sides exact, so the bits of an
// independently extended grid must come out.
TEST(CubicND, ThreePointDimensionUsesLowerThenUpperPhantom) {
    Grid g = makeGrid({uniform(0, 1, 3), uniform(10, 2, 5)});
    std::mt19937_64 rng(3);
    std::uniform_int_distribution<int> u(-20, 20);
    g.fill([&](const Point&) { return u(rng); });
    auto m = methodOn<CubicND<double, double>>(g);
    for (double x0 : {-0.5, 0.0, 0.25, 0.75, 1.0, 1.25, 1.75, 2.0, 2.5})
        for (double x1 : {9.0, 10.0, 10.5, 12.25, 14.0, 15.5, 17.0, 18.0, 19.5}) {
            const Point p{x0, x1};
            EXPECT_SAME_BITS(at(*m, p), cubicReference(g, p)) << x0 << ", " << x1;
        }
    // The two cells of the three-point dimension see different phantoms: the upper phantom
    // is not the lower rule mirrored when the data are not quadratic.
    const Point lower{0.5, 13.0}, upper{1.5, 13.0};
    EXPECT_NE(at(*m, lower), at(*m, upper));
}

TEST(CubicND, MatchesIndependentReferenceIn3D) {
    Grid g = makeGrid({uniform(0, 0.5, 4), uniform(-1, 0.25, 6), uniform(1, 1, 3)});
    std::mt19937_64 rng(4);
    std::uniform_int_distribution<int> u(-50, 50);
    g.fill([&](const Point&) { return u(rng); });
    auto m = methodOn<CubicND<double, double>>(g);
    for (int a = -2; a <= 14; ++a)
        for (int b = -2; b <= 22; b += 3)
            for (int c = -2; c <= 10; c += 3) {
                const Point p{0.125 * a, -1 + 0.0625 * b, 1 + 0.25 * c};
                EXPECT_SAME_BITS(at(*m, p), cubicReference(g, p))
                    << p[0] << ", " << p[1] << ", " << p[2];
            }
}

TEST(CubicND, NaNGivesTheEngineNaN) {
    Grid g = makeGrid({uniform(0, 1, 4), uniform(0, 1, 4)});
    g.fill([](const Point& p) { return p[0] + p[1]; });
    auto m = methodOn<CubicND<double, double>>(g);
    EXPECT_SAME_BITS(at(*m, {std::nan(""), 1.5}), engineNaN<double>());
    EXPECT_SAME_BITS(at(*m, {1.5, -std::nan("")}), engineNaN<double>());
    g.v[5] = std::nan(""); // grid point (1, 1): in the neighbourhood of every cell here
    auto v = methodOn<CubicND<double, double>>(g);
    EXPECT_SAME_BITS(at(*v, {1.5, 1.5}), engineNaN<double>());
    EXPECT_SAME_BITS(at(*v, {0.5, 0.25}), engineNaN<double>());
}

TEST(CubicND, SizesThatOverflowAreOutOfMemory) {
    std::vector<double> x{0, 1, 2};
    std::vector<const double*> grids(33, x.data());
    std::vector<u64> sizes(33, 3);
    double v = 0;
    EXPECT_THROW((CubicND<double, double>(grids.data(), sizes.data(), &v, 33)), std::bad_alloc);
    EXPECT_THROW((SplineND<double, double>(grids.data(), sizes.data(), &v, 33)), std::bad_alloc);
}

// =========================================================================================
// SplineND
// =========================================================================================

namespace {
double cubicX(double x) {
    return 0.5 * x * x * x - x * x + 2 * x - 1;
}
double cubicY(double y) {
    return -y * y * y + 0.25 * y * y + 3;
}
double cubicZ(double z) {
    return z * z * z + z;
}

Grid nonUniform3D() {
    return makeGrid({{-1.0, -0.3, 0.4, 0.6, 1.5, 2.0},
                     {0.0, 0.5, 0.75, 1.6, 2.2},
                     {-2.0, -1.1, -0.2, 0.1, 0.9, 1.3, 2.4}});
}
} // namespace

TEST(SplineND, ReproducesTensorCubicsOnNonUniformGrids) {
    auto f = [](const Point& p) { return cubicX(p[0]) * cubicY(p[1]) * cubicZ(p[2]); };
    Grid g = nonUniform3D();
    g.fill(f);
    auto m = methodOn<SplineND<double, double>>(g);
    // Inside and up to half the grid width outside, in every dimension.
    for (const Point& p : randomPoints(2000, {{-2.5, 3.5}, {-1, 3.3}, {-4, 4.5}}, 5))
        EXPECT_TRUE(relClose(at(*m, p), f(p), 1e-11)) << at(*m, p) << " vs " << f(p);
}

// Four dimensions take the kernels' general path (2-D and 3-D have unrolled ones).
TEST(SplineCubicND, FourDimensions) {
    Grid g = makeGrid({uniform(0, 0.5, 4),
                       {-1.0, -0.2, 0.5, 1.0, 1.25},
                       uniform(1, 0.25, 5),
                       {0.0, 0.3, 1.0, 1.1}});
    auto quad = [](const Point& p) {
        return (p[0] * p[0] + 1) * (p[1] - 2) + p[2] * p[2] * p[3] - p[3] * p[3] * p[0];
    };
    auto cub = [](const Point& p) { return cubicX(p[0]) * cubicY(p[1]) + p[2] * cubicZ(p[3]); };
    const std::vector<Point> pts =
        randomPoints(400, {{-0.5, 2}, {-1.5, 1.5}, {0.5, 2.5}, {-0.5, 1.5}}, 15);
    // Cubic convolution on a uniform grid (exact for quadratic tensors), the spline on g.
    Grid u4 =
        makeGrid({uniform(0, 0.5, 4), uniform(-1, 0.25, 5), uniform(1, 0.25, 5), uniform(0, 1, 3)});
    u4.fill(quad);
    auto cu = methodOn<CubicND<double, double>>(u4);
    for (int a = -2; a <= 14; a += 3)
        for (int b = -2; b <= 18; b += 5)
            for (int e = -2; e <= 18; e += 5)
                for (int f = -2; f <= 10; f += 3) {
                    const Point p{0.125 * a, -1 + 0.0625 * b, 1 + 0.0625 * e, 0.25 * f};
                    EXPECT_SAME_BITS(at(*cu, p), quad(p));
                }
    g.fill(cub);
    auto sp = methodOn<SplineND<double, double>>(g);
    for (const Point& p : pts)
        EXPECT_TRUE(relClose(at(*sp, p), cub(p), 1e-11));
}

TEST(SplineND, GridPointsReturnGridValuesExactly) {
    Grid g = nonUniform3D();
    std::mt19937_64 rng(6);
    std::uniform_real_distribution<double> u(-3, 3);
    g.fill([&](const Point&) { return u(rng); });
    auto m = methodOn<SplineND<double, double>>(g);
    // s = 0 in every dimension leaves the constant term: the grid value. (The last point of a
    // dimension lies in the last interval at s = h and is the polynomial's value there.)
    for (u64 a = 0; a + 1 < 6; ++a)
        for (u64 b = 0; b + 1 < 5; ++b)
            for (u64 c = 0; c + 1 < 7; ++c)
                EXPECT_SAME_BITS(at(*m, {g.x[0][a], g.x[1][b], g.x[2][c]}),
                                 g.v[a + 6 * (b + 5 * c)]);
}

// Two points: the line through them; three: the parabola. Data linear in x0, quadratic in x1
// and cubic in x2 are reproduced; arbitrary data are still linear along x0 and quadratic
// along x1 (vanishing second and third differences).
TEST(SplineND, LinearAlongTwoPointsQuadraticAlongThreePoints) {
    Grid g = makeGrid({{0.5, 2.0}, {-1.0, 0.2, 1.0}, {0.0, 0.4, 1.0, 1.3, 2.0}});
    auto f = [](const Point& p) {
        return (3 * p[0] - 1) * (p[1] * p[1] - 2 * p[1] + 0.5) * cubicZ(p[2]) + p[0] * p[1];
    };
    g.fill(f);
    auto m = methodOn<SplineND<double, double>>(g);
    for (const Point& p : randomPoints(500, {{-1, 3.5}, {-2, 2}, {-0.5, 2.5}}, 7))
        EXPECT_TRUE(relClose(at(*m, p), f(p), 1e-12)) << at(*m, p) << " vs " << f(p);

    std::mt19937_64 rng(8);
    std::uniform_real_distribution<double> u(-3, 3);
    g.fill([&](const Point&) { return u(rng); });
    auto r = methodOn<SplineND<double, double>>(g);
    for (const Point& p : randomPoints(100, {{-1, 3.5}, {-2, 2}, {-0.5, 2.5}}, 9)) {
        const double h = 0.375;
        // along x0: second difference 0
        const double a = at(*r, {p[0], p[1], p[2]}), b = at(*r, {p[0] + h, p[1], p[2]}),
                     c = at(*r, {p[0] + 2 * h, p[1], p[2]});
        EXPECT_NEAR(a - 2 * b + c, 0.0, 1e-12 * (std::abs(a) + std::abs(b) + std::abs(c) + 1));
        // along x1: third difference 0
        const double y0 = at(*r, {p[0], p[1], p[2]}), y1 = at(*r, {p[0], p[1] + h, p[2]}),
                     y2 = at(*r, {p[0], p[1] + 2 * h, p[2]}),
                     y3 = at(*r, {p[0], p[1] + 3 * h, p[2]});
        EXPECT_NEAR(y3 - 3 * y2 + 3 * y1 - y0, 0.0,
                    1e-11 * (std::abs(y0) + std::abs(y1) + std::abs(y2) + std::abs(y3) + 1));
    }
}

// NaN coordinates and NaN values (a positive NaN here) give the engine's NaN, scattered and
// gridded.
TEST(SplineND, NaNGivesTheEngineNaN) {
    Grid g = nonUniform3D();
    g.fill([](const Point& p) { return p[0] * p[1] + p[2]; });
    auto m = methodOn<SplineND<double, double>>(g);
    EXPECT_SAME_BITS(at(*m, {0.5, std::nan(""), 0.0}), engineNaN<double>());
    g.v[7] = std::nan("");
    EvaluatorInterp<SplineND<double, double>> e(setupOf(g));
    const std::vector<std::vector<double>> qv{{0.0, 1.0}, {0.5, 2.0}, {-1.0, 1.0}};
    for (double r : scattered(e, expand(qv)))
        EXPECT_SAME_BITS(r, engineNaN<double>());
    for (double r : gridded(e, qv))
        EXPECT_SAME_BITS(r, engineNaN<double>());
}

// The dimension-by-dimension reduction and the tensor table agree up to rounding; cases with
// the intermediates in the output (more queries than grid points) and in a block of their own
// (fewer), several value sets, and a query grid reaching outside the grid. Relative to the
// data's magnitude, as cancellation brings some results far below it; outside the grid the
// end pieces amplify rounding with the cube of the distance, so there the bound is looser.
TEST(SplineND, GriddedEqualsScattered) {
    Grid g = nonUniform3D();
    std::mt19937_64 rng(10);
    std::uniform_real_distribution<double> u(-3, 3);
    g.fill([&](const Point& p) { return std::sin(p[0]) * std::cos(2 * p[1]) + p[2] * u(rng); }, 2);
    EvaluatorInterp<SplineND<double, double>> e(setupOf(g, 2));
    const double scale = largestMagnitude(g.v);
    const std::vector<std::vector<std::vector<double>>> cases = {
        {uniform(-1.5, 0.17, 25), uniform(-0.5, 0.13, 23), uniform(-2.5, 0.2, 27)}, // upsampling
        {{0.1, 1.9}, {0.3}, {-1.0, 0.0, 2.5}},                                      // fewer
        {uniform(-1, 0.5, 7), uniform(0, 0.55, 5), {0.05}},
    };
    u64 inside = 0;
    for (const auto& qv : cases) {
        const std::vector<Point> pts = expand(qv);
        const std::vector<double> gr = gridded(e, qv, 2);
        const std::vector<double> sc = scattered(e, pts, 2);
        ASSERT_EQ(gr.size(), sc.size());
        for (u64 i = 0; i < gr.size(); ++i) {
            const Point& p = pts[i % pts.size()];
            bool in = true;
            for (u64 k = 0; k < 3; ++k)
                in = in && p[k] >= g.x[k].front() && p[k] <= g.x[k].back();
            inside += in;
            ASSERT_TRUE(relClose(gr[i], sc[i], in ? 1e-13 : 1e-11, scale))
                << i << (in ? " inside: " : " outside: ") << gr[i] << " vs " << sc[i];
        }
    }
    EXPECT_GT(inside, 5000u);
}

// Complex values: real and imaginary planes interleaved in the output (stride 2), so the
// intermediates cannot live there.
TEST(SplineND, GriddedComplexOutput) {
    Grid g = makeGrid({{0, 1, 2.5, 3, 4}, {0, 0.5, 1, 2}});
    g.fill([](const Point& p) { return p[0] * p[0] * p[1] - p[1]; }, 2); // re, im planes
    const EvaluatorSetup<double, double> s = setupOf(g, 2);
    EvaluatorInterp<SplineND<double, double>> e(s);
    const std::vector<std::vector<double>> qv{uniform(-0.5, 0.25, 21), uniform(0, 0.1, 21)};
    HostArray out = HostArray::createNumeric({21, 21}, ClassId::Double, true);
    e.evaluateGridded(queryCell(qv), out);
    const std::vector<double> sc = scattered(e, expand(qv), 2);
    const double* o = out.data<double>();
    for (u64 i = 0; i < 21 * 21; ++i) {
        EXPECT_TRUE(relClose(o[2 * i], sc[i], 1e-13)) << i;
        EXPECT_TRUE(relClose(o[2 * i + 1], sc[21 * 21 + i], 1e-13)) << i;
    }
}

TEST(SplineND, RebindingRecomputesCoefficientsKeepsIndexTables) {
    Grid g = nonUniform3D();
    g.fill([](const Point& p) { return p[0] - p[1] * p[2]; });
    EvaluatorInterp<SplineND<double, double>> e(setupOf(g));
    const std::vector<Point> pts = randomPoints(300, {{-1, 2}, {0, 2.2}, {-2, 2.4}}, 11);
    const std::vector<std::vector<double>> qv{uniform(-1, 0.3, 11), {0.2, 1.1}, {0.0, 1.0}};
    scattered(e, pts);
    gridded(e, qv);
    SplineND<double, double>& m = *e.methodObjects[0];
    ASSERT_TRUE(m.indexTablesReady());
    ASSERT_TRUE(m.coefficientTable.coefficients && m.lastDimTable.coefficients);
    const u64* offsets = m.coefficientStrides.data();

    std::vector<double> v2(g.v.size());
    for (u64 j = 0; j < v2.size(); ++j)
        v2[j] = std::cos(0.1 * static_cast<double>(j));
    const void* planes[] = {v2.data()};
    e.rebindValues(planes);
    EXPECT_FALSE(m.coefficientTable.coefficients);
    EXPECT_FALSE(m.lastDimTable.coefficients);
    EXPECT_TRUE(m.indexTablesReady());

    const std::vector<double> sc = scattered(e, pts);
    const std::vector<double> gr = gridded(e, qv);
    EXPECT_EQ(m.coefficientStrides.data(), offsets);

    Grid g2 = g;
    g2.ptr.clear();
    for (const auto& xk : g2.x)
        g2.ptr.push_back(xk.data());
    g2.v = v2;
    EvaluatorInterp<SplineND<double, double>> fresh(setupOf(g2));
    const std::vector<double> sc2 = scattered(fresh, pts);
    const std::vector<double> gr2 = gridded(fresh, qv);
    for (u64 i = 0; i < sc.size(); ++i)
        EXPECT_SAME_BITS(sc[i], sc2[i]);
    for (u64 i = 0; i < gr.size(); ++i)
        EXPECT_SAME_BITS(gr[i], gr2[i]);
}

// Every product is checked before the first allocation: a query grid whose intermediate
// sizes overflow allocates nothing.
TEST(SplineND, GriddedSizesThatOverflowAllocateNothing) {
    if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "allocation counting off";
    Grid g = makeGrid({uniform(0, 1, 4), uniform(0, 1, 4)});
    g.fill([](const Point& p) { return p[0] * p[1]; });
    auto m = methodOn<SplineND<double, double>>(g);
    const SplineND<double, double>::Pair* tables[2] = {nullptr, nullptr};
    const u64 lengths[2] = {u64{1} << 40, u64{1} << 40};
    const GriddedPairs<SplineND<double, double>::Pair> q{tables, lengths, 2, 1};
    double out = 0;
    platform::failAllocationAfter(0);
    EXPECT_THROW(m->evaluateGriddedPlane(q, &out, 1), std::bad_alloc);
    EXPECT_EQ(platform::allocationCount(), 0u);
}

// An allocation failing anywhere while the tables are built is std::bad_alloc; nothing is
// half stored, and the next evaluation builds the tables and gives the right bits.
TEST(SplineND, AllocationFailuresLeaveNothingHalfBuilt) {
    if (!platform::faultInjectionAvailable()) GTEST_SKIP() << "fault injection off";
    Grid g = nonUniform3D();
    g.fill([](const Point& p) { return p[0] * p[1] + p[2] * p[2]; });
    const std::vector<Point> pts = randomPoints(50, {{-1, 2}, {0, 2.2}, {-2, 2.4}}, 12);
    const std::vector<std::vector<double>> qv{uniform(-1, 0.3, 11), {0.2, 1.1}, {0.0, 1.0}};
    EvaluatorInterp<SplineND<double, double>> ref(setupOf(g));
    const std::vector<double> want = scattered(ref, pts);
    const std::vector<double> wantG = gridded(ref, qv);
    u64 failures = 0;
    for (u64 k = 1; k < 200; ++k) {
        EvaluatorInterp<SplineND<double, double>> e(setupOf(g));
        platform::failAllocationAfter(k);
        bool threw = false;
        try {
            scattered(e, pts);
            gridded(e, qv);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        platform::failAllocationAfter(0);
        if (!threw) break;
        ++failures;
        const std::vector<double> got = scattered(e, pts);
        const std::vector<double> gotG = gridded(e, qv);
        for (u64 i = 0; i < got.size(); ++i)
            ASSERT_TRUE(testsupport::sameBits(got[i], want[i]));
        for (u64 i = 0; i < gotG.size(); ++i)
            ASSERT_TRUE(testsupport::sameBits(gotG[i], wantG[i]));
    }
    EXPECT_GT(failures, 5u);
}

// =========================================================================================
// Both methods through the drivers: serial (one thread) and parallel runs give equal bits;
// the scattered driver gives the per-point kernel's bits.
// =========================================================================================

template <class M>
void checkSerialEqualsParallel(const Grid& g, const std::vector<Point>& pts,
                               const std::vector<std::vector<double>>& qv) {
    EvaluatorInterp<M> par(setupOf(g));
    EvaluatorInterp<M> ser(setupOf(g));
    const std::vector<double> sp = scattered(par, pts);
    const std::vector<double> gp = gridded(par, qv);
    std::vector<double> ss, gs;
    tbb::task_arena one(1);
    one.execute([&] {
        ss = scattered(ser, pts);
        gs = gridded(ser, qv);
    });
    auto m = methodOn<M>(g);
    for (u64 i = 0; i < pts.size(); ++i) {
        ASSERT_TRUE(testsupport::sameBits(sp[i], ss[i])) << "point " << i;
        ASSERT_TRUE(testsupport::sameBits(sp[i], at(*m, pts[i]))) << "point " << i;
    }
    for (u64 i = 0; i < gp.size(); ++i)
        ASSERT_TRUE(testsupport::sameBits(gp[i], gs[i])) << i;
}

TEST(SplineCubicND, SerialEqualsParallel) {
    Grid g = makeGrid({uniform(0, 0.1, 40), uniform(-1, 0.2, 30), uniform(0, 1, 6)});
    std::mt19937_64 rng(13);
    std::uniform_real_distribution<double> u(-1, 1);
    g.fill([&](const Point&) { return u(rng); });
    const std::vector<Point> pts = randomPoints(6000, {{-0.5, 4.5}, {-1.5, 5.2}, {-1, 6}}, 14);
    const std::vector<std::vector<double>> qv{uniform(-0.2, 0.05, 90), uniform(-1, 0.25, 25),
                                              uniform(0, 0.5, 11)};
    checkSerialEqualsParallel<CubicND<double, double>>(g, pts, qv);
    checkSerialEqualsParallel<SplineND<double, double>>(g, pts, qv);
}

// As the extrapolation method of another method, and with another extrapolation method,
// SplineND is evaluated point by point (also for query grids).
TEST(SplineCubicND, TwoMethodEvaluatorsUsePerPointKernels) {
    Grid g = nonUniform3D();
    g.fill([](const Point& p) { return cubicX(p[0]) * cubicY(p[1]) + p[2]; });
    EvaluatorInterpExtrap<SplineND<double, double>, LinearND<double, double>> e(setupOf(g));
    const std::vector<std::vector<double>> qv{uniform(-1.5, 0.3, 13), {0.1, 1.0, 2.9}, {-2.5, 0.0}};
    const std::vector<double> gr = gridded(e, qv);
    const std::vector<Point> pts = expand(qv);
    auto s = methodOn<SplineND<double, double>>(g);
    auto l = methodOn<LinearND<double, double>>(g);
    for (u64 i = 0; i < pts.size(); ++i) {
        const Point& p = pts[i];
        const bool inside = p[0] >= -1.0 && p[0] <= 2.0 && p[1] >= 0.0 && p[1] <= 2.2 &&
                            p[2] >= -2.0 && p[2] <= 2.4;
        EXPECT_SAME_BITS(gr[i], inside ? at(*s, p) : at(*l, p)) << i;
    }
}

// Many scattered queries take the batched (packed) loop, one at a time the plain kernel: the
// same bits for interior and boundary cells, outside points, grid lines, infinite and NaN
// coordinates, and values with infinities and NaNs, on uniform grids (arithmetic ones, whose
// cell ends the packed search computes, and one a point off), an irregular one and the
// smallest sizes, two planes, at every packed level.
TEST(CubicND, BatchedQueriesEqualOneAtATime) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    // Uniform grids (guesses land), an irregular one (guesses miss) and the smallest sizes
    // (four points: one interior cell; three: none).
    std::vector<double> nudged = uniform(3.0, 0.3, 11);
    nudged[6] = std::nextafter(nudged[6], 10.0);
    const std::vector<std::vector<std::vector<double>>> axes{
        {uniform(0.0, 1.0, 9), uniform(-2.0, 0.5, 7)},
        {uniform(0.1, 0.1, 23), nudged},
        {{0.0, 0.1, 0.5, 0.6, 2.0, 2.1, 5.0}, {-1.0, 0.0, 0.01, 3.0, 3.5}},
        {{0.0, 1.0, 2.0, 3.0}, {0.0, 0.5, 1.0}}};
    testsupport::forEachSimdLevel([&] {
        for (std::size_t which = 0; which < axes.size(); ++which) {
            Grid g = makeGrid(axes[which]);
            std::mt19937_64 rng(41 + which);
            std::uniform_real_distribution<double> uv(-3.0, 3.0);
            g.fill(
                [&](const Point&) {
                    const u64 r = rng() % 50;
                    return r == 0 ? inf : r == 1 ? -inf : r == 2 ? nan : uv(rng);
                },
                2);
            EvaluatorInterp<CubicND<double, double>> ev(setupOf(g, 2));
            std::vector<Point> pts(999, Point(2));
            for (auto& p : pts)
                for (u64 k = 0; k < 2; ++k) {
                    const double lo = g.x[k].front(), hi = g.x[k].back();
                    const u64 r = rng() % 12;
                    p[k] = r == 0   ? g.x[k][rng() % g.n[k]]
                           : r == 1 ? lo - (hi - lo) * 0.3
                           : r == 2 ? hi + (hi - lo) * 0.2
                           : r == 3 ? (rng() % 2 ? inf : nan)
                           : r == 4 ? std::nextafter(g.x[k][rng() % g.n[k]], rng() % 2 ? inf : -inf)
                                    : std::uniform_real_distribution<double>(lo, hi)(rng);
                }
            const auto batched = scattered(ev, pts, 2);
            const u64 m = pts.size();
            for (u64 i = 0; i < m; ++i) {
                const auto single = scattered(ev, {pts[i]}, 2);
                for (u64 plane = 0; plane < 2; ++plane) {
                    const double b = batched[plane * m + i], one = single[plane];
                    if (std::isnan(one))
                        EXPECT_SAME_BITS(b, engineNaN<double>()) << i; // the kernel's own NaN
                    else
                        EXPECT_SAME_BITS(b, one) << i;
                }
            }
        }
    });
}
