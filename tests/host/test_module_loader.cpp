// A host loading the shared module with the dynamic loader: initialisation registers the
// class, gateways are found by name, termination removes the registrations. This test links
// none of the module's code itself; everything goes through libqzmathinterp.
#include <platform/ClassSystem.hpp>
#include <platform/HostError.hpp>
#include <platform/ModuleLoader.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <string>

using platform::ClassSystem;
using platform::HostArray;

namespace {

std::string errorText(const std::function<void()>& f) {
    try {
        f();
    } catch (const platform::HostErrorException& e) {
        return e.identifier().empty() ? e.message() : e.identifier();
    }
    return "none";
}

TEST(ModuleLoader, LoadsTheSharedModuleAndDrivesItsClassAndGateways) {
    auto module = platform::LoadedModule::load(MATHINTERP_MODULE_PATH);
    EXPECT_EQ(module->moduleName(), "libqzmathinterp");
    ASSERT_TRUE(platform::ClassRegistry::findClass("griddedInterpolant"));

    HostArray args[] = {HostArray::rowVector({1, 2, 3}), HostArray::rowVector({4, 5, 7})};
    HostArray f = ClassSystem::construct("griddedInterpolant", 2, args);
    HostArray in[] = {f, HostArray::scalar(2.5)}, out[1];
    ClassSystem::invokeMethod("parenReference", 1, out, 2, in);
    EXPECT_EQ(out[0].realAt(0), 6.0);

    auto interp1 = module->gateway("interp1Fcn");
    HostArray five[] = {args[0], args[1], HostArray::charRow("linear"),
                        HostArray::charRow("linear"), HostArray::scalar(1.5)};
    interp1(1, out, 5, five);
    EXPECT_EQ(out[0].realAt(0), 4.5);
    // Errors thrown inside the module reach the host as host errors.
    EXPECT_EQ(errorText([&] { interp1(1, out, 4, five); }), platform::kTooFewInputsId);
    EXPECT_NE(errorText([&] { module->gateway("interp3Fcn"); }).find("interp3Fcn"),
              std::string::npos);
    // Only the entry points are exported.
    EXPECT_NE(errorText([&] {
                  module->gateway(
                      "_ZN10mathinterp18GriddedInterpolant9constructEiPKN8platform9HostArrayE");
              }),
              "none");

    module->terminate();
    EXPECT_FALSE(platform::ClassRegistry::findClass("griddedInterpolant"));
    EXPECT_FALSE(platform::TypeRepository::findType("quartz.internal.math.gridInterpType"));
    // The object made before termination still evaluates.
    ClassSystem::invokeMethod("parenReference", 1, out, 2, in);
    EXPECT_EQ(out[0].realAt(0), 6.0);

    EXPECT_NE(errorText([] { platform::LoadedModule::load("/nonexistent/libnothing.so"); }),
              "none");
}

} // namespace
