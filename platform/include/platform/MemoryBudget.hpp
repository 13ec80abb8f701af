// The process memory budget: every block the host allocator hands out is counted in one
// live-bytes figure, and a request that would take it over the limit is refused before any
// memory is mapped or touched. Builds that allocate in several passes ask first whether their
// peak fits (checkMemoryFits), so a refusal never comes after gigabytes were built.
#pragma once

#include <cstdint>
#include <new>
#include <optional>
#include <string>

namespace platform {

// A refusal by the budget. It is a std::bad_alloc, so every out-of-memory path treats it
// alike; what() names the bytes asked for, the bytes in use and the limit, plus an optional
// hint from the code that asked (for example a cheaper query form).
class MemoryLimitError : public std::bad_alloc {
public:
    MemoryLimitError(std::uint64_t requested, std::uint64_t inUse, std::uint64_t limit);
    const char* what() const noexcept override { return message_.c_str(); }
    std::uint64_t requested() const noexcept { return requested_; }
    std::uint64_t inUse() const noexcept { return inUse_; }
    std::uint64_t limit() const noexcept { return limit_; }
    // The same refusal with a sentence appended to its message.
    MemoryLimitError withHint(const std::string& hint) const;

private:
    std::uint64_t requested_, inUse_, limit_;
    std::string message_;
};

// Bytes of host-allocator blocks alive now (cached large blocks included).
std::uint64_t liveBytes() noexcept;
// The largest live-bytes figure since the last resetPeakLiveBytes().
std::uint64_t peakLiveBytes() noexcept;
void resetPeakLiveBytes() noexcept;

// The limit in force, and the default: three quarters of what the process may use (its
// cgroup's memory limit where one is set, else physical memory), read once.
std::uint64_t memoryLimit() noexcept;
std::uint64_t defaultMemoryLimit() noexcept;
// Sets the limit in bytes; std::nullopt restores the default. Blocks already alive stay.
void setMemoryLimit(std::optional<std::uint64_t> bytes) noexcept;

// Throws MemoryLimitError when `bytes` more would not fit under the limit now (cached blocks
// are given back first). A size check, not a reservation: the blocks are counted when made.
void checkMemoryFits(std::uint64_t bytes);

// Throws the failure of the last hostMalloc/hostCalloc on this thread: MemoryLimitError when
// the budget refused it, else std::bad_alloc.
[[noreturn]] void throwAllocationFailure();

// Sets a limit for a scope and restores the previous one on exit.
class ScopedMemoryLimit {
public:
    explicit ScopedMemoryLimit(std::optional<std::uint64_t> bytes) noexcept
        : previous_(memoryLimit()) {
        setMemoryLimit(bytes);
    }
    ~ScopedMemoryLimit() { setMemoryLimit(previous_); }
    ScopedMemoryLimit(const ScopedMemoryLimit&) = delete;
    ScopedMemoryLimit& operator=(const ScopedMemoryLimit&) = delete;

private:
    std::uint64_t previous_;
};

} // namespace platform
