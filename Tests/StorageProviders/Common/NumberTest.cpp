#include "Number.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using storage::appendNumber;
using storage::parseNumber;

struct TypeName {
    template <class Number>
    static std::string GetName(int /*index*/) {
        const std::string bits = std::to_string(sizeof(Number) * 8);
        return (std::is_floating_point_v<Number> ? "Real" : std::is_signed_v<Number> ? "Signed" : "Unsigned") + bits;
    }
};

template <class Number>
class NumberTest : public testing::Test {
protected:
    static std::string textOf(Number number) {
        std::string text;
        appendNumber<Number>(text, &number);
        return text;
    }

    static bool isNumber(const std::string &text) {
        Number number{};
        return parseNumber<Number>(text, &number);
    }
};

using Numbers =
    testing::Types<std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t, std::uint32_t, float, double>;
TYPED_TEST_SUITE(NumberTest, Numbers, TypeName);

TYPED_TEST(NumberTest, EachText_IsTheNumberThatItWas) {
    using Limits = std::numeric_limits<TypeParam>;
    for (const TypeParam number : {TypeParam{0}, TypeParam{1}, TypeParam{100}, Limits::lowest(), Limits::min(),
                                   Limits::max(), Limits::infinity(), static_cast<TypeParam>(-Limits::infinity()),
                                   Limits::denorm_min(), static_cast<TypeParam>(-0.0)}) {
        std::string text = "before ";
        appendNumber<TypeParam>(text, &number);
        ASSERT_EQ("before ", text.substr(0, 7));
        TypeParam found{};
        EXPECT_TRUE(parseNumber<TypeParam>(text.substr(7), &found)) << text;
        EXPECT_EQ(0, std::memcmp(&number, &found, sizeof number)) << text;
    }
}

TYPED_TEST(NumberTest, OnlyAWholeText_IsANumber) {
    EXPECT_TRUE(this->isNumber("12"));
    for (const char *text : {"", " ", "12x", "12 ", " 12", "1 2", "+12", "-", "x", "0x1G", "12,", "nan:"}) {
        EXPECT_FALSE(this->isNumber(text)) << "'" << text << "'";
    }
    EXPECT_EQ(std::is_floating_point_v<TypeParam>, this->isNumber("1.5"));
    EXPECT_EQ(std::is_floating_point_v<TypeParam>, this->isNumber("1e1"));
    EXPECT_FALSE(this->isNumber("1.5x"));
    EXPECT_FALSE(this->isNumber(std::string("1\0", 2)));
}

TYPED_TEST(NumberTest, WhatTheTypeDoesNotHold_IsNone) {
    const std::string largest = this->textOf(std::numeric_limits<TypeParam>::max());
    const std::string larger = largest + "0"; // a digit more, of a real number's exponent
    EXPECT_TRUE(this->isNumber(largest));
    EXPECT_FALSE(this->isNumber(larger)) << larger;
    EXPECT_EQ(std::is_signed_v<TypeParam>, this->isNumber("-" + largest));
    EXPECT_FALSE(this->isNumber("-" + larger));
}

template <class Real>
class RealNumberTest : public testing::Test {};

using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(RealNumberTest, Reals, TypeName);

TYPED_TEST(RealNumberTest, ANaN_KeepsItsBits) {
    using Bits = storage::BitsOf<TypeParam>;
    const std::size_t digits = sizeof(Bits) * 2;
    const std::string signalling = digits == 8 ? "7f800001" : "7ff0000000000001";
    for (const std::string &bits : {std::string(digits, 'f'), signalling}) {
        TypeParam number{};
        ASSERT_TRUE(parseNumber<TypeParam>("nan:" + bits, &number)) << bits;
        std::string text;
        appendNumber<TypeParam>(text, &number);
        EXPECT_EQ("nan:" + bits, text);
    }
    // Neither a NaN's bits, nor whole, nor of this size.
    for (const std::string &bits : {std::string("0"), std::string("7f"), std::string(digits, 'f') + "g",
                                    std::string(digits, 'f') + "f", std::string("quiet"), std::string()}) {
        TypeParam number{};
        EXPECT_FALSE(parseNumber<TypeParam>("nan:" + bits, &number)) << bits;
    }
}

} // namespace
