// Builders shared by the suites that run every method: grids (uniform or irregular) in either
// precision, value arrays from a function of the grid point (value sets and complex planes),
// query points in, beside and outside the grid, and evaluation as a user calls it.
#pragma once

#include "support/Interpolant.hpp"

#include "mathinterp/core/Numeric.hpp"

#include <cmath>
#include <complex>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace testsupport {

using platform::ClassId;
using platform::HostArray;
using Point = std::vector<double>;

// Every method word; a new method joins the shared suites here, with the highest degree of
// polynomial (per dimension) it reproduces inside and outside the grid, whether a grid's last
// point (the far end of the last piece) returns its value exactly, and whether N-D gridded
// queries take the scattered kernel's bits (a dimension-wise gridded path gives the same
// function to rounding).
struct MethodWord {
    const char* word;
    int order;
    bool lastNodeExact;
    bool griddedBitsND;
};
inline constexpr MethodWord kMethodWords[] = {
    {"linear", 1, true, true},   {"nearest", 0, true, true}, {"next", 0, true, true},
    {"previous", 0, true, true}, {"pchip", 1, false, true},  {"cubic", 2, false, false},
    {"spline", 3, false, false}, {"makima", 1, true, true},
};
inline const MethodWord& methodWord(const std::string& word) {
    for (const MethodWord& m : kMethodWords)
        if (word == m.word) return m;
    throw std::invalid_argument("no such method word: " + word);
}

inline double roundTo(ClassId c, double v) {
    return c == ClassId::Single ? static_cast<double>(static_cast<float>(v)) : v;
}

// Grid vectors (as the class will hold them): n points from -1.5 in steps of 0.5, or the same
// moved by up to 0.1 for an irregular grid.
inline std::vector<std::vector<double>> makeGrids(const std::vector<std::uint64_t>& n, ClassId cls,
                                                  bool irregular) {
    std::vector<std::vector<double>> g(n.size());
    for (std::size_t k = 0; k < n.size(); ++k)
        for (std::uint64_t i = 0; i < n[k]; ++i) {
            const double shift = irregular ? 0.05 * double(int((i * 7 + k) % 5) - 2) : 0.0;
            g[k].push_back(roundTo(cls, -1.5 + 0.5 * double(i) + shift));
        }
    return g;
}

inline HostArray numericRow(const std::vector<double>& v, ClassId cls) {
    HostArray a = HostArray::createNumeric({1, v.size()}, cls);
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (cls == ClassId::Single)
            a.data<float>()[i] = static_cast<float>(v[i]);
        else
            a.data<double>()[i] = v[i];
    }
    return a;
}

inline HostArray gridCell(const std::vector<std::vector<double>>& g, ClassId cls) {
    HostArray c = HostArray::createCell(1, g.size());
    for (std::size_t k = 0; k < g.size(); ++k)
        c.setCell(k, numericRow(g[k], cls));
    return c;
}

// Values f(set, point) on every grid point (first dimension fastest), value sets last; with
// `complex`, fi gives the imaginary parts.
using PointFn = std::function<double(std::uint64_t set, const Point&)>;
inline HostArray gridValues(const std::vector<std::vector<double>>& g, ClassId cls,
                            std::uint64_t sets, const PointFn& f, const PointFn& fi = {}) {
    platform::Dims dims;
    std::uint64_t count = 1;
    for (const auto& x : g) {
        dims.push_back(x.size());
        count *= x.size();
    }
    if (g.size() == 1) dims.push_back(1);
    if (sets > 1) {
        if (g.size() == 1) dims.pop_back();
        dims.push_back(sets);
    }
    HostArray a = HostArray::createNumeric(dims, cls, static_cast<bool>(fi));
    Point p(g.size());
    for (std::uint64_t s = 0; s < sets; ++s)
        for (std::uint64_t i = 0; i < count; ++i) {
            std::uint64_t rest = i;
            for (std::size_t k = 0; k < g.size(); ++k) {
                p[k] = g[k][rest % g[k].size()];
                rest /= g[k].size();
            }
            const std::uint64_t at = (s * count + i) * (fi ? 2 : 1);
            const double re = f(s, p), im = fi ? fi(s, p) : 0.0;
            if (cls == ClassId::Single) {
                a.data<float>()[at] = static_cast<float>(re);
                if (fi) a.data<float>()[at + 1] = static_cast<float>(im);
            } else {
                a.data<double>()[at] = re;
                if (fi) a.data<double>()[at + 1] = im;
            }
        }
    return a;
}

// A deterministic value that is no polynomial of the point.
inline double rough(std::uint64_t set, const Point& p) {
    double h = 0.3 + 0.7 * double(set);
    for (std::size_t k = 0; k < p.size(); ++k)
        h = std::sin(h * 3.1 + p[k] * (1.7 + double(k)));
    return h * 10.0;
}

// m query points, coordinates of the query class: inside, up to 0.6 outside on either side,
// on grid points, half-way between them, and every 97th point with a NaN coordinate.
inline std::vector<Point> queryPoints(const std::vector<std::vector<double>>& g, std::uint64_t m,
                                      ClassId qcls, std::uint64_t seed = 1) {
    std::vector<Point> q(m, Point(g.size()));
    std::uint64_t s = seed * 0x9E3779B97F4A7C15ull + 1;
    auto next = [&s] {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return double(s >> 11) / double(1ull << 53);
    };
    for (std::uint64_t i = 0; i < m; ++i)
        for (std::size_t k = 0; k < g.size(); ++k) {
            const std::vector<double>& x = g[k];
            double v = x.front() - 0.6 + next() * (x.back() - x.front() + 1.2);
            if (i % 5 == 1) v = x[std::uint64_t(next() * double(x.size())) % x.size()];
            if (i % 5 == 2 && x.size() > 1) { // half-way: nearest's ties
                const std::uint64_t j =
                    std::uint64_t(next() * double(x.size() - 1)) % (x.size() - 1);
                v = 0.5 * (x[j] + x[j + 1]);
            }
            if (i % 97 == 3 && k + 1 == g.size()) v = std::nan("");
            q[i][k] = roundTo(qcls, v);
        }
    return q;
}

inline HostArray pointMatrix(const std::vector<Point>& q, std::size_t d, ClassId qcls) {
    HostArray a = HostArray::createNumeric({q.size(), d}, qcls);
    for (std::size_t i = 0; i < q.size(); ++i)
        for (std::size_t k = 0; k < d; ++k) {
            if (qcls == ClassId::Single)
                a.data<float>()[k * q.size() + i] = static_cast<float>(q[i][k]);
            else
                a.data<double>()[k * q.size() + i] = q[i][k];
        }
    return a;
}

// Results as doubles (exact for single results): set s of point i at s * m + i; complex
// results give real parts, then imaginary parts after every real part.
inline std::vector<double> resultsOf(const HostArray& out) {
    std::vector<double> r;
    const std::uint64_t n = out.numberOfElements();
    for (std::uint64_t i = 0; i < n; ++i)
        r.push_back(out.realAt(i));
    if (out.isComplex())
        for (std::uint64_t i = 0; i < n; ++i)
            r.push_back(out.imagAt(i));
    return r;
}

inline mathinterp::GriddedInterpolant interpolant(const HostArray& grid, const HostArray& values,
                                                  const std::string& method,
                                                  const std::string& extrap = "") {
    itest::Args a{grid, values, HostArray::charRow(method)};
    if (!extrap.empty()) a.push_back(HostArray::charRow(extrap));
    mathinterp::GriddedInterpolant g;
    g.construct(static_cast<int>(a.size()), a.data());
    return g;
}

// Values (or, with `grad`, gradients: component after component, value set after set) at
// the points, as resultsOf lays them out.
inline std::vector<double> evalPoints(mathinterp::GriddedInterpolant& g,
                                      const std::vector<Point>& q, std::size_t d, ClassId qcls,
                                      bool grad = false) {
    const HostArray m = pointMatrix(q, d, qcls);
    return resultsOf(grad ? g.gradient(1, &m) : itest::eval(g, {m}));
}

} // namespace testsupport
