#include "Utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace std::string_view_literals;

TEST(Utf8Test, CharactersOfEveryLength_AreText) {
    for (const std::string_view text :
         {""sv, "plain"sv, "caf\xC3\xA9"sv, "\xE2\x82\xAC"sv, "\xF0\x9F\x93\xA1"sv, "\x7F\xC2\x80\xDF\xBF"sv,
          "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80"sv, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"sv, "a\0b"sv}) {
        EXPECT_TRUE(storage::isUtf8(text)) << text;
    }
}

TEST(Utf8Test, WhatIsCutOverlongOrNoCharacter_IsNot) {
    const std::string_view overlong[] = {"\xC0\xAF"sv, "\xC1\xBF"sv, "\xE0\x9F\xBF"sv, "\xF0\x8F\xBF\xBF"sv};
    const std::string_view cut[] = {"caf\xC3"sv, "\xE2\x82"sv, "\xF0\x9F\x93"sv, "\xC3z"sv};
    const std::string_view none[] = {"\x80"sv, "\xFF\xFE"sv, "\xED\xA0\x80"sv, "\xF4\x90\x80\x80"sv,
                                     "\xF8\x88\x80\x80\x80"sv};
    for (const std::string_view text : overlong) {
        EXPECT_FALSE(storage::isUtf8(text)) << text;
    }
    for (const std::string_view text : cut) {
        EXPECT_FALSE(storage::isUtf8(text)) << text;
    }
    for (const std::string_view text : none) {
        EXPECT_FALSE(storage::isUtf8(text)) << text;
    }
}

TEST(Utf8Test, WhereInALongTextTheCharacterStands_DoesNotMatter) {
    for (std::size_t before = 0; before < 20; ++before) {
        for (std::size_t behind = 0; behind < 20; ++behind) {
            const std::string start(before, 'a');
            const std::string end(behind, 'z');
            EXPECT_TRUE(storage::isUtf8(start + "\xC3\xA9" + end)) << before << ", " << behind;
            EXPECT_FALSE(storage::isUtf8(start + "\xC3" + end)) << before << ", " << behind;
            EXPECT_FALSE(storage::isUtf8(start + "\x80" + end)) << before << ", " << behind;
        }
    }
}

TEST(Utf8Test, IsText_TakesWhatStandsBeforeTheFirstNul) {
    std::string_view text;
    EXPECT_TRUE(storage::isText("ab\0"sv, text));
    EXPECT_EQ("ab", text);
    EXPECT_TRUE(storage::isText("ab"sv, text));
    EXPECT_EQ("ab", text);
    EXPECT_TRUE(storage::isText(""sv, text));
    EXPECT_EQ("", text);
    EXPECT_FALSE(storage::isText("\0b"sv, text)) << "bytes behind its end";
    EXPECT_FALSE(storage::isText("\xFF\0"sv, text)) << "no UTF-8";
}

} // namespace
