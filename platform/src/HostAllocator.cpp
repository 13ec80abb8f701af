// The host allocator with optional fault injection, a cache of large blocks, and the
// process memory budget (every block is charged to one live-bytes figure before it is made).
//
// Large blocks (results of big evaluations, coefficient tables) are mapped directly, asked
// for huge pages, and kept for reuse when freed (a few of them, up to a byte cap): on this
// kind of machine a first touch of a 4 KiB page costs microseconds, so an 80 MB result that
// is mapped afresh on every call spends more time in page faults than in interpolation.
// Every block carries a small header saying which kind it is, so hostFree needs no lookup.
// Sanitizer builds skip both (plain malloc/free, so the leak checker sees every block) but
// keep the header, so the budget counts the same blocks there.
#include "platform/HostAllocator.hpp"
#include "platform/MemoryBudget.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>
#include <unistd.h>

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

// ---- the budget ------------------------------------------------------------------------
std::atomic<std::uint64_t> g_live{0};
std::atomic<std::uint64_t> g_peak{0};
std::atomic<std::uint64_t> g_limit{0}; // 0: not read yet (the default is computed on first use)

struct Refusal {
    bool valid = false;
    std::uint64_t requested = 0, inUse = 0, limit = 0;
};
thread_local Refusal t_refusal;

// The smallest memory limit of the cgroup this process runs in and its ancestors (v2), or
// of its v1 memory controller; 0 when none is set.
std::uint64_t cgroupLimit() noexcept {
    std::uint64_t best = 0;
    auto consider = [&best](const std::string& file) {
        std::ifstream in(file);
        std::string word;
        if (!(in >> word) || word == "max") return;
        char* end = nullptr;
        const unsigned long long v = std::strtoull(word.c_str(), &end, 10);
        if (end == word.c_str() || v == 0 || v >= (std::uint64_t{1} << 62)) return; // "unlimited"
        if (best == 0 || v < best) best = v;
    };
    try {
        std::ifstream self("/proc/self/cgroup");
        std::string line;
        while (std::getline(self, line)) {
            if (line.rfind("0::", 0) == 0) {
                std::string path = line.substr(3);
                for (;;) {
                    consider("/sys/fs/cgroup" + path + "/memory.max");
                    const std::size_t slash = path.find_last_of('/');
                    if (path.empty() || slash == std::string::npos) break;
                    path.resize(slash);
                }
            }
        }
        consider("/sys/fs/cgroup/memory/memory.limit_in_bytes");
    } catch (...) {
        // No cgroup information: physical memory decides.
    }
    return best;
}

std::uint64_t physicalMemory() noexcept {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long size = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || size <= 0) return std::uint64_t{1} << 40;
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size);
}

std::uint64_t computeDefaultLimit() noexcept {
    std::uint64_t available = physicalMemory();
    const std::uint64_t cg = cgroupLimit();
    if (cg != 0 && cg < available) available = cg;
    return available / 4 * 3;
}

std::uint64_t currentLimit() noexcept {
    std::uint64_t l = g_limit.load(std::memory_order_relaxed);
    if (l == 0) {
        l = defaultMemoryLimit();
        std::uint64_t expected = 0;
        if (!g_limit.compare_exchange_strong(expected, l, std::memory_order_relaxed)) l = expected;
    }
    return l;
}

void notePeak(std::uint64_t live) noexcept {
    std::uint64_t peak = g_peak.load(std::memory_order_relaxed);
    while (live > peak && !g_peak.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
    }
}

// Adds `bytes` to the live figure unless that would pass the limit; one atomic update on
// success. The caller gives cached blocks back and tries once more before refusing.
bool tryCharge(std::uint64_t bytes) noexcept {
    const std::uint64_t limit = currentLimit();
    std::uint64_t live = g_live.load(std::memory_order_relaxed);
    do {
        if (bytes > limit || live > limit - bytes) return false;
    } while (!g_live.compare_exchange_weak(live, live + bytes, std::memory_order_relaxed));
    notePeak(live + bytes);
    return true;
}

void discharge(std::uint64_t bytes) noexcept { g_live.fetch_sub(bytes, std::memory_order_relaxed); }

void releaseCache() noexcept;

// `bytes` is what the block costs (header, rounding to whole huge pages); a refusal names
// `requested`, what the caller asked for.
bool charge(std::uint64_t bytes, std::uint64_t requested) noexcept {
    if (tryCharge(bytes)) return true;
    releaseCache();
    if (tryCharge(bytes)) return true;
    t_refusal = {true, requested, g_live.load(std::memory_order_relaxed), currentLimit()};
    return false;
}

bool shouldFail() noexcept {
#ifdef PLATFORM_FAULT_INJECTION
    const std::uint64_t n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
    const std::uint64_t k = g_failAt.load(std::memory_order_relaxed);
    return k != 0 && n == k;
#else
    return false;
#endif
}

// 16 bytes right before the user pointer (malloc's alignment is kept): the kind of block and
// the bytes it was charged.
constexpr std::uint64_t kSmallTag = 0x736d616c6c000001ull;
struct Header {
    std::uint64_t tag;
    std::uint64_t charged; // small blocks: header + request; large: bytes of the mapping
};
static_assert(sizeof(Header) == 16);

Header* headerOf(void* p) noexcept { return static_cast<Header*>(p) - 1; }

void* smallMalloc(std::size_t bytes, bool zero) noexcept {
    if (bytes > static_cast<std::size_t>(-1) - sizeof(Header)) return nullptr;
    const std::size_t total = bytes + sizeof(Header);
    if (!charge(total, bytes)) return nullptr;
    void* raw = zero ? std::calloc(1, total) : std::malloc(total);
    if (!raw) {
        discharge(total);
        return nullptr;
    }
    Header* h = static_cast<Header*>(raw);
    h->tag = kSmallTag;
    h->charged = total;
    return h + 1;
}

void smallFree(Header* h) noexcept {
    discharge(h->charged);
    std::free(h);
}

#ifndef PLATFORM_PLAIN_MALLOC
constexpr std::uint64_t kLargeTag = 0x6c61726765000002ull;
constexpr std::size_t kLargeBlock = std::size_t{4} << 20;   // from here on: mapped directly
constexpr std::size_t kHugePage = std::size_t{2} << 20;     // mapping granularity
constexpr std::size_t kLargeOffset = 64;                    // user data: cache-line aligned
constexpr std::size_t kMaxCachedBlocks = 8;
constexpr std::size_t kMaxCachedBytes = std::size_t{512} << 20;
struct Mapping {
    void* base;
    std::size_t bytes;
};

void unmap(const Mapping& m) noexcept {
    munmap(m.base, m.bytes);
    discharge(m.bytes); // a mapping stays charged while it is cached
}

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
            unmap(d);
    }

    void release() noexcept {
        std::vector<Mapping> drop;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            drop.swap(blocks_);
            cached_ = 0;
        }
        for (const Mapping& d : drop)
            unmap(d);
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
        if (!charge(need, bytes)) return nullptr;
        void* base = mmap(nullptr, need, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) {
            discharge(need);
            return nullptr;
        }
        madvise(base, need, MADV_HUGEPAGE); // a hint: failure only costs speed
        m = {base, need};
        fresh = true;
    }
    char* user = static_cast<char*>(m.base) + kLargeOffset;
    Header* h = headerOf(user);
    h->tag = kLargeTag;
    h->charged = m.bytes;
    if (zero && !fresh) std::memset(user, 0, bytes); // fresh mappings are zero already
    return user;
}

void* allocate(std::size_t bytes, bool zero) noexcept {
    return bytes >= kLargeBlock ? largeMalloc(bytes, zero) : smallMalloc(bytes, zero);
}

void releaseCache() noexcept { largeCache().release(); }
#else
void* allocate(std::size_t bytes, bool zero) noexcept { return smallMalloc(bytes, zero); }
void releaseCache() noexcept {}
#endif
} // namespace

void* hostMalloc(std::size_t bytes) noexcept {
    t_refusal.valid = false;
    if (shouldFail()) return nullptr;
    return allocate(bytes == 0 ? 1 : bytes, false);
}

void* hostCalloc(std::size_t count, std::size_t size) noexcept {
    t_refusal.valid = false;
    if (shouldFail()) return nullptr;
    if (count == 0 || size == 0) return allocate(1, true);
    if (count > static_cast<std::size_t>(-1) / size) return nullptr;
    return allocate(count * size, true);
}

void hostFree(void* p) noexcept {
    if (!p) return;
    Header* h = headerOf(p);
#ifndef PLATFORM_PLAIN_MALLOC
    if (h->tag == kLargeTag) {
        largeCache().give({static_cast<char*>(p) - kLargeOffset, h->charged});
        return;
    }
#endif
    smallFree(h);
}

void releaseCachedMemory() noexcept { releaseCache(); }

MemoryLimitError::MemoryLimitError(std::uint64_t requested, std::uint64_t inUse,
                                   std::uint64_t limit)
    : requested_(requested), inUse_(inUse), limit_(limit) {
    char text[256];
    std::snprintf(text, sizeof text,
                  "Out of memory: %llu bytes were requested with %llu bytes in use, over the "
                  "memory limit of %llu bytes (see set_memory_limit).",
                  static_cast<unsigned long long>(requested),
                  static_cast<unsigned long long>(inUse), static_cast<unsigned long long>(limit));
    message_ = text;
}

MemoryLimitError MemoryLimitError::withHint(const std::string& hint) const {
    MemoryLimitError e(*this);
    e.message_ += ' ';
    e.message_ += hint;
    return e;
}

std::uint64_t liveBytes() noexcept { return g_live.load(std::memory_order_relaxed); }
std::uint64_t peakLiveBytes() noexcept { return g_peak.load(std::memory_order_relaxed); }
void resetPeakLiveBytes() noexcept { g_peak.store(liveBytes(), std::memory_order_relaxed); }

std::uint64_t defaultMemoryLimit() noexcept {
    static const std::uint64_t value = computeDefaultLimit();
    return value;
}

std::uint64_t memoryLimit() noexcept { return currentLimit(); }

void setMemoryLimit(std::optional<std::uint64_t> bytes) noexcept {
    std::uint64_t v = bytes ? *bytes : defaultMemoryLimit();
    if (v == 0) v = 1; // 0 marks "not read yet"; a limit of 0 bytes and of 1 refuse alike
    g_limit.store(v, std::memory_order_relaxed);
}

void checkMemoryFits(std::uint64_t bytes) {
    const std::uint64_t limit = currentLimit();
    auto fits = [&] {
        const std::uint64_t live = liveBytes();
        return bytes <= limit && live <= limit - bytes;
    };
    if (fits()) return;
    releaseCache();
    if (fits()) return;
    throw MemoryLimitError(bytes, liveBytes(), limit);
}

void throwAllocationFailure() {
    const Refusal r = t_refusal;
    t_refusal.valid = false;
    if (r.valid) throw MemoryLimitError(r.requested, r.inUse, r.limit);
    throw std::bad_alloc();
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
