// Helpers for the tests of the host class and the gateways: registration, calls through the
// class system, warning capture, error identifiers, which methods have an N-D form, bitwise result
// comparison and the value builders the fault-injection and stress tests share.
#pragma once

#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/host/GridInterpCOSDataType.hpp"

#include <platform/ClassSystem.hpp>
#include <platform/HostError.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
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

inline HostArray construct(const std::vector<HostArray>& v) {
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

inline constexpr const char* kMethods[] = {"linear", "nearest", "next",  "previous",
                                           "pchip",  "spline",  "cubic", "makima"};

// Whether method w has an N-D form (the others fall back to linear on N-D grids).
inline bool hasNdForm(const std::string& w) {
    return w != "next" && w != "previous" && w != "pchip";
}

// Same class, shape, complexity and bytes (double data).
inline bool sameBits(const HostArray& a, const HostArray& b) {
    return !a.isNull() && !b.isNull() && a.classId() == b.classId() &&
           a.dimensions() == b.dimensions() && a.isComplex() == b.isComplex() &&
           std::memcmp(a.rawData(), b.rawData(), a.numberOfElements() * a.elementBytes()) == 0;
}

// start, start + step, ... (n points).
inline std::vector<double> ramp(std::size_t n, double start, double step) {
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = start + step * static_cast<double>(i);
    return v;
}

// Smooth but irregular values of the given dimensions, complex when asked; `shift` gives
// another set of the same size and class.
inline HostArray waves(platform::Dims dims, bool complex, double shift = 0) {
    std::uint64_t n = 1;
    for (auto e : dims)
        n *= e;
    std::vector<std::complex<double>> c(n);
    for (std::uint64_t i = 0; i < n; ++i) {
        const double t = static_cast<double>(i);
        c[i] = {std::sin(0.7 * t) + 0.01 * static_cast<double>(i * i % 7) + shift,
                std::cos(0.3 * t) - shift};
    }
    if (complex) return HostArray::fromComplex(dims, c);
    std::vector<double> v(n);
    for (std::uint64_t i = 0; i < n; ++i)
        v[i] = c[i].real();
    return HostArray::fromDoubles(dims, v);
}

// Registers the module for the test and leaves it registered.
class RegisteredModule : public ::testing::Test {
protected:
    void SetUp() override { KVInitialize_libqzmathinterp(); }
};

// The same, with the module's warnings (cubic fallbacks and the like) swallowed.
class QuietModule : public RegisteredModule {
    WarningLog quiet_;
};

} // namespace hosttest
