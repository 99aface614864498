/// @file
/// The bytes of a store file; README.md tells the format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StoredValue.h"

namespace storage {

using Bytes = std::vector<unsigned char>;

/// A file beyond this size is a damaged one, and none is made.
constexpr std::uint64_t largestStore = std::uint64_t{1024} * 1024 * 1024;

/// What packStore makes of the values, in bytes.
std::uint64_t packedSize(const StoredValues &values);

/// In this machine's byte order. The values are what a store keeps, and no more than fit the largest.
Bytes packStore(const StoredValues &values, std::uint64_t generation);

enum class StoreState {
    whole,
    notAStore, ///< It does not begin as one, and nothing tells that it did.
    newer,     ///< Of a format version that is not known here.
    damaged
};

struct UnpackedStore {
    StoreState state = StoreState::damaged;
    std::string why; ///< It is not whole.
    std::uint64_t generation = 0;
    std::uint32_t sum = 0; ///< The checksum of the whole.
    StoredValues values;   ///< In this machine's byte order, whatever the file's.
};

/// Trusts nothing: no size in the bytes is used before it is held against what is there.
UnpackedStore unpackStore(const Bytes &bytes);

} // namespace storage
