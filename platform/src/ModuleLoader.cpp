// Opening a module with the dynamic loader and calling its entry points.
#include "platform/ModuleLoader.hpp"

#include "platform/HostError.hpp"

#include <dlfcn.h>

namespace platform {

namespace {
using EntryPoint = void (*)();

std::string defaultModuleName(const std::string& path) {
    std::string name = path.substr(path.find_last_of('/') + 1);
    const auto dot = name.find('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}
} // namespace

std::shared_ptr<LoadedModule> LoadedModule::load(const std::string& path, std::string moduleName) {
    if (moduleName.empty()) moduleName = defaultModuleName(path);
    // RTLD_NODELETE: objects and values made by the module may outlive this handle.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        const char* why = dlerror();
        HostError::raiseText("Cannot load the module '" + path + "': " + (why ? why : "unknown"));
    }
    std::shared_ptr<LoadedModule> module(new LoadedModule(handle, std::move(moduleName)));
    auto init = reinterpret_cast<EntryPoint>(module->symbol("KVInitialize_" + module->name_));
    if (!init)
        HostError::raiseText("The module '" + path + "' has no entry point KVInitialize_" +
                             module->name_ + ".");
    module->terminated_ = true; // nothing to terminate unless initialisation completes
    init();
    module->terminated_ = false;
    return module;
}

LoadedModule::~LoadedModule() {
    terminate();
    dlclose(handle_); // the mapping stays (RTLD_NODELETE)
}

void* LoadedModule::symbol(const std::string& name) const noexcept {
    return dlsym(handle_, name.c_str());
}

GatewayFunction LoadedModule::gateway(std::string_view name) const {
    auto f = reinterpret_cast<GatewayFunction>(symbol(std::string(name)));
    if (!f)
        HostError::raiseText("The module '" + name_ + "' has no function '" + std::string(name) +
                             "'.");
    return f;
}

void LoadedModule::terminate() noexcept {
    if (terminated_) return;
    terminated_ = true;
    if (auto fini = reinterpret_cast<EntryPoint>(symbol("KVTerminate_" + name_))) fini();
}

} // namespace platform
