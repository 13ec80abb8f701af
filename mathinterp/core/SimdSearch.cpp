// The packed search's per-dimension record and the processor's packed level, built here
// (with the library's numeric flags) rather than in every includer.
#include "mathinterp/core/SimdSearch.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string_view>

namespace mathinterp::simd {

namespace {

// g[i] == g[0] + i * step for every i, with the product and the sum rounded separately, as
// the packed kernels form a cell's ends.
bool isArithmetic(const double* g, u64 n, double step) noexcept {
    if (!(step > 0)) return false;
    for (u64 i = 0; i < n; ++i) {
        const double product = static_cast<double>(i) * step;
        if (g[0] + product != g[i]) return false;
    }
    return true;
}

SimdLevel detectLevel() noexcept {
#ifdef MATHINTERP_SIMD
    // The feature sets the kernels are compiled for (Highway's AVX2 and AVX3 targets).
    __builtin_cpu_init();
    const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
                      __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
                      __builtin_cpu_supports("f16c") && __builtin_cpu_supports("sse4.2") &&
                      __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("aes");
    const bool avx3 = avx2 && __builtin_cpu_supports("avx512f") &&
                      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512bw");
    // MATHINTERP_SIMD=none|avx2 caps the level for the whole process (a user ruling a path
    // out, or a benchmark comparing levels); any other value leaves it alone.
    const char* want = std::getenv("MATHINTERP_SIMD");
    const std::string_view cap = want != nullptr ? want : "";
    if (cap == "none") return SimdLevel::None;
    if (avx3 && cap != "avx2") return SimdLevel::Avx512;
    if (avx2) return SimdLevel::Avx2;
#endif
    return SimdLevel::None;
}

std::atomic<int> cap{static_cast<int>(SimdLevel::Avx512)};

} // namespace

SimdAxis simdAxis(const double* g, u64 n, double ms, u64 stride) noexcept {
    SimdAxis a;
    a.g = g;
    a.second = g[1];
    a.penultimate = g[n - 2];
    a.inv = 1.0 / ms;
    a.firstTimesInv = g[0] * a.inv;
    a.last = static_cast<std::int32_t>(n - 2);
    a.stride = static_cast<std::int32_t>(stride);
    // Two candidate steps: the first spacing (integer and most hand-made grids) and the mean
    // one (grids made by a start plus i times the mean step).
    for (const double step : {g[1] - g[0], (g[n - 1] - g[0]) / static_cast<double>(n - 1)}) {
        if (isArithmetic(g, n, step)) {
            a.arithmetic = true;
            a.step = step;
            break;
        }
    }
    return a;
}

SimdLevel simdLevel() noexcept {
    static const SimdLevel detected = detectLevel();
    return static_cast<SimdLevel>(
        std::min(static_cast<int>(detected), cap.load(std::memory_order_relaxed)));
}

void limitSimd(SimdLevel level) noexcept {
    cap.store(static_cast<int>(level), std::memory_order_relaxed);
}

} // namespace mathinterp::simd
