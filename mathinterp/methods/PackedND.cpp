// The packed 2-D/3-D multilinear and nearest kernels (see PackedND.hpp), written once over
// Highway and compiled here for each instruction set; packedNDKernel picks one by level.
#ifndef HWY_DISABLED_TARGETS
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3_DL)
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mathinterp/methods/PackedND.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include "mathinterp/core/PackedSearch-inl.hpp"
#include "mathinterp/methods/PackedND.hpp"

#include <hwy/highway.h>

#include <cstring>

#if HWY_TARGET != HWY_SCALAR
HWY_BEFORE_NAMESPACE();
namespace mathinterp::simd::HWY_NAMESPACE {

// The multilinear reduction of the corner values s[0 .. 2^D) with fractions t[0 .. D):
// dimension 0 first; an equal pair passes its value through without arithmetic.
template <int D, class DT>
HWY_INLINE hn::Vec<DT> reduceCorners(DT d, hn::Vec<DT>* s, const hn::Vec<DT>* t) {
    const hn::Vec<DT> one = hn::Set(d, 1);
    int m = 1 << D;
    for (int k = 0; k < D; ++k) {
        const hn::Vec<DT> w = t[k], u = hn::Sub(one, w);
        for (int j = 0; j < m; j += 2) {
            const hn::Vec<DT> lower = hn::Mul(s[j], u), upper = hn::Mul(s[j + 1], w);
            s[j >> 1] = hn::IfThenElse(hn::Eq(s[j], s[j + 1]), s[j], hn::Add(lower, upper));
        }
        m >>= 1;
    }
    return s[0];
}

// Double: cell indices travel as exact integers in double lanes, value offsets too (< 2^31).
template <KindND K, int D>
u64 packedDouble(const SimdAxis* ax, const double* HWY_RESTRICT values,
                 const std::int32_t* cornerOffsets, const double* const* col, u64 b, u64 e,
                 double* HWY_RESTRICT out, u64 outStride, u64* HWY_RESTRICT redo) {
    const Dd d;
    const u64 lanes = hn::Lanes(d);
    const Vd one = hn::Set(d, 1.0);
    u64 count = 0;
    u64 q = b;
    for (; q + lanes <= e; q += lanes) {
        prefetchQueries(col, D, q, e);
        Md bad = hn::FirstN(d, 0);
        Vd offset = hn::Zero(d);
        Vd t[D];
        for (int k = 0; k < D; ++k) {
            const Vd x = hn::LoadU(d, col[k] + q);
            Cell c;
            locateGuess(d, ax[k], x, c, bad);
            Vd index = c.fi;
            if constexpr (K == KindND::Linear) {
                t[k] = hn::Div(hn::Sub(x, c.gi), hn::Sub(c.gi1, c.gi));
                bad = hn::Or(bad, hn::IsNaN(t[k])); // a NaN query
            } else {
                bad = hn::Or(bad, hn::IsNaN(x)); // the scalar rule
                const Md up = hn::Ge(hn::Sub(x, c.gi), hn::Sub(c.gi1, x));
                index = hn::Add(index, hn::IfThenElseZero(up, one));
            }
            offset = hn::Add(offset, hn::Mul(index, hn::Set(d, static_cast<double>(ax[k].stride))));
        }
        HWY_ALIGN std::int32_t o[kLanesMax];
        storeIndices(d, offset, o);
        if constexpr (K == KindND::Linear) {
            Vd s[1 << D];
            for (int c = 0; c < (1 << D); c += 2) // corners c and c + 1 are neighbours in memory
                loadPairs(d, values + cornerOffsets[c], o, s[c], s[c + 1]);
            const Vd r = reduceCorners<D>(d, s, t);
            bad = hn::Or(bad, hn::IsNaN(r)); // the second pass's business
            storeLanes(d, r, q, out, outStride);
        } else {
            for (u64 l = 0; l < lanes; ++l) // one load per query; bad lanes are rewritten
                out[(q + l) * outStride] = values[o[l]];
        }
        count = listLanes(d, bad, q, redo, count);
    }
    for (; q < e; ++q)
        redo[count++] = q;
    return count;
}

// Single: cell indices and value offsets in 32-bit lanes beside the float lanes.
template <KindND K, int D>
u64 packedSingle(const SimdAxisF* ax, const float* HWY_RESTRICT values,
                 const std::int32_t* cornerOffsets, const float* const* col, u64 b, u64 e,
                 float* HWY_RESTRICT out, u64 outStride, u64* HWY_RESTRICT redo) {
    const Df d;
    const Di di;
    const u64 lanes = hn::Lanes(d);
    u64 count = 0;
    u64 q = b;
    for (; q + lanes <= e; q += lanes) {
        if (q + kQueryAhead + lanes <= e)
            for (int k = 0; k < D; ++k)
                prefetchLine(col[k] + q + kQueryAhead);
        Mf bad = hn::FirstN(d, 0);
        Vi offset = hn::Zero(di);
        Vf t[D];
        for (int k = 0; k < D; ++k) {
            const Vf x = hn::LoadU(d, col[k] + q);
            Vi i;
            Vf gi, gi1;
            locateGuessF(d, ax[k], x, i, gi, gi1, bad);
            if constexpr (K == KindND::Linear) {
                t[k] = hn::Div(hn::Sub(x, gi), hn::Sub(gi1, gi));
                bad = hn::Or(bad, hn::IsNaN(t[k]));
            } else {
                bad = hn::Or(bad, hn::IsNaN(x)); // the scalar rule
                const Mf up = hn::Ge(hn::Sub(x, gi), hn::Sub(gi1, x));
                i = hn::Add(i, hn::IfThenElseZero(hn::RebindMask(di, up), hn::Set(di, 1)));
            }
            offset = hn::Add(offset, hn::Mul(i, hn::Set(di, ax[k].stride)));
        }
        Vf r;
        if constexpr (K == KindND::Linear) {
            Vf s[1 << D];
            for (int c = 0; c < (1 << D); c += 2) // corners c and c + 1 are neighbours in memory
                loadPairsF(d, values + cornerOffsets[c], offset, s[c], s[c + 1]);
            r = reduceCorners<D>(d, s, t);
            bad = hn::Or(bad, hn::IsNaN(r)); // the second pass's business
        } else {
            // Bad lanes may hold any index: they read the first value, then are redone.
            r = hn::GatherIndex(d, values, hn::IfThenZeroElse(hn::RebindMask(di, bad), offset));
        }
        storeLanes(d, r, q, out, outStride);
        count = listLanes(d, bad, q, redo, count);
    }
    for (; q < e; ++q)
        redo[count++] = q;
    return count;
}

// Cubic convolution (double) of interior cells. Twice Keys' weights of every lane's fraction,
// formed as cubicWeights forms them.
struct CubicWeights {
    Vd wm1, w0, w1, w2;
};

HWY_INLINE CubicWeights cubicWeights(Dd d, Vd t) {
    const Vd one = hn::Set(d, 1.0), two = hn::Set(d, 2.0), three = hn::Set(d, 3.0);
    const Vd t2 = hn::Mul(t, t);
    CubicWeights w;
    w.wm1 = hn::Mul(hn::Sub(hn::Mul(hn::Sub(two, t), t), one), t);
    w.w0 = hn::Add(hn::Mul(hn::Sub(hn::Mul(three, t), hn::Set(d, 5.0)), t2), two);
    w.w1 = hn::Mul(hn::Add(hn::Mul(hn::Sub(hn::Set(d, 4.0), hn::Mul(three, t)), t), one), t);
    w.w2 = hn::Mul(hn::Sub(t, one), t2);
    return w;
}

// ((w0 b + w-1 a) + w1 c) + w2 e, lane by lane: the scalar kernel's sum.
HWY_INLINE Vd convolve4(const CubicWeights& w, Vd a, Vd b, Vd c, Vd e) {
    return hn::Add(hn::Add(hn::Add(hn::Mul(w.w0, b), hn::Mul(w.wm1, a)), hn::Mul(w.w1, c)),
                   hn::Mul(w.w2, e));
}

// The row of four values base[o[l] .. o[l] + 3] of every lane l, transposed: v[j] holds entry
// j of every lane's row. Four lanes: four row loads, two unpacks and two half swaps per pair;
// wider: rows loaded side by side, then the even and odd entries parted twice.
HWY_INLINE void loadRows(Dd d, const double* HWY_RESTRICT base, const std::int32_t* o, Vd* v) {
    constexpr std::size_t n = hn::MaxLanes(Dd());
    if constexpr (n == 4) {
        const Vd a = hn::LoadU(d, base + o[0]), b = hn::LoadU(d, base + o[1]);
        const Vd c = hn::LoadU(d, base + o[2]), e = hn::LoadU(d, base + o[3]);
        const Vd lo01 = hn::InterleaveLower(d, a, b), hi01 = hn::InterleaveUpper(d, a, b);
        const Vd lo23 = hn::InterleaveLower(d, c, e), hi23 = hn::InterleaveUpper(d, c, e);
        v[0] = hn::ConcatLowerLower(d, lo23, lo01);
        v[1] = hn::ConcatLowerLower(d, hi23, hi01);
        v[2] = hn::ConcatUpperUpper(d, lo23, lo01);
        v[3] = hn::ConcatUpperUpper(d, hi23, hi01);
    } else if constexpr (n >= 8) {
        const std::size_t q = n / 4; // rows per vector
        const Vd x0 = loadBlocks<4, 1>(d, base, o), x1 = loadBlocks<4, 1>(d, base, o + q);
        const Vd x2 = loadBlocks<4, 1>(d, base, o + 2 * q);
        const Vd x3 = loadBlocks<4, 1>(d, base, o + 3 * q);
        const Vd even01 = hn::ConcatEven(d, x1, x0), odd01 = hn::ConcatOdd(d, x1, x0);
        const Vd even23 = hn::ConcatEven(d, x3, x2), odd23 = hn::ConcatOdd(d, x3, x2);
        v[0] = hn::ConcatEven(d, even23, even01);
        v[1] = hn::ConcatEven(d, odd23, odd01);
        v[2] = hn::ConcatOdd(d, even23, even01);
        v[3] = hn::ConcatOdd(d, odd23, odd01);
    } else {
        loadPairs(d, base, o, v[0], v[1]);
        loadPairs(d, base + 2, o, v[2], v[3]);
    }
}

// Where a vector of queries sits: each lane's first neighbourhood entry, its fractions, and
// the lanes that must take the scalar kernel (boundary cell, missed guess, NaN query). Every
// lane's entry is a valid one, so the whole vector is reduced and those lanes redone.
template <int D, bool Widths = false>
struct CubicGroup {
    HWY_ALIGN std::int32_t first[kLanesMax];
    HWY_ALIGN double t[D][kLanesMax];
    HWY_ALIGN double h[Widths ? D : 1][kLanesMax]; // cell widths (the gradient's)
    std::uint64_t bad;                             // bit l: lane l
};

// Only interior cells are wanted (1 <= i <= n - 3), so the guess is clamped to them and the
// cell check alone decides: a query in a first or last cell, outside the grid or NaN fails
// it, as does a missed guess. The clamp keeps a failing lane's neighbourhood in the grid.
template <int D, bool Widths>
HWY_INLINE void locateCubic(Dd d, const SimdAxis* ax, const double* HWY_RESTRICT values,
                            const std::int32_t* strides, const double* const* col, u64 q, u64 e,
                            CubicGroup<D, Widths>& g) {
    prefetchQueries(col, D, q, e);
    const Vd one = hn::Set(d, 1.0);
    Md bad = hn::FirstN(d, 0);
    Vd first = hn::Zero(d);
    for (int k = 0; k < D; ++k) {
        const SimdAxis& a = ax[k];
        const Vd x = hn::LoadU(d, col[k] + q);
        Vd guess = hn::Sub(hn::Mul(x, hn::Set(d, a.inv)), hn::Set(d, a.firstTimesInv));
        guess = hn::IfThenElse(hn::IsNaN(guess), one, guess); // NaN: cell 1, then redone
        guess = hn::Min(hn::Max(guess, one), hn::Set(d, static_cast<double>(a.last - 1)));
        Cell c;
        c.fi = hn::Trunc(guess);
        if (a.arithmetic) {
            const Vd step = hn::Set(d, a.step), g0 = hn::Set(d, a.g[0]);
            c.gi = hn::Add(g0, hn::Mul(c.fi, step));
            c.gi1 = hn::Add(g0, hn::Mul(hn::Add(c.fi, one), step));
        } else {
            storeIndices(d, c.fi, c.o);
            loadPairs(d, a.g, c.o, c.gi, c.gi1);
        }
        bad = hn::Or(bad, hn::Not(hn::And(hn::Ge(x, c.gi), hn::Lt(x, c.gi1))));
        const Vd width = hn::Sub(c.gi1, c.gi);
        hn::Store(hn::Div(hn::Sub(x, c.gi), width), d, g.t[k]);
        if constexpr (Widths) hn::Store(width, d, g.h[k]);
        first =
            hn::Add(first, hn::Mul(hn::Sub(c.fi, one), hn::Set(d, static_cast<double>(a.stride))));
    }
    storeIndices(d, first, g.first);
    std::uint8_t bits[8] = {};
    hn::StoreMaskBits(d, bad, bits);
    std::memcpy(&g.bad, bits, sizeof g.bad); // little-endian: bit l is lane l
    // Ask for the rows the reduction will read.
    constexpr int numPlanes = D == 3 ? 4 : 1;
    for (std::size_t l = 0; l < hn::Lanes(d); ++l)
        for (int p = 0; p < numPlanes; ++p)
            for (int r = 0; r < 4; ++r) {
                const double* row = values + g.first[l] + r * strides[1] + p * strides[2];
                prefetchLine(row);
                prefetchLine(row + 3);
            }
}

// The 4^D values of each lane, reduced dimension by dimension (0 first) as the scalar
// kernel's recursion does: four rows give a plane, four planes the 3-D result.
template <int D>
HWY_INLINE Vd reduceCubic(Dd d, const double* HWY_RESTRICT values, const std::int32_t* strides,
                          const CubicGroup<D>& g) {
    CubicWeights w[D];
    for (int k = 0; k < D; ++k)
        w[k] = cubicWeights(d, hn::Load(d, g.t[k]));
    constexpr int numPlanes = D == 3 ? 4 : 1;
    Vd planes[4];
    for (int p = 0; p < numPlanes; ++p) {
        Vd rows[4];
        for (int r = 0; r < 4; ++r) {
            const double* base = values + r * strides[1] + p * strides[2];
            Vd v[4];
            loadRows(d, base, g.first, v);
            rows[r] = convolve4(w[0], v[0], v[1], v[2], v[3]);
        }
        planes[p] = convolve4(w[1], rows[0], rows[1], rows[2], rows[3]);
    }
    // The division by 2^D as a product with 2^-D: the same correctly rounded quotient.
    Vd r;
    if constexpr (D == 3)
        r = hn::Mul(convolve4(w[2], planes[0], planes[1], planes[2], planes[3]), hn::Set(d, 0.125));
    else
        r = hn::Mul(planes[0], hn::Set(d, 0.25));
    return hn::IfThenElse(hn::IsNaN(r), hn::Set(d, engineNaN<double>()), r);
}

// Each vector of queries is located, and its rows requested, kAhead vectors before it is
// reduced: a steady distance (a ring of located groups) beat blocks located a block ahead by
// 1.8x on 10^6 random queries on a 1000 x 1000 grid; 32 queries of lead measured best.
template <int D>
u64 packedCubic(const SimdAxis* ax, const double* HWY_RESTRICT values, const double* const* col,
                u64 b, u64 e, double* HWY_RESTRICT out, u64 outStride, u64* HWY_RESTRICT redo) {
    const Dd d;
    const u64 lanes = hn::Lanes(d);
    constexpr u64 kAhead = 32 / (hn::MaxLanes(Dd()) < 32 ? hn::MaxLanes(Dd()) : 32);
    CubicGroup<D> ring[kAhead];
    const std::int32_t strides[3] = {1, ax[1].stride, D == 3 ? ax[2].stride : 0};
    const u64 groups = (e - b) / lanes;
    for (u64 j = 0; j < groups && j < kAhead; ++j)
        locateCubic(d, ax, values, strides, col, b + lanes * j, e, ring[j]);
    u64 count = 0;
    for (u64 j = 0; j < groups; ++j) {
        CubicGroup<D>& g = ring[j % kAhead];
        const u64 q = b + lanes * j;
        storeLanes(d, reduceCubic(d, values, strides, g), q, out, outStride);
        for (std::uint64_t m = g.bad; m != 0; m &= m - 1)
            redo[count++] = q + static_cast<u64>(__builtin_ctzll(m));
        if (j + kAhead < groups)
            locateCubic(d, ax, values, strides, col, b + lanes * (j + kAhead), e, g);
    }
    for (u64 q = b + lanes * groups; q < e; ++q)
        redo[count++] = q;
    return count;
}

template <class T, class Axis>
u64 packedND(KindND kind, int dims, const Axis* ax, const T* values,
             const std::int32_t* cornerOffsets, const T* const* col, u64 b, u64 e, T* out,
             u64 outStride, u64* redo) {
    constexpr bool isDouble = std::is_same_v<T, double>;
    auto run = [&](auto kindTag, auto dimsTag) {
        constexpr KindND K = decltype(kindTag)::value;
        constexpr int D = decltype(dimsTag)::value;
        if constexpr (isDouble)
            return packedDouble<K, D>(ax, values, cornerOffsets, col, b, e, out, outStride, redo);
        else
            return packedSingle<K, D>(ax, values, cornerOffsets, col, b, e, out, outStride, redo);
    };
    using L = std::integral_constant<KindND, KindND::Linear>;
    using N = std::integral_constant<KindND, KindND::Nearest>;
    if (kind == KindND::Cubic) { // 2-D: kept for measuring; CubicND runs its own (decision 52)
        if constexpr (isDouble)
            return dims == 2 ? packedCubic<2>(ax, values, col, b, e, out, outStride, redo)
                             : packedCubic<3>(ax, values, col, b, e, out, outStride, redo);
        for (u64 q = b; q < e; ++q) // no single-precision cubic kernel
            redo[q - b] = q;
        return e - b;
    }
    using Two = std::integral_constant<int, 2>;
    using Three = std::integral_constant<int, 3>;
    if (kind == KindND::Linear) return dims == 2 ? run(L{}, Two{}) : run(L{}, Three{});
    return dims == 2 ? run(N{}, Two{}) : run(N{}, Three{});
}

u64 packedNDDouble(KindND kind, int dims, const SimdAxis* ax, const double* values,
                   const std::int32_t* cornerOffsets, const double* const* col, u64 b, u64 e,
                   double* out, u64 outStride, u64* redo) {
    return packedND(kind, dims, ax, values, cornerOffsets, col, b, e, out, outStride, redo);
}

u64 packedNDSingle(KindND kind, int dims, const SimdAxisF* ax, const float* values,
                   const std::int32_t* cornerOffsets, const float* const* col, u64 b, u64 e,
                   float* out, u64 outStride, u64* redo) {
    return packedND(kind, dims, ax, values, cornerOffsets, col, b, e, out, outStride, redo);
}

// The multilinear gradient (double): the steps of GradientND<LinearND>::atFixed on every
// lane. Value steps pass equal ends through; a difference needs no test for equal ends
// (finite ones give 0 anyway, infinite ones NaN, and a NaN component is redone).
template <int D>
u64 packedLinearGradient(const SimdAxis* ax, const double* HWY_RESTRICT values,
                         const std::int32_t* corners, const double* const* col, u64 b, u64 e,
                         double* const* outs, u64 stride, u64* HWY_RESTRICT redo) {
    constexpr int C = 1 << D;
    const Dd d;
    const u64 lanes = hn::Lanes(d);
    const Vd one = hn::Set(d, 1.0);
    auto lerp = [&](Vd a, Vd c, Vd w) HWY_ATTR {
        return hn::IfThenElse(hn::Eq(a, c), a, hn::Add(hn::Mul(a, hn::Sub(one, w)), hn::Mul(c, w)));
    };
    u64 count = 0;
    u64 q = b;
    for (; q + lanes <= e; q += lanes) {
        prefetchQueries(col, D, q, e);
        Md bad = hn::FirstN(d, 0);
        Vd offset = hn::Zero(d);
        Vd t[D], invH[D];
        for (int k = 0; k < D; ++k) {
            const Vd x = hn::LoadU(d, col[k] + q);
            Cell c;
            locateGuess(d, ax[k], x, c, bad);
            const Vd h = hn::Sub(c.gi1, c.gi);
            t[k] = hn::Div(hn::Sub(x, c.gi), h);
            invH[k] = hn::Div(one, h);
            bad = hn::Or(bad, hn::IsNaN(t[k]));
            offset = hn::Add(offset, hn::Mul(c.fi, hn::Set(d, static_cast<double>(ax[k].stride))));
        }
        HWY_ALIGN std::int32_t o[kLanesMax];
        storeIndices(d, offset, o);
        Vd s[C];
        for (int c = 0; c < C; c += 2) // corners c and c + 1 are neighbours in memory
            loadPairs(d, values + corners[c], o, s[c], s[c + 1]);
        Vd comp[D][C / 2];
        int n = C;
        for (int k = 0; k < D; ++k) {
            const Vd w = t[k];
            for (int j = 0; j < k; ++j)
                for (int p = 0; p < n; p += 2)
                    comp[j][p >> 1] = lerp(comp[j][p], comp[j][p + 1], w);
            for (int p = 0; p < n; p += 2) {
                comp[k][p >> 1] = hn::Mul(hn::Sub(s[p + 1], s[p]), invH[k]);
                s[p >> 1] = lerp(s[p], s[p + 1], w);
            }
            n >>= 1;
        }
        for (int k = 0; k < D; ++k) {
            bad = hn::Or(bad, hn::IsNaN(comp[k][0]));
            storeLanes(d, comp[k][0], q, outs[k], stride);
        }
        count = listLanes(d, bad, q, redo, count);
    }
    for (; q < e; ++q)
        redo[count++] = q;
    return count;
}

u64 packedLinearGradientDouble(int dims, const SimdAxis* ax, const double* values,
                               const std::int32_t* corners, const double* const* col, u64 b, u64 e,
                               double* const* outs, u64 stride, u64* redo) {
    return dims == 2 ? packedLinearGradient<2>(ax, values, corners, col, b, e, outs, stride, redo)
                     : packedLinearGradient<3>(ax, values, corners, col, b, e, outs, stride, redo);
}

// The 2-D cubic gradient: the value kernel's rows reduced with the value and the derivative
// weights of dimension 0, then both reduced along dimension 1, as GradientND<CubicND> does.
// The derivatives in t of the weights, formed as grad::cubicWeightDerivatives<1> forms them.
HWY_INLINE CubicWeights cubicWeightDerivatives(Dd d, Vd t) {
    const Vd one = hn::Set(d, 1.0), three = hn::Set(d, 3.0), nine = hn::Set(d, 9.0);
    CubicWeights w;
    w.wm1 = hn::Sub(hn::Mul(hn::Sub(hn::Set(d, 4.0), hn::Mul(three, t)), t), one);
    w.w0 = hn::Mul(hn::Sub(hn::Mul(nine, t), hn::Set(d, 10.0)), t);
    w.w1 = hn::Add(hn::Mul(hn::Sub(hn::Set(d, 8.0), hn::Mul(nine, t)), t), one);
    w.w2 = hn::Mul(hn::Sub(hn::Mul(three, t), hn::Set(d, 2.0)), t);
    return w;
}

u64 packedCubicGradient2(const SimdAxis* ax, const double* HWY_RESTRICT values,
                         const double* const* col, u64 b, u64 e, double* const* outs, u64 stride,
                         u64* HWY_RESTRICT redo) {
    const Dd d;
    const u64 lanes = hn::Lanes(d);
    constexpr u64 kAhead = 32 / (hn::MaxLanes(Dd()) < 32 ? hn::MaxLanes(Dd()) : 32);
    CubicGroup<2, true> ring[kAhead];
    const std::int32_t strides[3] = {1, ax[1].stride, 0};
    const u64 groups = (e - b) / lanes;
    for (u64 j = 0; j < groups && j < kAhead; ++j)
        locateCubic(d, ax, values, strides, col, b + lanes * j, e, ring[j]);
    const Vd quarter = hn::Set(d, 0.25);
    u64 count = 0;
    for (u64 j = 0; j < groups; ++j) {
        CubicGroup<2, true>& g = ring[j % kAhead];
        const u64 q = b + lanes * j;
        const Vd t0 = hn::Load(d, g.t[0]), t1 = hn::Load(d, g.t[1]);
        const CubicWeights w0 = cubicWeights(d, t0), d0 = cubicWeightDerivatives(d, t0);
        Vd rows[4], drows[4];
        for (int r = 0; r < 4; ++r) {
            Vd v[4];
            loadRows(d, values + r * strides[1], g.first, v);
            drows[r] = convolve4(d0, v[0], v[1], v[2], v[3]);
            rows[r] = convolve4(w0, v[0], v[1], v[2], v[3]);
        }
        const CubicWeights w1 = cubicWeights(d, t1), d1 = cubicWeightDerivatives(d, t1);
        // The division by 2^d = 4 as a product with 0.25: the same correctly rounded quotient.
        const Vd g0 =
            hn::Div(hn::Mul(convolve4(w1, drows[0], drows[1], drows[2], drows[3]), quarter),
                    hn::Load(d, g.h[0]));
        const Vd g1 = hn::Div(hn::Mul(convolve4(d1, rows[0], rows[1], rows[2], rows[3]), quarter),
                              hn::Load(d, g.h[1]));
        storeLanes(d, g0, q, outs[0], stride);
        storeLanes(d, g1, q, outs[1], stride);
        std::uint8_t bits[8] = {};
        hn::StoreMaskBits(d, hn::Or(hn::IsNaN(g0), hn::IsNaN(g1)), bits);
        std::uint64_t nan = 0;
        std::memcpy(&nan, bits, sizeof nan);
        for (std::uint64_t m = g.bad | nan; m != 0; m &= m - 1)
            redo[count++] = q + static_cast<u64>(__builtin_ctzll(m));
        if (j + kAhead < groups)
            locateCubic(d, ax, values, strides, col, b + lanes * (j + kAhead), e, g);
    }
    for (u64 q = b + lanes * groups; q < e; ++q)
        redo[count++] = q;
    return count;
}

u64 packedCubicGradientDouble(int, const SimdAxis* ax, const double* values, const std::int32_t*,
                              const double* const* col, u64 b, u64 e, double* const* outs,
                              u64 stride, u64* redo) {
    return packedCubicGradient2(ax, values, col, b, e, outs, stride, redo);
}

} // namespace mathinterp::simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace mathinterp::simd {

template <>
PackedNDKernel<double> packedNDKernel<double>(SimdLevel level) noexcept {
    return pickTarget<PackedNDKernel<double>>(level, MATHINTERP_AVX3(packedNDDouble),
                                              MATHINTERP_AVX2(packedNDDouble));
}

template <>
PackedNDKernel<float> packedNDKernel<float>(SimdLevel level) noexcept {
    return pickTarget<PackedNDKernel<float>>(level, MATHINTERP_AVX3(packedNDSingle),
                                             MATHINTERP_AVX2(packedNDSingle));
}

PackedGradientKernel packedLinearGradientKernel(SimdLevel level) noexcept {
    return pickTarget<PackedGradientKernel>(level, MATHINTERP_AVX3(packedLinearGradientDouble),
                                            MATHINTERP_AVX2(packedLinearGradientDouble));
}

PackedGradientKernel packedCubicGradientKernel(SimdLevel level) noexcept {
    return pickTarget<PackedGradientKernel>(level, MATHINTERP_AVX3(packedCubicGradientDouble),
                                            MATHINTERP_AVX2(packedCubicGradientDouble));
}

} // namespace mathinterp::simd
#endif
