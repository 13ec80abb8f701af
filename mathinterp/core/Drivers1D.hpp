// The 1-D query functors (bodies of the query loops) and the per-plane driver. A functor
// holds pointers only: the method object(s), the query column, the output and its stride.
// Gridded 1-D queries are one vector and run through the same scattered functors.
#pragma once

#include "mathinterp/core/FindInterval.hpp"
#include "mathinterp/core/Parallel.hpp"
#include "mathinterp/core/QueryColumns.hpp"

#include <memory>
#include <type_traits>
#include <vector>

namespace mathinterp {

namespace detail {
// Methods with a packed scattered path for queries of type Q (see methods/Packed1D.hpp).
template <class M, class Q>
concept HasPackedPath1D = M::template hasSimdPath<Q>; // false when M has no such member
} // namespace detail

template <class M, class Q>
struct InterpScatteredQueriesFtor1D {
    using V = typename M::ValueType;
    const M* method;
    const QueryColumns<Q>* queries;
    V* out;
    u64 stride;

    void operator()(u64 b, u64 e) const {
        const Q* x = queries->columns[0];
        const M& m = *method;
        const IntervalSearch<typename M::GridType, Q> search(m);
        if constexpr (detail::HasPackedPath1D<M, Q>) {
            if (m.simdUsable()) {
                auto one = [&](u64 q) { return m.kernel(x[q], search.find(x[q])); };
                m.scatteredSimd(x, b, e, out, stride, one);
                return;
            }
        }
        for (u64 i = b; i < e; ++i) {
            const Q xi = x[i];
            out[i * stride] = m.kernel(xi, search.find(xi));
        }
    }
};

template <class MI, class ME, class Q>
struct InterpExtrapScatteredQueriesFtor1D {
    using V = typename MI::ValueType;
    const MI* method;
    const ME* extrap;
    const QueryColumns<Q>* queries;
    V* out;
    u64 stride;

    void operator()(u64 b, u64 e) const {
        const Q* x = queries->columns[0];
        const MI& mi = *method;
        const ME& me = *extrap;
        const IntervalSearch<typename MI::GridType, Q> search(mi);
        for (u64 i = b; i < e; ++i) {
            const Q xi = x[i];
            bool inRange;
            const u64 j = search.find(xi, inRange);
            out[i * stride] = inRange ? mi.kernel(xi, j) : me.kernel(xi, j);
        }
    }
};

// Stands for "no extrapolation method" in the drivers.
struct NoMethod {};

// Run every plane: complete the method's caches on the calling thread, then the query loop.
// count: queries per plane (also the step between value-set blocks of the output).
template <class M, class ME = NoMethod>
void evaluatePlanes1D(const std::vector<std::unique_ptr<M>>& methods,
                      const std::type_identity_t<std::vector<std::unique_ptr<ME>>>* extraps,
                      const platform::HostArray& queries, const void* queryData, u64 count,
                      platform::HostArray& out) {
    using V = typename M::ValueType;
    const u64 planes = methods.size();
    auto run = [&](auto queryTag) {
        using Q = decltype(queryTag);
        const QueryColumns<Q> cols(static_cast<const Q*>(queryData), 1, count);
        for (u64 k = 0; k < planes; ++k) {
            methods[k]->complete();
            const PlaneOutput<V> po = planeOutput<V>(out, k, planes, count);
            if constexpr (std::is_same_v<ME, NoMethod>) {
                InterpScatteredQueriesFtor1D<M, Q> f{methods[k].get(), &cols, po.out, po.stride};
                forEachRange(count, f);
            } else {
                (*extraps)[k]->complete();
                InterpExtrapScatteredQueriesFtor1D<M, ME, Q> f{
                    methods[k].get(), (*extraps)[k].get(), &cols, po.out, po.stride};
                forEachRange(count, f);
            }
        }
    };
    if (planes == 0 || count == 0) return;
    if (queryIsDouble(queries))
        run(double{});
    else
        run(float{});
}

} // namespace mathinterp
