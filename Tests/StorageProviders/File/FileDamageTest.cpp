// Stores that somebody or something damaged: never a crash, never a wrong value, nothing overwritten, and it is said.
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "FileFormat.h"
#include "FileStoreFixture.h"
#include "SystemCalls.h"

namespace {

using storage::Access;
using storage::Bytes;
using storage::StoredValues;
using storage::StoreState;
using storage::unpackStore;
using test::SystemCalls;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FileDamage : public test::FileStoreFixture {
protected:
    using Files = test::TemporaryFolder::Files;

    /// Two generations: 1, then 2.
    Files twoGenerations() {
        EXPECT_EQ(eAF_S_OK, write({value(1), value(10, "Other")}));
        EXPECT_EQ(eAF_S_OK, write({value(2)}));
        return folder.files();
    }
    static void flip(std::string &bytes, std::size_t at) { bytes[at] = static_cast<char>(bytes[at] ^ (1 << (at % 8))); }

    /// Starts with a newest generation that is damaged, and the whole one before it.
    void expectFallBack(const Files &damaged) {
        folder.replaceFiles(damaged);
        messages.clear();
        ASSERT_EQ(1, readOne());
        ASSERT_THAT(messages.warnings(),
                    ElementsAre(AllOf(HasSubstr("the store " + file + " is damaged ("),
                                      HasSubstr("it was set aside as " + in("s.damaged-1"))),
                                HasSubstr(file + ".1, is taken, because " + file + " is damaged: ")));
        ASSERT_THAT(messages.errors(), IsEmpty());
        ASSERT_EQ(damaged.at("s"), test::bytesOf(in("s.damaged-1"))) << "set aside as it was";
        ASSERT_EQ(eAF_S_OK, write({value(3)}));
        ASSERT_EQ(3, readOne());
        ASSERT_EQ(damaged.at("s.1"), test::bytesOf(in("s.1"))) << "the whole one stayed the second copy";
    }

    /// Starts with a single file that is damaged.
    void expectSetAside(const std::string &damaged) {
        folder.replaceFiles({{"s", damaged}});
        messages.clear();
        ASSERT_EQ(-1, readOne());
        ASSERT_THAT(messages.warnings(),
                    ElementsAre(AllOf(HasSubstr(file), HasSubstr("set aside as " + in("s.damaged-1"))),
                                AllOf(HasSubstr(file), HasSubstr("the start goes on with defaults"))));
        ASSERT_EQ((Files{{"s.damaged-1", damaged}}), folder.files());
        ASSERT_EQ(eAF_S_OK, write({value(3)}));
        ASSERT_EQ(3, readOne());
        ASSERT_EQ(damaged, test::bytesOf(in("s.damaged-1")));
    }
};

TEST_F(FileDamage, ATruncationAtEveryLength_FallsBackToTheGenerationBefore) {
    const Files whole = twoGenerations();
    const SystemCalls calls(folder.name()); // syncs nothing
    for (std::size_t length = 0; length < whole.at("s").size(); ++length) {
        SCOPED_TRACE(length);
        Files damaged = whole;
        damaged["s"].resize(length);
        ASSERT_NO_FATAL_FAILURE(expectFallBack(damaged));
    }
}

TEST_F(FileDamage, ATruncationAtEveryLengthWithoutAGenerationBefore_IsSetAside) {
    const std::string whole = twoGenerations().at("s");
    const SystemCalls calls(folder.name());
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        ASSERT_NO_FATAL_FAILURE(expectSetAside(whole.substr(0, length)));
    }
}

TEST_F(FileDamage, AFlippedBitInEveryByte_FallsBackToTheGenerationBefore) {
    const Files whole = twoGenerations();
    const SystemCalls calls(folder.name());
    for (std::size_t at = 0; at < whole.at("s").size(); ++at) {
        SCOPED_TRACE(at);
        Files damaged = whole;
        flip(damaged["s"], at);
        ASSERT_NO_FATAL_FAILURE(expectFallBack(damaged));
    }
}

TEST_F(FileDamage, AFlippedBitInEveryByteWithoutAGenerationBefore_IsSetAside) {
    const std::string whole = twoGenerations().at("s");
    const SystemCalls calls(folder.name());
    for (std::size_t at = 0; at < whole.size(); ++at) {
        SCOPED_TRACE(at);
        std::string damaged = whole;
        flip(damaged, at);
        ASSERT_NO_FATAL_FAILURE(expectSetAside(damaged));
    }
}

TEST_F(FileDamage, AFallBack_SaysWhichRegionDoesNotHold) {
    const Files whole = twoGenerations(); // record 0 is V's, record 1 is Other's
    const std::string why = "is taken, because " + file + " is damaged: ";
    constexpr std::size_t first = 44;
    constexpr std::size_t second = first + 20 + 1 + 4;
    constexpr std::size_t end = second + 20 + 5 + 4;
    ASSERT_EQ(end + 4, whole.at("s").size());
    const struct {
        std::size_t at;
        const char *reason;
    } regions[] = {{0, "its first bytes are damaged"},
                   {7, "its first bytes are damaged"},
                   {8, "its header is damaged"},
                   {12, "its header is damaged"},
                   {16, "its header is damaged"},
                   {20, "its header is damaged"},
                   {24, "its header is damaged"},
                   {32, "its header is damaged"},
                   {43, "its header is damaged"},
                   {first + 3, "record 0 is damaged: it ends too early or its length is wrong"},
                   {first + 4, "record 0 is damaged: its type 36 is unknown"},
                   {first + 7, "record 0 is damaged: its type 536870916 is unknown"},
                   {first + 8, "record 0 is damaged: its checksum is wrong"},
                   {first + 12, "record 0 is damaged: its sizes do not fit its length"},
                   {first + 16, "record 0 is damaged: its checksum is wrong"},
                   {first + 17, "record 0 is damaged: its checksum is wrong"},
                   {second - 1, "record 0 is damaged: its checksum is wrong"},
                   {second + 3, "record 1 is damaged: it ends too early or its length is wrong"},
                   {end - 5, "record 1 is damaged: its checksum is wrong"},
                   {end, "its checksum is wrong"},
                   {end + 3, "its checksum is wrong"}};
    for (const auto &region : regions) {
        SCOPED_TRACE(region.at);
        Files damaged = whole;
        damaged["s"][region.at] = static_cast<char>(damaged["s"][region.at] ^ 0x20);
        folder.replaceFiles(damaged);
        messages.clear();
        EXPECT_EQ(1, readOne());
        EXPECT_THAT(messages.warnings(), Contains(HasSubstr(why + region.reason)));
    }
}

TEST_F(FileDamage, WhatFollowsTheEnd_IsDamage) {
    Files damaged = twoGenerations();
    damaged["s"] += std::string(1, '\0');
    expectFallBack(damaged);
}

TEST_F(FileDamage, AMissingNewest_IsSaidAndTheGenerationBeforeIsTaken) {
    Files damaged = twoGenerations();
    damaged.erase("s");
    folder.replaceFiles(damaged);
    messages.clear();
    EXPECT_EQ(1, readOne());
    EXPECT_THAT(messages.warnings(), Contains(HasSubstr(file + ".1, is taken, because " + file + " is missing")));
    ASSERT_EQ(eAF_S_OK, write({value(3)}));
    EXPECT_EQ(damaged["s.1"], test::bytesOf(in("s.1")));
    EXPECT_EQ(3, readOne());
}

TEST_F(FileDamage, ADamagedGenerationBefore_IsSetAsideAndSaid) {
    for (const std::size_t at : {std::size_t{2}, std::size_t{20}, std::size_t{50}}) {
        SCOPED_TRACE(at);
        folder.replaceFiles({});
        Files damaged = twoGenerations();
        flip(damaged["s.1"], at);
        folder.replaceFiles(damaged);
        messages.clear();
        EXPECT_EQ(2, readOne());
        EXPECT_THAT(messages.complaints(), ElementsAre(AllOf(HasSubstr("the store " + file + ".1 is damaged ("),
                                                             HasSubstr(in("s.damaged-1")))));
        EXPECT_EQ((Files{{"s", damaged["s"]}, {"s.damaged-1", damaged["s.1"]}}), folder.files());
    }
}

TEST_F(FileDamage, BothDamaged_AreSetAsideUnderFreeNamesAndTheStoreIsEmpty) {
    Files damaged = twoGenerations();
    flip(damaged["s"], 30);
    flip(damaged["s.1"], 60);
    damaged["s.damaged-1"] = "an earlier one";
    damaged["s.damaged-3"] = "another";
    folder.replaceFiles(damaged);
    EXPECT_EQ(-1, readOne());
    EXPECT_EQ((Files{{"s.damaged-1", "an earlier one"},
                     {"s.damaged-2", damaged["s"]},
                     {"s.damaged-3", "another"},
                     {"s.damaged-4", damaged["s.1"]}}),
              folder.files());
    EXPECT_THAT(messages.warnings(), Contains(HasSubstr("the start goes on with defaults")));
    EXPECT_EQ(eAF_S_OK, write({value(5)}));
    EXPECT_EQ(5, readOne());
}

TEST_F(FileDamage, ZerosAlone_AreSetAside) {
    for (const std::size_t length : {1U, 200U, 5000U}) {
        ASSERT_NO_FATAL_FAILURE(expectSetAside(std::string(length, '\0')));
    }
}

// The changed values on top of an earlier generation would be a state that the host never was in.
TEST_F(FileDamage, ADamageThatComesLater_MixesNoGenerations) {
    const Files whole = twoGenerations();
    storage::FileStore store(file);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    std::string damaged = whole.at("s");
    flip(damaged, 70);
    test::writeBytes(file, damaged);
    EXPECT_FALSE(store.isStale());
    EXPECT_EQ(eAF_E_FAILED, store.write({value(3)}, messages));
    EXPECT_TRUE(store.isStale());
    EXPECT_THAT(messages.warnings(), Contains(AllOf(HasSubstr(file), HasSubstr("it is read again"))));
    EXPECT_EQ(damaged, test::bytesOf(in("s.damaged-1")));
    EXPECT_EQ(whole.at("s.1"), test::bytesOf(in("s.1")));
    StoredValues before;
    ASSERT_EQ(eAF_S_OK, store.read(before, messages));
    EXPECT_FALSE(store.isStale());
    EXPECT_EQ(eAF_S_OK, store.write({value(3)}, messages)) << "now it is known on top of what";
    EXPECT_EQ(whole.at("s.1"), test::bytesOf(in("s.1")));
    StoredValues values;
    ASSERT_EQ(eAF_S_OK, store.read(values, messages));
    EXPECT_THAT(values, testing::UnorderedElementsAre(value(3), value(10, "Other")));
}

TEST_F(FileDamage, AReader_LeavesADamagedStoreWhereItIs) {
    Files damaged = twoGenerations();
    flip(damaged["s"], 30);
    folder.replaceFiles(damaged);
    messages.clear();
    EXPECT_EQ(1, readOne(Access::readOnly));
    EXPECT_THAT(messages.errors(), IsEmpty());
    EXPECT_THAT(messages.warnings(), Contains(HasSubstr("is taken, because")));
    EXPECT_EQ(damaged, folder.files());
    flip(damaged["s.1"], 30);
    folder.replaceFiles(damaged);
    EAFResult code = eAF_S_OK;
    EXPECT_THAT(read(code, Access::readOnly), IsEmpty());
    EXPECT_EQ(eAF_E_FAILED, code) << "no empty store: its host may find a way";
    EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(file), HasSubstr("its host sets it aside"))));
    EXPECT_EQ(damaged, folder.files());
}

TEST_F(FileDamage, WhatCanNotBeSetAside_IsNotWrittenOver) {
    Files damaged = twoGenerations();
    flip(damaged["s"], 30);
    folder.replaceFiles(damaged);
    storage::FileStore store(file);
    {
        SystemCalls calls(folder.name());
        calls.failEach("rename", EPERM);
        messages.clear();
        ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages)) << "the generation before serves";
        EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(file), HasSubstr("s.damaged-1"))));
        EXPECT_EQ(eAF_E_FAILED, store.write({value(3)}, messages));
        EXPECT_EQ(damaged, folder.files());
    }
    EXPECT_EQ(eAF_S_OK, store.write({value(3)}, messages)) << "once it can";
    EXPECT_EQ(damaged["s"], test::bytesOf(in("s.damaged-1")));
}

TEST_F(FileDamage, ANameThatCanNotBeToldFree_IsNotTaken) {
    Files damaged = twoGenerations();
    flip(damaged["s"], 30);
    damaged["s.damaged-1"] = "an earlier one";
    folder.replaceFiles(damaged);
    {
        SystemCalls calls(folder.name());
        calls.failEach("lstat s.damaged-1", EIO);
        EXPECT_EQ(1, readOne());
        EXPECT_EQ(eAF_E_FAILED, write({value(3)}));
    }
    EXPECT_EQ(damaged, folder.files());
}

TEST_F(FileDamage, ADiskThatDoesNotGiveTheNewestBack_LetsTheGenerationBeforeServe) {
    for (const int error : {EIO, EBADMSG, EUCLEAN}) {
        SCOPED_TRACE(std::strerror(error));
        folder.replaceFiles({});
        const Files whole = twoGenerations();
        messages.clear();
        SystemCalls calls(folder.name());
        calls.failEach("read s", error);
        EXPECT_EQ(1, readOne());
        EXPECT_THAT(messages.warnings(), Contains(HasSubstr(std::strerror(error))));
        EXPECT_EQ(whole.at("s"), test::bytesOf(in("s.damaged-1")));
    }
}

TEST_F(FileDamage, ADiskThatGivesNothingBack_IsAFailureAndNothingIsTouched) {
    const Files whole = twoGenerations();
    SystemCalls calls(folder.name());
    calls.failEach("read", EIO);
    EXPECT_EQ(-2, readOne());
    EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(file), HasSubstr(std::strerror(EIO)))));
    EXPECT_EQ(whole, folder.files());
}

/// The checksums of a packed store.
struct Packed {
    static constexpr std::size_t record = 44;

    /// Makes the checksums fit, as far as the lengths lead from record to record.
    static void mend(Bytes &bytes) {
        seal(bytes, 40, 0);
        std::uint32_t length = 0;
        for (std::size_t at = record; at + 8 <= bytes.size() - 4; at += 4 + length) {
            std::memcpy(&length, bytes.data() + at, sizeof length);
            if (length < 4 || length > bytes.size() - 8 - at) {
                break;
            }
            seal(bytes, at + length, at + 4);
        }
        seal(bytes, bytes.size() - 4, 0);
    }

private:
    static void seal(Bytes &bytes, std::size_t at, std::size_t since) {
        const auto sum = static_cast<std::uint32_t>(crc32(0, bytes.data() + since, static_cast<unsigned>(at - since)));
        std::memcpy(bytes.data() + at, &sum, sizeof sum);
    }
};

TEST(FileDamageOfSizes, EverySize_IsHeldAgainstTheFileBeforeItIsUsed) {
    // Each word is replaced by what would be read or reserved far outside the file, and the checksums are made to fit,
    // so that nothing but the bounds stands in the way.
    const Bytes whole = storage::packStore(
        {{"V", TYPE_INT32, 1, {1, 0, 0, 0}}, {"A", TYPE_UINT8_ARRAY, 3, {1, 2, 3}}, {"D", TYPE_DOUBLE_ARRAY, 0, {}}},
        1);
    Bytes mended = whole;
    Packed::mend(mended);
    ASSERT_EQ(whole, mended);
    unsigned refused = 0;
    for (std::size_t at = 8; at + 4 <= whole.size(); ++at) {
        for (const std::uint32_t hostile :
             {0xFFFFFFFFU, 0xFFFFFFF0U, 0x80000000U, 0x7FFFFFFFU, 0x20000000U, 0x1000U, 20U, 16U, 4U, 1U, 0U}) {
            Bytes bytes = whole;
            std::memcpy(bytes.data() + at, &hostile, sizeof hostile);
            Packed::mend(bytes);
            const auto store = unpackStore(bytes);
            if (store.state != StoreState::whole) {
                ++refused;
                EXPECT_FALSE(store.why.empty()) << at;
                EXPECT_TRUE(store.values.empty()) << at;
                continue;
            }
            std::size_t size = 48;
            for (const auto &value : store.values) {
                size += 20 + value.path.size() + value.content.size();
            }
            EXPECT_EQ(bytes.size(), size) << at << ": it accounts for every byte";
        }
    }
    EXPECT_GT(refused, 200u);
}

TEST(FileDamageOfSizes, RandomBytesAndRandomDamage_AreNeverTakenForAStore) {
    constexpr unsigned seed = 4711;
    std::mt19937 random(seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure must come back
    std::printf("seed %u\n", seed);
    const Bytes whole = storage::packStore({{"V", TYPE_INT32, 1, {1, 0, 0, 0}}, {"T", TYPE_STRING, 2, {65, 0}}}, 1);
    for (int i = 0; i < 5000; ++i) {
        Bytes bytes = whole;
        if (i % 2 == 0) {
            bytes.resize(random() % 300);
            for (std::size_t at = i % 4 == 0 ? 12 : 0; at < bytes.size(); ++at) {
                bytes[at] = static_cast<unsigned char>(random());
            }
        } else {
            for (auto flips = 1 + random() % 5; flips > 0; --flips) {
                bytes[random() % bytes.size()] = static_cast<unsigned char>(random());
            }
        }
        const auto store = unpackStore(bytes);
        EXPECT_EQ(bytes == whole, store.state == StoreState::whole) << i;
        EXPECT_EQ(store.state == StoreState::whole, store.why.empty()) << i;
    }
}

TEST_F(FileDamage, AFileLargerThanAnyStore_IsNotReadIntoMemory) {
    const Files whole = twoGenerations();
    const auto makeLarge = [this](const std::string &beginning) {
        test::writeBytes(file, beginning);
        ASSERT_EQ(0, truncate(file.c_str(), static_cast<off_t>(storage::largestStore + 1))); // sparse: takes no disk
    };
    makeLarge(whole.at("s"));
    messages.clear();
    EXPECT_EQ(1, readOne());
    EXPECT_THAT(messages.warnings(), Contains(HasSubstr("it is larger than any store")));
    folder.replaceFiles({});
    makeLarge("Dear reader");
    EXPECT_EQ(-2, readOne());
    EXPECT_EQ(0, access(file.c_str(), F_OK)) << "somebody's large file is left alone";
}

} // namespace
