/// @file
/// Names and paths in the fixed fields of records.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

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

/// "a/b/c", cut to what fits, always terminated. Every variable of a walk has its path made, some of them twice: printf
/// would take most of the walk's time.
template <std::size_t size>
void joinBounded(char (&field)[size], std::string_view a, std::string_view b, std::string_view c) {
    std::size_t length = 0;
    const auto append = [&field, &length](std::string_view part) {
        const std::size_t fitting = std::min(part.size(), size - 1 - length);
        std::memmove(field + length, part.data(), fitting); // the part may be the field's own
        length += fitting;
    };
    const auto separate = [&field, &length] {
        if (length < size - 1) {
            field[length++] = '/';
        }
    };
    append(a);
    separate();
    append(b);
    separate();
    append(c);
    field[length] = '\0';
}

} // namespace af
