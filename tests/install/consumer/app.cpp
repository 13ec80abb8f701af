// Construct a spline interpolant, evaluate it inside and outside the grid, print the values.
#include <mathinterp/interpolant/GriddedInterpolant.hpp>

#include <cmath>
#include <cstdio>

int main() {
    using platform::HostArray;
    mathinterp::GriddedInterpolant F;
    HostArray args[] = {HostArray::rowVector({0, 1, 2, 4}), HostArray::rowVector({0, 1, 4, 16}),
                        HostArray::charRow("spline"), HostArray::charRow("none")};
    F.construct(4, args);
    HostArray q = HostArray::rowVector({0.5, 3.0, 5.0});
    HostArray v = F.evaluate(1, &q);
    for (std::uint64_t i = 0; i < v.numberOfElements(); ++i) {
        const double x = v.realAt(i);
        std::isnan(x) ? std::printf("NaN ") : std::printf("%g ", x);
    }
    std::printf("\n");
    return 0;
}
