// The module's entry points for the host: registration of griddedInterpolant, its evaluator
// data type and the conversion, and their removal at termination.
#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/host/GridInterpCOSDataType.hpp"
#include "mathinterp/host/GriddedInterpolantCOSClassInfo.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"

#include <platform/ClassSystem.hpp>

#include <memory>
#include <mutex>

namespace mathinterp {
namespace {

// The process-wide once-only flag: set by a completed registration, cleared by termination,
// so that initialise, terminate, initialise registers twice in all, and a second
// initialisation without termination registers nothing. The mutex makes concurrent
// initialisations wait for the one that registers.
std::mutex g_lifecycleMutex;
bool g_registered = false;

void registerModule() {
    using namespace platform;
    ClassRegistry::addClass(std::make_shared<GriddedInterpolantCOSClassInfo>());
    TypeRepository::addGlobalType(std::make_shared<GridInterpCOSDataType>());
    TypeRepository::addConversion("any", kGridInterpTypeName,
                                  std::make_shared<GridInterpCOSDataTypeConversion>());
}

} // namespace
} // namespace mathinterp

extern "C" void KVInitialize_libqzmathinterp() {
    using namespace mathinterp;
    try {
        std::lock_guard<std::mutex> lock(g_lifecycleMutex);
        if (!platform::ClassSystem::reinitialisesModules() && g_registered) return;
        registerModule(); // a failure leaves the flag clear: the next call tries again
        g_registered = true;
    } catch (...) {
        rethrowAsHostError();
    }
}

extern "C" void KVTerminate_libqzmathinterp() {
    using namespace mathinterp;
    try {
        std::lock_guard<std::mutex> lock(g_lifecycleMutex);
        if (auto conversion = platform::TypeRepository::findConversion(kGridInterpTypeName, "any"))
            platform::TypeRepository::removeConversion(conversion.get());
        platform::TypeRepository::removeGlobalType(kGridInterpTypeName);
        // The class goes too: its code belongs to the module. Objects still alive keep their
        // description and stay usable.
        platform::ClassRegistry::removeClass(kGriddedInterpolantClassName);
        g_registered = false;
    } catch (...) {
        rethrowAsHostError();
    }
}
