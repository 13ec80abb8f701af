// The evaluator data type: payloads are shared pointers to an Evaluator placed in blocks from
// the host allocator.
#include "mathinterp/host/GridInterpCOSDataType.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/HostError.hpp>

#include <new>

namespace mathinterp {

namespace {

using Payload = std::shared_ptr<Evaluator>;

void* newPayload(const Payload& p) {
    void* block = platform::hostAllocate(sizeof(Payload));
    return new (block) Payload(p); // raises the count
}

// The type description that values made by the module carry: the registered one while the
// module is registered, else one of the module's own (values outlive termination).
std::shared_ptr<const platform::HostDataType> typeForValues() {
    if (auto t = platform::TypeRepository::findType(kGridInterpTypeName)) return t;
    static const auto fallback = std::make_shared<const GridInterpCOSDataType>();
    return fallback;
}

} // namespace

void* GridInterpCOSDataType::copyValue(const void* payload) const {
    return newPayload(*static_cast<const Payload*>(payload));
}

void GridInterpCOSDataType::destroyValue(void* payload) const noexcept {
    static_cast<Payload*>(payload)->~Payload(); // lowers the count; the last one frees
    platform::hostFree(payload);
}

platform::TypedValue makeEvaluatorValue(std::shared_ptr<Evaluator> evaluator) {
    auto type = typeForValues();
    if (!evaluator) return platform::TypedValue(type, nullptr);
    return platform::TypedValue(std::move(type), newPayload(evaluator));
}

std::shared_ptr<Evaluator> evaluatorOfValue(const platform::TypedValue& value) {
    if (!value) return nullptr;
    if (value.typeName() != kGridInterpTypeName)
        platform::HostError::raiseText("The value is not a " + std::string(kGridInterpTypeName) +
                                       " value.");
    return *static_cast<const Payload*>(value.payload());
}

} // namespace mathinterp
