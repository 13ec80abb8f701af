// The host allocator: large blocks are reused after free, and reuse never shows old contents
// to a zero-filled request, also with threads at once; alignment and sizes hold across the
// small/large boundary; every live block counts in the budget's figure, and a request that would
// take it past the limit is refused.
#include <platform/HostAllocator.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

using namespace platform;

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

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

// Many threads allocating and freeing large and small blocks at once: a zero-filled request
// never shows what an earlier (reused) block held.
TEST(HostAllocator, ZeroFilledRequestsStayZeroWhileThreadsReuseDirtiedBlocks) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 20; ++i) {
                const std::size_t bytes = (i % 3 == 0) ? 100 : (3 + 2 * t) * kMiB + 7 * (i % 2);
                auto* p = static_cast<unsigned char*>(hostCalloc(bytes / 8, 8));
                ASSERT_NE(p, nullptr);
                for (std::size_t k = 0; k < bytes / 8 * 8; k += 997)
                    ASSERT_EQ(p[k], 0) << bytes;
                std::memset(p, t + 1, bytes / 8 * 8);
                hostFree(p);
            }
        });
    for (auto& th : threads)
        th.join();
    releaseCachedMemory();
}

} // namespace
