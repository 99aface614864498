/// @file
/// Values as JSON: what the SQLite store keeps of arrays, and what zaf-store writes and reads.
///
/// Numbers are numbers, a float the shortest that reads back as itself. What JSON has no number for is a text: "inf",
/// "-inf", "nan(0x7fc00000)" with its bits. A string is a text, or {"hex": "..."} of all its bytes where it is no
/// UTF-8 or holds bytes behind its first NUL. An array is an array. A bool is 0 or 1, or the word that stands there;
/// true and false are read too.
#pragma once

#include <nlohmann/json.hpp>

#include "StoredValue.h"

namespace storage {

/// The largest content that a store is asked for: a damaged count must not ask for all memory.
constexpr std::uint64_t largestContent = std::uint64_t{256} * 1024 * 1024;

nlohmann::json toJson(const StoredValue &value);

/// Fills the content of a value whose type and element count are set.
/// @param reason  receives why it could not: what was found and what is expected.
/// @return whether the JSON fits them.
bool fromJson(const nlohmann::json &json, StoredValue &value, std::string &reason);

/// @return whether the bytes are a text that a NUL ends, or the content's end does, and the rest is zero.
/// @param length  receives that of the text.
bool isText(const std::vector<unsigned char> &content, std::size_t &length);

} // namespace storage
