// Messages that are put on the event task's queue: its worker forwards them.
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "EventService.h"

namespace {

using test::Line;
using test::Listener;
using test::RawQueue;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

class DelayedEvents : public test::EventService {
protected:
    DelayedEvents() {
        initialize();
        registerEvents({1, 2});
    }

    /// Whether the worker has dealt with everything that was sent before: it takes its messages in turn.
    bool workerIsThrough() {
        const std::uint32_t mark = m_nextMark++;
        RawQueue(m_taskQueue).send({mark, nullptr, 0});
        return test::eventually([&] {
            const auto lines = test::TraceRecorder::workerLines();
            const Line unknown{"CEventHandler_FindEventIndex", "Unknown event id: " + std::to_string(mark), 0x800E};
            // Its last trace for the mark.
            return !lines.empty() && lines.back().message == "Could not fire (unknown) delayed event" &&
                   std::find(lines.begin(), lines.end(), unknown) != lines.end();
        });
    }

    const std::string m_taskQueue = test::expectedTaskQueueName();

private:
    std::uint32_t m_nextMark = 500000;
};

/// Whether an address lies in memory that this process may write.
bool isWritableHere(std::uintptr_t address) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const std::size_t dash = line.find('-');
        const unsigned long long begin = std::stoull(line.substr(0, dash), nullptr, 16);
        const unsigned long long end = std::stoull(line.substr(dash + 1), nullptr, 16);
        if (begin <= address && address < end) {
            return line.find(" rw") != std::string::npos;
        }
    }
    return false;
}

TEST_F(DelayedEvents, ReachTheListenersOfTheirEvent_AsAnAddressOfTheWorkers) {
    Listener listener("A");
    listener.add({1});
    const RawQueue queue(listener.queue());
    int object = 0;
    ASSERT_TRUE(RawQueue(m_taskQueue).send({1, &object, 0}));
    const test::RawMessage raw = queue.receive();
    std::uintptr_t address = 0;
    ASSERT_EQ(sizeof(SEventDataMessage), raw.bytes.size());
    std::memcpy(&address, raw.bytes.data(), sizeof address);
    EXPECT_TRUE(isWritableHere(address)) << std::hex << address;
    EXPECT_EQ(std::string(raw.bytes.size() - sizeof address, '\0'), raw.bytes.substr(sizeof address))
        << "neither the data nor anything else is forwarded";
    EXPECT_EQ(0u, raw.priority);
}

TEST_F(DelayedEvents, TheListenerHearsTheLowWordOfTheAddressAndNotTheId) {
    Listener listener("A");
    listener.add({1});
    int object = 0;
    ASSERT_TRUE(RawQueue(m_taskQueue).send({1, &object, 0}));
    CEventHandler_PumpEvent(listener.handle());
    ASSERT_EQ(1u, listener.deliveries.size());
    EXPECT_NE(1u, listener.deliveries[0].eventId);
    EXPECT_EQ(nullptr, listener.deliveries[0].data);
}

TEST_F(DelayedEvents, GoToTheListenersOfTheirEventOnly) {
    Listener first("A");
    Listener second("B");
    Listener other("C");
    first.add({1});
    second.add();
    other.add({2});
    ASSERT_TRUE(RawQueue(m_taskQueue).send({1, nullptr, 0}));
    ASSERT_TRUE(workerIsThrough());
    EXPECT_EQ(1, first.waiting());
    EXPECT_EQ(1, second.waiting());
    EXPECT_EQ(0, other.waiting());
}

std::atomic<int> signalledThread{0};

void keepThread(int /*signal*/) {
    signalledThread = test::threadId();
}

// The worker's send failed, and nobody was told that the event did not come.
TEST_F(DelayedEvents, AreNotLost_WhenASignalComesWhileTheirListenerIsFull) {
    signalledThread = 0;
    struct sigaction usual {};
    struct sigaction interrupting {};
    interrupting.sa_handler = keepThread;
    ASSERT_EQ(0, sigaction(SIGUSR1, &interrupting, &usual));
    Listener listener("A");
    listener.add({1});
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    }
    ASSERT_TRUE(RawQueue(m_taskQueue).send({1, nullptr, 0}));
    int worker = 0;
    ASSERT_TRUE(test::eventually([&] {
        for (const int thread : test::threadsNamed("dm-af-eventtsk")) {
            worker = test::blocksSending(thread) ? thread : worker;
        }
        return worker != 0;
    }));
    EXPECT_TRUE(test::blocksSignal(worker, SIGUSR1));
    EXPECT_FALSE(test::blocksSignal(worker, SIGSEGV)) << "the host may have a handler that tells of faults";
    ASSERT_EQ(0, syscall(SYS_tgkill, getpid(), worker, SIGUSR1));
    listener.pump();
    ASSERT_TRUE(test::eventually([] { return signalledThread != 0; })) << "it comes once the event is on its way";
    EXPECT_EQ(worker, signalledThread);
    ASSERT_TRUE(workerIsThrough());
    EXPECT_EQ(10, listener.waiting()) << "nine and the delayed one";
    listener.pumpAll();
    sigaction(SIGUSR1, &usual, nullptr);
}

TEST_F(DelayedEvents, LoseTheirUrgencyOnTheWay) {
    Listener listener("A");
    listener.add({1});
    const RawQueue queue(listener.queue());
    ASSERT_TRUE(RawQueue(m_taskQueue).send({1, nullptr, 0}, 32767));
    EXPECT_EQ(0u, queue.receive().priority);
}

TEST_F(DelayedEvents, WithoutListeners_AreFine) {
    ASSERT_TRUE(RawQueue(m_taskQueue).send({1, nullptr, 0}));
    ASSERT_TRUE(workerIsThrough());
    EXPECT_THAT(test::TraceRecorder::workerLines(),
                Not(Contains(Line{"CEventHandler_FindEventIndex", "Unknown event id: 1", 0x800E})));
}

TEST_F(DelayedEvents, OfAnUnknownId_AreTracedThreeTimesByTheWorker) {
    ASSERT_TRUE(RawQueue(m_taskQueue).send({77, nullptr, 0}));
    ASSERT_TRUE(test::eventually([] { return workerTraced("Could not fire (unknown) delayed event"); }));
    auto lines = test::TraceRecorder::workerLines();
    ASSERT_GE(lines.size(), 3u);
    lines.erase(lines.begin(), lines.end() - 3);
    EXPECT_EQ((test::Lines{
                  {"CEventHandler_FindEventIndex", "Unknown event id: 77", 0x800E},
                  {"CEventHandler_FireEventFromMessageInternal", "Could not find event index for event id 77", 0x800E},
                  {"CEventTask_OsProcess", "Could not fire (unknown) delayed event", 0x1000}}),
              lines);
    EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(DelayedEvents, TheStopMarkOfAStranger_IsAnUnknownIdToARunningWorker) {
    ASSERT_TRUE(RawQueue(m_taskQueue).send({EVENT_ID_STOP, nullptr, 0}));
    EXPECT_TRUE(test::eventually([] { return workerTraced("Could not find event index for event id -1"); }));
    EXPECT_TRUE(workerIsThrough()) << "it goes on";
}

TEST_F(DelayedEvents, AnEmptyMessage_DoesNotStopTheWorker) {
    const RawQueue queue(m_taskQueue);
    ASSERT_EQ(0, mq_send(queue.descriptor(), "", 0, 0));
    EXPECT_TRUE(workerIsThrough());
}

TEST_F(DelayedEvents, ALostSend_IsNoErrorToTheWorker) {
    Listener broken("A");
    Listener other("B");
    broken.add({1});
    other.add({1});
    ASSERT_EQ(0, mq_close(test::descriptorsOn(broken.queue()).at(0)));
    ASSERT_TRUE(RawQueue(m_taskQueue).send({1, nullptr, 0}));
    ASSERT_TRUE(workerIsThrough());
    EXPECT_EQ(1, other.waiting());
    EXPECT_FALSE(workerTraced("Could not fire delayed event event 1"));
}

TEST_F(DelayedEvents, LeaveCacheAndStatisticsAlone) {
    Listener listener("A");
    listener.add();
    ASSERT_TRUE(RawQueue(m_taskQueue).send({2, nullptr, 0}));
    ASSERT_TRUE(workerIsThrough());
    EXPECT_EQ(0u, statistics().noOfCacheMisses);
    EXPECT_EQ(0u, statistics().noOfPumpedEvents);
    CEventHandler_FireEvent(2);
    EXPECT_EQ(1u, statistics().noOfCacheMisses);
}

TEST_F(DelayedEvents, AnotherProcess_OpensTheTasksQueueByNameAndIsServed) {
    Listener listener("A");
    listener.add({2});
    const SEventDataMessage message{2, nullptr, 0};
    const pid_t child = fork();
    if (child == 0) {
        const mqd_t queue = mq_open(m_taskQueue.c_str(), O_WRONLY);
        const bool sent = mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, 0) == 0;
        _exit(sent ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_EQ(0, status);
    CEventHandler_PumpEvent(listener.handle());
    EXPECT_EQ(1u, listener.deliveries.size());
}

} // namespace
