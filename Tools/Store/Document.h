/// @file
/// A store as a JSON document; README.md tells the form.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "StoredValue.h"

nlohmann::ordered_json toDocument(const storage::StoredValues &values);

/// JSON of others. @throws Fault where it is none, or is meant to fill the stack.
nlohmann::json parseJson(const std::string &text, const std::string &file);

/// @throws Fault when it is none, naming the place and what is wrong there.
storage::StoredValues fromDocument(const std::string &text, const std::string &file);

/// One value as a line shows it, cut to @p longest characters (0: never).
std::string shownValue(const storage::StoredValue &value, std::size_t longest = 0);

/// A path as a line shows it: what would break the line is escaped as in JSON.
std::string shownPath(const std::string &path);
