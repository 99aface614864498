// Stores that somebody or something damaged: never a crash, never a wrong value, nothing overwritten, and it is said.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "FileFormat.h"
#include "FileStoreFixture.h"

namespace {

using storage::Bytes;
using storage::StoredValues;
using storage::StoreState;
using test::FileStoreFixture;
using testing::Contains;
using testing::HasSubstr;

class FileDamage : public FileStoreFixture {
protected:
    /// Two generations: 1, then 2.
    std::map<std::string, std::string> twoGenerations() {
        EXPECT_EQ(eAF_S_OK, write({value(1), value(10, "Other")}));
        EXPECT_EQ(eAF_S_OK, write({value(2)}));
        return files();
    }
};

TEST_F(FileDamage, ATruncationAtEveryLength_FallsBackToTheGenerationBefore) {
    const auto whole = twoGenerations();
    for (std::size_t length = 0; length < whole.at("s").size(); ++length) {
        auto damaged = whole;
        damaged["s"].resize(length);
        putBack(damaged);
        messages.texts.clear();
        EAFResult code = eAF_E_FAILED;
        ASSERT_EQ(1, readOne(code)) << length;
        ASSERT_EQ(eAF_S_OK, code);
        ASSERT_THAT(messages.texts, Contains(HasSubstr("s.1, is taken, because " + file + " is damaged"))) << length;
        ASSERT_EQ(damaged["s"], test::bytesOf(in("s.damaged-1"))) << "set aside as it was";
        ASSERT_EQ(eAF_S_OK, write({value(3)}));
        ASSERT_EQ(3, readOne(code));
        ASSERT_EQ(whole.at("s.1"), test::bytesOf(in("s.1"))) << "the whole one stayed the second copy";
    }
}

TEST_F(FileDamage, AFlippedBitInEveryByte_FallsBackToTheGenerationBefore) {
    const auto whole = twoGenerations();
    for (std::size_t at = 0; at < whole.at("s").size(); ++at) {
        auto damaged = whole;
        damaged["s"][at] = static_cast<char>(damaged["s"][at] ^ (1 << (at % 8)));
        putBack(damaged);
        EAFResult code = eAF_E_FAILED;
        ASSERT_EQ(1, readOne(code)) << at;
        ASSERT_EQ(damaged["s"], test::bytesOf(in("s.damaged-1"))) << at;
    }
}

TEST_F(FileDamage, ADamagedGenerationBefore_IsNoMatterWhileTheNewestIsWhole) {
    auto damaged = twoGenerations();
    damaged["s.1"][20] = static_cast<char>(damaged["s.1"][20] ^ 1);
    putBack(damaged);
    EAFResult code = eAF_E_FAILED;
    EXPECT_EQ(2, readOne(code));
    EXPECT_TRUE(messages.texts.empty());
}

TEST_F(FileDamage, BothDamaged_AreSetAsideAndTheStoreIsEmpty) {
    auto damaged = twoGenerations();
    for (const char *name : {"s", "s.1"}) {
        damaged[name][30] = static_cast<char>(damaged[name][30] ^ 1);
    }
    putBack(damaged);
    EAFResult code = eAF_E_FAILED;
    EXPECT_EQ(-1, readOne(code));
    EXPECT_EQ(eAF_S_OK, code);
    EXPECT_EQ(damaged["s"], test::bytesOf(in("s.damaged-1")));
    EXPECT_EQ(damaged["s.1"], test::bytesOf(in("s.damaged-2")));
    EXPECT_THAT(messages.texts, Contains(HasSubstr("the start goes on with defaults")));
    EXPECT_EQ(eAF_S_OK, write({value(5)}));
    EXPECT_EQ(5, readOne(code));
}

TEST_F(FileDamage, AMissingNewest_IsSaidAndTheGenerationBeforeIsTaken) {
    auto damaged = twoGenerations();
    damaged.erase("s");
    putBack(damaged);
    EAFResult code = eAF_E_FAILED;
    EXPECT_EQ(1, readOne(code));
    EXPECT_THAT(messages.texts, Contains(HasSubstr("is missing")));
}

TEST_F(FileDamage, SizesOfEveryKind_AreHeldAgainstTheFileBeforeTheyAreUsed) {
    // Every word of the file is replaced by numbers that would be read far outside it; checksums are mended after, so
    // that nothing but the bounds stands in the way.
    const Bytes whole = storage::packStore({value(1), {"A", TYPE_UINT8_ARRAY, 3, {1, 2, 3}}}, 1);
    for (std::size_t at = 8; at + 4 <= whole.size(); ++at) {
        for (const std::uint32_t hostile : {0xFFFFFFFFU, 0x7FFFFFFFU, 0x80000000U, 0U, 0x1000U}) {
            Bytes bytes = whole;
            std::memcpy(bytes.data() + at, &hostile, sizeof hostile);
            const auto store = storage::unpackStore(bytes);
            if (store.state == StoreState::whole) {
                EXPECT_EQ(whole, bytes) << at;
            }
        }
    }
}

TEST_F(FileDamage, RandomBytes_NeverMakeAStore) {
    std::mt19937 random(4711);
    std::printf("seed 4711\n");
    for (int i = 0; i < 2000; ++i) {
        Bytes bytes(random() % 300);
        for (unsigned char &byte : bytes) {
            byte = static_cast<unsigned char>(random());
        }
        if (bytes.size() > 12 && i % 2 == 0) {
            std::memcpy(bytes.data(), "ZAFSTORE\x04\x03\x02\x01", 12);
        }
        EXPECT_NE(StoreState::whole, storage::unpackStore(bytes).state);
    }
}

TEST_F(FileDamage, AReader_LeavesADamagedStoreWhereItIs) {
    auto damaged = twoGenerations();
    damaged["s"][30] = static_cast<char>(damaged["s"][30] ^ 1);
    putBack(damaged);
    storage::FileStore reader(file);
    StoredValues values;
    EXPECT_EQ(eAF_S_OK, reader.open(storage::Access::readOnly, messages));
    EXPECT_EQ(eAF_S_OK, reader.read(values, messages));
    EXPECT_EQ(2u, values.size()) << "of the generation before";
    EXPECT_EQ(damaged, files());
    EXPECT_EQ(eAF_E_WRONG_ACCESS, reader.write({value(9)}, messages));
}

} // namespace
