/// @file
/// Refuses memory of the C++ allocator or of SQLite's in a test program.
#pragma once

#include <cstdint>
#include <optional>

#include "RefusedNew.h"

namespace test {

enum class Allocator { cxx, sqlite };

/// While it lives, so many allocations of this thread succeed; the next one is refused, or every later one.
class RefusedMemory {
public:
    RefusedMemory(Allocator allocator, std::uint32_t howManySucceed, bool everyLaterOne);
    ~RefusedMemory();
    RefusedMemory(const RefusedMemory &) = delete;
    RefusedMemory &operator=(const RefusedMemory &) = delete;

    bool wasRefused() const;

private:
    std::optional<RefusedNew> m_cxx;
};

/// Before SQLite's first call.
void replaceSqliteAllocator();

} // namespace test
