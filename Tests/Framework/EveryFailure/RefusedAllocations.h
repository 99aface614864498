/// @file
/// Takes the place of the allocator in a test program, for everything that it consists of: the library, what it
/// stands on, and the C library's own blocks alike.
#pragma once

#include <cstdint>

namespace test {

/// The allocations of the calling thread, numbered from 0 since refuse while somebody counts them.
class RefusedAllocations {
public:
    enum class Lasting { once, fromThenOn };

    /// The one with the number fails, or all from it on.
    static void refuse(std::uint64_t number, Lasting lasting);
    static void refuseNone();

    /// Allocations count, and fail, only while one of these lives: all others are the test's own.
    class Counted {
    public:
        Counted();
        ~Counted();
        Counted(const Counted &) = delete;
        Counted &operator=(const Counted &) = delete;
    };

    static std::uint64_t counted();
    static std::uint64_t refused();
};

/// As long as it is set, what other threads ask for fails.
void refuseOtherThreads(bool isRefused);
std::uint64_t refusedToOtherThreads();

/// Blocks that the whole program holds. A sanitizer allocates past this count and finds what is lost itself.
std::int64_t blocksAlive();

/// From here on, the first 4096 counted blocks are followed, until those that are still alive are freed or forgotten.
void followBlocks();
/// @return how many there were.
std::uint32_t freeFollowedBlocks();
void forgetFollowedBlocks();

} // namespace test
