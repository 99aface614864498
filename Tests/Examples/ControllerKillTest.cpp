// The controller is killed at a random moment of its run, and so are programs that post to it. The next start takes the
// queues that were left for its own, and works.
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
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

/// What a run prints on its way.
constexpr std::array<const char *, 6> marks{"Radio unit controller", "[1] Start",      "[2] Events",
                                            "[3] DSP failure",       "[6] Parameters", "[7] Stop"};

class ControllerKill : public test::ControllerFixture {
protected:
    void SetUp() override {
        ControllerFixture::SetUp();
        std::filesystem::create_directories(file("parameters"));
    }
    std::vector<std::string> options(const std::vector<std::string> &more = {}) const {
        std::vector<std::string> words{"--storage", "file", "--store-folder", file("parameters")};
        words.insert(words.end(), more.begin(), more.end());
        return arguments(words);
    }
    static std::vector<std::string> sampleBoard() {
        return arguments({"--listener", "BoardSupervision", "--event", "SampleBoard"});
    }
    /// Whether a controller that stays handles what is posted to it.
    static void expectToServe(ChildProgram &controller) {
        ChildProgram post(POST_EVENT,
                          arguments({"--listener", "AlarmCollector", "--event", "AlarmAcknowledged", "--data", "4"}));
        EXPECT_EQ(0, post.exitCode()) << post.errors();
        EXPECT_TRUE(controller.waitForOutput("-> AlarmCollector     alarm 4 is not active\n")) << controller.output();
    }
    static void expectToStop(ChildProgram &controller) {
        controller.send(SIGTERM);
        EXPECT_EQ(0, controller.exitCode()) << controller.errors();
        EXPECT_TRUE(contains(controller.output(), "Gone, with exit code 0\n")) << controller.output();
    }
};

TEST_F(ControllerKill, AtARandomMoment_TheNextRunIsAsTheFirst) {
    std::minstd_rand random; // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments each time
    unsigned withQueues = 0;
    unsigned faults = 0;
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
        if (!comesThere || (code != -SIGKILL && code != 0)) {
            ++faults;
            ADD_FAILURE() << "try " << i << ": code " << code << ", " << controller.errors();
        }
        unsigned left = 0;
        for (const std::string &queue : test::controllerQueues()) {
            left += test::queueExists(queue) ? 1 : 0;
        }
        withQueues += left > 0 ? 1 : 0;
    }
    ChildProgram last(RADIO_UNIT_CONTROLLER, options({"--stay"}));
    ASSERT_TRUE(last.waitForOutput("Running until SIGINT or SIGTERM")) << last.errors();
    EXPECT_TRUE(contains(last.output(), "group Start: eAF_S_OK\n")) << last.output();
    expectToServe(last);
    expectToStop(last);
    EXPECT_GT(withQueues, 0u);
    std::printf("%u kills of the controller, %u left queues behind: %u faults\n", tries(), withQueues, faults);
}

TEST_F(ControllerKill, OfTheProgramThatPosts_TheControllerServesOn) {
    std::minstd_rand random(2); // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments each time
    ChildProgram controller(RADIO_UNIT_CONTROLLER, options({"--stay"}));
    ASSERT_TRUE(controller.waitForOutput("Running until SIGINT or SIGTERM")) << controller.errors();
    unsigned posted = 0;
    unsigned faults = 0;
    for (unsigned i = 0; i < tries(); ++i) {
        ChildProgram post(POST_EVENT, sampleBoard());
        usleep(static_cast<useconds_t>(random() % 16000));
        post.send(SIGKILL);
        const int code = post.exitCode();
        if (code != -SIGKILL && code != 0) {
            ++faults;
            ADD_FAILURE() << "try " << i << ": code " << code << ", " << post.errors();
        }
        posted += code == 0 ? 1 : 0;
    }
    expectToServe(controller);
    expectToStop(controller);
    std::printf("%u kills of the program that posts, %u came too late: %u faults\n", tries(), posted, faults);
}

} // namespace
