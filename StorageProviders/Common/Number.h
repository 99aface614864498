/// @file
/// Numbers as text that reads back to the same bits.
#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "CVariable.h"

namespace storage {

/// Calls visit with a zero of the type's element: how its bytes are to be understood. A character is its byte, a
/// bool its whole word. The type is plain.
template <class Visit>
auto withElementOf(EVariableType type, Visit &&visit) {
    switch (type) {
    case TYPE_INT8:
    case TYPE_INT8_ARRAY:
        return visit(std::int8_t{});
    case TYPE_INT16:
    case TYPE_INT16_ARRAY:
        return visit(std::int16_t{});
    case TYPE_INT32:
    case TYPE_INT32_ARRAY:
        return visit(std::int32_t{});
    case TYPE_UINT16:
    case TYPE_UINT16_ARRAY:
        return visit(std::uint16_t{});
    case TYPE_UINT32:
    case TYPE_UINT32_ARRAY:
    case TYPE_BOOL:
    case TYPE_BOOL_ARRAY:
        return visit(std::uint32_t{});
    case TYPE_FLOAT:
    case TYPE_FLOAT_ARRAY:
        return visit(float{});
    case TYPE_DOUBLE:
    case TYPE_DOUBLE_ARRAY:
        return visit(double{});
    default:
        return visit(std::uint8_t{});
    }
}

template <class Real>
using BitsOf = std::conditional_t<sizeof(Real) == 4, std::uint32_t, std::uint64_t>;

/// A NaN as "nan:" and its bits: which one it was is kept.
template <class Real>
void appendNan(std::string &text, Real number) {
    BitsOf<Real> bits{};
    std::memcpy(&bits, &number, sizeof(bits));
    text += "nan:";
    for (int shift = static_cast<int>(sizeof(bits)) * 8 - 4; shift >= 0; shift -= 4) {
        text += "0123456789abcdef"[(bits >> shift) & 0xF];
    }
}

template <class Real>
bool parseNan(std::string_view text, Real &number) {
    BitsOf<Real> bits{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bits, 16);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return false;
    }
    std::memcpy(&number, &bits, sizeof(bits));
    return std::isnan(number);
}

template <class Number>
void appendNumber(std::string &text, Number number) {
    if constexpr (std::is_floating_point_v<Number>) {
        if (std::isnan(number)) {
            appendNan(text, number);
            return;
        }
    }
    // The longest: a double's sign, 17 digits, point and exponent.
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text.append(digits.data(), end);
}

/// @return whether the whole text is one number that the type holds.
template <class Number>
bool parseNumber(std::string_view text, Number &number) {
    if constexpr (std::is_floating_point_v<Number>) {
        if (text.substr(0, 4) == "nan:") {
            return parseNan(text.substr(4), number);
        }
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

} // namespace storage
