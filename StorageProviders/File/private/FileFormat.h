/// @file
/// The bytes of a store file; README.md tells the format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StoredValue.h"
#include "ValueView.h"

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

/// What the checks of a store's bytes find.
struct StoreCheck {
    StoreState state = StoreState::damaged;
    std::string why; ///< It is not whole.
    std::uint64_t generation = 0;
    std::uint32_t sum = 0; ///< The checksum of the whole.
    std::uint32_t noOfRecords = 0;
    bool isSwapped = false; ///< Written in the other byte order.
};

/// Trusts nothing: no size in the bytes is used before it is held against what is there.
StoreCheck checkStore(const Bytes &bytes);

/// @return what the check finds of bytes that were packed here: that they are whole, and the numbers they tell.
StoreCheck describePacked(const Bytes &bytes);

/// @param check   found the bytes whole.
/// @param values  receives those in this machine's byte order, in the order of the records.
void readValues(const Bytes &bytes, const StoreCheck &check, ValueSink &values);

struct UnpackedStore : StoreCheck {
    StoredValues values;
};

/// The check, and the values of what is whole.
UnpackedStore unpackStore(const Bytes &bytes);

} // namespace storage
