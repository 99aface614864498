/// @file
/// A variable's value as a store keeps it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CVariable.h"

namespace storage {

/// More is refused on the way in and not believed on the way out: a damaged count does not take all memory.
constexpr std::uint64_t largestContent = std::uint64_t{64} << 20;

/// The content is in this machine's byte order: exactly elementSize(type) * noOfElements bytes.
struct StoredValue {
    std::string path;
    EVariableType type = TYPE_INT8;
    std::uint32_t noOfElements = 0;
    std::vector<unsigned char> content;

    bool operator==(const StoredValue &other) const {
        return type == other.type && noOfElements == other.noOfElements && path == other.path &&
               content == other.content;
    }
};

using StoredValues = std::vector<StoredValue>;

} // namespace storage
