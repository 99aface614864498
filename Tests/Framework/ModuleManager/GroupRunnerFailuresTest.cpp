#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;
using testing::ElementsAre;

const char *const label = "CModuleManager_RunGroupWithReturnOption";
const char *const pumpFailed = "***Application error*** - Module: Pump, Phase: Init, Priority: NORMAL, Error: 800D";
const char *const initFailed = "CModuleManager_RunGroupWithReturnOption, Error running group: Start, phase: 10";

/// Group 0: batch 1 with phases 10 and 11, batch 2 with phase 12. Modules Fan, Pump, Lamp are called in this
/// order in each phase; Pump fails in phase 10.
class GroupRunnerFailures : public test::ModuleManagerFixture {
protected:
    GroupRunnerFailures() : fan(addModule(1, "Fan")), pump(addModule(2, "Pump")), lamp(addModule(3, "Lamp")) {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterBatch(1, "Boot");
        CModuleManager_RegisterBatch(2, "Late");
        addPhase(10, "Init", 0, 1);
        addPhase(11, "Load", 0, 1);
        addPhase(12, "Go", 0, 2);
        for (const std::uint32_t batch : {1u, 2u}) {
            subscribe(1, fan, NORMAL, 100, batch);
            subscribe(2, pump, NORMAL, 100, batch);
            subscribe(3, lamp, NORMAL, 100, batch);
        }
        pump.answers(0x800D).does([this] {
            if (calls.back().phaseId != 10) {
                pump.answers(0);
            }
        });
        TraceRecorder::reset();
    }

    test::Callback &fan;
    test::Callback &pump;
    test::Callback &lamp;
};

TEST_F(GroupRunnerFailures, WithOption0_EverythingElseStillRunsAndTheRunFailsAtTheEnd) {
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(0, 1, 0));
    EXPECT_THAT(namesOfCalls(), ElementsAre("Fan", "Pump", "Lamp", "Fan", "Pump", "Lamp", "Fan", "Pump", "Lamp"));
}

TEST_F(GroupRunnerFailures, WithOption0_TheFailureIsTracedAsAnErrorAndThePhaseAsAWarningAfterwards) {
    CModuleManager_RunGroupWithReturnOption(0, 1, 0);
    EXPECT_EQ((Lines{{label, pumpFailed, 0x8000}, {label, initFailed, 0x1000}}), TraceRecorder::failures());
    const Lines lines = TraceRecorder::lines();
    ASSERT_LT(11u, lines.size());
    EXPECT_EQ(pumpFailed, lines[7].message);
    EXPECT_EQ("  Call module: Lamp", lines[8].message);
    EXPECT_EQ(initFailed, lines[10].message) << "behind the last callback of the phase";
    EXPECT_EQ("PHASE: Load", lines[11].message);
}

TEST_F(GroupRunnerFailures, RunGroup_IsARunWithOption0) {
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(9u, calls.size());
    EXPECT_EQ((Lines{{label, pumpFailed, 0x8000}, {label, initFailed, 0x1000}}), TraceRecorder::failures());
}

TEST_F(GroupRunnerFailures, WithAnyOtherOption_TheRunEndsAtOnceWithBothTracesAsWarnings) {
    for (const std::uint32_t option : {1u, 2u, 0x80000000u, 0xFFFFFFFFu}) {
        pump.answers(0x800D);
        TraceRecorder::reset();
        EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(0, 1, option));
        EXPECT_THAT(namesOfCalls(), ElementsAre("Fan", "Pump"));
        EXPECT_EQ((Lines{{label, pumpFailed, 0x1000}, {label, initFailed, 0x1000}}), TraceRecorder::failures());
        EXPECT_EQ(initFailed, TraceRecorder::lines().back().message);
    }
}

TEST_F(GroupRunnerFailures, TheFailingModuleIsInState9_TheOthersThatWereCalledIn3) {
    CModuleManager_RunGroupWithReturnOption(0, 1, 1);
    EXPECT_EQ(3u, stateOf(1));
    EXPECT_EQ(9u, stateOf(2));
    EXPECT_EQ(1u, stateOf(3)) << "never called";
}

TEST_F(GroupRunnerFailures, ALaterSuccess_OverwritesTheFailedState) {
    std::uint32_t stateInPhase11 = 0;
    lamp.does([&] {
        if (calls.back().phaseId == 10) {
            stateInPhase11 = stateOf(2);
        }
    });
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(9u, stateInPhase11);
    EXPECT_EQ(3u, stateOf(2));
}

TEST_F(GroupRunnerFailures, ALaterFailure_OverwritesTheGoodState) {
    fan.does([this] { fan.answers(calls.back().phaseId == 12 ? 0x8000 : 0); });
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(9u, stateOf(1));
}

TEST_F(GroupRunnerFailures, WithOption0_LowerPrioritiesOfTheFailedPhaseStillRun) {
    forgetAll();
    CModuleManager_RegisterGroup(0, "Start");
    CModuleManager_RegisterBatch(1, "Boot");
    addPhase(10, "Init", 0, 1);
    CModuleManager_RegisterModule(1, "Fan");
    CModuleManager_RegisterModule(2, "Pump");
    subscribe(2, pump, HIGHEST);
    subscribe(1, fan, LOWEST);
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_THAT(namesOfCalls(), ElementsAre("Pump", "Fan"));
}

TEST_F(GroupRunnerFailures, SeveralFailuresInOnePhase_AreEachTraced_ThePhaseOnce) {
    fan.answers(0x8000).does([this] {
        if (calls.back().phaseId != 10) {
            fan.answers(0);
        }
    });
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(
        (Lines{{label, "***Application error*** - Module: Fan, Phase: Init, Priority: NORMAL, Error: 8000", 0x8000},
               {label, pumpFailed, 0x8000},
               {label, initFailed, 0x1000}}),
        TraceRecorder::failures());
}

TEST_F(GroupRunnerFailures, EveryCodeFrom0x8000On_IsAFailureAndShownInCapitalHexadecimal) {
    for (const std::uint32_t code : {0x8000u, 0x8021u, 0xFFFFu, 0x10000u, 0xDEADBEEFu, 0xFFFFFFFFu}) {
        char text[16];
        std::snprintf(text, sizeof text, "%X", code);
        pump.answers(code);
        TraceRecorder::reset();
        EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(0, 1, 1)) << "never the callback's own code";
        EXPECT_EQ(std::string("***Application error*** - Module: Pump, Phase: Init, Priority: NORMAL, Error: ") + text,
                  TraceRecorder::failures().front().message);
        EXPECT_EQ(9u, stateOf(2));
    }
}

TEST_F(GroupRunnerFailures, ThePhaseOfTheErrorLine_IsTracedSigned) {
    const std::uint32_t big = 0xFFFFFFFEu;
    CModuleManager_RegisterGroup(7, "Odd");
    CModuleManager_RegisterBatch(7, "Odd");
    addPhase(big, "Odd", 7, 7);
    CModuleManager_RegisterModule(7, "Odd");
    test::Callback &odd = callbacks.emplace_back("Odd", calls).answers(0x8000);
    subscribe(7, odd, LOWEST, 100, 7);
    TraceRecorder::reset();
    CModuleManager_RunGroup(7, 1);
    EXPECT_EQ(
        (Lines{{label, "***Application error*** - Module: Odd, Phase: Odd, Priority: LOWEST, Error: 8000", 0x8000},
               {label, std::string(label) + ", Error running group: Odd, phase: -2", 0x1000}}),
        TraceRecorder::failures());
}

TEST_F(GroupRunnerFailures, AFailedPhaseInsertedTwice_IsReportedEachTime) {
    CModuleManager_InsertPhaseIntoBatch(10, 0, 2);
    pump.does(nullptr);
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    const Lines failures = TraceRecorder::failures();
    EXPECT_EQ(2, std::count(failures.begin(), failures.end(), test::Line{label, initFailed, 0x1000}));
}

TEST_F(GroupRunnerFailures, WithADisabledLevel_TheResultsAreTheSame) {
    TraceRecorder::reset(-1);
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(9u, calls.size());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

} // namespace
