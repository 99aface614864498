#include <signal.h>

#include <CEventTask.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "ControllerFixture.h"
#include "NamedQueue.h"

namespace {

using test::arguments;
using test::ChildProgram;
using test::contains;

/// "phase module result" of each call that a run printed.
std::vector<std::string> calls(const std::string &output) {
    std::vector<std::string> found;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string time;
        std::string phase;
        std::string priority;
        std::string channel;
        std::string module;
        std::string result;
        if (words >> time >> phase >> priority >> channel >> module >> result && result.rfind("eAF_", 0) == 0) {
            found.push_back(phase.append(" ").append(module).append(" ").append(result));
        }
    }
    return found;
}

/// The same for the calls of one phase only.
std::vector<std::string> callsIn(const std::string &output, const std::string &phase) {
    std::vector<std::string> found;
    for (const std::string &call : calls(output)) {
        if (call.rfind(phase + ' ', 0) == 0) {
            found.push_back(call);
        }
    }
    return found;
}

class RadioUnitControllerTest : public test::ControllerFixture {};

TEST_F(RadioUnitControllerTest, Run_WithoutOptions_ReportsNoFailure) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({}));

    EXPECT_EQ(controller.exitCode(), 0);

    EXPECT_FALSE(contains(controller.errors(), "RadioUnitController:")) << controller.errors();
}

TEST_F(RadioUnitControllerTest, Run_BesideAQueueOfSomeoneElse_LeavesItAsItWas) {
    const test::NamedQueue other(test::queueName("SomeoneElse"), 8);
    other.fill();
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({}));

    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();

    EXPECT_TRUE(test::queueExists(other.name()));
    unsigned int priority = 0;
    EXPECT_EQ(other.receive(priority).size(), 8U);
}

TEST_F(RadioUnitControllerTest, Run_AfterACrashLeftAQueue_ReplacesItAndRemovesIt) {
    {
        const test::NamedQueue left(test::queueName("AlarmCollector"), sizeof(SEventDataMessage));
        left.fill();
        ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({}));

        EXPECT_EQ(controller.exitCode(), 0) << controller.errors();

        EXPECT_FALSE(test::queueExists(left.name()));
    }
}

TEST_F(RadioUnitControllerTest, Restart_Cold_HoldsTheAlarmThreadAndReachesItsChannelOnly) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--restart", "cold:3"}));

    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();

    const std::string &output = controller.output();
    const std::size_t begin = output.find("run group RadioRestartCold, radio channel 3");
    ASSERT_NE(begin, std::string::npos) << output;
    const std::vector<std::string> expected = {
        "DisableAlarmThread AlarmCollector eAF_S_OK", "PreRadioRestartCold PowerAmplifier3 eAF_S_OK",
        "PostRadioRestartCold PowerAmplifier3 eAF_S_OK", "EnableAlarmThread AlarmCollector eAF_S_OK"};
    EXPECT_EQ(calls(output.substr(begin, output.find("group RadioRestartCold: eAF_S_OK") - begin)), expected);
    EXPECT_TRUE(callsIn(output, "PreRadioRestartWarm").empty());
}

struct Failure {
    const char *name;
    std::string where;     ///< MODULE:PHASE
    const char *headline;  ///< On standard error.
    const char *laterCall; ///< Happens when everything runs, not when the first failure ends the run.
};

void PrintTo(const Failure &failure, std::ostream *out) {
    *out << failure.where;
}

class FailureTest : public RadioUnitControllerTest, public testing::WithParamInterface<Failure> {
protected:
    static std::string module() { return GetParam().where.substr(0, GetParam().where.find(':')); }
    static std::string phase() { return GetParam().where.substr(GetParam().where.find(':') + 1); }

    static void expectFailure(ChildProgram &controller) {
        EXPECT_EQ(controller.exitCode(), 1);
        EXPECT_TRUE(contains(controller.errors(), GetParam().headline)) << controller.errors();
        EXPECT_TRUE(contains(controller.errors(), "  module " + module() + " failed in phase " + phase() +
                                                      " with eAF_E_FAILED: told to fail by --fail; start without "
                                                      "that option\n"))
            << controller.errors();
        // Whatever failed, every module is stopped: those of the table are ten, the frame format loader has nothing
        // to stop.
        EXPECT_EQ(callsIn(controller.output(), "Stop").size(), 10U) << controller.output();
        EXPECT_TRUE(contains(controller.output(), "Gone, with exit code 1\n"));
    }
};

TEST_P(FailureTest, Fail_RunningEverything_ReportsItAndEndsWithCodeOne) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--fail", GetParam().where}));

    expectFailure(controller);

    const std::vector<std::string> made = calls(controller.output());
    const auto failed = std::find(made.begin(), made.end(), phase() + ' ' + module() + " eAF_E_FAILED");
    EXPECT_NE(failed, made.end());
    EXPECT_NE(std::find_if(failed, made.end(),
                           [](const std::string &call) { return call.rfind(GetParam().laterCall, 0) == 0; }),
              made.end())
        << controller.output();
}

TEST_P(FailureTest, Fail_StoppingAtTheFirstFailure_EndsTheRunThere) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--fail", GetParam().where, "--stop-at-first-failure"}));

    expectFailure(controller);

    const std::vector<std::string> made = calls(controller.output());
    const auto failed = std::find(made.begin(), made.end(), phase() + ' ' + module() + " eAF_E_FAILED");
    ASSERT_NE(failed, made.end());
    ASSERT_NE(failed + 1, made.end());
    EXPECT_EQ((failed + 1)->rfind("Stop ", 0), 0U) << "called after the failure: " << *(failed + 1);
}

INSTANTIATE_TEST_SUITE_P(
    , FailureTest,
    testing::Values(
        Failure{"FirstPhase", "DspLoader:RegisterStorageObjects", "start failed", "StorageObjectsRetrieved DspLoader"},
        Failure{"ModuleInC", "Clock:Init", "start failed", "Init EventLog"},
        Failure{"Listener", "AlarmCollector:Init", "start failed", "Init BoardSupervision"},
        Failure{"UnfilteredListener", "EventLog:Init", "start failed", "Init AlarmCollector"},
        Failure{"OneRadioChannel", "PowerAmplifier2:Start", "start failed", "Start PowerAmplifier3"},
        Failure{"FrameFormat", "FrameFormatLoader:EndFrameFormatLoad", "start failed", "Start PowerAmplifier4"},
        Failure{"HoldingAlarms", "AlarmCollector:DisableAlarmThread", "DSP recovery failed",
                "DspRecoveryReloadFw DspLoader"},
        Failure{"ReloadingFirmware", "DspLoader:DspRecoveryReloadFw", "DSP recovery failed",
                "EnableAlarmThread AlarmCollector"},
        Failure{"Reconfiguring", "PowerAmplifier1:DspRecoveryReconfig", "DSP recovery failed",
                "DspRecoveryReconfig PowerAmplifier2"},
        Failure{"RestartingARadio", "PowerAmplifier2:PreRadioRestartWarm", "the restart of radio channel 2 failed",
                "PostRadioRestartWarm PowerAmplifier2"}),
    [](const auto &test) { return std::string(test.param.name); });

TEST_F(RadioUnitControllerTest, Fail_OfTheRecovery_ShowsNoLaterStepAndAsksForASystemReset) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--fail", "AlarmCollector:EnableAlarmThread"}));

    EXPECT_EQ(controller.exitCode(), 1);

    EXPECT_TRUE(contains(controller.output(), "  system reset requested: warm, DSP recovery failed\n"));
    EXPECT_FALSE(contains(controller.output(), "RadioRestartWarm"));
}

class FailureAtStopTest : public RadioUnitControllerTest, public testing::WithParamInterface<const char *> {};

// Stopping has no second option: it reaches every module with or without --stop-at-first-failure.
TEST_P(FailureAtStopTest, Fail_AtStop_StopsAllOthersAndEndsWithCodeOne) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--stop-at-first-failure", "--restart", "warm:1",
                                                              "--fail", std::string(GetParam()) + ":Stop"}));

    EXPECT_EQ(controller.exitCode(), 1);

    // The flipped bit alone ends the run of the frame format's group; it does not count as the program's failure.
    EXPECT_EQ(controller.errors().find("DSP recovery failed"), std::string::npos) << controller.errors();
    EXPECT_TRUE(contains(controller.errors(), "RadioUnitController: stop failed\n  module " + std::string(GetParam()) +
                                                  " failed in phase Stop"))
        << controller.errors();
    EXPECT_EQ(callsIn(controller.output(), "Stop").size(), 10U);
}

INSTANTIATE_TEST_SUITE_P(, FailureAtStopTest, testing::Values("PowerAmplifier1", "BoardSupervision", "EventLog"),
                         [](const auto &test) { return std::string(test.param); });

class SignalTest : public RadioUnitControllerTest, public testing::WithParamInterface<int> {
protected:
    static std::string signalName() { return GetParam() == SIGINT ? "SIGINT" : "SIGTERM"; }
};

TEST_P(SignalTest, Signal_WhileItStays_StopsItWithCodeZero) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--stay"}));
    ASSERT_TRUE(controller.waitForOutput("Running until SIGINT or SIGTERM")) << controller.errors();

    controller.send(GetParam());

    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
    EXPECT_TRUE(contains(controller.output(), "\n" + signalName() + ": stopping\n")) << controller.output();
    EXPECT_EQ(callsIn(controller.output(), "Stop").size(), 10U);
    EXPECT_TRUE(contains(controller.output(), "Gone, with exit code 0\n"));
}

// Where the signal meets the run differs from time to time; that it ends cleanly does not.
TEST_P(SignalTest, Signal_RightAfterTheFirstLine_StopsItWithCodeZero) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--stay"}));
    ASSERT_TRUE(controller.waitForOutput("Radio unit controller")) << controller.errors();

    controller.send(GetParam());

    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
    EXPECT_TRUE(contains(controller.output(), "\n" + signalName() + ": stopping\n")) << controller.output();
    EXPECT_TRUE(contains(controller.output(), "Gone, with exit code 0\n"));
}

INSTANTIATE_TEST_SUITE_P(, SignalTest, testing::Values(SIGINT, SIGTERM),
                         [](const auto &test) { return std::string(test.param == SIGINT ? "SIGINT" : "SIGTERM"); });

TEST_F(RadioUnitControllerTest, Stay_ShowsEventsFromOtherProcessesAsTheyCome) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--stay"}));
    ASSERT_TRUE(controller.waitForOutput("Running until SIGINT or SIGTERM")) << controller.errors();

    ChildProgram known(POST_EVENT,
                       arguments({"--listener", "AlarmCollector", "--event", "AlarmAcknowledged", "--data", "4"}));
    EXPECT_EQ(known.exitCode(), 0) << known.errors();
    EXPECT_TRUE(controller.waitForOutput("-> AlarmCollector     alarm 4 is not active\n")) << controller.output();

    ChildProgram foreign(POST_EVENT, arguments({"--listener", "AlarmCollector", "--event", "SampleBoard", "--urgent"}));
    EXPECT_EQ(foreign.exitCode(), 0) << foreign.errors();
    EXPECT_TRUE(controller.waitForOutput("-> AlarmCollector     is not for this listener\n")) << controller.output();

    controller.send(SIGTERM);
    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
}

TEST_F(RadioUnitControllerTest, ResetRecord_CarriesARequestOverToTheNextStartOnly) {
    const std::vector<std::string> record = arguments({"--reset-record", file("reset")});
    std::vector<std::string> failing = record;
    failing.insert(failing.end(), {"--fail", "PowerAmplifier2:PostRadioRestartWarm"});

    ChildProgram first(RADIO_UNIT_CONTROLLER, failing);
    EXPECT_EQ(first.exitCode(), 1);
    EXPECT_TRUE(contains(first.output(), "  last reset: cold, power on; cold: yes\n")) << first.output();
    EXPECT_TRUE(contains(first.output(), "  system reset requested: warm, radio restart failed, radio channel 2\n"));

    ChildProgram second(RADIO_UNIT_CONTROLLER, record);
    EXPECT_EQ(second.exitCode(), 0) << second.errors();
    EXPECT_TRUE(contains(second.output(), "  last reset: warm, radio restart failed, radio channel 2; cold: no\n"))
        << second.output();

    ChildProgram third(RADIO_UNIT_CONTROLLER, record);
    EXPECT_EQ(third.exitCode(), 0) << third.errors();
    EXPECT_TRUE(contains(third.output(), "  last reset: cold, power on; cold: yes\n")) << third.output();
}

} // namespace
