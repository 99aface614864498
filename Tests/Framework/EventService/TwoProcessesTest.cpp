// Queues are the service's door to other processes of the same user.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "CApplicationFramework.h"
#include "EventService.h"

// The sanitizer's own thread makes every fork one of several threads.
extern "C" const char *__tsan_default_options() {
    return "die_after_fork=0";
}

namespace {

using test::Listener;
using testing::ElementsAre;

/// Runs in a child process; @return whether it answered true. Only calls that a forked child may make.
bool inAnotherProcess(const std::function<bool()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(work() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

class TwoProcesses : public test::EventService {
protected:
    static bool sendTo(const char *name, const SEventDataMessage &message, unsigned int priority) {
        const mqd_t queue = mq_open(name, O_WRONLY);
        return queue != -1 && mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, priority) == 0;
    }
};

TEST_F(TwoProcesses, AnotherProcess_SendsToAListenerByTheNameOfItsQueue) {
    initialize();
    registerEvents({1});
    Listener listener("A");
    listener.add();
    const std::string name = listener.queue();
    CEventHandler_FireEvent(1);
    EXPECT_TRUE(inAnotherProcess([&] { return sendTo(name.c_str(), {42, nullptr, 0}, 32767); }));
    listener.pump(2);
    EXPECT_THAT(listener.ids(), ElementsAre(42, 1)) << "urgent first, whoever sent it";
}

TEST_F(TwoProcesses, AnotherProcess_ReadsWhatAListenerWasSent) {
    initialize();
    registerEvents({7});
    Listener listener("A");
    listener.add();
    const std::string name = listener.queue();
    CEventHandler_FireUrgentEvent(7);
    EXPECT_TRUE(inAnotherProcess([&] {
        const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
        SEventDataMessage message{};
        unsigned int priority = 0;
        return mq_receive(queue, reinterpret_cast<char *>(&message), sizeof message, &priority) ==
                   static_cast<ssize_t>(sizeof message) &&
               message.eventId == 7 && message.pData == nullptr && message.isCopied == 0 && priority == 32767;
    }));
    EXPECT_EQ(0, listener.waiting());
}

TEST_F(TwoProcesses, TheStopMark_WakesAPumpFromOutside) {
    initialize();
    Listener listener("A");
    listener.add();
    const std::string name = listener.queue();
    EXPECT_TRUE(inAnotherProcess([&] { return sendTo(name.c_str(), {EVENT_ID_STOP, nullptr, 0}, 0); }));
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(listener.handle()));
}

/// A pipe that carries single letters.
class Signal {
public:
    Signal() { EXPECT_EQ(0, pipe2(m_ends.data(), O_CLOEXEC)); }
    ~Signal() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Signal(const Signal &) = delete;
    Signal &operator=(const Signal &) = delete;
    bool give() const { return write(m_ends[1], "x", 1) == 1; }
    bool take() const {
        char letter = 0;
        return read(m_ends[0], &letter, 1) == 1;
    }

private:
    std::array<int, 2> m_ends{};
};

TEST_F(TwoProcesses, TwoInstancesWithDifferentServerPorts_KeepTheirQueuesApart) {
    const Signal childIsReady;
    const Signal parentHasFired;
    // Forked while there is one thread only: the child is an instance of its own.
    const pid_t child = fork();
    if (child == 0) {
        CApplicationFramework_SetServerPort(-CApplicationFramework_GetServerPort());
        bool good = CEventHandler_Initialize(2, 1) == eAF_S_OK && CEventHandler_RegisterEvent(1, "one") == eAF_S_OK;
        {
            Listener listener("A");
            good = good && listener.add() == eAF_S_OK && childIsReady.give() && parentHasFired.take();
            good = good && listener.waiting() == 0 && CEventHandler_FireEvent(1) == eAF_S_OK;
            good = good && listener.waiting() == 1 && CEventHandler_UnInitialize() == eAF_S_OK;
        }
        _exit(good ? 0 : 1);
    }
    initialize();
    registerEvents({1});
    Listener listener("A");
    EXPECT_EQ(eAF_S_OK, listener.add());
    ASSERT_TRUE(childIsReady.take());
    CEventHandler_FireEvent(1);
    CEventHandler_FireEvent(1);
    parentHasFired.give();
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status) << "the other instance saw another instance's events, or failed";
    EXPECT_EQ(2, listener.waiting());
}

} // namespace
