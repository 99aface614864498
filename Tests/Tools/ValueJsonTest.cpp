#include "ValueJson.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "VariableType.h"

namespace {

using nlohmann::json;
using storage::StoredValue;

template <class Element>
StoredValue valueOf(EVariableType type, const std::vector<Element> &elements) {
    StoredValue value{"p", type, static_cast<std::uint32_t>(elements.size()), {}};
    value.content.resize(elements.size() * sizeof(Element));
    if (!elements.empty()) {
        std::memcpy(value.content.data(), elements.data(), value.content.size());
    }
    return value;
}

StoredValue stringOf(const std::string &bytes) {
    return valueOf<char>(TYPE_STRING, {bytes.begin(), bytes.end()});
}

std::string textOf(const StoredValue &value) {
    return storage::toJson(value).dump();
}

/// Reads a text back into an empty value of the same type and count.
void expectBack(const StoredValue &value) {
    const std::string text = textOf(value);
    StoredValue back{value.path, value.type, value.noOfElements, {}};
    std::string reason;
    EXPECT_TRUE(storage::fromJson(json::parse(text), back, reason)) << text << ": " << reason;
    EXPECT_TRUE(back == value) << text;
}

struct Row {
    StoredValue value;
    std::string text;
};

TEST(ValueJsonTest, Values_ReadAsTheyAreDocumented) {
    const Row rows[] = {
        {valueOf<std::int8_t>(TYPE_INT8, {-128}), "-128"},
        {valueOf<std::int8_t>(TYPE_CHAR, {'a'}), "97"},
        {valueOf<std::uint8_t>(TYPE_CHAR, {0xE9}), "233"},
        {valueOf<std::uint8_t>(TYPE_UINT8, {255}), "255"},
        {valueOf<std::int16_t>(TYPE_INT16, {-32768}), "-32768"},
        {valueOf<std::uint16_t>(TYPE_UINT16, {65535}), "65535"},
        {valueOf<std::int32_t>(TYPE_INT32, {INT32_MIN}), "-2147483648"},
        {valueOf<std::uint32_t>(TYPE_UINT32, {UINT32_MAX}), "4294967295"},
        {valueOf<std::uint32_t>(TYPE_BOOL, {1}), "1"},
        {valueOf<std::uint32_t>(TYPE_BOOL, {UINT32_MAX}), "4294967295"},
        {valueOf<float>(TYPE_FLOAT, {0.1F}), "0.1"},
        {valueOf<float>(TYPE_FLOAT, {-0.F}), "-0.0"},
        {valueOf<double>(TYPE_DOUBLE, {0.1}), "0.1"},
        {valueOf<double>(TYPE_DOUBLE, {1.}), "1.0"},
        {valueOf<double>(TYPE_DOUBLE, {std::numeric_limits<double>::infinity()}), "\"inf\""},
        {valueOf<float>(TYPE_FLOAT, {-std::numeric_limits<float>::infinity()}), "\"-inf\""},
        {valueOf<std::uint32_t>(TYPE_FLOAT, {0x7FC00000}), "\"nan:7fc00000\""},
        {valueOf<std::uint64_t>(TYPE_DOUBLE, {0xFFF8000000012345}), "\"nan:fff8000000012345\""},
        {valueOf<std::int32_t>(TYPE_INT32_ARRAY, {1, -2, 3}), "[1,-2,3]"},
        {valueOf<std::int32_t>(TYPE_INT32_ARRAY, {}), "[]"},
        {valueOf<double>(TYPE_DOUBLE_ARRAY, {0.5, -0.}), "[0.5,-0.0]"},
        {valueOf<std::int8_t>(TYPE_CHAR_ARRAY, {'o', 'k'}), "[111,107]"},
        {stringOf("abc"), "\"abc\""},
        {stringOf(std::string("abc\0\0", 5)), "\"abc\""},
        {stringOf(""), "\"\""},
        {stringOf(std::string("a\0b", 3)), "{\"hex\":\"610062\"}"},
        {stringOf("\xFF\xFE"), "{\"hex\":\"fffe\"}"},
        {stringOf("caf\xC3"), "{\"hex\":\"636166c3\"}"},
        {stringOf("caf\xC3\xA9"), "\"caf\xC3\xA9\""},
        {stringOf("{\"hex\":\"00\"}"), R"("{\"hex\":\"00\"}")"},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(row.text, textOf(row.value)) << storage::typeName(row.value.type);
        expectBack(row.value);
    }
}

TEST(ValueJsonTest, EveryFloat_ComesBackBitByBit) {
    // A step that is no power of two meets every exponent and both signs.
    for (std::uint64_t bits = 0; bits <= UINT32_MAX; bits += 1000003) {
        expectBack(valueOf<std::uint32_t>(TYPE_FLOAT, {static_cast<std::uint32_t>(bits)}));
    }
}

TEST(ValueJsonTest, Doubles_ComeBackBitByBit) {
    std::uint64_t bits = 88172645463325252U;
    for (int i = 0; i < 5000; ++i) {
        bits ^= bits << 13;
        bits ^= bits >> 7;
        bits ^= bits << 17;
        expectBack(valueOf<std::uint64_t>(TYPE_DOUBLE, {bits}));
    }
}

TEST(ValueJsonTest, ABool_MayBeWrittenTrueOrFalse) {
    StoredValue value{"p", TYPE_BOOL_ARRAY, 2, {}};
    std::string reason;
    ASSERT_TRUE(storage::fromJson(json::parse("[true,false]"), value, reason)) << reason;
    EXPECT_TRUE(value == valueOf<std::uint32_t>(TYPE_BOOL_ARRAY, {1, 0}));
}

TEST(ValueJsonTest, AShorterText_IsFilledUpWithNul) {
    StoredValue value{"p", TYPE_STRING, 4, {}};
    std::string reason;
    ASSERT_TRUE(storage::fromJson(json("ab"), value, reason)) << reason;
    EXPECT_TRUE(value == stringOf(std::string("ab\0\0", 4)));
}

TEST(ValueJsonTest, AnInteger_IsARealToo) {
    StoredValue value{"p", TYPE_DOUBLE, 1, {}};
    std::string reason;
    ASSERT_TRUE(storage::fromJson(json::parse("3"), value, reason)) << reason;
    EXPECT_TRUE(value == valueOf<double>(TYPE_DOUBLE, {3.}));
}

TEST(ValueJsonTest, AnInfinityOrANanWrittenByHand_IsRead) {
    StoredValue value{"p", TYPE_FLOAT, 1, {}};
    std::string reason;
    ASSERT_TRUE(storage::fromJson(json("infinity"), value, reason)) << reason;
    EXPECT_TRUE(value == valueOf<float>(TYPE_FLOAT, {std::numeric_limits<float>::infinity()}));
    ASSERT_TRUE(storage::fromJson(json("nan"), value, reason)) << reason;
    EXPECT_TRUE(value == valueOf<std::uint32_t>(TYPE_FLOAT, {0x7FC00000}));
}

struct Misfit {
    EVariableType type;
    std::uint32_t noOfElements;
    const char *text;
    const char *reason; ///< Part of it.
};

TEST(ValueJsonTest, WhatDoesNotFit_IsRefusedWithAReason) {
    const Misfit misfits[] = {
        {TYPE_INT8, 1, "128", "128"},
        {TYPE_INT8, 1, "-129", "INT8"},
        {TYPE_UINT8, 1, "-1", "UINT8"},
        {TYPE_UINT8, 1, "256", "UINT8"},
        {TYPE_INT16, 1, "32768", "INT16"},
        {TYPE_UINT16, 1, "65536", "UINT16"},
        {TYPE_INT32, 1, "2147483648", "INT32"},
        {TYPE_INT32, 1, "-2147483649", "INT32"},
        {TYPE_UINT32, 1, "4294967296", "UINT32"},
        {TYPE_INT32, 1, "18446744073709551616", "INT32"},
        {TYPE_INT32, 1, "1.0", "1.0"},
        {TYPE_INT32, 1, "\"1\"", "INT32"},
        {TYPE_INT32, 1, "null", "null"},
        {TYPE_INT32, 1, "[1]", "[1]"},
        {TYPE_BOOL, 1, "\"true\"", "BOOL"},
        {TYPE_FLOAT, 1, "1e39", "FLOAT"},
        {TYPE_FLOAT, 1, "\"nan:7fc00000 \"", "FLOAT"},
        {TYPE_FLOAT, 1, "\"nan:3f800000\"", "FLOAT"},
        {TYPE_FLOAT, 1, "\"nan:17fc00000\"", "FLOAT"},
        {TYPE_DOUBLE, 1, "\"infinite\"", "DOUBLE"},
        {TYPE_DOUBLE, 1, "\"1.0\"", "DOUBLE"},
        {TYPE_DOUBLE, 1, "true", "true"},
        {TYPE_INT32_ARRAY, 2, "[1]", "an array of 1"},
        {TYPE_INT32_ARRAY, 2, "[1,2,3]", "an array of 3"},
        {TYPE_INT32_ARRAY, 1, "1", "expected an array of 1"},
        {TYPE_INT32_ARRAY, 2, "[1,\"2\"]", "\"2\""},
        {TYPE_UINT8_ARRAY, 2, "[1,256]", "256"},
        {TYPE_STRING, 2, "\"abc\"", "room for 2"},
        {TYPE_STRING, 2, "5", "a text"},
        {TYPE_STRING, 2, "{\"hex\":\"0\"}", "of 2 bytes"},
        {TYPE_STRING, 2, "{\"hex\":\"000000\"}", "of 2 bytes"},
        {TYPE_STRING, 2, "{\"hex\":\"00g0\"}", "of 2 bytes"},
        {TYPE_STRING, 2, "{\"hex\":\"+1-1\"}", "of 2 bytes"},
        {TYPE_STRING, 2, "{\"hex\":1}", "of 2 bytes"},
        {TYPE_STRING, 2, "{}", "of 2 bytes"},
        {TYPE_OBJECT, 1, "1", "type"},
        {TYPE_DOUBLE_ARRAY, UINT32_MAX, "[]", "bytes"},
    };
    for (const Misfit &misfit : misfits) {
        StoredValue value{"p", misfit.type, misfit.noOfElements, {}};
        std::string reason;
        EXPECT_FALSE(storage::fromJson(json::parse(misfit.text), value, reason)) << misfit.text;
        EXPECT_NE(std::string::npos, reason.find(misfit.reason)) << misfit.text << ": " << reason;
    }
}

TEST(ValueJsonTest, AReason_ShowsALongValueCut) {
    StoredValue value{"p", TYPE_INT32, 1, {}};
    std::string reason;
    EXPECT_FALSE(storage::fromJson(json(std::string(100000, 'x')), value, reason));
    EXPECT_LT(reason.size(), 200u);
}

TEST(ValueJsonTest, AStringThatDoesNotFit_TakesNoMemory) {
    for (const char *text : {R"({"hex":"00"})", R"({"hex":5})", "7"}) {
        StoredValue value{"p", TYPE_STRING, 64U << 20, {}};
        std::string reason;
        EXPECT_FALSE(storage::fromJson(json::parse(text), value, reason));
        EXPECT_EQ(0u, value.content.capacity()) << text;
        EXPECT_NE(std::string::npos, reason.find("67108864 bytes")) << reason;
    }
}

} // namespace
