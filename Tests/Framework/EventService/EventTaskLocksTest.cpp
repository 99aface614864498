// What the worker, its task's owner and other tasks share is theirs one at a time.
#include <cerrno>
#include <string>
#include <thread>

#include "EventService.h"
#include "Interposed.h"

namespace {

using test::Call;
using test::Failing;
using test::Lines;

struct Task {
    Task() { CEventTask_GetInterface(&record, &operations); }
    EAFResult create(const char *name = "T") { return operations->Create(&record, name, 1, 2048, 12, 1); }

    CEventTask record{};
    ITask *operations = nullptr;
};

class EventTaskLocks : public test::EventService {
protected:
    EventTaskLocks() : m_cleaner({"T", "Other"}) {
        // Debug traces off: the recorder's own lock would put the threads in an order.
        test::TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
        test::forgetCalls();
    }
    ~EventTaskLocks() override {
        m_task.operations->Stop(&m_task.record);
        m_task.operations->Destroy(&m_task.record);
        EXPECT_TRUE(test::eventually([this] { return workerHasLeft(); }));
        test::forwardEverything();
    }

    Task m_task;

private:
    test::QueueCleaner m_cleaner;
};

// The worker held the lock of all tasks while it waited for the semaphore.
TEST_F(EventTaskLocks, ASemaphoreThatSomebodyTook_HoldsUpNoOtherTask) {
    {
        const Failing taken(Call::semTrywait, EAGAIN);
        ASSERT_EQ(eAF_S_OK, m_task.create());
        ASSERT_TRUE(test::eventually([&] { return taken.times() > 3; })) << "it asks again and again";
        EXPECT_EQ(0u, m_task.operations->IsRunning(&m_task.record));
        Task other;
        EXPECT_EQ(eAF_S_OK, other.create("Other"));
        EXPECT_EQ(eAF_S_OK, other.operations->Stop(&other.record));
        EXPECT_EQ(0, other.operations->Destroy(&other.record));
    }
    EXPECT_TRUE(test::eventually([this] { return m_task.operations->IsRunning(&m_task.record) == 1; }));
}

TEST_F(EventTaskLocks, AWorkerThatLeavesBeforeItsQueueIsNamed_MeetsNoHalfOfTheName) {
    const Failing unlinking(Call::mqUnlink, EBUSY);
    test::replacements().beforeThread = [this] { m_task.operations->Stop(&m_task.record); };
    // Nothing here puts the worker's look at the name before the owner's writing it: the two have only their lock.
    test::replacements().beforeUserName = [&] {
        EXPECT_TRUE(test::eventually([&] { return unlinking.times() == 1; })) << "the worker leaves";
    };
    EXPECT_EQ(eAF_S_OK, m_task.create());
    EXPECT_EQ(test::expectedTaskQueueName("T"), m_task.record.queueName);
}

TEST_F(EventTaskLocks, TasksThatFailOnSeveralThreads_KeepTheListOfAllWhole) {
    const Failing failing(Call::semInit, ENOSYS);
    constexpr int lives = 500;
    const auto failAgainAndAgain = [] {
        Task task;
        for (int i = 0; i < lives; ++i) {
            EXPECT_EQ(eAF_E_FAILED, task.create());
        }
    };
    std::thread other(failAgainAndAgain);
    failAgainAndAgain();
    other.join();
    EXPECT_EQ(2 * lives, failing.times());
    EXPECT_EQ(Lines(2 * lives, {"CEventTask_Create", "EventTask (T): Could not create semaphore", 0x8000}), traced());
}

} // namespace
