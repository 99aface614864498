// The controller's parameters over restarts.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "ChildProgram.h"
#include "ControllerFixture.h"
#include "NamedQueue.h"

namespace {

using test::arguments;
using test::ChildProgram;
using test::contains;

class Storage : public test::ControllerFixture, public testing::WithParamInterface<const char *> {
protected:
    std::vector<std::string> with(std::vector<std::string> more) const {
        more.insert(more.end(), {"--storage", GetParam(), "--store-folder", m_folder});
        return arguments(more);
    }
    void SetUp() override {
        ControllerFixture::SetUp();
        m_folder = file("parameters");
        std::filesystem::create_directories(m_folder);
    }
    std::string store() const {
        return m_folder + "/configuration" + (std::string(GetParam()) == "sqlite" ? ".db" : ".store");
    }

    std::string m_folder;
};
INSTANTIATE_TEST_SUITE_P(Kinds, Storage, testing::Values("sqlite", "file"),
                         [](const auto &kind) { return std::string(kind.param); });

TEST_P(Storage, WhatTheFirstRunChanged_IsThereInTheSecondAndANewParameterHasItsDefault) {
    ChildProgram first(RADIO_UNIT_CONTROLLER, with({}));
    ASSERT_EQ(first.exitCode(), 0) << first.errors();
    EXPECT_TRUE(contains(first.output(), "0 values retrieved, 16 by default")) << first.output();
    EXPECT_TRUE(contains(first.output(), "16 values stored"));
    EXPECT_TRUE(contains(first.output(), "Cfg/Radio/Starts             1\n"));
    EXPECT_TRUE(contains(first.output(), "gain 30 dB, never calibrated"));
    EXPECT_FALSE(contains(first.output(), "Cfg/Radio/FanCurve"));

    ChildProgram second(RADIO_UNIT_CONTROLLER, with({"--new-firmware"}));
    ASSERT_EQ(second.exitCode(), 0) << second.errors();
    EXPECT_TRUE(contains(second.output(), "16 values retrieved, 1 by default")) << second.output();
    EXPECT_TRUE(contains(second.output(), "Cfg/Radio/Starts             2\n"));
    EXPECT_TRUE(contains(second.output(), "gain 29 dB, last bias 168")) << "channel 2, tuned in the first run";
    EXPECT_TRUE(contains(second.output(), "Cfg/Radio/FanCurve           [20 ,40 ,70 ,100]\n"));
    EXPECT_TRUE(contains(second.output(), "3 values stored")) << "starts, gains and the new one";

    ChildProgram downgraded(RADIO_UNIT_CONTROLLER, with({}));
    ASSERT_EQ(downgraded.exitCode(), 0);
    EXPECT_TRUE(contains(downgraded.output(), "16 values retrieved, 0 by default")) << "the new one is kept, not known";
}

TEST_P(Storage, AGainThatEarlierRunsTookToItsLowerEnd_GoesUpAgain) {
    ASSERT_EQ(ChildProgram(RADIO_UNIT_CONTROLLER, with({})).exitCode(), 0);
    ChildProgram lowered(ZAF_STORE, {"set", store(), "Cfg/Radio/Gains", "[27,0.5,30,27]"});
    ASSERT_EQ(lowered.exitCode(), 0) << lowered.errors();
    ChildProgram controller(RADIO_UNIT_CONTROLLER, with({}));
    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
    EXPECT_TRUE(contains(controller.output(), "the gain of channel 2 goes up by 10 dB")) << controller.output();
    ChildProgram kept(ZAF_STORE, {"get", store(), "Cfg/Radio/Gains"});
    EXPECT_EQ(kept.exitCode(), 0) << kept.errors();
    EXPECT_TRUE(contains(kept.output(), "10.5")) << kept.output();
}

TEST_P(Storage, AnEventFromAnotherProcess_HasTheParametersStored) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, with({"--stay"}));
    ASSERT_TRUE(controller.waitForOutput("Running until")) << controller.output();
    ChildProgram post(POST_EVENT, arguments({"--listener", "ParameterStore", "--event", "StoreParameters"}));
    EXPECT_EQ(post.exitCode(), 0) << post.errors();
    EXPECT_TRUE(controller.waitForOutput("-> ParameterStore     0 values stored\n")) << "nothing has changed";
    controller.send(SIGTERM);
    EXPECT_EQ(controller.exitCode(), 0);
}

TEST_P(Storage, AMissingFolder_IsSaidAndTheHostStartsWithDefaults) {
    std::filesystem::remove_all(m_folder);
    ChildProgram controller(RADIO_UNIT_CONTROLLER, with({}));
    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
    EXPECT_TRUE(contains(controller.output(), "the store can not be used, the defaults hold")) << controller.output();
    EXPECT_TRUE(contains(controller.output(), "group Start: eAF_S_OK"));
    EXPECT_TRUE(contains(controller.output(), "gain 27 dB, never calibrated"));
    EXPECT_TRUE(contains(controller.errors(), m_folder)) << "and what to do: " << controller.errors();
}

TEST_P(Storage, ADamagedStore_IsSetAsideAndTheHostStartsWithDefaults) {
    ASSERT_EQ(ChildProgram(RADIO_UNIT_CONTROLLER, with({})).exitCode(), 0);
    std::filesystem::remove(store() + ".1");
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(store()));
    std::fstream stream(store(), std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(size / 2));
    stream << std::string(size / 3, 'x');
    stream.close();
    ChildProgram controller(RADIO_UNIT_CONTROLLER, with({}));
    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
    EXPECT_TRUE(contains(controller.output(), "Cfg/Radio/Starts             1\n"));
    EXPECT_TRUE(contains(controller.errors(), ".damaged-1")) << controller.errors();
    EXPECT_TRUE(std::filesystem::exists(store() + ".damaged-1"));
}

TEST_P(Storage, ASecondHostOnTheSameStore_LeavesItAlone) {
    ChildProgram first(RADIO_UNIT_CONTROLLER, with({"--stay"}));
    ASSERT_TRUE(first.waitForOutput("Running until"));
    // A port of this test's own: the one after the first's is that of the test next to it.
    const std::string port = std::to_string(test::portOf(first.process()));
    ChildProgram second(RADIO_UNIT_CONTROLLER, {"--port", port, "--storage", GetParam(), "--store-folder", m_folder});
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_TRUE(contains(second.output(), "the store can not be used, the defaults hold"));
    EXPECT_TRUE(contains(second.output(), "-> ParameterStore     nothing was stored"));
    first.send(SIGTERM);
    EXPECT_EQ(first.exitCode(), 0);
}

} // namespace
