#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "CApplicationFramework.h"
#include "EventService.h"

namespace {

using test::Line;
using test::Lines;
using test::Listener;
using testing::ElementsAre;

class EventHandlerLifecycle : public test::EventService {
protected:
    const std::string m_taskQueue = test::expectedTaskQueueName();
};

TEST_F(EventHandlerLifecycle, Initialize_TracesTheTaskThatItMakes) {
    EXPECT_EQ(eAF_S_OK, CEventHandler_Initialize(4, 2));
    Lines lines = traced();
    // Whether the limit can be raised is up to the machine.
    lines.erase(std::remove(lines.begin(), lines.end(),
                            Line{"CEventHandler_Initialize", "setrlimit() failed, continuing anyway.", 0x100}),
                lines.end());
    EXPECT_EQ((Lines{{"CFrameworkUtils_GetMQueueName", "  MQueueName = " + m_taskQueue, 0x800},
                     {"CEventTask_Create", "  Task instance EHNP created successfully", 0x800}}),
              lines);
}

TEST_F(EventHandlerLifecycle, Initialize_ASecondTime_IsRefusedAndTraced) {
    initialize();
    registerEvents({1});
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, CEventHandler_Initialize(9, 9));
    EXPECT_EQ((Lines{{"CEventHandler_Initialize", "CEventHandler has already been initialized", 0x8015}}), traced());
    EXPECT_EQ(1u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_TRUE(test::queueExists(m_taskQueue));
}

TEST_F(EventHandlerLifecycle, UnInitialize_BeforeInitialize_IsRefusedAndTraced) {
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
    EXPECT_EQ((Lines{{"CEventHandler_UnInitialize", "CEventHandler was previosuly not initialized", 0x8014}}),
              traced());
}

TEST_F(EventHandlerLifecycle, UnInitialize_TracesNothingAndWorksOnce) {
    initialize();
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    EXPECT_EQ(Lines{}, traced());
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
}

TEST_F(EventHandlerLifecycle, TheWorker_EntersItsLoopAndLeavesWhenTheServiceGoes) {
    initialize();
    EXPECT_TRUE(test::eventually([] { return workerTraced("  EventTask (EHNP): Entering main loop"); }));
    EXPECT_FALSE(workerTraced("  EventTask (EHNP): Terminating"));
    unInitialize();
    EXPECT_TRUE(workerTraced("  EventTask (EHNP): Terminating"));
    const auto lines = test::TraceRecorder::workerLines();
    EXPECT_EQ((Line{"CEventTask_OsProcess", "  EventTask (EHNP): Entering main loop", 0x800}), lines.front());
    EXPECT_EQ((Line{"CEventTask_OsProcess", "  EventTask (EHNP): Terminating", 0x800}), lines.back());
}

TEST_F(EventHandlerLifecycle, UnInitialize_RemovesTheTasksQueue) {
    initialize();
    EXPECT_TRUE(test::queueExists(m_taskQueue));
    unInitialize();
    EXPECT_FALSE(test::queueExists(m_taskQueue));
    EXPECT_THAT(test::descriptorsOn(m_taskQueue + " (deleted)"), testing::IsEmpty());
}

TEST_F(EventHandlerLifecycle, UnInitialize_NeitherClosesNorUnlinksTheListenersQueues) {
    initialize();
    registerEvents({1});
    Listener listener("A");
    listener.add();
    CEventHandler_FireEvent(1);
    unInitialize();
    EXPECT_EQ(1, listener.waiting()) << "with what was in it";
    EXPECT_EQ(1u, test::descriptorsOn(listener.queue()).size());
}

TEST_F(EventHandlerLifecycle, AddingAListenerOfTheSameName_ReplacesTheQueueOfTheEarlierRun) {
    initialize();
    registerEvents({1});
    Listener listener("A");
    listener.add();
    CEventHandler_FireEvent(1);
    unInitialize();

    initialize();
    registerEvents({2});
    EXPECT_EQ(1, listener.waiting()) << "until the listener is added again";
    EXPECT_EQ(eAF_S_OK, listener.add());
    EXPECT_EQ(0u, listener.handle()) << "handles begin anew";
    EXPECT_EQ(0, listener.waiting());
    CEventHandler_FireEvent(2);
    listener.pump();
    EXPECT_THAT(listener.ids(), ElementsAre(2));
}

TEST_F(EventHandlerLifecycle, AfterUnInitialize_AFiringFindsNoEvent) {
    initialize();
    registerEvents({1});
    Listener listener("A");
    listener.add();
    CEventHandler_FireEvent(1);
    listener.pump();
    unInitialize();

    EXPECT_EQ(eAF_E_UNKNOWN_EVENT, CEventHandler_FireEvent(1)) << "though it was in the cache";
    EXPECT_EQ((Lines{{"CEventHandler_FindEventIndex", "Unknown event id: 1", 0x800E},
                     {"CEventHandler_FireEventInternal", "Could not find event index for event id 1", 0x800E}}),
              traced());
    EXPECT_EQ(eAF_E_UNKNOWN_EVENT, CEventHandler_FireUrgentEventWithCopiedData(1, "copy", 4));
    SEventDataMessage message{1, nullptr, 0};
    EXPECT_EQ(eAF_E_UNKNOWN_EVENT, CEventHandler_FireEventFromMessageInternal(&message));
    EXPECT_EQ(0, listener.waiting());
}

TEST_F(EventHandlerLifecycle, AfterUnInitialize_EveryHandleIsIllegal) {
    initialize();
    Listener listener("A");
    listener.add();
    unInitialize();
    CEventHandler_PumpEvent(0);
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(0));
    CEventHandler_SendEmptyMessage(0);
    EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Illegal listener handle (0)", 0x8000},
                     {"CEventHandler_PumpEventInternal", "Illegal listener handle (0)", 0x8000},
                     {"CEventHandler_SendEmptyMessage", "Illegal listener handle (0)", 0x8000}}),
              traced());
}

TEST_F(EventHandlerLifecycle, AfterUnInitialize_NothingCanBeRegistered) {
    initialize();
    unInitialize();
    Listener listener("A");
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_RegisterEvent(1, "one"));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, listener.add());
    EXPECT_EQ(32788u, CEventHandler_GetNumberOfRegisteredEvents());
    SEventHandlerStatistics statistics{};
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_GetStatistics(&statistics));
}

TEST_F(EventHandlerLifecycle, AnotherInitialize_TakesOtherSizes) {
    initialize(1, 1);
    unInitialize();
    initialize(3, 2);
    registerEvents({1, 2, 3});
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, CEventHandler_RegisterEvent(4, "four"));
    Listener first("A");
    Listener second("B");
    EXPECT_EQ(eAF_S_OK, first.add());
    EXPECT_EQ(eAF_S_OK, second.add());
    EXPECT_EQ(2u, statistics().noOfListeners);
}

TEST_F(EventHandlerLifecycle, ACacheOfAnEarlierRun_LeadsNobodyAstray) {
    initialize();
    registerEvents({1, 2});
    CEventHandler_FireEvent(2);
    unInitialize();
    initialize();
    registerEvents({2, 1});
    Listener listener("A");
    listener.add({2});
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(2));
    EXPECT_EQ(1, listener.waiting());
}

TEST_F(EventHandlerLifecycle, TheApplicationFrameworksEnd_EndsTheEventHandler) {
    initialize();
    CApplicationFramework_Initialize();
    EXPECT_EQ(0u, CEventHandler_GetNumberOfRegisteredEvents()) << "still initialized";
    CApplicationFramework_UnInitialize();
    EXPECT_EQ(32788u, CEventHandler_GetNumberOfRegisteredEvents());
}

} // namespace
