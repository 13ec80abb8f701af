// COSPropCPPT: a class-system property backed by a getter and a setter of a C++ object.
// The property only converts between the class system's PropertyValue and the accessor's
// value type (a host array, or the evaluator's shared pointer); the object's own setter
// applies the rules. Errors leave through rethrowAsHostError, as at every module boundary.
#pragma once

#include "mathinterp/host/GridInterpCOSDataType.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"

#include <platform/ClassSystem.hpp>

#include <memory>
#include <string>
#include <utility>

namespace mathinterp {

// How an accessor value type travels as a PropertyValue.
template <class Value>
struct COSPropValue;

template <>
struct COSPropValue<platform::HostArray> {
    static std::string typeName() { return {}; }
    static platform::PropertyValue wrap(const platform::HostArray& a) { return a; }
    static platform::HostArray unwrap(const platform::PropertyValue& v) {
        if (const auto* a = std::get_if<platform::HostArray>(&v)) return *a;
        platform::HostError::raiseText("The property holds an array, not a typed value.");
    }
};

template <>
struct COSPropValue<std::shared_ptr<Evaluator>> {
    static std::string typeName() { return std::string(kGridInterpTypeName); }
    static platform::PropertyValue wrap(const std::shared_ptr<Evaluator>& e) {
        return makeEvaluatorValue(e);
    }
    static std::shared_ptr<Evaluator> unwrap(const platform::PropertyValue& v) {
        if (const auto* t = std::get_if<platform::TypedValue>(&v)) return evaluatorOfValue(*t);
        if (isEmptyValue(v)) return nullptr;
        platform::HostError::raiseText("The property holds an evaluator, not an array.");
    }
};

template <class Object, class Value>
class COSPropCPPT final : public platform::HostPropertyInfo {
public:
    using Getter = Value (*)(const Object&);
    using Setter = void (*)(Object&, const Value&);

    COSPropCPPT(std::string name, std::string description, int getAccess, int setAccess,
                std::uint32_t attributes, Getter getter, Setter setter)
        : HostPropertyInfo(std::move(name), std::move(description), COSPropValue<Value>::typeName(),
                           getAccess, setAccess, attributes),
          getter_(getter), setter_(setter) {}

    platform::PropertyValue get(const void* instance) const override {
        try {
            return COSPropValue<Value>::wrap(getter_(*static_cast<const Object*>(instance)));
        } catch (...) {
            rethrowAsHostError();
        }
    }

    void set(void* instance, const platform::PropertyValue& value) const override {
        try {
            setter_(*static_cast<Object*>(instance), COSPropValue<Value>::unwrap(value));
        } catch (...) {
            rethrowAsHostError();
        }
    }

private:
    Getter getter_;
    Setter setter_;
};

} // namespace mathinterp
