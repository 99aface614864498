// However often the service begins and ends, and wherever its worker stands then, nothing piles up.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sched.h>

#include <cstddef>
#include <cstdint>
#include <string>

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
    const std::string m_taskQueue = test::expectedQueueName("EHNP");
};

TEST_F(InitializeRepeatedly, AtAnyPointOfTheWorkersLife_EveryWorkerLeaves) {
    const std::size_t descriptors = test::descriptorCount();
    for (int life = 0; life < 300; ++life) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(4, 2));
        ASSERT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(1, "one"));
        for (int turns = 0; turns < life % 7; ++turns) {
            sched_yield();
        }
        if (life % 5 == 0) {
            test::RawQueue(m_taskQueue).send({1, nullptr, 0});
        }
        ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    }
    EXPECT_TRUE(allWorkersLeft());
    EXPECT_TRUE(test::eventually([&] { return test::descriptorCount() == descriptors; }));
    EXPECT_FALSE(test::queueExists(m_taskQueue));
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
