// The gradient of MakimaND, read from the service's precomputed block (node-major, 2^d
// derivative tensors per node, as AkimaFixedGridService.hpp documents it). The cell's 2^d x 2^d
// Hermite data are reduced dimension 0 first with the service's Hermite step; component k
// takes the step's derivative in dimension k: on a grid line (t = 0 or 1) the node's
// derivative itself, elsewhere (3 c3 t + 2 c2) t + h m0 divided by the width h.
// Kept apart from MakimaND.hpp so that it follows the block's layout in one place.
#pragma once

#include "mathinterp/methods/Gradient1D.hpp"
#include "mathinterp/methods/MakimaND.hpp"

namespace mathinterp {

template <class M>
struct GradientND;

template <class G, class V>
struct GradientND<MakimaND<G, V>> {
    using M = MakimaND<G, V>;
    struct Coord {
        u64 offset; // interval index times the dimension's stride (in nodes)
        V t;
        V h;
    };
    struct Scratch {
        platform::HostVector<V> data;      // 4^d Hermite data, then d arrays of 4^(d-1)
        platform::HostVector<u64> corners; // node offsets of the cell's 2^d corners
    };
    static void prepare(M& m) { m.prepareForPoints(); }
    static Scratch makeScratch(const M& m) {
        const u64 d = m.numDims;
        const u64 k = checkedPow2(d);
        const u64 cell = checkedPow4(d);
        Scratch s;
        s.data.resize(checkedAdd(cell, checkedMul(d, cell / 4)));
        s.corners.resize(k);
        s.corners[0] = 0;
        for (u64 j = 0; j < d; ++j) {
            const u64 half = u64{1} << j;
            const u64 step = m.gridSizes[j] > 1 ? m.strides[j] : 0;
            for (u64 c = 0; c < half; ++c)
                s.corners[half + c] = s.corners[c] + step;
        }
        return s;
    }
    template <class Q>
    static Coord coord(const M& m, u64 k, Q xq, u64 i) noexcept {
        if (m.gridSizes[k] < 2) return {0, V(0), V(0)};
        const G x = static_cast<G>(xq);
        const G* g = m.gridVectors[k];
        return {i * m.strides[k], static_cast<V>((x - g[i]) / (g[i + 1] - g[i])),
                static_cast<V>(g[i + 1]) - static_cast<V>(g[i])};
    }

    // The service's Hermite step (the value kernels' own) and its derivative in x.
    static V hermite(V a0, V a1, V m0, V m1, V t, V h) noexcept {
        return platform::akima_detail::hermiteStep(a0, a1, m0, m1, t, h);
    }
    static V hermiteDerivative(V a0, V a1, V m0, V m1, V t, V h) noexcept {
        if (t == V(0)) return m0;
        if (t == V(1)) return m1;
        if (h == V(0)) return V(0);
        const V p0 = h * m0;
        const V delta = a1 - a0;
        const V a = delta - p0;
        const V b = h * m1 - delta;
        return ((V(3) * (b - a) * t + V(2) * (a + a - b)) * t + p0) / h;
    }

    template <u64 D>
    static void atD(const M& m, const Coord* c, V* g, Scratch& s) noexcept {
        at(m, c, g, s);
    }

    static void at(const M& m, const Coord* c, V* g, Scratch& s) noexcept {
        const u64 d = m.numDims;
        const u64 K = u64{1} << d;
        u64 base = 0;
        for (u64 k = 0; k < d; ++k) {
            if (isNaN(c[k].t)) {
                for (u64 j = 0; j < d; ++j)
                    g[j] = engineNaN<V>();
                return;
            }
            base += c[k].offset;
        }
        V* A = s.data.data();
        V* comp = A + K * K;
        const u64 quarter = K * K / 4;
        const V* blk = m.precomputedData.data();
        for (u64 cc = 0; cc < K; ++cc) {
            const V* node = blk + (base + s.corners[cc]) * K;
            for (u64 S = 0; S < K; ++S)
                A[S * K + cc] = node[S];
        }
        // Step j reduces the lowest bit of both the subset S and the corner c (in place: every
        // entry written lies at or below the entries still to be read).
        auto reduce = [](V* X, u64 r, V t, V h, auto&& step, V* to) {
            const u64 half = u64{1} << (r - 1);
            for (u64 S = 0; S < half; ++S) {
                const V* lo = X + ((2 * S) << r);
                const V* hi = X + ((2 * S + 1) << r);
                for (u64 cc = 0; cc < half; ++cc)
                    to[(S << (r - 1)) | cc] =
                        step(lo[2 * cc], lo[2 * cc + 1], hi[2 * cc], hi[2 * cc + 1], t, h);
            }
        };
        for (u64 j = 0; j < d; ++j) {
            const u64 r = d - j;
            const V t = c[j].t;
            const V h = c[j].h;
            for (u64 k = 0; k < j; ++k)
                reduce(comp + k * quarter, r, t, h, hermite, comp + k * quarter);
            reduce(A, r, t, h, hermiteDerivative, comp + j * quarter);
            reduce(A, r, t, h, hermite, A);
        }
        for (u64 k = 0; k < d; ++k)
            g[k] = grad::nanAsEngine(comp[k * quarter]);
    }
};

} // namespace mathinterp
