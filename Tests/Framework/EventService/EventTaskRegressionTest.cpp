// What once went wrong when a task ended, each with the line that says what broke.
#include <algorithm>
#include <atomic>
#include <list>
#include <thread>
#include <vector>

#include "CApplicationFramework.h"
#include "EventService.h"

namespace {

using test::EventService;
using test::eventually;

constexpr char workerName[] = "dm-af-eventtsk";

class EventTaskRegression : public EventService {
protected:
    EventTaskRegression() : m_cleaner({"RT"}) { CEventTask_GetInterface(&task, &operations); }

    /// Creates the task.
    /// @return its worker's thread.
    int create() {
        const std::vector<int> before = test::threadsNamed(workerName);
        EXPECT_EQ(eAF_S_OK, operations->Create(&task, "RT", 0, 2048, 12, 1));
        int worker = 0;
        EXPECT_TRUE(eventually([&] {
            for (const int thread : test::threadsNamed(workerName)) {
                if (std::find(before.begin(), before.end(), thread) == before.end()) {
                    worker = thread;
                }
            }
            return worker != 0;
        }));
        return worker;
    }

    static bool workersLeft(std::size_t count) {
        return eventually([count] { return test::threadsNamed(workerName).size() == count; });
    }

    CEventTask task{};
    ITask *operations = nullptr;

private:
    test::QueueCleaner m_cleaner;
};

/// A thread that blocks while it sends to a full queue.
class BlockedSender {
public:
    template <class Send>
    explicit BlockedSender(Send send)
        : m_thread([this, send] {
              m_id = test::threadId();
              send();
          }) {
        EXPECT_TRUE(eventually([this] { return m_id != 0; }));
        EXPECT_TRUE(test::eventuallyBlocksSending(m_id));
    }
    ~BlockedSender() { m_thread.join(); }

private:
    std::atomic<int> m_id{0};
    std::thread m_thread;
};

// Destroy closed the queue under the leaving worker, which stopped draining it: the senders slept for ever.
TEST_F(EventTaskRegression, SendersQueuedBehindStop_AllComeBack) {
    initialize();
    registerEvents({1});
    test::Listener full("RegressedListener");
    ASSERT_EQ(eAF_S_OK, full.add({1}));
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    }
    // The handler's own worker names itself once it runs: until then it could be taken for the one created here.
    ASSERT_TRUE(workersLeft(1));
    if (test::expectedTaskQueueName("RT") == test::expectedTaskQueueName()) {
        // The user's name leaves no room for the tasks'.
        CApplicationFramework_SetServerPort(-CApplicationFramework_GetServerPort());
    }
    const int worker = create();
    const test::RawQueue queue(test::expectedTaskQueueName("RT"));
    ASSERT_TRUE(queue.send({1, nullptr, 0}));
    ASSERT_TRUE(test::eventuallyBlocksSending(worker));
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(queue.send({1, nullptr, 0}));
    }

    static SEventDataMessage message{};
    std::atomic<int> cameBack{0};
    {
        const BlockedSender stopping([&] {
            operations->Stop(&task);
            operations->Destroy(&task);
            ++cameBack;
        });
        std::list<BlockedSender> senders;
        for (int i = 0; i < 5; ++i) {
            senders.emplace_back([&] {
                CEventTask_HandleEvent(&task, &message);
                ++cameBack;
            });
        }
        full.pump();
    }
    EXPECT_EQ(6, cameBack);
    EXPECT_TRUE(workersLeft(1)) << "the handler's own";
    full.pumpAll();
}

// The new run opened the earlier one's queue and ate the message that should have ended the earlier worker.
TEST_F(EventTaskRegression, CreatedTwice_TheFirstWorkerEndsWithoutBeingStopped) {
    create();
    const std::size_t descriptors = test::descriptorCount();
    create();
    EXPECT_TRUE(workersLeft(1));
    EXPECT_TRUE(eventually([&] { return test::descriptorCount() == descriptors; }));
    EXPECT_EQ(eAF_S_OK, operations->Stop(&task));
    operations->Destroy(&task);
    EXPECT_TRUE(workersLeft(0));
}

TEST_F(EventTaskRegression, StoppedAndCreatedAnewManyTimes_NoWorkerAndNoDescriptorIsLeft) {
    const std::size_t descriptors = test::descriptorCount();
    for (int i = 0; i < 100; ++i) {
        // A leaving worker keeps its queue, and the system has few for all programs together.
        ASSERT_TRUE(eventually([] { return test::threadCount() < 16; }));
        ASSERT_EQ(eAF_S_OK, operations->Create(&task, "RT", 0, 2048, 12, 1));
        ASSERT_EQ(eAF_S_OK, operations->Start(&task));
        operations->Stop(&task);
    }
    operations->Destroy(&task);
    EXPECT_TRUE(workersLeft(0));
    EXPECT_TRUE(eventually([&] { return test::descriptorCount() == descriptors; }));
}

// The worker waited for ever in a queue that nobody could reach any more.
TEST_F(EventTaskRegression, DestroyedWithoutStop_TheWorkerEndsAndItsDescriptorIsClosed) {
    const std::size_t descriptors = test::descriptorCount();
    const int worker = create();
    ASSERT_TRUE(test::eventuallyBlocksReceiving(worker));
    EXPECT_EQ(0, operations->Destroy(&task));
    EXPECT_TRUE(workersLeft(0));
    EXPECT_TRUE(eventually([&] { return test::descriptorCount() == descriptors; }));
}

// Others who read the queue took Stop's message and Destroy's: the worker waited for ever, in a queue without a name.
TEST_F(EventTaskRegression, WakeUpsThatOthersTook_ComeAgainWithTheNextTask) {
    const int worker = create();
    ASSERT_TRUE(test::eventuallyBlocksReceiving(worker));
    const test::RawQueue queue(test::expectedTaskQueueName("RT"));
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        std::atomic<int> reader{0};
        readers.emplace_back([&queue, &reader] {
            reader = test::threadId();
            queue.receive();
        });
        ASSERT_TRUE(eventually([&] { return reader != 0; }));
        ASSERT_TRUE(test::eventuallyBlocksReceiving(reader));
    }
    // Who waits longest is served first: this one is for the worker, which then waits behind the others.
    ASSERT_TRUE(queue.send({77, nullptr, 0}));
    ASSERT_TRUE(eventually([] { return workerTraced("Could not fire (unknown) delayed event"); }));
    ASSERT_TRUE(test::eventuallyBlocksReceiving(worker));
    EXPECT_EQ(eAF_S_OK, operations->Stop(&task));
    operations->Destroy(&task);
    for (std::thread &reader : readers) {
        reader.join();
    }
    EXPECT_EQ((std::vector<int>{worker}), test::threadsNamed(workerName)) << "nothing has woken it";

    ASSERT_EQ(eAF_S_OK, operations->Create(&task, "RT", 0, 2048, 12, 1));
    EXPECT_EQ(eAF_S_OK, operations->Stop(&task));
    operations->Destroy(&task);
    EXPECT_TRUE(eventually([this] { return workerHasLeft(); }));
}

} // namespace
