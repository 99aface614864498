// A leaving worker empties its queue for the sender that is blocked on it, and a stranger fills it as fast: it must
// leave all the same.
#include <mqueue.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <cstddef>
#include <thread>

#include "EventService.h"

namespace {

/// The queue never becomes empty.
std::atomic<bool> isEndless{false};
std::atomic<unsigned> discarded{0};

/// This thread's sends wait until they are let go.
thread_local bool isHeld;
std::atomic<bool> isInsideSend{false};
std::atomic<bool> isReleased{false};

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved names
ssize_t mq_timedreceive(mqd_t queue, char *bytes, std::size_t size, unsigned int *priority, const timespec *end) {
    if (isEndless) {
        ++discarded;
        return static_cast<ssize_t>(sizeof(SEventDataMessage));
    }
    static const auto forward = reinterpret_cast<decltype(&mq_timedreceive)>(dlsym(RTLD_NEXT, "mq_timedreceive"));
    return forward(queue, bytes, size, priority, end);
}

int mq_send(mqd_t queue, const char *bytes, std::size_t size, unsigned int priority) {
    static const auto forward = reinterpret_cast<decltype(&mq_send)>(dlsym(RTLD_NEXT, "mq_send"));
    if (isHeld) {
        isInsideSend = true;
        test::eventually([] { return isReleased.load(); });
    }
    return forward(queue, bytes, size, priority);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

class EndlessQueue : public test::EventService {};

// The worker emptied the queue until it was empty, so for ever.
TEST_F(EndlessQueue, TheWorkerLeavesWithTheLastSender) {
    const test::QueueCleaner cleaner({"EQ"});
    static CEventTask task{};
    ITask *operations = nullptr;
    ASSERT_EQ(eAF_S_OK, CEventTask_GetInterface(&task, &operations));
    ASSERT_EQ(eAF_S_OK, operations->Create(&task, "EQ", 0, 2048, 12, 1));
    static SEventDataMessage message{};
    std::thread sender([] {
        isHeld = true;
        CEventTask_HandleEvent(&task, &message);
    });
    ASSERT_TRUE(test::eventually([] { return isInsideSend.load(); }));
    isEndless = true;
    EXPECT_EQ(eAF_S_OK, operations->Stop(&task));
    ASSERT_TRUE(test::eventually([] { return discarded > 0; })) << "it leaves, and reads for the sender";
    isReleased = true;
    sender.join();
    EXPECT_TRUE(test::eventually([this] { return workerHasLeft(); })) << "although there is always one more message";
    isEndless = false;
    EXPECT_TRUE(test::eventually([this] { return workerHasLeft(); }));
    operations->Destroy(&task);
}

} // namespace
