/// @file
/// Takes the place of the C++ allocator and of SQLite's in a test program.
#pragma once

#include <cstdint>

namespace test {

enum class Allocator { cxx, sqlite };

/// While it lives, so many allocations of this thread succeed; the next one is refused, or every later one.
class RefusedMemory {
public:
    RefusedMemory(Allocator allocator, std::uint32_t howManySucceed, bool everyLaterOne);
    ~RefusedMemory();
    RefusedMemory(const RefusedMemory &) = delete;
    RefusedMemory &operator=(const RefusedMemory &) = delete;

    std::uint32_t refused() const;
};

/// C++ blocks of this program that live.
std::int64_t blocksAlive();

/// Before SQLite's first call.
void replaceSqliteAllocator();

} // namespace test
