// The host allocator: large blocks are reused after free, and reuse never shows old contents
// to a zero-filled request; alignment and sizes hold across the small/large boundary; every
// live block counts in the budget's figure, and a request that would take it past the limit
// is refused.
#include <platform/HostAllocator.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

using namespace platform;

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

bool allZero(const void* p, std::size_t n) {
    const auto* b = static_cast<const unsigned char*>(p);
    for (std::size_t i = 0; i < n; ++i)
        if (b[i] != 0) return false;
    return true;
}

TEST(HostAllocator, ZeroFilledRequestsStayZeroAfterAReusedBlockWasDirtied) {
    for (std::size_t bytes : {std::size_t{100}, 3 * kMiB, 4 * kMiB, 9 * kMiB + 7, 40 * kMiB}) {
        void* dirty = hostMalloc(bytes);
        ASSERT_NE(dirty, nullptr);
        std::memset(dirty, 0xAB, bytes);
        hostFree(dirty);
        auto* z = static_cast<unsigned char*>(hostCalloc(bytes / 8, 8));
        ASSERT_NE(z, nullptr);
        EXPECT_TRUE(allZero(z, bytes / 8 * 8)) << bytes;
        hostFree(z);
    }
}

TEST(HostAllocator, BlocksAreAlignedWritableAndDistinct) {
    std::vector<void*> blocks;
    for (std::size_t bytes : {std::size_t{1}, std::size_t{24}, kMiB, 4 * kMiB - 1, 4 * kMiB,
                              6 * kMiB, 6 * kMiB, 70 * kMiB}) {
        auto* p = static_cast<unsigned char*>(hostMalloc(bytes));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
        p[0] = 1;
        p[bytes - 1] = 2;
        for (void* q : blocks)
            EXPECT_NE(q, p);
        blocks.push_back(p);
    }
    for (void* p : blocks)
        hostFree(p);
    hostFree(nullptr);
    releaseCachedMemory();
}

TEST(HostAllocator, LiveBlocksCountAgainstTheLimit) {
    releaseCachedMemory();
    const std::uint64_t base = liveBytes();
    void* p = hostMalloc(kMiB); // below the large-block size: freed at once, never cached
    ASSERT_NE(p, nullptr);
    EXPECT_GE(liveBytes(), base + kMiB);
    hostFree(p);
    EXPECT_EQ(liveBytes(), base);
    {
        // 2 MiB fit under base + 3 MiB, but not beside 2 MiB already in use.
        ScopedMemoryLimit limit(base + 3 * kMiB);
        void* a = hostMalloc(2 * kMiB);
        ASSERT_NE(a, nullptr);
        EXPECT_EQ(hostMalloc(2 * kMiB), nullptr);
        try {
            throwAllocationFailure();
        } catch (const MemoryLimitError& e) {
            EXPECT_EQ(e.requested(), 2 * kMiB);
            EXPECT_EQ(e.limit(), base + 3 * kMiB);
            EXPECT_GE(e.inUse(), base + 2 * kMiB);
        }
        hostFree(a);
        void* b = hostMalloc(2 * kMiB);
        EXPECT_NE(b, nullptr);
        hostFree(b);
    }
    EXPECT_EQ(liveBytes(), base);
    EXPECT_EQ(memoryLimit(), defaultMemoryLimit());
}

// Many threads allocating and freeing large and small blocks at once.
TEST(HostAllocator, ConcurrentLargeAndSmallBlocks) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 20; ++i) {
                const std::size_t bytes =
                    (i % 3 == 0) ? 64 : (4 + static_cast<std::size_t>(t)) * kMiB;
                auto* p = static_cast<unsigned char*>(hostCalloc(bytes, 1));
                ASSERT_NE(p, nullptr);
                EXPECT_EQ(p[bytes / 2], 0);
                std::memset(p, t + 1, bytes);
                hostFree(p);
            }
        });
    for (auto& th : threads)
        th.join();
    releaseCachedMemory();
}

} // namespace
