// The packed 1-D kernels (see Packed1D.hpp), written once over Highway and compiled here for
// each instruction set this file is built for; packed1DKernel picks one by packed level.
// Every kind in double and in single precision.
// Only the x86 targets the levels name are built (the baseline one comes with Highway).
#ifndef HWY_DISABLED_TARGETS
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3_DL)
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mathinterp/methods/Packed1D.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include "mathinterp/core/PackedSearch-inl.hpp"
#include "mathinterp/methods/Packed1D.hpp"

#include <hwy/highway.h>

#include <type_traits>

#if HWY_TARGET != HWY_SCALAR
HWY_BEFORE_NAMESPACE();
namespace mathinterp::simd::HWY_NAMESPACE {

// Cubic convolution of the interior cells (1 <= i < last): the values y[i-1 .. i+2] of every
// lane (two pair loads), cubicWeights' operations and the scalar sum's order. Lanes in the
// end cells are flagged; their indices are clamped so that every load stays inside the plane
// (which has at least four values).
HWY_INLINE Vd cubicInterior(Dd d, const SimdAxis& ax, const double* HWY_RESTRICT y, Vd fi, Vd t,
                            Md& bad) {
    const Vd last = hn::Set(d, static_cast<double>(ax.last)), one = hn::Set(d, 1.0);
    bad = hn::Or(bad, hn::Or(hn::Eq(fi, hn::Zero(d)), hn::Eq(fi, last)));
    const Vd k = hn::Min(hn::Max(fi, one), hn::Sub(last, one));
    HWY_ALIGN std::int32_t below[kLanesMax], above[kLanesMax];
    storeIndices(d, hn::Sub(k, one), below);
    storeIndices(d, hn::Add(k, one), above);
    Vd ym1, y0, y1, y2;
    loadPairs(d, y, below, ym1, y0);
    loadPairs(d, y, above, y1, y2);
    const Vd two = hn::Set(d, 2.0), three = hn::Set(d, 3.0);
    const Vd t2 = hn::Mul(t, t);
    const Vd wm1 = hn::Mul(hn::Sub(hn::Mul(hn::Sub(two, t), t), one), t);
    const Vd w0 = hn::Add(hn::Mul(hn::Sub(hn::Mul(three, t), hn::Set(d, 5.0)), t2), two);
    const Vd w1 = hn::Mul(hn::Add(hn::Mul(hn::Sub(hn::Set(d, 4.0), hn::Mul(three, t)), t), one), t);
    const Vd w2 = hn::Mul(hn::Sub(t, one), t2);
    const Vd inner = hn::Add(hn::Add(hn::Mul(w0, y0), hn::Mul(wm1, ym1)), hn::Mul(w1, y1));
    return hn::Mul(hn::Set(d, 0.5), hn::Add(hn::Mul(w2, y2), inner));
}

template <Kind1D K>
u64 scattered1DOf(const SimdAxis& ax, const double* HWY_RESTRICT values,
                  const double* HWY_RESTRICT x, u64 b, u64 e, double* HWY_RESTRICT out,
                  u64 outStride, u64* HWY_RESTRICT redo) {
    const Dd d;
    const u64 lanes = hn::Lanes(d);
    const Vd one = hn::Set(d, 1.0);
    const double lastPoint = ax.g[ax.last + 1];
    const double* const column[1] = {x};
    u64 count = 0;
    u64 q = b;
    for (; q + lanes <= e; q += lanes) {
        prefetchQueries(column, 1, q, e);
        const Vd xv = hn::LoadU(d, x + q);
        Md bad = hn::IsNaN(xv); // NaN queries: the scalar rules
        Cell c;
        locateAny(d, ax, xv, c, bad);
        Vd r;
        if constexpr (K == Kind1D::Linear) {
            // t = (x - g[i]) / w[i] with w[i] = g[i+1] - g[i]; (1 - t) a + b t.
            const Vd t = hn::Div(hn::Sub(xv, c.gi), hn::Sub(c.gi1, c.gi));
            Vd a, v;
            loadPairs(d, values, c.o, a, v);
            const Vd lower = hn::Mul(hn::Sub(one, t), a);
            const Vd upper = hn::Mul(v, t);
            r = hn::IfThenElse(hn::Eq(a, v), a, hn::Add(lower, upper));
            bad = hn::Or(bad, hn::IsNaN(r)); // the scalar's NaN rules
        } else if constexpr (K == Kind1D::Cubic) {
            const Vd t = hn::Div(hn::Sub(xv, c.gi), hn::Sub(c.gi1, c.gi));
            r = cubicInterior(d, ax, values, c.fi, t, bad);
            bad = hn::Or(bad, hn::IsNaN(r)); // the engine's NaN
        } else {
            Md up; // take values[i + 1]
            if constexpr (K == Kind1D::Nearest) {
                up = hn::Ge(hn::Sub(xv, c.gi), hn::Sub(c.gi1, xv));
            } else if constexpr (K == Kind1D::Next) {
                up = hn::Gt(xv, c.gi);
                bad = hn::Or(bad, hn::Gt(xv, hn::Set(d, lastPoint)));
            } else {
                up = hn::Ge(xv, hn::Set(d, lastPoint));
                bad = hn::Or(bad, hn::Lt(xv, hn::Set(d, ax.g[0])));
            }
            r = gatherAt(d, values, hn::Add(c.fi, hn::IfThenElseZero(up, one)));
        }
        storeLanes(d, r, q, out, outStride);
        count = listLanes(d, bad, q, redo, count);
    }
    for (; q < e; ++q)
        redo[count++] = q;
    return count;
}

// Single precision: the packed search (bucket index or guess), then the same operations as
// the double kernel in single lanes.
template <Kind1D K>
u64 scattered1DSingle(const SimdAxisF& ax, const float* HWY_RESTRICT values,
                      const float* HWY_RESTRICT x, u64 b, u64 e, float* HWY_RESTRICT out,
                      u64 outStride, u64* HWY_RESTRICT redo) {
    const Df d;
    const Di di;
    const u64 lanes = hn::Lanes(d);
    const Vf one = hn::Set(d, 1.0f);
    const float lastPoint = ax.g[ax.last + 1];
    u64 count = 0;
    u64 q = b;
    for (; q + lanes <= e; q += lanes) {
        if (q + kQueryAhead + lanes <= e) prefetchLine(x + q + kQueryAhead);
        const Vf xv = hn::LoadU(d, x + q);
        Mf bad = hn::IsNaN(xv); // NaN queries: the scalar rules
        Vi i;
        Vf gi, gi1;
        if (ax.index != nullptr) {
            locateIndexedF(d, ax, xv, i, gi, gi1);
        } else {
            locateGuessF(d, ax, xv, i, gi, gi1, bad);
        }
        Vf r;
        if constexpr (K == Kind1D::Cubic) {
            // Interior cells only (the end cells' ghost values are the scalar kernel's), with
            // cubicWeights' operations and the scalar sum's order, as cubicInterior.
            const Vi last = hn::Set(di, ax.last), oneI = hn::Set(di, 1);
            const auto edge = hn::Or(hn::Eq(i, hn::Zero(di)), hn::Eq(i, last));
            bad = hn::Or(bad, hn::RebindMask(d, edge));
            const Vi k = hn::Min(hn::Max(i, oneI), hn::Sub(last, oneI));
            Vf ym1, y0, y1, y2;
            loadPairsF(d, values, hn::Sub(k, oneI), ym1, y0);
            loadPairsF(d, values, hn::Add(k, oneI), y1, y2);
            const Vf t = hn::Div(hn::Sub(xv, gi), hn::Sub(gi1, gi));
            const Vf two = hn::Set(d, 2.0f), three = hn::Set(d, 3.0f);
            const Vf t2 = hn::Mul(t, t);
            const Vf wm1 = hn::Mul(hn::Sub(hn::Mul(hn::Sub(two, t), t), one), t);
            const Vf w0 = hn::Add(hn::Mul(hn::Sub(hn::Mul(three, t), hn::Set(d, 5.0f)), t2), two);
            const Vf w1 =
                hn::Mul(hn::Add(hn::Mul(hn::Sub(hn::Set(d, 4.0f), hn::Mul(three, t)), t), one), t);
            const Vf w2 = hn::Mul(hn::Sub(t, one), t2);
            const Vf inner = hn::Add(hn::Add(hn::Mul(w0, y0), hn::Mul(wm1, ym1)), hn::Mul(w1, y1));
            r = hn::Mul(hn::Set(d, 0.5f), hn::Add(hn::Mul(w2, y2), inner));
            bad = hn::Or(bad, hn::IsNaN(r)); // the engine's NaN
        } else if constexpr (K == Kind1D::Linear) {
            const Vf t = hn::Div(hn::Sub(xv, gi), hn::Sub(gi1, gi));
            Vf a, v;
            loadPairsF(d, values, i, a, v);
            const Vf lower = hn::Mul(hn::Sub(one, t), a);
            const Vf upper = hn::Mul(v, t);
            r = hn::IfThenElse(hn::Eq(a, v), a, hn::Add(lower, upper));
            bad = hn::Or(bad, hn::IsNaN(r)); // the scalar's NaN rules
        } else {
            Mf up; // take values[i + 1]
            if constexpr (K == Kind1D::Nearest) {
                up = hn::Ge(hn::Sub(xv, gi), hn::Sub(gi1, xv));
            } else if constexpr (K == Kind1D::Next) {
                up = hn::Gt(xv, gi);
                bad = hn::Or(bad, hn::Gt(xv, hn::Set(d, lastPoint)));
            } else {
                up = hn::Ge(xv, hn::Set(d, lastPoint));
                bad = hn::Or(bad, hn::Lt(xv, hn::Set(d, ax.g[0])));
            }
            const Vi chosen =
                hn::Add(i, hn::IfThenElseZero(hn::RebindMask(di, up), hn::Set(di, 1)));
            r = hn::GatherIndex(d, values, chosen);
        }
        storeLanes(d, r, q, out, outStride);
        count = listLanes(d, bad, q, redo, count);
    }
    for (; q < e; ++q)
        redo[count++] = q;
    return count;
}

// Kind k's kernel in precision T.
template <class T>
u64 scattered1DOfKind(Kind1D k, const SimdAxisOf<T>& ax, const T* values, const T* x, u64 b, u64 e,
                      T* out, u64 outStride, u64* redo) {
    auto run = [&](auto kind) {
        constexpr Kind1D K = decltype(kind)::value;
        if constexpr (std::is_same_v<T, double>)
            return scattered1DOf<K>(ax, values, x, b, e, out, outStride, redo);
        else
            return scattered1DSingle<K>(ax, values, x, b, e, out, outStride, redo);
    };
    switch (k) {
    case Kind1D::Linear:
        return run(std::integral_constant<Kind1D, Kind1D::Linear>{});
    case Kind1D::Nearest:
        return run(std::integral_constant<Kind1D, Kind1D::Nearest>{});
    case Kind1D::Next:
        return run(std::integral_constant<Kind1D, Kind1D::Next>{});
    case Kind1D::Previous:
        return run(std::integral_constant<Kind1D, Kind1D::Previous>{});
    case Kind1D::Cubic:
        return run(std::integral_constant<Kind1D, Kind1D::Cubic>{});
    }
    return 0;
}

u64 scattered1D(Kind1D k, const SimdAxis& ax, const double* values, const double* x, u64 b, u64 e,
                double* out, u64 outStride, u64* redo) {
    return scattered1DOfKind<double>(k, ax, values, x, b, e, out, outStride, redo);
}

u64 scattered1DF(Kind1D k, const SimdAxisF& ax, const float* values, const float* x, u64 b, u64 e,
                 float* out, u64 outStride, u64* redo) {
    return scattered1DOfKind<float>(k, ax, values, x, b, e, out, outStride, redo);
}

} // namespace mathinterp::simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace mathinterp::simd {

template <>
Packed1DKernel<double> packed1DKernel<double>(SimdLevel level) noexcept {
    return pickTarget<Packed1DKernel<double>>(level, MATHINTERP_AVX3(scattered1D),
                                              MATHINTERP_AVX2(scattered1D));
}

template <>
Packed1DKernel<float> packed1DKernel<float>(SimdLevel level) noexcept {
    return pickTarget<Packed1DKernel<float>>(level, MATHINTERP_AVX3(scattered1DF),
                                             MATHINTERP_AVX2(scattered1DF));
}

} // namespace mathinterp::simd
#endif
