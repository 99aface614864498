// Values of every kind and size, names and paths of every sort.
#include <limits>

#include "Conformance.h"

namespace {

using test::Conformance;
using test::contentOf;
using test::Firmware;
using test::setContent;
using test::setValue;
using test::valueOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Bytes = std::vector<unsigned char>;

template <class Element>
Bytes pack(const std::vector<Element> &elements) {
    Bytes bytes(elements.size() * sizeof(Element));
    if (!elements.empty()) {
        std::memcpy(bytes.data(), elements.data(), bytes.size());
    }
    return bytes;
}

struct Sample {
    std::string name;
    EVariableType type;
    std::uint32_t noOfElements;
    Bytes content;
};

template <class Element>
void addSamples(std::vector<Sample> &samples, const std::string &name, EVariableType single, EVariableType array,
                const std::vector<Element> &values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        samples.push_back({name + std::to_string(i), single, 1, pack<Element>({values[i]})});
    }
    samples.push_back({name + "Array", array, static_cast<std::uint32_t>(values.size()), pack(values)});
    samples.push_back({name + "None", array, 0, {}});
}

std::vector<Sample> everyKindAtItsExtremes() {
    std::vector<Sample> samples;
    addSamples<std::int8_t>(samples, "Int8", TYPE_INT8, TYPE_INT8_ARRAY, {-128, -1, 0, 127});
    addSamples<std::int16_t>(samples, "Int16", TYPE_INT16, TYPE_INT16_ARRAY, {-32768, -1, 0, 32767});
    addSamples<std::int32_t>(samples, "Int32", TYPE_INT32, TYPE_INT32_ARRAY, {INT32_MIN, -1, 0, INT32_MAX});
    addSamples<std::uint8_t>(samples, "UInt8", TYPE_UINT8, TYPE_UINT8_ARRAY, {0, 1, 255});
    addSamples<std::uint16_t>(samples, "UInt16", TYPE_UINT16, TYPE_UINT16_ARRAY, {0, 1, 65535});
    addSamples<std::uint32_t>(samples, "UInt32", TYPE_UINT32, TYPE_UINT32_ARRAY, {0, 1, UINT32_MAX});
    addSamples<std::uint32_t>(samples, "Bool", TYPE_BOOL, TYPE_BOOL_ARRAY, {0, 1, 2, UINT32_MAX});
    addSamples<std::int8_t>(samples, "Char", TYPE_CHAR, TYPE_CHAR_ARRAY, {-128, -1, '\0', '\n', 'a', 127});
    addSamples<float>(samples, "Float", TYPE_FLOAT, TYPE_FLOAT_ARRAY,
                      {0.F, -0.F, 0.1F, 1e-45F, std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(),
                       std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                       std::numeric_limits<float>::min(), 16777216.F, 3.4028233e38F});
    // Quiet and signalling, of either sign and with a payload; as bits, so that no register changes them.
    addSamples<std::uint32_t>(samples, "FloatNan", TYPE_FLOAT, TYPE_FLOAT_ARRAY,
                              {0x7FC00000, 0xFFC12345, 0x7F800001, 0xFFBFFFFF});
    addSamples<double>(samples, "Double", TYPE_DOUBLE, TYPE_DOUBLE_ARRAY,
                       {0., -0., 0.1, 5e-324, std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest(),
                        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                        std::numeric_limits<double>::min(), 9007199254740993.0, 1e15, 123456789.125, 1e22, 1e23});
    addSamples<std::uint64_t>(samples, "DoubleNan", TYPE_DOUBLE, TYPE_DOUBLE_ARRAY,
                              {0x7FF8000000000000, 0xFFF8000000012345, 0x7FF0000000000001, 0xFFF7FFFFFFFFFFFF});
    const auto addString = [&samples](const std::string &name, const std::string &content) {
        samples.push_back(
            {name, TYPE_STRING, static_cast<std::uint32_t>(content.size()), {content.begin(), content.end()}});
    };
    addString("StringFull", "abc");
    addString("StringEnded", std::string("abc\0\0\0", 6));
    addString("StringEmpty", std::string(4, '\0'));
    addString("StringNone", "");
    addString("StringByte", "x");
    addString("StringBeginsWithNul", std::string("\0abc", 4));
    addString("StringCutUtf8", "caf\xC3");
    addString("StringOverlongUtf8", "\xC0\xAF \xED\xA0\x80");
    addString("StringBlob", "X'00FF'");
    addString("StringHex", "{\"hex\": \"00\"}");
    addString("StringBehindNul", std::string("a\0b\0c", 5));
    addString("StringNotUtf8", "\xFF\xFE\x80 caf\xE9");
    addString("StringUtf8", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\xA1");
    addString("StringNumber", "42");
    addString("StringJson", "[1,2,\"x\"]");
    addString("StringQuotes", "it's \"quoted\" \\ / % \n \t");
    return samples;
}

TEST_F(Conformance, EveryKindAtItsExtremes_ComesBackBitByBit) {
    const std::vector<Sample> samples = everyKindAtItsExtremes();
    {
        Firmware firmware;
        CStorageObject *object = firmware.object("Kinds");
        for (const Sample &sample : samples) {
            firmware.variable(object, sample.name, sample.type, sample.noOfElements, sample.content);
        }
        ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
        EXPECT_EQ(samples.size(), statistics().noOfValuesWritten);
    }
    restart();
    Firmware firmware;
    CStorageObject *object = firmware.object("Kinds");
    std::vector<CVariable *> variables;
    variables.reserve(samples.size());
    for (const Sample &sample : samples) {
        variables.push_back(firmware.variable(object, sample.name, sample.type, sample.noOfElements,
                                              Bytes(sample.content.size(), 0xA5)));
    }
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(samples[i].content, contentOf(variables[i])) << samples[i].name;
    }
    EXPECT_EQ(samples.size(), statistics().noOfValuesRetrieved);
    EXPECT_EQ(0u, statistics().noOfValuesMissing);
    EXPECT_THAT(told(3), IsEmpty());
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(0u, statistics().noOfValuesWritten) << "what came back is what is stored";
}

TEST_F(Conformance, NestedObjectsAndObjectArrays_AreKept) {
    const auto build = [](Firmware &firmware, std::int32_t value) {
        CStorageObject *radio = firmware.object("Radio");
        CStorageObject *tx = firmware.object("Tx", radio);
        const auto &channels = firmware.objectArray("Channels", {"C1", "C2"}, tx);
        return std::vector<CVariable *>{firmware.single(radio, "Gain", TYPE_INT32, value),
                                        firmware.single(tx, "Gain", TYPE_INT32, value + 1),
                                        firmware.single(channels[0], "Gain", TYPE_INT32, value + 2),
                                        firmware.single(channels[1], "Gain", TYPE_INT32, value + 3)};
    };
    {
        Firmware firmware;
        build(firmware, 10);
        ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    }
    restart();
    Firmware firmware;
    const std::vector<CVariable *> variables = build(firmware, 0);
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    for (std::size_t i = 0; i < variables.size(); ++i) {
        EXPECT_EQ(10 + static_cast<std::int32_t>(i), valueOf<std::int32_t>(variables[i]));
    }
}

TEST_F(Conformance, AMegabyte_ComesBackWhole) {
    Bytes content(std::size_t{1024} * 1024);
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<unsigned char>((i * 2654435761U) >> 13);
    }
    const auto build = [&content](Firmware &firmware, bool isFilled) {
        return firmware.variable(firmware.object("O"), "Big", TYPE_UINT8_ARRAY,
                                 static_cast<std::uint32_t>(content.size()),
                                 isFilled ? content : Bytes(content.size()));
    };
    {
        Firmware firmware;
        build(firmware, true);
        ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    }
    restart();
    Firmware firmware;
    const CVariable *variable = build(firmware, false);
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_TRUE(content == contentOf(variable));
}

TEST_F(Conformance, NamesOfEverySort_AreKeptApart) {
    const std::vector<std::string> names{
        "with blanks", "it's",   "\"quoted\"",          "a/b",   "\xC3\xA9t\xC3\xA9",
        "\xFF\xFE",    "%s%n%d", "new\nline",           "tab\t", "; DROP TABLE variable",
        "back\\slash", "'; --",  std::string(119, 'n'), " ",     "null"};
    const auto build = [&names](Firmware &firmware, std::int32_t first) {
        CStorageObject *object = firmware.object("it's \"O\"");
        std::vector<CVariable *> variables;
        for (std::size_t i = 0; i < names.size(); ++i) {
            variables.push_back(
                firmware.single(object, names[i], TYPE_INT32, first != 0 ? first + static_cast<std::int32_t>(i) : 0));
        }
        return variables;
    };
    {
        Firmware firmware(1, "Re'gi\"on \xE9");
        build(firmware, 100);
        ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    }
    restart();
    Firmware firmware(1, "Re'gi\"on \xE9");
    const std::vector<CVariable *> variables = build(firmware, 0);
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(100 + static_cast<std::int32_t>(i), valueOf<std::int32_t>(variables[i])) << names[i];
    }
}

TEST_F(Conformance, TwoVariablesOfOnePath_KeepTheFirstAndSaySo) {
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    CStorageObject *inner = firmware.object("I", object); // walked before what is added behind it
    CVariable *first = firmware.single(inner, "V", TYPE_INT32, 1);
    CVariable *second = firmware.single(object, "I/V", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    EXPECT_THAT(told(3), ElementsAre(HasSubstr("Cfg/O/I/V")));
    setValue(first, 7);
    setValue(second, 8);
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(first));
    EXPECT_EQ(8, valueOf<std::int32_t>(second));
}

TEST_F(Conformance, PathsThatDifferBehindTheir511thByte_AreOne) {
    Firmware firmware;
    CStorageObject *object = firmware.object(std::string(119, 'a'));
    for (const char letter : {'b', 'c', 'd', 'e'}) {
        object = firmware.object(std::string(119, letter), object);
    }
    CVariable *first = firmware.single(object, "First", TYPE_INT32, 1);
    CVariable *second = firmware.single(object, "Second", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    EXPECT_THAT(told(3), ElementsAre(HasSubstr("Cfg/" + std::string(119, 'a'))));
    restart();
    setValue(first, 7);
    setValue(second, 8);
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(first));
    EXPECT_EQ(8, valueOf<std::int32_t>(second));
}

TEST_F(Conformance, AVariableThatMadeItsOwnContent_IsKeptToo) {
    const Bytes content{1, 2, 3, 4, 5, 6};
    {
        Firmware firmware;
        setContent(firmware.ownedVariable(firmware.object("O"), "Own", TYPE_UINT16_ARRAY, 3), content);
        ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    }
    restart();
    Firmware firmware;
    const CVariable *variable = firmware.ownedVariable(firmware.object("O"), "Own", TYPE_UINT16_ARRAY, 3);
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(content, contentOf(variable));
}

} // namespace
