// Variables as text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "CVariable.h"
#include "TraceRecorder.h"

namespace {

using test::TraceRecorder;

/// A variable over a copy of some values, or with a content of its own.
class Variable {
public:
    template <class Element>
    Variable(EVariableType type, const std::vector<Element> &values, bool isOwn)
        : m_content(values.size() * sizeof(Element) + reserve) {
        if (!values.empty()) {
            std::memcpy(m_content.data(), values.data(), values.size() * sizeof(Element));
        }
        EXPECT_EQ(eAF_S_OK, CVariable_Construct(&m_variable, isOwn ? nullptr : m_content.data(), type,
                                                static_cast<std::uint32_t>(values.size()), "V", nullptr));
        if (isOwn) {
            EXPECT_EQ(eAF_S_OK, CVariable_SetContent(&m_variable, m_content.data()));
        }
    }
    ~Variable() { CVariable_Destruct(&m_variable); }
    Variable(const Variable &) = delete;
    Variable &operator=(const Variable &) = delete;

    CVariable *get() { return &m_variable; }

    std::string toString() {
        std::vector<char> buffer(512, '#');
        EXPECT_EQ(eAF_S_OK, CVariable_ToString(&m_variable, buffer.data(), static_cast<std::uint32_t>(buffer.size())));
        return buffer.data();
    }

    std::string formatText() {
        std::vector<char> buffer(512, '#');
        std::uint32_t needed = 0;
        EXPECT_EQ(eAF_S_OK, CVariable_FormatText(&m_variable, buffer.data(), 512, &needed));
        EXPECT_EQ(std::strlen(buffer.data()) + 1, needed);
        return buffer.data();
    }

private:
    static constexpr std::size_t reserve = 64; ///< Whole words are read of the caller's block.
    std::vector<unsigned char> m_content;
    CVariable m_variable{};
};

template <class Element>
Variable callers(EVariableType type, const std::vector<Element> &values) {
    return Variable(type, values, false);
}

template <class Element>
Variable own(EVariableType type, const std::vector<Element> &values) {
    return Variable(type, values, true);
}

const std::vector<EVariableType> singleIntegers{TYPE_INT8,   TYPE_INT16,  TYPE_INT32, TYPE_UINT8,
                                                TYPE_UINT16, TYPE_UINT32, TYPE_CHAR};
const std::vector<EVariableType> integerArrays{TYPE_INT8_ARRAY,   TYPE_INT16_ARRAY,  TYPE_INT32_ARRAY, TYPE_UINT8_ARRAY,
                                               TYPE_UINT16_ARRAY, TYPE_UINT32_ARRAY, TYPE_CHAR_ARRAY};

TEST(ToString, OfEverySingleInteger_IsTheWholeWordOfTheCallersBlock) {
    for (const EVariableType type : singleIntegers) {
        EXPECT_EQ("67305985", callers<unsigned char>(type, {1, 2, 3, 4}).toString()) << type;
        EXPECT_EQ("-1", callers<unsigned char>(type, {0xFF, 0xFF, 0xFF, 0xFF}).toString()) << type;
    }
}

TEST(ToString, OfEverySingleInteger_TakesBytesBehindItsOwnBlockForZero) {
    EXPECT_EQ("255", own<unsigned char>(TYPE_INT8, {0xFF}).toString());
    EXPECT_EQ("255", own<unsigned char>(TYPE_UINT8, {0xFF}).toString());
    EXPECT_EQ("255", own<unsigned char>(TYPE_CHAR, {0xFF}).toString());
    EXPECT_EQ("65535", own<std::uint16_t>(TYPE_INT16, {0xFFFF}).toString());
    EXPECT_EQ("65535", own<std::uint16_t>(TYPE_UINT16, {0xFFFF}).toString());
    EXPECT_EQ("-1", own<std::uint32_t>(TYPE_INT32, {0xFFFFFFFF}).toString());
    EXPECT_EQ("-1", own<std::uint32_t>(TYPE_UINT32, {0xFFFFFFFF}).toString()) << "unsigned kinds print the same";
}

TEST(ToString, OfEveryIntegerArray_StridesByWords) {
    for (const EVariableType type : integerArrays) {
        EXPECT_EQ("[1 ,-2 ,3]", callers<std::int32_t>(type, {1, -2, 3}).toString()) << type;
        EXPECT_EQ("[]", callers<std::int32_t>(type, {}).toString()) << type;
        EXPECT_EQ("[7]", callers<std::int32_t>(type, {7}).toString()) << type;
    }
    EXPECT_EQ("[1 ,2]", callers<std::int32_t>(TYPE_INT32_ARRAY, {1, 2}).toString());
}

TEST(ToString, OfAnIntegerArrayOfItsOwn_NeverReadsPastItsBlock) {
    EXPECT_EQ("[67305985 ,5 ,0 ,0 ,0]", own<unsigned char>(TYPE_UINT8_ARRAY, {1, 2, 3, 4, 5}).toString());
    EXPECT_EQ("[131073 ,3 ,0]", own<std::uint16_t>(TYPE_INT16_ARRAY, {1, 2, 3}).toString());
    EXPECT_EQ("[1 ,2 ,3]", own<std::int32_t>(TYPE_INT32_ARRAY, {1, 2, 3}).toString());
    EXPECT_EQ("[]", own<unsigned char>(TYPE_CHAR_ARRAY, {}).toString());
}

TEST(ToString, OfBools_LooksAtWholeWords) {
    EXPECT_EQ("true", callers<std::uint32_t>(TYPE_BOOL, {1}).toString());
    EXPECT_EQ("true", callers<std::uint32_t>(TYPE_BOOL, {0x01000000}).toString());
    EXPECT_EQ("false", own<std::uint32_t>(TYPE_BOOL, {0}).toString());
    EXPECT_EQ("[true ,false ,true]", own<std::uint32_t>(TYPE_BOOL_ARRAY, {2, 0, 0xFFFFFFFF}).toString());
    EXPECT_EQ("[]", own<std::uint32_t>(TYPE_BOOL_ARRAY, {}).toString());
}

TEST(ToString, OfFloatsAndDoubles_IsInExponentForm) {
    EXPECT_EQ("1.500000e+00", own<float>(TYPE_FLOAT, {1.5F}).toString());
    EXPECT_EQ("[1.500000e+00 ,-2.000000e-10]", own<float>(TYPE_FLOAT_ARRAY, {1.5F, -2e-10F}).toString());
    EXPECT_EQ("-1.000000e+300", own<double>(TYPE_DOUBLE, {-1e300}).toString());
    EXPECT_EQ("[0.000000e+00 ,inf ,nan]", own<double>(TYPE_DOUBLE_ARRAY, {0, std::numeric_limits<double>::infinity(),
                                                                          std::numeric_limits<double>::quiet_NaN()})
                                              .toString());
    EXPECT_EQ("[]", own<double>(TYPE_DOUBLE_ARRAY, {}).toString());
}

TEST(ToString, OfObjectsAndUnknownTypes_SaysSo) {
    EXPECT_EQ("Sorry, ToString(TYPE_OBJECT) is not supported", own<char>(TYPE_OBJECT, std::vector<char>(8)).toString());
    EXPECT_EQ("Sorry, ToString(TYPE_OBJECT_ARRAY) is not supported",
              own<void *>(TYPE_OBJECT_ARRAY, {nullptr}).toString());
    EXPECT_EQ("Unknown variable type", own<char>(static_cast<EVariableType>(23), {0}).toString());
}

TEST(ToString, OfAString_IsBoundedByTheBufferAndPaddedWithNul) {
    Variable text = own<char>(TYPE_STRING, {'a', 'b', 'c', '\0', 'x'});
    std::array<char, 6> buffer;
    buffer.fill('#');
    EXPECT_EQ(eAF_S_OK, CVariable_ToString(text.get(), buffer.data(), 6));
    EXPECT_EQ(std::string("abc\0\0\0", 6), std::string(buffer.data(), 6));
    buffer.fill('#');
    EXPECT_EQ(eAF_S_OK, CVariable_ToString(text.get(), buffer.data(), 3));
    EXPECT_EQ("abc###", std::string(buffer.data(), 6)) << "filled: not terminated";
}

TEST(ToString, OfAStringWithoutNul_StopsAtItsContentsEnd) {
    EXPECT_EQ("abc", own<char>(TYPE_STRING, {'a', 'b', 'c'}).toString());
    const std::unique_ptr<char[]> exact(new char[3]{'x', 'y', 'z'}); // nothing behind it may be read
    CVariable variable;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, exact.get(), TYPE_STRING, 3, "V", nullptr));
    char buffer[8];
    EXPECT_EQ(eAF_S_OK, CVariable_ToString(&variable, buffer, sizeof buffer));
    EXPECT_STREQ("xyz", buffer);
    CVariable_Destruct(&variable);
}

TEST(ToString, OfAnArray_BoundsEachPieceByTheSizeAndNotTheWholeText) {
    Variable array = own<std::int32_t>(TYPE_INT32_ARRAY, {12345, 678});
    std::array<char, 64> buffer;
    buffer.fill('#');
    EXPECT_EQ(eAF_S_OK, CVariable_ToString(array.get(), buffer.data(), 3));
    EXPECT_STREQ("[123 ,678]", buffer.data()) << "the number is cut to three bytes, the text goes on";
}

TEST(ToString, OfASingleValue_IsCutToTheBuffer) {
    Variable number = own<std::int32_t>(TYPE_INT32, {12345});
    std::array<char, 8> buffer;
    buffer.fill('#');
    EXPECT_EQ(eAF_S_OK, CVariable_ToString(number.get(), buffer.data(), 4));
    EXPECT_STREQ("123", buffer.data());
    EXPECT_EQ('#', buffer[4]);
}

TEST(ToString, RefusesNullAndSizeZeroWithoutATrace) {
    TraceRecorder::reset();
    Variable number = own<std::int32_t>(TYPE_INT32, {1});
    char buffer[8] = "before";
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_ToString(nullptr, buffer, 8));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_ToString(number.get(), nullptr, 8));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_ToString(number.get(), buffer, 0));
    EXPECT_STREQ("before", buffer);
    CVariable destructed{};
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CVariable_ToString(&destructed, buffer, 8));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CVariable_FormatText(&destructed, buffer, 8, nullptr));
    EXPECT_TRUE(TraceRecorder::lines().empty());
}

TEST(FormatText, ShowsEveryKindInItsOwnWidthAndSign) {
    EXPECT_EQ("-128", own<std::int8_t>(TYPE_INT8, {-128}).formatText());
    EXPECT_EQ("255", own<std::uint8_t>(TYPE_UINT8, {255}).formatText());
    EXPECT_EQ("-1", own<char>(TYPE_CHAR, {'\xFF'}).formatText());
    EXPECT_EQ("-32768", own<std::int16_t>(TYPE_INT16, {-32768}).formatText());
    EXPECT_EQ("65535", own<std::uint16_t>(TYPE_UINT16, {65535}).formatText());
    EXPECT_EQ("-2147483648", own<std::int32_t>(TYPE_INT32, {INT32_MIN}).formatText());
    EXPECT_EQ("4294967295", own<std::uint32_t>(TYPE_UINT32, {UINT32_MAX}).formatText());
    EXPECT_EQ("[1 ,-2 ,3]", own<std::int8_t>(TYPE_INT8_ARRAY, {1, -2, 3}).formatText());
    EXPECT_EQ("[1 ,254]", own<std::uint8_t>(TYPE_UINT8_ARRAY, {1, 254}).formatText());
    EXPECT_EQ("[97 ,-1]", own<char>(TYPE_CHAR_ARRAY, {'a', '\xFF'}).formatText());
    EXPECT_EQ("[1 ,-2]", own<std::int16_t>(TYPE_INT16_ARRAY, {1, -2}).formatText());
    EXPECT_EQ("[1 ,65534]", own<std::uint16_t>(TYPE_UINT16_ARRAY, {1, 65534}).formatText());
    EXPECT_EQ("[1 ,-2]", own<std::int32_t>(TYPE_INT32_ARRAY, {1, -2}).formatText());
    EXPECT_EQ("[1 ,4294967294]", own<std::uint32_t>(TYPE_UINT32_ARRAY, {1, 0xFFFFFFFE}).formatText());
    EXPECT_EQ("true", own<std::uint32_t>(TYPE_BOOL, {2}).formatText());
    EXPECT_EQ("[true ,false]", own<std::uint32_t>(TYPE_BOOL_ARRAY, {1, 0}).formatText());
    EXPECT_EQ("1.500000e+00", own<float>(TYPE_FLOAT, {1.5F}).formatText());
    EXPECT_EQ("[-inf ,nan]", own<float>(TYPE_FLOAT_ARRAY, {-std::numeric_limits<float>::infinity(),
                                                           std::numeric_limits<float>::quiet_NaN()})
                                 .formatText());
    EXPECT_EQ("2.225074e-308", own<double>(TYPE_DOUBLE, {std::numeric_limits<double>::min()}).formatText());
    EXPECT_EQ("[1.000000e+00]", own<double>(TYPE_DOUBLE_ARRAY, {1}).formatText());
    EXPECT_EQ("[]", own<double>(TYPE_DOUBLE_ARRAY, {}).formatText());
    EXPECT_EQ("abc", own<char>(TYPE_STRING, {'a', 'b', 'c'}).formatText());
    EXPECT_EQ("ab", own<char>(TYPE_STRING, {'a', 'b', '\0', 'c'}).formatText());
    EXPECT_EQ("", own<char>(TYPE_STRING, {}).formatText());
    EXPECT_EQ("Sorry, ToString(TYPE_OBJECT) is not supported",
              own<char>(TYPE_OBJECT, std::vector<char>(8)).formatText());
    EXPECT_EQ("Sorry, ToString(TYPE_OBJECT_ARRAY) is not supported",
              own<void *>(TYPE_OBJECT_ARRAY, {nullptr}).formatText());
    EXPECT_EQ("Unknown variable type", own<char>(static_cast<EVariableType>(99), {0}).formatText());
}

TEST(FormatText, OfEverySize_NeverWritesPastItAndAlwaysTerminates) {
    Variable array = own<std::int32_t>(TYPE_INT32_ARRAY, {12345, -678});
    const std::string whole = "[12345 ,-678]";
    for (std::uint32_t size = 0; size <= whole.size() + 2; ++size) {
        const std::unique_ptr<char[]> buffer(new char[size]); // exact: nothing behind it may be written
        std::uint32_t needed = 0;
        const EAFResult expected = size > whole.size() ? eAF_S_OK : eAF_E_BUFFER_TOO_SMALL;
        EXPECT_EQ(expected, CVariable_FormatText(array.get(), buffer.get(), size, &needed)) << size;
        EXPECT_EQ(whole.size() + 1, needed) << size;
        if (size != 0) {
            EXPECT_EQ(whole.substr(0, size - 1), buffer.get()) << size;
        }
        EXPECT_EQ(expected, CVariable_FormatText(array.get(), buffer.get(), size, nullptr)) << size;
    }
    std::uint32_t needed = 0;
    EXPECT_EQ(eAF_E_BUFFER_TOO_SMALL, CVariable_FormatText(array.get(), nullptr, 0, &needed));
    EXPECT_EQ(whole.size() + 1, needed);
}

TEST(FormatText, RefusesNull) {
    Variable number = own<std::int32_t>(TYPE_INT32, {1});
    char buffer[8] = "before";
    std::uint32_t needed = 99;
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_FormatText(nullptr, buffer, 8, &needed));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_FormatText(number.get(), nullptr, 8, &needed));
    EXPECT_STREQ("before", buffer);
    EXPECT_EQ(99u, needed);
}

} // namespace
