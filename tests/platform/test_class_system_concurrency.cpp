// The class system under concurrent use (run under ThreadSanitizer by the concurrency
// label): registry replacement and lookups, construction, property traffic on one shared
// object (serialised by its lock: Tally's setter log has no lock of its own) and copies of
// it, all at once.
#include "TallyClass.hpp"

#include <thread>

using namespace tally;

namespace {

using ClassSystemConcurrency = TallyTest;

TEST_F(ClassSystemConcurrency, CallsOnOneObjectAreSerialisedWhileTheRegistryChanges) {
    HostArray shared = makeTally({1});
    constexpr int kThreads = 4, kRounds = 300;
    std::atomic<bool> stop{false};
    std::thread churn([&] { // replaces the class over and over
        while (!stop.load()) {
            ClassRegistry::addClass(std::make_shared<TallyClass>());
            (void)ClassRegistry::classNames();
        }
    });
    std::vector<std::thread> workers;
    std::atomic<int> failures{0};
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&, t] {
            for (int r = 0; r < kRounds; ++r) {
                HostArray in[] = {shared, HostArray::scalar(1)}, out[1];
                ClassSystem::invokeMethod("sumPlus", 1, out, 2, in);
                HostArray own = makeTally({double(t)});
                ClassSystem::setProperty(own, "Data", HostArray::scalar(t));
                HostArray copy = ClassSystem::copyObject(own);
                if (ClassSystem::getPropertyArray(copy, "Data").realAt(0) != t) ++failures;
                ClassSystem::setProperty(shared, "Label", HostArray::scalar(r));
                (void)ClassSystem::getPropertyArray(shared, "Label");
            }
        });
    }
    for (auto& w : workers)
        w.join();
    stop.store(true);
    churn.join();

    EXPECT_EQ(failures.load(), 0);
    // Every set was logged: none was lost to a race on the unguarded log.
    EXPECT_EQ(tallyOf(shared).log.size(), std::size_t{kThreads * kRounds});
}

} // namespace
