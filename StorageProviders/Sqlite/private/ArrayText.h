/// @file
/// Arrays as JSON text.
#pragma once

#include <string>
#include <string_view>

#include "ValueView.h"

namespace storage {

/// Appends "[1,2,3]"; what JSON has no number for is a string: "inf", "-inf", "nan:7fc00000".
/// @param value  of a plain array type, whole.
void appendArray(std::string &text, const ValueView &value);

/// Fills the value's content, whose size is that of its type and element count.
/// @return false: not such text, an element that the type does not hold, or another number of elements.
/// @param misfit  receives what does not fit.
bool parseArray(std::string_view text, StoredValue &value, std::string &misfit);

} // namespace storage
