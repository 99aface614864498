/// @file
/// What the platform's containers answer, by Documentation/Platform.md. Their headers need not name these.
#pragma once

#include <cstdint>

namespace test {

constexpr std::uint32_t done = 0x0000;
constexpr std::uint32_t lastElement = 0x1002;
constexpr std::uint32_t exhausted = 0x8004;
constexpr std::uint32_t outOfMemory = 0x8005;

/// How many allocations the stand-ins take is known, and held to.
#ifdef ZELAF_STAND_INS
constexpr bool isStandIn = true;
#else
constexpr bool isStandIn = false;
#endif

constexpr bool isError(std::uint32_t result) {
    return result >= 0x8000;
}

} // namespace test
