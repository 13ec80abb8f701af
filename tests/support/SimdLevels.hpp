// Runs a check once per packed level this processor has (AVX-512, AVX2, none), each with
// the kernels capped at that level, and lifts the cap afterwards.
#pragma once

#include "mathinterp/core/SimdSearch.hpp"

#include <gtest/gtest.h>

namespace testsupport {

template <class F>
void forEachSimdLevel(F&& check) {
    using mathinterp::simd::SimdLevel;
    mathinterp::simd::limitSimd(SimdLevel::Avx512);
    const SimdLevel have = mathinterp::simd::simdLevel();
    for (const SimdLevel level : {SimdLevel::Avx512, SimdLevel::Avx2, SimdLevel::None}) {
        if (level > have) continue;
        mathinterp::simd::limitSimd(level);
        SCOPED_TRACE("packed level " + std::to_string(static_cast<int>(level)));
        check();
    }
    mathinterp::simd::limitSimd(SimdLevel::Avx512);
}

} // namespace testsupport
