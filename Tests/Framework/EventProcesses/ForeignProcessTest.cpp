// Other programs of the same user may open every queue. What they do there costs at most what they took.
#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ChildProgram.h"
#include "EventService.h"
#include "Sanitized.h"

namespace {

using test::ChildProgram;
using testing::ElementsAre;

constexpr std::uint32_t ownEvent = 1;
constexpr std::uint32_t foreignEvent = 2;
constexpr std::uint32_t endEvent = 9;

#ifdef ZELAF_SANITIZED
constexpr int roundsHere = 10;
#else
constexpr int roundsHere = 50;
#endif

int rounds() {
    const char *asked = std::getenv("ZELAF_KILL_TRIES");
    return asked != nullptr ? static_cast<int>(std::strtol(asked, nullptr, 10)) : roundsHere;
}

std::uintptr_t numberOf(const void *data) {
    return reinterpret_cast<std::uintptr_t>(data);
}

void *dataOf(std::uintptr_t number) {
    return reinterpret_cast<void *>(number); // NOLINT(performance-no-int-to-ptr): a number is what travels
}

/// A listener on a thread of its own that wants 1, 2, 3, ... of each event.
class CountingListener {
public:
    explicit CountingListener(const std::string &name) : m_name(name), m_callback{this, onEvent} {}
    ~CountingListener() {
        if (m_thread.joinable()) {
            end();
        }
        mq_unlink(queue().c_str());
    }
    CountingListener(const CountingListener &) = delete;
    CountingListener &operator=(const CountingListener &) = delete;

    void start() {
        ASSERT_EQ(eAF_S_OK, CEventHandler_AddListener(&m_callback, nullptr, 0, m_name.c_str(), &m_handle));
        m_thread = std::thread([this] {
            while (!m_hasEnded) {
                CEventHandler_PumpEvent(m_handle);
            }
        });
    }
    /// Handles whatever was sent before.
    void end() {
        CEventHandler_FireEvent(endEvent);
        m_thread.join();
    }
    std::string queue() const { return test::expectedQueueName(m_name); }
    std::uintptr_t lastOf(std::uint32_t event) const { return m_last.at(event); }
    /// A foreign program begins anew.
    void restart(std::uint32_t event) { m_last.at(event) = 0; }
    unsigned faults() const { return m_faults; }

private:
    static EAFResult onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *) {
        auto &listener = *static_cast<CountingListener *>(context);
        if (eventId == endEvent) {
            listener.m_hasEnded = true;
        } else if (eventId >= listener.m_last.size() || numberOf(data) != listener.m_last[eventId] + 1) {
            ++listener.m_faults;
        } else {
            ++listener.m_last[eventId];
        }
        return eAF_S_OK;
    }

    const std::string m_name;
    SListenerCallback m_callback;
    std::uint32_t m_handle = 0;
    bool m_hasEnded = false;
    std::array<std::atomic<std::uintptr_t>, 3> m_last{};
    std::atomic<unsigned> m_faults{0};
    std::thread m_thread;
};

class ForeignProcess : public test::EventService {
protected:
    ForeignProcess() {
        test::TraceRecorder::reset(test::levelOf(eAF_E_FAILED));
        initialize();
        registerEvents({ownEvent, foreignEvent, endEvent});
    }
    ~ForeignProcess() override {
        for (ChildProgram &program : m_programs) {
            program.send(SIGKILL);
        }
    }

    /// @return the program, which has opened its queue.
    ChildProgram &begin(const std::vector<std::string> &words) {
        m_programs.emplace_back(FOREIGN_PROGRAM, words);
        EXPECT_TRUE(m_programs.back().waitForOutput("ready\n")) << m_programs.back().errors();
        return m_programs.back();
    }
    /// Until the program has ended.
    static void run(const std::vector<std::string> &words) {
        ChildProgram program(FOREIGN_PROGRAM, words);
        EXPECT_EQ(0, program.exitCode()) << words.at(0) << ": " << program.errors();
    }

    const std::string m_taskQueue = test::expectedTaskQueueName();

private:
    std::list<ChildProgram> m_programs;
};

TEST_F(ForeignProcess, AFlood_HoldsEventsUpAndLosesNone) {
    CountingListener listener("A");
    listener.start();
    begin({"flood", listener.queue(), std::to_string(foreignEvent)});
    ASSERT_TRUE(test::eventually([&] { return listener.lastOf(foreignEvent) > 0; }));
    const std::uintptr_t own = 200 * static_cast<std::uintptr_t>(roundsHere);
    for (std::uintptr_t i = 1; i <= own; ++i) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_FireEventWithData(ownEvent, dataOf(i)));
    }
    ASSERT_TRUE(test::eventually([&] { return listener.lastOf(ownEvent) == own; }));
    listener.end();
    EXPECT_EQ(0u, listener.faults()) << "every message of both, in the order sent";
}

TEST_F(ForeignProcess, KilledWhileItSends_LeavesNoHalfOfAMessage) {
    CountingListener listener("A");
    listener.start();
    std::minstd_rand random; // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments each time
    std::uintptr_t own = 0;
    std::uintptr_t foreign = 0;
    unsigned kills = 0;
    for (int round = 0; round < rounds(); ++round) {
        {
            ChildProgram flood(FOREIGN_PROGRAM, {"flood", listener.queue(), std::to_string(foreignEvent)});
            ASSERT_TRUE(flood.waitForOutput("ready\n")) << flood.errors();
            // Half of them send for a while, the others may be killed before their first.
            ASSERT_TRUE(round % 2 != 0 || test::eventually([&] { return listener.lastOf(foreignEvent) > 0; }));
            usleep(static_cast<useconds_t>(random() % 1500));
            flood.send(SIGKILL);
            ASSERT_EQ(-SIGKILL, flood.exitCode()) << flood.errors();
            ++kills;
        }
        ++own;
        ASSERT_EQ(eAF_S_OK, CEventHandler_FireEventWithData(ownEvent, dataOf(own)));
        ASSERT_TRUE(test::eventually([&] { return listener.lastOf(ownEvent) == own; })) << "round " << round;
        foreign += listener.lastOf(foreignEvent);
        listener.restart(foreignEvent);
    }
    listener.end();
    EXPECT_EQ(0u, listener.faults()) << "1, 2, 3, ... of each program, whole, up to its end";
    EXPECT_GE(foreign, static_cast<std::uintptr_t>((rounds() + 1) / 2));
    std::printf("%u kills while sending, %zu foreign messages: %u faults\n", kills, foreign, listener.faults());
}

TEST_F(ForeignProcess, AReader_GetsWhatItTookAndTheListenerTheRest) {
    test::Listener listener("A");
    ASSERT_EQ(eAF_S_OK, listener.add({ownEvent}));
    std::vector<std::uintptr_t> seen;
    for (int round = 0; round < 20; ++round) {
        for (std::uintptr_t i = 1; i <= 10; ++i) {
            ASSERT_EQ(eAF_S_OK, CEventHandler_FireEventWithData(ownEvent, dataOf(i)));
        }
        ChildProgram reader(FOREIGN_PROGRAM, {"take", listener.queue(), "4"});
        // Both read at once: a third of the rounds pumps before the reader is there.
        listener.pump(round % 3 == 0 ? 6 : 0);
        EXPECT_EQ(0, reader.exitCode()) << reader.errors();
        listener.pump(round % 3 == 0 ? 0 : 6);
        std::istringstream taken(reader.output());
        std::string ready;
        taken >> ready;
        for (std::uintptr_t number = 0; taken >> number;) {
            seen.push_back(number);
        }
        for (const test::Delivery &delivery : listener.deliveries) {
            seen.push_back(numberOf(delivery.data));
        }
        std::sort(seen.begin(), seen.end());
        ASSERT_THAT(seen, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10)) << "each once, in round " << round;
        EXPECT_TRUE(std::is_sorted(listener.deliveries.begin(), listener.deliveries.end(),
                                   [](const auto &a, const auto &b) { return numberOf(a.data) < numberOf(b.data); }));
        seen.clear();
        listener.deliveries.clear();
        ASSERT_EQ(0, listener.waiting());
    }
}

TEST_F(ForeignProcess, QueuesThatLoseTheirNames_CarryEventsOn) {
    CountingListener listener("A");
    listener.start();
    run({"unlink", listener.queue(), m_taskQueue});
    EXPECT_FALSE(test::queueExists(listener.queue()));
    for (std::uintptr_t i = 1; i <= 100; ++i) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_FireEventWithData(ownEvent, dataOf(i)));
    }
    listener.end();
    EXPECT_EQ(100u, listener.lastOf(ownEvent));
    EXPECT_EQ(0u, listener.faults());
    unInitialize();
    initialize();
    EXPECT_TRUE(test::queueExists(m_taskQueue)) << "made anew";
}

TEST_F(ForeignProcess, EverySizeUpToARecord_IsFilledUpWithZeros) {
    test::Listener listener("A");
    ASSERT_EQ(eAF_S_OK, listener.add());
    ChildProgram &foreign = begin({"sizes", listener.queue()});
    for (std::size_t size = 0; size <= sizeof(SEventDataMessage); ++size) {
        SCOPED_TRACE(size);
        listener.deliveries.clear();
        forgetTraces();
        EXPECT_EQ(size == 0 ? 0u : 1u, CEventHandler_PumpEventIfAvailable(listener.handle()));
        if (size == 0) {
            EXPECT_EQ((test::Lines{{"CEventHandler_PumpEventInternal", "Failed to get event from queue", 0x8000}}),
                      traced());
            continue;
        }
        SEventDataMessage expected{};
        std::memset(&expected, 1, std::min(size, sizeof expected.eventId));
        if (size > offsetof(SEventDataMessage, pData)) {
            std::memset(static_cast<void *>(&expected.pData), 2,
                        std::min(size - offsetof(SEventDataMessage, pData), sizeof expected.pData));
        }
        ASSERT_EQ(1u, listener.deliveries.size());
        EXPECT_EQ(expected.eventId, listener.deliveries[0].eventId);
        EXPECT_EQ(expected.pData, listener.deliveries[0].data);
        EXPECT_EQ(test::Lines{}, traced());
    }
    EXPECT_EQ(0, foreign.exitCode()) << foreign.errors();
}

TEST_F(ForeignProcess, GarbageWithoutACopy_IsHandedOutAndHarmsNothing) {
    test::Listener listener("A");
    ASSERT_EQ(eAF_S_OK, listener.add({ownEvent}));
    ChildProgram &foreign = begin({"garbage", listener.queue(), "2000", "5"});
    listener.pump(2000);
    EXPECT_EQ(0, foreign.exitCode()) << foreign.errors();
    EXPECT_EQ(2000u, listener.deliveries.size());
    EXPECT_EQ(2000u, statistics().noOfPumpedEvents);
    listener.deliveries.clear();
    ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(ownEvent));
    listener.pump();
    EXPECT_THAT(listener.ids(), ElementsAre(ownEvent));
}

TEST_F(ForeignProcess, NoiseOnTheTasksQueue_ReachesNobody) {
    test::TraceRecorder::reset(-1);
    test::Listener listener("A");
    ASSERT_EQ(eAF_S_OK, listener.add());
    run({"noise", m_taskQueue, "5000", "7"});
    ASSERT_TRUE(test::eventually([this] { return test::messagesIn(m_taskQueue) == 0; }));
    EXPECT_EQ(0, listener.waiting());
    ASSERT_TRUE(test::RawQueue(m_taskQueue).send({ownEvent, nullptr, 0}));
    EXPECT_TRUE(test::eventually([&] { return listener.waiting() == 1; })) << "the worker still serves it";
    listener.pump();
    ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(ownEvent));
    listener.pump();
    EXPECT_EQ(ownEvent, listener.ids().back());
}

// The service begins and ends while others are at its own queue.

class ForeignersAtTheTask : public ForeignProcess {
protected:
    ForeignersAtTheTask() {
        unInitialize();
        test::TraceRecorder::reset(-1);
        m_descriptors = test::descriptorCount();
        m_threads = test::threadCount();
    }
    /// A leaving worker keeps its queue, and a machine has few for all programs together.
    bool hasRoom() const { return test::threadCount() < m_threads + 16; }
    void live(int life) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(4, 2));
        registerEvents({ownEvent});
        if (life % 3 != 0) {
            usleep(static_cast<useconds_t>(life % 7) * 50);
        }
        ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    }
    void expectNothingLeft() {
        EXPECT_TRUE(test::eventually([this] { return workerHasLeft(); })) << test::threadCount() << " threads";
        EXPECT_TRUE(test::eventually([this] { return test::descriptorCount() == m_descriptors; }));
        EXPECT_FALSE(test::queueExists(m_taskQueue));
    }

private:
    std::size_t m_descriptors = 0;
    std::size_t m_threads = 0;
};

TEST_F(ForeignersAtTheTask, SendersThatNeverStop_HoldNoWorkerBack) {
    ChildProgram first(FOREIGN_PROGRAM, {"rush", m_taskQueue});
    ChildProgram second(FOREIGN_PROGRAM, {"rush", m_taskQueue});
    ASSERT_TRUE(first.waitForOutput("ready\n") && second.waitForOutput("ready\n"));
    const std::size_t descriptors = test::descriptorCount();
    for (int life = 0; life < 4 * roundsHere; ++life) {
        ASSERT_TRUE(test::eventually([this] { return hasRoom(); })) << "while they still send";
        ASSERT_NO_FATAL_FAILURE(live(life));
    }
    EXPECT_TRUE(test::eventually([this] { return workerHasLeft(); })) << "while they still send";
    EXPECT_TRUE(test::eventually([&] { return test::descriptorCount() == descriptors; }));
    for (ChildProgram *program : {&first, &second}) {
        program->send(SIGKILL);
        EXPECT_EQ(-SIGKILL, program->exitCode()) << program->errors();
    }
}

TEST_F(ForeignersAtTheTask, ReadersThatTakeTheWakeUps_LeaveNoWorkerBehindOnceTheyAreGone) {
    std::list<ChildProgram> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back(FOREIGN_PROGRAM, std::vector<std::string>{"steal", m_taskQueue});
        ASSERT_TRUE(readers.back().waitForOutput("ready\n"));
    }
    int lives = 0;
    // No time lets a worker leave whose wake-up was taken, only another life does: more of them would not be waited
    // for.
    for (; lives < 4 * roundsHere && hasRoom(); ++lives) {
        ASSERT_NO_FATAL_FAILURE(live(lives));
    }
    const std::size_t stranded = test::threadsNamed("dm-af-eventtsk").size();
    for (ChildProgram &reader : readers) {
        reader.send(SIGKILL);
        EXPECT_EQ(-SIGKILL, reader.exitCode()) << reader.errors();
    }
    std::printf("%zu workers of %d lives waited for a wake-up that a reader took\n", stranded, lives);
    ASSERT_NO_FATAL_FAILURE(live(0));
    EXPECT_TRUE(test::eventually([this] { return workerHasLeft(); })) << test::threadCount() << " threads";
}

/// What is under the name of the event task's queue when the service begins.
struct OtherQueue {
    const char *name;
    unsigned messageSize;
    unsigned maxMessages;
    unsigned fill;
};

void PrintTo(const OtherQueue &queue, std::ostream *out) {
    *out << queue.name;
}

class QueueOfAnotherMaking : public ForeignersAtTheTask, public testing::WithParamInterface<OtherQueue> {
protected:
    ~QueueOfAnotherMaking() override { mq_unlink(m_taskQueue.c_str()); }
};

// A worker whose queue takes no record could not be woken, it waited for ever. And where the queue was full of larger
// messages, nobody could read it: whoever ended the service waited for ever.
TEST_P(QueueOfAnotherMaking, IsTakenAsItIsAndGoesWithTheService) {
    run({"make", m_taskQueue, std::to_string(GetParam().messageSize), std::to_string(GetParam().maxMessages),
         std::to_string(GetParam().fill)});
    ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(4, 2));
    if (GetParam().messageSize <= sizeof(SEventDataMessage)) {
        // What waits in it is read first. A queue of larger messages can not be read: the worker tries on.
        ASSERT_TRUE(test::eventually([] { return !test::threadsNamed("dm-af-eventtsk").empty(); }));
        ASSERT_TRUE(test::eventuallyBlocksReceiving(test::threadsNamed("dm-af-eventtsk").at(0)));
    }
    ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    expectNothingLeft();
    ASSERT_NO_FATAL_FAILURE(initialize());
    registerEvents({ownEvent});
    test::Listener listener("A");
    ASSERT_EQ(eAF_S_OK, listener.add());
    ASSERT_TRUE(test::RawQueue(m_taskQueue).send({ownEvent, nullptr, 0}));
    EXPECT_TRUE(test::eventually([&] { return listener.waiting() == 1; })) << "the next one is as it should be";
}

INSTANTIATE_TEST_SUITE_P(, QueueOfAnotherMaking,
                         testing::Values(OtherQueue{"OneByte", 1, 10, 0}, OtherQueue{"OneByteFull", 1, 10, 10},
                                         OtherQueue{"FewerBytes", sizeof(SEventDataMessage) - 1, 10, 0},
                                         OtherQueue{"FewerBytesFull", sizeof(SEventDataMessage) - 1, 3, 3},
                                         OtherQueue{"MoreBytes", sizeof(SEventDataMessage) + 1, 10, 0},
                                         OtherQueue{"MoreBytesFull", sizeof(SEventDataMessage) + 1, 10, 10},
                                         OtherQueue{"OneMessage", sizeof(SEventDataMessage), 1, 0},
                                         OtherQueue{"Full", sizeof(SEventDataMessage), 10, 10}),
                         [](const auto &queue) { return std::string(queue.param.name); });

} // namespace
