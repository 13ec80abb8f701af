// The README's C++ example: a not-a-knot spline through four points, NaN outside the grid.
#include "mathinterp/interpolant/GriddedInterpolant.hpp"

#include <cstdio>

int main() {
    using platform::HostArray;
    mathinterp::GriddedInterpolant F;
    HostArray args[] = {HostArray::rowVector({0, 1, 2, 4}),  // grid vector
                        HostArray::rowVector({0, 1, 4, 16}), // values
                        HostArray::charRow("spline"), HostArray::charRow("none")};
    F.construct(4, args);
    HostArray q = HostArray::rowVector({0.5, 3.0, 5.0});
    HostArray v = F.evaluate(1, &q); // 1 x 3 double, NaN outside
    for (std::uint64_t i = 0; i < v.numberOfElements(); ++i) std::printf("%g ", v.realAt(i));
    std::printf("\n");
    return 0;
}
