// Another program makes queues until the system has none left. The test does that in namespaces of its own, so that the
// tests beside it keep theirs.
#include <mqueue.h>
#include <sys/resource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "EventService.h"
#include "SameTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr std::uint32_t event = 1;

/// Set where this program was started once more, in namespaces of its own.
constexpr const char *hasOwnQueues = "ZELAF_HAS_OWN_QUEUES";

/// @return what runs `command` with queues of its own, which go with it, and with a count of them for users that are
/// not root. A program of its own makes the namespaces: one that has a second thread can not, and a sanitizer or an
/// emulator has one.
std::vector<std::string> withOwnQueues(const std::vector<std::string> &command) {
    std::vector<std::string> arguments{"--user", "--map-current-user", "--ipc", "/usr/bin/env"};
    arguments.push_back(std::string(hasOwnQueues) + "=yes");
    arguments.insert(arguments.end(), command.begin(), command.end());
    return arguments;
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
    if (std::getenv(hasOwnQueues) != nullptr) {
        live();
        return;
    }
    if (test::ChildProgram("/usr/bin/unshare", withOwnQueues({"/bin/true"})).exitCode() != 0) {
        GTEST_SKIP() << "the system gives no program queues of its own";
    }
    test::ChildProgram again("/usr/bin/unshare", withOwnQueues(test::sameTest()));
    test::expectPassed(again);
}

INSTANTIATE_TEST_SUITE_P(, UsedUpQueues,
                         testing::Values(Shortage{"TheMachines", 0, ENOSPC}, Shortage{"TheUsersBytes", 10000, EMFILE}),
                         [](const auto &shortage) { return std::string(shortage.param.name); });

} // namespace
