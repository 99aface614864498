/// @file
/// The bytes of a store file; README.md tells the format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StoredValue.h"

namespace storage {

using Bytes = std::vector<unsigned char>;

/// In this machine's byte order.
Bytes packStore(const StoredValues &values, std::uint64_t generation);

enum class StoreState {
    whole,
    notAStore, ///< It does not begin as one.
    newer,     ///< Of a format version that is not known here.
    damaged
};

struct UnpackedStore {
    StoreState state = StoreState::damaged;
    std::string why; ///< Where it is not whole.
    std::uint64_t generation = 0;
    StoredValues values; ///< In this machine's byte order, whatever the file's.
};

/// Trusts nothing: no size in the bytes is used before it is held against what is there.
UnpackedStore unpackStore(const Bytes &bytes);

} // namespace storage
