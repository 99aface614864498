#include "CHashTable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "AllocationFailure.h"

namespace {

class CHashTableTest : public testing::Test {
protected:
    CHashTableTest() { EXPECT_EQ(CHashTable_Construct(&m_table, 8), GCL_OK); }
    ~CHashTableTest() override { CHashTable_Destruct(&m_table); }

    const void *valueOf(const char *key) const {
        void *value = nullptr;
        EXPECT_EQ(CHashTable_Get(&m_table, key, &value), GCL_OK) << key;
        return value;
    }

    CHashTable m_table{};
    int m_one = 1;
    int m_two = 2;
};

TEST_F(CHashTableTest, ANewTable_IsEmpty) {
    void *value = &m_one;

    EXPECT_EQ(CHashTable_Count(&m_table), 0u);
    EXPECT_EQ(CHashTable_Get(&m_table, "Radio/Power", &value), GCL_NOT_IN_LIST);
    EXPECT_EQ(value, &m_one);
}

TEST_F(CHashTableTest, Construct_TakesARecordThatHeldAnything) {
    CHashTable table;
    std::memset(&table, 0xA5, sizeof(table));

    EXPECT_EQ(CHashTable_Construct(&table, 4), GCL_OK);

    EXPECT_EQ(CHashTable_Count(&table), 0u);
    EXPECT_EQ(CHashTable_Destruct(&table), GCL_OK);
}

TEST_F(CHashTableTest, Set_FilesTheValueUnderItsKey) {
    EXPECT_EQ(CHashTable_Set(&m_table, "Radio/Power", &m_one), GCL_OK);
    EXPECT_EQ(CHashTable_Set(&m_table, "Radio/Gain", &m_two), GCL_OK);

    EXPECT_EQ(valueOf("Radio/Power"), &m_one);
    EXPECT_EQ(valueOf("Radio/Gain"), &m_two);
    EXPECT_EQ(CHashTable_Count(&m_table), 2u);
}

TEST_F(CHashTableTest, Set_OfAPresentKeyReplacesItsValue) {
    ASSERT_EQ(CHashTable_Set(&m_table, "Radio/Power", &m_one), GCL_OK);

    EXPECT_EQ(CHashTable_Set(&m_table, "Radio/Power", &m_two), GCL_OK);

    EXPECT_EQ(valueOf("Radio/Power"), &m_two);
    EXPECT_EQ(CHashTable_Count(&m_table), 1u);
}

TEST_F(CHashTableTest, Set_CopiesTheKey) {
    char key[] = "Radio/Power";
    ASSERT_EQ(CHashTable_Set(&m_table, key, &m_one), GCL_OK);

    std::strcpy(key, "Radio/Gain!");

    EXPECT_EQ(valueOf("Radio/Power"), &m_one);
    void *value = nullptr;
    EXPECT_EQ(CHashTable_Get(&m_table, "Radio/Gain!", &value), GCL_NOT_IN_LIST);
}

TEST_F(CHashTableTest, ANullValue_IsAValue) {
    void *value = &m_one;

    EXPECT_EQ(CHashTable_Set(&m_table, "none", nullptr), GCL_OK);

    EXPECT_EQ(CHashTable_Get(&m_table, "none", &value), GCL_OK);
    EXPECT_EQ(value, nullptr);
}

TEST_F(CHashTableTest, TheEmptyKey_IsAKey) {
    EXPECT_EQ(CHashTable_Set(&m_table, "", &m_one), GCL_OK);

    EXPECT_EQ(valueOf(""), &m_one);
    void *value = nullptr;
    EXPECT_EQ(CHashTable_Get(&m_table, "x", &value), GCL_NOT_IN_LIST);
}

TEST_F(CHashTableTest, LongKeys_AreComparedToTheirEnds) {
    const std::string stem(100000, 'k');

    EXPECT_EQ(CHashTable_Set(&m_table, (stem + "1").c_str(), &m_one), GCL_OK);
    EXPECT_EQ(CHashTable_Set(&m_table, (stem + "2").c_str(), &m_two), GCL_OK);

    EXPECT_EQ(valueOf((stem + "1").c_str()), &m_one);
    EXPECT_EQ(valueOf((stem + "2").c_str()), &m_two);
    void *value = nullptr;
    EXPECT_EQ(CHashTable_Get(&m_table, stem.c_str(), &value), GCL_NOT_IN_LIST);
}

TEST_F(CHashTableTest, Keys_DifferInCase) {
    ASSERT_EQ(CHashTable_Set(&m_table, "power", &m_one), GCL_OK);
    void *value = nullptr;

    EXPECT_EQ(CHashTable_Get(&m_table, "Power", &value), GCL_NOT_IN_LIST);
}

TEST_F(CHashTableTest, Destruct_LeavesATableThatHoldsNothingAndCanBeDestructedAndConstructedAgain) {
    ASSERT_EQ(CHashTable_Set(&m_table, "key", &m_one), GCL_OK);
    void *value = nullptr;

    EXPECT_EQ(CHashTable_Destruct(&m_table), GCL_OK);

    EXPECT_EQ(CHashTable_Count(&m_table), 0u);
    EXPECT_EQ(CHashTable_Get(&m_table, "key", &value), GCL_NOT_IN_LIST);
    EXPECT_EQ(CHashTable_Destruct(&m_table), GCL_OK);
    EXPECT_EQ(CHashTable_Construct(&m_table, 0), GCL_OK);
    EXPECT_EQ(CHashTable_Set(&m_table, "key", &m_two), GCL_OK);
    EXPECT_EQ(valueOf("key"), &m_two);
}

TEST_F(CHashTableTest, ATableBuiltForNothing_TakesAMillionEntriesAndFindsThemAll) {
    // With one chain for all of them this would take half a million comparisons an entry, and not end.
    CHashTable table{};
    ASSERT_EQ(CHashTable_Construct(&table, 0), GCL_OK);
    std::vector<char> places(1000000);

    for (std::size_t number = 0; number < places.size(); ++number) {
        ASSERT_EQ(CHashTable_Set(&table, std::to_string(number).c_str(), &places[number]), GCL_OK);
    }

    EXPECT_EQ(CHashTable_Count(&table), places.size());
    for (std::size_t number = 0; number < places.size(); ++number) {
        void *value = nullptr;
        ASSERT_EQ(CHashTable_Get(&table, std::to_string(number).c_str(), &value), GCL_OK);
        ASSERT_EQ(value, &places[number]);
    }
    CHashTable_Destruct(&table);
}

TEST_F(CHashTableTest, Construct_WithoutMemoryLeavesATableThatHoldsAndTakesNothing) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    for (std::uint32_t allowed = 0; allowed < 2; ++allowed) {
        SCOPED_TRACE(allowed);
        CHashTable table;
        std::memset(&table, 0xA5, sizeof(table));
        {
            const test::AllocationFailure shortage{allowed};
            EXPECT_EQ(CHashTable_Construct(&table, 1000), GCL_OUT_OF_MEMORY);
            EXPECT_GT(shortage.failures(), 0u);
        }
        void *value = &m_one;

        EXPECT_EQ(CHashTable_Set(&table, "key", &m_two), GCL_OUT_OF_MEMORY);
        EXPECT_EQ(CHashTable_Get(&table, "key", &value), GCL_NOT_IN_LIST);
        EXPECT_EQ(value, &m_one);
        EXPECT_EQ(CHashTable_Count(&table), 0u);
        EXPECT_EQ(CHashTable_Destruct(&table), GCL_OK);
    }
}

TEST_F(CHashTableTest, Construct_ForMoreEntriesThanMemoryCanHoldFails) {
    CHashTable table{};

    EXPECT_EQ(CHashTable_Construct(&table, ~0ul), GCL_OUT_OF_MEMORY);

    EXPECT_EQ(CHashTable_Count(&table), 0u);
    EXPECT_EQ(CHashTable_Destruct(&table), GCL_OK);
}

TEST_F(CHashTableTest, Set_WithoutMemoryLeavesTheTableAsItWas) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    // Filled up to the point where the next entry also needs a larger index.
    CHashTable table{};
    ASSERT_EQ(CHashTable_Construct(&table, 0), GCL_OK);
    std::vector<char> places(200);
    std::uint32_t seenFailing = 0;
    for (std::size_t number = 0; number < places.size(); ++number) {
        const auto key = std::to_string(number);
        for (std::uint32_t allowed = 0;; ++allowed) {
            uint32_t result = GCL_OK;
            {
                const test::AllocationFailure shortage{allowed};
                result = CHashTable_Set(&table, key.c_str(), &places[number]);
            }
            if (result == GCL_OK) {
                break;
            }
            ++seenFailing;
            ASSERT_EQ(result, GCL_OUT_OF_MEMORY);
            ASSERT_EQ(CHashTable_Count(&table), number);
            void *value = nullptr;
            ASSERT_EQ(CHashTable_Get(&table, key.c_str(), &value), GCL_NOT_IN_LIST);
            ASSERT_LT(allowed, 4u);
        }
        for (std::size_t earlier = 0; earlier <= number; ++earlier) {
            void *value = nullptr;
            ASSERT_EQ(CHashTable_Get(&table, std::to_string(earlier).c_str(), &value), GCL_OK);
            ASSERT_EQ(value, &places[earlier]);
        }
    }

    EXPECT_GT(seenFailing, 2 * places.size()) << "key, entry and now and then the index each failed";
    CHashTable_Destruct(&table);
}

TEST_F(CHashTableTest, ReplacingAndReading_NeedNoMemory) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    const std::string key(1000, 'k');
    ASSERT_EQ(CHashTable_Set(&m_table, key.c_str(), &m_one), GCL_OK);
    const test::AllocationFailure shortage;

    EXPECT_EQ(CHashTable_Set(&m_table, key.c_str(), &m_two), GCL_OK);
    EXPECT_EQ(valueOf(key.c_str()), &m_two);
    EXPECT_EQ(CHashTable_Count(&m_table), 1u);
    EXPECT_EQ(CHashTable_Destruct(&m_table), GCL_OK);

    EXPECT_EQ(shortage.failures(), 0u);
}

TEST_F(CHashTableTest, NullArguments_AreRefused) {
    void *value = nullptr;

    EXPECT_EQ(CHashTable_Construct(nullptr, 1), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Destruct(nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Set(nullptr, "key", &m_one), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Set(&m_table, nullptr, &m_one), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Get(nullptr, "key", &value), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Get(&m_table, nullptr, &value), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Get(&m_table, "key", nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Count(nullptr), 0u);
    EXPECT_EQ(CHashTable_Count(&m_table), 0u);
}

} // namespace
