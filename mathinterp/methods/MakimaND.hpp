// MakimaND: modified Akima ("makima") interpolation in N dimensions, computed by the host's
// AkimaFixedGridService: per grid node the 2^d derivative tensors of the 1-D modified Akima
// operator, then tensor-product cubic Hermite evaluation on the query's cell (docs/makima.md).
// prepare() precomputes the service's block once, under a guard. A scattered query reads its
// cell's 2^d nodes straight from the block through the service's inline cell evaluation
// (unrolled for 2-D and 3-D, prefetched a block of queries ahead); a full grid of queries is
// reduced one dimension at a time by the service's gridded passes, dimension 0 first, which
// are the same steps on the same data and so give the scattered bits. Outside the grid the
// end cells' cubics continue. Grid points are returned exactly; NaN results are the engine's.
#pragma once

#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/core/Parallel.hpp"
#include "mathinterp/methods/InterpMethodND.hpp"
#include "mathinterp/methods/Makima1D.hpp"
#include "mathinterp/methods/PiecewiseCubic.hpp"

#include <platform/AkimaFixedGridService.hpp>
#include <platform/HostAllocator.hpp>

#include <algorithm>
#include <type_traits>

namespace mathinterp {

namespace detail {
// NaN results (NaN queries or values) are written as the engine's NaN.
template <class V>
inline V makimaResult(V r) noexcept {
    return isNaN(r) ? engineNaN<V>() : r;
}
} // namespace detail

template <class G, class V>
class MakimaND final : public InterpMethodND<G, V> {
    using Base = InterpMethodND<G, V>;

public:
    static constexpr bool available = true;
    static constexpr bool hasGriddedPath = true;

    // The query's interval, its local coordinate t = (x - g[i]) / (g[i+1] - g[i]) formed in the
    // grid type and the cell width h, both converted to the value type as the service does.
    struct Pair {
        u64 index;
        V t;
        V h;
    };
    // The general kernel's 2^d x 2^d Hermite data.
    using Buffer = DefaultBuffer<V>;

    MakimaND(const G* const* grids, const u64* sizes, const V* valuesPlane, u64 d)
        : Base(grids, sizes, valuesPlane, d), nodeEntries(checkedPow2(d)), cornerSteps(d),
          cornerOffsets(detail::zeroFilled<u64>(nodeEntries)) { // too many corners: bad_alloc
        // A corner's entries lie 2^d times its node offset away; a dimension of one point
        // has a single grid line, which both corners use.
        cornerOffsets[0] = 0;
        for (u64 j = 0; j < d; ++j) {
            cornerSteps[j] = sizes[j] > 1 ? this->strides[j] * nodeEntries : 0;
            const u64 half = u64{1} << j;
            for (u64 c = 0; c < half; ++c)
                cornerOffsets[half + c] = cornerOffsets[c] + cornerSteps[j];
        }
    }

    void prepare() override {
        guard_.ensure([this] {
            const u64 d = this->numDims;
            const u64* dims = this->gridSizes.data();
            u64 ws1Length = 0, ws2Length = 0, resultLength = 0;
            platform::akimaFixedGrid_precomputeWS(d, dims, &ws1Length, &ws2Length, &resultLength);
            // The block and both workspaces live together: all must fit before any is made.
            platform::checkMemoryFits(
                checkedAdd(checkedBytes<V>(checkedAdd(resultLength, ws1Length)),
                           checkedBytes<u64>(ws2Length)));
            platform::HostVector<V> block = detail::zeroFilled<V>(resultLength);
            platform::HostVector<V> ws1 = detail::zeroFilled<V>(ws1Length);
            platform::HostVector<u64> ws2 = detail::zeroFilled<u64>(ws2Length);
            if constexpr (std::is_same_v<V, double>)
                platform::akimaFixedGrid_precompute_double(d, dims, this->gridVectors.data(),
                                                           this->values, ws1.data(), ws2.data(),
                                                           block.data());
            else
                platform::akimaFixedGrid_precompute_float(d, dims, this->gridVectors.data(),
                                                          this->values, ws1.data(), ws2.data(),
                                                          block.data());
            precomputedData.swap(block);
        });
    }

    // The block derives from the values: dropped here, rebuilt by the next prepare().
    void rebindValues(const V* plane) noexcept {
        Base::rebindValues(plane);
        guard_.reset();
        platform::HostVector<V>().swap(precomputedData);
    }

    Buffer makeBuffer() const { return Buffer(checkedPow4(this->numDims)); }

    template <class Q>
    Pair makePair(u64 k, Q xq, u64 i) const noexcept {
        if (this->gridSizes[k] < 2) return {0, V(0), V(0)};
        const G x = static_cast<G>(xq);
        const G* g = this->gridVectors[k];
        return {i, static_cast<V>((x - g[i]) / (g[i + 1] - g[i])),
                static_cast<V>(g[i + 1]) - static_cast<V>(g[i])};
    }

    // 2-D and 3-D: the service's cell evaluation with the dimension count known.
    template <u64 D>
    V kernelFixed(const Pair* p) const noexcept {
        V t[D], h[D];
        for (u64 j = 0; j < D; ++j) {
            t[j] = p[j].t;
            h[j] = p[j].h;
        }
        return detail::makimaResult(
            platform::akimaFixedGrid_interpolateCell<D>(corner(p), cornerSteps.data(), t, h));
    }

    // Any d: the service's loop, dimension 0 first, over the cell's 2^d x 2^d Hermite data.
    V kernel(const Pair* p, Buffer& scratch) const noexcept {
        const u64 d = this->numDims;
        const u64 K = nodeEntries;
        V* A = scratch.data(); // A[S K + c]: entry S of corner c
        const V* at = corner(p);
        for (u64 c = 0; c < K; ++c)
            for (u64 S = 0; S < K; ++S)
                A[S * K + c] = at[cornerOffsets[c] + S];
        for (u64 j = 0; j < d; ++j) {
            const u64 r = d - j;
            const u64 half = u64{1} << (r - 1);
            for (u64 S = 0; S < half; ++S) {
                const V* lo = A + ((2 * S) << r);
                const V* hi = A + ((2 * S + 1) << r);
                for (u64 c = 0; c < half; ++c)
                    A[(S << (r - 1)) | c] = platform::akima_detail::hermiteStep(
                        lo[2 * c], lo[2 * c + 1], hi[2 * c], hi[2 * c + 1], p[j].t, p[j].h);
            }
        }
        return detail::makimaResult(A[0]);
    }

    // Ask for the cell's nodes ahead of the kernel (results do not depend on it): per pair of
    // corners along dimension 0 one run of 2^(d+1) entries, so 2 runs in 2-D and 4 in 3-D.
    void prefetch(const Pair* p) const noexcept {
        const u64 d = this->numDims;
        if (d > 4) return;
        const V* at = corner(p);
        const u64 bytes = (2 * nodeEntries - 1) * sizeof(V);
        for (u64 c = 0; c < nodeEntries; c += 2) {
            const char* first = reinterpret_cast<const char*>(at + cornerOffsets[c]);
            for (u64 b = 0; b < bytes; b += 64)
                prefetchLine(first + b);
            prefetchLine(first + bytes);
        }
    }

    // A full grid of queries for this plane: results column-major over the query lengths,
    // result j at out[j * stride]. Pass j reduces dimension j for every combination of the
    // queries of dimensions < j and the nodes of dimensions > j; the last pass writes out.
    void evaluateGriddedPlane(const GriddedPairs<Pair>& q, V* out, u64 stride);

    // The service's result block for this plane; empty until prepared.
    platform::HostVector<V> precomputedData;
    u64 nodeEntries;                         // 2^d: entries per node in the block
    platform::HostVector<u64> cornerSteps;   // per dimension: elements to the upper corner
    platform::HostVector<u64> cornerOffsets; // per corner: elements from the lowest one

private:
    const V* corner(const Pair* p) const noexcept {
        u64 node = 0;
        for (u64 j = 0; j < this->numDims; ++j)
            node += p[j].index * this->strides[j];
        return precomputedData.data() + node * nodeEntries;
    }

    OnceGuard guard_;
};

template <class G, class V>
void MakimaND<G, V>::evaluateGriddedPlane(const GriddedPairs<Pair>& q, V* out, u64 stride) {
    const u64 d = this->numDims;
    const u64* n = this->gridSizes.data();
    const u64* m = q.lengths;
    if (q.total == 0) return;

    // Sizes first, overflow-checked: pass j keeps L_j = 2^(d-1-j) m_0 ... m_(j-1) entries per
    // unit and has m_j n_(j+1) ... n_(d-1) units. Passes 0 .. d-2 write intermediates (two,
    // alternating, from pass 1 on), pass d-1 the output; the per-dimension query tables
    // (index, t and h of every query coordinate) live throughout.
    platform::HostVector<u64> L(d), units(d);
    u64 largest = 0, queryCoordinates = 0;
    for (u64 j = 0; j < d; ++j) {
        u64 l = u64{1} << (d - 1 - j), u = m[j];
        for (u64 i = 0; i < j; ++i)
            l = checkedMul(l, m[i]);
        for (u64 i = j + 1; i < d; ++i)
            u = checkedMul(u, n[i]);
        L[j] = l;
        units[j] = u;
        if (j + 1 < d) largest = std::max(largest, checkedMul(l, u));
        queryCoordinates = checkedAdd(queryCoordinates, m[j]);
    }
    const u64 buffers = d > 2 ? 2 : (d > 1 ? 1 : 0);
    platform::checkMemoryFits(
        checkedAdd(checkedAdd(checkedBytes<V>(checkedMul(buffers, largest)),
                              checkedBytes<V>(checkedMul(2, queryCoordinates))),
                   checkedBytes<u64>(queryCoordinates)));
    prepare();

    HostBlock<V> tables = allocateHostBlock<V>(2 * queryCoordinates);
    platform::HostVector<u64> indices(queryCoordinates);
    HostBlock<V> first, second;
    if (buffers > 0) first = allocateHostBlock<V>(largest);
    if (buffers > 1) second = allocateHostBlock<V>(largest);

    const V* in = precomputedData.data();
    u64 at = 0;
    for (u64 j = 0; j < d; ++j) {
        u64* k = indices.data() + at;
        V* t = tables.get() + 2 * at;
        V* h = t + m[j];
        for (u64 i = 0; i < m[j]; ++i) {
            k[i] = q.tables[j][i].index;
            t[i] = q.tables[j][i].t;
            h[i] = q.tables[j][i].h;
        }
        at += m[j];
        const bool last = j + 1 == d;
        V* dst = last ? out : (j % 2 == 0 ? first.get() : second.get());
        const u64 w = last ? stride : 1;
        struct Body {
            u64 L, n, m;
            const V* in;
            const u64* k;
            const V *t, *h;
            V* dst;
            u64 w;
            bool last;
            void operator()(u64 b, u64 e) const noexcept {
                if constexpr (std::is_same_v<V, double>)
                    platform::akimaFixedGrid_griddedPass_double(L, n, m, in, k, t, h, b, e, dst, w);
                else
                    platform::akimaFixedGrid_griddedPass_float(L, n, m, in, k, t, h, b, e, dst, w);
                if (last)
                    for (u64 i = L * b; i < L * e; ++i)
                        dst[i * w] = detail::makimaResult(dst[i * w]);
            }
        } body{L[j], n[j], m[j], in, k, t, h, dst, w, last};
        // Parallel once there are enough results; each task gets about QUERY_GRAIN of them.
        if (checkedMul(L[j], units[j]) < PARALLEL_MIN_QUERIES)
            body(0, units[j]);
        else
            forEachRange(units[j], body, 2, std::max<u64>(1, QUERY_GRAIN / L[j]));
        in = dst;
    }
}

} // namespace mathinterp
