#include "FileFormat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "FileStoreFixture.h"

namespace {

using storage::Bytes;
using storage::StoredValue;
using storage::StoredValues;
using storage::StoreState;
using storage::unpackStore;
using test::FileStoreFixture;

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
}

TEST(FileFormat, AnEmptyStore_IsWhole) {
    const auto store = unpackStore(storage::packStore({}, 3));
    EXPECT_EQ(StoreState::whole, store.state);
    EXPECT_EQ(3u, store.generation);
    EXPECT_TRUE(store.values.empty());
}

class FileStoreGenerations : public FileStoreFixture {};

TEST_F(FileStoreGenerations, EachStore_KeepsTheOneBeforeAsTheSecondCopy) {
    for (std::int32_t i = 1; i <= 3; ++i) {
        ASSERT_EQ(eAF_S_OK, write({value(i)}));
    }
    const auto found = files();
    EXPECT_EQ(2u, found.size());
    const auto generationOf = [&](const std::string &name) {
        const std::string &bytes = found.at(name);
        return unpackStore({bytes.begin(), bytes.end()});
    };
    EXPECT_EQ(3u, generationOf("s").generation);
    EXPECT_EQ(StoredValues{value(3)}, generationOf("s").values);
    EXPECT_EQ(2u, generationOf("s.1").generation);
    EXPECT_EQ(StoredValues{value(2)}, generationOf("s.1").values);
}

TEST_F(FileStoreGenerations, NothingToWrite_TouchesNoFile) {
    ASSERT_EQ(eAF_S_OK, write({}));
    EXPECT_TRUE(files().empty());
}

TEST_F(FileStoreGenerations, ALeftoverOfAKilledHost_IsIgnoredAndRemoved) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    test::writeBytes(in("s.new"), "half of somethi");
    EAFResult code = eAF_E_FAILED;
    EXPECT_EQ(1, readOne(code));
    EXPECT_EQ(1u, files().size());
    EXPECT_TRUE(messages.texts.empty());
}

TEST_F(FileStoreGenerations, AFileOfANewerVersion_IsLeftAlone) {
    const Bytes newer = storeByHand(false, 2);
    test::writeBytes(file, {newer.begin(), newer.end()});
    EAFResult code = eAF_S_OK;
    read(code);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, code);
    EXPECT_THAT(messages.texts, testing::ElementsAre(testing::HasSubstr("format version 2")));
    EXPECT_EQ(std::string(newer.begin(), newer.end()), test::bytesOf(file));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, write({value(1)}));
    EXPECT_EQ(std::string(newer.begin(), newer.end()), test::bytesOf(file));
}

} // namespace
