// The N-D query drivers: scattered and gridded evaluation of every value plane with one
// method (InterpScatteredQueriesFtorND, InterpGriddedQueriesFtorND) or with an interpolation
// and an extrapolation method (InterpExtrapScatteredQueriesFtorND,
// InterpExtrapGriddedQueriesFtorND). The methods follow the concept documented in
// methods/InterpMethodND.hpp. Per query, each coordinate is found in its dimension by the
// interval search and turned into the method's pair; the kernel gets the d pairs and the
// thread's scratch. Gridded queries build the pairs once per query vector and walk the output
// with a multi-index counter. Loops: serial below 2048 points, else parallel with grain 1024.
// Per-thread scratch (buffers, pair arrays, counters) comes from one exemplar per evaluation,
// so nothing is allocated per point; method objects are only read during the loops.
#pragma once

#include "mathinterp/core/Drivers1D.hpp"
#include "mathinterp/core/NDBuffers.hpp"

#include <platform/HostAllocator.hpp>

#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace mathinterp {

namespace detail {

// What the drivers need of a method, with NoMethod standing for "no extrapolation method".
template <class M>
struct NDParts {
    using Pair = typename M::Pair;
    using Buffer = typename M::Buffer;
};
template <>
struct NDParts<NoMethod> {
    struct Pair {};
    using Buffer = NoBuffer;
};

template <class M>
using PairOf = typename NDParts<M>::Pair;

// Scattered single-method queries run in blocks: the pairs of a block first (dimension by
// dimension, so that the searches of neighbouring queries overlap) with a prefetch of what
// their kernels will read, then the kernels of the block before it.
inline constexpr u64 SCATTERED_BLOCK = 16;

// Methods with kernels specialised for 2-D and 3-D (kernelFixed<D>); the scattered loop is
// then compiled once per such D.
template <class M>
concept HasFixedKernel = requires(const M& m, const typename M::Pair* p) {
    m.template kernelFixed<2>(p);
    m.template kernelFixed<3>(p);
};

// Methods with a packed scattered path for queries of type Q (see LinearND).
template <class M, class Q>
concept HasSimdPath = M::template hasSimdPath<Q>; // false when M has no such member

// Methods with a whole-plane gridded path for some shapes (see LinearND).
template <class M>
concept HasSeparableGridded = requires(const M& m, const GriddedPairs<typename M::Pair>& t,
                                       typename M::ValueType* out) {
    { m.evaluateGriddedSeparable(t, out, u64{1}) } -> std::same_as<bool>;
};

template <class M>
concept HasPrefetch = requires(const M& m, const typename M::Pair* p) {
    m.prefetch(p);
};

// One thread's scratch for one evaluation.
template <class MI, class ME>
struct NDScratch {
    typename NDParts<MI>::Buffer bufI;
    typename NDParts<ME>::Buffer bufE;
    platform::HostVector<PairOf<MI>> pairsI;
    platform::HostVector<PairOf<ME>> pairsE;
    platform::HostVector<u64> indices;          // scattered: intervals; gridded: counter + end
    platform::HostVector<unsigned char> inside; // gridded with two methods: current inside bytes
};

template <class MI, class ME>
using NDScratchSet = tbb::enumerable_thread_specific<NDScratch<MI, ME>>;

template <class MI, class ME>
NDScratch<MI, ME> makeScratch(const MI& mi, const ME* me, u64 d) {
    NDScratch<MI, ME> s;
    s.bufI = mi.makeBuffer();
    if constexpr (!std::is_same_v<ME, NoMethod>) s.bufE = me->makeBuffer();
    s.pairsI.resize(checkedMul(2 * SCATTERED_BLOCK, d));
    if constexpr (!std::is_same_v<ME, NoMethod>) s.pairsE.resize(d);
    s.indices.resize(d + 1);
    s.inside.resize(d);
    return s;
}

// The interval search of every dimension for queries of type Q, formed once per evaluation.
template <class Q, class M>
platform::HostVector<IntervalSearch<typename M::GridType, Q>> searchesOf(const M& m) {
    platform::HostVector<IntervalSearch<typename M::GridType, Q>> s;
    s.reserve(m.numDims);
    for (u64 k = 0; k < m.numDims; ++k)
        s.emplace_back(m.axis(k));
    return s;
}

// Scattered queries: one array holding d columns of m coordinates one after another, or a
// cell of d arrays of m coordinates (one per dimension).
template <class Q>
QueryColumns<Q> scatteredColumns(const platform::HostArray& queries, u64 d, u64 m) {
    if (!queries.isCell()) return QueryColumns<Q>(static_cast<const Q*>(queries.rawData()), d, m);
    QueryColumns<Q> cols(nullptr, 0, m);
    cols.columns.resize(d);
    cols.numDims = d;
    for (u64 k = 0; k < d; ++k)
        cols.columns[k] = static_cast<const Q*>(queries.getCell(k).rawData());
    return cols;
}

// The counter (d digits and an end marker) at linear output index `begin`.
inline void startCounter(u64* c, u64 begin, const u64* lengths, u64 d, u64 total) noexcept {
    for (u64 k = 0; k <= d; ++k)
        c[k] = 0;
    if (begin == 0) return;
    if (begin == total) {
        c[d] = 1;
        return;
    }
    u64 p = total / lengths[d - 1];
    u64 rest = begin;
    for (u64 k = d - 1; k >= 1; --k) {
        c[k] = rest / p;
        rest = rest % p;
        p = p / lengths[k - 1];
    }
    c[0] = rest;
}

// Advance the counter by one; update(k) refreshes whatever depends on digit k.
template <class Update>
inline void advanceCounter(u64* c, const u64* lengths, u64 d, Update&& update) noexcept {
    for (u64 k = 0; k < d; ++k) {
        if (++c[k] < lengths[k]) {
            update(k);
            return;
        }
        c[k] = 0;
        update(k);
    }
    ++c[d];
}

// Queries [b, e) of d = D columns through m's packed kernel; a lane it leaves to the scalar
// kernel is searched and evaluated the scalar way (buf: the calling thread's kernel buffer).
template <u64 D, class M, class Search, class Q, class V, class Buf>
void scatteredPacked(const M& m, const Search* search, const Q* const* col, u64 b, u64 e, V* out,
                     u64 stride, Buf& buf) {
    auto one = [&](u64 q) {
        // Room for the fixed-dimension kernels kernel() picks among (up to 4-D): GCC cannot
        // see that numDims is D there.
        typename M::Pair p[D < 4 ? 4 : D];
        for (u64 k = 0; k < D; ++k)
            p[k] = m.makePair(k, col[k][q], search[k].find(col[k][q]));
        return m.kernel(p, buf);
    };
    m.template scatteredSimd<D>(col, b, e, out, stride, one);
}

} // namespace detail

template <class M, class Q>
struct InterpScatteredQueriesFtorND {
    using G = typename M::GridType;
    using V = typename M::ValueType;
    const M* method;
    const IntervalSearch<G, Q>* search;
    const QueryColumns<Q>* queries;
    V* out;
    u64 stride;
    detail::NDScratchSet<M, NoMethod>* scratch;

    void operator()(u64 b, u64 e) const {
        if constexpr (detail::HasFixedKernel<M> || detail::HasSimdPath<M, Q>) {
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
        const Q* const* col = queries->columns.data();
        auto& s = scratch->local();
        if constexpr (D != 0 && detail::HasSimdPath<M, Q>) {
            if (m.simdUsable()) {
                detail::scatteredPacked<D>(m, search, col, b, e, out, stride, s.bufI);
                return;
            }
        }
        const u64 d = D ? D : m.numDims;
        // Two blocks of pairs (SCATTERED_BLOCK x d each, point-major): while the kernels of
        // one block run, the values of the next are already on their way.
        typename M::Pair* cur = s.pairsI.data();
        typename M::Pair* next = cur + detail::SCATTERED_BLOCK * d;
        auto fill = [&](typename M::Pair* p, u64 q0, u64 n) {
            for (u64 k = 0; k < d; ++k) {
                const Q* x = col[k] + q0;
                const IntervalSearch<G, Q>& sk = search[k];
                for (u64 j = 0; j < n; ++j)
                    p[j * d + k] = m.makePair(k, x[j], sk.find(x[j]));
            }
            if constexpr (detail::HasPrefetch<M>)
                for (u64 j = 0; j < n; ++j)
                    m.prefetch(p + j * d);
        };
        u64 n = std::min(detail::SCATTERED_BLOCK, e - b);
        fill(cur, b, n);
        for (u64 q0 = b; q0 < e;) {
            const u64 q1 = q0 + n;
            const u64 nn = std::min(detail::SCATTERED_BLOCK, e - q1);
            if (nn) fill(next, q1, nn);
            for (u64 j = 0; j < n; ++j) {
                if constexpr (D != 0 && detail::HasFixedKernel<M>)
                    out[(q0 + j) * stride] = m.template kernelFixed<D>(cur + j * d);
                else
                    out[(q0 + j) * stride] = m.kernel(cur + j * d, s.bufI);
            }
            std::swap(cur, next);
            q0 = q1;
            n = nn;
        }
    }
};

// A point is inside when every coordinate lies in [g[0], g[n-1]] (NaN is outside).
template <class MI, class ME, class Q>
struct InterpExtrapScatteredQueriesFtorND {
    using G = typename MI::GridType;
    using V = typename MI::ValueType;
    const MI* method;
    const ME* extrap;
    const IntervalSearch<G, Q>* search;
    const QueryColumns<Q>* queries;
    V* out;
    u64 stride;
    detail::NDScratchSet<MI, ME>* scratch;

    void operator()(u64 b, u64 e) const {
        const MI& mi = *method;
        const ME& me = *extrap;
        auto& s = scratch->local();
        typename MI::Pair* pi = s.pairsI.data();
        typename ME::Pair* pe = s.pairsE.data();
        u64* idx = s.indices.data();
        const u64 d = mi.numDims;
        const Q* const* col = queries->columns.data();
        auto point = [&](u64 q) {
            bool inside = true;
            for (u64 k = 0; k < d; ++k) {
                bool in;
                idx[k] = search[k].find(col[k][q], in);
                if (!in) {
                    inside = false;
                    if constexpr (!ME::usesPairs) break;
                }
            }
            if (inside) {
                for (u64 k = 0; k < d; ++k)
                    pi[k] = mi.makePair(k, col[k][q], idx[k]);
                out[q * stride] = mi.kernel(pi, s.bufI);
            } else if constexpr (ME::usesPairs) {
                for (u64 k = 0; k < d; ++k)
                    pe[k] = me.makePair(k, col[k][q], idx[k]);
                out[q * stride] = me.kernel(pe, s.bufE);
            } else {
                out[q * stride] = me.kernel(pe, s.bufE);
            }
        };
        if constexpr (detail::HasSimdPath<MI, Q>) {
            if (mi.simdUsable() && (d == 2 || d == 3)) {
                if (d == 2)
                    packedThenOutside<2>(b, e, s, point);
                else
                    packedThenOutside<3>(b, e, s, point);
                return;
            }
        }
        for (u64 q = b; q < e; ++q)
            point(q);
    }

    // The interpolation method's packed kernel for every query (the same bits as its scalar
    // kernel inside the grid), then the points outside it (or with a NaN coordinate) again,
    // the scalar way: they take the extrapolation method.
    template <u64 D, class Scratch, class Point>
    void packedThenOutside(u64 b, u64 e, Scratch& s, Point& point) const {
        const MI& mi = *method;
        const Q* const* col = queries->columns.data();
        detail::scatteredPacked<D>(mi, search, col, b, e, out, stride, s.bufI);
        G lo[D], hi[D];
        for (u64 k = 0; k < D; ++k) {
            lo[k] = mi.gridVectors[k][0];
            hi[k] = mi.gridVectors[k][mi.gridSizes[k] - 1];
        }
        for (u64 q = b; q < e; ++q) {
            bool inside = true;
            for (u64 k = 0; k < D; ++k) {
                const Q x = col[k][q];
                inside = inside && (x >= lo[k] && x <= hi[k]); // NaN is outside
            }
            if (!inside) point(q);
        }
    }
};

template <class G, class V, class M, class Scratch = detail::NDScratchSet<M, NoMethod>>
struct InterpGriddedQueriesFtorND {
    using Pair = typename M::Pair;
    const M* method;
    const Pair* const* tables; // per dimension, one pair per query coordinate
    const u64* lengths;
    u64 total;
    V* out;
    u64 stride;
    Scratch* scratch;

    void operator()(u64 b, u64 e) const {
        const M& m = *method;
        auto& s = scratch->local();
        const u64 d = m.numDims;
        u64* c = s.indices.data();
        Pair* p = s.pairsI.data();
        detail::startCounter(c, b, lengths, d, total);
        for (u64 k = 0; k < d; ++k)
            p[k] = tables[k][c[k]];
        for (u64 j = b; j < e; ++j) {
            out[j * stride] = m.kernel(p, s.bufI);
            detail::advanceCounter(c, lengths, d, [&](u64 k) { p[k] = tables[k][c[k]]; });
        }
    }
};

template <class G, class V, class MI, class ME>
struct InterpExtrapGriddedQueriesFtorND {
    using PairI = typename MI::Pair;
    using PairE = typename ME::Pair;
    const MI* method;
    const ME* extrap;
    const PairI* const* tablesI;
    const PairE* const* tablesE;
    const unsigned char* const* insideTables; // 1: coordinate in [g[0], g[n-1]]
    const u64* lengths;
    u64 total;
    V* out;
    u64 stride;
    detail::NDScratchSet<MI, ME>* scratch;

    void operator()(u64 b, u64 e) const {
        const MI& mi = *method;
        const ME& me = *extrap;
        auto& s = scratch->local();
        const u64 d = mi.numDims;
        u64* c = s.indices.data();
        PairI* pi = s.pairsI.data();
        PairE* pe = s.pairsE.data();
        unsigned char* in = s.inside.data();
        auto refresh = [&](u64 k) {
            pi[k] = tablesI[k][c[k]];
            if constexpr (ME::usesPairs) pe[k] = tablesE[k][c[k]];
            in[k] = insideTables[k][c[k]];
        };
        detail::startCounter(c, b, lengths, d, total);
        for (u64 k = 0; k < d; ++k)
            refresh(k);
        for (u64 j = b; j < e; ++j) {
            bool inside = true;
            for (u64 k = 0; k < d; ++k) {
                if (!in[k]) {
                    inside = false;
                    break;
                }
            }
            out[j * stride] = inside ? mi.kernel(pi, s.bufI) : me.kernel(pe, s.bufE);
            detail::advanceCounter(c, lengths, d, refresh);
        }
    }
};

// The per-dimension tables of a gridded evaluation, built once from plane 0's method objects
// (pairs depend on the grid only) and shared by every plane.
template <class MI, class ME = NoMethod>
class GriddedTablesND {
public:
    using G = typename MI::GridType;
    static constexpr bool twoMethods = !std::is_same_v<ME, NoMethod>;
    using PairI = typename MI::Pair;
    using PairE = detail::PairOf<ME>;

    // vectors[k] points at the lengths[k] coordinates of dimension k (query precision Q).
    template <class Q>
    GriddedTablesND(const MI& mi, const ME* me, const Q* const* vectors, const u64* lengths)
        : lengths_(lengths, lengths + mi.numDims), total_(1) {
        const u64 d = mi.numDims;
        for (u64 k = 0; k < d; ++k)
            total_ = checkedMul(total_, lengths[k]);
        pairsI_.resize(d);
        ptrI_.resize(d);
        if constexpr (twoMethods) {
            pairsE_.resize(d);
            inside_.resize(d);
            ptrE_.resize(d);
            ptrIn_.resize(d);
        }
        for (u64 k = 0; k < d; ++k) {
            const IntervalSearch<G, Q> search(mi.axis(k));
            const u64 n = lengths[k];
            const Q* x = vectors[k];
            pairsI_[k].resize(n);
            if constexpr (twoMethods) {
                pairsE_[k].resize(n);
                inside_[k].resize(n);
                for (u64 j = 0; j < n; ++j) {
                    bool in;
                    const u64 i = search.find(x[j], in);
                    pairsI_[k][j] = mi.makePair(k, x[j], i);
                    pairsE_[k][j] = me->makePair(k, x[j], i);
                    inside_[k][j] = in ? 1 : 0;
                }
                ptrE_[k] = pairsE_[k].data();
                ptrIn_[k] = inside_[k].data();
            } else {
                for (u64 j = 0; j < n; ++j)
                    pairsI_[k][j] = mi.makePair(k, x[j], search.find(x[j]));
            }
            ptrI_[k] = pairsI_[k].data();
        }
    }

    u64 total() const noexcept { return total_; }
    u64 numDims() const noexcept { return lengths_.size(); }
    const u64* lengths() const noexcept { return lengths_.data(); }
    const PairI* const* pairsI() const noexcept { return ptrI_.data(); }
    const PairE* const* pairsE() const noexcept { return ptrE_.data(); }
    const unsigned char* const* inside() const noexcept { return ptrIn_.data(); }
    // Two methods: every query coordinate lies in its grid's range (no NaN).
    bool allInside() const noexcept {
        for (const auto& in : inside_)
            for (const unsigned char b : in)
                if (!b) return false;
        return true;
    }
    GriddedPairs<PairI> view() const noexcept {
        return {ptrI_.data(), lengths_.data(), numDims(), total_};
    }

private:
    platform::HostVector<u64> lengths_;
    u64 total_;
    platform::HostVector<platform::HostVector<PairI>> pairsI_;
    platform::HostVector<platform::HostVector<PairE>> pairsE_;
    platform::HostVector<platform::HostVector<unsigned char>> inside_;
    platform::HostVector<const PairI*> ptrI_;
    platform::HostVector<const PairE*> ptrE_;
    platform::HostVector<const unsigned char*> ptrIn_;
};

// Run one plane's gridded loop over prepared tables. scratch: per-thread scratch of this
// evaluation (made from the plane-0 exemplar).
template <class MI, class ME>
void runGriddedPlaneND(const MI& mi, const ME* me, const GriddedTablesND<MI, ME>& t,
                       typename MI::ValueType* out, u64 stride,
                       detail::NDScratchSet<MI, ME>& scratch) {
    using G = typename MI::GridType;
    using V = typename MI::ValueType;
    // One method, or two with every point inside: the interpolation method alone, on the same
    // pairs (so the same bits), through its whole-plane path where it has one.
    bool single = true;
    if constexpr (!std::is_same_v<ME, NoMethod>) single = t.allInside();
    if (single) {
        if constexpr (detail::HasSeparableGridded<MI>)
            if (mi.evaluateGriddedSeparable(t.view(), out, stride)) return;
        InterpGriddedQueriesFtorND<G, V, MI, detail::NDScratchSet<MI, ME>> f{
            &mi, t.pairsI(), t.lengths(), t.total(), out, stride, &scratch};
        forEachRange(t.total(), f);
        return;
    }
    if constexpr (!std::is_same_v<ME, NoMethod>) {
        InterpExtrapGriddedQueriesFtorND<G, V, MI, ME> f{
            &mi,         me,        t.pairsI(), t.pairsE(), t.inside(),
            t.lengths(), t.total(), out,        stride,     &scratch};
        forEachRange(t.total(), f);
    }
}

// methods: one method object per plane; extraps: null, or one extrapolation object per plane.
// m: number of scattered points; queries: d columns of m coordinates.
template <class M, class ME = NoMethod>
void evaluateScatteredND(const std::vector<std::unique_ptr<M>>& methods,
                         const std::type_identity_t<std::vector<std::unique_ptr<ME>>>* extraps,
                         u64 m, const platform::HostArray& queries, platform::HostArray& out) {
    using V = typename M::ValueType;
    constexpr bool twoMethods = !std::is_same_v<ME, NoMethod>;
    const u64 planes = methods.size();
    if (planes == 0 || m == 0) return;
    const u64 d = methods[0]->numDims;
    if (d == 0) return;
    for (u64 k = 0; k < planes; ++k) {
        methods[k]->prepareForPoints();
        if constexpr (twoMethods) (*extraps)[k]->prepareForPoints();
    }
    const ME* me0 = nullptr;
    if constexpr (twoMethods) me0 = (*extraps)[0].get();
    detail::NDScratchSet<M, ME> scratch(detail::makeScratch(*methods[0], me0, d));

    auto run = [&](auto queryTag) {
        using Q = decltype(queryTag);
        const QueryColumns<Q> cols = detail::scatteredColumns<Q>(queries, d, m);
        const auto search = detail::searchesOf<Q>(*methods[0]);
        for (u64 k = 0; k < planes; ++k) {
            const PlaneOutput<V> po = planeOutput<V>(out, k, planes, m);
            if constexpr (!twoMethods) {
                InterpScatteredQueriesFtorND<M, Q> f{methods[k].get(), search.data(), &cols,
                                                     po.out,           po.stride,     &scratch};
                forEachRange(m, f);
            } else {
                InterpExtrapScatteredQueriesFtorND<M, ME, Q> f{
                    methods[k].get(), (*extraps)[k].get(), search.data(), &cols,
                    po.out,           po.stride,           &scratch};
                forEachRange(m, f);
            }
        }
    };
    if (queryIsDouble(queries))
        run(double{});
    else
        run(float{});
}

// queryVectors: a cell of d query vectors (all of one class); results column-major over their
// lengths, plane k from element k * (product of the lengths).
template <class M, class ME = NoMethod>
void evaluateGriddedND(const std::vector<std::unique_ptr<M>>& methods,
                       const std::type_identity_t<std::vector<std::unique_ptr<ME>>>* extraps,
                       const platform::HostArray& queryVectors, platform::HostArray& out) {
    using V = typename M::ValueType;
    constexpr bool twoMethods = !std::is_same_v<ME, NoMethod>;
    constexpr bool wholeGridPath = !twoMethods && M::hasGriddedPath;
    const u64 planes = methods.size();
    if (planes == 0) return;
    const u64 d = methods[0]->numDims;
    if (d == 0) return;

    platform::HostVector<platform::HostArray> vectors(d);
    platform::HostVector<u64> lengths(d);
    u64 total = 1;
    for (u64 k = 0; k < d; ++k) {
        vectors[k] = queryVectors.isCell() ? queryVectors.getCell(k) : queryVectors;
        lengths[k] = vectors[k].numberOfElements();
        total = checkedMul(total, lengths[k]);
    }
    if (total == 0) return;

    for (u64 k = 0; k < planes; ++k) {
        if constexpr (wholeGridPath) {
            methods[k]->prepare();
        } else {
            methods[k]->prepareForPoints();
            if constexpr (twoMethods) (*extraps)[k]->prepareForPoints();
        }
    }
    const ME* me0 = nullptr;
    if constexpr (twoMethods) me0 = (*extraps)[0].get();

    auto run = [&](auto queryTag) {
        using Q = decltype(queryTag);
        platform::HostVector<const Q*> x(d);
        for (u64 k = 0; k < d; ++k)
            x[k] = static_cast<const Q*>(vectors[k].rawData());
        const GriddedTablesND<M, ME> tables(*methods[0], me0, x.data(), lengths.data());
        if constexpr (wholeGridPath) {
            for (u64 k = 0; k < planes; ++k) {
                const PlaneOutput<V> po = planeOutput<V>(out, k, planes, total);
                methods[k]->evaluateGriddedPlane(tables.view(), po.out, po.stride);
            }
        } else {
            detail::NDScratchSet<M, ME> scratch(detail::makeScratch(*methods[0], me0, d));
            for (u64 k = 0; k < planes; ++k) {
                const PlaneOutput<V> po = planeOutput<V>(out, k, planes, total);
                const ME* me = nullptr;
                if constexpr (twoMethods) me = (*extraps)[k].get();
                runGriddedPlaneND<M, ME>(*methods[k], me, tables, po.out, po.stride, scratch);
            }
        }
    };
    if (queryIsDouble(queryVectors))
        run(double{});
    else
        run(float{});
}

} // namespace mathinterp
