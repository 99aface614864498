// Arguments that no description speaks of: defined, safe, and nothing traced that was not asked for.
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

#include "EventService.h"

namespace {

using test::Lines;
using test::Listener;
using testing::ElementsAre;

class NullAndOddArguments : public test::EventService {
protected:
    NullAndOddArguments() {
        initialize();
        registerEvents({1});
    }
};

TEST_F(NullAndOddArguments, NullOutPointers_AreRefused) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_GetEventName(1, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_GetStatistics(nullptr));
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(NullAndOddArguments, GetStatisticsOfNull_BeforeInitialize_SaysNotInitialized) {
    unInitialize();
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_GetStatistics(nullptr));
    EXPECT_EQ(1u, traced().size());
}

TEST_F(NullAndOddArguments, ANullMessage_IsRefused) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_FireEventFromMessageInternal(nullptr));
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(NullAndOddArguments, CopyingFromNull_IsRefusedWhereSomebodyListens) {
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithCopiedData(1, nullptr, 4)) << "nobody, so nothing is copied";
    Listener listener("A");
    listener.add();
    forgetTraces();
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_FireEventWithCopiedData(1, nullptr, 4));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_FireUrgentEventWithCopiedData(1, nullptr, 4));
    EXPECT_EQ(0, listener.waiting());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(NullAndOddArguments, ACallbackWithoutAFunction_CountsAsAnErrorResponse) {
    Listener listener("A");
    listener.callback()->function = nullptr;
    listener.add();
    forgetTraces();
    CEventHandler_FireEventWithCopiedData(1, "copy", 4);
    EXPECT_EQ(1u, CEventHandler_PumpEventIfAvailable(listener.handle()));
    EXPECT_EQ(1u, statistics().noOfErrorResponses);
    EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Error response from listener A", 0x8000}}), traced());
}

TEST_F(NullAndOddArguments, ATaskThatIsNull_IsRefusedByEverySlot) {
    CEventTask task{};
    ITask *operations = nullptr;
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventTask_GetInterface(nullptr, &operations));
    EXPECT_EQ(nullptr, operations);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventTask_GetInterface(&task, nullptr));
    ASSERT_EQ(eAF_S_OK, CEventTask_GetInterface(&task, &operations));
    EXPECT_EQ(nullptr, operations->GetThreadHandle(nullptr));
    EXPECT_EQ(eAF_S_OK, operations->Start(nullptr)) << "always";
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, operations->Stop(nullptr));
    EXPECT_EQ(0u, operations->IsRunning(nullptr));
    EXPECT_EQ(-1, operations->Destroy(nullptr));
    SEventDataMessage message{1, nullptr, 0};
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventTask_HandleEvent(nullptr, &message));
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(NullAndOddArguments, HandleEventOfANullMessage_SendsTheNullAddress) {
    Listener listener("A");
    listener.add();
    CEventTask task{};
    task.queue = test::descriptorsOn(listener.queue()).at(0);
    EXPECT_EQ(eAF_S_OK, CEventTask_HandleEvent(&task, nullptr));
    listener.pump();
    EXPECT_THAT(listener.ids(), ElementsAre(0));
}

TEST_F(NullAndOddArguments, ZeroSizes_MakeAServiceThatHoldsNothing) {
    unInitialize();
    initialize(0, 0);
    Listener listener("A");
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, CEventHandler_RegisterEvent(1, "one"));
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, listener.add());
    EXPECT_EQ(eAF_E_UNKNOWN_EVENT, CEventHandler_FireEvent(1));
    forgetTraces();
    CEventHandler_PumpEvent(0);
    EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Illegal listener handle (0)", 0x8000}}), traced());
}

TEST_F(NullAndOddArguments, EventsWithoutRoomForListeners_AreFiredToNobody) {
    unInitialize();
    initialize(2, 0);
    registerEvents({1, 2});
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(2));
}

TEST_F(NullAndOddArguments, FormatCharactersInNames_AreText) {
    Listener listener("%s%n%d", eAF_E_FAILED);
    EXPECT_EQ(eAF_E_FAILED, listener.add({1, 9}));
    EXPECT_EQ((test::Line{"CEventHandler_AddListener", "Unknown event filter for listener %s%n%d", 0x8000}),
              traced().back());
    CEventHandler_FireEvent(1);
    listener.pump();
    EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Error response from listener %s%n%d", 0x8000}}), traced());
}

TEST_F(NullAndOddArguments, AnUnfilledRecord_NeverTouchesDescriptorZero) {
    // Descriptor 0 as a queue with a message in it: a record that reads as all zero would take that.
    Listener listener("A");
    listener.add();
    CEventHandler_FireEvent(1);
    const int saved = dup(0);
    ASSERT_EQ(0, dup2(test::descriptorsOn(listener.queue()).at(0), 0));
    errno = 0;
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(2));
    CEventHandler_SendEmptyMessage(2);
    EXPECT_EQ(1, listener.waiting());
    close(0);
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    }
}

} // namespace
