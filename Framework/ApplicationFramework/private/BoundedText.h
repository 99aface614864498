/// @file
/// Copies of names into the fixed fields of records.
#pragma once

#include <cstddef>
#include <cstring>

namespace af {

/// Copies what fits, always terminated; the rest of the field is zero. Null counts as empty.
template <std::size_t size>
void copyBounded(char (&field)[size], const char *text) {
    const std::size_t length = text != nullptr ? strnlen(text, size - 1) : 0;
    if (length != 0) {
        std::memmove(field, text, length); // the text may be the field's own
    }
    std::memset(field + length, 0, size - length);
}

} // namespace af
