// What every platform owes the library; runs on the stand-ins and on any other.
#include "CList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "AllocationFailure.h"
#include "ContainerAnswers.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

uint32_t isSame(const void *element, const void *key) {
    return element == key ? 1 : 0;
}
uint32_t hasValue(const void *element, const void *key) {
    return *static_cast<const int *>(element) == *static_cast<const int *>(key) ? 0x100 : 0;
}

class CListTest : public testing::Test {
protected:
    ~CListTest() override { CList_Destruct(&m_list); }

    void push(std::initializer_list<int *> elements) {
        for (auto *element : elements) {
            ASSERT_EQ(CList_PushTail(&m_list, element), test::done);
        }
    }

    /// The elements that an iteration hands out, checked against the list's own idea of the last one.
    std::vector<const void *> elements() {
        std::vector<const void *> found;
        CListIterator place{};
        auto result = CList_StartIterationFromHead(&m_list, &place);
        while (result == test::done) {
            void *element = nullptr;
            result = CList_GetNext(&m_list, &element, &place);
            found.push_back(element);
        }
        if (found.empty()) {
            EXPECT_THAT(result, AnyOf(test::exhausted, test::lastElement));
        } else {
            EXPECT_EQ(result, test::lastElement);
        }
        EXPECT_EQ(found.size(), CList_CurrentSize(&m_list));
        return found;
    }

    CList m_list{};
    int m_one = 1;
    int m_two = 2;
    int m_three = 3;
};

TEST_F(CListTest, AnAllZeroRecord_IsAnEmptyListThatTakesElements) {
    EXPECT_NE(CList_IsEmpty(&m_list), 0u);
    EXPECT_EQ(CList_CurrentSize(&m_list), 0u);
    EXPECT_THAT(elements(), IsEmpty());

    push({&m_one});

    EXPECT_THAT(elements(), ElementsAre(&m_one));
}

TEST_F(CListTest, Construct_MakesAnEmptyListOfWhateverTheRecordHeld) {
    CList list;
    std::memset(&list, 0xA5, sizeof(list));

    EXPECT_EQ(CList_Construct(&list), test::done);

    EXPECT_NE(CList_IsEmpty(&list), 0u);
    EXPECT_EQ(CList_PushHead(&list, &m_one), test::done);
    EXPECT_EQ(CList_CurrentSize(&list), 1u);
    EXPECT_EQ(CList_Destruct(&list), test::done);
}

TEST_F(CListTest, Destruct_LeavesAnEmptyListThatCanBeUsedAndDestructedAgain) {
    push({&m_one, &m_two});

    EXPECT_EQ(CList_Destruct(&m_list), test::done);

    EXPECT_NE(CList_IsEmpty(&m_list), 0u);
    EXPECT_EQ(CList_Destruct(&m_list), test::done);
    push({&m_three});
    EXPECT_THAT(elements(), ElementsAre(&m_three));
}

TEST_F(CListTest, PushTail_KeepsTheOrderOfInsertion) {
    push({&m_one, &m_two, &m_three});

    EXPECT_EQ(CList_IsEmpty(&m_list), 0u);
    EXPECT_THAT(elements(), ElementsAre(&m_one, &m_two, &m_three));
}

TEST_F(CListTest, PushHead_PutsTheNewestFirst) {
    for (auto *element : {&m_one, &m_two, &m_three}) {
        EXPECT_EQ(CList_PushHead(&m_list, element), test::done);
    }

    EXPECT_THAT(elements(), ElementsAre(&m_three, &m_two, &m_one));
}

TEST_F(CListTest, PushHeadAndPushTail_WorkOnTheSameList) {
    push({&m_two});
    EXPECT_EQ(CList_PushHead(&m_list, &m_one), test::done);
    push({&m_three});

    EXPECT_THAT(elements(), ElementsAre(&m_one, &m_two, &m_three));
}

TEST_F(CListTest, TheSameElement_CanBeInTheListTwice) {
    push({&m_one, &m_one});

    EXPECT_THAT(elements(), ElementsAre(&m_one, &m_one));
}

TEST_F(CListTest, ANullElement_IsAnElementLikeAnyOther) {
    push({nullptr});

    EXPECT_THAT(elements(), ElementsAre(nullptr));
}

TEST_F(CListTest, PopHead_HandsOutTheElementsFromTheFrontUntilTheListIsEmpty) {
    push({&m_one, &m_two});
    void *element = nullptr;

    EXPECT_EQ(CList_PopHead(&m_list, &element), test::done);
    EXPECT_EQ(element, &m_one);
    EXPECT_THAT(elements(), ElementsAre(&m_two));
    EXPECT_EQ(CList_PopHead(&m_list, &element), test::done);
    EXPECT_EQ(element, &m_two);
    EXPECT_NE(CList_IsEmpty(&m_list), 0u);
    push({&m_three});
    EXPECT_THAT(elements(), ElementsAre(&m_three));
}

TEST_F(CListTest, PopHead_OfAnEmptyListFailsAndLeavesTheElementAlone) {
    void *element = &m_one;

    EXPECT_EQ(CList_PopHead(&m_list, &element), test::exhausted);

    EXPECT_EQ(element, &m_one);
}

TEST_F(CListTest, Find_OfAnElementThatIsThereYieldsItsPlace) {
    push({&m_one, &m_two, &m_three});
    CListIterator place{};
    void *element = nullptr;

    EXPECT_NE(CList_Find(&m_list, &m_two, isSame, &place), 0u);

    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::done);
    EXPECT_EQ(element, &m_two);
    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::lastElement);
    EXPECT_EQ(element, &m_three);
}

TEST_F(CListTest, Find_WithoutAPlaceForTheIteratorOnlyAnswers) {
    push({&m_one});

    EXPECT_NE(CList_Find(&m_list, &m_one, isSame, nullptr), 0u);
    EXPECT_EQ(CList_Find(&m_list, &m_two, isSame, nullptr), 0u);
}

TEST_F(CListTest, FindAndRetrieve_HandsOutTheFirstMatchAndKeepsItInTheList) {
    int alsoTwo = 2;
    push({&m_one, &m_two, &alsoTwo});
    const int key = 2;
    void *element = nullptr;

    EXPECT_NE(CList_FindAndRetrieve(&m_list, &key, hasValue, &element), 0u);

    EXPECT_EQ(element, &m_two);
    EXPECT_THAT(elements(), ElementsAre(&m_one, &m_two, &alsoTwo));
}

TEST_F(CListTest, FindAndRetrieve_WithoutAMatchLeavesTheElementAlone) {
    push({&m_one});
    const int key = 7;
    void *element = &m_three;

    EXPECT_EQ(CList_FindAndRetrieve(&m_list, &key, hasValue, &element), 0u);

    EXPECT_EQ(element, &m_three);
}

TEST_F(CListTest, FindInAnEmptyList_AnswersNoWithoutCallingTheMatcher) {
    const auto neverCalled = [](const void *, const void *) -> uint32_t {
        ADD_FAILURE() << "called for an element that is not there";
        return 1;
    };

    EXPECT_EQ(CList_Find(&m_list, &m_one, neverCalled, nullptr), 0u);
}

TEST_F(CListTest, StartIteration_OfAnEmptyListFailsOrSaysThatThereIsNoMore) {
    CListIterator place{};

    EXPECT_THAT(CList_StartIterationFromHead(&m_list, &place), AnyOf(test::exhausted, test::lastElement));
}

TEST_F(CListTest, GetNext_HandsOutTheOnlyElementAsTheLastOne) {
    push({&m_one});
    CListIterator place{};
    void *element = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&m_list, &place), test::done);

    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::lastElement);

    EXPECT_EQ(element, &m_one);
}

TEST_F(CListTest, GetNext_AfterTheLastElementFailsAndLeavesTheElementAlone) {
    push({&m_one});
    CListIterator place{};
    void *element = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&m_list, &place), test::done);
    ASSERT_EQ(CList_GetNext(&m_list, &element, &place), test::lastElement);
    element = &m_three;

    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::exhausted);

    EXPECT_EQ(element, &m_three);
}

TEST_F(CListTest, AnIteration_SurvivesElementsThatAreAddedMeanwhile) {
    push({&m_one, &m_two});
    CListIterator place{};
    void *element = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&m_list, &place), test::done);

    ASSERT_EQ(CList_PushHead(&m_list, &m_three), test::done);
    ASSERT_EQ(CList_PushTail(&m_list, &m_three), test::done);

    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::done);
    EXPECT_EQ(element, &m_one);
    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::done);
    EXPECT_EQ(element, &m_two);
    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::lastElement);
    EXPECT_EQ(element, &m_three);
}

TEST_F(CListTest, TwoIterations_DoNotDisturbEachOther) {
    push({&m_one, &m_two});
    CListIterator first{};
    CListIterator second{};
    void *element = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&m_list, &first), test::done);
    ASSERT_EQ(CList_StartIterationFromHead(&m_list, &second), test::done);
    ASSERT_EQ(CList_GetNext(&m_list, &element, &first), test::done);

    EXPECT_EQ(CList_GetNext(&m_list, &element, &second), test::done);

    EXPECT_EQ(element, &m_one);
}

TEST_F(CListTest, ACopiedPlace_GoesOnByItself) {
    push({&m_one, &m_two});
    CListIterator place{};
    void *element = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&m_list, &place), test::done);
    CListIterator copy = place;
    ASSERT_EQ(CList_GetNext(&m_list, &element, &place), test::done);

    EXPECT_EQ(CList_GetNext(&m_list, &element, &copy), test::done);

    EXPECT_EQ(element, &m_one);
}

TEST_F(CListTest, Push_WithoutMemoryFailsAndLeavesTheListAsItWas) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    push({&m_one, &m_two});

    {
        const test::AllocationFailure shortage;
        EXPECT_EQ(CList_PushHead(&m_list, &m_three), test::outOfMemory);
        EXPECT_EQ(CList_PushTail(&m_list, &m_three), test::outOfMemory);
        EXPECT_TRUE(test::isStandIn ? shortage.failures() == 2 : shortage.failures() >= 2);
    }

    EXPECT_THAT(elements(), ElementsAre(&m_one, &m_two));
    push({&m_three});
    EXPECT_THAT(elements(), ElementsAre(&m_one, &m_two, &m_three));
}

TEST_F(CListTest, ReadingAndRemoving_NeedNoMemory) {
    if (!test::allocationsCanFail) {
        GTEST_SKIP() << "the sanitizer's operator new can not be replaced";
    }
    push({&m_one, &m_two});
    const test::AllocationFailure shortage;
    CListIterator place{};
    void *element = nullptr;

    EXPECT_EQ(CList_StartIterationFromHead(&m_list, &place), test::done);
    EXPECT_EQ(CList_GetNext(&m_list, &element, &place), test::done);
    EXPECT_NE(CList_Find(&m_list, &m_two, isSame, nullptr), 0u);
    EXPECT_NE(CList_FindAndRetrieve(&m_list, &m_two, isSame, &element), 0u);
    EXPECT_EQ(CList_PopHead(&m_list, &element), test::done);
    EXPECT_EQ(CList_Destruct(&m_list), test::done);

    EXPECT_EQ(shortage.failures(), 0u);
}

TEST_F(CListTest, AMillionElements_AreKeptInOrder) {
    std::vector<char> places(1000000);
    for (auto &place : places) {
        ASSERT_EQ(CList_PushTail(&m_list, &place), test::done);
    }

    const auto found = elements();

    ASSERT_EQ(found.size(), places.size());
    for (std::size_t number = 0; number < places.size(); ++number) {
        ASSERT_EQ(found[number], &places[number]);
    }
}

} // namespace
