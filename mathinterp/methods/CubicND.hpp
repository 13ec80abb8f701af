// CubicND: tensor-product cubic convolution (Keys' kernel, a = -1/2) on uniform grids with at
// least three points per dimension. A query combines the 4^d grid values around its cell,
// reduced one dimension at a time (dimension 0 first) with the weights of CubicConvolution.hpp,
// then divided by 2^d. In a first or last cell the values beyond the grid are phantoms that
// continue the quadratic through the three end values, so quadratic tensor data are
// reproduced exactly; outside the grid the end cell's polynomial continues.
// Cost: 4^d loads and 4^d - 1 weighted sums per query; interior cells take a fast path without
// range checks. prepare() builds the index tables once under a guard; kernels only read.
#pragma once

#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/methods/CubicConvolution.hpp"
#include "mathinterp/methods/CubicNDSimd.hpp"
#include "mathinterp/methods/CubicNDSimd512.hpp"
#include "mathinterp/methods/InterpMethodND.hpp"
#include "mathinterp/methods/PackedND.hpp"

#include <cstdint>
#include <type_traits>

namespace mathinterp {

template <class G, class V>
class CubicND final : public InterpMethodND<G, V> {
    using Base = InterpMethodND<G, V>;

public:
    static constexpr bool available = true;

    // The cell (interval index) and t = (x - g[i]) / h[i], formed in G and rounded to V.
    struct Pair {
        u64 index;
        V t;
    };
    using Buffer = DefaultBuffer<V>;

    CubicND(const G* const* grids, const u64* sizes, const V* valuesPlane, u64 d)
        : Base(grids, sizes, valuesPlane, d), neighbourhoodSize(checkedPow4(d)),
          listLength(d == 0 ? 0 : checkedPow4(d - 1)), totalValues(1),
          divisor(static_cast<V>(checkedPow2(d))) {
        for (u64 k = 0; k < d; ++k)
            totalValues = checkedMul(totalValues, sizes[k]);
    }

    void prepare() override {
        guard_.ensure([this] {
            const u64 d = this->numDims;
            // Every size is checked before the first allocation.
            static_cast<void>(checkedBytes<u64>(checkedMul(d, listLength)));
            static_cast<void>(checkedBytes<u64>(neighbourhoodSize));
            platform::HostVector<platform::HostVector<G>> widths(d);
            for (u64 k = 0; k < d; ++k) {
                const u64 n = this->gridSizes[k];
                const G* g = this->gridVectors[k];
                widths[k].resize(n - 1);
                for (u64 i = 0; i + 1 < n; ++i)
                    widths[k][i] = g[i + 1] - g[i];
            }
            // Neighbourhood index c: base-4 digits, dimension 0 least significant.
            platform::HostVector<u64> offsets(neighbourhoodSize);
            for (u64 c = 0; c < neighbourhoodSize; ++c) {
                u64 o = 0;
                for (u64 k = 0; k < d; ++k)
                    o += ((c >> (2 * k)) & 3u) * this->strides[k];
                offsets[c] = o;
            }
            // Per dimension, the entries whose digit k is 0: the lower phantom layer.
            platform::HostVector<u64> lists(d * listLength);
            for (u64 k = 0; k < d; ++k) {
                u64* l = lists.data() + k * listLength;
                u64 j = 0;
                for (u64 c = 0; c < neighbourhoodSize; ++c)
                    if (((c >> (2 * k)) & 3u) == 0) l[j++] = c;
            }
            cellWidths.swap(widths);
            neighbourhoodOffsets.swap(offsets);
            indexLists.swap(lists);
            prepareSimd();
        });
    }

    bool prepared() const noexcept { return guard_.ready(); }

    Buffer makeBuffer() const { return Buffer(neighbourhoodSize); }

    template <class Q>
    Pair makePair(u64 k, Q xq, u64 i) const noexcept {
        const G x = static_cast<G>(xq);
        const G t = (x - this->gridVectors[k][i]) / cellWidths[k][i];
        return {i, static_cast<V>(t)};
    }

    V kernel(const Pair* p, Buffer& scratch) const noexcept {
        switch (this->numDims) {
        case 2:
            return kernelFixed<2>(p, scratch.data());
        case 3:
            return kernelFixed<3>(p, scratch.data());
        default:
            return kernelAny(p, scratch.data());
        }
    }

    // Ask for the neighbourhood's cache lines ahead of the kernel (results do not depend on
    // it): 4^(d-1) rows of four values along dimension 0, each a line or two.
    void prefetch(const Pair* p) const noexcept {
        const u64 d = this->numDims;
        u64 first = 0;
        for (u64 k = 0; k < d; ++k)
            first += (p[k].index > 0 ? p[k].index - 1 : 0) * this->strides[k];
        const u64* off = neighbourhoodOffsets.data();
        for (u64 c = 0; c < neighbourhoodSize; c += 4) {
            const u64 row = first + off[c];
            if (row + 3 < totalValues) {
                prefetchLine(this->values + row);
                prefetchLine(this->values + row + 3);
            }
        }
    }

    // The packed scattered path: double grid, values and queries, d = 2 or 3, a packed level
    // with a kernel, and a value plane small enough for 32-bit offsets. 3-D takes the
    // portable kernel (PackedND.hpp); 2-D keeps the hand-written AVX2 and AVX-512 kernels
    // (CubicNDSimd*.hpp), which measured faster (docs/decisions.md, decision 52).
    template <class Q>
    static constexpr bool hasSimdPath = simd::allDouble<G, V, Q>;
    bool simdUsable() const noexcept { return !simdAxes.empty(); }

    // Queries [b, e) of d = D columns; one(q) evaluates query q the scalar way.
    template <u64 D, class Q, class One>
    void scatteredSimd(const Q* const* col, u64 b, u64 e, V* out, u64 stride, One&& one) const {
        if constexpr (hasSimdPath<Q> && D == 2) {
#ifdef MATHINTERP_SIMD
            if (eightLanes)
                return simd::cubicScattered2x8(simdAxes.data(), this->values, col, b, e, out,
                                               stride, one);
#endif
            simd::cubicScattered<2>(simdAxes.data(), this->values, col, b, e, out, stride, one);
        } else if constexpr (hasSimdPath<Q> && D == 3) {
            simd::scatteredND<double>(kernel_, simd::KindND::Cubic, 3, simdAxes.data(),
                                      this->values, nullptr, col, b, e, out, stride, one);
        } else {
            for (u64 q = b; q < e; ++q)
                out[q * stride] = one(q);
        }
    }

    platform::HostVector<platform::HostVector<G>> cellWidths; // h_k[i] = g_k[i+1] - g_k[i]
    platform::HostVector<u64> neighbourhoodOffsets;           // digit c_k times stride_k
    platform::HostVector<u64> indexLists; // list k at k * listLength: entries with digit k 0
    u64 neighbourhoodSize;                // 4^d
    u64 listLength;                       // 4^(d-1)
    u64 totalValues;                      // product of the grid sizes
    V divisor;                            // 2^d

private:
    // The same computation with the dimension count known at compile time (2-D and 3-D),
    // written as a recursion over the dimensions: each group of four is combined by the same
    // formula as in reduceGroups, so the bits are those of the general path.
    template <u64 D>
    V kernelFixed(const Pair* p, V* scratch) const noexcept {
        bool interior = true;
        for (u64 k = 0; k < D; ++k) {
            if (isNaN(p[k].t)) return engineNaN<V>();
            interior = interior && p[k].index > 0 && p[k].index < this->lastInterval[k];
        }
        CubicWeights<V> w[D];
        for (u64 k = 0; k < D; ++k)
            w[k] = cubicWeights(p[k].t);
        if (interior) {
            const V* base = this->values;
            u64 st[D];
            for (u64 k = 0; k < D; ++k) {
                st[k] = this->strides[k];
                base += (p[k].index - 1) * st[k];
            }
            return finish(convolve<D - 1>(base, w, st));
        }
        loadBoundary(p, scratch);
        static constexpr u64 local[3] = {1, 4, 16};
        return finish(convolve<D - 1>(scratch, w, local));
    }

    // Dimensions 0..K of the neighbourhood starting at b (dimension k steps by st[k]).
    template <u64 K>
    static V convolve(const V* b, const CubicWeights<V>* w, const u64* st) noexcept {
        if constexpr (K == 0) {
            return ((w[0].w0 * b[1] + w[0].wm1 * b[0]) + w[0].w1 * b[2]) + w[0].w2 * b[3];
        } else {
            const u64 s = st[K];
            const V a = convolve<K - 1>(b, w, st);
            const V c = convolve<K - 1>(b + s, w, st);
            const V e = convolve<K - 1>(b + 2 * s, w, st);
            const V f = convolve<K - 1>(b + 3 * s, w, st);
            return ((w[K].w0 * c + w[K].wm1 * a) + w[K].w1 * e) + w[K].w2 * f;
        }
    }

    V kernelAny(const Pair* p, V* s) const noexcept {
        const u64 d = this->numDims;
        bool interior = true;
        for (u64 k = 0; k < d; ++k) {
            if (isNaN(p[k].t)) return engineNaN<V>();
            interior = interior && p[k].index > 0 && p[k].index < this->lastInterval[k];
        }
        if (interior) {
            const V* base = this->values;
            for (u64 k = 0; k < d; ++k)
                base += (p[k].index - 1) * this->strides[k];
            const u64* off = neighbourhoodOffsets.data();
            for (u64 c = 0; c < neighbourhoodSize; ++c)
                s[c] = base[off[c]];
        } else {
            loadBoundary(p, s);
        }
        u64 m = neighbourhoodSize;
        for (u64 k = 0; k < d; ++k) {
            m >>= 2;
            reduceGroups(s, m, cubicWeights(p[k].t));
        }
        return finish(s[0]);
    }

    // The division by 2^d; a NaN (from a NaN value) is written as the engine's NaN.
    V finish(V sum) const noexcept {
        const V r = sum / divisor;
        return isNaN(r) ? engineNaN<V>() : r;
    }

    // Groups of four consecutive entries (a, b, c, e) become
    // ((w0 b + w-1 a) + w1 c) + w2 e, stored in order at the front.
    static void reduceGroups(V* s, u64 m, const CubicWeights<V>& w) noexcept {
        for (u64 j = 0; j < m; ++j) {
            const V* q = s + 4 * j;
            s[j] = ((w.w0 * q[1] + w.wm1 * q[0]) + w.w1 * q[2]) + w.w2 * q[3];
        }
    }

    // A first or last cell in some dimension: load what lies inside the values array (0
    // elsewhere), then overwrite the phantom layers dimension by dimension, each later
    // dimension using the phantoms already written for the earlier ones.
    void loadBoundary(const Pair* p, V* s) const noexcept {
        const u64 d = this->numDims;
        // Flat index of the neighbourhood's first entry; it may lie before the array, so
        // wrap-around arithmetic is undone by the range test below.
        u64 first = 0;
        for (u64 k = 0; k < d; ++k)
            first += (p[k].index - 1) * this->strides[k];
        const u64* off = neighbourhoodOffsets.data();
        const V* y = this->values;
        for (u64 c = 0; c < neighbourhoodSize; ++c) {
            const u64 flat = first + off[c];
            s[c] = flat < totalValues ? y[flat] : V(0);
        }
        for (u64 k = 0; k < d; ++k) {
            const u64 i = p[k].index;
            const u64 step = u64{1} << (2 * k);
            const u64* list = indexLists.data() + k * listLength;
            if (i == 0) {
                for (u64 j = 0; j < listLength; ++j) {
                    const u64 e = list[j];
                    s[e] = V(3) * (s[e + step] - s[e + 2 * step]) + s[e + 3 * step];
                }
            } else if (i == this->lastInterval[k]) {
                for (u64 j = 0; j < listLength; ++j) {
                    const u64 e = list[j];
                    s[e + 3 * step] = V(3) * (s[e + 2 * step] - s[e + step]) + s[e];
                }
            }
        }
    }

    void prepareSimd() {
        if constexpr (hasSimdPath<double>) {
            const u64 d = this->numDims;
            kernel_ = simd::packedNDKernel<double>(simd::simdLevel());
            if (kernel_ == nullptr || !simd::avx2Available() || d < 2 || d > 3) return;
            if (totalValues >= (u64{1} << 31)) return;
            // Interior cells (the only packed ones) need four points in each dimension.
            for (u64 k = 0; k < d; ++k)
                if (this->gridSizes[k] < 4) return;
            platform::HostVector<simd::SimdAxis> axes(d);
            for (u64 k = 0; k < d; ++k) {
                axes[k] = simd::simdAxis(this->gridVectors[k], this->gridSizes[k],
                                         this->meanSpacing[k], this->strides[k]);
            }
            simdAxes.swap(axes);
            eightLanes = simd::simdLevel() >= simd::SimdLevel::Avx512;
        }
    }

    platform::HostVector<simd::SimdAxis> simdAxes;  // empty: the packed path is off
    simd::PackedNDKernel<double> kernel_ = nullptr; // 3-D
    bool eightLanes = false;                        // 2-D: the AVX-512 kernel
    OnceGuard guard_;
};

} // namespace mathinterp
