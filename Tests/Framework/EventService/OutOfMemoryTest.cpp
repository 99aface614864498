// Each allocation of the library refused in turn: a clear answer, everything as it was, nothing lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "Allocations.h"
#include "CEventCache.h"
#include "EventService.h"

namespace {

using test::blocksOfLibrary;
using test::Lines;
using test::Listener;
using test::RefusedAllocation;
using testing::ElementsAre;

class OutOfMemory : public test::EventService {
protected:
    OutOfMemory() {
        // What a first life makes for good is not lost by a later one.
        initialize();
        unInitialize();
    }

    /// A life ends when its worker's last block is gone.
    static bool allGivenBack(std::int64_t before) {
        return test::eventually([before] { return blocksOfLibrary() == before; });
    }
};

/// Nothing was initialized before: what a first life makes for good is refused too.
using FirstLifeOutOfMemory = test::EventService;

TEST_F(FirstLifeOutOfMemory, WhatAFailedInitializeMakesForGood_IsMadeOnce) {
    {
        const RefusedAllocation refusal(0);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(5, 3)) << "that is refused too";
    }
    std::vector<std::int64_t> blocks;
    for (int i = 0; i < 2; ++i) {
        const RefusedAllocation refusal(1);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(5, 3));
        EXPECT_EQ(1u, refusal.refused());
        blocks.push_back(blocksOfLibrary());
    }
    EXPECT_EQ(blocks[0], blocks[1]);
}

TEST_F(FirstLifeOutOfMemory, Initialize_WithTheFirstAllocationRefused_IsOutOfMemoryAndNotInitialized) {
    {
        const RefusedAllocation refusal(0);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(5, 3));
        EXPECT_EQ(1u, refusal.refused());
    }
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
    initialize();
}

TEST_F(OutOfMemory, Initialize_WithAnyAllocationRefused_IsOutOfMemoryAndNotInitialized) {
    const std::int64_t before = blocksOfLibrary();
    std::uint32_t allowed = 0;
    for (;; ++allowed) {
        EAFResult result = eAF_S_OK;
        std::uint32_t refused = 0;
        {
            const RefusedAllocation refusal(allowed);
            result = CEventHandler_Initialize(5, 3);
            refused = refusal.refused();
        }
        if (refused == 0) {
            EXPECT_EQ(eAF_S_OK, result);
            break;
        }
        ASSERT_EQ(eAF_E_OUT_OF_MEMORY, result) << "after " << allowed;
        EXPECT_EQ(before, blocksOfLibrary()) << "after " << allowed;
        EXPECT_EQ(32788u, CEventHandler_GetNumberOfRegisteredEvents());
        EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
        EXPECT_TRUE(workerHasLeft()) << "none was made";
        EXPECT_FALSE(test::queueExists(test::expectedTaskQueueName()));
    }
    EXPECT_GE(allowed, 5u) << "events, listeners, lists, cache and the task's run at least";
    unInitialize();
    EXPECT_TRUE(allGivenBack(before));
}

TEST_F(OutOfMemory, Initialize_WithEveryAllocationRefused_IsTheSame) {
    for (std::uint32_t allowed = 0; allowed < 4; ++allowed) {
        const RefusedAllocation refusal(allowed, true);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(5, 3));
    }
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
    initialize();
}

TEST_F(OutOfMemory, Initialize_OutOfMemory_TracesNoError) {
    const RefusedAllocation refusal(0);
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(5, 3));
    EXPECT_EQ(Lines{}, test::TraceRecorder::failures());
}

TEST_F(OutOfMemory, AddListener_WithRepeatedFilterEntries_LeavesEverythingAsItWas) {
    initialize(3, 2);
    registerEvents({1, 2, 3});
    Listener first("A");
    ASSERT_EQ(eAF_S_OK, first.add({1, 2}));
    CEventHandler_FireEvent(3);
    forgetTraces();
    const std::int64_t before = blocksOfLibrary();
    // Two lists grow past the two listeners that were asked for: either growth is refused.
    for (std::uint32_t allowed = 0; allowed < 2; ++allowed) {
        Listener greedy("B");
        {
            const RefusedAllocation refusal(allowed);
            EXPECT_EQ(eAF_E_OUT_OF_MEMORY, greedy.add({3, 1, 1, 1, 9, 2, 2, 2}));
            EXPECT_EQ(1u, refusal.refused());
        }
        EXPECT_EQ(~0u, greedy.handle());
        EXPECT_EQ(-1, greedy.waiting()) << "no queue";
        EXPECT_EQ(1u, statistics().noOfListeners);
        EXPECT_EQ(1u, statistics().noOfCacheMisses) << "the filter was not gone through";
        EXPECT_EQ(Lines{}, traced());
        for (const std::uint32_t id : {1u, 2u, 3u}) {
            EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(id));
        }
        first.pumpAll();
        EXPECT_THAT(first.ids(), ElementsAre(1, 2));
        first.deliveries.clear();
        CEventHandler_ResetStatistics();
        unInitialize();
        initialize(3, 2);
        registerEvents({1, 2, 3});
        ASSERT_EQ(eAF_S_OK, first.add({1, 2}));
        CEventHandler_FireEvent(3);
        forgetTraces();
    }
    Listener greedy("B");
    EXPECT_EQ(eAF_E_FAILED, greedy.add({3, 1, 1, 1, 9, 2, 2, 2})) << "with memory: all but the unknown one";
    EXPECT_EQ(1u, greedy.handle());
    EXPECT_GT(blocksOfLibrary(), before);
    CEventHandler_FireEvent(1);
    EXPECT_EQ(3, greedy.waiting());
    unInitialize();
}

TEST_F(OutOfMemory, AddListener_WithoutAFilterToAFullList_LeavesEverythingAsItWas) {
    initialize(2, 2);
    registerEvents({1, 2});
    Listener greedy("A");
    ASSERT_EQ(eAF_S_OK, greedy.add({2, 2}));
    Listener listener("B");
    {
        const RefusedAllocation refusal(0);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, listener.add());
        EXPECT_EQ(1u, refusal.refused());
    }
    EXPECT_EQ(-1, listener.waiting()) << "no queue";
    EXPECT_EQ(1u, statistics().noOfListeners);
    EXPECT_EQ(eAF_S_OK, listener.add());
    CEventHandler_FireEvent(2);
    EXPECT_EQ(1, listener.waiting());
    EXPECT_EQ(2, greedy.waiting());
}

TEST_F(OutOfMemory, AddListener_WithinTheCapacity_NeedsNoMemory) {
    initialize(2, 2);
    registerEvents({1, 2});
    Listener first("A");
    Listener second("B");
    const RefusedAllocation refusal(0, true);
    EXPECT_EQ(eAF_S_OK, first.add());
    EXPECT_EQ(eAF_S_OK, second.add({1, 2}));
    EXPECT_EQ(0u, refusal.refused());
}

TEST_F(OutOfMemory, OnlyCopiedDataNeedsMemoryToFireAndPump) {
    initialize(2, 2);
    registerEvents({1, 2});
    Listener listener("A");
    listener.add();
    const RefusedAllocation refusal(0, true);
    int object = 0;
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithData(2, &object));
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireUrgentEvent(1));
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireUrgentEventWithData(2, &object));
    listener.pump(4);
    EXPECT_EQ(4u, listener.deliveries.size());
    EXPECT_EQ(0u, refusal.refused());
}

TEST_F(OutOfMemory, ACopyThatCouldNotBeMade_CountsAsAFailedSendAndTheOthersHaveTheirs) {
    initialize(1, 3);
    registerEvents({1});
    Listener listeners[]{Listener("A"), Listener("B"), Listener("C")};
    for (Listener &listener : listeners) {
        listener.bytesToKeep = 4;
        listener.add();
    }
    forgetTraces();
    const std::int64_t before = blocksOfLibrary();
    for (std::uint32_t withoutCopy = 0; withoutCopy < 3; ++withoutCopy) {
        {
            const RefusedAllocation refusal(withoutCopy);
            EXPECT_EQ(eAF_W_NOT_ALL_EVENTS_SENT, CEventHandler_FireEventWithCopiedData(1, "copy", 4));
            EXPECT_EQ(1u, refusal.refused());
        }
        for (std::uint32_t i = 0; i < 3; ++i) {
            EXPECT_EQ(i == withoutCopy ? 0 : 1, listeners[i].waiting());
            listeners[i].pumpAll();
        }
        EXPECT_EQ(before, blocksOfLibrary()) << "each copy is freed after its callback";
    }
    EXPECT_EQ(Lines{}, traced());
    EXPECT_EQ("copy", listeners[0].deliveries.back().copy);
}

TEST_F(OutOfMemory, ACopyWhoseSendFailed_IsNotLost) {
    initialize(1, 1);
    registerEvents({1});
    Listener listener("A");
    listener.add();
    ASSERT_EQ(0, mq_close(test::descriptorsOn(listener.queue()).at(0)));
    const std::int64_t before = blocksOfLibrary();
    EXPECT_EQ(eAF_W_NOT_ALL_EVENTS_SENT, CEventHandler_FireUrgentEventWithCopiedData(1, "copy", 4));
    EXPECT_EQ(before, blocksOfLibrary());
}

TEST_F(OutOfMemory, ACopyThatAPumpDrops_IsNotLost) {
    initialize(1, 1);
    registerEvents({EVENT_ID_STOP});
    Listener listener("A");
    listener.add();
    const std::int64_t before = blocksOfLibrary();
    CEventHandler_FireEventWithCopiedData(EVENT_ID_STOP, "copy", 4);
    CEventHandler_FireEventWithCopiedData(EVENT_ID_STOP, "copy", 4);
    listener.pump();
    errno = EINTR;
    listener.pump();
    errno = 0;
    EXPECT_EQ(before, blocksOfLibrary()) << "neither behind the stop mark nor behind a stale errno";
    EXPECT_EQ(0u, listener.deliveries.size());
}

TEST_F(OutOfMemory, ATask_WithoutMemoryForItsRun_IsNotCreated) {
    CEventTask task{};
    ITask *operations = nullptr;
    CEventTask_GetInterface(&task, &operations);
    const std::int64_t before = blocksOfLibrary();
    {
        const RefusedAllocation refusal(0);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, operations->Create(operations, "T", 0, 0, 0, 1));
        EXPECT_EQ(1u, refusal.refused());
    }
    EXPECT_EQ(before, blocksOfLibrary());
    EXPECT_TRUE(workerHasLeft());
    EXPECT_FALSE(test::queueExists(test::expectedTaskQueueName("T")));
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(OutOfMemory, ACache_WithoutMemory_HoldsNothing) {
    CEventCache cache{};
    {
        const RefusedAllocation refusal(0);
        CEventCache_Construct(&cache, 64);
        EXPECT_EQ(1u, refusal.refused());
    }
    EXPECT_EQ(0u, cache.capacity);
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventCache_Add(&cache, 1, 1));
    std::uint32_t value = 77;
    EXPECT_EQ(0u, CEventCache_IsHit(&cache, 1, &value));
    EXPECT_EQ(0u, value);
    CEventCache_Destruct(&cache);
}

TEST_F(OutOfMemory, AWholeLife_GivesBackWhatItTook) {
    const std::int64_t before = blocksOfLibrary();
    for (int life = 0; life < 10; ++life) {
        initialize(4, 2);
        registerEvents({1, 2});
        Listener greedy("A");
        greedy.add({1, 1, 1, 2, 2, 2});
        EXPECT_GT(blocksOfLibrary(), before);
        CEventHandler_FireEventWithCopiedData(1, "copy", 4);
        greedy.pumpAll();
        unInitialize();
        EXPECT_TRUE(allGivenBack(before)) << "also the arrays of events that were never registered";
    }
}

} // namespace
