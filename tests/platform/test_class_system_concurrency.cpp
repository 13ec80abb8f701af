// The class system under concurrent use (run under ThreadSanitizer by the concurrency
// label): registry replacement and lookups, construction, property traffic on one shared
// object (serialised by its lock) and copies of it, all at once.
#include <platform/ClassSystem.hpp>
#include <platform/HostError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace platform;

namespace {

std::atomic<int> g_live{0};

struct Cell {
    HostArray value;
    double sum = 0; // updated by "bump" without any lock of its own
    Cell() { ++g_live; }
    ~Cell() { --g_live; }
};

class CellCtor final : public HostMethodInfo {
public:
    std::string name() const override { return "Cell"; }
    std::string description() const override { return "Cell constructor"; }
    bool isVisible() const override { return true; }
    void invoke(void* inst, int, HostArray*, int nrhs, const HostArray* prhs) const override {
        static_cast<Cell*>(inst)->value = nrhs > 0 ? prhs[0] : HostArray::scalar(0);
    }
};

class CellBump final : public HostMethodInfo {
public:
    std::string name() const override { return "bump"; }
    std::string description() const override { return "adds to the sum"; }
    bool isVisible() const override { return false; }
    void invoke(void* inst, int, HostArray* plhs, int, const HostArray* prhs) const override {
        auto& c = *static_cast<Cell*>(inst);
        c.sum += prhs[1].realAt(0);
        plhs[0] = HostArray::scalar(c.sum);
    }
};

class ValueProp final : public HostPropertyInfo {
public:
    ValueProp() : HostPropertyInfo("Value", "the value", "", 0, 0, 2624) {}
    PropertyValue get(const void* inst) const override {
        return static_cast<const Cell*>(inst)->value;
    }
    void set(void* inst, const PropertyValue& v) const override {
        static_cast<Cell*>(inst)->value = std::get<HostArray>(v);
    }
};

class CellClass final : public HostClassInfo {
public:
    std::string className() const override { return "Cell"; }
    std::string classDescription() const override { return "A cell."; }
    void defineMembers(ClassMembers& m) const override {
        m.addMethod(std::make_shared<CellCtor>());
        m.addMethod(std::make_shared<CellBump>());
        m.addProperty(std::make_shared<ValueProp>());
    }
    void* createInstance() const override { return new Cell; }
    void destroyInstance(void* p) const noexcept override { delete static_cast<Cell*>(p); }
};

TEST(ClassSystemConcurrency, CallsOnOneObjectAreSerialisedWhileTheRegistryChanges) {
    ClassRegistry::addClass(std::make_shared<CellClass>());
    HostArray args[] = {HostArray::scalar(1)};
    HostArray shared = ClassSystem::construct("Cell", 1, args);

    constexpr int kThreads = 4, kRounds = 300;
    std::atomic<bool> stop{false};
    std::thread churn([&] { // replaces the class and a type over and over
        while (!stop.load()) {
            ClassRegistry::addClass(std::make_shared<CellClass>());
            (void)ClassRegistry::classNames();
        }
    });
    std::vector<std::thread> workers;
    std::atomic<int> failures{0};
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&, t] {
            for (int r = 0; r < kRounds; ++r) {
                HostArray in[] = {shared, HostArray::scalar(1)}, out[1];
                ClassSystem::invokeMethod("bump", 1, out, 2, in);
                HostArray own = ClassSystem::construct("Cell", 1, args);
                ClassSystem::setProperty(own, "Value", HostArray::scalar(t));
                HostArray copy = ClassSystem::copyObject(own);
                if (ClassSystem::getPropertyArray(copy, "Value").realAt(0) != t) ++failures;
                ClassSystem::setProperty(shared, "Value", HostArray::scalar(r));
                (void)ClassSystem::getPropertyArray(shared, "Value");
            }
        });
    }
    for (auto& w : workers)
        w.join();
    stop.store(true);
    churn.join();

    EXPECT_EQ(failures.load(), 0);
    // Every bump was applied: none was lost to a race on the unguarded sum.
    EXPECT_EQ(static_cast<Cell*>(ClassSystem::objectOf(shared).instance())->sum,
              double(kThreads * kRounds));
    shared.release();
    ClassRegistry::removeClass("Cell");
    EXPECT_EQ(g_live.load(), 0);
}

} // namespace
