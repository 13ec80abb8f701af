// Gradients of the N-D methods: GradientND<M> holds, per method, what one coordinate of one
// query needs (Coord, from the coordinate and the interval the search found), the per-thread
// scratch, and at(), which writes the d partial derivatives of the value kernel's polynomial
// on the query's cell. The tensor product is reduced one dimension at a time in the value
// kernel's order, carrying the partial derivatives along (forward mode): the reduction of
// dimension k differentiates the factor of dimension k for component k and applies the value
// weights to every component found so far, so one pass over the cell's data gives all d
// components. Every component is finally divided by the cell width of its dimension (the
// multilinear one: its differences are scaled by the reciprocal width as they are formed).
// Nearest has gradient 0 (NaN where its value is NaN), "none" NaN; a NaN coordinate or a NaN
// reaching the cell from the values gives the engine's NaN.
#pragma once

#include "mathinterp/methods/ConstantND.hpp"
#include "mathinterp/methods/CubicND.hpp"
#include "mathinterp/methods/Gradient1D.hpp"
#include "mathinterp/methods/LinearND.hpp"
#include "mathinterp/methods/NearestND.hpp"
#include "mathinterp/methods/PackedND.hpp"
#include "mathinterp/methods/SplineND.hpp"

#include <platform/HostAllocator.hpp>

namespace mathinterp {

template <class M>
struct GradientND; // specialised per method below (makima: MakimaNDGradient.hpp)

template <class G, class V>
struct GradientND<ConstantND<G, V>> {
    using M = ConstantND<G, V>;
    struct Coord {};
    using Scratch = NoBuffer;
    static void prepare(M&) {}
    static Scratch makeScratch(const M&) { return {}; }
    template <class Q>
    static Coord coord(const M&, u64, Q, u64) noexcept {
        return {};
    }
    static void at(const M& m, const Coord*, V* g, Scratch&) noexcept {
        for (u64 k = 0; k < m.numDims; ++k)
            g[k] = engineNaN<V>();
    }
    template <u64 D>
    static void atD(const M& m, const Coord* c, V* g, Scratch& s) noexcept {
        at(m, c, g, s);
    }
};

template <class G, class V>
struct GradientND<NearestND<G, V>> {
    using M = NearestND<G, V>;
    using Coord = typename M::Pair;
    using Scratch = NoBuffer;
    static void prepare(M& m) { m.prepareForPoints(); }
    static Scratch makeScratch(const M&) { return {}; }
    template <class Q>
    static Coord coord(const M& m, u64 k, Q x, u64 i) noexcept {
        return m.makePair(k, x, i);
    }
    // The value decides between 0 and NaN: its line is requested ahead, as evaluation does.
    static void prefetch(const M& m, const Coord* c) noexcept { m.prefetch(c); }

    // Scattered 2-D and 3-D double queries: the values come from the packed value kernel in
    // chunks (its bits, hence its NaNs), then 0 or NaN per component; a NaN value (or a lane
    // the packed kernel leaves to the scalar one) takes the scalar gradient.
    struct Packed {
        bool usable = false;
    };
    template <class Q>
    static constexpr bool hasPacked = M::template hasSimdPath<Q>;
    static Packed makePacked(const M& m) { return {m.simdUsable()}; }
    static bool packedUsable(const Packed& p) noexcept { return p.usable; }
    template <u64 D, class Q, class One>
    static void scatteredPacked(const M& m, const Packed&, const Q* const* col, u64 b, u64 e,
                                V* const* outs, u64 stride, One&& one) {
        constexpr u64 chunk = 256;
        V value[chunk];
        const Q* shifted[D];
        for (u64 q0 = b; q0 < e; q0 += chunk) {
            const u64 n = std::min(chunk, e - q0);
            for (u64 k = 0; k < D; ++k)
                shifted[k] = col[k] + q0;
            m.template scatteredSimd<D>(shifted, 0, n, value, 1,
                                        [](u64) { return engineNaN<V>(); });
            for (u64 j = 0; j < n; ++j) {
                if (isNaN(value[j])) {
                    one(q0 + j);
                    continue;
                }
                for (u64 k = 0; k < D; ++k)
                    outs[k][(q0 + j) * stride] = V(0);
            }
        }
    }
    static void at(const M& m, const Coord* c, V* g, Scratch& s) noexcept {
        const V r = isNaN(m.kernel(c, s)) ? engineNaN<V>() : V(0);
        for (u64 k = 0; k < m.numDims; ++k)
            g[k] = r;
    }
    template <u64 D>
    static void atD(const M& m, const Coord* c, V* g, Scratch& s) noexcept {
        at(m, c, g, s);
    }
};

namespace grad {

// Per-thread scratch of the forward-mode reductions: the cell's data, then one array per
// partial derivative (each as long as the data after its first reduction).
template <class V>
struct ReductionScratch {
    platform::HostVector<V> data;
    ReductionScratch() = default;
    ReductionScratch(u64 cell, u64 perComponent, u64 d)
        : data(checkedAdd(cell, checkedMul(perComponent, d))) {}
};

} // namespace grad

// Multilinear: the cell's 2^d corners reduced dimension 0 first with the value kernel's step
// (equal ends pass through), component k taking the difference b - a (0 for equal ends) in
// dimension k times the reciprocal cell width (formed once per coordinate).
template <class G, class V>
struct GradientND<LinearND<G, V>> {
    using M = LinearND<G, V>;
    struct Coord {
        u64 offset;
        V t;
        V invH; // 1 / h in the value type
    };
    using Scratch = grad::ReductionScratch<V>;
    static void prepare(M& m) { m.prepareForPoints(); }
    static Scratch makeScratch(const M& m) {
        return Scratch(m.cornerCount, m.cornerCount / 2, m.numDims);
    }
    template <class Q>
    static Coord coord(const M& m, u64 k, Q xq, u64 i) noexcept {
        const G x = static_cast<G>(xq);
        const G h = m.cellWidths[k][i];
        return {i * m.strides[k], static_cast<V>((x - m.gridVectors[k][i]) / h),
                V(1) / static_cast<V>(h)};
    }
    static void prefetch(const M& m, const Coord* c) noexcept {
        u64 o = 0;
        for (u64 k = 0; k < m.numDims; ++k)
            o += c[k].offset;
        prefetchLine(m.values + o);
        if (m.numDims >= 2) prefetchLine(m.values + o + m.cornerOffsets[2]);
    }

    // The packed scattered path (PackedND.hpp): double grid, values and queries, d = 2 or
    // 3, a packed level with a kernel, a value plane small enough for 32-bit offsets. Its
    // tables depend on the grid only; empty axes: the path is off.
    struct Packed {
        platform::HostVector<simd::SimdAxis> axes;
        platform::HostVector<std::int32_t> corners;
        simd::PackedGradientKernel kernel = nullptr;
    };
    template <class Q>
    static constexpr bool hasPacked = simd::allDouble<G, V, Q>;
    static Packed makePacked(const M& m) {
        Packed p;
        if constexpr (hasPacked<double>) {
            const u64 d = m.numDims;
            p.kernel = simd::packedLinearGradientKernel(simd::simdLevel());
            if (p.kernel == nullptr || d < 2 || d > 3) return p;
            u64 total = 1;
            for (u64 k = 0; k < d; ++k)
                total *= m.gridSizes[k]; // checked against overflow when stored
            if (total >= (u64{1} << 31)) return p;
            for (u64 k = 0; k < d; ++k)
                p.axes.push_back(simd::simdAxis(m.gridVectors[k], m.gridSizes[k], m.meanSpacing[k],
                                                m.strides[k]));
            for (u64 c = 0; c < m.cornerCount; ++c)
                p.corners.push_back(static_cast<std::int32_t>(m.cornerOffsets[c]));
        }
        return p;
    }
    static bool packedUsable(const Packed& p) noexcept { return !p.axes.empty(); }
    // Queries [b, e) of d = D columns; one(q) runs the scalar kernel for query q.
    template <u64 D, class Q, class One>
    static void scatteredPacked(const M& m, const Packed& p, const Q* const* col, u64 b, u64 e,
                                V* const* outs, u64 stride, One&& one) {
        if constexpr (hasPacked<Q>)
            simd::scatteredGradient(p.kernel, static_cast<int>(D), p.axes.data(), m.values,
                                    p.corners.data(), col, b, e, outs, stride, one);
    }

    // A full 2-D grid of queries (stride 1, no NaN coordinate), as evaluation's separable
    // path does it: per grid column c that a query cell touches, the dimension-0 steps r_c and
    // scaled differences e_c at every query row; per cell column j, (r_(j+1) - r_j) / h_j.
    // Output (i, q) is then lerp(e_j, e_(j+1), t_q) and a copy: the kernel's very operations,
    // so its bits. false (nothing written): the per-point loop runs instead.
    static constexpr bool hasGriddedPlane = true;
    static constexpr bool griddedPreparesItself = false;
    static bool griddedPlane(const M& m, const Coord* const* tables, const u64* mq, u64,
                             V* const* outs, u64 stride) {
        if (m.numDims != 2 || stride != 1) return false;
        const u64 m0 = mq[0], m1 = mq[1];
        const u64 n1 = m.gridSizes[1], s1 = m.strides[1];
        const Coord* p0 = tables[0];
        const Coord* p1 = tables[1];
        platform::HostVector<u64> slot(n1, ~u64{0}), cellSlot(n1, ~u64{0});
        platform::HostVector<V> cellInvH;
        u64 columns = 0, cells = 0;
        for (u64 q = 0; q < m1; ++q) {
            if (isNaN(p1[q].t)) return false;
            const u64 j = p1[q].offset / s1;
            for (u64 c = j; c <= j + 1; ++c)
                if (slot[c] == ~u64{0}) slot[c] = columns++;
            if (cellSlot[j] == ~u64{0}) {
                cellSlot[j] = cells++;
                cellInvH.push_back(p1[q].invH);
            }
        }
        for (u64 i = 0; i < m0; ++i)
            if (isNaN(p0[i].t)) return false;
        if (columns >= m1 || (2 * columns + cells) * m0 > (u64{1} << 23)) return false;
        platform::HostVector<V> r(columns * m0), e(columns * m0), dcell(cells * m0);
        platform::HostVector<u64> gridColumn(columns);
        for (u64 c = 0; c < n1; ++c)
            if (slot[c] != ~u64{0}) gridColumn[slot[c]] = c;
        auto reduceColumns = [&](u64 b, u64 end) {
            for (u64 k = b; k < end; ++k) {
                const V* col = m.values + gridColumn[k] * s1;
                V* rk = r.data() + k * m0;
                V* ek = e.data() + k * m0;
                for (u64 i = 0; i < m0; ++i) {
                    const V a = col[p0[i].offset], b2 = col[p0[i].offset + 1];
                    ek[i] = diff(a, b2) * p0[i].invH;
                    rk[i] = lerp(a, b2, p0[i].t);
                }
            }
        };
        forEachRange(columns, reduceColumns, 2, 1);
        platform::HostVector<u64> cellColumn(cells);
        for (u64 c = 0; c < n1; ++c)
            if (cellSlot[c] != ~u64{0}) cellColumn[cellSlot[c]] = c;
        auto cellDifferences = [&](u64 b, u64 end) {
            for (u64 k = b; k < end; ++k) {
                const u64 j = cellColumn[k];
                const V* lo = r.data() + slot[j] * m0;
                const V* hi = r.data() + slot[j + 1] * m0;
                V* dk = dcell.data() + k * m0;
                for (u64 i = 0; i < m0; ++i)
                    dk[i] = grad::nanAsEngine(diff(lo[i], hi[i]) * cellInvH[k]);
            }
        };
        forEachRange(cells, cellDifferences, 2, 1);
        auto outputColumns = [&](u64 b, u64 end) {
            for (u64 q = b; q < end; ++q) {
                const u64 j = p1[q].offset / s1;
                const V* lo = e.data() + slot[j] * m0;
                const V* hi = e.data() + slot[j + 1] * m0;
                const V w = p1[q].t;
                V* o0 = outs[0] + q * m0;
                for (u64 i = 0; i < m0; ++i)
                    o0[i] = grad::nanAsEngine(lerp(lo[i], hi[i], w));
                const V* dk = dcell.data() + cellSlot[j] * m0;
                std::copy(dk, dk + m0, outs[1] + q * m0);
            }
        };
        forEachRange(m1, outputColumns, 2, 1);
        return true;
    }

    static V lerp(V a, V b, V w) noexcept { return a == b ? a : a * (V(1) - w) + b * w; }
    static V diff(V a, V b) noexcept { return a == b ? V(0) : b - a; }

    static void at(const M& m, const Coord* c, V* g, Scratch& scratch) noexcept {
        const u64 d = m.numDims;
        switch (d) {
        case 1:
            return atFixed<1>(m, c, g, nullptr);
        case 2:
            return atFixed<2>(m, c, g, nullptr);
        case 3:
            return atFixed<3>(m, c, g, nullptr);
        case 4:
            return atFixed<4>(m, c, g, nullptr);
        default:
            return atFixed<0>(m, c, g, scratch.data.data());
        }
    }

    template <u64 D>
    [[gnu::always_inline]] static void atD(const M& m, const Coord* c, V* g,
                                           Scratch& scratch) noexcept {
        if constexpr (D == 0)
            at(m, c, g, scratch);
        else
            atFixed<D>(m, c, g, nullptr);
    }

    // D > 0: d known at compile time, everything on the stack; D = 0: any d, in `work`.
    template <u64 D>
    [[gnu::always_inline]] static void atFixed(const M& m, const Coord* c, V* g, V* work) noexcept {
        const u64 d = D ? D : m.numDims;
        const u64 corners = D ? (u64{1} << D) : m.cornerCount;
        V local[D ? (u64{1} << D) * (D + 2) / 2 : 1];
        V* s = D ? local : work;
        V* comp = s + corners; // component k: corners >> (k + 1) entries at comp + k * corners/2
        const V* base = m.values;
        for (u64 k = 0; k < d; ++k) {
            if (isNaN(c[k].t)) {
                for (u64 j = 0; j < d; ++j)
                    g[j] = engineNaN<V>();
                return;
            }
            base += c[k].offset;
        }
        const u64* co = m.cornerOffsets.data();
        for (u64 j = 0; j < corners; ++j)
            s[j] = base[co[j]];
        const u64 half = corners / 2;
        u64 n = corners;
        for (u64 k = 0; k < d; ++k) {
            const V w = c[k].t;
            // Earlier components: the value step of dimension k.
            for (u64 j = 0; j < k; ++j) {
                V* a = comp + j * half;
                for (u64 p = 0; p < n; p += 2)
                    a[p >> 1] = lerp(a[p], a[p + 1], w);
            }
            V* own = comp + k * half;
            for (u64 p = 0; p < n; p += 2) {
                own[p >> 1] = diff(s[p], s[p + 1]) * c[k].invH;
                s[p >> 1] = lerp(s[p], s[p + 1], w);
            }
            n >>= 1;
        }
        for (u64 k = 0; k < d; ++k)
            g[k] = grad::nanAsEngine(comp[k * half]);
    }
};

// Cubic convolution: the 4^d neighbourhood (phantom layers as the value kernel builds them)
// reduced dimension 0 first with the value weights, component k with the derivative weights
// in dimension k; then divided by 2^d and by the cell width.
template <class G, class V>
struct GradientND<CubicND<G, V>> {
    using M = CubicND<G, V>;
    struct Coord {
        u64 index;
        V t;
        V h;
    };
    using Scratch = grad::ReductionScratch<V>;
    static void prepare(M& m) { m.prepareForPoints(); }
    static Scratch makeScratch(const M& m) {
        return Scratch(m.neighbourhoodSize, m.neighbourhoodSize / 4, m.numDims);
    }
    template <class Q>
    static Coord coord(const M& m, u64 k, Q xq, u64 i) noexcept {
        const G x = static_cast<G>(xq);
        const G h = m.cellWidths[k][i];
        return {i, static_cast<V>((x - m.gridVectors[k][i]) / h), static_cast<V>(h)};
    }
    static void prefetch(const M& m, const Coord* c) noexcept {
        u64 first = 0;
        for (u64 k = 0; k < m.numDims; ++k)
            first += (c[k].index > 0 ? c[k].index - 1 : 0) * m.strides[k];
        const u64* off = m.neighbourhoodOffsets.data();
        for (u64 j = 0; j < m.neighbourhoodSize; j += 4) {
            const u64 row = first + off[j];
            if (row + 3 < m.totalValues) {
                prefetchLine(m.values + row);
                prefetchLine(m.values + row + 3);
            }
        }
    }

    // The packed scattered path (PackedND.hpp): double grid, values and queries, d = 2 with
    // at least four points per dimension, a packed level with a kernel, a value plane small
    // enough for 32-bit offsets. Empty axes: the path is off.
    struct Packed {
        platform::HostVector<simd::SimdAxis> axes;
        simd::PackedGradientKernel kernel = nullptr;
    };
    template <class Q>
    static constexpr bool hasPacked = simd::allDouble<G, V, Q>;
    static Packed makePacked(const M& m) {
        Packed p;
        if constexpr (hasPacked<double>) {
            p.kernel = simd::packedCubicGradientKernel(simd::simdLevel());
            if (p.kernel == nullptr || m.numDims != 2) return p;
            if (m.totalValues >= (u64{1} << 31)) return p;
            if (m.gridSizes[0] < 4 || m.gridSizes[1] < 4) return p;
            for (u64 k = 0; k < 2; ++k)
                p.axes.push_back(simd::simdAxis(m.gridVectors[k], m.gridSizes[k], m.meanSpacing[k],
                                                m.strides[k]));
        }
        return p;
    }
    static bool packedUsable(const Packed& p) noexcept { return !p.axes.empty(); }
    // Queries [b, e) of d = D columns; one(q) runs the scalar kernel for query q.
    template <u64 D, class Q, class One>
    static void scatteredPacked(const M& m, const Packed& p, const Q* const* col, u64 b, u64 e,
                                V* const* outs, u64 stride, One&& one) {
        if constexpr (hasPacked<Q> && D == 2) {
            simd::scatteredGradient(p.kernel, 2, p.axes.data(), m.values, nullptr, col, b, e, outs,
                                    stride, one);
        } else {
            for (u64 q = b; q < e; ++q)
                one(q);
        }
    }

    static V combine(const CubicWeights<V>& w, const V* q) noexcept {
        return ((w.w0 * q[1] + w.wm1 * q[0]) + w.w1 * q[2]) + w.w2 * q[3];
    }

    static void at(const M& m, const Coord* c, V* g, Scratch& scratch) noexcept {
        atD<0>(m, c, g, scratch);
    }

    // D > 0: d known at compile time, the work arrays on the stack; D = 0: any d, in scratch.
    template <u64 D>
    [[gnu::always_inline]] static void atD(const M& m, const Coord* c, V* g,
                                           Scratch& scratch) noexcept {
        constexpr u64 cellD = D ? u64{1} << (2 * D) : 1;
        V local[D ? cellD + D * cellD / 4 : 1];
        const u64 d = D ? D : m.numDims;
        const u64 cell = D ? cellD : m.neighbourhoodSize;
        const u64 quarter = cell / 4;
        V* s = D ? local : scratch.data.data();
        V* comp = s + cell;
        bool interior = true;
        for (u64 k = 0; k < d; ++k) {
            if (isNaN(c[k].t)) {
                for (u64 j = 0; j < d; ++j)
                    g[j] = engineNaN<V>();
                return;
            }
            interior = interior && c[k].index > 0 && c[k].index < m.lastInterval[k];
        }
        if (D != 0 && interior) { // the common case, with a constant trip count
            u64 first = 0;
            for (u64 k = 0; k < d; ++k)
                first += (c[k].index - 1) * m.strides[k];
            const V* y = m.values + first;
            const u64* off = m.neighbourhoodOffsets.data();
            for (u64 j = 0; j < cell; ++j)
                s[j] = y[off[j]];
        } else {
            load(m, c, s, interior);
        }
        u64 n = cell;
        for (u64 k = 0; k < d; ++k) {
            const CubicWeights<V> w = cubicWeights(c[k].t);
            const CubicWeights<V> wd = grad::cubicWeightDerivatives<1>(c[k].t);
            n >>= 2;
            for (u64 j = 0; j < k; ++j) {
                V* a = comp + j * quarter;
                for (u64 p = 0; p < n; ++p)
                    a[p] = combine(w, a + 4 * p);
            }
            V* own = comp + k * quarter;
            for (u64 p = 0; p < n; ++p) {
                own[p] = combine(wd, s + 4 * p);
                s[p] = combine(w, s + 4 * p);
            }
        }
        for (u64 k = 0; k < d; ++k)
            g[k] = grad::nanAsEngine((comp[k * quarter] / m.divisor) / c[k].h);
    }

    // The neighbourhood as the value kernel loads it: inside the array directly; in a first
    // or last cell the phantom layers continue the quadratic through the three end values,
    // dimension by dimension.
    static void load(const M& m, const Coord* c, V* s, bool interior) noexcept {
        const u64 d = m.numDims;
        u64 first = 0; // may wrap below 0 in a first cell; the range test undoes it
        for (u64 k = 0; k < d; ++k)
            first += (c[k].index - 1) * m.strides[k];
        const u64* off = m.neighbourhoodOffsets.data();
        const V* y = m.values;
        if (interior) {
            for (u64 j = 0; j < m.neighbourhoodSize; ++j)
                s[j] = y[first + off[j]];
            return;
        }
        for (u64 j = 0; j < m.neighbourhoodSize; ++j) {
            const u64 flat = first + off[j];
            s[j] = flat < m.totalValues ? y[flat] : V(0);
        }
        for (u64 k = 0; k < d; ++k) {
            const u64 i = c[k].index;
            const u64 step = u64{1} << (2 * k);
            const u64* list = m.indexLists.data() + k * m.listLength;
            if (i == 0) {
                for (u64 j = 0; j < m.listLength; ++j) {
                    const u64 e = list[j];
                    s[e] = V(3) * (s[e + step] - s[e + 2 * step]) + s[e + 3 * step];
                }
            } else if (i == m.lastInterval[k]) {
                for (u64 j = 0; j < m.listLength; ++j) {
                    const u64 e = list[j];
                    s[e + 3 * step] = V(3) * (s[e + 2 * step] - s[e + step]) + s[e];
                }
            }
        }
    }
};

namespace grad {

// Order 0 (values) or 1 (derivatives) of `lines` lines of 1-D piecewise cubics (line l's four
// blocks of `pieces` at coef + l * 4 * pieces) at m query pairs; result j of line l to
// out[(l * m + j) * stride]. The value case is SplineND's evaluateLines.
template <int Order, class V, class Pair>
void evaluateLineOrder(const V* coef, u64 pieces, u64 lines, const Pair* pairs, u64 m, V* out,
                       u64 stride) {
    if constexpr (Order == 0) {
        detail::evaluateLines(coef, pieces, lines, pairs, m, out, stride);
    } else {
        auto body = [&](u64 b, u64 e) {
            for (u64 l = b; l < e; ++l) {
                const V* c = coef + l * 4 * pieces;
                V* o = out + l * m * stride;
                for (u64 j = 0; j < m; ++j)
                    o[j * stride] =
                        nanAsEngine(cubicPieceDerivative<1>(c, pieces, pairs[j].index, pairs[j].s));
            }
        };
        const u64 grain = std::max<u64>(1, QUERY_GRAIN / std::max<u64>(m, 1));
        if (lines * m < PARALLEL_MIN_QUERIES)
            body(0, lines);
        else
            forEachRange(lines, body, 2, grain);
    }
}

// SplineND's fitAndEvaluateLines with the evaluation of order 0 or 1: columns in chunks that
// fit in cache, gathered, fitted and evaluated.
template <int Order, class V, class G, class Pair>
void fitAndEvaluateLineOrder(const V* src, u64 lines, const G* grid, u64 n, const Pair* pairs,
                             u64 m, V* dst, u64 stride) {
    if constexpr (Order == 0) {
        detail::fitAndEvaluateLines(src, lines, grid, n, pairs, m, dst, stride);
    } else {
        const u64 width = std::max<u64>(4, (u64{1} << 15) / n);
        const u64 chunks = (lines + width - 1) / width;
        auto body = [&](u64 cb, u64 ce) {
            const u64 pieces = n - 1;
            platform::HostVector<V> in(n * width), coef(4 * pieces * width);
            for (u64 chunk = cb; chunk < ce; ++chunk) {
                const u64 a = chunk * width;
                const u64 w = std::min(width, lines - a);
                for (u64 j = 0; j < n; ++j)
                    for (u64 l = 0; l < w; ++l)
                        in[j * w + l] = src[j * lines + a + l];
                splineCoefficientsInto<V, G>(coef.data(), in.data(), grid, n, w);
                evaluateLineOrder<1>(coef.data(), pieces, w, pairs, m, dst + a * m * stride,
                                     stride);
            }
        };
        if (chunks == 1)
            body(0, 1);
        else
            forEachRange(chunks, body, 2, 1);
    }
}

} // namespace grad

// Spline: the cell's 4^d tensor coefficients reduced by Horner's rule, last dimension first
// as in the value kernel; component k takes (3 a s + 2 b) s + c in dimension k. The offsets
// s are in grid units, so no division by the width follows.
template <class G, class V>
struct GradientND<SplineND<G, V>> {
    using M = SplineND<G, V>;
    using Coord = typename M::Pair;
    using Scratch = grad::ReductionScratch<V>;
    static void prepare(M& m) { m.prepareForPoints(); }
    static Scratch makeScratch(const M& m) {
        return Scratch(m.neighbourhoodSize / 4, m.neighbourhoodSize / 4, m.numDims);
    }
    template <class Q>
    static Coord coord(const M& m, u64 k, Q x, u64 i) noexcept {
        return m.makePair(k, x, i);
    }
    static void prefetch(const M& m, const Coord* c) noexcept { m.prefetch(c); }

    // A full grid of queries, component by component, by SplineND's gridded reduction (fit
    // and evaluate along the last dimension, then the next): component j evaluates the
    // derivative in the pass of dimension j and values in every other pass. No tensor table
    // is built; the last dimension's fit is made once per call.
    static constexpr bool hasGriddedPlane = true;
    static constexpr bool griddedPreparesItself = true;
    static bool griddedPlane(const M& sp, const Coord* const* tables, const u64* mq, u64 total,
                             V* const* outs, u64 stride) {
        const u64 d = sp.numDims;
        const u64* n = sp.gridSizes.data();
        auto linesOf = [&](u64 k) {
            u64 lines = 1;
            for (u64 j = 0; j < k; ++j)
                lines = checkedMul(lines, n[j]);
            for (u64 j = k + 1; j < d; ++j)
                lines = checkedMul(lines, mq[j]);
            return lines;
        };
        u64 largest = 0;
        for (u64 k = d; k-- > 1;)
            largest = std::max(largest, checkedMul(mq[k], linesOf(k)));
        static_cast<void>(checkedBytes<V>(largest));
        if (total == 0) return true;
        const SplineRecord<V> last =
            splineCoefficients<V, G>(sp.values, sp.gridVectors.data(), sp.gridSizes.data(), d);
        HostBlock<V> buffers[2] = {allocateHostBlock<V>(largest), allocateHostBlock<V>(largest)};
        for (u64 j = 0; j < d; ++j) {
            const u64 top = d - 1;
            V* dst = buffers[top % 2].get();
            if (j == top)
                grad::evaluateLineOrder<1>(last.coefficients.get(), last.pieces, last.columns,
                                           tables[top], mq[top], dst, 1);
            else
                grad::evaluateLineOrder<0>(last.coefficients.get(), last.pieces, last.columns,
                                           tables[top], mq[top], dst, 1);
            for (u64 k = top; k-- > 0;) {
                const V* src = buffers[(k + 1) % 2].get();
                V* to = k == 0 ? outs[j] : buffers[k % 2].get();
                const u64 st = k == 0 ? stride : 1;
                if (j == k)
                    grad::fitAndEvaluateLineOrder<1>(src, linesOf(k), sp.gridVectors[k], n[k],
                                                     tables[k], mq[k], to, st);
                else
                    grad::fitAndEvaluateLineOrder<0>(src, linesOf(k), sp.gridVectors[k], n[k],
                                                     tables[k], mq[k], to, st);
            }
        }
        return true;
    }

    static V horner(const V* q, u64 m, V s) noexcept {
        return ((q[0] * s + q[m]) * s + q[2 * m]) * s + q[3 * m];
    }
    static V hornerDerivative(const V* q, u64 m, V s) noexcept {
        return (V(3) * q[0] * s + V(2) * q[m]) * s + q[2 * m];
    }

    static void at(const M& m, const Coord* c, V* g, Scratch& scratch) noexcept {
        atD<0>(m, c, g, scratch);
    }

    // D > 0: d known at compile time, the work arrays on the stack; D = 0: any d, in scratch.
    template <u64 D>
    [[gnu::always_inline]] static void atD(const M& m, const Coord* c, V* g,
                                           Scratch& scratch) noexcept {
        constexpr u64 quarterD = D ? u64{1} << (2 * D - 2) : 1;
        V local[D ? quarterD * (D + 1) : 1];
        const u64 d = D ? D : m.numDims;
        const V* cell = m.coefficientTable.coefficients.get();
        for (u64 k = 0; k < d; ++k)
            cell += c[k].index * m.coefficientStrides[k];
        const u64 quarter = D ? quarterD : m.neighbourhoodSize / 4;
        V* r = D ? local : scratch.data.data();
        V* comp = r + quarter; // component k at comp + k * quarter
        u64 n = 4 * quarter;
        const V* src = cell;
        for (u64 k = d; k-- > 0;) {
            const V s = c[k].s;
            n >>= 2;
            for (u64 j = k + 1; j < d; ++j) {
                V* a = comp + j * quarter;
                for (u64 p = 0; p < n; ++p)
                    a[p] = horner(a + p, n, s);
            }
            V* own = comp + k * quarter;
            for (u64 p = 0; p < n; ++p) {
                own[p] = hornerDerivative(src + p, n, s);
                r[p] = horner(src + p, n, s);
            }
            src = r;
        }
        for (u64 k = 0; k < d; ++k)
            g[k] = grad::nanAsEngine(comp[k * quarter]);
    }
};

} // namespace mathinterp
