// Another program makes queues until the system has none left. The test does that in namespaces of its own, so that the
// tests beside it keep theirs.
#include <fcntl.h>
#include <mqueue.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <cerrno>
#include <cstdio>
#include <ostream>
#include <string>

#include "ChildProgram.h"
#include "EventService.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr std::uint32_t event = 1;

bool isWritten(const char *file, const std::string &text) {
    const int descriptor = open(file, O_WRONLY | O_CLOEXEC);
    const bool isGood = write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(descriptor);
    return isGood;
}

/// Gives this process queues of its own, which go with it, and a count of them for users that are not root.
/// @return whether the system lets it: not with more than one thread, and not everywhere.
bool leaveTheOthersQueues() {
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    return unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0 && isWritten("/proc/self/setgroups", "deny") &&
           isWritten("/proc/self/uid_map", user + " " + user + " 1") &&
           isWritten("/proc/self/gid_map", group + " " + group + " 1");
}

/// What there is too little of.
struct Shortage {
    const char *name;
    rlim_t bytes; ///< That a user's queues may have; 0 leaves the limit as it is.
    int error;
};

void PrintTo(const Shortage &shortage, std::ostream *out) {
    *out << shortage.name;
}

class UsedUpQueues : public test::EventService, public testing::WithParamInterface<Shortage> {
protected:
    void live() {
        if (GetParam().bytes != 0) {
            const rlimit limit{GetParam().bytes, GetParam().bytes};
            ASSERT_EQ(0, setrlimit(RLIMIT_MSGQUEUE, &limit));
        }
        ASSERT_NO_FATAL_FAILURE(initialize());
        registerEvents({event});
        test::Listener listener("A");
        ASSERT_EQ(eAF_S_OK, listener.add());

        ASSERT_NO_FATAL_FAILURE(useUp());
        test::Listener late("B");
        EXPECT_EQ(eAF_E_QUEUE_CREATION_FAILED, late.add());
        EXPECT_THAT(traced(), Contains(refused("CEventHandler_AddListener")));
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(event));
        listener.pump();
        EXPECT_THAT(listener.ids(), ElementsAre(event)) << "who has a queue keeps it";

        ASSERT_NO_FATAL_FAILURE(unInitialize());
        ASSERT_NO_FATAL_FAILURE(useUp()); // with what the event task gave back
        EXPECT_EQ(eAF_E_FAILED, CEventHandler_Initialize(4, 2));
        EXPECT_THAT(traced(), Contains(refused("CEventTask_Create")));
        ASSERT_NO_FATAL_FAILURE(unInitialize());

        giveBack();
        ASSERT_NO_FATAL_FAILURE(initialize());
        registerEvents({event});
        EXPECT_EQ(eAF_S_OK, late.add());
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(event));
        late.pump();
        EXPECT_THAT(late.ids(), ElementsAre(event)) << "once there are queues again";
    }

private:
    static test::Line refused(const char *function) {
        return {function, test::errorText(GetParam().error), eAF_E_QUEUE_CREATION_FAILED};
    }
    void useUp() const {
        test::ChildProgram program(FOREIGN_PROGRAM, {"exhaust", m_foreign, std::to_string(GetParam().error)});
        ASSERT_EQ(0, program.exitCode()) << program.errors();
    }
    void giveBack() const {
        for (int i = 0; mq_unlink((m_foreign + std::to_string(i)).c_str()) == 0; ++i) {
        }
    }

    const std::string m_foreign = test::expectedQueueName("Foreign");
};

TEST_P(UsedUpQueues, FailWithTheirCodesUntilThereAreSomeAgain) {
    constexpr int notHere = 77;
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        if (!leaveTheOthersQueues()) {
            _exit(notHere);
        }
        live();
        std::fflush(stdout);
        _exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    if (WIFEXITED(status) && WEXITSTATUS(status) == notHere) {
        GTEST_SKIP() << "the system gives this process no queues of its own";
    }
    EXPECT_EQ(0, status);
}

INSTANTIATE_TEST_SUITE_P(, UsedUpQueues,
                         testing::Values(Shortage{"TheMachines", 0, ENOSPC}, Shortage{"TheUsersBytes", 10000, EMFILE}),
                         [](const auto &shortage) { return std::string(shortage.param.name); });

} // namespace
