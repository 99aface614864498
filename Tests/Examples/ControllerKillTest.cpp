// The controller is killed at a random moment of its run, and so are programs that post to it. The next start takes the
// queues that were left for its own, and works.
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "ControllerFixture.h"
#include "NamedQueue.h"

namespace {

using test::arguments;
using test::ChildProgram;
using test::contains;

/// How often each test kills; "./run kill-host" asks for more.
unsigned tries() {
    const char *asked = std::getenv("ZELAF_KILL_TRIES");
    return asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : ZELAF_KILL_TRIES;
}

/// Whether there are so many kills that they come at every moment, however they fall.
bool isLongForm() {
    return std::getenv("ZELAF_KILL_TRIES") != nullptr && tries() >= 100;
}

/// What a run prints on its way.
constexpr std::array<const char *, 6> marks{"Radio unit controller", "[1] Start",      "[2] Events",
                                            "[3] DSP failure",       "[6] Parameters", "[7] Stop"};

class ControllerKill : public test::ControllerFixture {
protected:
    static constexpr unsigned firstAlarm = 100000; ///< Of those that are posted by programs that are killed.

    void SetUp() override {
        ControllerFixture::SetUp();
        std::filesystem::create_directories(file("parameters"));
    }
    std::vector<std::string> options(const std::vector<std::string> &more = {}) const {
        std::vector<std::string> words{"--storage", "file", "--store-folder", file("parameters")};
        words.insert(words.end(), more.begin(), more.end());
        return arguments(words);
    }
    static std::vector<std::string> acknowledge(unsigned alarm) {
        return arguments(
            {"--listener", "AlarmCollector", "--event", "AlarmAcknowledged", "--data", std::to_string(alarm)});
    }
    static std::string acknowledged(unsigned alarm) {
        return "-> AlarmCollector     alarm " + std::to_string(alarm) + " is not active\n";
    }
    /// Whether a controller that stays handles what is posted to it, and has handled what was posted before.
    static void expectToServe(ChildProgram &controller) {
        ChildProgram post(POST_EVENT, acknowledge(4));
        EXPECT_EQ(0, post.exitCode()) << post.errors();
        EXPECT_TRUE(controller.waitForOutput(acknowledged(4))) << controller.output();
    }
    /// How long a program takes that is not killed, without what a busy machine adds.
    static useconds_t timeOfAPost() {
        auto shortest = std::chrono::microseconds::max();
        for (int i = 0; i < 5; ++i) {
            const auto start = std::chrono::steady_clock::now();
            ChildProgram post(POST_EVENT, acknowledge(firstAlarm - 1));
            EXPECT_EQ(0, post.exitCode()) << post.errors();
            shortest = std::min(shortest, std::chrono::duration_cast<std::chrono::microseconds>(
                                              std::chrono::steady_clock::now() - start));
        }
        return static_cast<useconds_t>(shortest.count());
    }
    static void expectToStop(ChildProgram &controller) {
        controller.send(SIGTERM);
        EXPECT_EQ(0, controller.exitCode()) << controller.errors();
        EXPECT_TRUE(contains(controller.output(), "Gone, with exit code 0\n")) << controller.output();
    }
};

TEST_F(ControllerKill, AtARandomMoment_TheNextRunIsAsTheFirst) {
    std::minstd_rand random; // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments each time
    unsigned kills = 0;
    unsigned withQueues = 0;
    unsigned faults = 0;
    const auto countLeft = [] {
        const std::vector<std::string> queues = test::controllerQueues();
        return std::count_if(queues.begin(), queues.end(), test::queueExists);
    };
    for (unsigned i = 0; i < tries(); ++i) {
        if (i % 15 == 0) {
            // Each run that comes so far turns a gain down by 1 dB and stores it: no store lasts for all of them.
            std::filesystem::remove_all(file("parameters"));
            std::filesystem::create_directories(file("parameters"));
        }
        ChildProgram controller(RADIO_UNIT_CONTROLLER, options());
        const char *mark = marks.at(random() % marks.size());
        const bool comesThere = controller.waitForOutput(mark);
        usleep(static_cast<useconds_t>(random() % 15000));
        controller.send(SIGKILL);
        const int code = controller.exitCode();
        kills += code == -SIGKILL ? 1 : 0;
        if (!comesThere || (code != -SIGKILL && code != 0)) {
            ++faults;
            ADD_FAILURE() << "try " << i << ": code " << code << ", " << controller.errors();
        }
        withQueues += countLeft() > 0 ? 1 : 0;
    }
    {
        // The last finds them all, wherever the others were.
        ChildProgram controller(RADIO_UNIT_CONTROLLER, options({"--stay"}));
        ASSERT_TRUE(controller.waitForOutput("Running until SIGINT or SIGTERM")) << controller.errors();
        controller.send(SIGKILL);
        ASSERT_EQ(-SIGKILL, controller.exitCode());
        ASSERT_EQ(4, countLeft());
    }
    ChildProgram last(RADIO_UNIT_CONTROLLER, options({"--stay"}));
    ASSERT_TRUE(last.waitForOutput("Running until SIGINT or SIGTERM")) << last.errors();
    EXPECT_TRUE(contains(last.output(), "group Start: eAF_S_OK\n")) << last.output();
    expectToServe(last);
    expectToStop(last);
    std::printf("%u kills of the controller, %u left queues behind: %u faults\n", kills, withQueues, faults);
}

TEST_F(ControllerKill, OfTheProgramThatPosts_TheControllerServesOn) {
    std::minstd_rand random(2); // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments each time
    ChildProgram controller(RADIO_UNIT_CONTROLLER, options({"--stay"}));
    ASSERT_TRUE(controller.waitForOutput("Running until SIGINT or SIGTERM")) << controller.errors();
    const useconds_t time = timeOfAPost();
    unsigned kills = 0;
    unsigned tooLate = 0;
    unsigned faults = 0;
    for (unsigned i = 0; i < tries(); ++i) {
        ChildProgram post(POST_EVENT, acknowledge(firstAlarm + i));
        usleep(static_cast<useconds_t>(random() % (time + 1)));
        post.send(SIGKILL);
        const int code = post.exitCode();
        kills += code == -SIGKILL ? 1 : 0;
        if (code != -SIGKILL && code != 0) {
            ++faults;
            ADD_FAILURE() << "try " << i << ": code " << code << ", " << post.errors();
        }
        if (code == 0) {
            ++tooLate;
            ASSERT_TRUE(controller.waitForOutput(acknowledged(firstAlarm + i))) << controller.output();
        }
    }
    expectToServe(controller);
    expectToStop(controller);
    unsigned posted = 0;
    for (unsigned i = 0; i < tries(); ++i) {
        posted += contains(controller.output(), acknowledged(firstAlarm + i)) ? 1 : 0;
    }
    EXPECT_TRUE(!isLongForm() || posted < tries()) << "no kill came before the program had posted";
    std::printf("%u kills of the program that posts within %u us, %u had posted, %u came too late: %u faults\n", kills,
                time, posted, tooLate, faults);
}

} // namespace
