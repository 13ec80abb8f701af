// The host memory allocator. Every buffer the module keeps (host arrays, method caches,
// coefficient tables) comes from here, so that an allocation failure can be injected in
// test builds and every such path can be shown to end in std::bad_alloc without leaks, and so
// that every block counts against the process memory budget (MemoryBudget.hpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "platform/MemoryBudget.hpp"
#include <vector>

namespace platform {

// Returns nullptr on failure, including a refusal by the memory budget (the caller reports it,
// usually through throwAllocationFailure()).
void* hostMalloc(std::size_t bytes) noexcept;
void* hostCalloc(std::size_t count, std::size_t size) noexcept;
void hostFree(void* p) noexcept;
// Large freed blocks are kept for reuse (a few, up to 512 MB; they stay counted in the budget
// while cached); this returns them to the system.
void releaseCachedMemory() noexcept;

// Throwing form: MemoryLimitError past the budget, else std::bad_alloc on failure.
inline void* hostAllocate(std::size_t bytes) {
    void* p = hostMalloc(bytes);
    if (!p) throwAllocationFailure();
    return p;
}

// Fault injection (test builds): make the k-th allocation from now on fail (1 = the next
// one); 0 switches injection off. allocationCount() counts allocations since the last arm.
void failAllocationAfter(std::uint64_t k) noexcept;
std::uint64_t allocationCount() noexcept;
bool faultInjectionAvailable() noexcept;

// std::allocator over the host allocator, for the engine's growable arrays.
template <class T>
struct HostAllocator {
    using value_type = T;
    HostAllocator() noexcept = default;
    template <class U>
    HostAllocator(const HostAllocator<U>&) noexcept {}
    T* allocate(std::size_t n) {
        if (n > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_alloc();
        return static_cast<T*>(hostAllocate(n * sizeof(T)));
    }
    void deallocate(T* p, std::size_t) noexcept { hostFree(p); }
    template <class U>
    bool operator==(const HostAllocator<U>&) const noexcept {
        return true;
    }
};

template <class T>
using HostVector = std::vector<T, HostAllocator<T>>;

} // namespace platform
