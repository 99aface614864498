#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "EventService.h"

namespace {

using test::Line;
using test::Lines;
using test::Listener;
using test::RawQueue;
using testing::ElementsAre;
using testing::IsEmpty;

const Line failedReceive{"CEventHandler_PumpEventInternal", "Failed to get event from queue", 0x8000};

class Pumping : public test::EventService {
protected:
    Pumping() {
        initialize(8, 4);
        errno = 0;
    }

    void listen(Listener &listener, std::initializer_list<std::uint32_t> ids = {1, 2, 3, 4}) {
        registerEvents(ids);
        ASSERT_EQ(eAF_S_OK, listener.add());
        forgetTraces();
    }
};

/// What both pumps do alike is shown for both.
struct Pump {
    const char *name;
    std::function<std::uint32_t(std::uint32_t)> run; ///< 1 when a callback should have run and cannot be asked.
    bool reports;
};

const std::vector<Pump> &pumps() {
    static const std::vector<Pump> all{{"PumpEvent",
                                        [](std::uint32_t handle) {
                                            CEventHandler_PumpEvent(handle);
                                            return 0u;
                                        },
                                        false},
                                       {"PumpEventIfAvailable", CEventHandler_PumpEventIfAvailable, true}};
    return all;
}

TEST_F(Pumping, RunsTheCallbackOfTheListenerWithWhatTheMessageHolds) {
    Listener listener("A");
    listen(listener);
    int object = 0;
    for (const Pump &pump : pumps()) {
        CEventHandler_FireEventWithData(2, &object);
        EXPECT_EQ(pump.reports ? 1u : 0u, pump.run(listener.handle())) << pump.name;
        const test::Delivery &delivery = listener.deliveries.back();
        EXPECT_EQ(&listener, delivery.context);
        EXPECT_EQ(2u, delivery.eventId);
        EXPECT_EQ(&object, delivery.data);
        EXPECT_EQ(listener.callback(), delivery.self);
    }
    EXPECT_EQ(2u, listener.deliveries.size());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(Pumping, TakesOneMessageAtATime) {
    Listener listener("A");
    listen(listener);
    CEventHandler_FireEvent(1);
    CEventHandler_FireEvent(2);
    CEventHandler_PumpEvent(listener.handle());
    EXPECT_EQ(1, listener.waiting());
    CEventHandler_PumpEventIfAvailable(listener.handle());
    EXPECT_THAT(listener.ids(), ElementsAre(1, 2));
}

TEST_F(Pumping, TakesUrgentMessagesBeforeNormalOnesAndKeepsTheOrderOfEach) {
    Listener listener("A");
    listen(listener);
    CEventHandler_FireEvent(1);
    CEventHandler_FireUrgentEvent(2);
    CEventHandler_FireEvent(3);
    CEventHandler_FireUrgentEvent(4);
    listener.pump(4);
    EXPECT_THAT(listener.ids(), ElementsAre(2, 4, 1, 3));
}

TEST_F(Pumping, ServesOnlyTheListenerOfTheHandle) {
    Listener first("A");
    Listener second("B");
    registerEvents({1});
    first.add();
    second.add();
    CEventHandler_FireEvent(1);
    second.pump();
    EXPECT_THAT(first.ids(), IsEmpty());
    EXPECT_THAT(second.ids(), ElementsAre(1));
    EXPECT_EQ(1, first.waiting());
}

TEST_F(Pumping, AHandleFromTheCapacityOn_IsIllegal) {
    for (const Pump &pump : pumps()) {
        SCOPED_TRACE(pump.name);
        EXPECT_EQ(0u, pump.run(4));
        EXPECT_EQ(0u, pump.run(0xFFFFFFFFu));
        EXPECT_EQ(0u, pump.run(0xABC));
        EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Illegal listener handle (4)", 0x8000},
                         {"CEventHandler_PumpEventInternal", "Illegal listener handle (FFFFFFFF)", 0x8000},
                         {"CEventHandler_PumpEventInternal", "Illegal listener handle (ABC)", 0x8000}}),
                  traced());
    }
}

TEST_F(Pumping, AHandleBelowTheCapacityWithoutAListener_FindsAnEmptyRecord) {
    Listener listener("A");
    listen(listener);
    CEventHandler_PumpEvent(3);
    EXPECT_EQ(Lines{failedReceive}, traced());
    EXPECT_EQ(EBADF, errno) << "no descriptor that belongs to anybody";
    errno = 0;
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(1));
    EXPECT_EQ(Lines{}, traced());
    EXPECT_EQ(EBADF, errno);
}

TEST_F(Pumping, WithoutInitialize_EveryHandleIsIllegal) {
    unInitialize();
    for (const Pump &pump : pumps()) {
        EXPECT_EQ(0u, pump.run(0)) << pump.name;
        EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Illegal listener handle (0)", 0x8000}}), traced());
    }
    CEventHandler_SendEmptyMessage(0);
    EXPECT_EQ((Lines{{"CEventHandler_SendEmptyMessage", "Illegal listener handle (0)", 0x8000}}), traced());
}

TEST_F(Pumping, AFailedReceive_IsTracedByPumpEventOnly) {
    Listener listener("A");
    listen(listener);
    ASSERT_EQ(0, mq_close(test::descriptorsOn(listener.queue()).at(0)));
    CEventHandler_PumpEvent(listener.handle());
    EXPECT_EQ(Lines{failedReceive}, traced());
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(listener.handle()));
    EXPECT_EQ(Lines{}, traced());
    EXPECT_EQ(0u, statistics().noOfPumpedEvents);
}

TEST_F(Pumping, AnEmptyMessage_IsTracedByBothAndRunsNothing) {
    Listener listener("A");
    listen(listener);
    for (const Pump &pump : pumps()) {
        SCOPED_TRACE(pump.name);
        CEventHandler_SendEmptyMessage(listener.handle());
        EXPECT_EQ(0u, pump.run(listener.handle()));
        EXPECT_EQ(Lines{failedReceive}, traced());
    }
    EXPECT_THAT(listener.ids(), IsEmpty());
    EXPECT_EQ(0u, statistics().noOfPumpedEvents);
}

TEST_F(Pumping, TheStopMark_RunsNothingAndIsNotTraced) {
    Listener listener("A");
    listen(listener);
    const RawQueue queue(listener.queue());
    for (const Pump &pump : pumps()) {
        SCOPED_TRACE(pump.name);
        ASSERT_TRUE(queue.send({EVENT_ID_STOP, nullptr, 0}));
        EXPECT_EQ(0u, pump.run(listener.handle()));
        EXPECT_EQ(0, listener.waiting());
    }
    EXPECT_THAT(listener.ids(), IsEmpty());
    EXPECT_EQ(0u, statistics().noOfPumpedEvents);
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(Pumping, TheStopMarkFiredAsAnEvent_IsSwallowedToo) {
    Listener listener("A");
    listen(listener, {EVENT_ID_STOP});
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithCopiedData(EVENT_ID_STOP, "copy", 4));
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(listener.handle()));
    EXPECT_THAT(listener.ids(), IsEmpty());
}

TEST_F(Pumping, AnyOtherId_RunsTheCallbackWhetherRegisteredOrNot) {
    Listener listener("A");
    listen(listener);
    const RawQueue queue(listener.queue());
    ASSERT_TRUE(queue.send({EVENT_ID_STOP - 1, nullptr, 0}));
    ASSERT_TRUE(queue.send({0, nullptr, 0}));
    listener.pump(2);
    EXPECT_THAT(listener.ids(), ElementsAre(EVENT_ID_STOP - 1, 0));
}

TEST_F(Pumping, AMessageShorterThanTheRecord_IsFilledUpWithZero) {
    Listener listener("A");
    listen(listener);
    const RawQueue queue(listener.queue());
    const std::uint32_t id = 77;
    ASSERT_EQ(0, mq_send(queue.descriptor(), reinterpret_cast<const char *>(&id), sizeof id, 0));
    listener.pump();
    ASSERT_EQ(1u, listener.deliveries.size());
    EXPECT_EQ(77u, listener.deliveries[0].eventId);
    EXPECT_EQ(nullptr, listener.deliveries[0].data);
}

TEST_F(Pumping, TheListenersAnswer_DecidesWhatIsTracedAndCounted) {
    struct Row {
        std::uint32_t answer;
        bool warns;
        bool fails;
    };
    const std::vector<Row> rows{{0x0000, false, false}, {0x0002, false, false},    {0x0101, false, false},
                                {0x0900, false, false}, {0x0FFF, false, false},    {0x1000, true, false},
                                {0x1005, true, false},  {0x7FFF, true, false},     {0x8000, false, true},
                                {0x8021, false, true},  {0xFFFFFFFFu, false, true}};
    Listener listener("Lee");
    listen(listener);
    std::uint32_t pumped = 0;
    std::uint32_t errors = 0;
    for (const Row &row : rows) {
        listener.answer = static_cast<EAFResult>(row.answer);
        for (const Pump &pump : pumps()) {
            SCOPED_TRACE(std::string(pump.name) + " " + std::to_string(row.answer));
            CEventHandler_FireEvent(1);
            EXPECT_EQ(pump.reports ? 1u : 0u, pump.run(listener.handle())) << "whatever the callback returned";
            Lines expected;
            if (row.warns) {
                expected = {{"CEventHandler_PumpEventInternal", "Warning response from listener Lee", 0x1000}};
            } else if (row.fails) {
                expected = {{"CEventHandler_PumpEventInternal", "Error response from listener Lee", 0x8000}};
                ++errors;
            }
            EXPECT_EQ(expected, traced());
            EXPECT_EQ(++pumped, statistics().noOfPumpedEvents);
            EXPECT_EQ(errors, statistics().noOfErrorResponses);
        }
    }
}

TEST_F(Pumping, SendEmptyMessage_SendsNoBytesAtNormalPriority) {
    Listener listener("A");
    listen(listener);
    CEventHandler_SendEmptyMessage(listener.handle());
    const test::RawMessage raw = RawQueue(listener.queue()).receive();
    EXPECT_EQ("", raw.bytes);
    EXPECT_EQ(0u, raw.priority);
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(Pumping, SendEmptyMessage_WaitsItsTurnBehindWhatIsThere) {
    Listener listener("A");
    listen(listener);
    CEventHandler_FireEvent(1);
    CEventHandler_SendEmptyMessage(listener.handle());
    CEventHandler_FireUrgentEvent(2);
    listener.pump(3);
    EXPECT_THAT(listener.ids(), ElementsAre(2, 1));
    EXPECT_EQ(Lines{failedReceive}, traced());
}

TEST_F(Pumping, SendEmptyMessage_ToAHandleFromTheCapacityOn_IsIllegal) {
    CEventHandler_SendEmptyMessage(4);
    CEventHandler_SendEmptyMessage(0xDEADBEEFu);
    EXPECT_EQ((Lines{{"CEventHandler_SendEmptyMessage", "Illegal listener handle (4)", 0x8000},
                     {"CEventHandler_SendEmptyMessage", "Illegal listener handle (DEADBEEF)", 0x8000}}),
              traced());
}

TEST_F(Pumping, SendEmptyMessage_ToAnEmptyRecord_IsSilent) {
    CEventHandler_SendEmptyMessage(3);
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(Pumping, ACopyIsFreedAfterItsCallback) {
    // What is freed too early, twice or never is seen by the address sanitizer and its leak check.
    Listener listener("A");
    listen(listener);
    listener.bytesToKeep = 4;
    for (const Pump &pump : pumps()) {
        CEventHandler_FireEventWithCopiedData(1, "copy", 4);
        pump.run(listener.handle());
        EXPECT_EQ("copy", listener.deliveries.back().copy);
    }
}

} // namespace
