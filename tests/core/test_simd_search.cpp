// The packed search's record of a dimension: which grids count as arithmetic (their cell
// ends computed as g[0] + i * step), and the cap on the packed level.
#include "mathinterp/core/SimdSearch.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace mathinterp;
using simd::SimdLevel;

namespace {

bool arithmetic(const std::vector<double>& g) {
    return simd::simdAxis(g.data(), g.size(), (g.back() - g.front()) / double(g.size() - 1), 1)
        .arithmetic;
}

std::vector<double> startPlusSteps(double a, double h, int n) {
    std::vector<double> g(n);
    for (int i = 0; i < n; ++i)
        g[i] = a + static_cast<double>(i) * h;
    return g;
}

} // namespace

// Integer grids, start plus i steps, and a 2-point grid are arithmetic; one point an ulp
// off (inside or last), a grid made by division, or an irregular one are not: for them the
// packed search must keep loading the cell ends, or it would put queries near that point
// in the wrong cell.
TEST(SimdAxis, ArithmeticGridsAreThoseThatComputeExactly) {
    std::vector<double> integers(1000);
    for (int i = 0; i < 1000; ++i)
        integers[i] = i;
    EXPECT_TRUE(arithmetic(integers));
    EXPECT_TRUE(arithmetic(startPlusSteps(0.1, 0.1, 23)));
    EXPECT_TRUE(arithmetic(startPlusSteps(-3.0, 0.7, 6)));
    EXPECT_TRUE(arithmetic({2.0, 7.5}));

    for (const int at : {11, 22}) {
        std::vector<double> g = startPlusSteps(0.1, 0.1, 23);
        g[at] = std::nextafter(g[at], 10.0);
        EXPECT_FALSE(arithmetic(g)) << at;
    }
    // i / 999 rounds once, start + i * step twice: some points differ.
    std::vector<double> divided(1000);
    for (int i = 0; i < 1000; ++i)
        divided[i] = i / 999.0;
    EXPECT_FALSE(arithmetic(divided));
    EXPECT_FALSE(arithmetic({0.0, 0.1, 0.5, 0.6, 2.0}));
}

// The cap lowers the level and lifting it restores what the processor has.
TEST(SimdLevel, CapLowersTheLevel) {
    simd::limitSimd(SimdLevel::Avx512);
    const SimdLevel have = simd::simdLevel();
    simd::limitSimd(SimdLevel::None);
    EXPECT_EQ(simd::simdLevel(), SimdLevel::None);
    EXPECT_FALSE(simd::avx2Available());
    simd::limitSimd(SimdLevel::Avx2);
    EXPECT_EQ(simd::simdLevel(), std::min(have, SimdLevel::Avx2));
    simd::limitSimd(SimdLevel::Avx512);
    EXPECT_EQ(simd::simdLevel(), have);
}
