// Warning keys and the translation of engine exceptions into host errors.
#include "mathinterp/interpolant/Identifiers.hpp"

#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "platform/MemoryBudget.hpp"

#include <new>

namespace mathinterp {

std::string_view warningKey(WarningId id) noexcept {
    switch (id) {
    case WarningId::CubicNeedsThreeWarnId:
        return "CubicNeedsThreeWarnId";
    case WarningId::CubicUniformOnlyWarnId:
        return "CubicUniformOnlyWarnId";
    case WarningId::Next1DonlyWarnId:
        return "Next1DonlyWarnId";
    case WarningId::Pchip1DonlyWarnId:
        return "Pchip1DonlyWarnId";
    case WarningId::Previous1DonlyWarnId:
        return "Previous1DonlyWarnId";
    case WarningId::MeshgridEval2DWarnId:
        return "MeshgridEval2DWarnId";
    case WarningId::MeshgridEval3DWarnId:
        return "MeshgridEval3DWarnId";
    }
    return "";
}

void warn(WarningId id) {
    platform::HostError::warning(kComponent, warningKey(id));
}

void rethrowAsHostError() {
    try {
        throw;
    } catch (const platform::HostErrorException&) {
        throw;
    } catch (const InterpolationException& e) {
        platform::HostError::raise(e.component(), e.key(), e.args());
    } catch (const MethodNotBuiltError& e) {
        platform::HostError::raiseText(e.what());
    } catch (const platform::MemoryLimitError& e) {
        platform::HostError::outOfMemory(e.what());
    } catch (const std::bad_alloc&) {
        platform::HostError::outOfMemory();
    }
}

} // namespace mathinterp
