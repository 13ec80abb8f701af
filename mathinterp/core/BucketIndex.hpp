// The bucket index of an irregular 1-D grid: the grid's range cut into equal buckets, and per
// bucket the first interval a query in it can fall into. The interval search reads the
// bucket's candidates [start[b], start[b+1]] and halves them a fixed number of times, so a
// query on any grid costs a table load and a few conditional moves instead of a search.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#include <platform/HostAllocator.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace mathinterp {

struct BucketIndex {
    // bucket(x) = min((x - first) * scale, maxBucket) truncated, all in double for queries and
    // grid points of either precision (widening is exact, so the order of x and every grid
    // point is kept). The function is monotone in x, so a query in bucket b lies above every
    // grid point of a lower bucket and below every point of a higher one: its interval is
    // one of start[b] .. start[b+1]. Nothing else about the arithmetic needs to be exact.
    platform::HostVector<std::uint32_t> start; // K + 1 entries; empty: no index
    double first = 0, scale = 0, maxBucket = 0;
    std::uint32_t topStep = 0; // largest power of two <= widest candidate span; 0: none

    bool empty() const noexcept { return start.empty(); }

    [[gnu::always_inline]] u64 bucket(double x) const noexcept {
        // x >= first here, so the value is >= 0 (or NaN-free: callers pass x >= g[1]).
        return static_cast<u64>(std::min((x - first) * scale, maxBucket));
    }

    // The interval of x, g[1] <= x < g[n-2]: the last grid point <= x among the candidates.
    template <class G, class C>
    [[gnu::always_inline]] u64 find(const G* g, C x) const noexcept {
        const u64 b = bucket(static_cast<double>(x));
        u64 j = start[b];
        const u64 hi = start[b + 1];
        // The steps a bucket needs (none for most): clustered buckets do not slow the rest.
        const u64 span = hi - j;
        if (span == 0) return j;
        for (u64 step = u64{1} << (63 - __builtin_clzll(span)); step != 0; step >>= 1) {
            const u64 c = std::min(j + step, hi);
            j = (x >= g[c]) ? c : j;
        }
        return j;
    }
};

// The index of grid g[0..n) (strictly increasing), or an empty one where the mean-spacing
// guess serves as well: grids whose every point lies within a hundredth of a cell of where
// a uniform grid would put it (the guess then almost always hits), and grids too short or
// too long for 32-bit entries.
template <class G>
BucketIndex buildBucketIndex(const G* g, u64 n) {
    BucketIndex t;
    if (n < 4 || n >= (u64{1} << 31)) return t;
    const double first = static_cast<double>(g[0]), lastPt = static_cast<double>(g[n - 1]);
    const double range = lastPt - first;
    if (!(range > 0) || !std::isfinite(range)) return t;
    const double ms = range / static_cast<double>(n - 1);
    double worst = 0;
    for (u64 i = 0; i < n; ++i)
        worst = std::max(
            worst, std::abs((static_cast<double>(g[i]) - first) / ms - static_cast<double>(i)));
    if (worst <= 0.01) return t;
    // Buckets: from two per cell up to 128 per cell (and 2^20 in all) until no bucket holds
    // more than two grid points; strongly clustered grids keep the finest table tried.
    platform::HostVector<std::uint32_t> count;
    for (u64 perCell = 2;; perCell *= 2) {
        const u64 k = std::min<u64>(perCell * (n - 1), u64{1} << 20);
        t.first = first;
        t.scale = static_cast<double>(k) / range;
        t.maxBucket = static_cast<double>(k - 1);
        count.assign(k + 1, 0);
        for (u64 i = 0; i < n; ++i)
            ++count[t.bucket(static_cast<double>(g[i]))];
        const std::uint32_t most = *std::max_element(count.begin(), count.end());
        if (most <= 2 || perCell >= 128 || k == (u64{1} << 20)) {
            // start[b] = (points in buckets below b) - 1, at least 0.
            t.start.resize(k + 1);
            u64 below = 0;
            std::uint32_t widest = 0;
            for (u64 b = 0; b <= k; ++b) {
                t.start[b] = static_cast<std::uint32_t>(below == 0 ? 0 : below - 1);
                if (b > 0) widest = std::max(widest, t.start[b] - t.start[b - 1]);
                below += count[b];
            }
            t.topStep = widest == 0 ? 0 : std::uint32_t{1} << (31 - __builtin_clz(widest));
            return t;
        }
    }
}

} // namespace mathinterp
