// The host allocator with optional fault injection, and a cache of large blocks.
//
// Large blocks (results of big evaluations, coefficient tables) are mapped directly, asked
// for huge pages, and kept for reuse when freed (a few of them, up to a byte cap): on this
// kind of machine a first touch of a 4 KiB page costs microseconds, so an 80 MB result that
// is mapped afresh on every call spends more time in page faults than in interpolation.
// Every block carries a small header saying which kind it is, so hostFree needs no lookup.
// Sanitizer builds skip both (plain malloc/free, so the leak checker sees every block).
#include "platform/HostAllocator.hpp"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
    __has_feature(memory_sanitizer)
#define PLATFORM_PLAIN_MALLOC 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PLATFORM_PLAIN_MALLOC 1
#endif
#if !defined(PLATFORM_PLAIN_MALLOC) && !defined(__linux__)
#define PLATFORM_PLAIN_MALLOC 1
#endif

#ifndef PLATFORM_PLAIN_MALLOC
#include <sys/mman.h>
#endif

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

#ifndef PLATFORM_PLAIN_MALLOC
constexpr std::size_t kLargeBlock = std::size_t{4} << 20;   // from here on: mapped directly
constexpr std::size_t kHugePage = std::size_t{2} << 20;     // mapping granularity
constexpr std::size_t kLargeOffset = 64;                    // user data: cache-line aligned
constexpr std::size_t kMaxCachedBlocks = 8;
constexpr std::size_t kMaxCachedBytes = std::size_t{512} << 20;
constexpr std::uint64_t kSmallTag = 0x736d616c6c000001ull;
constexpr std::uint64_t kLargeTag = 0x6c61726765000002ull;

// 16 bytes right before the user pointer (malloc's alignment is kept).
struct Header {
    std::uint64_t tag;
    std::uint64_t mapped; // large blocks: bytes of the mapping (it starts kLargeOffset before)
};
static_assert(sizeof(Header) == 16);

Header* headerOf(void* p) noexcept { return static_cast<Header*>(p) - 1; }

struct Mapping {
    void* base;
    std::size_t bytes;
};

// Freed large mappings, oldest first. Large blocks are few, so a mutex is cheap here.
class LargeCache {
public:
    // A cached mapping of at least `bytes` (and not wastefully larger), or none.
    bool take(std::size_t bytes, Mapping& out) noexcept {
        std::lock_guard<std::mutex> lock(mutex_);
        std::size_t best = blocks_.size();
        for (std::size_t i = 0; i < blocks_.size(); ++i) {
            const std::size_t b = blocks_[i].bytes;
            if (b >= bytes && b / 2 <= bytes && (best == blocks_.size() || b < blocks_[best].bytes))
                best = i;
        }
        if (best == blocks_.size()) return false;
        out = blocks_[best];
        cached_ -= out.bytes;
        blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(best));
        return true;
    }

    // Keeps m for reuse, unmapping the oldest blocks to stay under the caps.
    void give(Mapping m) noexcept {
        std::vector<Mapping> drop;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (m.bytes > kMaxCachedBytes || !reserve()) {
                drop.push_back(m);
            } else {
                while (!blocks_.empty() &&
                       (blocks_.size() >= kMaxCachedBlocks || cached_ + m.bytes > kMaxCachedBytes)) {
                    drop.push_back(blocks_.front());
                    cached_ -= blocks_.front().bytes;
                    blocks_.erase(blocks_.begin());
                }
                blocks_.push_back(m);
                cached_ += m.bytes;
            }
        }
        for (const Mapping& d : drop)
            munmap(d.base, d.bytes);
    }

    void release() noexcept {
        std::vector<Mapping> drop;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            drop.swap(blocks_);
            cached_ = 0;
        }
        for (const Mapping& d : drop)
            munmap(d.base, d.bytes);
    }

private:
    bool reserve() noexcept {
        try {
            blocks_.reserve(kMaxCachedBlocks);
            return true;
        } catch (...) {
            return false;
        }
    }

    std::mutex mutex_;
    std::vector<Mapping> blocks_;
    std::size_t cached_ = 0;
};

LargeCache& largeCache() noexcept {
    static LargeCache* cache = new LargeCache; // never destroyed: frees may come at exit
    return *cache;
}

void* largeMalloc(std::size_t bytes, bool zero) noexcept {
    if (bytes > static_cast<std::size_t>(-1) - kLargeOffset - kHugePage) return nullptr;
    const std::size_t need = (bytes + kLargeOffset + kHugePage - 1) / kHugePage * kHugePage;
    Mapping m{};
    bool fresh = false;
    if (!largeCache().take(need, m)) {
        void* base = mmap(nullptr, need, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) return nullptr;
        madvise(base, need, MADV_HUGEPAGE); // a hint: failure only costs speed
        m = {base, need};
        fresh = true;
    }
    char* user = static_cast<char*>(m.base) + kLargeOffset;
    Header* h = headerOf(user);
    h->tag = kLargeTag;
    h->mapped = m.bytes;
    if (zero && !fresh) std::memset(user, 0, bytes); // fresh mappings are zero already
    return user;
}

void* smallMalloc(std::size_t bytes, bool zero) noexcept {
    if (bytes > static_cast<std::size_t>(-1) - sizeof(Header)) return nullptr;
    void* raw = zero ? std::calloc(1, bytes + sizeof(Header)) : std::malloc(bytes + sizeof(Header));
    if (!raw) return nullptr;
    Header* h = static_cast<Header*>(raw);
    h->tag = kSmallTag;
    h->mapped = 0;
    return h + 1;
}

void* allocate(std::size_t bytes, bool zero) noexcept {
    return bytes >= kLargeBlock ? largeMalloc(bytes, zero) : smallMalloc(bytes, zero);
}
#endif
} // namespace

void* hostMalloc(std::size_t bytes) noexcept {
    if (shouldFail()) return nullptr;
#ifdef PLATFORM_PLAIN_MALLOC
    return std::malloc(bytes == 0 ? 1 : bytes);
#else
    return allocate(bytes == 0 ? 1 : bytes, false);
#endif
}

void* hostCalloc(std::size_t count, std::size_t size) noexcept {
    if (shouldFail()) return nullptr;
#ifdef PLATFORM_PLAIN_MALLOC
    if (count == 0 || size == 0) return std::calloc(1, 1);
    return std::calloc(count, size);
#else
    if (count == 0 || size == 0) return allocate(1, true);
    if (count > static_cast<std::size_t>(-1) / size) return nullptr;
    return allocate(count * size, true);
#endif
}

void hostFree(void* p) noexcept {
#ifdef PLATFORM_PLAIN_MALLOC
    std::free(p);
#else
    if (!p) return;
    Header* h = headerOf(p);
    if (h->tag == kLargeTag) {
        largeCache().give({static_cast<char*>(p) - kLargeOffset, h->mapped});
        return;
    }
    std::free(h);
#endif
}

void releaseCachedMemory() noexcept {
#ifndef PLATFORM_PLAIN_MALLOC
    largeCache().release();
#endif
}

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
