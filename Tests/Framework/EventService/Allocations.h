/// @file
/// Takes the place of the allocator in a test program, for the library under test only: what the C library or the
/// test itself allocates is never refused.
#pragma once

#include <cstdint>

namespace test {

/// While it lives, the library's allocations on this thread succeed as often as allowed; the next one fails, or
/// every later one.
class RefusedAllocation {
public:
    explicit RefusedAllocation(std::uint32_t howManyAllowed, bool everyLaterOne = false);
    ~RefusedAllocation();
    RefusedAllocation(const RefusedAllocation &) = delete;
    RefusedAllocation &operator=(const RefusedAllocation &) = delete;

    /// How many were refused so far.
    std::uint32_t refused() const;
};

/// What the library has allocated since the program began and not freed yet.
std::int64_t blocksOfLibrary();

} // namespace test
