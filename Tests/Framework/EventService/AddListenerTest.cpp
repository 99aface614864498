#include <fcntl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "EventService.h"

namespace {

using test::Line;
using test::Lines;
using test::Listener;
using testing::ElementsAre;
using testing::IsEmpty;

class AddListener : public test::EventService {
protected:
    Line queueNamed(const Listener &listener) {
        return {"CFrameworkUtils_GetMQueueName", "  MQueueName = " + listener.queue(), 0x800};
    }
};

TEST_F(AddListener, BeforeInitialize_IsNotInitializedAndTraced_WhateverTheArguments) {
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_AddListener(nullptr, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ((Lines{{"CEventHandler_AddListener", "CEventHandler has not been initialized", 0x8014}}), traced());
}

TEST_F(AddListener, WithoutCallbackNameOrHandle_IsRefusedWithoutATrace) {
    initialize();
    Listener listener("A");
    std::uint32_t handle = 77;
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_AddListener(nullptr, nullptr, 0, "A", &handle));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_AddListener(listener.callback(), nullptr, 0, nullptr, &handle));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_AddListener(listener.callback(), nullptr, 0, "", &handle));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_AddListener(listener.callback(), nullptr, 0, "A", nullptr));
    EXPECT_EQ(77u, handle);
    EXPECT_EQ(0u, statistics().noOfListeners);
    EXPECT_EQ(-1, listener.waiting()) << "no queue is made";
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(AddListener, ChecksItsArgumentsBeforeItsCapacity) {
    initialize(1, 0);
    std::uint32_t handle = 77;
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_AddListener(nullptr, nullptr, 0, "A", &handle));
    Listener listener("A");
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, listener.add());
}

TEST_F(AddListener, BeyondTheCapacity_IsRefusedWithoutATraceOrAQueue) {
    initialize(1, 2);
    Listener first("A");
    Listener second("B");
    Listener third("C");
    EXPECT_EQ(eAF_S_OK, first.add());
    EXPECT_EQ(eAF_S_OK, second.add());
    forgetTraces();
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, third.add());
    EXPECT_EQ(~0u, third.handle());
    EXPECT_EQ(-1, third.waiting());
    EXPECT_EQ(2u, statistics().noOfListeners);
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(AddListener, HandsOutHandlesInOrderAndTracesOnlyTheQueuesName) {
    initialize();
    Listener first("A");
    Listener second("B");
    EXPECT_EQ(eAF_S_OK, first.add());
    EXPECT_EQ(0u, first.handle());
    EXPECT_EQ(1u, statistics().noOfListeners);
    EXPECT_EQ(eAF_S_OK, second.add());
    EXPECT_EQ(1u, second.handle());
    EXPECT_EQ(2u, statistics().noOfListeners);
    EXPECT_EQ((Lines{queueNamed(first), queueNamed(second)}), traced());
}

TEST_F(AddListener, WithoutAFilter_HearsEveryEventRegisteredSoFarAndNoneLater) {
    initialize();
    registerEvents({1, 2});
    Listener listener("A");
    EXPECT_EQ(eAF_S_OK, listener.add());
    registerEvents({3});
    for (const std::uint32_t id : {1u, 2u, 3u}) {
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(id));
    }
    listener.pumpAll();
    EXPECT_THAT(listener.ids(), ElementsAre(1, 2));
}

TEST_F(AddListener, WithoutAFilterBeforeAnyEvent_HearsNothingEver) {
    initialize();
    Listener listener("A");
    EXPECT_EQ(eAF_S_OK, listener.add());
    registerEvents({1, 0});
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(0));
    EXPECT_EQ(0, listener.waiting());
}

TEST_F(AddListener, ANullFilterOrACountOfZero_IsNoFilter) {
    initialize();
    registerEvents({1, 2});
    const std::vector<std::uint32_t> filter{2};
    Listener nullFilter("A");
    Listener noEntries("B");
    std::uint32_t handle = 0;
    EXPECT_EQ(eAF_S_OK, CEventHandler_AddListener(nullFilter.callback(), nullptr, 5, "A", &handle));
    EXPECT_EQ(eAF_S_OK, CEventHandler_AddListener(noEntries.callback(), filter.data(), 0, "B", &handle));
    CEventHandler_FireEvent(1);
    EXPECT_EQ(1, nullFilter.waiting());
    EXPECT_EQ(1, noEntries.waiting());
}

TEST_F(AddListener, WithAFilter_HearsItsEventsOnly) {
    initialize();
    registerEvents({1, 2, 3});
    Listener listener("A");
    EXPECT_EQ(eAF_S_OK, listener.add({3, 1}));
    for (const std::uint32_t id : {1u, 2u, 3u}) {
        CEventHandler_FireEvent(id);
    }
    listener.pumpAll();
    EXPECT_THAT(listener.ids(), ElementsAre(1, 3));
}

TEST_F(AddListener, WithAFilterEntryOfATakenId_ListensToTheFirstRecord) {
    initialize();
    registerEvents({1, 1});
    Listener everything("A");
    Listener filtered("B");
    everything.add();
    filtered.add({1});
    CEventHandler_FireEvent(1);
    EXPECT_EQ(1, everything.waiting()) << "the second record is never fired";
    EXPECT_EQ(1, filtered.waiting());
}

TEST_F(AddListener, WithUnknownFilterEntries_StaysRegisteredAndFails) {
    initialize();
    registerEvents({1, 2});
    Listener listener("A");
    EXPECT_EQ(eAF_E_FAILED, listener.add({7, 1, 0xFFFFFFF0u, 2}));
    EXPECT_EQ((Lines{queueNamed(listener),
                     {"CEventHandler_FindEventIndex", "Unknown event id: 7", 0x800E},
                     {"CEventHandler_AddListener", "Unknown event filter for listener A", 0x8000},
                     {"CEventHandler_FindEventIndex", "Unknown event id: -16", 0x800E},
                     {"CEventHandler_AddListener", "Unknown event filter for listener A", 0x8000}}),
              traced());
    EXPECT_EQ(0u, listener.handle());
    EXPECT_EQ(1u, statistics().noOfListeners);
    CEventHandler_FireEvent(1);
    CEventHandler_FireEvent(2);
    listener.pumpAll();
    EXPECT_THAT(listener.ids(), ElementsAre(1, 2));
}

TEST_F(AddListener, WithAFilterBeforeAnyEvent_FindsNone) {
    initialize();
    Listener listener("A");
    EXPECT_EQ(eAF_E_FAILED, listener.add({0}));
    EXPECT_EQ((Lines{queueNamed(listener),
                     {"CEventHandler_FindEventIndex", "Unknown event id: 0", 0x800E},
                     {"CEventHandler_AddListener", "Unknown event filter for listener A", 0x8000}}),
              traced());
}

TEST_F(AddListener, ARepeatedFilterEntry_IsServedAsOftenAsItIsListed) {
    initialize(2, 2);
    registerEvents({1, 2});
    Listener greedy("A");
    Listener other("B");
    EXPECT_EQ(eAF_S_OK, greedy.add({1, 2, 1, 1, 1}));
    EXPECT_EQ(eAF_S_OK, other.add());
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    EXPECT_EQ(4, greedy.waiting()) << "past the two listeners that were asked for";
    EXPECT_EQ(1, other.waiting());
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(2));
    greedy.pumpAll();
    EXPECT_THAT(greedy.ids(), ElementsAre(1, 1, 1, 1, 2));
}

TEST_F(AddListener, AUnfilteredListenerBehindAFullList_IsStillServed) {
    initialize(1, 2);
    registerEvents({1});
    Listener greedy("A");
    Listener second("B");
    greedy.add({1, 1});
    EXPECT_EQ(eAF_S_OK, second.add());
    CEventHandler_FireEvent(1);
    EXPECT_EQ(2, greedy.waiting());
    EXPECT_EQ(1, second.waiting());
}

TEST_F(AddListener, WithAFilter_ClearsTheCacheMissesAfterEachEntry) {
    initialize();
    registerEvents({1, 2});
    CEventHandler_FireEvent(1);
    ASSERT_EQ(1u, statistics().noOfCacheMisses);
    Listener unfiltered("A");
    unfiltered.add();
    EXPECT_EQ(1u, statistics().noOfCacheMisses) << "no filter, no clearing";
    Listener filtered("B");
    filtered.add({2});
    EXPECT_EQ(0u, statistics().noOfCacheMisses);
    CEventHandler_FireEvent(2);
    ASSERT_EQ(1u, statistics().noOfCacheMisses);
    Listener unknown("C");
    unknown.add({9});
    EXPECT_EQ(0u, statistics().noOfCacheMisses) << "found or not";
}

TEST_F(AddListener, AFilterEntry_IsNotCached) {
    initialize();
    registerEvents({1});
    Listener listener("A");
    listener.add({1});
    CEventHandler_FireEvent(1);
    EXPECT_EQ(1u, statistics().noOfCacheMisses) << "the first firing still misses";
}

TEST_F(AddListener, ReplacesAQueueThatWasLeftBehind) {
    initialize();
    registerEvents({1});
    Listener listener("A");
    mq_attr attributes{};
    attributes.mq_maxmsg = 3;
    attributes.mq_msgsize = 99;
    const mqd_t leftBehind = mq_open(listener.queue().c_str(), O_RDWR | O_CREAT | O_EXCL, mode_t{0600}, &attributes);
    ASSERT_NE(-1, leftBehind);
    ASSERT_EQ(0, mq_send(leftBehind, "old", 3, 0));
    EXPECT_EQ(eAF_S_OK, listener.add());
    EXPECT_EQ(0, listener.waiting()) << "what the old one held is not the listener's";
    CEventHandler_FireEvent(1);
    EXPECT_EQ(1, listener.waiting());
    mq_getattr(leftBehind, &attributes);
    EXPECT_EQ(1, attributes.mq_curmsgs);
    mq_close(leftBehind);
}

TEST_F(AddListener, TwiceUnderOneName_LeavesTheFirstWithAQueueThatNobodyCanName) {
    initialize();
    registerEvents({1});
    Listener first("A");
    Listener second("A");
    EXPECT_EQ(eAF_S_OK, first.add());
    EXPECT_EQ(eAF_S_OK, second.add());
    CEventHandler_FireEvent(1);
    first.pump();
    second.pump();
    EXPECT_THAT(first.ids(), ElementsAre(1));
    EXPECT_THAT(second.ids(), ElementsAre(1));
}

TEST_F(AddListener, WithANameThatTheSystemRefuses_TracesItsTextAndIsNotCounted) {
    initialize();
    Listener refused("a/b");
    EXPECT_EQ(eAF_E_QUEUE_CREATION_FAILED, refused.add());
    EXPECT_EQ((Lines{queueNamed(refused), {"CEventHandler_AddListener", test::errorText(EACCES), 0x800F}}), traced());
    EXPECT_EQ(~0u, refused.handle());
    EXPECT_EQ(0u, statistics().noOfListeners);

    Listener next("A");
    EXPECT_EQ(eAF_S_OK, next.add());
    EXPECT_EQ(0u, next.handle());
}

TEST_F(AddListener, AFailedQueue_EndsBeforeTheFilterIsLookedAt) {
    initialize();
    registerEvents({1});
    CEventHandler_FireEvent(1);
    Listener refused("a/b");
    EXPECT_EQ(eAF_E_QUEUE_CREATION_FAILED, refused.add({1, 9}));
    EXPECT_EQ(1u, statistics().noOfCacheMisses);
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1)) << "it is in no event's list";
}

TEST_F(AddListener, ALongName_IsCutTo29BytesInTracesAndNamesItsQueueInFull) {
    initialize();
    registerEvents({1});
    const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJ";
    for (const std::size_t length : {std::size_t{29}, std::size_t{30}, letters.size()}) {
        Listener listener(letters.substr(0, length), eAF_E_FAILED);
        ASSERT_EQ(eAF_E_FAILED, listener.add({1, 9}));
        EXPECT_TRUE(test::queueExists(listener.queue()));
        CEventHandler_FireEvent(1);
        forgetTraces();
        listener.pump();
        EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Error response from listener " + letters.substr(0, 29),
                          0x8000}}),
                  traced());
        if (length != letters.size()) {
            unInitialize();
            initialize();
            registerEvents({1});
        }
    }
    EXPECT_THAT(test::TraceRecorder::failures(),
                testing::Contains(Line{"CEventHandler_AddListener",
                                       "Unknown event filter for listener " + letters.substr(0, 29), 0x8000}));
}

TEST_F(AddListener, ANameBeyondTheQueueNamesBuffer_OpensTheCutName) {
    initialize();
    registerEvents({1});
    Listener listener(std::string(300, 'x'));
    const std::string cut = test::expectedQueueName(std::string(300, 'x')).substr(0, 255);
    mq_unlink(cut.c_str());
    EXPECT_EQ(eAF_S_OK, listener.add());
    EXPECT_EQ((Lines{{"CFrameworkUtils_GetMQueueName", "  MQueueName = " + cut, 0x800}}), traced());
    EXPECT_EQ(0, test::messagesIn(cut));
    CEventHandler_FireEvent(1);
    listener.pump();
    EXPECT_THAT(listener.ids(), ElementsAre(1));
    mq_unlink(cut.c_str());
}

TEST_F(AddListener, KeepsTheCallersCallbackRecordItself) {
    initialize();
    registerEvents({1});
    Listener listener("A");
    Listener replacement("B");
    listener.add();
    *listener.callback() = *replacement.callback();
    CEventHandler_FireEvent(1);
    listener.pump();
    EXPECT_THAT(listener.ids(), IsEmpty());
    ASSERT_THAT(replacement.ids(), ElementsAre(1));
    EXPECT_EQ(listener.callback(), replacement.deliveries[0].self);
}

} // namespace
