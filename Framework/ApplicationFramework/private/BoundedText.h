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

/// Puts a part behind the first bytes of the field, cut to what fits, always terminated. @return the length with it.
template <std::size_t size>
std::size_t appendBounded(char (&field)[size], std::size_t length, std::string_view part) {
    const std::size_t fitting = std::min(part.size(), size - 1 - length);
    std::memmove(field + length, part.data(), fitting); // the part may be the field's own
    field[length + fitting] = '\0';
    return length + fitting;
}

/// "a/b/c", cut to what fits, always terminated. Every variable of a walk has its path made, some of them twice: printf
/// would take most of the walk's time. @return the length.
template <std::size_t size>
std::size_t joinBounded(char (&field)[size], std::string_view a, std::string_view b, std::string_view c) {
    const auto separate = [&field](std::size_t length) {
        if (length < size - 1) {
            field[length++] = '/';
        }
        return length;
    };
    std::size_t length = separate(appendBounded(field, 0, a));
    length = separate(appendBounded(field, length, b));
    return appendBounded(field, length, c);
}

} // namespace af
