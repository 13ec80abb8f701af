// The packed interval search over Highway's lane-width-generic vectors: per lane the interval
// index and cell ends that IntervalSearch and makePair give, by the same IEEE operations (no
// fused multiply-add is ever asked for). Included once per compiled target (no include guard:
// Highway's per-target toggle instead), inside a file that includes hwy/foreach_target.h.
// Indices travel as exact integers in double lanes, so every mask stays in one lane type.

// NOLINT(build/header_guard): Highway's per-target guard.
#if defined(MATHINTERP_CORE_PACKED_SEARCH_INL_) == defined(HWY_TARGET_TOGGLE)
#ifdef MATHINTERP_CORE_PACKED_SEARCH_INL_
#undef MATHINTERP_CORE_PACKED_SEARCH_INL_
#else
#define MATHINTERP_CORE_PACKED_SEARCH_INL_
#endif

#include "mathinterp/core/SimdSearch.hpp"
#include "mathinterp/core/SimdSearchF32.hpp"

#include <hwy/highway.h>

#include <cstdint>

// Kernels need two lanes or more: the one-lane baseline Highway always builds gets none.
#if HWY_TARGET != HWY_SCALAR
HWY_BEFORE_NAMESPACE();
namespace mathinterp::simd::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Dd = hn::ScalableTag<double>;
using Vd = hn::Vec<Dd>;
using Md = hn::Mask<Dd>;
inline constexpr std::size_t kLanesMax = HWY_MAX_BYTES / sizeof(double);

// Lanes of fi (exact integers) as 32-bit offsets o[0 .. lanes).
HWY_INLINE void storeIndices(Dd, Vd fi, std::int32_t* HWY_RESTRICT o) {
    const hn::Rebind<std::int32_t, Dd> di;
    hn::StoreU(hn::DemoteTo(di, fi), di, o);
}

// Blocks of W doubles, one per entry o[0], o[S], o[2 S], ...: base[o[0]] .. base[o[0] + W - 1]
// in the first W lanes, and so on (unaligned loads joined in registers). Pairs: W = 2, S = 2
// (the even entries); rows of four: W = 4, S = 1.
template <std::size_t W, std::size_t S, class D>
HWY_INLINE hn::Vec<D> loadBlocks(D d, const double* HWY_RESTRICT base,
                                 const std::int32_t* HWY_RESTRICT o) {
    constexpr std::size_t n = hn::MaxLanes(D());
    if constexpr (n == W) {
        return hn::LoadU(d, base + o[0]);
    } else {
        const hn::Half<D> dh;
        return hn::Combine(d, loadBlocks<W, S>(dh, base, o + n / W / 2 * S),
                           loadBlocks<W, S>(dh, base, o));
    }
}

// base[o[l]] and base[o[l] + 1] of every lane as two vectors: a 16-byte load per lane and an
// interleave, cheaper than two gathers.
HWY_INLINE void loadPairs(Dd d, const double* HWY_RESTRICT base, const std::int32_t* o, Vd& lo,
                          Vd& hi) {
    const Vd even = loadBlocks<2, 2>(d, base, o);
    const Vd odd = loadBlocks<2, 2>(d, base, o + 1);
    lo = hn::InterleaveLower(d, even, odd);
    hi = hn::InterleaveUpper(d, even, odd);
}

// g[i] of every lane (i exact in fi), as a gather.
HWY_INLINE Vd gatherAt(Dd d, const double* HWY_RESTRICT g, Vd fi) {
    const hn::Rebind<std::int32_t, Dd> di;
    const hn::RebindToSigned<Dd> di64;
    return hn::GatherIndex(d, g, hn::PromoteTo(di64, hn::DemoteTo(di, fi)));
}

// A lane's cell as the search and makePair see it: index (fi, and o as offsets) and ends.
struct Cell {
    Vd fi, gi, gi1;
    HWY_ALIGN std::int32_t o[kLanesMax];
};

// x below g[1] (or NaN: answered by the scalar rules) and x at or above g[n-2].
HWY_INLINE Md belowSecond(Dd d, const SimdAxis& a, Vd x) {
    return hn::Not(hn::Ge(x, hn::Set(d, a.second)));
}
HWY_INLINE Md atOrAbovePenultimate(Dd d, const SimdAxis& a, Vd x) {
    return hn::Ge(x, hn::Set(d, a.penultimate));
}

// Index fi to the first interval where low, the last where high; then the cell's ends:
// computed on an arithmetic grid, loaded otherwise.
HWY_INLINE void finishCell(Dd d, const SimdAxis& a, Md low, Md high, Vd fi, Cell& c) {
    const Vd last = hn::Set(d, static_cast<double>(a.last));
    c.fi = hn::IfThenElse(high, last, hn::IfThenZeroElse(low, fi));
    storeIndices(d, c.fi, c.o);
    if (a.arithmetic) {
        const Vd step = hn::Set(d, a.step), g0 = hn::Set(d, a.g[0]);
        c.gi = hn::Add(g0, hn::Mul(c.fi, step));
        c.gi1 = hn::Add(g0, hn::Mul(hn::Add(c.fi, hn::Set(d, 1.0)), step));
    } else {
        loadPairs(d, a.g, c.o, c.gi, c.gi1);
    }
}

// The mean-spacing guess; bad gains the lanes whose guess missed their cell.
HWY_INLINE void locateGuess(Dd d, const SimdAxis& a, Vd x, Cell& c, Md& bad) {
    const Md low = belowSecond(d, a, x), high = atOrAbovePenultimate(d, a, x);
    Vd guess = hn::Sub(hn::Mul(x, hn::Set(d, a.inv)), hn::Set(d, a.firstTimesInv));
    guess = hn::Min(hn::Max(guess, hn::Zero(d)), hn::Set(d, static_cast<double>(a.last)));
    // Low lanes (NaN ones among them) are set to 0 in finishCell whatever Trunc made of them.
    finishCell(d, a, low, high, hn::Trunc(guess), c);
    const Md inCell = hn::And(hn::Ge(x, c.gi), hn::Lt(x, c.gi1));
    bad = hn::Or(bad, hn::Not(hn::Or(hn::Or(low, high), inCell)));
}

// The bucket index: BucketIndex::bucket's arithmetic, then every lane halves its candidates
// start[b] .. start[b+1] as often as the widest needs (an extra step leaves a lane alone: its
// candidate is clamped to its own last one). Never misses.
HWY_INLINE void locateIndexed(Dd d, const SimdAxis& a, Vd x, Cell& c) {
    const Md low = belowSecond(d, a, x), high = atOrAbovePenultimate(d, a, x);
    Vd v = hn::Mul(hn::Sub(x, hn::Set(d, a.bucketFirst)), hn::Set(d, a.bucketScale));
    v = hn::Min(hn::Max(v, hn::Zero(d)), hn::Set(d, a.bucketMax));
    v = hn::IfThenZeroElse(low, v); // NaN and low lanes: bucket 0 (answered below)
    HWY_ALIGN std::int32_t b[kLanesMax];
    storeIndices(d, hn::Trunc(v), b);
    HWY_ALIGN double first[kLanesMax], end[kLanesMax];
    std::uint32_t widest = 0;
    const std::size_t lanes = hn::Lanes(d);
    for (std::size_t l = 0; l < lanes; ++l) {
        const std::uint32_t s = a.bucketStart[b[l]], t = a.bucketStart[b[l] + 1];
        first[l] = static_cast<double>(s);
        end[l] = static_cast<double>(t);
        widest |= t - s;
    }
    Vd j = hn::Load(d, first);
    if (widest != 0) {
        const Vd hi = hn::Load(d, end);
        for (std::uint32_t step = std::uint32_t{1} << (31 - __builtin_clz(widest)); step != 0;
             step >>= 1) {
            const Vd cand = hn::Min(hn::Add(j, hn::Set(d, static_cast<double>(step))), hi);
            j = hn::IfThenElse(hn::Ge(x, gatherAt(d, a.g, cand)), cand, j);
        }
    }
    finishCell(d, a, low, high, j, c);
}

// Either search, as the axis has it.
HWY_INLINE void locateAny(Dd d, const SimdAxis& a, Vd x, Cell& c, Md& bad) {
    if (a.bucketStart != nullptr)
        locateIndexed(d, a, x, c);
    else
        locateGuess(d, a, x, c, bad);
}

// Single precision: indices in 32-bit lanes beside the float lanes (a float holds integers
// exactly only up to 2^24). The guess only picks a starting cell, so its rounding cannot change
// a result; a lane whose guess misses is flagged (not a NaN lane: it lands in the first cell).
using Df = hn::ScalableTag<float>;
using Vf = hn::Vec<Df>;
using Mf = hn::Mask<Df>;
using Di = hn::RebindToSigned<Df>;
using Vi = hn::Vec<Di>;

// base[o[l]] and base[o[l] + 1] of every lane as two vectors: one 64-bit gather per lane
// (the two floats are neighbours in memory), then the halves parted; half the elements two
// 32-bit gathers would load. Loads only: the bits are the values'.
HWY_INLINE void loadPairsF(Df d, const float* HWY_RESTRICT base, Vi o, Vf& lo, Vf& hi) {
    const hn::Repartition<std::int64_t, Df> d64;
    const hn::Half<Di> dh;
    const std::int64_t* b64 = reinterpret_cast<const std::int64_t*>(base);
    const Vf first = hn::BitCast(
        d, hn::GatherOffset(d64, b64, hn::ShiftLeft<2>(hn::PromoteTo(d64, hn::LowerHalf(dh, o)))));
    const Vf second = hn::BitCast(
        d, hn::GatherOffset(d64, b64, hn::ShiftLeft<2>(hn::PromoteTo(d64, hn::UpperHalf(dh, o)))));
    lo = hn::ConcatEven(d, second, first); // little-endian: base[o] is the low half
    hi = hn::ConcatOdd(d, second, first);
}

HWY_INLINE void locateGuessF(Df d, const SimdAxisF& a, Vf x, Vi& i, Vf& gi, Vf& gi1, Mf& bad) {
    const Di di;
    const Mf low = hn::Not(hn::Ge(x, hn::Set(d, a.second)));
    const Mf high = hn::Ge(x, hn::Set(d, a.penultimate));
    Vf guess = hn::Sub(hn::Mul(x, hn::Set(d, a.inv)), hn::Set(d, a.firstTimesInv));
    guess = hn::Min(hn::Max(guess, hn::Zero(d)), hn::Set(d, static_cast<float>(a.last)));
    i = hn::ConvertTo(di, guess);
    i = hn::IfThenElse(hn::RebindMask(di, high), hn::Set(di, a.last),
                       hn::IfThenZeroElse(hn::RebindMask(di, low), i));
    if (a.arithmetic) { // i + 1 converted, as the check in simdAxisF converts it
        const Vf step = hn::Set(d, a.step), g0 = hn::Set(d, a.g[0]);
        gi = hn::Add(g0, hn::Mul(hn::ConvertTo(d, i), step));
        gi1 = hn::Add(g0, hn::Mul(hn::ConvertTo(d, hn::Add(i, hn::Set(di, 1))), step));
    } else {
        loadPairsF(d, a.g, i, gi, gi1);
    }
    const Mf inCell = hn::And(hn::Ge(x, gi), hn::Lt(x, gi1));
    bad = hn::Or(bad, hn::Not(hn::Or(hn::Or(low, high), inCell)));
}

// The bucket index for single lanes (never misses): the bucket in double, as
// BucketIndex::bucket forms it (each half of the lanes widened exactly), then every lane
// halves its candidates as often as the widest needs, as locateIndexed does.
HWY_INLINE void locateIndexedF(Df d, const SimdAxisF& a, Vf x, Vi& i, Vf& gi, Vf& gi1) {
    const Di di;
    const BucketIndex& index = *a.index;
    const Mf low = hn::Not(hn::Ge(x, hn::Set(d, a.second)));
    const Mf high = hn::Ge(x, hn::Set(d, a.penultimate));
    const hn::Repartition<double, Df> dd;
    const hn::Rebind<std::int32_t, decltype(dd)> dh;
    const hn::Half<Df> dfh;
    auto bucketOf = [&](hn::Vec<decltype(dd)> xd) HWY_ATTR {
        auto v = hn::Mul(hn::Sub(xd, hn::Set(dd, index.first)), hn::Set(dd, index.scale));
        v = hn::Min(hn::Max(v, hn::Zero(dd)), hn::Set(dd, index.maxBucket));
        return hn::DemoteTo(dh, v);
    };
    Vi b = hn::Combine(di, bucketOf(hn::PromoteTo(dd, hn::UpperHalf(dfh, x))),
                       bucketOf(hn::PromoteTo(dd, hn::LowerHalf(dfh, x))));
    b = hn::IfThenZeroElse(hn::RebindMask(di, low), b); // NaN and low lanes: answered below
    const std::int32_t* start = reinterpret_cast<const std::int32_t*>(index.start.data());
    Vi j = hn::GatherIndex(di, start, b);
    const Vi hi = hn::GatherIndex(di, start, hn::Add(b, hn::Set(di, 1)));
    HWY_ALIGN std::int32_t span[kLanesMax * 2];
    hn::Store(hn::Sub(hi, j), di, span);
    std::uint32_t widest = 0;
    for (std::size_t l = 0; l < hn::Lanes(di); ++l)
        widest |= static_cast<std::uint32_t>(span[l]);
    if (widest != 0) {
        for (std::int32_t step = std::int32_t{1} << (31 - __builtin_clz(widest)); step != 0;
             step >>= 1) {
            const Vi cand = hn::Min(hn::Add(j, hn::Set(di, step)), hi);
            const Mf ge = hn::Ge(x, hn::GatherIndex(d, a.g, cand));
            j = hn::IfThenElse(hn::RebindMask(di, ge), cand, j);
        }
    }
    i = hn::IfThenElse(hn::RebindMask(di, high), hn::Set(di, a.last),
                       hn::IfThenZeroElse(hn::RebindMask(di, low), j));
    loadPairsF(d, a.g, i, gi, gi1);
}

// Results r of queries q .. q + lanes to out[(q + l) * outStride].
template <class D>
HWY_INLINE void storeLanes(D d, hn::Vec<D> r, u64 q, hn::TFromD<D>* HWY_RESTRICT out,
                           u64 outStride) {
    if (outStride == 1) {
        hn::StoreU(r, d, out + q);
        return;
    }
    HWY_ALIGN hn::TFromD<D> v[HWY_MAX_BYTES / sizeof(hn::TFromD<D>)];
    hn::Store(r, d, v);
    for (std::size_t l = 0; l < hn::Lanes(d); ++l)
        out[(q + l) * outStride] = v[l];
}

// Queries q + l of the lanes set in bad appended to redo; returns the new count.
template <class D>
HWY_INLINE u64 listLanes(D d, hn::Mask<D> bad, u64 q, u64* HWY_RESTRICT redo, u64 count) {
    if (hn::AllFalse(d, bad)) return count;
    std::uint8_t bits[HWY_MAX_BYTES / 8 + 1] = {};
    hn::StoreMaskBits(d, bad, bits);
    for (std::size_t l = 0; l < hn::Lanes(d); ++l)
        if ((bits[l / 8] >> (l % 8)) & 1u) redo[count++] = q + l;
    return count;
}

} // namespace mathinterp::simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif // HWY_TARGET != HWY_SCALAR

#endif // per-target guard

// Once per file: the kernel of a packed level among a file's compiled targets.
#if HWY_ONCE && !defined(MATHINTERP_CORE_PACKED_PICK_)
#define MATHINTERP_CORE_PACKED_PICK_
#if HWY_ARCH_X86 && (HWY_TARGETS & HWY_AVX3)
#define MATHINTERP_AVX3(fn) &N_AVX3::fn
#else
#define MATHINTERP_AVX3(fn) nullptr
#endif
#if HWY_ARCH_X86 && (HWY_TARGETS & HWY_AVX2)
#define MATHINTERP_AVX2(fn) &N_AVX2::fn
#else
#define MATHINTERP_AVX2(fn) nullptr
#endif
namespace mathinterp::simd {
// avx3 at the AVX-512 level, avx2 at it and above; null where a level has none.
template <class F>
F pickTarget(SimdLevel level, F avx3, F avx2) noexcept {
    if (level >= SimdLevel::Avx512 && avx3 != nullptr) return avx3;
    return level >= SimdLevel::Avx2 ? avx2 : nullptr;
}
} // namespace mathinterp::simd
#endif
