// What the system says of the queues that the service opens.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "CApplicationFramework.h"
#include "EventService.h"

namespace {

using test::Listener;
using test::RawQueue;

class QueueAttributes : public test::EventService {
protected:
    ~QueueAttributes() override { umask(m_maskBefore); }

    static mode_t modeOf(const std::string &name) {
        const RawQueue queue(name);
        struct stat status {};
        EXPECT_EQ(0, fstat(queue.descriptor(), &status));
        return status.st_mode & 07777;
    }
    static void expectEventQueue(const std::string &name) {
        const RawQueue queue(name);
        mq_attr attributes{};
        ASSERT_EQ(0, mq_getattr(queue.descriptor(), &attributes));
        EXPECT_EQ(10, attributes.mq_maxmsg);
        EXPECT_EQ(static_cast<long>(sizeof(SEventDataMessage)), attributes.mq_msgsize);
        EXPECT_EQ(0, attributes.mq_curmsgs);
    }
    static void expectBlockingForBothDirections(const std::string &name) {
        const auto descriptors = test::descriptorsOn(name);
        ASSERT_EQ(1u, descriptors.size()) << "open once under exactly this name";
        const int flags = fcntl(descriptors[0], F_GETFL);
        EXPECT_EQ(O_RDWR, flags & O_ACCMODE);
        EXPECT_EQ(0, flags & O_NONBLOCK);
    }

    const std::string m_taskQueue = test::expectedTaskQueueName();
    const mode_t m_maskBefore = umask(022);
};

TEST_F(QueueAttributes, AListenersQueue_HoldsTenMessagesAndBlocksBothWays) {
    initialize();
    Listener listener("A");
    listener.add();
    expectEventQueue(listener.queue());
    expectBlockingForBothDirections(listener.queue());
}

TEST_F(QueueAttributes, TheTasksQueue_HoldsTenMessagesAndBlocksBothWays) {
    initialize();
    expectEventQueue(m_taskQueue);
    expectBlockingForBothDirections(m_taskQueue);
}

TEST_F(QueueAttributes, TheNamesCarryTheServerPortOfTheMomentOfOpening) {
    initialize();
    Listener before("A");
    before.add();
    ASSERT_EQ(eAF_S_OK, CApplicationFramework_SetServerPort(-CApplicationFramework_GetServerPort()));
    Listener after("A");
    EXPECT_NE(before.queue(), after.queue());
    after.add();
    EXPECT_TRUE(test::queueExists(before.queue()));
    EXPECT_TRUE(test::queueExists(after.queue()));
}

TEST_F(QueueAttributes, AListenersQueue_IsForAllLessTheUmask) {
    initialize(1, 4);
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{027}, mode_t{0177}}) {
        umask(mask);
        Listener listener("A");
        ASSERT_EQ(eAF_S_OK, listener.add());
        EXPECT_EQ(mode_t{06777} & ~mask, modeOf(listener.queue())) << "umask " << mask;
        EXPECT_EQ(mask, umask(mask)) << "left alone";
    }
}

TEST_F(QueueAttributes, TheTasksQueue_IsForAllUnderAnyUmaskAndTheUmaskComesBack) {
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0177}}) {
        umask(mask);
        initialize();
        EXPECT_EQ(mode_t{0777}, modeOf(m_taskQueue)) << "umask " << mask;
        EXPECT_EQ(mask, umask(mask)) << "restored";
        unInitialize();
    }
}

TEST_F(QueueAttributes, ATaskQueueThatIsThere_IsTakenAsItIs) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 5;
    attributes.mq_msgsize = sizeof(SEventDataMessage);
    const mqd_t leftBehind = mq_open(m_taskQueue.c_str(), O_RDWR | O_CREAT | O_EXCL, mode_t{0600}, &attributes);
    ASSERT_NE(-1, leftBehind);
    mq_close(leftBehind);
    initialize();
    EXPECT_EQ(mode_t{0600}, modeOf(m_taskQueue)) << "neither unlinked first nor opened exclusively";
    const RawQueue queue(m_taskQueue);
    ASSERT_EQ(0, mq_getattr(queue.descriptor(), &attributes));
    EXPECT_EQ(5, attributes.mq_maxmsg);
}

} // namespace
