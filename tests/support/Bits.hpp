// Shared test helpers: bit-exact and ULP comparisons that print both sides as hexfloats and
// the distance on failure, and small builders for host arrays and evaluators.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <type_traits>

namespace testsupport {

template <class T>
using UIntOf = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;

template <class T>
UIntOf<T> bitsOf(T v) {
    return std::bit_cast<UIntOf<T>>(v);
}

std::string hexfloat(double v);

// Distance in units in the last place between two finite values of one type (NaNs and
// infinities: 0 when the bit patterns agree, max otherwise).
template <class T>
std::uint64_t ulpDistance(T a, T b) {
    if (bitsOf(a) == bitsOf(b)) return 0;
    if (std::isnan(a) || std::isnan(b) || std::isinf(a) || std::isinf(b)) return UINT64_MAX;
    using I = std::conditional_t<sizeof(T) == 8, std::int64_t, std::int32_t>;
    auto ordered = [](T v) {
        const I i = std::bit_cast<I>(v);
        return i < 0 ? static_cast<std::int64_t>(std::numeric_limits<I>::min()) - i
                     : static_cast<std::int64_t>(i);
    };
    const std::int64_t d = ordered(a) - ordered(b);
    return static_cast<std::uint64_t>(d < 0 ? -d : d);
}

template <class T>
::testing::AssertionResult sameBits(T actual, T expected) {
    if (bitsOf(actual) == bitsOf(expected)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "bits differ: actual " << hexfloat(static_cast<double>(actual)) << " expected "
           << hexfloat(static_cast<double>(expected));
}

template <class T>
::testing::AssertionResult ulpClose(T actual, T expected, std::uint64_t maxUlps) {
    const std::uint64_t d = ulpDistance(actual, expected);
    if (d <= maxUlps) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "actual " << hexfloat(static_cast<double>(actual)) << " expected "
           << hexfloat(static_cast<double>(expected)) << " differ by " << d << " ulp (allowed "
           << maxUlps << ")";
}

} // namespace testsupport

#define EXPECT_SAME_BITS(a, b) EXPECT_TRUE(::testsupport::sameBits((a), (b)))
#define ASSERT_SAME_BITS(a, b) ASSERT_TRUE(::testsupport::sameBits((a), (b)))
#define EXPECT_ULP_CLOSE(a, b, n) EXPECT_TRUE(::testsupport::ulpClose((a), (b), (n)))
