/// @file
/// Lets the containers' operations fail: definitions in the test program come before the platform library's.
#pragma once

#include <cstdint>

namespace test {

// What the platform answers, by Documentation/Platform.md.
constexpr std::uint32_t listLastElement = 0x1002;
constexpr std::uint32_t listExhausted = 0x8004;
constexpr std::uint32_t listOutOfMemory = 0x8005;

/// What an operation answers instead of its work; 0: it does its work. Set back by ListFaultsReset.
struct ListFaults {
    std::uint32_t pushTail = 0;
    std::uint32_t popHead = 0;
    std::uint32_t startIteration = 0;
    std::uint32_t getNext = 0;
    std::uint32_t hashSet = 0;
    std::uint32_t hashConstruct = 0;
};

ListFaults &listFaults();

struct ListFaultsReset {
    ~ListFaultsReset() { listFaults() = {}; }
};

} // namespace test
