// The class system's data type for the interpolant's shared evaluator
// ("quartz.internal.math.gridInterpType") and its conversion. A value of the type is a
// shared pointer to an Evaluator: copying a value raises the evaluator's reference count,
// destroying one lowers it, so objects copied through the hidden copy property share one
// evaluator.
#pragma once

#include "mathinterp/core/Evaluator.hpp"

#include <platform/ClassSystem.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace mathinterp {

inline constexpr std::string_view kGridInterpTypeName = "quartz.internal.math.gridInterpType";

class GridInterpCOSDataType final : public platform::HostDataType {
public:
    std::string name() const override { return std::string(kGridInterpTypeName); }
    std::string kind() const override { return "Fundamental"; }
    void* copyValue(const void* payload) const override;
    void destroyValue(void* payload) const noexcept override;
    // The host's type protocol, answered as the host expects it for this type.
    int protocolCategory() const override { return 7; }
    int protocolBits() const override { return 64; }
    int protocolAlignment() const override { return 8; }
    int protocolFlags() const override { return 0; }
    bool protocolHoldsReference() const override { return true; }
};

// Nothing converts to or from the evaluator type: the conversion yields the empty result.
class GridInterpCOSDataTypeConversion final : public platform::HostTypeConversion {
public:
    platform::PropertyValue convert(const platform::PropertyValue&) const override { return {}; }
};

// A typed value holding (a new reference to) the evaluator; an empty value for null.
platform::TypedValue makeEvaluatorValue(std::shared_ptr<Evaluator> evaluator);
// The evaluator a value of the type refers to (null for an empty value); a value of another
// type is a host error.
std::shared_ptr<Evaluator> evaluatorOfValue(const platform::TypedValue& value);

} // namespace mathinterp
