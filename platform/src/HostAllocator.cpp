// The host allocator with optional fault injection.
#include "platform/HostAllocator.hpp"

#include <atomic>
#include <cstdlib>

namespace platform {
namespace {
std::atomic<std::uint64_t> g_failAt{0}; // 0: injection off
std::atomic<std::uint64_t> g_count{0};

bool shouldFail() noexcept {
#ifdef PLATFORM_FAULT_INJECTION
    const std::uint64_t n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
    const std::uint64_t k = g_failAt.load(std::memory_order_relaxed);
    return k != 0 && n == k;
#else
    return false;
#endif
}
} // namespace

void* hostMalloc(std::size_t bytes) noexcept {
    if (shouldFail()) return nullptr;
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* hostCalloc(std::size_t count, std::size_t size) noexcept {
    if (shouldFail()) return nullptr;
    if (count == 0 || size == 0) return std::calloc(1, 1);
    return std::calloc(count, size);
}

void hostFree(void* p) noexcept { std::free(p); }

void failAllocationAfter(std::uint64_t k) noexcept {
    g_count.store(0, std::memory_order_relaxed);
    g_failAt.store(k, std::memory_order_relaxed);
}

std::uint64_t allocationCount() noexcept { return g_count.load(std::memory_order_relaxed); }

bool faultInjectionAvailable() noexcept {
#ifdef PLATFORM_FAULT_INJECTION
    return true;
#else
    return false;
#endif
}

} // namespace platform
