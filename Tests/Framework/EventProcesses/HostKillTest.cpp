// A host is killed at any moment of its event service's life and started again: what it left in the queues of its
// names comes to nobody, and the new one works.
#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "CApplicationFramework.h"
#include "CEventTask.h"
#include "ChildProgram.h"
#include "EventQueues.h"
#include "HostState.h"

namespace {

using test::ChildProgram;
using test::HostPhase;

/// How often each test kills; "./run kill-host" asks for more.
unsigned tries() {
    const char *asked = std::getenv("ZELAF_KILL_TRIES");
    return asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : ZELAF_KILL_TRIES;
}

/// Whether there are so many kills that each phase has its share, however they fall.
bool isLongForm() {
    return std::getenv("ZELAF_KILL_TRIES") != nullptr && tries() >= 100;
}

constexpr std::array<HostPhase, 4> phases{HostPhase::starting, HostPhase::firing, HostPhase::pumping,
                                          HostPhase::stopping};

class HostQueues : public testing::Test {
protected:
    HostQueues() : m_folder(std::filesystem::temp_directory_path() / ("HostQueues." + std::to_string(getpid()))) {
        test::useOwnServerPort();
        std::filesystem::create_directory(m_folder);
        for (const char *listener : {"One", "Two", "All"}) {
            m_queues.push_back(test::queueName(listener));
        }
        m_queues.push_back(test::taskQueueName());
        unlinkAll();
    }
    ~HostQueues() override {
        unlinkAll();
        std::filesystem::remove_all(m_folder);
    }

    std::vector<std::string> arguments(unsigned run, const std::vector<std::string> &more = {}) const {
        std::vector<std::string> words{std::to_string(CApplicationFramework_GetServerPort()), statePath(),
                                       std::to_string(run)};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    std::string statePath() const { return m_folder / "state"; }

    /// Messages that wait in the queues that the last host left.
    long left() const {
        long sum = 0;
        for (const std::string &queue : m_queues) {
            sum += std::max(0L, test::messagesIn(queue));
        }
        return sum;
    }

    /// Fills every queue that is there, and makes those that are not: whoever took such a message for an event of
    /// its own would free an address that is none of its.
    void fillAllWithPoison() const {
        SEventDataMessage poison;
        std::memset(static_cast<void *>(&poison), 0, sizeof poison);
        poison.eventId = 7;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): an address that is nobody's
        poison.pData = reinterpret_cast<void *>(std::uintptr_t{0xDEAD0001});
        poison.isCopied = 1;
        mq_attr attributes{};
        attributes.mq_maxmsg = 10;
        attributes.mq_msgsize = sizeof poison;
        for (const std::string &name : m_queues) {
            const mqd_t queue = mq_open(name.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK, mode_t{0600}, &attributes);
            ASSERT_NE(-1, queue) << name;
            while (mq_send(queue, reinterpret_cast<const char *>(&poison), sizeof poison, 1) == 0) {
            }
            mq_close(queue);
        }
    }

    std::vector<std::string> m_queues; ///< The listeners', and the event task's behind them.

private:
    void unlinkAll() const {
        for (const std::string &queue : m_queues) {
            mq_unlink(queue.c_str());
        }
    }
    const std::filesystem::path m_folder;
};

class HostKill : public HostQueues, public testing::WithParamInterface<unsigned> {
protected:
    /// Whether the host comes to a phase, or past it, in the life behind those.
    static bool comesTo(HostPhase wanted, std::uint32_t livesBefore, const test::MappedHostState &state) {
        const auto isThere = [&] {
            const bool isInItsLife = state->lives >= livesBefore && state->phase != HostPhase::ended;
            return state->fault[0] != '\0' || (isInItsLife && state->phase >= wanted);
        };
        for (int i = 0; i < 20000; ++i) {
            if (isThere()) {
                return true;
            }
            usleep(20);
        }
        return test::eventually(isThere);
    }
};

TEST_P(HostKill, AtAnyMoment_TheNextHostGetsAllOfItsEventsAndNoneOfTheLast) {
    std::minstd_rand random(GetParam());
    test::MappedHostState state(statePath());
    ASSERT_TRUE(state);
    std::array<unsigned, static_cast<std::size_t>(HostPhase::count)> killedIn{};
    unsigned kills = 0;
    unsigned behindWaiting = 0;
    unsigned workedAfterwards = 0;
    unsigned faults = 0;
    for (unsigned run = 1; run <= tries(); ++run) {
        // One half is killed in its first life, the other when it has shown that it works.
        const std::uint32_t livesBefore = run % 2;
        const HostPhase wanted = phases.at(random() % phases.size());
        state.clear();
        ChildProgram host(RESTARTED_HOST, arguments(run));
        const bool isThere = comesTo(wanted, livesBefore, state);
        if (random() % 2 == 0) {
            usleep(static_cast<useconds_t>(random() % 1500)); // else in that phase, most often
        }
        host.send(SIGKILL);
        const bool isKilled = host.exitCode() == -SIGKILL;
        kills += isKilled ? 1 : 0;
        if (!isKilled || !isThere || state->fault[0] != '\0') {
            ++faults;
            ADD_FAILURE() << "run " << run << ": " << state->fault << host.errors();
        }
        ++killedIn.at(static_cast<std::size_t>(state->phase.load()));
        workedAfterwards += state->lives > 0 ? 1 : 0;
        behindWaiting += left() > 0 ? 1 : 0;
        if (run % 3 == 0) {
            fillAllWithPoison();
        }
    }
    state.clear();
    ChildProgram last(RESTARTED_HOST, arguments(tries() + 1, {"3"}));
    EXPECT_EQ(0, last.exitCode()) << state->fault << last.errors();
    EXPECT_EQ(3u, state->lives);
    EXPECT_GT(state->delayed, 0u);
    for (const HostPhase phase : phases) {
        EXPECT_TRUE(!isLongForm() || killedIn.at(static_cast<std::size_t>(phase)) > 0)
            << "no host was killed in phase " << static_cast<unsigned>(phase);
    }
    std::printf("seed %u: %u kills, in start %u, firing %u, pumping %u, stop %u, between %u; %u left messages behind, "
                "%u hosts worked before their kill: %u faults\n",
                GetParam(), kills, killedIn[1], killedIn[2], killedIn[3], killedIn[4], killedIn[5], behindWaiting,
                workedAfterwards, faults);
}

INSTANTIATE_TEST_SUITE_P(Seeds, HostKill, testing::Values(1u, 2u));

TEST_F(HostQueues, QueuesLeftFullOfPoison_AreReplacedAndTheTasksIsEmptied) {
    fillAllWithPoison();
    EXPECT_EQ(40, left());
    test::MappedHostState state(statePath());
    ASSERT_TRUE(state);
    ChildProgram host(RESTARTED_HOST, arguments(1, {"1"}));
    EXPECT_EQ(0, host.exitCode()) << state->fault << host.errors();
    EXPECT_EQ(1u, state->lives);
    EXPECT_EQ(0, test::messagesIn(m_queues.front())) << "the host's own events, and it has taken them all";
    EXPECT_FALSE(test::queueExists(m_queues.back())) << "the task's";
}

} // namespace
