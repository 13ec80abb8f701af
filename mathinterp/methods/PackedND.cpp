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

} // namespace mathinterp::simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace mathinterp::simd {

template <>
PackedNDKernel<double> packedNDKernel<double>(SimdLevel level) noexcept {
#if HWY_ARCH_X86 && (HWY_TARGETS & HWY_AVX3)
    if (level >= SimdLevel::Avx512) return &N_AVX3::packedNDDouble;
#endif
#if HWY_ARCH_X86 && (HWY_TARGETS & HWY_AVX2)
    if (level >= SimdLevel::Avx2) return &N_AVX2::packedNDDouble;
#endif
    (void)level;
    return nullptr;
}

template <>
PackedNDKernel<float> packedNDKernel<float>(SimdLevel level) noexcept {
#if HWY_ARCH_X86 && (HWY_TARGETS & HWY_AVX3)
    if (level >= SimdLevel::Avx512) return &N_AVX3::packedNDSingle;
#endif
#if HWY_ARCH_X86 && (HWY_TARGETS & HWY_AVX2)
    if (level >= SimdLevel::Avx2) return &N_AVX2::packedNDSingle;
#endif
    (void)level;
    return nullptr;
}

} // namespace mathinterp::simd
#endif
