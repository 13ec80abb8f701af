// The gradient drivers: the query loops of evaluation (same interval search, same oneTBB
// loop and grain, same query layouts) around the derivative kernels of methods/Gradient1D.hpp
// and methods/GradientND.hpp. One method runs per pass: a method alone covers every query
// (Region::All); with an extrapolation method, one pass of the interpolation method covers
// the queries in the closed grid box and one pass of the extrapolation method the others
// (NaN coordinates included), so each method's loop is compiled once, not once per pair.
// Output: the d components of value plane k go to blocks k*d + j (j the dimension) of
// `count` results each, complex output interleaved as in evaluation (real planes first).
// Every result depends on its query alone, so results are the same for any thread count.
#pragma once

#include "mathinterp/core/DriversND.hpp"

#include <memory>
#include <vector>

namespace mathinterp {

enum class Region { All, Inside, Outside };

// The derivative kernels (methods/Gradient1D.hpp, methods/GradientND.hpp).
template <class M>
struct Derivative1D;
template <class M>
struct GradientND;

namespace detail {
template <Region R>
inline bool wanted(bool inside) noexcept {
    if constexpr (R == Region::Inside)
        return inside;
    else
        return !inside;
}
} // namespace detail

// ---- 1-D ------------------------------------------------------------------------------------

template <class M, int Order, Region R, class Q>
struct DerivativeFtor1D {
    using V = typename M::ValueType;
    const M* method;
    const Q* x;
    V* out;
    u64 stride;

    void operator()(u64 b, u64 e) const {
        const M& m = *method;
        const IntervalSearch<typename M::GridType, Q> search(m);
        for (u64 i = b; i < e; ++i) {
            const Q xi = x[i];
            if constexpr (R == Region::All) {
                out[i * stride] = Derivative1D<M>::template at<Order>(m, xi, search.find(xi));
            } else {
                bool in;
                const u64 j = search.find(xi, in);
                if (detail::wanted<R>(in))
                    out[i * stride] = Derivative1D<M>::template at<Order>(m, xi, j);
            }
        }
    }
};

// Every plane of one method over `count` queries (a column of query type per `queries`).
template <class M, int Order, Region R>
void derivativePlanes1D(const std::vector<std::unique_ptr<M>>& methods,
                        const platform::HostArray& queries, const void* queryData, u64 count,
                        platform::HostArray& out) {
    using V = typename M::ValueType;
    const u64 planes = methods.size();
    if (planes == 0 || count == 0) return;
    auto run = [&](auto queryTag) {
        using Q = decltype(queryTag);
        for (u64 k = 0; k < planes; ++k) {
            methods[k]->complete();
            const PlaneOutput<V> po = planeOutput<V>(out, k, planes, count);
            DerivativeFtor1D<M, Order, R, Q> f{methods[k].get(), static_cast<const Q*>(queryData),
                                               po.out, po.stride};
            forEachRange(count, f);
        }
    };
    if (queryIsDouble(queries))
        run(double{});
    else
        run(float{});
}

// ---- N-D ------------------------------------------------------------------------------------

namespace detail {

template <class M>
struct GradientScratchND {
    using K = GradientND<M>;
    typename K::Scratch kernel;
    platform::HostVector<typename K::Coord> coords; // two blocks of SCATTERED_BLOCK points
    platform::HostVector<typename M::ValueType> g;  // one query's d components
    platform::HostVector<u64> counter;              // gridded: d digits and an end marker
};

template <class M>
using GradientScratchSet = tbb::enumerable_thread_specific<GradientScratchND<M>>;

template <class M>
GradientScratchND<M> makeGradientScratch(const M& m) {
    const u64 d = m.numDims;
    GradientScratchND<M> s;
    s.kernel = GradientND<M>::makeScratch(m);
    s.coords.resize(checkedMul(2 * SCATTERED_BLOCK, d));
    s.g.resize(d);
    s.counter.resize(d + 1);
    return s;
}

// Kernels with a packed scattered path for queries of type Q (see GradientND<LinearND>).
template <class M, class Q>
concept HasPackedGradient = GradientND<M>::template hasPacked<Q>; // false without the member

// Kernels with a whole-grid path for gridded queries (GradientND<SplineND>, <LinearND>):
// griddedPlane returns false when it does not suit (the per-point loop runs instead);
// griddedPreparesItself: no prepare() before it (the spline's tensor table is not needed).
template <class M>
concept HasGriddedGradient = GradientND<M>::hasGriddedPlane; // false without the member

template <class M>
concept HasGradientPrefetch = requires(const M& m, const typename GradientND<M>::Coord* c) {
    GradientND<M>::prefetch(m, c);
};

} // namespace detail

// Scattered queries of one plane; outs[j]: component j's results (step `stride`).
template <class M, Region R, class Q>
struct GradientScatteredFtorND {
    using G = typename M::GridType;
    using V = typename M::ValueType;
    using K = GradientND<M>;
    const M* method;
    const IntervalSearch<G, Q>* search;
    const QueryColumns<Q>* queries;
    V* const* outs;
    u64 stride;
    detail::GradientScratchSet<M>* scratch;
    const void* packed; // K::Packed of this evaluation, when the kernel has a packed path

    void operator()(u64 b, u64 e) const {
        if constexpr (R == Region::All) {
            switch (method->numDims) {
            case 2:
                return run<2>(b, e);
            case 3:
                return run<3>(b, e);
            default:
                break;
            }
        }
        run<0>(b, e);
    }

    // D > 0: the dimension count, known at compile time; D = 0: any.
    template <u64 D>
    void run(u64 b, u64 e) const {
        const M& m = *method;
        auto& s = scratch->local();
        const u64 d = D ? D : m.numDims;
        const Q* const* col = queries->columns.data();
        V* g = s.g.data();
        auto write = [&](u64 q) {
            for (u64 j = 0; j < d; ++j)
                outs[j][q * stride] = g[j];
        };
        typename K::Coord* cur = s.coords.data();
        if constexpr (D != 0 && detail::HasPackedGradient<M, Q>) {
            const auto& p = *static_cast<const typename K::Packed*>(packed);
            if (K::packedUsable(p)) {
                auto one = [&](u64 q) {
                    typename K::Coord c[D];
                    for (u64 k = 0; k < D; ++k)
                        c[k] = K::coord(m, k, col[k][q], search[k].find(col[k][q]));
                    K::template atD<D>(m, c, g, s.kernel);
                    write(q);
                };
                K::template scatteredPacked<D>(m, p, col, b, e, outs, stride, one);
                return;
            }
        }
        if constexpr (R != Region::All) {
            for (u64 q = b; q < e; ++q) {
                bool inside = true;
                for (u64 k = 0; k < d; ++k) {
                    bool in;
                    const u64 i = search[k].find(col[k][q], in);
                    inside = inside && in;
                    cur[k] = K::coord(m, k, col[k][q], i);
                }
                if (!detail::wanted<R>(inside)) continue;
                K::at(m, cur, g, s.kernel);
                write(q);
            }
        } else {
            // Blocks as in evaluation: the coordinates of the next block (with a prefetch of
            // what its kernels read) before the kernels of this one.
            typename K::Coord* next = cur + detail::SCATTERED_BLOCK * d;
            auto fill = [&](typename K::Coord* c, u64 q0, u64 n) {
                for (u64 k = 0; k < d; ++k) {
                    const Q* x = col[k] + q0;
                    const IntervalSearch<G, Q>& sk = search[k];
                    for (u64 j = 0; j < n; ++j)
                        c[j * d + k] = K::coord(m, k, x[j], sk.find(x[j]));
                }
                if constexpr (detail::HasGradientPrefetch<M>)
                    for (u64 j = 0; j < n; ++j)
                        K::prefetch(m, c + j * d);
            };
            u64 n = std::min(detail::SCATTERED_BLOCK, e - b);
            fill(cur, b, n);
            for (u64 q0 = b; q0 < e;) {
                const u64 q1 = q0 + n;
                const u64 nn = std::min(detail::SCATTERED_BLOCK, e - q1);
                if (nn) fill(next, q1, nn);
                for (u64 j = 0; j < n; ++j) {
                    K::template atD<D>(m, cur + j * d, g, s.kernel);
                    write(q0 + j);
                }
                std::swap(cur, next);
                q0 = q1;
                n = nn;
            }
        }
    }
};

// A full grid of queries for one plane: per dimension the coordinates of its query vector
// (and whether each lies in the grid's range), walked with the evaluation's counter.
template <class M, Region R>
struct GradientGriddedFtorND {
    using V = typename M::ValueType;
    using K = GradientND<M>;
    const M* method;
    const typename K::Coord* const* tables;
    const unsigned char* const* insideTables;
    const u64* lengths;
    u64 total;
    V* const* outs;
    u64 stride;
    detail::GradientScratchSet<M>* scratch;

    void operator()(u64 b, u64 e) const {
        switch (method->numDims) {
        case 2:
            return run<2>(b, e);
        case 3:
            return run<3>(b, e);
        default:
            return run<0>(b, e);
        }
    }

    // D > 0: the dimension count, known at compile time; D = 0: any.
    template <u64 D>
    void run(u64 b, u64 e) const {
        const M& m = *method;
        auto& s = scratch->local();
        const u64 d = m.numDims;
        u64* c = s.counter.data();
        typename K::Coord* p = s.coords.data();
        V* g = s.g.data();
        detail::startCounter(c, b, lengths, d, total);
        for (u64 k = 0; k < d; ++k)
            p[k] = tables[k][c[k]];
        for (u64 q = b; q < e; ++q) {
            bool run = true;
            if constexpr (R != Region::All) {
                bool inside = true;
                for (u64 k = 0; k < d; ++k)
                    inside = inside && insideTables[k][c[k]] != 0;
                run = detail::wanted<R>(inside);
            }
            if (run) {
                K::template atD<D>(m, p, g, s.kernel);
                for (u64 j = 0; j < d; ++j)
                    outs[j][q * stride] = g[j];
            }
            detail::advanceCounter(c, lengths, d, [&](u64 k) { p[k] = tables[k][c[k]]; });
        }
    }
};

// Every plane of one N-D method. gridded: queries is a cell of d query vectors (results
// column-major over their lengths); else m scattered points (d columns, or a cell of d).
template <class M, Region R>
void gradientPlanesND(const std::vector<std::unique_ptr<M>>& methods, bool gridded, u64 m,
                      const platform::HostArray& queries, platform::HostArray& out) {
    using V = typename M::ValueType;
    using K = GradientND<M>;
    using Coord = typename K::Coord;
    const u64 planes = methods.size();
    if (planes == 0) return;
    const u64 d = methods[0]->numDims;
    if (d == 0) return;
    platform::HostVector<platform::HostArray> vectors;
    platform::HostVector<u64> lengths;
    u64 count = m;
    if (gridded) {
        vectors.resize(d);
        lengths.resize(d);
        count = 1;
        for (u64 k = 0; k < d; ++k) {
            vectors[k] = queries.isCell() ? queries.getCell(k) : queries;
            lengths[k] = vectors[k].numberOfElements();
            count = checkedMul(count, lengths[k]);
        }
    }
    if (count == 0) return;
    constexpr bool wholeGrid = R == Region::All && detail::HasGriddedGradient<M>;
    bool prepared = false;
    if constexpr (wholeGrid) prepared = gridded && K::griddedPreparesItself;
    if (!prepared)
        for (u64 k = 0; k < planes; ++k)
            K::prepare(*methods[k]);
    detail::GradientScratchSet<M> scratch(detail::makeGradientScratch(*methods[0]));
    platform::HostVector<V*> outs(d);
    auto planeOutputs = [&](u64 k) {
        PlaneOutput<V> po{};
        for (u64 j = 0; j < d; ++j) {
            po = planeOutput<V>(out, k * d + j, planes * d, count);
            outs[j] = po.out;
        }
        return po.stride;
    };

    auto run = [&](auto queryTag) {
        using Q = decltype(queryTag);
        const M& m0 = *methods[0];
        if (!gridded) {
            const QueryColumns<Q> cols = detail::scatteredColumns<Q>(queries, d, m);
            const auto search = detail::searchesOf<Q>(m0);
            // Packed tables depend on the grid only: made once, from plane 0's object.
            const auto tables = [&] {
                if constexpr (detail::HasPackedGradient<M, Q>)
                    return K::makePacked(m0);
                else
                    return 0;
            }();
            const void* packed = &tables;
            for (u64 k = 0; k < planes; ++k) {
                const u64 stride = planeOutputs(k);
                GradientScatteredFtorND<M, R, Q> f{
                    methods[k].get(), search.data(), &cols, outs.data(), stride, &scratch, packed};
                forEachRange(m, f);
            }
            return;
        }
        // Coordinates depend on the grid only: built once, from plane 0's object.
        platform::HostVector<platform::HostVector<Coord>> coords(d);
        platform::HostVector<platform::HostVector<unsigned char>> inside(d);
        platform::HostVector<const Coord*> coordPtr(d);
        platform::HostVector<const unsigned char*> insidePtr(d);
        for (u64 k = 0; k < d; ++k) {
            const IntervalSearch<typename M::GridType, Q> search(m0.axis(k));
            const Q* x = static_cast<const Q*>(vectors[k].rawData());
            coords[k].resize(lengths[k]);
            inside[k].resize(lengths[k]);
            for (u64 j = 0; j < lengths[k]; ++j) {
                bool in;
                const u64 i = search.find(x[j], in);
                coords[k][j] = K::coord(m0, k, x[j], i);
                inside[k][j] = in ? 1 : 0;
            }
            coordPtr[k] = coords[k].data();
            insidePtr[k] = inside[k].data();
        }
        for (u64 k = 0; k < planes; ++k) {
            const u64 stride = planeOutputs(k);
            if constexpr (wholeGrid)
                if (K::griddedPlane(*methods[k], coordPtr.data(), lengths.data(), count,
                                    outs.data(), stride))
                    continue;
            GradientGriddedFtorND<M, R> f{methods[k].get(), coordPtr.data(), insidePtr.data(),
                                          lengths.data(),   count,           outs.data(),
                                          stride,           &scratch};
            forEachRange(count, f);
        }
    };
    if (queryIsDouble(queries))
        run(double{});
    else
        run(float{});
}

} // namespace mathinterp
