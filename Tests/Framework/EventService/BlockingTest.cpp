// Full and empty queues block. Shown by order and by the system's word that a thread sleeps in the queue's call,
// never by time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "EventService.h"

namespace {

using test::Lines;
using test::Listener;
using test::RawQueue;
using testing::ElementsAre;
using testing::IsEmpty;

/// A call on a thread of its own.
class Call {
public:
    explicit Call(std::function<void()> work)
        : m_thread([this, work = std::move(work)] {
              m_id = test::threadId();
              work();
              m_hasReturned = true;
          }) {}
    ~Call() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    bool blocksSending() { return hasBegun() && test::eventuallyBlocksSending(m_id) && !m_hasReturned; }
    bool blocksReceiving() { return hasBegun() && test::eventuallyBlocksReceiving(m_id) && !m_hasReturned; }
    void join() { m_thread.join(); }

private:
    bool hasBegun() {
        return test::eventually([this] { return m_id != 0; });
    }

    std::atomic<int> m_id{0};
    std::atomic<bool> m_hasReturned{false};
    std::thread m_thread;
};

class Blocking : public test::EventService {
protected:
    Blocking() {
        initialize();
        registerEvents({1, 2});
        m_listener.add({1});
        forgetTraces();
    }

    void fill() {
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
        }
        ASSERT_EQ(10, m_listener.waiting());
    }

    Listener m_listener{"A"};
};

TEST_F(Blocking, TheEleventhFiring_WaitsForAPump_WhateverTheOperation) {
    struct Row {
        const char *name;
        std::function<EAFResult()> fire;
    };
    SEventDataMessage message{1, nullptr, 0};
    const std::vector<Row> rows{
        {"FireEvent", [] { return CEventHandler_FireEvent(1); }},
        {"FireEventWithData", [] { return CEventHandler_FireEventWithData(1, nullptr); }},
        {"FireEventWithCopiedData", [] { return CEventHandler_FireEventWithCopiedData(1, "copy", 4); }},
        {"FireUrgentEvent", [] { return CEventHandler_FireUrgentEvent(1); }},
        {"FireUrgentEventWithData", [] { return CEventHandler_FireUrgentEventWithData(1, nullptr); }},
        {"FireUrgentEventWithCopiedData", [] { return CEventHandler_FireUrgentEventWithCopiedData(1, "copy", 4); }},
        {"FireEventFromMessageInternal", [&] { return CEventHandler_FireEventFromMessageInternal(&message); }},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        fill();
        EAFResult result = eAF_E_FAILED;
        Call firing([&] { result = row.fire(); });
        EXPECT_TRUE(firing.blocksSending());
        EXPECT_EQ(10, m_listener.waiting());
        m_listener.pump();
        firing.join();
        EXPECT_EQ(eAF_S_OK, result);
        EXPECT_EQ(10, m_listener.waiting()) << "one out, one in";
        m_listener.pumpAll();
    }
    EXPECT_EQ(7u * 11u, m_listener.deliveries.size());
}

TEST_F(Blocking, TheEleventhEmptyMessage_WaitsForAPump) {
    fill();
    Call sending([this] { CEventHandler_SendEmptyMessage(m_listener.handle()); });
    EXPECT_TRUE(sending.blocksSending());
    m_listener.pump();
    sending.join();
    EXPECT_EQ(10, m_listener.waiting());
}

TEST_F(Blocking, AFullQueue_KeepsTheListenersBehindItWaiting) {
    Listener behind("B");
    behind.add({1});
    for (int i = 0; i < 10; ++i) {
        CEventHandler_FireEvent(1);
        behind.pump();
    }
    Call firing([] { CEventHandler_FireEvent(1); });
    EXPECT_TRUE(firing.blocksSending());
    EXPECT_EQ(0, behind.waiting()) << "served in the order in which they were added";
    m_listener.pump();
    firing.join();
    EXPECT_EQ(1, behind.waiting());
}

TEST_F(Blocking, AFullQueue_HoldsUpNobodyElse) {
    Listener other("B");
    other.add({2});
    fill();
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(2));
    EXPECT_EQ(1, other.waiting());
}

TEST_F(Blocking, AnUrgentEventThatWaited_IsStillPumpedFirst) {
    fill();
    int mark = 0;
    Call firing([&mark] { CEventHandler_FireUrgentEventWithData(1, &mark); });
    ASSERT_TRUE(firing.blocksSending());
    m_listener.pump();
    firing.join();
    m_listener.pump();
    EXPECT_EQ(&mark, m_listener.deliveries.back().data);
}

TEST_F(Blocking, PumpEvent_WaitsForAMessage) {
    Call pumping([this] { CEventHandler_PumpEvent(m_listener.handle()); });
    EXPECT_TRUE(pumping.blocksReceiving());
    CEventHandler_FireEvent(1);
    pumping.join();
    EXPECT_THAT(m_listener.ids(), ElementsAre(1));
}

TEST_F(Blocking, PumpEventIfAvailable_WaitsForAMessageToo) {
    std::uint32_t ran = 77;
    Call pumping([&] { ran = CEventHandler_PumpEventIfAvailable(m_listener.handle()); });
    EXPECT_TRUE(pumping.blocksReceiving());
    CEventHandler_FireEvent(1);
    pumping.join();
    EXPECT_EQ(1u, ran);
    EXPECT_THAT(m_listener.ids(), ElementsAre(1));
}

TEST_F(Blocking, SendEmptyMessage_WakesAPumpThatWaits) {
    Call pumping([this] { CEventHandler_PumpEvent(m_listener.handle()); });
    ASSERT_TRUE(pumping.blocksReceiving());
    CEventHandler_SendEmptyMessage(m_listener.handle());
    pumping.join();
    EXPECT_THAT(m_listener.ids(), IsEmpty());
    EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Failed to get event from queue", 0x8000}}), traced());
}

TEST_F(Blocking, APumpThatWaits_OutlivesTheService) {
    Call pumping([this] { CEventHandler_PumpEvent(m_listener.handle()); });
    ASSERT_TRUE(pumping.blocksReceiving());
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize()) << "waits for nobody";
    ASSERT_TRUE(RawQueue(m_listener.queue()).send({5, nullptr, 0}));
    pumping.join();
    EXPECT_THAT(m_listener.ids(), ElementsAre(5)) << "its callback record is the listener's own";
    initialize();
    EXPECT_EQ(0u, statistics().noOfPumpedEvents) << "what came in between belongs to no service";
}

TEST_F(Blocking, AFiringThatWaits_OutlivesTheService) {
    fill();
    EAFResult result = eAF_E_FAILED;
    Call firing([&] { result = CEventHandler_FireEvent(1); });
    ASSERT_TRUE(firing.blocksSending());
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    initialize();
    const RawQueue queue(m_listener.queue());
    EXPECT_EQ(1u, queue.receive().message().eventId);
    firing.join();
    EXPECT_EQ(eAF_S_OK, result);
    EXPECT_EQ(10, m_listener.waiting());
}

/// A task whose worker waits for room in the listener's queue, so that its own queue fills up.
class BlockedTask : public Blocking {
protected:
    BlockedTask() {
        mq_unlink(m_queueName.c_str());
        CEventTask_GetInterface(&m_task, &m_operations);
        EXPECT_EQ(eAF_S_OK, m_operations->Create(m_operations, "T", 0, 0, 0, 1));
        fill();
        const RawQueue queue(m_queueName);
        EXPECT_TRUE(queue.send({1, nullptr, 0}));
        // Having the message is not enough: a stop that comes before the worker fires it is an end without it.
        EXPECT_TRUE(test::eventually(workerBlocksSending)) << "the worker waits for room for it";
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(queue.send({1, nullptr, 0}));
        }
        EXPECT_EQ(10, test::messagesIn(m_queueName));
    }
    ~BlockedTask() override { mq_unlink(m_queueName.c_str()); }

    static bool workerBlocksSending() {
        const std::vector<int> workers = test::threadsNamed("dm-af-eventtsk");
        return std::any_of(workers.begin(), workers.end(), test::blocksSending);
    }

    const std::string m_queueName = test::expectedTaskQueueName("T");
    CEventTask m_task{};
    ITask *m_operations = nullptr;
};

TEST_F(BlockedTask, TenPendingMessages_BlockTheNextHandleEvent) {
    SEventDataMessage message{1, nullptr, 0};
    EAFResult result = eAF_E_FAILED;
    Call handling([&] { result = CEventTask_HandleEvent(&m_task, &message); });
    EXPECT_TRUE(handling.blocksSending());
    m_listener.pump();
    handling.join();
    EXPECT_EQ(eAF_S_OK, result);

    Call stopping([this] { m_operations->Stop(m_operations); });
    m_listener.pump();
    stopping.join();
    m_listener.pumpAll();
    m_operations->Destroy(m_operations);
}

TEST_F(BlockedTask, TenPendingMessages_BlockTheNextStop) {
    EAFResult result = eAF_E_FAILED;
    Call stopping([&] { result = m_operations->Stop(m_operations); });
    EXPECT_TRUE(stopping.blocksSending());
    m_listener.pump();
    stopping.join();
    EXPECT_EQ(eAF_S_OK, result);
    EXPECT_TRUE(test::eventually([] { return workerTraced("  EventTask (T): Terminating"); }));
    EXPECT_EQ(10, m_listener.waiting()) << "what was pending on the task's queue is not looked at any more";
    EXPECT_FALSE(test::queueExists(m_queueName));
    m_operations->Destroy(m_operations);
}

} // namespace
