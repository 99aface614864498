/// @file
/// A variable's value as a row of the table keeps it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Statement.h"
#include "ValueView.h"

namespace storage {

/// Binds text, or a blob where the bytes are no UTF-8: SQLite's own functions may then work on all text.
void bindName(Statement &statement, int parameter, std::string_view name);

/// @param text  room for what is bound; must live until the step.
void bindValue(Statement &statement, int parameter, const ValueView &value, std::string &text);

/// @param value   its type is plain and its element count known; receives the content.
/// @param misfit  receives what was found where that does not fit. @return whether it fits.
bool readValue(const Statement &statement, int column, StoredValue &value, std::string &misfit);

} // namespace storage
