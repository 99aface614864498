#include "FileFormat.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "FileStoreFixture.h" // what prints a value

namespace {

using storage::Bytes;
using storage::StoredValue;
using storage::StoredValues;
using storage::StoreState;
using storage::unpackStore;

/// Writes the format as its page has it, in either byte order.
class ByHand {
public:
    explicit ByHand(bool isSwapped) : m_isSwapped(isSwapped) {}

    template <class Number>
    ByHand &number(Number number) {
        unsigned char bytes[sizeof number];
        std::memcpy(bytes, &number, sizeof number);
        if (m_isSwapped) {
            std::reverse(bytes, bytes + sizeof number);
        }
        m_bytes.insert(m_bytes.end(), bytes, bytes + sizeof number);
        return *this;
    }
    ByHand &text(const std::string &text) {
        m_bytes.insert(m_bytes.end(), text.begin(), text.end());
        return *this;
    }
    ByHand &checksum(std::size_t since) {
        return number(static_cast<std::uint32_t>(
            crc32(0, m_bytes.data() + since, static_cast<unsigned>(m_bytes.size() - since))));
    }
    std::size_t size() const { return m_bytes.size(); }
    Bytes bytes() const { return m_bytes; }

private:
    bool m_isSwapped;
    Bytes m_bytes;
};

/// Two records: an array of three shorts and a text.
Bytes storeByHand(bool isSwapped, std::uint32_t version = 1) {
    ByHand store(isSwapped);
    store.text("ZAFSTORE").number(0x01020304U).number(version).number(32U).number(2U).number(std::uint64_t{9});
    store.number(std::uint64_t{44 + 30 + 25 + 4}).checksum(0);
    store.number(26U);
    std::size_t begin = store.size();
    store.number(3U).number(3U).number(4U).text("Lo/V");
    store.number(std::int16_t{1}).number(std::int16_t{-2}).number(std::int16_t{300}).checksum(begin);
    store.number(21U);
    begin = store.size();
    store.number(16U).number(4U).number(1U).text("N").text("abcd").checksum(begin);
    store.checksum(0);
    return store.bytes();
}

StoredValues expectedValues() {
    StoredValue shorts{"Lo/V", TYPE_INT16_ARRAY, 3, Bytes(6)};
    const std::int16_t content[] = {1, -2, 300};
    std::memcpy(shorts.content.data(), content, sizeof content);
    return {shorts, {"N", TYPE_STRING, 4, {'a', 'b', 'c', 'd'}}};
}

TEST(FileFormat, AStoreMadeByHand_IsWhatThePageSays) {
    const auto store = unpackStore(storeByHand(false));
    EXPECT_EQ(StoreState::whole, store.state) << store.why;
    EXPECT_EQ(9u, store.generation);
    EXPECT_EQ(expectedValues(), store.values);
}

TEST(FileFormat, APackedStore_IsTheOneMadeByHandButForTheWordWidth) {
    Bytes packed = storage::packStore(expectedValues(), 9);
    Bytes byHand = storeByHand(false);
    ASSERT_EQ(byHand.size(), packed.size());
    const auto blank = [](Bytes &bytes) { // the width, and the checksums that cover it
        std::fill(bytes.begin() + 16, bytes.begin() + 20, 0);
        std::fill(bytes.begin() + 40, bytes.begin() + 44, 0);
        std::fill(bytes.end() - 4, bytes.end(), 0);
    };
    blank(packed);
    blank(byHand);
    EXPECT_EQ(byHand, packed);
}

TEST(FileFormat, AFileOfTheOtherByteOrder_Loads) {
    const auto store = unpackStore(storeByHand(true));
    EXPECT_EQ(StoreState::whole, store.state) << store.why;
    EXPECT_EQ(9u, store.generation);
    EXPECT_EQ(expectedValues(), store.values);
}

class FileOfAnotherMachine : public test::FileStoreFixture, public testing::WithParamInterface<const char *> {
protected:
    FileOfAnotherMachine() {
        const Bytes foreign = storeByHand(true); // and of 32 bits
        test::writeBytes(in(GetParam()), {foreign.begin(), foreign.end()});
    }
};
INSTANTIATE_TEST_SUITE_P(As, FileOfAnotherMachine, testing::Values("s", "s.1"));

TEST_P(FileOfAnotherMachine, IsReadAndSucceededByOneOfThisMachines) {
    EAFResult code = eAF_E_FAILED;
    EXPECT_EQ(expectedValues(), read(code));
    EXPECT_EQ(eAF_S_OK, code);
    EXPECT_EQ(GetParam() == std::string("s") ? 0u : 1u, messages.complaints().size()) << "that the newest is missing";
    ASSERT_EQ(eAF_S_OK, write({value(5)}));
    StoredValues all = expectedValues();
    all.push_back(value(5));
    const std::string bytes = test::bytesOf(file);
    const Bytes expected = storage::packStore(all, 10);
    EXPECT_EQ(std::string(expected.begin(), expected.end()), bytes);
    const Bytes foreign = storeByHand(true);
    EXPECT_EQ(std::string(foreign.begin(), foreign.end()), test::bytesOf(in("s.1"))) << "kept as it came";
}

TEST(FileFormat, EveryTypeOfTheOtherByteOrder_IsSwappedByItsElements) {
    for (std::uint32_t type = 0; type <= TYPE_DOUBLE_ARRAY; ++type) {
        StoredValues values{{"V", static_cast<EVariableType>(type), 1, {}}};
        const Bytes eight{1, 2, 3, 4, 5, 6, 7, 8};
        static const unsigned sizes[] = {1, 1, 2, 2, 4, 4, 1, 1, 2, 2, 4, 4, 4, 4, 1, 1, 1, 4, 4, 8, 8};
        values[0].content.assign(eight.begin(), eight.begin() + sizes[type]);
        ByHand store(true);
        store.text("ZAFSTORE").number(0x01020304U).number(1U).number(64U).number(1U).number(std::uint64_t{1});
        store.number(std::uint64_t{44 + 21 + sizes[type] + 4}).checksum(0);
        store.number(17U + sizes[type]);
        const std::size_t begin = store.size();
        store.number(type).number(1U).number(1U).text("V");
        std::string content(values[0].content.rbegin(), values[0].content.rend());
        store.text(content).checksum(begin);
        store.checksum(0);
        const auto unpacked = unpackStore(store.bytes());
        EXPECT_EQ(StoreState::whole, unpacked.state) << unpacked.why;
        EXPECT_EQ(values, unpacked.values) << type;
    }
}

TEST(FileFormat, ANewerVersion_IsRecognised) {
    EXPECT_EQ(StoreState::newer, unpackStore(storeByHand(false, 2)).state);
    EXPECT_EQ(StoreState::newer, unpackStore(storeByHand(true, 2)).state);
}

TEST(FileFormat, AnEmptyStore_IsWhole) {
    const auto store = unpackStore(storage::packStore({}, 3));
    EXPECT_EQ(StoreState::whole, store.state);
    EXPECT_EQ(3u, store.generation);
    EXPECT_TRUE(store.values.empty());
}

/// The bytes of the page's dump.
Bytes exampleOfThePage() {
    std::ifstream page(FORMAT_PAGE);
    Bytes bytes;
    bool isInDump = false;
    for (std::string line; std::getline(page, line);) {
        if (line == "```hexdump") {
            isInDump = true;
        } else if (isInDump && line == "```") {
            break;
        } else if (isInDump) {
            std::istringstream numbers(line);
            std::string offset;
            numbers >> offset >> std::hex;
            EXPECT_EQ(bytes.size(), std::stoul(offset, nullptr, 16)) << line;
            for (unsigned number = 0; numbers >> number;) {
                bytes.push_back(static_cast<unsigned char>(number));
            }
        }
    }
    return bytes;
}

/// The page's example, of a 64-bit machine, as this one writes it: the width and the two checksums that cover it.
Bytes ofThisWordWidth(Bytes bytes) {
    const auto put = [&bytes](std::size_t at, std::size_t number) {
        const auto word = static_cast<std::uint32_t>(number);
        std::memcpy(bytes.data() + at, &word, sizeof word);
    };
    put(16, sizeof(void *) * 8);
    put(40, crc32(0, bytes.data(), 40));
    put(bytes.size() - 4, crc32(0, bytes.data(), static_cast<unsigned>(bytes.size() - 4)));
    return bytes;
}

TEST(FileFormat, TheExampleOfThePage_IsTheStoreThatThePageSays) {
    const Bytes bytes = exampleOfThePage();
    const auto store = unpackStore(bytes);
    ASSERT_EQ(StoreState::whole, store.state) << store.why;
    EXPECT_EQ(7u, store.generation);
    StoredValue gain{"Cfg/Radio/Gain", TYPE_INT32, 1, Bytes(4)};
    const std::int32_t minusTwelve = -12;
    std::memcpy(gain.content.data(), &minusTwelve, sizeof minusTwelve);
    StoredValue lo{"Cfg/Radio/Lo", TYPE_INT16_ARRAY, 2, Bytes(4)};
    const std::int16_t numbers[] = {1, 300};
    std::memcpy(lo.content.data(), numbers, sizeof numbers);
    EXPECT_EQ((StoredValues{gain, lo}), store.values);
    const std::uint16_t one = 1;
    unsigned char firstByte = 0;
    std::memcpy(&firstByte, &one, 1);
    if (firstByte == 1) {
        EXPECT_EQ(ofThisWordWidth(bytes), storage::packStore({gain, lo}, 7)) << "in the byte order of the page";
    }
}

TEST(FileFormat, TwoRecordsOfOnePath_AreDamage) {
    const auto store = unpackStore(storage::packStore({{"V", TYPE_INT8, 1, {1}}, {"V", TYPE_INT8, 1, {2}}}, 1));
    EXPECT_EQ(StoreState::damaged, store.state);
    EXPECT_EQ("it has two records of the path V", store.why);
    EXPECT_TRUE(store.values.empty());
}

ByHand headerByHand(std::uint32_t noOfRecords, std::uint64_t size) {
    ByHand header(false);
    header.text("ZAFSTORE").number(0x01020304U).number(1U).number(64U).number(noOfRecords).number(std::uint64_t{1});
    header.number(size).checksum(0);
    return header;
}

TEST(FileFormat, ATypeThatIsNotPlain_IsDamage) {
    for (const std::uint32_t type : {21U, 22U, 0xFFFFFFFFU}) {
        ByHand byHand = headerByHand(1, 44 + 25 + 4);
        byHand.number(21U);
        const std::size_t begin = byHand.size();
        byHand.number(type).number(1U).number(1U).text("V").text("abcd").checksum(begin);
        byHand.checksum(0);
        const auto store = unpackStore(byHand.bytes());
        EXPECT_EQ(StoreState::damaged, store.state);
        EXPECT_EQ("record 0 is damaged: its type " + std::to_string(type) + " is unknown", store.why);
    }
}

TEST(FileFormat, ARecordThatIsTooShortOrNotThere_IsDamage) {
    for (std::uint32_t length = 0; length < 16; ++length) { // 16 are its type, its two counts and its checksum
        ByHand byHand = headerByHand(1, 44 + 4 + length + 4);
        byHand.number(length).text(std::string(length, '\0')).checksum(0);
        const auto store = unpackStore(byHand.bytes());
        EXPECT_EQ(StoreState::damaged, store.state) << length;
        EXPECT_EQ("record 0 is damaged: it ends too early or its length is wrong", store.why) << length;
    }
    for (std::uint32_t rest = 0; rest < 4; ++rest) { // not as much as its length
        const auto store = unpackStore(headerByHand(1, 44 + rest).text(std::string(rest, '\0')).bytes());
        EXPECT_EQ(StoreState::damaged, store.state) << rest;
        EXPECT_EQ("record 0 is damaged: it ends too early or its length is wrong", store.why) << rest;
    }
}

TEST(FileFormat, AHeaderWithoutTheChecksumBehindIt_IsDamage) {
    for (std::uint32_t rest = 0; rest < 4; ++rest) {
        const auto store = unpackStore(headerByHand(0, 44 + rest).text(std::string(rest, '\0')).bytes());
        EXPECT_EQ(StoreState::damaged, store.state) << rest;
        EXPECT_EQ("its checksum is wrong", store.why) << rest;
    }
}

TEST(FileFormat, WhatEndsWithinTheBeginning_IsDamagedAndWhatBeginsOtherwiseIsNoStore) {
    const Bytes whole = storage::packStore({}, 1);
    EXPECT_EQ(StoreState::damaged, unpackStore({}).state);
    for (std::size_t length = 1; length < whole.size(); ++length) {
        Bytes bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(StoreState::damaged, unpackStore(bytes).state) << length;
        bytes[std::min<std::size_t>(length, 8) - 1] ^= 0x20U;
        EXPECT_EQ(StoreState::notAStore, unpackStore(bytes).state) << length;
    }
}

TEST(FileFormat, PackedSize_IsTheSizeOfWhatIsPacked) {
    EXPECT_EQ(48u, storage::packedSize({}));
    EXPECT_EQ(storage::packStore(expectedValues(), 1).size(), storage::packedSize(expectedValues()));
}

TEST(FileFormat, PathsOfAnyBytes_ComeBack) {
    const StoredValues values{{"", TYPE_INT8, 1, {1}},
                              {std::string("\0\n\xFF%s/ \"'", 9), TYPE_INT8, 1, {2}},
                              {std::string(70000, 'p'), TYPE_UINT8_ARRAY, 0, {}}};
    EXPECT_EQ(values, unpackStore(storage::packStore(values, 1)).values);
}

} // namespace
