// Two users of one board: what one of them leaves under the other's names, and what he finds in the other's queues. The
// host's part is this program once more, as a user without rights of its own.
#include <fcntl.h>
#include <mqueue.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "CApplicationFramework.h"
#include "ChildProgram.h"
#include "EventService.h"
#include "SameTest.h"

namespace {

using test::ChildProgram;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint32_t ownEvent = 1;
constexpr std::uint32_t foreignEvent = 2;

/// Neither is root, whom nothing is refused. The second needs no name.
constexpr uid_t hostsUser = 65534;
constexpr uid_t otherUser = 65533;

/// The server port, where this program was started once more.
constexpr const char *portOfHost = "ZELAF_PORT_OF_HOST";

void *dataOf(std::uintptr_t number) {
    return reinterpret_cast<void *>(number); // NOLINT(performance-no-int-to-ptr): a number is what travels
}

/// Runs a command as that user, to its end.
class ProgramOf {
public:
    ProgramOf(uid_t user, const std::vector<std::string> &command)
        : m_program("/usr/bin/env", asUser(user, command)), m_exitCode(m_program.exitCode()) {}

    int exitCode() const { return m_exitCode; }
    const std::string &output() const { return m_program.output(); }
    const std::string &errors() const { return m_program.errors(); }

private:
    static std::vector<std::string> asUser(uid_t user, const std::vector<std::string> &command) {
        const std::string id = std::to_string(user);
        std::vector<std::string> words{std::string(portOfHost) + "=" +
                                           std::to_string(CApplicationFramework_GetServerPort()),
                                       "setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"};
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }

    ChildProgram m_program;
    int m_exitCode;
};

/// Lets two users run programs beside this test.
/// @return what keeps them from it; empty when nothing does.
std::string obstacle() {
    if (geteuid() != 0) {
        return "only root can become two users";
    }
    // All users but root have one count of queues together. Where the system gives this program queues of its own,
    // others that use them up do it no harm.
    static_cast<void>(unshare(CLONE_NEWIPC));
    for (const uid_t user : {hostsUser, otherUser}) {
        if (ProgramOf(user, {"/bin/true"}).exitCode() != 0) {
            return "this root can not become user " + std::to_string(user);
        }
        if (ProgramOf(user, {"/usr/bin/test", "-x", THIS_PROGRAM}).exitCode() != 0) {
            return std::string("other users may not run ") + THIS_PROGRAM;
        }
    }
    return {};
}

/// The user that a queue belongs to; root, who makes none here, when there is no such queue.
uid_t ownerOf(const std::string &name) {
    struct stat status {};
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
    if (queue != -1) {
        fstat(queue, &status);
        mq_close(queue);
    }
    return status.st_uid;
}

class QueuesOfTwoUsers : public test::EventService {
protected:
    QueuesOfTwoUsers() {
        if (const char *port = std::getenv(portOfHost); port != nullptr) {
            std::array<std::int32_t, 9> configuration{};
            configuration[8] = static_cast<std::int32_t>(std::strtol(port, nullptr, 10));
            CApplicationFramework_FinalInitialization(configuration.data());
        } else {
            unlinkAll();
        }
    }
    ~QueuesOfTwoUsers() override {
        if (!isHost()) {
            unlinkAll();
        }
    }

    void SetUp() override {
        if (const std::string reason = isHost() ? "" : obstacle(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }

    static bool isHost() { return std::getenv(portOfHost) != nullptr; }

    /// Runs the host's part of this test.
    static void runHost() {
        const ProgramOf host(hostsUser, test::sameTest());
        test::expectPassed(host);
    }
    static ProgramOf foreign(std::vector<std::string> words) {
        words.insert(words.begin(), FOREIGN_PROGRAM);
        return {otherUser, words};
    }
    static void runForeign(const std::vector<std::string> &words) {
        const ProgramOf program = foreign(words);
        EXPECT_EQ(0, program.exitCode()) << words.at(0) << ": " << program.errors();
    }

    /// The names that the host gives its queues, told from outside.
    static std::string hostsQueue(const std::string &suffix) {
        const passwd *entry = getpwuid(hostsUser);
        const std::string user = entry != nullptr ? entry->pw_name : "UNKNOWN";
        return "/" + user + "_" + std::to_string(CApplicationFramework_GetServerPort()) + "_" + suffix;
    }
    const std::string m_listenersQueue = hostsQueue("A");
    const std::string m_tasksQueue = hostsQueue("EHNP").substr(0, sizeof CEventTask::queueName - 1);

private:
    void unlinkAll() const {
        mq_unlink(m_listenersQueue.c_str());
        mq_unlink(m_tasksQueue.c_str());
    }
};

class QueuesOfAnotherUser : public QueuesOfTwoUsers, public testing::WithParamInterface<const char *> {
protected:
    /// The other user was there before the host, under the names of its queues.
    void occupy() const {
        for (const std::string &queue : {m_listenersQueue, m_tasksQueue}) {
            runForeign({"make", queue, std::to_string(sizeof(SEventDataMessage)), "10", "0", GetParam()});
        }
    }
    void expectStillOccupied() const {
        EXPECT_EQ(otherUser, ownerOf(m_listenersQueue)) << "the host may not remove it";
        EXPECT_EQ(otherUser, ownerOf(m_tasksQueue));
    }
};

using OpenQueuesOfAnotherUser = QueuesOfAnotherUser;

TEST_P(OpenQueuesOfAnotherUser, AreTheOnesThatTheHostUses) {
    if (isHost()) {
        ASSERT_NO_FATAL_FAILURE(initialize());
        EXPECT_TRUE(test::eventually([] { return workerTraced("Could not fire (unknown) delayed event"); }))
            << "what waited in the other user's queue";
        registerEvents({ownEvent, foreignEvent});
        test::Listener listener("A");
        ASSERT_EQ(eAF_S_OK, listener.add({ownEvent}));
        ASSERT_EQ(2, listener.waiting()) << "it was not opened anew";
        listener.pump(2);
        EXPECT_THAT(listener.ids(), ElementsAre(foreignEvent, foreignEvent));
        EXPECT_EQ(dataOf(1), listener.deliveries[0].data);
        EXPECT_EQ(dataOf(2), listener.deliveries[1].data);
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithData(ownEvent, dataOf(0x7654)));
        EXPECT_NO_FATAL_FAILURE(unInitialize());
        return;
    }
    occupy();
    runForeign({"flood", m_listenersQueue, std::to_string(foreignEvent), "2"});
    runForeign({"flood", m_tasksQueue, std::to_string(foreignEvent), "1"});
    runHost();
    expectStillOccupied();
    const ProgramOf reader = foreign({"take", m_listenersQueue, "1"});
    EXPECT_EQ("ready\n" + std::to_string(0x7654) + "\n", reader.output()) << "what the host fired";
}

INSTANTIATE_TEST_SUITE_P(, OpenQueuesOfAnotherUser, testing::Values("666", "606"),
                         [](const auto &mode) { return std::string("Mode") + mode.param; });

using ClosedQueuesOfAnotherUser = QueuesOfAnotherUser;

TEST_P(ClosedQueuesOfAnotherUser, AreRefusedToTheHostWithItsCodes) {
    if (isHost()) {
        const std::string denied = test::errorText(EACCES);
        EXPECT_EQ(eAF_E_FAILED, CEventHandler_Initialize(4, 2));
        EXPECT_THAT(traced(), Contains(test::Line{"CEventTask_Create", denied, eAF_E_QUEUE_CREATION_FAILED}));
        registerEvents({ownEvent});
        test::Listener listener("A");
        EXPECT_EQ(eAF_E_QUEUE_CREATION_FAILED, listener.add());
        EXPECT_THAT(traced(), Contains(test::Line{"CEventHandler_AddListener", denied, eAF_E_QUEUE_CREATION_FAILED}));
        EXPECT_EQ(0u, statistics().noOfListeners);
        test::Listener other("B");
        EXPECT_EQ(eAF_S_OK, other.add()) << "a name that is free";
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(ownEvent));
        other.pump();
        EXPECT_THAT(other.ids(), ElementsAre(ownEvent));
        EXPECT_NO_FATAL_FAILURE(unInitialize());
        return;
    }
    occupy();
    runHost();
    expectStillOccupied();
    EXPECT_EQ(0, test::messagesIn(m_listenersQueue));
    EXPECT_EQ(0, test::messagesIn(m_tasksQueue));
}

// The service reads and writes each of its queues: one of both rights is not enough.
INSTANTIATE_TEST_SUITE_P(, ClosedQueuesOfAnotherUser, testing::Values("600", "644", "622", "660"),
                         [](const auto &mode) { return std::string("Mode") + mode.param; });

/// What the host's umask leaves to other users of its listeners' queues.
struct Umask {
    const char *name;
    mode_t mask;
    bool mayRead;
    bool mayWrite;
};

void PrintTo(const Umask &umask, std::ostream *out) {
    *out << umask.name;
}

class QueuesUnderAUmask : public QueuesOfTwoUsers, public testing::WithParamInterface<Umask> {};

TEST_P(QueuesUnderAUmask, AreOpenToAnotherUserAsFarAsItLetsThem) {
    if (isHost()) {
        umask(GetParam().mask);
        ASSERT_NO_FATAL_FAILURE(initialize());
        registerEvents({ownEvent});
        SListenerCallback callback{};
        std::uint32_t handle = 0;
        ASSERT_EQ(eAF_S_OK, CEventHandler_AddListener(&callback, nullptr, 0, "A", &handle));
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithData(ownEvent, dataOf(0x7654)));
        EXPECT_NO_FATAL_FAILURE(unInitialize()); // the queue stays, with its message
        return;
    }
    runHost();
    ASSERT_EQ(hostsUser, ownerOf(m_listenersQueue));
    const std::string denied = test::errorText(EACCES) + "\n";

    const ProgramOf writer = foreign({"flood", m_listenersQueue, std::to_string(foreignEvent), "1"});
    EXPECT_EQ(GetParam().mayWrite ? 0 : 1, writer.exitCode());
    EXPECT_THAT(writer.errors(), HasSubstr(GetParam().mayWrite ? "" : denied));
    const ProgramOf reader = foreign({"take", m_listenersQueue, "1"});
    EXPECT_EQ(GetParam().mayRead ? 0 : 1, reader.exitCode());
    EXPECT_THAT(reader.errors(), HasSubstr(GetParam().mayRead ? "" : denied));
    EXPECT_THAT(reader.output(), HasSubstr(GetParam().mayRead ? std::to_string(0x7654) : "")) << "an address there";
    EXPECT_EQ(1 + (GetParam().mayWrite ? 1 : 0) - (GetParam().mayRead ? 1 : 0), test::messagesIn(m_listenersQueue));

    const ProgramOf remover = foreign({"unlink", m_listenersQueue});
    EXPECT_EQ(1, remover.exitCode()) << "that takes the owner";
    EXPECT_EQ(hostsUser, ownerOf(m_listenersQueue));
}

INSTANTIATE_TEST_SUITE_P(, QueuesUnderAUmask,
                         testing::Values(Umask{"022", 022, true, false}, Umask{"077", 077, false, false},
                                         Umask{"000", 000, true, true}),
                         [](const auto &mask) { return std::string(mask.param.name); });

} // namespace
