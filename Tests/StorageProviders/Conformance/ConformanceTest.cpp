#include "Conformance.h"

#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <thread>

namespace {

using test::Conformance;
using test::contentOf;
using test::Firmware;
using test::setContent;
using test::setValue;
using test::TraceRecorder;
using test::valueOf;
using testing::Contains;
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

float floatOfBits(std::uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

double doubleOfBits(std::uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
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
    addSamples<std::int8_t>(samples, "Char", TYPE_CHAR, TYPE_CHAR_ARRAY, {'a', '\0', -1});
    addSamples<float>(samples, "Float", TYPE_FLOAT, TYPE_FLOAT_ARRAY,
                      {0.F, -0.F, 0.1F, 1e-45F, std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(),
                       std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                       floatOfBits(0x7FC00000), floatOfBits(0xFFC12345), 16777216.F, 3.4028233e38F});
    addSamples<double>(samples, "Double", TYPE_DOUBLE, TYPE_DOUBLE_ARRAY,
                       {0., -0., 0.1, 5e-324, std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest(),
                        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                        doubleOfBits(0x7FF8000000000000), doubleOfBits(0xFFF8000000012345), 9007199254740993.0, 1e15});
    const auto addString = [&samples](const std::string &name, const std::string &content) {
        samples.push_back(
            {name, TYPE_STRING, static_cast<std::uint32_t>(content.size()), {content.begin(), content.end()}});
    };
    addString("StringFull", "abc");
    addString("StringEnded", std::string("abc\0\0\0", 6));
    addString("StringEmpty", std::string(4, '\0'));
    addString("StringNone", "");
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
    Bytes content(1024 * 1024);
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

TEST_F(Conformance, OnlyWhatChanged_IsWritten) {
    TraceRecorder::reset(0, 0);
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    std::vector<CVariable *> variables;
    for (std::int32_t i = 0; i < 10000; ++i) {
        variables.push_back(firmware.single(object, "V" + std::to_string(i), TYPE_INT32, i));
        if (i % 100 == 99) { // names are searched for linearly in one object
            object = firmware.object("O" + std::to_string(i));
        }
    }
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(10000u, statistics().noOfValuesWritten);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(0u, statistics().noOfValuesWritten);
    setValue(variables[7777], -1);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    restart();
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(10000u, statistics().noOfValuesRetrieved);
    EXPECT_EQ(-1, valueOf<std::int32_t>(variables[7777]));
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(0u, statistics().noOfValuesWritten) << "also since a retrieve";
}

TEST_F(Conformance, AStoreWithoutARetrieve_WritesOnlyWhatDiffersFromTheStore) {
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    firmware.single(object, "Same", TYPE_INT32, 1);
    CVariable *other = firmware.single(object, "Other", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    restart();
    setValue(other, 3);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
}

TEST_F(Conformance, WhatTheStoreDoesNotHold_GetsItsDefaultOrStaysAsItIs) {
    {
        Firmware older;
        older.single(older.object("O"), "Old", TYPE_INT32, 5);
        ASSERT_EQ(eAF_S_OK, older.store(*provider));
    }
    restart();
    Firmware newer;
    CStorageObject *object = newer.object("O");
    const std::int32_t defaultValue = 70;
    const CVariable *old = newer.single(object, "Old", TYPE_INT32, 0, &defaultValue);
    const CVariable *added = newer.single(object, "New", TYPE_INT32, 0, &defaultValue);
    const CVariable *bare = newer.single(object, "Bare", TYPE_INT32, 9);
    ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
    EXPECT_EQ(5, valueOf<std::int32_t>(old));
    EXPECT_EQ(70, valueOf<std::int32_t>(added));
    EXPECT_EQ(9, valueOf<std::int32_t>(bare));
    EXPECT_EQ(2u, statistics().noOfValuesMissing);
    for (const CVariable *variable : {old, added, bare}) {
        EXPECT_EQ(0u, variable->retrieved) << "every flag ends cleared";
    }
}

TEST_F(Conformance, RetrievingFromNothing_AppliesEveryDefault) {
    Firmware firmware;
    const std::int32_t defaultValue = 70;
    const CVariable *variable = firmware.single(firmware.object("O"), "V", TYPE_INT32, 1, &defaultValue);
    EXPECT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(70, valueOf<std::int32_t>(variable));
    EXPECT_THAT(told(3), IsEmpty());
}

TEST_F(Conformance, AValueOfAnotherTypeOrCount_IsNotLoadedAndStaysUntilAStoreReplacesIt) {
    {
        Firmware older;
        CStorageObject *object = older.object("O");
        older.single(object, "Type", TYPE_INT32, 5);
        older.variable(object, "Count", TYPE_UINT8_ARRAY, 4, {1, 2, 3, 4});
        ASSERT_EQ(eAF_S_OK, older.store(*provider));
    }
    restart();
    const std::uint32_t defaultValue = 70;
    const Bytes defaultBytes{9, 9, 9, 9, 9};
    {
        Firmware newer;
        CStorageObject *object = newer.object("O");
        const CVariable *type = newer.single(object, "Type", TYPE_UINT32, 0U, &defaultValue);
        const CVariable *count = newer.variable(object, "Count", TYPE_UINT8_ARRAY, 5, Bytes(5), &defaultBytes);
        TraceRecorder::reset();
        ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
        EXPECT_EQ(70u, valueOf<std::uint32_t>(type));
        EXPECT_EQ(defaultBytes, contentOf(count));
        EXPECT_EQ(2u, statistics().noOfValuesMismatched);
        if (provider->keepsFiles()) {
            EXPECT_THAT(told(3), Contains(testing::AllOf(HasSubstr("Cfg/O/Type"), HasSubstr("INT32[1]"),
                                                         HasSubstr("UINT32[1]"))));
            EXPECT_THAT(told(3), Contains(testing::AllOf(HasSubstr("Cfg/O/Count"), HasSubstr("UINT8_ARRAY[4]"),
                                                         HasSubstr("UINT8_ARRAY[5]"))));
        }
    }
    restart();
    {
        Firmware older;
        CStorageObject *object = older.object("O");
        const CVariable *type = older.single(object, "Type", TYPE_INT32, 0);
        const CVariable *count = older.variable(object, "Count", TYPE_UINT8_ARRAY, 4, Bytes(4));
        ASSERT_EQ(eAF_S_OK, older.retrieve(*provider));
        EXPECT_EQ(5, valueOf<std::int32_t>(type)) << "a downgrade finds it again";
        EXPECT_EQ((Bytes{1, 2, 3, 4}), contentOf(count));
    }
    restart();
    Firmware newer;
    const CVariable *type = newer.single(newer.object("O"), "Type", TYPE_UINT32, 0U, &defaultValue);
    ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
    ASSERT_EQ(eAF_S_OK, newer.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    restart();
    ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
    EXPECT_EQ(70u, valueOf<std::uint32_t>(type));
    EXPECT_EQ(0u, statistics().noOfValuesMismatched);
}

TEST_F(Conformance, ValuesOfVariablesThatAreNotRegistered_AreKeptThroughStores) {
    {
        Firmware older;
        older.single(older.object("O"), "Gone", TYPE_INT32, 5);
        ASSERT_EQ(eAF_S_OK, older.store(*provider));
    }
    restart();
    {
        Firmware newer;
        CVariable *here = newer.single(newer.object("O"), "Here", TYPE_INT32, 1);
        ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
        EXPECT_EQ(1u, statistics().noOfValuesUnknown);
        ASSERT_EQ(eAF_S_OK, newer.store(*provider));
        setValue(here, 2);
        ASSERT_EQ(eAF_S_OK, newer.store(*provider));
    }
    restart();
    Firmware both;
    CStorageObject *object = both.object("O");
    const CVariable *gone = both.single(object, "Gone", TYPE_INT32, 0);
    const CVariable *here = both.single(object, "Here", TYPE_INT32, 0);
    ASSERT_EQ(eAF_S_OK, both.retrieve(*provider));
    EXPECT_EQ(5, valueOf<std::int32_t>(gone));
    EXPECT_EQ(2, valueOf<std::int32_t>(here));
}

TEST_F(Conformance, Locations_AreKeptApart) {
    Firmware first(1);
    Firmware second(2);
    CVariable *one = first.single(first.object("O"), "V", TYPE_INT32, 1);
    CVariable *two = second.single(second.object("O"), "V", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, first.store(*provider));
    ASSERT_EQ(eAF_S_OK, second.store(*provider));
    restart();
    setValue(one, 0);
    setValue(two, 0);
    ASSERT_EQ(eAF_S_OK, first.retrieve(*provider));
    ASSERT_EQ(eAF_S_OK, second.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(one));
    EXPECT_EQ(2, valueOf<std::int32_t>(two));
}

TEST_F(Conformance, LocationsThatShareAFile_AreKeptApart) {
    if (!provider->sharesFiles()) {
        GTEST_SKIP() << "each location of this provider has its own file";
    }
    provider->close();
    const auto share = [this] {
        ASSERT_EQ(eAF_S_OK, provider->setFile(1, folder.file("shared.store")));
        ASSERT_EQ(eAF_S_OK, provider->setFile(2, folder.file("shared.store")));
        ASSERT_EQ(eAF_S_OK, provider->table()->Initialize(1));
        ASSERT_EQ(eAF_S_OK, provider->table()->Initialize(2));
    };
    share();
    Firmware first(1);
    Firmware second(2);
    CVariable *one = first.single(first.object("O"), "V", TYPE_INT32, 1);
    CVariable *two = second.single(second.object("O"), "V", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, first.store(*provider));
    ASSERT_EQ(eAF_S_OK, second.store(*provider));
    provider->close();
    share();
    setValue(one, 0);
    setValue(two, 0);
    ASSERT_EQ(eAF_S_OK, second.retrieve(*provider));
    ASSERT_EQ(eAF_S_OK, first.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(one));
    EXPECT_EQ(2, valueOf<std::int32_t>(two));
}

TEST_F(Conformance, ALocationWithoutAFile_IsUnknownAndItsDefaultsHold) {
    const std::int32_t defaultValue = 70;
    Firmware firmware(9);
    const CVariable *variable = firmware.single(firmware.object("O"), "V", TYPE_INT32, 1, &defaultValue);
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider->table()->Initialize(9));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider->table()->ReserveWritableSpace(9, 100));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, firmware.store(*provider));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, firmware.retrieve(*provider));
    EXPECT_EQ(70, valueOf<std::int32_t>(variable));
}

TEST_F(Conformance, Initialize_MayBeCalledAgain) {
    Firmware firmware;
    CVariable *variable = firmware.single(firmware.object("O"), "V", TYPE_INT32, 1);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(eAF_S_OK, provider->table()->Initialize(1));
    EXPECT_EQ(eAF_S_OK, provider->table()->ReserveWritableSpace(1, 1000));
    setValue(variable, 2);
    EXPECT_EQ(eAF_S_OK, firmware.store(*provider));
    setValue(variable, 3);
    EXPECT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(2, valueOf<std::int32_t>(variable));
}

TEST_F(Conformance, AWalkThatFails_StoresWhatItReachedAndSaysSo) {
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    CVariable *variable = firmware.single(object, "V", TYPE_INT32, 1);
    CStorageObject child;
    CStorageObject_Construct(&child, "Child");
    ASSERT_EQ(eAF_S_OK, CStorageObject_AddObject(object, &child));
    CVariable *wrapper = nullptr;
    ASSERT_EQ(1u, CStorageObject_GetVariableByName(object, "Child", &wrapper));
    const std::unique_ptr<CVariable[]> freed(wrapper);
    EXPECT_EQ(eAF_E_FAILED, firmware.store(*provider));
    setValue(variable, 0);
    EXPECT_EQ(eAF_E_FAILED, firmware.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(variable));
    CStorageObject_Destruct(object); // while the wrapper lives
}

TEST_F(Conformance, TwoVariablesOfOnePath_KeepTheFirst) {
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    CStorageObject *inner = firmware.object("I", object);
    CVariable *first = firmware.single(object, "I/V", TYPE_INT32, 1);
    CVariable *second = firmware.single(inner, "V", TYPE_INT32, 2);
    // The nested object is walked first: its variable stands before.
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    setValue(first, 7);
    setValue(second, 7);
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(2, valueOf<std::int32_t>(second));
    EXPECT_EQ(7, valueOf<std::int32_t>(first));
}

TEST_F(Conformance, AValueThatIsBeingChanged_IsStoredWhole) {
    TraceRecorder::reset(0, 0);
    constexpr std::uint32_t size = 16384;
    Firmware firmware;
    CVariable *variable = firmware.variable(firmware.object("O"), "V", TYPE_UINT8_ARRAY, size, Bytes(size));
    std::atomic<bool> isOver{false};
    std::thread changing([&] {
        for (int i = 0; !isOver; ++i) {
            setContent(variable, Bytes(size, static_cast<unsigned char>(i)));
        }
    });
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
        provider->close();
        begin();
        Firmware reader;
        const CVariable *copy = reader.variable(reader.object("O"), "V", TYPE_UINT8_ARRAY, size, Bytes(size));
        ASSERT_EQ(eAF_S_OK, reader.retrieve(*provider));
        const Bytes content = contentOf(copy);
        EXPECT_EQ(Bytes(size, content[0]), content) << "torn";
    }
    isOver = true;
    changing.join();
}

} // namespace
