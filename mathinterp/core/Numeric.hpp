// Numeric basics shared by the whole engine: the loop constants, the NaN the engine writes
// (quiet, sign bit set), NaN tests that survive any optimisation flags, and overflow-checked
// size arithmetic (an overflow is an out-of-memory failure, never a wrap-around).
#pragma once

#include <bit>
#include <cstdint>
#include <limits>
#include <new>

namespace mathinterp {

using u64 = std::uint64_t;

inline constexpr u64 PARALLEL_MIN_QUERIES = 2048; // serial below, parallel from here on
inline constexpr u64 QUERY_GRAIN = 1024;          // grain of every query loop

// The quiet NaN with the sign bit set: 0xFFF8000000000000 / 0xFFC00000.
template <class T>
inline T engineNaN() noexcept;
template <>
inline double engineNaN<double>() noexcept {
    return std::bit_cast<double>(std::uint64_t{0xFFF8000000000000ull});
}
template <>
inline float engineNaN<float>() noexcept {
    return std::bit_cast<float>(std::uint32_t{0xFFC00000u});
}

template <class T>
inline bool isNaN(T v) noexcept {
    return v != v; // -ffast-math is never used, so this test is reliable
}

// a * b, or std::bad_alloc when the product does not fit in 64 bits.
inline u64 checkedMul(u64 a, u64 b) {
    if (a != 0 && b > std::numeric_limits<u64>::max() / a) throw std::bad_alloc();
    return a * b;
}

inline u64 checkedAdd(u64 a, u64 b) {
    if (b > std::numeric_limits<u64>::max() - a) throw std::bad_alloc();
    return a + b;
}

// 2^k and 4^k as sizes, checked.
inline u64 checkedPow2(u64 k) {
    if (k >= 64) throw std::bad_alloc();
    return u64{1} << k;
}
inline u64 checkedPow4(u64 k) {
    if (k >= 32) throw std::bad_alloc();
    return u64{1} << (2 * k);
}

// Bytes for n elements of T, checked against size_t.
template <class T>
inline std::size_t checkedBytes(u64 n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_alloc();
    return static_cast<std::size_t>(n) * sizeof(T);
}

// Ask for the cache line holding p ahead of a kernel that reads it (results do not depend on
// it). Written as an instruction the optimiser cannot drop: it removes plain prefetch
// builtins from some query loops.
inline void prefetchLine(const void* p) noexcept {
#if defined(__x86_64__) || defined(__i386__)
    asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(p)));
#else
    __builtin_prefetch(p);
#endif
}

} // namespace mathinterp
