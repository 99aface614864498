// However often the service begins and ends, and wherever its worker stands then, nothing piles up.
#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "EventService.h"
#include "Sanitized.h"

namespace {

class InitializeRepeatedly : public test::EventService {
protected:
    // The worker's traces would pile up in the recorder.
    InitializeRepeatedly() { test::TraceRecorder::reset(-1); }

    bool allWorkersLeft() {
        return test::eventually([this] { return workerHasLeft(); });
    }
    const std::string m_taskQueue = test::expectedTaskQueueName();
};

/// Bytes of the heap that are in use. Sanitizers bring an allocator and a leak check of their own.
std::size_t heapInUse() {
#ifdef ZELAF_SANITIZED
    return 0;
#else
    return mallinfo2().uordblks;
#endif
}

/// How many lives are asked for; "./run soak-events" asks for as many under a sanitizer.
int livesWanted() {
    if (const char *asked = std::getenv("ZELAF_LIVES")) {
        return std::atoi(asked);
    }
#ifdef ZELAF_SANITIZED
    return 500;
#else
    return test::isEmulated() ? 500 : 10000;
#endif
}

/// What the worker is at when the service ends.
enum class Moment : unsigned { unborn, running, waitingForAMessage, handlingMessages, heldUpByAListener, any, count };

class InitializeVeryOften : public InitializeRepeatedly {
protected:
    InitializeVeryOften() : m_listenerQueue(test::expectedQueueName("Full")) { mq_unlink(m_listenerQueue.c_str()); }
    ~InitializeVeryOften() override { mq_unlink(m_listenerQueue.c_str()); }

    void live(Moment moment) {
        if (moment == Moment::running || moment == Moment::waitingForAMessage || moment == Moment::heldUpByAListener) {
            // The worker to look for is then the only one.
            ASSERT_TRUE(allWorkersLeft());
        }
        // A leaving worker keeps its queue, and the system has few for all programs together.
        ASSERT_TRUE(test::eventually([this] { return test::threadCount() < m_threads + 16; }));
        ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(4, 2));
        ASSERT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(1, "one"));
        switch (moment) {
        case Moment::unborn:
        case Moment::count:
            break;
        case Moment::running:
            ASSERT_NE(0, newWorker());
            break;
        case Moment::waitingForAMessage:
            ASSERT_TRUE(test::eventuallyBlocksReceiving(newWorker()));
            break;
        case Moment::handlingMessages:
            sendToTask(1 + random(10));
            break;
        case Moment::heldUpByAListener:
            liveOnBehindAFullListener();
            return;
        case Moment::any:
            spinFor(std::chrono::microseconds(random(300)));
            break;
        }
        ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    }

    void expectNothingLeft() {
        EXPECT_TRUE(allWorkersLeft());
        EXPECT_TRUE(test::eventually([this] { return test::descriptorCount() == m_descriptors; }));
        EXPECT_FALSE(test::queueExists(m_taskQueue));
    }

    unsigned random(unsigned below) { return static_cast<unsigned>(m_random() % below); }

    static std::ptrdiff_t grown(std::size_t now, std::size_t before) {
        return static_cast<std::ptrdiff_t>(now) - static_cast<std::ptrdiff_t>(before);
    }

    const std::size_t m_threads = test::threadCount();
    const std::size_t m_descriptors = test::descriptorCount();

private:
    /// The only worker's thread, once it has named itself.
    static int newWorker() {
        std::vector<int> workers;
        test::eventually([&] {
            workers = test::threadsNamed("dm-af-eventtsk");
            return !workers.empty();
        });
        return workers.empty() ? 0 : workers.front();
    }

    void sendToTask(unsigned messages) const {
        const test::RawQueue queue(m_taskQueue);
        for (unsigned i = 0; i < messages; ++i) {
            queue.send({i % 3, nullptr, 0});
        }
    }

    static void spinFor(std::chrono::microseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end) {
        }
    }

    /// The worker sleeps in its send to a full listener until that queue is read, long after the service has ended.
    void liveOnBehindAFullListener() {
        SListenerCallback callback{
            nullptr, [](void *, std::uint32_t, void *, SListenerCallback *) { return EAFResult{eAF_S_OK}; }};
        std::uint32_t handle = 0;
        ASSERT_EQ(eAF_S_OK, CEventHandler_AddListener(&callback, nullptr, 0, "Full", &handle));
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
        }
        ASSERT_TRUE(test::RawQueue(m_taskQueue).send({1, nullptr, 0}));
        ASSERT_TRUE(test::eventuallyBlocksSending(newWorker()));
        ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
        const std::vector<int> open = test::descriptorsOn(m_listenerQueue);
        ASSERT_EQ(1u, open.size());
        {
            const test::RawQueue queue(m_listenerQueue);
            for (int i = 0; i < 11; ++i) {
                queue.receive();
            }
        }
        ASSERT_TRUE(allWorkersLeft());
        // A listener's queue stays open: that is settled, and nothing that piles up by itself.
        ASSERT_EQ(0, mq_close(open[0]));
        mq_unlink(m_listenerQueue.c_str());
    }

    std::minstd_rand m_random; // NOLINT(cert-msc51-cpp,cert-msc32-c): the same lives each time
    const std::string m_listenerQueue;
};

TEST_F(InitializeVeryOften, AtAnyPointOfTheWorkersLife_NothingIsLeftAndNothingGrows) {
    constexpr int livesOfARound = 500;
    const int rounds = (livesWanted() + livesOfARound - 1) / livesOfARound;
    std::array<unsigned, static_cast<std::size_t>(Moment::count)> lives{};
    std::size_t heapAfterFirstRound = 0;
    for (int round = 0; round < rounds; ++round) {
        for (int life = 0; life < livesOfARound; ++life) {
            // The one that has to be waited for is rare.
            auto moment = static_cast<Moment>(random(static_cast<unsigned>(Moment::count)));
            if (moment == Moment::heldUpByAListener && life % 10 != 0) {
                moment = Moment::any;
            }
            ASSERT_NO_FATAL_FAILURE(live(moment)) << "round " << round << ", life " << life;
            ++lives.at(static_cast<std::size_t>(moment));
        }
        ASSERT_NO_FATAL_FAILURE(expectNothingLeft()) << "round " << round;
        if (round == 0) {
            heapAfterFirstRound = heapInUse();
        }
        // 40 bytes a life would be seen in the first round that follows.
        ASSERT_LT(heapInUse(), heapAfterFirstRound + std::size_t{40} * livesOfARound) << "round " << round;
    }
    std::printf("%d lives, ended while the worker was unborn %u, running %u, waiting %u, handling %u, held up %u, "
                "anywhere %u: %td threads, %td descriptors, %d queues, %td bytes of heap left\n",
                rounds * livesOfARound, lives[0], lives[1], lives[2], lives[3], lives[4], lives[5],
                grown(test::threadCount(), m_threads), grown(test::descriptorCount(), m_descriptors),
                test::queueExists(m_taskQueue) ? 1 : 0, grown(heapInUse(), heapAfterFirstRound));
}

TEST_F(InitializeRepeatedly, EachLife_WorksLikeTheFirst) {
    for (int life = 0; life < 20; ++life) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(4, 2));
        registerEvents({1, 2});
        test::Listener listener("A");
        ASSERT_EQ(eAF_S_OK, listener.add());
        ASSERT_EQ(0u, listener.handle());
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithCopiedData(2, "copy", 4));
        listener.pump();
        EXPECT_EQ(1u, listener.deliveries.size());
        test::RawQueue(m_taskQueue).send({1, nullptr, 0});
        listener.pump();
        EXPECT_EQ(2u, listener.deliveries.size()) << "the worker of this life delivers";
        EXPECT_EQ(1u, statistics().noOfCacheMisses);
        ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    }
    EXPECT_TRUE(allWorkersLeft());
}

TEST_F(InitializeRepeatedly, FailedAttempts_LeaveNothingEither) {
    const std::size_t descriptors = test::descriptorCount();
    const std::size_t threads = test::threadCount();
    for (int attempt = 0; attempt < 50; ++attempt) {
        EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
    }
    ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(4, 2));
    for (int attempt = 0; attempt < 50; ++attempt) {
        EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, CEventHandler_Initialize(4, 2));
    }
    EXPECT_EQ(threads + 1, test::threadCount());
    ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    EXPECT_TRUE(allWorkersLeft());
    EXPECT_TRUE(test::eventually([&] { return test::descriptorCount() == descriptors; }));
}

#ifndef ZELAF_SANITIZED
// Sanitizers bring an allocator and a leak check of their own.
TEST_F(InitializeRepeatedly, TheHeapDoesNotGrow) {
    const auto live = [this](int lives) {
        for (int life = 0; life < lives; ++life) {
            EXPECT_EQ(eAF_S_OK, CEventHandler_Initialize(50, 10));
            registerEvents({1, 2, 3});
            EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
            EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
            EXPECT_TRUE(allWorkersLeft());
        }
    };
    live(20);
    const std::size_t before = mallinfo2().uordblks;
    live(100);
    // A life reserves some 8 KiB: one that was kept would show a hundredfold.
    EXPECT_LT(mallinfo2().uordblks, before + std::size_t{50} * 1024);
}
#endif

} // namespace
