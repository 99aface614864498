// What another program's queue of larger messages asks of whoever empties it.
#include "EventQueue.h"

#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "RefusedNew.h"

namespace {

class DiscardMessage : public testing::Test {
protected:
    explicit DiscardMessage(long messageSize = 4096) {
        mq_unlink(m_name.c_str());
        mq_attr attributes{};
        attributes.mq_maxmsg = 4;
        attributes.mq_msgsize = messageSize;
        m_queue = mq_open(m_name.c_str(), O_RDWR | O_CREAT | O_EXCL, mode_t{0600}, &attributes);
        EXPECT_NE(-1, m_queue);
    }
    ~DiscardMessage() override {
        mq_close(m_queue);
        mq_unlink(m_name.c_str());
    }

    void send(std::size_t size) const {
        const std::string message(size, 'x');
        ASSERT_EQ(0, mq_send(m_queue, message.data(), message.size(), 0));
    }
    long waiting() const {
        mq_attr attributes{};
        EXPECT_EQ(0, mq_getattr(m_queue, &attributes));
        return attributes.mq_curmsgs;
    }

    const std::string m_name = "/zelaf_discard_" + std::to_string(getpid());
    mqd_t m_queue = -1;
};

TEST_F(DiscardMessage, OfAnySize_TakesOneAndTellsWhetherThereWasOne) {
    EXPECT_FALSE(af::discardMessage(m_queue));
    send(4096);
    send(0);
    EXPECT_TRUE(af::discardMessage(m_queue));
    EXPECT_EQ(1, waiting());
    EXPECT_TRUE(af::discardMessage(m_queue));
    EXPECT_EQ(0, waiting());
    EXPECT_FALSE(af::discardMessage(m_queue));
}

TEST_F(DiscardMessage, WithoutTheMemoryForALargerOne_LeavesItAndDoesNotCallTheQueueEmpty) {
    send(4096);
    {
        const test::RefusedNew refusal(0);
        EXPECT_TRUE(af::discardMessage(m_queue));
        EXPECT_TRUE(refusal.wasRefused());
    }
    EXPECT_EQ(1, waiting());
    EXPECT_TRUE(af::discardMessage(m_queue));
    EXPECT_EQ(0, waiting());
}

} // namespace
