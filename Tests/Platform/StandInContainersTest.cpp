// What the stand-ins define beyond what every platform owes the library.
#include <gtest/gtest.h>

#include "CHashTable.h"
#include "CList.h"
#include "ContainerAnswers.h"

namespace {

static_assert(GCL_OK == test::done && GCL_LAST_ELEMENT == test::lastElement && GCL_NOT_IN_LIST == test::exhausted &&
              GCL_OUT_OF_MEMORY == test::outOfMemory);

uint32_t isSame(const void *element, const void *key) {
    return element == key ? 1 : 0;
}

class StandInList : public testing::Test {
protected:
    StandInList() { EXPECT_EQ(CList_PushTail(&list, &one), GCL_OK); }
    ~StandInList() override { CList_Destruct(&list); }

    CList list{};
    int one = 1;
    int two = 2;
};

TEST_F(StandInList, NullArguments_AreRefused) {
    CListIterator place = list.head;
    void *element = nullptr;

    EXPECT_EQ(CList_Construct(nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_Destruct(nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_PushHead(nullptr, &one), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_PushTail(nullptr, &one), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_PopHead(nullptr, &element), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_PopHead(&list, nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_StartIterationFromHead(nullptr, &place), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_StartIterationFromHead(&list, nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_GetNext(nullptr, &element, &place), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_GetNext(&list, nullptr, &place), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_GetNext(&list, &element, nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CList_Find(nullptr, &one, isSame, nullptr), 0u);
    EXPECT_EQ(CList_Find(&list, &one, nullptr, nullptr), 0u);
    EXPECT_EQ(CList_FindAndRetrieve(nullptr, &one, isSame, &element), 0u);
    EXPECT_EQ(CList_FindAndRetrieve(&list, &one, nullptr, &element), 0u);
    EXPECT_EQ(CList_FindAndRetrieve(&list, &one, isSame, nullptr), 0u);
    EXPECT_NE(CList_IsEmpty(nullptr), 0u);
    EXPECT_EQ(CList_CurrentSize(nullptr), 0u);
    EXPECT_EQ(CList_CurrentSize(&list), 1u);
}

TEST_F(StandInList, Find_OfAnElementThatIsNotThereLeavesThePlaceAlone) {
    CListIterator place = list.head;

    EXPECT_EQ(CList_Find(&list, &two, isSame, &place), 0u);

    EXPECT_EQ(place, list.head);
}

TEST_F(StandInList, StartIteration_OfAnEmptyListFails) {
    CList empty{};
    CListIterator place = list.head;

    EXPECT_EQ(CList_StartIterationFromHead(&empty, &place), GCL_NOT_IN_LIST);
}

class StandInTable : public testing::Test {
protected:
    StandInTable() { EXPECT_EQ(CHashTable_Construct(&table, 8), GCL_OK); }
    ~StandInTable() override { CHashTable_Destruct(&table); }

    CHashTable table{};
    int one = 1;
    int two = 2;
};

TEST_F(StandInTable, NullArguments_AreRefused) {
    void *value = nullptr;

    EXPECT_EQ(CHashTable_Construct(nullptr, 1), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Destruct(nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Set(nullptr, "key", &one), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Set(&table, nullptr, &one), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Get(nullptr, "key", &value), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Get(&table, nullptr, &value), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Get(&table, "key", nullptr), GCL_INVALID_ARGUMENT);
    EXPECT_EQ(CHashTable_Count(nullptr), 0u);
    EXPECT_EQ(CHashTable_Count(&table), 0u);
}

TEST_F(StandInTable, Construct_ForMoreEntriesThanMemoryCanHoldFails) {
    CHashTable huge{};

    EXPECT_EQ(CHashTable_Construct(&huge, ~0ul), GCL_OUT_OF_MEMORY);

    EXPECT_EQ(CHashTable_Count(&huge), 0u);
    EXPECT_EQ(CHashTable_Destruct(&huge), GCL_OK);
}

TEST_F(StandInTable, Destruct_LeavesATableThatHoldsNothingAndCanBeDestructedAndConstructedAgain) {
    ASSERT_EQ(CHashTable_Set(&table, "key", &one), GCL_OK);
    void *value = nullptr;

    EXPECT_EQ(CHashTable_Destruct(&table), GCL_OK);

    EXPECT_EQ(CHashTable_Count(&table), 0u);
    EXPECT_EQ(CHashTable_Get(&table, "key", &value), GCL_NOT_IN_LIST);
    EXPECT_EQ(CHashTable_Destruct(&table), GCL_OK);
    EXPECT_EQ(CHashTable_Construct(&table, 0), GCL_OK);
    EXPECT_EQ(CHashTable_Set(&table, "key", &two), GCL_OK);
    EXPECT_EQ(CHashTable_Get(&table, "key", &value), GCL_OK);
    EXPECT_EQ(value, &two);
}

TEST_F(StandInTable, AnAbsentKey_IsNotInTheList) {
    void *value = &one;

    EXPECT_EQ(CHashTable_Get(&table, "absent", &value), GCL_NOT_IN_LIST);

    EXPECT_EQ(value, &one);
}

} // namespace
