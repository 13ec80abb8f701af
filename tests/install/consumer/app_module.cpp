// Open the installed loadable module as a host does and call its interp1Fcn gateway.
#include <platform/HostArray.hpp>
#include <platform/ModuleLoader.hpp>

#include <cmath>
#include <cstdio>

int main() {
    using platform::HostArray;
    auto module = platform::LoadedModule::load(MODULE_PATH);
    HostArray in[] = {HostArray::rowVector({0, 1, 2}), HostArray::rowVector({0, 10, 0}),
                      HostArray::charRow("linear"), HostArray::charRow("none"),
                      HostArray::rowVector({0.5, 1.5, 3.0})};
    HostArray out[1];
    module->gateway("interp1Fcn")(1, out, 5, in);
    for (std::uint64_t i = 0; i < out[0].numberOfElements(); ++i) {
        const double x = out[0].realAt(i);
        std::isnan(x) ? std::printf("NaN ") : std::printf("%g ", x);
    }
    std::printf("\n");
    return 0;
}
