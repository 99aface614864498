// The controller is killed at a random moment of a store, again and again; each start tells what the one before left.
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <tuple>

#include "ChildProgram.h"
#include "ControllerFixture.h"

namespace {

using test::ChildProgram;

/// How often each test kills; "./run kill" asks for more.
unsigned tries() {
    const char *asked = std::getenv("ZELAF_KILL_TRIES");
    return asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : ZELAF_KILL_TRIES;
}

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
    std::vector<std::string> options() const {
        return test::arguments({"--keep-storing", "--storage", std::get<0>(GetParam()), "--store-folder", m_folder});
    }

    std::string m_folder;
};

TEST_P(StorageKill, AtARandomMomentOfAStore_LeavesTheOldOrTheNewValues) {
    const unsigned seed = std::get<1>(GetParam());
    std::mt19937 random(seed);
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
        usleep(static_cast<useconds_t>(random() % 4000));
        host.send(SIGKILL);
        EXPECT_EQ(-SIGKILL, host.exitCode());
        stored = std::max(found, lastNumber(host.output(), "stored generation "));
        storing = lastNumber(host.output(), "storing generation ");
    }
    std::printf("%s, seed %u: %u kills, %u old, %u new, %u mixed, %u refused\n", std::get<0>(GetParam()), seed, tries(),
                old, fresh, mixed, refused);
}

INSTANTIATE_TEST_SUITE_P(Seeds, StorageKill,
                         testing::Combine(testing::Values("sqlite", "file"), testing::Range(1U, 7U)),
                         [](const auto &kill) {
                             return std::string(std::get<0>(kill.param)) + std::to_string(std::get<1>(kill.param));
                         });

} // namespace
