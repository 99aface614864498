/// @file
/// Numbers as text that reads back to the same bits.
#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
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

// Numbers are read from and written to the place where their bytes lie. A value on its way would lose which NaN it was:
// registers of 32-bit x86 make a quiet one of a signalling one.

template <class Real>
using BitsOf = std::conditional_t<sizeof(Real) == 4, std::uint32_t, std::uint64_t>;

template <class Real>
bool isNan(BitsOf<Real> bits) {
    constexpr int fraction = std::numeric_limits<Real>::digits - 1;
    constexpr BitsOf<Real> sign = BitsOf<Real>{1} << (sizeof(bits) * 8 - 1);
    constexpr BitsOf<Real> infinity = (sign - 1) >> fraction << fraction;
    return (bits & ~sign) > infinity;
}

/// @return the number there; of a NaN, that it is one.
template <class Number>
Number numberAt(const void *place) {
    Number number{};
    std::memcpy(&number, place, sizeof(number));
    return number;
}

/// Appends the number there; a NaN as "nan:" and its bits.
template <class Number>
void appendNumber(std::string &text, const void *place) {
    if constexpr (std::is_floating_point_v<Number>) {
        const auto bits = numberAt<BitsOf<Number>>(place);
        if (isNan<Number>(bits)) {
            text += "nan:";
            for (int shift = static_cast<int>(sizeof(bits)) * 8 - 4; shift >= 0; shift -= 4) {
                text += "0123456789abcdef"[(bits >> shift) & 0xF];
            }
            return;
        }
    }
    // The longest: a double's sign, 17 digits, point and exponent.
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), numberAt<Number>(place)).ptr;
    text.append(digits.data(), end);
}

/// @return whether the whole text is one number that the type holds, which the place then receives.
template <class Number>
bool parseNumber(std::string_view text, void *place) {
    const auto parse = [place](std::string_view digits, auto &number, auto... base) {
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base...);
        std::memcpy(place, &number, sizeof(number));
        return error == std::errc{} && end == digits.data() + digits.size();
    };
    if constexpr (std::is_floating_point_v<Number>) {
        if (text.substr(0, 4) == "nan:") {
            BitsOf<Number> bits{};
            return parse(text.substr(4), bits, 16) && isNan<Number>(bits);
        }
    }
    Number number{};
    return parse(text, number);
}

} // namespace storage
