// Size limits: shapes whose sizes cannot be represented are rejected with std::bad_alloc (the
// host's out-of-memory error) before anything of that size is allocated, never by a wrapped
// product. Engine level: N-D evaluators over 40 to 200 grid dimensions of two points (2^d
// corners and 4^d neighbourhoods overflow or exceed any memory; the values buffer of one element
// is never read). Interpolant level: gridded query outputs whose element count overflows 64
// bits or whose byte count exceeds memory.
#include "support/Interpolant.hpp"

#include "mathinterp/interpolant/EvaluatorFactory.hpp"

#include <platform/HostAllocator.hpp>

#include <new>

using mathinterp::MethodId;
using platform::HostArray;

namespace {

// Builds an evaluator over d dimensions of two points and evaluates one point inside the
// box; returns what was raised ("" when nothing was).
std::string buildAndEvaluate(MethodId method, std::uint64_t d, bool gridded) {
    static const double g[2] = {0.0, 1.0};
    static const double value = 1.0;
    std::vector<const double*> grids(d, g);
    mathinterp::EvaluatorSetup<double, double> s;
    s.grids = grids;
    s.sizes.assign(d, 2);
    s.values = &value;
    s.pointsPerPlane = 1; // not representable; only plane 0 exists
    s.numPlanes = 1;
    try {
        auto ev = mathinterp::makeEvaluator<double, double>(method, method, s);
        HostArray out = HostArray::createNumeric({1, 1}, platform::ClassId::Double);
        if (gridded) {
            HostArray cell = HostArray::createCell(1, d);
            for (std::uint64_t k = 0; k < d; ++k)
                cell.setCell(k, HostArray::scalar(0.5));
            ev->evaluateGridded(cell, out);
        } else {
            ev->evaluateScattered(1, HostArray::fromDoubles({1, d}, std::vector<double>(d, 0.5)),
                                  out);
        }
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    } catch (const mathinterp::MethodNotBuiltError&) {
        return "bad_alloc"; // not part of this build: nothing to check
    } catch (const std::exception& e) {
        return std::string("other: ") + e.what();
    }
    return "";
}

} // namespace

TEST(SizeLimits, NDMethodsRejectUnrepresentableNeighbourhoodsBeforeAllocating) {
    // Nearest keeps no table of 2^d or 4^d entries: with a grid of 2^40 points it would read
    // its value, so it needs values of that size and is not part of this check.
    for (MethodId m : {MethodId::Linear, MethodId::Spline, MethodId::Cubic, MethodId::Makima}) {
        for (std::uint64_t d : {40u, 61u, 63u, 64u, 65u, 200u})
            for (bool gridded : {false, true}) {
                SCOPED_TRACE(std::string(mathinterp::methodWord(m)) + " d=" + std::to_string(d) +
                             (gridded ? " gridded" : " scattered"));
                // Each fails with bad_alloc before it reads a value (the buffer holds one).
                EXPECT_EQ(buildAndEvaluate(m, d, gridded), "bad_alloc");
            }
    }
}

TEST(SizeLimits, GriddedOutputsBeyondMemoryAreOutOfMemoryErrors) {
    // A 4-D interpolant of 2 x 2 x 2 x 2 values.
    HostArray grid = HostArray::createCell(1, 4);
    for (std::uint64_t k = 0; k < 4; ++k)
        grid.setCell(k, HostArray::rowVector({0.0, 1.0}));
    const HostArray values =
        itest::filled({2, 2, 2, 2}, [](std::uint64_t i) { return static_cast<double>(i); });
    mathinterp::GriddedInterpolant F;
    const itest::Args args{grid, values};
    F.construct(2, args.data());
    const HostArray q = HostArray::fromDoubles({1, 4}, {0.5, 0.5, 0.5, 0.5});
    if (itest::evalId(F, {q}) == "MethodNotBuilt") GTEST_SKIP() << "N-D linear is not built";
    // Query vectors of 2^21 single points: 2^84 outputs (the count overflows); three of
    // them and a fourth of 2^21 / 2^2: 2^61 outputs of 8 bytes (the byte count overflows);
    // and 2^20 cubed: 2^60 outputs (fits in 64 bits, not in memory).
    const HostArray big =
        HostArray::createNumeric({1, std::uint64_t{1} << 21}, platform::ClassId::Single);
    const HostArray mid =
        HostArray::createNumeric({1, std::uint64_t{1} << 20}, platform::ClassId::Single);
    const HostArray one = HostArray::scalarSingle(0.5f);
    const std::vector<std::vector<HostArray>> cases{
        {big, big, big, big},
        {big, big, big, HostArray::createNumeric({1, 1u << 19}, platform::ClassId::Single)},
        {mid, mid, mid, one}};
    for (const auto& vecs : cases) {
        HostArray cell = HostArray::createCell(1, 4);
        for (std::uint64_t k = 0; k < 4; ++k)
            cell.setCell(k, vecs[k]);
        platform::failAllocationAfter(0);
        const std::uint64_t before = platform::allocationCount();
        // Overflowing counts are a plain bad_alloc; a representable size is the budget's refusal.
        const std::string id = itest::evalId(F, {cell});
        EXPECT_TRUE(id == "other: std::bad_alloc" || id.rfind("other: Out of memory: ", 0) == 0)
            << id;
        // Nothing of the output's size was attempted through the host allocator beyond the
        // one refused request: a handful of small allocations at most.
        EXPECT_LT(platform::allocationCount() - before, 16u);
    }
    // The interpolant still evaluates.
    EXPECT_EQ(itest::eval(F, {q}).realAt(0), 7.5);
}
