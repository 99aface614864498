/// @file
/// A plain number in the place of an event's data pointer. It needs no memory that outlives the event, and it
/// is the only data that can come from another process.
#pragma once

#include <cstdint>
#include <cstring>

namespace radio {

inline void *toDataWord(uint32_t number) {
    const std::uintptr_t wide = number;
    void *word = nullptr;
    static_assert(sizeof wide == sizeof word);
    std::memcpy(&word, &wide, sizeof word);
    return word;
}

inline uint32_t fromDataWord(const void *word) {
    return static_cast<uint32_t>(reinterpret_cast<std::uintptr_t>(word));
}

} // namespace radio
