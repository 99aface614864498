// What every platform owes the library; runs on the stand-ins and on any other.
#include "CHashTable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "ContainerAnswers.h"

namespace {

using test::isError;

class CHashTableTest : public testing::Test {
protected:
    CHashTableTest() { EXPECT_EQ(CHashTable_Construct(&m_table, 8), test::done); }
    ~CHashTableTest() override { CHashTable_Destruct(&m_table); }

    const void *valueOf(const char *key) const {
        void *value = nullptr;
        EXPECT_FALSE(isError(CHashTable_Get(&m_table, key, &value))) << key;
        return value;
    }

    CHashTable m_table{};
    int m_one = 1;
    int m_two = 2;
};

TEST_F(CHashTableTest, ANewTable_IsEmpty) {
    void *value = &m_one;

    EXPECT_EQ(CHashTable_Count(&m_table), 0u);
    EXPECT_TRUE(isError(CHashTable_Get(&m_table, "Radio/Power", &value)));
    EXPECT_EQ(value, &m_one);
}

TEST_F(CHashTableTest, Construct_TakesARecordThatHeldAnything) {
    CHashTable table;
    std::memset(&table, 0xA5, sizeof(table));

    EXPECT_EQ(CHashTable_Construct(&table, 4), test::done);

    EXPECT_EQ(CHashTable_Count(&table), 0u);
    EXPECT_EQ(CHashTable_Destruct(&table), test::done);
}

TEST_F(CHashTableTest, Set_FilesTheValueUnderItsKey) {
    EXPECT_EQ(CHashTable_Set(&m_table, "Radio/Power", &m_one), test::done);
    EXPECT_EQ(CHashTable_Set(&m_table, "Radio/Gain", &m_two), test::done);

    EXPECT_EQ(valueOf("Radio/Power"), &m_one);
    EXPECT_EQ(valueOf("Radio/Gain"), &m_two);
    EXPECT_EQ(CHashTable_Count(&m_table), 2u);
}

TEST_F(CHashTableTest, Set_OfAPresentKeyReplacesItsValue) {
    ASSERT_EQ(CHashTable_Set(&m_table, "Radio/Power", &m_one), test::done);

    EXPECT_EQ(CHashTable_Set(&m_table, "Radio/Power", &m_two), test::done);

    EXPECT_EQ(valueOf("Radio/Power"), &m_two);
    EXPECT_EQ(CHashTable_Count(&m_table), 1u);
}

TEST_F(CHashTableTest, Set_CopiesTheKey) {
    char key[] = "Radio/Power";
    ASSERT_EQ(CHashTable_Set(&m_table, key, &m_one), test::done);

    std::strcpy(key, "Radio/Gain!");

    EXPECT_EQ(valueOf("Radio/Power"), &m_one);
    void *value = nullptr;
    EXPECT_TRUE(isError(CHashTable_Get(&m_table, "Radio/Gain!", &value)));
}

TEST_F(CHashTableTest, ANullValue_IsAValue) {
    void *value = &m_one;

    EXPECT_EQ(CHashTable_Set(&m_table, "none", nullptr), test::done);

    EXPECT_FALSE(isError(CHashTable_Get(&m_table, "none", &value)));
    EXPECT_EQ(value, nullptr);
}

TEST_F(CHashTableTest, TheEmptyKey_IsAKey) {
    EXPECT_EQ(CHashTable_Set(&m_table, "", &m_one), test::done);

    EXPECT_EQ(valueOf(""), &m_one);
    void *value = nullptr;
    EXPECT_TRUE(isError(CHashTable_Get(&m_table, "x", &value)));
}

TEST_F(CHashTableTest, LongKeys_AreComparedToTheirEnds) {
    const std::string stem(100000, 'k');

    EXPECT_EQ(CHashTable_Set(&m_table, (stem + "1").c_str(), &m_one), test::done);
    EXPECT_EQ(CHashTable_Set(&m_table, (stem + "2").c_str(), &m_two), test::done);

    EXPECT_EQ(valueOf((stem + "1").c_str()), &m_one);
    EXPECT_EQ(valueOf((stem + "2").c_str()), &m_two);
    void *value = nullptr;
    EXPECT_TRUE(isError(CHashTable_Get(&m_table, stem.c_str(), &value)));
}

TEST_F(CHashTableTest, Keys_DifferInCase) {
    ASSERT_EQ(CHashTable_Set(&m_table, "power", &m_one), test::done);
    void *value = nullptr;

    EXPECT_TRUE(isError(CHashTable_Get(&m_table, "Power", &value)));
}

TEST_F(CHashTableTest, Destruct_LeavesARecordThatCanBeConstructedAgain) {
    ASSERT_EQ(CHashTable_Set(&m_table, "key", &m_one), test::done);

    EXPECT_EQ(CHashTable_Destruct(&m_table), test::done);

    EXPECT_EQ(CHashTable_Construct(&m_table, 0), test::done);
    EXPECT_EQ(CHashTable_Count(&m_table), 0u);
    EXPECT_EQ(CHashTable_Set(&m_table, "key", &m_two), test::done);
    EXPECT_EQ(valueOf("key"), &m_two);
}

TEST_F(CHashTableTest, ATableBuiltForNothing_TakesAMillionEntriesAndFindsThemAll) {
    // With one chain for all of them this would take half a million comparisons an entry, and not end.
    CHashTable table{};
    ASSERT_EQ(CHashTable_Construct(&table, 0), test::done);
    std::vector<char> places(1000000);

    for (std::size_t number = 0; number < places.size(); ++number) {
        ASSERT_EQ(CHashTable_Set(&table, std::to_string(number).c_str(), &places[number]), test::done);
    }

    EXPECT_EQ(CHashTable_Count(&table), places.size());
    for (std::size_t number = 0; number < places.size(); ++number) {
        void *value = nullptr;
        ASSERT_FALSE(isError(CHashTable_Get(&table, std::to_string(number).c_str(), &value)));
        ASSERT_EQ(value, &places[number]);
    }
    CHashTable_Destruct(&table);
}

TEST_F(CHashTableTest, Construct_WithoutMemoryLeavesATableThatHoldsAndTakesNothing) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    std::uint32_t seenFailing = 0;
    for (std::uint32_t allowed = 0;; ++allowed) {
        SCOPED_TRACE(allowed);
        CHashTable table;
        std::memset(&table, 0xA5, sizeof(table));
        uint32_t result = test::done;
        {
            const test::AllocationFailure shortage{allowed};
            result = CHashTable_Construct(&table, 1000);
            ASSERT_EQ(result == test::done, shortage.failures() == 0);
        }
        if (result == test::done) {
            CHashTable_Destruct(&table);
            break;
        }
        ++seenFailing;
        EXPECT_EQ(result, test::outOfMemory);
        void *value = &m_one;

        EXPECT_TRUE(isError(CHashTable_Set(&table, "key", &m_two)));
        EXPECT_TRUE(isError(CHashTable_Get(&table, "key", &value)));
        EXPECT_EQ(value, &m_one);
        EXPECT_EQ(CHashTable_Count(&table), 0u);
        EXPECT_EQ(CHashTable_Destruct(&table), test::done);
    }
    EXPECT_GE(seenFailing, test::isStandIn ? 2u : 1u);
}

TEST_F(CHashTableTest, Set_WithoutMemoryLeavesTheTableAsItWas) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    // Filled up to the point where the next entry also needs a larger index.
    CHashTable table{};
    ASSERT_EQ(CHashTable_Construct(&table, 0), test::done);
    std::vector<char> places(1000);
    std::uint32_t seenFailing = 0;
    for (std::size_t number = 0; number < places.size(); ++number) {
        const auto key = std::to_string(number);
        for (std::uint32_t allowed = 0;; ++allowed) {
            uint32_t result = test::done;
            {
                const test::AllocationFailure shortage{allowed};
                result = CHashTable_Set(&table, key.c_str(), &places[number]);
            }
            if (result == test::done) {
                break;
            }
            ++seenFailing;
            ASSERT_TRUE(isError(result));
            ASSERT_EQ(CHashTable_Count(&table), number);
            void *value = nullptr;
            ASSERT_TRUE(isError(CHashTable_Get(&table, key.c_str(), &value)));
            ASSERT_LT(allowed, 4u);
        }
        for (std::size_t earlier = 0; earlier <= number; ++earlier) {
            void *value = nullptr;
            ASSERT_FALSE(isError(CHashTable_Get(&table, std::to_string(earlier).c_str(), &value)));
            ASSERT_EQ(value, &places[earlier]);
        }
    }

    // The stand-in takes memory for many entries at once: nine times for both halves of its index, and for entries.
    EXPECT_GE(seenFailing, test::isStandIn ? 2u * 9u + 2u : places.size());
    CHashTable_Destruct(&table);
}

TEST_F(CHashTableTest, ReplacingAndReading_NeedNoMemory) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    const std::string key(1000, 'k');
    CHashTable table{};
    ASSERT_EQ(CHashTable_Construct(&table, 8), test::done);
    ASSERT_EQ(CHashTable_Set(&table, key.c_str(), &m_one), test::done);
    void *value = nullptr;
    const test::AllocationFailure shortage;

    EXPECT_EQ(CHashTable_Set(&table, key.c_str(), &m_two), test::done);
    EXPECT_FALSE(isError(CHashTable_Get(&table, key.c_str(), &value)));
    EXPECT_TRUE(isError(CHashTable_Get(&table, "absent", &value)));
    EXPECT_EQ(value, &m_two);
    EXPECT_EQ(CHashTable_Count(&table), 1u);
    EXPECT_EQ(CHashTable_Destruct(&table), test::done);

    EXPECT_EQ(shortage.failures(), 0u);
}

} // namespace
