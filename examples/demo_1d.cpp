// A small C++ example: builds 1-D evaluators straight from a grid and values and prints
// every built 1-D method at a few queries, inside and outside the grid.
#include "mathinterp/interpolant/EvaluatorFactory.hpp"

#include <platform/HostArray.hpp>

#include <cstdio>
#include <exception>
#include <vector>

int main() {
    using namespace mathinterp;
    const std::vector<double> x{0.0, 1.0, 2.5, 3.0, 4.5, 6.0};
    const std::vector<double> v{0.0, 0.8, 0.6, -0.1, -0.9, 0.3};
    const platform::HostArray q = platform::HostArray::rowVector({-1.0, 0.0, 0.5, 2.5, 3.7, 6.0, 7.0});

    EvaluatorSetup<double, double> setup;
    setup.grids = {x.data()};
    setup.sizes = {x.size()};
    setup.values = v.data();
    setup.pointsPerPlane = v.size();
    setup.numPlanes = 1;

    std::printf("%-10s", "query");
    for (std::uint64_t i = 0; i < q.numberOfElements(); ++i) std::printf("%10.3f", q.realAt(i));
    std::printf("\n");
    for (MethodId m : {MethodId::Linear, MethodId::Nearest, MethodId::Next, MethodId::Previous,
                       MethodId::Pchip, MethodId::Spline, MethodId::Cubic, MethodId::Makima}) {
        std::printf("%-10s", std::string(methodWord(m)).c_str());
        try {
            auto ev = makeEvaluator<double, double>(m, m, setup);
            auto out = platform::HostArray::createNumeric(q.dimensions(), platform::ClassId::Double);
            ev->evaluateScattered(q.numberOfElements(), q, out);
            for (std::uint64_t i = 0; i < out.numberOfElements(); ++i)
                std::printf("%10.4f", out.realAt(i));
            std::printf("\n");
        } catch (const std::exception& e) {
            std::printf("  (%s)\n", e.what());
        }
    }
    return 0;
}
