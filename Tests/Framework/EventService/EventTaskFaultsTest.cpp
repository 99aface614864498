// What a task does when the system fails it, and in which order it asks the system.
#include <fcntl.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "EventService.h"
#include "Interposed.h"

namespace {

using test::Call;
using test::Failing;
using test::Line;
using test::Lines;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

const Line closeFailed{"CEventTask_OsProcess", "Could not close the queue.", 0x1000};
const Line unlinkFailed{"CEventTask_OsProcess", "Could not unlink the queue.", 0x1000};
const Line destroyFailed{"CEventTask_OsProcess", "Could not destroy the semaphore.", 0x1000};

class EventTaskFaults : public test::EventService {
protected:
    EventTaskFaults() {
        // Debug traces off: a worker without a queue tries again at once, with one each time.
        test::TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
        EXPECT_EQ(eAF_S_OK, CEventTask_GetInterface(&m_task, &m_operations));
        mq_unlink(m_queueName.c_str());
        test::forgetCalls();
    }
    ~EventTaskFaults() override {
        m_isReleased = true;
        m_operations->Stop(m_operations);
        CEventHandler_UnInitialize();
        EXPECT_TRUE(test::eventually([this] { return workerHasLeft(); }));
        m_operations->Destroy(m_operations);
        test::forwardEverything();
        mq_unlink(m_queueName.c_str());
    }

    EAFResult create(std::uint32_t stackSize = 2048) {
        return m_operations->Create(m_operations, "T", 1, stackSize, 12, 60);
    }
    EAFResult stop() { return m_operations->Stop(m_operations); }
    int destroy() { return m_operations->Destroy(m_operations); }
    bool workerLeft() {
        return test::eventually([this] { return workerHasLeft(); });
    }
    bool sendToTask(std::uint32_t id) const { return test::RawQueue(m_queueName).send({id, nullptr, 0}); }

    /// Keeps the worker inside the forwarding of a message until it is released.
    void holdWorker() {
        test::replacements().fireFromMessage = [this](SEventDataMessage *) {
            m_isHeld = true;
            test::eventually([this] { return m_isReleased.load(); });
            return eAF_S_OK;
        };
        ASSERT_TRUE(sendToTask(1));
        ASSERT_TRUE(test::eventually([this] { return m_isHeld.load(); }));
    }

    const std::string m_queueName = test::expectedTaskQueueName("T");
    CEventTask m_task{};
    ITask *m_operations = nullptr;
    std::atomic<bool> m_isHeld{false};
    std::atomic<bool> m_isReleased{false};
};

// Create

TEST_F(EventTaskFaults, Create_AsksTheSystemInTheSettledOrder) {
    ASSERT_EQ(eAF_S_OK, create());
    EXPECT_THAT(test::callsOfOthers(), ElementsAre("sem_init 0 1", "pthread_create", "mq_open " + m_queueName))
        << "the worker runs before its queue is opened, and nothing is unlinked first";
}

TEST_F(EventTaskFaults, Create_OpensItsQueueForAllUnderNoUmask) {
    const mode_t usual = umask(027);
    ASSERT_EQ(eAF_S_OK, create());
    const test::OpenCall call = test::lastOpenCall();
    EXPECT_EQ(m_queueName, call.name);
    EXPECT_EQ(O_RDWR | O_CREAT, call.flags);
    EXPECT_EQ(mode_t{0777}, call.mode);
    EXPECT_EQ(mode_t{0}, call.umask);
    EXPECT_EQ(0, call.attributes.mq_flags);
    EXPECT_EQ(10, call.attributes.mq_maxmsg);
    EXPECT_EQ(static_cast<long>(sizeof(SEventDataMessage)), call.attributes.mq_msgsize);
    EXPECT_EQ(mode_t{027}, umask(usual));
}

TEST_F(EventTaskFaults, TheStackSize_IsTheSmallerOfTheAskedOneAnd16384) {
    for (const auto &row : std::vector<std::pair<std::uint32_t, std::size_t>>{
             {0, 0}, {2048, 2048}, {16383, 16383}, {16384, 16384}, {16385, 16384}, {0xFFFFFFFFu, 16384}}) {
        ASSERT_EQ(eAF_S_OK, create(row.first));
        EXPECT_EQ(row.second, test::lastStackSize());
        EXPECT_EQ(row.first, m_task.stackSize) << "stored as it was asked for";
        stop();
        ASSERT_TRUE(workerLeft());
    }
}

TEST_F(EventTaskFaults, AStackSizeThatIsRefused_IsNotLookedAt) {
    test::setStackSizeAnswer(EINVAL);
    EXPECT_EQ(eAF_S_OK, create());
    EXPECT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    EXPECT_EQ(Lines{}, test::TraceRecorder::failures());
}

TEST_F(EventTaskFaults, WhetherTheThreadCouldBeMadeOrNot_ItsAttributesAreDestroyed) {
    const int before = test::threadAttributesAlive();
    {
        const Failing failing(Call::pthreadCreate, EAGAIN);
        EXPECT_EQ(eAF_E_FAILED, create());
    }
    EXPECT_EQ(before, test::threadAttributesAlive());
    destroy();
    EXPECT_EQ(eAF_S_OK, create());
    EXPECT_EQ(before, test::threadAttributesAlive());
}

TEST_F(EventTaskFaults, WithoutASemaphore_CreateFailsBeforeAnyThreadOrQueue) {
    const Failing failing(Call::semInit, ENOSYS);
    EXPECT_EQ(eAF_E_FAILED, create());
    EXPECT_EQ((Lines{{"CEventTask_Create", "EventTask (T): Could not create semaphore", 0x8000}}), traced());
    EXPECT_THAT(test::callsOfOthers(), ElementsAre("sem_init 0 1"));
}

TEST_F(EventTaskFaults, WithoutASemaphore_TheRecordIsItsOwnersAgain) {
    {
        const Failing failing(Call::semInit, ENOSYS);
        ASSERT_EQ(eAF_E_FAILED, create());
    }
    CEventHandler_Initialize(1, 1);
    test::Listener queueOwner("A");
    queueOwner.add();
    const test::RawQueue queue(queueOwner.queue());
    m_task.queue = queue.descriptor();
    SEventDataMessage message{1, nullptr, 0};
    ASSERT_EQ(eAF_S_OK, CEventTask_HandleEvent(&m_task, &message)) << "used as it stands, like one never created";
    queue.receive();
    m_task.queue = -1;
}

TEST_F(EventTaskFaults, WithoutAThread_CreateFailsBeforeTheQueueAndKeepsTheSemaphore) {
    {
        const Failing failing(Call::pthreadCreate, EAGAIN);
        EXPECT_EQ(eAF_E_FAILED, create());
    }
    EXPECT_EQ((Lines{{"CEventTask_Create", "EventTask (T): Could not create thread", 0x8000}}), traced());
    EXPECT_THAT(test::callsOfOthers(), ElementsAre("sem_init 0 1", "pthread_create"));
    int value = -1;
    EXPECT_EQ(0, sem_getvalue(&m_task.semaphore, &value));
    EXPECT_EQ(1, value);
    EXPECT_EQ(eAF_S_OK, m_operations->Start(m_operations));
    sem_getvalue(&m_task.semaphore, &value);
    EXPECT_EQ(2, value);
    EXPECT_EQ(-1, destroy());
    EXPECT_THAT(test::callsOfOthers(), Contains("sem_destroy"));
}

TEST_F(EventTaskFaults, WithoutAQueue_CreateTracesOneCodeReturnsAnotherAndLeavesTheThreadRunning) {
    const mode_t usual = umask(027);
    for (const int error : {EMFILE, ENOSPC, EACCES}) {
        {
            const Failing failing(Call::mqOpen, error);
            EXPECT_EQ(eAF_E_FAILED, create());
        }
        EXPECT_EQ((Lines{{"CEventTask_Create", test::errorText(error), 0x800F}}), traced());
        EXPECT_EQ(mode_t{027}, umask(027)) << "restored";
        EXPECT_EQ(-1, m_task.queue);
        EXPECT_EQ(m_queueName, m_task.queueName);
        EXPECT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
        EXPECT_EQ(eAF_E_FAILED, stop());
        EXPECT_TRUE(workerLeft());
        destroy();
    }
    umask(usual);
}

TEST_F(EventTaskFaults, WithoutAQueue_TheNamedQueueIsUnlinkedAllTheSame) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 1;
    attributes.mq_msgsize = 1;
    const mqd_t leftBehind = mq_open(m_queueName.c_str(), O_RDWR | O_CREAT, mode_t{0600}, &attributes);
    ASSERT_NE(-1, leftBehind);
    mq_close(leftBehind);
    {
        const Failing failing(Call::mqOpen, EMFILE);
        EXPECT_EQ(eAF_E_FAILED, create());
    }
    EXPECT_EQ(eAF_E_FAILED, stop());
    ASSERT_TRUE(workerLeft());
    EXPECT_FALSE(test::queueExists(m_queueName)) << "the record names it, and the worker unlinks what that names";
}

TEST_F(EventTaskFaults, WithoutAPasswordEntry_TheTasksQueueIsUnknowns) {
    const Failing failing(Call::getpwuid, ENOENT);
    ASSERT_EQ(eAF_S_OK, create());
    const std::string name = test::expectedTaskQueueName("T");
    EXPECT_EQ(name, m_task.queueName);
    EXPECT_EQ(0u, name.rfind("/UNKNOWN_", 0));
    EXPECT_TRUE(test::queueExists(name));
    stop();
    EXPECT_TRUE(workerLeft());
    EXPECT_FALSE(test::queueExists(name));
}

// The worker

TEST_F(EventTaskFaults, ADelayedEventThatCouldNotBeFired_IsTracedByName) {
    initialize();
    registerEvents({5});
    ASSERT_EQ(eAF_S_OK, create());
    for (const EAFResult answer : {eAF_E_FAILED, eAF_E_UNKNOWN_EVENT}) {
        test::replacements().fireFromMessage = [answer](SEventDataMessage *) { return answer; };
        ASSERT_TRUE(sendToTask(5));
    }
    const auto tracedTwice = [] {
        const Line expected{"CEventTask_OsProcess", "Could not fire delayed event event 5", 0x1000};
        return test::TraceRecorder::workerLines() == Lines{expected, expected};
    };
    EXPECT_TRUE(test::eventually(tracedTwice));
}

TEST_F(EventTaskFaults, ADelayedEventWithoutAName_IsTracedAsUnknown) {
    initialize();
    test::replacements().fireFromMessage = [](SEventDataMessage *) { return eAF_E_FAILED; };
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(sendToTask(5));
    EXPECT_TRUE(test::eventually([] { return workerTraced("Could not fire (unknown) delayed event"); }));
    EXPECT_EQ((Lines{{"CEventTask_OsProcess", "Could not fire (unknown) delayed event", 0x1000}}),
              test::TraceRecorder::workerLines());
}

TEST_F(EventTaskFaults, AWarningFromTheFiring_IsASuccessToTheWorker) {
    std::atomic<int> fired{0};
    test::replacements().fireFromMessage = [&](SEventDataMessage *) {
        ++fired;
        return eAF_W_NOT_ALL_EVENTS_SENT;
    };
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(sendToTask(5));
    ASSERT_TRUE(test::eventually([&] { return fired == 1; }));
    stop();
    ASSERT_TRUE(workerLeft());
    EXPECT_EQ(Lines{}, test::TraceRecorder::workerLines());
}

TEST_F(EventTaskFaults, TheWorker_HandsOnTheRecordAsItWasReceived) {
    SEventDataMessage seen{};
    std::atomic<bool> hasSeen{false};
    test::replacements().fireFromMessage = [&](SEventDataMessage *message) {
        seen = *message;
        hasSeen = true;
        return eAF_S_OK;
    };
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(test::RawQueue(m_queueName).send({5, this, 9}));
    ASSERT_TRUE(test::eventually([&] { return hasSeen.load(); }));
    EXPECT_EQ(5u, seen.eventId);
    EXPECT_EQ(this, seen.pData);
    EXPECT_EQ(9u, seen.isCopied);
}

TEST_F(EventTaskFaults, AReceiveThatFails_IsTracedWithItsErrorAndTriedAgain) {
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    ASSERT_TRUE(test::eventuallyBlocksReceiving(test::threadsNamed("dm-af-eventtsk").at(0)));
    test::TraceRecorder::reset();
    {
        const Failing failing(Call::mqReceive, ENOMEM);
        ASSERT_TRUE(sendToTask(4241)) << "ends the receive that waits";
        ASSERT_TRUE(test::eventually([&] { return failing.times() >= 3; }));
    }
    ASSERT_TRUE(sendToTask(4242));
    EXPECT_TRUE(test::eventually([] { return workerTraced("Unknown event id: 4242"); })) << "it goes on";
    const Line failed{"CEventTask_OsProcess",
                      "EventTask (T): Receive from queue failed, error " + test::errorText(ENOMEM), 0x800};
    const Lines lines = test::TraceRecorder::workerLines();
    EXPECT_LE(2, std::count(lines.begin(), lines.end(), failed));
}

TEST_F(EventTaskFaults, WhatStopSends_IsTheStopEventAndNothingElse) {
    ASSERT_EQ(eAF_S_OK, create());
    holdWorker();
    ASSERT_EQ(eAF_S_OK, stop());
    const test::RawMessage sent = test::RawQueue(m_queueName).receive();
    EXPECT_EQ(sizeof(SEventDataMessage), sent.bytes.size());
    EXPECT_EQ(static_cast<std::uint32_t>(EVENT_ID_STOP), sent.message().eventId);
    EXPECT_EQ(nullptr, sent.message().pData);
    EXPECT_EQ(0u, sent.message().isCopied);
    EXPECT_EQ(0u, sent.priority);
}

TEST_F(EventTaskFaults, AfterStop_TheNextMessageEndsTheWorkerUnread) {
    ASSERT_EQ(eAF_S_OK, create());
    std::atomic<int> fired{0};
    test::replacements().fireFromMessage = [&](SEventDataMessage *) {
        ++fired;
        return eAF_S_OK;
    };
    ASSERT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    ASSERT_TRUE(test::eventuallyBlocksReceiving(test::threadsNamed("dm-af-eventtsk").at(0)));
    // The wake-up fails, so the worker waits until another message comes.
    {
        const Failing failing(Call::mqSend, EINTR);
        EXPECT_EQ(eAF_E_FAILED, stop());
    }
    EXPECT_EQ(1u, m_operations->IsRunning(m_operations));
    ASSERT_TRUE(sendToTask(5));
    EXPECT_TRUE(workerLeft());
    EXPECT_EQ(0, fired);
}

TEST_F(EventTaskFaults, OnItsWayOut_TheWorkerClosesUnlinksAndDestroysInThisOrder) {
    ASSERT_EQ(eAF_S_OK, create());
    const std::string queue = std::to_string(m_task.queue);
    ASSERT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    stop();
    ASSERT_TRUE(workerLeft());
    // The descriptor's own close goes to the last thread inside a call on it, which may be the stopper.
    std::vector<std::string> calls;
    for (const std::string &call : test::calls()) {
        if (call == "mq_close " + queue || call == "mq_unlink " + m_queueName || call == "sem_destroy") {
            calls.push_back(call);
        }
    }
    EXPECT_THAT(calls, testing::UnorderedElementsAre("mq_close " + queue, "mq_unlink " + m_queueName, "sem_destroy"));
    EXPECT_THAT(test::callsOfWorker(), testing::IsSupersetOf({"mq_unlink " + m_queueName, std::string("sem_destroy")}));
    EXPECT_LT(std::find(calls.begin(), calls.end(), "mq_unlink " + m_queueName),
              std::find(calls.begin(), calls.end(), "sem_destroy"));
    EXPECT_EQ(Lines{}, test::TraceRecorder::workerLines());
}

TEST_F(EventTaskFaults, AQueueThatCouldNotBeUnlinked_IsTracedAndStopsNothing) {
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    const Failing failing(Call::mqUnlink, EACCES);
    stop();
    ASSERT_TRUE(workerLeft());
    EXPECT_EQ(Lines{unlinkFailed}, test::TraceRecorder::workerLines());
    EXPECT_THAT(test::callsOfWorker(), Contains("sem_destroy"));
}

TEST_F(EventTaskFaults, ASemaphoreThatCouldNotBeDestroyed_IsTraced) {
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    const Failing failing(Call::semDestroy, EINVAL);
    stop();
    ASSERT_TRUE(workerLeft());
    EXPECT_EQ(Lines{destroyFailed}, test::TraceRecorder::workerLines());
}

TEST_F(EventTaskFaults, EveryFailureOnTheWayOut_IsTracedInOrder) {
    ASSERT_EQ(eAF_S_OK, create());
    holdWorker();
    // Held, the worker is inside no call on its queue: the stopper has left when the worker closes.
    ASSERT_EQ(eAF_S_OK, stop());
    const Failing close(Call::mqClose, EIO);
    const Failing unlink(Call::mqUnlink, EACCES);
    const Failing destroySemaphore(Call::semDestroy, EINVAL);
    m_isReleased = true;
    ASSERT_TRUE(workerLeft());
    EXPECT_EQ((Lines{closeFailed, unlinkFailed, destroyFailed}), test::TraceRecorder::workerLines());
}

TEST_F(EventTaskFaults, DestroyBeforeTheWorkerLeaves_DestroysClosesAndUnlinksInThisOrder) {
    ASSERT_EQ(eAF_S_OK, create());
    holdWorker();
    const std::string queue = std::to_string(m_task.queue);
    ASSERT_EQ(eAF_S_OK, stop());
    test::forgetCalls();
    EXPECT_EQ(0, destroy()) << "the unlink's own result";
    EXPECT_THAT(test::callsOfOthers(), ElementsAre("sem_destroy", "mq_close " + queue, "mq_unlink " + m_queueName));
    EXPECT_EQ(0u, m_task.runFlag);
    m_isReleased = true;
    ASSERT_TRUE(workerLeft());
    EXPECT_EQ((Lines{closeFailed, unlinkFailed, destroyFailed}), test::TraceRecorder::workerLines())
        << "whoever comes second fails";
    EXPECT_THAT(test::callsOfWorker(), Not(Contains("mq_close " + queue))) << "the number may be another's by now";
}

TEST_F(EventTaskFaults, Destroy_ReturnsWhatTheUnlinkReturned) {
    ASSERT_EQ(eAF_S_OK, create());
    holdWorker();
    ASSERT_EQ(eAF_S_OK, stop());
    const Failing failing(Call::mqUnlink, EACCES);
    EXPECT_EQ(-1, destroy());
    m_isReleased = true;
    EXPECT_TRUE(workerLeft());
}

TEST_F(EventTaskFaults, CreatedAnewWhileTheEarlierWorkerIsHeld_TheNewRunKeepsItsQueueAndItsSemaphore) {
    ASSERT_EQ(eAF_S_OK, create());
    holdWorker();
    ASSERT_EQ(eAF_S_OK, stop());
    test::replacements().fireFromMessage = nullptr;
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    m_isReleased = true;
    ASSERT_TRUE(test::eventually([] { return workerTraced("Could not destroy the semaphore."); }))
        << "the earlier worker leaves";
    EXPECT_EQ(1u, m_operations->IsRunning(m_operations));
    EXPECT_EQ(1u, m_task.runFlag);
    EXPECT_TRUE(test::queueExists(m_queueName));
    ASSERT_TRUE(sendToTask(4242));
    EXPECT_TRUE(test::eventually([] { return workerTraced("Unknown event id: 4242"); }));
}

TEST_F(EventTaskFaults, CreatedAnewBeforeItsEarlierWorkerWokeUp_TheEarlierWorkerLeavesAllTheSame) {
    // The earlier worker is about to receive when the new one takes what was meant to wake it.
    std::atomic<int> earlier{0};
    test::replacements().beforeReceive = [&](mqd_t queue) {
        if (queue == -1) {
            return; // Create has not opened it yet.
        }
        int nobody = 0;
        const int me = test::threadId();
        if (earlier.compare_exchange_strong(nobody, me) || nobody == me) {
            test::eventually([this] { return m_isReleased.load(); });
        }
    };
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(test::eventually([&] { return earlier != 0; }));
    ASSERT_EQ(eAF_S_OK, stop());
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(sendToTask(4242));
    ASSERT_TRUE(test::eventually([] { return workerTraced("Unknown event id: 4242"); })) << "the new run works";
    m_isReleased = true;
    EXPECT_TRUE(test::eventually([] { return test::threadsNamed("dm-af-eventtsk").size() == 1; }))
        << "the earlier worker waits on the new run's queue";
    // Nobody is left waiting, whatever the outcome.
    sendToTask(1);
    sendToTask(1);
}

// The worker had found the queue empty and waited for the sender alone, which slept for ever.
TEST_F(EventTaskFaults, ASenderThatFindsTheDrainedQueueFullAgain_ComesBack) {
    ASSERT_EQ(eAF_S_OK, create());
    ASSERT_TRUE(test::eventually([this] { return m_operations->IsRunning(m_operations) == 1; }));
    const int worker = test::threadsNamed("dm-af-eventtsk").at(0);
    ASSERT_TRUE(test::eventuallyBlocksReceiving(worker));
    const test::RawQueue another(m_queueName);
    std::atomic<bool> isEntered{false};
    test::replacements().beforeSend = [&](mqd_t) {
        if (isEntered.exchange(true)) {
            return;
        }
        another.send({1, nullptr, 0}); // the worker was told to leave, and does
        EXPECT_TRUE(test::eventuallyWaits(worker)) << "for this sender";
        for (int i = 0; i < 10; ++i) {
            another.send({1, nullptr, 0});
        }
    };
    std::atomic<bool> cameBack{false};
    std::thread sender([&] {
        EXPECT_EQ(eAF_S_OK, stop());
        cameBack = true;
    });
    EXPECT_TRUE(test::eventually([&] { return cameBack.load(); }));
    if (!cameBack) {
        another.receive();
    }
    sender.join();
    test::replacements().beforeSend = nullptr;
}

TEST_F(EventTaskFaults, AFailedWakeUp_MakesStopFail) {
    ASSERT_EQ(eAF_S_OK, create());
    {
        const Failing failing(Call::mqSend, EAGAIN);
        EXPECT_EQ(eAF_E_FAILED, stop());
        EXPECT_EQ(0u, m_task.runFlag);
        SEventDataMessage message{1, nullptr, 0};
        EXPECT_EQ(eAF_E_FAILED, CEventTask_HandleEvent(&m_task, &message));
    }
    EXPECT_EQ(Lines{}, traced());
}

} // namespace
