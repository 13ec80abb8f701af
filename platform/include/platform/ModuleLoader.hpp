// Loading a module as the host does: open its shared library, run its initialisation entry
// point (KVInitialize_<module>, which registers the module's classes and types with the
// class system), look up its gateways; termination runs KVTerminate_<module>.
//
//   auto m = platform::LoadedModule::load("/path/libqzmathinterp.so");
//   auto interp1 = m->gateway("interp1Fcn");            // host gateway signature
//   HostArray F = ClassSystem::construct("griddedInterpolant", n, args);  // ClassSystem.hpp
//
// A host that links the module directly (as the tests and the Python binding may) calls
// KVInitialize_libqzmathinterp() from mathinterp/ModuleExports.hpp instead and uses the
// class system in the same way. The library is never unmapped: objects created through it
// may outlive the module's termination.
#pragma once

#include "platform/HostArray.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace platform {

// The host gateway signature: output count, output slots, input count, inputs.
using GatewayFunction = void (*)(int nlhs, HostArray* plhs, int nrhs, const HostArray* prhs);

class LoadedModule {
public:
    // Opens the library and calls KVInitialize_<moduleName>. moduleName defaults to the file
    // name without directory and extension ("libqzmathinterp"). Failures are literal-text
    // host errors; an error of the initialisation itself passes unchanged.
    static std::shared_ptr<LoadedModule> load(const std::string& path, std::string moduleName = {});
    ~LoadedModule(); // terminates if not done yet
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    const std::string& moduleName() const noexcept { return name_; }
    // An exported gateway; a literal-text host error when the module has none of that name.
    GatewayFunction gateway(std::string_view name) const;
    // Calls KVTerminate_<module> once; later calls do nothing.
    void terminate() noexcept;

private:
    LoadedModule(void* handle, std::string name) : handle_(handle), name_(std::move(name)) {}
    void* symbol(const std::string& name) const noexcept;

    void* handle_;
    std::string name_;
    bool terminated_ = false;
};

} // namespace platform
