/// @file
/// Values as JSON, in the words of the SQLite store's columns.
///
/// Numbers are numbers, a float the shortest that reads back as itself, a character its byte. What JSON has no number
/// for is a text: "inf", "-inf", "nan:7fc00000" with its bits. A string is a text, or {"hex": "..."} of all its bytes
/// where it is no UTF-8 or holds bytes behind its first NUL. An array is an array. A bool is 0 or 1, or the word that
/// stands there; true and false are read too.
#pragma once

#include <nlohmann/json.hpp>

#include "StoredValue.h"

namespace storage {

nlohmann::json toJson(const StoredValue &value);

/// Fills the content of a value whose type and element count are set.
/// @param reason  receives why it could not: what was found and what is expected.
/// @return whether the JSON fits them.
bool fromJson(const nlohmann::json &json, StoredValue &value, std::string &reason);

} // namespace storage
