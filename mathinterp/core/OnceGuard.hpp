// A resettable once-guard for lazily filled caches. Copies of an interpolant share one
// evaluator and hosts may evaluate them from several threads at once, so a cache is filled
// by exactly one thread while the others wait; afterwards the check is a single acquire load.
// If the fill throws, the guard stays open and the next evaluation tries again.
#pragma once

#include <atomic>
#include <mutex>

namespace mathinterp {

class OnceGuard {
public:
    template <class Fill>
    void ensure(Fill&& fill) {
        if (ready_.load(std::memory_order_acquire)) return;
        std::lock_guard<std::mutex> lock(mutex_);
        if (ready_.load(std::memory_order_relaxed)) return;
        fill();
        ready_.store(true, std::memory_order_release);
    }
    bool ready() const noexcept { return ready_.load(std::memory_order_acquire); }
    // Only while no evaluation runs (rebinding values on an evaluator the caller owns).
    void reset() noexcept { ready_.store(false, std::memory_order_release); }

private:
    std::atomic<bool> ready_{false};
    std::mutex mutex_;
};

} // namespace mathinterp
