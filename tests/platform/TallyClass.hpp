// "Tally", a small class of the class system's tests: two public array properties (Data,
// Label), a host-only copy property (Shadow), a visible constructor, a hidden method, an
// after-load fix-up, and a log of the setters run on each instance (written without a lock
// of its own: the object lock must serialise it). Typed values and conversions are checked
// with the module's own data type (tests/host/test_module_lifecycle.cpp).
#pragma once

#include <platform/ClassSystem.hpp>
#include <platform/HostError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace tally {

using namespace platform;

inline std::atomic<int> g_live{0}; // native Tally instances alive

struct Tally {
    HostArray data, label, shadow; // shadow: hidden copy property
    std::vector<std::string> log;  // which setters ran, in order
    bool fixedUp = false;
    Tally() { ++g_live; }
    ~Tally() { --g_live; }
};

class TallyCtor final : public HostMethodInfo {
public:
    std::string name() const override { return "Tally"; }
    std::string description() const override { return "Tally constructor"; }
    bool isVisible() const override { return true; }
    void invoke(void* inst, int, HostArray*, int nrhs, const HostArray* prhs) const override {
        if (nrhs < 1) HostError::tooFewInputs();
        if (!prhs[0].isFloat()) HostError::raise("TEST:tally", "NotFloat");
        auto& t = *static_cast<Tally*>(inst);
        t.data = prhs[0];
        t.label = nrhs > 1 ? prhs[1] : HostArray::charRow("none");
    }
};

// Hidden method: returns the sum of the data plus its argument.
class TallySum final : public HostMethodInfo {
public:
    std::string name() const override { return "sumPlus"; }
    std::string description() const override { return "Tally sum"; }
    bool isVisible() const override { return false; }
    void invoke(void* inst, int nlhs, HostArray* plhs, int nrhs,
                const HostArray* prhs) const override {
        if (nlhs > 1) HostError::tooManyOutputs();
        if (nrhs < 2) HostError::tooFewInputs();
        const auto& t = *static_cast<const Tally*>(inst);
        double s = prhs[1].realAt(0);
        for (std::uint64_t k = 0; k < t.data.numberOfElements(); ++k)
            s += t.data.realAt(k);
        plhs[0] = HostArray::scalar(s);
    }
};

class ArrayProp final : public HostPropertyInfo {
public:
    ArrayProp(const char* name, HostArray Tally::*field, int access, std::uint32_t attrs)
        : HostPropertyInfo(name, std::string("The ") + name, "", access, access, attrs),
          field_(field) {}
    PropertyValue get(const void* inst) const override {
        return static_cast<const Tally*>(inst)->*field_;
    }
    void set(void* inst, const PropertyValue& v) const override {
        auto& t = *static_cast<Tally*>(inst);
        t.log.push_back(name());
        t.*field_ = std::get<HostArray>(v);
    }

private:
    HostArray Tally::*field_;
};

class TallyClass final : public HostClassInfo {
public:
    std::string className() const override { return "Tally"; }
    std::string classDescription() const override { return "Counts things."; }
    void defineMembers(ClassMembers& m) const override {
        m.addSuperclass("test.mixin.Scalar");
        m.addSuperclass("test.mixin.Paren");
        m.addMethod(std::make_shared<TallyCtor>());
        m.addMethod(std::make_shared<TallySum>());
        m.addProperty(std::make_shared<ArrayProp>("Data", &Tally::data, 0, 2624));
        m.addProperty(std::make_shared<ArrayProp>("Label", &Tally::label, 0, 2624));
        m.addProperty(std::make_shared<ArrayProp>("Shadow", &Tally::shadow, 2, 96));
    }
    void* createInstance() const override { return new Tally; }
    void destroyInstance(void* inst) const noexcept override { delete static_cast<Tally*>(inst); }
    void afterLoadFixup(void* inst) const override {
        auto& t = *static_cast<Tally*>(inst);
        t.fixedUp = true;
        if (t.label.isNull()) t.label = HostArray::charRow("none");
    }
};

inline Tally& tallyOf(const HostArray& obj) {
    return *static_cast<Tally*>(ClassSystem::objectOf(obj).instance());
}

inline HostArray makeTally(std::vector<double> data) {
    HostArray args[] = {HostArray::rowVector(data), HostArray::charRow("apples")};
    return ClassSystem::construct("Tally", 2, args);
}

// Registers Tally for a test, removes it after, and checks that no native instance outlives
// the test.
class TallyTest : public ::testing::Test {
protected:
    void SetUp() override { ClassRegistry::addClass(std::make_shared<TallyClass>()); }
    void TearDown() override {
        ClassRegistry::removeClass("Tally");
        EXPECT_EQ(g_live.load(), 0) << "a native instance leaked";
    }
};

} // namespace tally
