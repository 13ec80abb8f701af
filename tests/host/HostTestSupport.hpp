// Helpers for the tests of the host class and the gateways: registration, calls through the
// class system, warning capture and error identifiers.
#pragma once

#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/host/GridInterpCOSDataType.hpp"

#include <platform/ClassSystem.hpp>
#include <platform/HostError.hpp>

#include <gtest/gtest.h>

#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

namespace hosttest {

using platform::ClassSystem;
using platform::HostArray;

// Records every warning identifier while alive.
class WarningLog {
public:
    WarningLog() {
        previous_ = platform::setWarningSink([this](const std::string& id, const std::string&) {
            std::lock_guard<std::mutex> lock(mutex_);
            ids_.push_back(id);
        });
    }
    ~WarningLog() { platform::setWarningSink(std::move(previous_)); }
    std::vector<std::string> ids() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return ids_;
    }

private:
    platform::WarningSink previous_;
    mutable std::mutex mutex_;
    std::vector<std::string> ids_;
};

// The identifier of the host error f raises ("text:<message>" for literal text, "none").
template <class F>
std::string errorId(F&& f) {
    try {
        f();
    } catch (const platform::HostErrorException& e) {
        return e.identifier().empty() ? "text:" + e.message() : e.identifier();
    } catch (const std::exception& e) {
        return std::string("foreign:") + e.what();
    }
    return "none";
}

inline std::string gi(const char* key) {
    return std::string("QUARTZ:griddedInterpolant:") + key;
}

inline std::string text(const HostArray& a) {
    std::string s;
    if (a.isChar())
        for (char16_t c : a.charData())
            s.push_back(static_cast<char>(c));
    return s;
}

inline HostArray construct(std::initializer_list<HostArray> args) {
    std::vector<HostArray> v(args);
    return ClassSystem::construct("griddedInterpolant", static_cast<int>(v.size()), v.data());
}

// F(q1, ..., qk) through the hidden indexing method.
inline HostArray paren(const HostArray& f, std::initializer_list<HostArray> queries) {
    std::vector<HostArray> in{f};
    in.insert(in.end(), queries);
    HostArray out[1];
    ClassSystem::invokeMethod("parenReference", 1, out, static_cast<int>(in.size()), in.data());
    return out[0];
}

inline HostArray prop(const HostArray& f, const char* name) {
    return ClassSystem::getPropertyArray(f, name);
}

inline std::shared_ptr<mathinterp::Evaluator> evaluatorOf(const HostArray& f) {
    auto v = ClassSystem::getProperty(f, "UnderlyingInterpolantForCopy", platform::Caller::Host);
    return mathinterp::evaluatorOfValue(std::get<platform::TypedValue>(v));
}

inline std::vector<double> doubles(const HostArray& a) {
    std::vector<double> out;
    for (std::uint64_t k = 0; k < a.numberOfElements(); ++k)
        out.push_back(a.realAt(k));
    return out;
}

// Registers the module for the test and leaves it registered.
class RegisteredModule : public ::testing::Test {
protected:
    void SetUp() override { KVInitialize_libqzmathinterp(); }
};

} // namespace hosttest
