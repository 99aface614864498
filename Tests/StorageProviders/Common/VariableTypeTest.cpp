#include "VariableType.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr std::uint32_t noOfPlainTypes = 21;

EVariableType typeOf(std::uint32_t number) {
    return static_cast<EVariableType>(number);
}

TEST(VariableTypeTest, EveryPlainType_IsFoundAgainByItsName) {
    for (std::uint32_t number = 0; number < noOfPlainTypes; ++number) {
        ASSERT_TRUE(storage::isPlain(typeOf(number))) << number;
        EVariableType found = TYPE_OBJECT;
        EXPECT_TRUE(storage::typeOfName(storage::typeName(typeOf(number)), found)) << number;
        EXPECT_EQ(number, found);
    }
}

TEST(VariableTypeTest, TypeName_IsTheEnumeratorWithoutItsPrefix) {
    EXPECT_EQ("INT8", storage::typeName(TYPE_INT8));
    EXPECT_EQ("UINT16_ARRAY", storage::typeName(TYPE_UINT16_ARRAY));
    EXPECT_EQ("STRING", storage::typeName(TYPE_STRING));
    EXPECT_EQ("DOUBLE_ARRAY", storage::typeName(TYPE_DOUBLE_ARRAY));
}

TEST(VariableTypeTest, ObjectsAndUnknownNumbers_AreNotPlain) {
    for (const std::uint32_t number : {21U, 22U, 23U, UINT32_MAX}) {
        EXPECT_FALSE(storage::isPlain(typeOf(number))) << number;
        EXPECT_EQ("", storage::typeName(typeOf(number))) << number;
        EXPECT_EQ(0u, storage::elementSize(typeOf(number))) << number;
        EXPECT_EQ(0u, storage::contentSize(typeOf(number), 3)) << number;
        EXPECT_FALSE(storage::isArray(typeOf(number))) << number;
    }
}

TEST(VariableTypeTest, TypeOfName_KnowsNoOtherNames) {
    for (const char *name : {"", "OBJECT", "OBJECT_ARRAY", "TYPE_INT8", "int8", "INT8 ", "INT8_ARRAY_", "INT64"}) {
        EVariableType found = TYPE_DOUBLE;
        EXPECT_FALSE(storage::typeOfName(name, found)) << name;
        EXPECT_EQ(TYPE_DOUBLE, found) << "it is left as it was";
    }
}

TEST(VariableTypeTest, ContentSize_IsTheVariablesOwn) {
    for (std::uint32_t number = 0; number < noOfPlainTypes; ++number) {
        for (const std::uint32_t count : {0U, 1U, 7U}) {
            CVariable variable{};
            variable.type = typeOf(number);
            variable.noOfElements = count;
            EXPECT_EQ(CVariable_GetSizeInBytes(&variable), storage::contentSize(variable.type, count))
                << storage::typeName(variable.type) << '[' << count << ']';
        }
    }
}

TEST(VariableTypeTest, ContentSize_DoesNotWrapWhereTheVariablesDoesNotFit) {
    EXPECT_EQ(0x7FFFFFFF8U, storage::contentSize(TYPE_DOUBLE_ARRAY, UINT32_MAX));
}

TEST(VariableTypeTest, IsArray_OfEveryTypeWhoseNameSaysSo) {
    for (std::uint32_t number = 0; number < noOfPlainTypes; ++number) {
        const std::string name(storage::typeName(typeOf(number)));
        EXPECT_EQ(name.find("_ARRAY") != std::string::npos, storage::isArray(typeOf(number))) << name;
    }
}

} // namespace
