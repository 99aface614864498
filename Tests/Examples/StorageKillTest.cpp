// The controller is killed at a random moment of a store, again and again; each start tells what the one before left.
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <tuple>

#include "ChildProgram.h"
#include "ControllerFixture.h"

namespace {

using test::ChildProgram;

constexpr unsigned noOfSeeds = 6;

/// How often each test kills; "./run kill" asks for more.
unsigned tries() {
    const char *asked = std::getenv("ZELAF_KILL_TRIES");
    return asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : ZELAF_KILL_TRIES;
}

/// Whether there are so many kills that they come at every moment of a store, however they fall.
bool isLongForm() {
    return std::getenv("ZELAF_KILL_TRIES") != nullptr && tries() >= 100;
}

/// What the starts found after all kills of one provider.
struct Outcomes {
    unsigned seeds = 0;
    unsigned old = 0;
    unsigned fresh = 0;
};

/// The number behind the last occurrence of a text; -1 when there is none.
long lastNumber(const std::string &output, const std::string &text) {
    const std::size_t at = output.rfind(text);
    const std::size_t end = at == std::string::npos ? at : output.find('\n', at);
    return end == std::string::npos ? -1 : std::strtol(output.c_str() + at + text.size(), nullptr, 10);
}

class StorageKill : public test::ControllerFixture,
                    public testing::WithParamInterface<std::tuple<const char *, unsigned>> {
protected:
    void SetUp() override {
        ControllerFixture::SetUp();
        m_folder = file("parameters");
        std::filesystem::create_directories(m_folder);
    }
    static void TearDownTestSuite() {
        for (const auto &[provider, outcomes] : s_outcomes) {
            if (isLongForm() && outcomes.seeds == noOfSeeds) {
                EXPECT_GT(outcomes.old, 0u) << provider << ": none of the kills came before a store was whole";
                EXPECT_GT(outcomes.fresh, 0u) << provider << ": none of the kills came between a store and its report";
            }
        }
    }
    /// How long a store takes here and now.
    useconds_t timeOfAStore() {
        constexpr int noOfStores = 10;
        ChildProgram host(RADIO_UNIT_CONTROLLER, options());
        EXPECT_TRUE(host.waitForOutput("storing generation 1\n")) << host.errors();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(host.waitForOutput("stored generation " + std::to_string(noOfStores) + "\n")) << host.errors();
        const auto time = std::chrono::steady_clock::now() - start;
        host.send(SIGTERM);
        EXPECT_EQ(0, host.exitCode()) << host.errors();
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
        return static_cast<useconds_t>(std::chrono::duration_cast<std::chrono::microseconds>(time).count() /
                                       noOfStores);
    }
    std::vector<std::string> options() const {
        return test::arguments({"--keep-storing", "--storage", std::get<0>(GetParam()), "--store-folder", m_folder});
    }

    static inline std::map<std::string, Outcomes> s_outcomes;
    std::string m_folder;
};

TEST_P(StorageKill, AtARandomMomentOfAStore_LeavesTheOldOrTheNewValues) {
    const unsigned seed = std::get<1>(GetParam());
    std::mt19937 random(seed);
    const useconds_t time = timeOfAStore();
    unsigned old = 0;
    unsigned fresh = 0;
    unsigned mixed = 0;
    unsigned refused = 0;
    long stored = 0;
    long storing = 0;
    for (unsigned i = 0; i <= tries(); ++i) {
        ChildProgram host(RADIO_UNIT_CONTROLLER, options());
        if (!host.waitForOutput(" retrieved\nstoring ")) {
            ++(host.errors().find("mixture") != std::string::npos ? mixed : refused);
            ADD_FAILURE() << "try " << i << ": " << host.output() << host.errors();
            return;
        }
        const std::string &output = host.output();
        const long found = lastNumber(output.substr(0, output.find(" retrieved\nstoring ")) + "\n", "generation ");
        EXPECT_TRUE(i == 0 || found == stored || found == storing) << found << ", not " << stored << " or " << storing;
        if (i > 0) {
            old += found == stored ? 1 : 0;
            fresh += found != stored && found == storing ? 1 : 0;
        }
        if (i == tries()) {
            host.send(SIGTERM); // the last one leaves nothing behind
            EXPECT_EQ(0, host.exitCode()) << host.errors();
            break;
        }
        usleep(static_cast<useconds_t>(random() % (2 * time + 1)));
        host.send(SIGKILL);
        EXPECT_EQ(-SIGKILL, host.exitCode());
        stored = std::max(found, lastNumber(host.output(), "stored generation "));
        storing = lastNumber(host.output(), "storing generation ");
    }
    Outcomes &outcomes = s_outcomes[std::get<0>(GetParam())];
    ++outcomes.seeds;
    outcomes.old += old;
    outcomes.fresh += fresh;
    std::printf("%s, seed %u: %u kills, %u old, %u new, %u mixed, %u refused; a store takes %u us\n",
                std::get<0>(GetParam()), seed, tries(), old, fresh, mixed, refused, time);
}

INSTANTIATE_TEST_SUITE_P(Seeds, StorageKill,
                         testing::Combine(testing::Values("sqlite", "file"), testing::Range(1U, noOfSeeds + 1)),
                         [](const auto &kill) {
                             return std::string(std::get<0>(kill.param)) + std::to_string(std::get<1>(kill.param));
                         });

} // namespace
