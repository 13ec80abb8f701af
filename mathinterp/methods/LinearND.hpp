// LinearND: multilinear interpolation over the 2^d corners of the cell that holds the query,
// reduced one dimension at a time (dimension 0 first). Outside the grid the end cell's formula
// continues, so the same method extrapolates linearly. Equal corner pairs pass through without
// arithmetic (a constant cell returns its value exactly, anywhere). When the fast pass gives
// NaN a second pass gives every corner of exactly zero weight no influence, so a query on a
// grid line next to an infinite or NaN value still returns the finite value it lies on.
// Thread safety: prepare() fills the grid tables once under a guard; kernels only read.
#pragma once

#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/core/Parallel.hpp"
#include "mathinterp/methods/InterpMethodND.hpp"
#include "mathinterp/methods/PackedND.hpp"

#include <cstdint>
#include <type_traits>

namespace mathinterp {

template <class G, class V>
class LinearND final : public InterpMethodND<G, V> {
    using Base = InterpMethodND<G, V>;

public:
    static constexpr bool available = true;

    // offset = i * stride of the dimension; t = (x - g[i]) / h[i] in G, rounded to V.
    struct Pair {
        u64 offset;
        V t;
    };
    using Buffer = DefaultBuffer<V>;

    LinearND(const G* const* grids, const u64* sizes, const V* valuesPlane, u64 d)
        : Base(grids, sizes, valuesPlane, d), cornerCount(checkedPow2(d)) {}

    void prepare() override {
        guard_.ensure([this] {
            const u64 d = this->numDims;
            const std::size_t offsetBytes = checkedBytes<u64>(cornerCount); // before allocating
            platform::HostVector<platform::HostVector<G>> widths(d);
            for (u64 k = 0; k < d; ++k) {
                const u64 n = this->gridSizes[k];
                const G* g = this->gridVectors[k];
                if (n < 2) continue;
                widths[k].resize(n - 1);
                for (u64 i = 0; i + 1 < n; ++i)
                    widths[k][i] = g[i + 1] - g[i];
            }
            platform::HostVector<u64> offsets(offsetBytes / sizeof(u64));
            for (u64 c = 0; c < cornerCount; ++c) {
                u64 o = 0;
                for (u64 k = 0; k < d; ++k)
                    if ((c >> k) & 1u) o += this->strides[k];
                offsets[c] = o;
            }
            cellWidths.swap(widths);
            cornerOffsets.swap(offsets);
            prepareSimd();
        });
    }

    // The packed scattered path (PackedND.hpp): grid, values and queries all double or all
    // single, d = 2 or 3, a packed level with a kernel, and a value plane small enough for
    // 32-bit offsets.
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q> || simd::allSingle<G, V, Q>;
    bool simdUsable() const noexcept { return !simdCornerOffsets.empty(); }

    // Queries [b, e) of d = D columns; one(q) evaluates query q the scalar way.
    template <u64 D, class Q, class One>
    void scatteredSimd(const Q* const* col, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (simd::allDouble<G, V, Q>)
            simd::scatteredND<double>(kernel_, simd::KindND::Linear, static_cast<int>(D),
                                      simdAxes.data(), this->values, simdCornerOffsets.data(), col,
                                      b, e, out, stride, one);
        else if constexpr (simd::allSingle<G, V, Q>)
            simd::scatteredND<float>(kernel_, simd::KindND::Linear, static_cast<int>(D),
                                     simdAxesF.data(), this->values, simdCornerOffsets.data(), col,
                                     b, e, out, stride, one);
    }

    Buffer makeBuffer() const { return Buffer(cornerCount); }

    template <class Q>
    Pair makePair(u64 k, Q xq, u64 i) const noexcept {
        const G x = static_cast<G>(xq);
        const G t = (x - this->gridVectors[k][i]) / cellWidths[k][i];
        return {i * this->strides[k], static_cast<V>(t)};
    }

    V kernel(const Pair* p, Buffer& scratch) const noexcept {
        // Few dimensions: the same passes with constant trip counts over a stack array.
        switch (this->numDims) {
        case 1:
            return kernelIn<1>(p, nullptr);
        case 2:
            return kernelIn<2>(p, nullptr);
        case 3:
            return kernelIn<3>(p, nullptr);
        case 4:
            return kernelIn<4>(p, nullptr);
        default:
            return kernelIn<0>(p, scratch.data());
        }
    }

    // The kernel for d = D known at compile time (the drivers pick it for 2-D and 3-D and
    // inline it into their loops); the same passes as kernel().
    template <u64 D>
    [[gnu::always_inline]] V kernelFixed(const Pair* p) const noexcept {
        return kernelIn<D>(p, nullptr);
    }

    // Gridded 2-D output, dimension 0 reduced once per query coordinate and grid column:
    // every output point of grid cell column j reads the same two dimension-0 reductions (at
    // grid columns j and j + 1), and the kernel's first step is exactly that reduction, so
    // forming them once and then reducing along dimension 1 gives the kernel's bits. Points
    // whose result is NaN get the whole kernel (second pass). Returns false (nothing written)
    // when the shape does not suit: then the caller runs the per-point loop.
    bool evaluateGriddedSeparable(const GriddedPairs<Pair>& t, V* out, u64 stride) const {
        if (this->numDims != 2 || stride != 1) return false;
        const u64 m0 = t.lengths[0], m1 = t.lengths[1];
        const u64 n1 = this->gridSizes[1], s1 = this->strides[1];
        const Pair* p0 = t.tables[0];
        const Pair* p1 = t.tables[1];
        // Reductions needed: two grid columns per distinct cell column of the queries.
        platform::HostVector<u64> slot(n1, ~u64{0});
        u64 columns = 0;
        for (u64 q = 0; q < m1; ++q) {
            if (isNaN(p1[q].t)) return false; // NaN coordinates: the kernel's own rule
            const u64 j = p1[q].offset / s1;
            for (u64 c = j; c <= j + 1; ++c)
                if (slot[c] == ~u64{0}) slot[c] = columns++;
        }
        for (u64 r = 0; r < m0; ++r)
            if (isNaN(p0[r].t)) return false;
        // Worth it only when reductions are fewer than output points; bounded memory.
        if (columns >= m1 || columns * m0 > (u64{1} << 23)) return false;
        platform::HostVector<V> reduced(columns * m0);
        platform::HostVector<u64> gridColumn(columns);
        for (u64 c = 0; c < n1; ++c)
            if (slot[c] != ~u64{0}) gridColumn[slot[c]] = c;
        const V* plane = this->values;
        auto reduceColumns = [&](u64 b, u64 e) {
            for (u64 k = b; k < e; ++k) {
                const V* col = plane + gridColumn[k] * s1;
                V* r = reduced.data() + k * m0;
                for (u64 i = 0; i < m0; ++i)
                    r[i] = lerp(col[p0[i].offset], col[p0[i].offset + 1], p0[i].t);
            }
        };
        forEachRange(columns, reduceColumns, 2, 1);
        auto outputColumns = [&](u64 b, u64 e) {
            for (u64 q = b; q < e; ++q) {
                const u64 j = p1[q].offset / s1;
                const V* lo = reduced.data() + slot[j] * m0;
                const V* hi = reduced.data() + slot[j + 1] * m0;
                const V w = p1[q].t;
                V* o = out + q * m0;
                for (u64 i = 0; i < m0; ++i)
                    o[i] = lerp(lo[i], hi[i], w);
                for (u64 i = 0; i < m0; ++i) {
                    if (isNaN(o[i])) {
                        const Pair pq[2] = {p0[i], p1[q]};
                        o[i] = kernelFixed<2>(pq);
                    }
                }
            }
        };
        forEachRange(m1, outputColumns, 2, 1);
        return true;
    }

    // Ask for the corners' cache lines ahead of the kernel (results do not depend on it).
    // Corners c and c + 1 are neighbours in memory: one request per pair, at most four.
    void prefetch(const Pair* p) const noexcept {
        u64 o = 0;
        for (u64 k = 0; k < this->numDims; ++k)
            o += p[k].offset;
        const V* base = this->values + o;
        const u64* co = cornerOffsets.data();
        const u64 n = cornerCount;
        prefetchLine(base);
        if (n >= 4) prefetchLine(base + co[2]);
        if (n >= 8) {
            prefetchLine(base + co[4]);
            prefetchLine(base + co[6]);
        }
    }

    platform::HostVector<platform::HostVector<G>> cellWidths;
    platform::HostVector<u64> cornerOffsets; // corner c: sum of strides of the set bits of c
    u64 cornerCount;                         // 2^d

private:
    // D > 0: d = D known at compile time, corners on the stack; D = 0: any d, corners in s.
    template <u64 D>
    [[gnu::always_inline]] V kernelIn(const Pair* p, V* s) const noexcept {
        const u64 d = D ? D : this->numDims;
        const u64 corners = D ? (u64{1} << D) : cornerCount;
        V local[D ? (u64{1} << D) : 1];
        if constexpr (D != 0) s = local;
        const V* base = this->values;
        for (u64 k = 0; k < d; ++k) {
            if (isNaN(p[k].t)) return engineNaN<V>();
            base += p[k].offset;
        }
        const u64* co = cornerOffsets.data();
        for (u64 c = 0; c < corners; ++c)
            s[c] = base[co[c]];
        const V r = firstPass(p, s, d, corners);
        if (!isNaN(r)) return r;
        for (u64 c = 0; c < corners; ++c)
            s[c] = base[co[c]];
        return secondPass(p, s, d, corners);
    }

    // One step of the first pass: equal values pass through, else (a u) + (b w).
    [[gnu::always_inline]] static V lerp(V a, V b, V w) noexcept {
        const V u = V(1) - w;
        const V lower = a * u;
        const V upper = b * w;
        return a == b ? a : lower + upper;
    }

    // Pairs (j, j+1) differ in the corner bit of the dimension being reduced.
    static inline V firstPass(const Pair* p, V* s, u64 d, u64 m) noexcept {
        for (u64 k = 0; k < d; ++k) {
            const V w = p[k].t;
            for (u64 j = 0; j < m; j += 2)
                s[j >> 1] = lerp(s[j], s[j + 1], w);
            m >>= 1;
        }
        return s[0];
    }

    // A weight of exactly zero contributes exactly zero, even against an infinite or NaN value.
    static inline V secondPass(const Pair* p, V* s, u64 d, u64 m) noexcept {
        for (u64 k = 0; k < d; ++k) {
            const V w = p[k].t;
            const V u = V(1) - w;
            for (u64 j = 0; j < m; j += 2) {
                const V a = s[j];
                const V b = s[j + 1];
                if (a == b) {
                    s[j >> 1] = a;
                    continue;
                }
                const V upper = (w == V(0)) ? V(0) : w * b;
                const V lower = (u != V(0)) ? a * u : V(0);
                s[j >> 1] = upper + lower;
            }
            m >>= 1;
        }
        return s[0];
    }

    void prepareSimd() {
        if constexpr (hasSimdPath<double> || hasSimdPath<float>) {
            const u64 d = this->numDims;
            kernel_ = simd::packedNDKernel<G>(simd::simdLevel());
            if (kernel_ == nullptr || d < 2 || d > 3) return;
            u64 total = 1;
            for (u64 k = 0; k < d; ++k)
                total *= this->gridSizes[k]; // checked against overflow when stored
            if (total >= (u64{1} << 31)) return;
            platform::HostVector<std::int32_t> co(cornerCount);
            for (u64 c = 0; c < cornerCount; ++c)
                co[c] = static_cast<std::int32_t>(cornerOffsets[c]);
            if constexpr (std::is_same_v<G, double>) {
                platform::HostVector<simd::SimdAxis> axes(d);
                for (u64 k = 0; k < d; ++k)
                    axes[k] = simd::simdAxis(this->gridVectors[k], this->gridSizes[k],
                                             this->meanSpacing[k], this->strides[k]);
                simdAxes.swap(axes);
            } else {
                platform::HostVector<simd::SimdAxisF> axes(d);
                for (u64 k = 0; k < d; ++k)
                    axes[k] = simd::simdAxisF(this->gridVectors[k], this->gridSizes[k],
                                              this->meanSpacing[k], this->strides[k]);
                simdAxesF.swap(axes);
            }
            simdCornerOffsets.swap(co);
        }
    }

    platform::HostVector<simd::SimdAxis> simdAxes;        // double grids
    platform::HostVector<simd::SimdAxisF> simdAxesF;      // single grids
    platform::HostVector<std::int32_t> simdCornerOffsets; // empty: the packed path is off
    simd::PackedNDKernel<std::conditional_t<std::is_same_v<G, float>, float, double>> kernel_ =
        nullptr;
    OnceGuard guard_;
};

} // namespace mathinterp
