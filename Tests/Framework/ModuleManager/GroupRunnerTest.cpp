// What a run calls, in which order, and what it traces on the way. Failures stand in GroupRunnerFailuresTest.cpp.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <thread>

#include "ModuleManagerFixture.h"

namespace {

using test::Calls;
using test::Lines;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

const char *const label = "CModuleManager_RunGroupWithReturnOption";

/// Group 0 runs phase 10 of batch 1; group 1 is there too.
class GroupRunner : public test::ModuleManagerFixture {
protected:
    GroupRunner() {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterGroup(1, "Stop");
        CModuleManager_RegisterBatch(1, "Boot");
        addPhase(10, "Init", 0, 1);
        TraceRecorder::reset();
    }

    std::vector<std::string> namesCalledOnChannel(std::uint32_t channel) {
        EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, channel));
        return namesOfCalls();
    }
};

TEST_F(GroupRunner, AnUnknownGroup_FailsBeforeTheChannelIsJudged) {
    for (const std::uint32_t channel : {1u, 0u, 5u}) {
        for (const std::uint32_t option : {0u, 1u}) {
            TraceRecorder::reset();
            EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(4000000000u, channel, option));
            EXPECT_EQ((Lines{{label, "Could not get group element with id 4000000000", 0x8000}}),
                      TraceRecorder::lines());
        }
    }
}

TEST_F(GroupRunner, AnInvalidChannel_IsRefusedAndNothingRuns) {
    subscribe(5, addModule(5, "Fan"));
    for (const std::uint32_t channel : {0u, 5u, 6u, 99u, 101u, 1000u}) {
        TraceRecorder::reset();
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_RunGroup(0, channel));
        EXPECT_EQ((Lines{{label, "invalid channel: " + std::to_string(channel), 0x8006}}), TraceRecorder::lines());
    }
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(1u, stateOf(5));
}

TEST_F(GroupRunner, AnInvalidChannel_IsTracedSigned) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_RunGroupWithReturnOption(0, 0xFFFFFFFFu, 1));
    EXPECT_EQ((Lines{{label, "invalid channel: -1", 0x8006}}), TraceRecorder::lines());
}

TEST_F(GroupRunner, EveryValidChannel_Runs) {
    subscribe(5, addModule(5, "Fan"));
    for (const std::uint32_t channel : {1u, 2u, 3u, 4u, 100u}) {
        EXPECT_THAT(namesCalledOnChannel(channel), ElementsAre("Fan")) << channel;
    }
}

TEST_F(GroupRunner, ACallback_MatchesItsOwnChannelAndTheWildcardOfEitherSide) {
    subscribe(1, addModule(1, "One"), NORMAL, 1);
    subscribe(2, addModule(2, "Two"), NORMAL, 2);
    subscribe(3, addModule(3, "Three"), NORMAL, 3);
    subscribe(4, addModule(4, "Four"), NORMAL, 4);
    subscribe(5, addModule(5, "All"), NORMAL, 100);
    subscribe(7, addModule(7, "Seven"), NORMAL, 7);
    subscribe(8, addModule(8, "Zero"), NORMAL, 0);
    EXPECT_THAT(namesCalledOnChannel(1), ElementsAre("One", "All"));
    EXPECT_THAT(namesCalledOnChannel(2), ElementsAre("Two", "All"));
    EXPECT_THAT(namesCalledOnChannel(3), ElementsAre("Three", "All"));
    EXPECT_THAT(namesCalledOnChannel(4), ElementsAre("Four", "All"));
    EXPECT_THAT(namesCalledOnChannel(100), ElementsAre("One", "Two", "Three", "Four", "All", "Seven", "Zero"));
}

TEST_F(GroupRunner, ASkippedCallback_IsNotTracedAndLeavesItsModulesState) {
    subscribe(5, addModule(5, "Fan"), NORMAL, 2);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(
        (Lines{{label, "GROUP: Start", 0x800}, {label, "  Running batch Boot", 0x800}, {label, "PHASE: Init", 0x800}}),
        TraceRecorder::lines());
    EXPECT_EQ(1u, stateOf(5));
}

TEST_F(GroupRunner, ARun_TracesGroupBatchPhaseModuleAndCallback) {
    CModuleManager_RegisterModule(5, "Fan");
    test::Callback &callback = callbacks.emplace_back("Fan", calls);
    CModuleManager_RegisterCallback(5, "FanOnStart", 100, &callback.record, LOWER_THAN_NORMAL, 1, nullptr, 0);
    TraceRecorder::reset();

    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));

    EXPECT_EQ((Lines{{label, "GROUP: Start", 0x800},
                     {label, "  Running batch Boot", 0x800},
                     {label, "PHASE: Init", 0x800},
                     {label, "  Call module: Fan", 0x800},
                     {label, "    with callback: FanOnStart and Priority: LOWER_THAN_NORMAL", 0x800}}),
              TraceRecorder::lines());
    for (const test::Trace &trace : TraceRecorder::records()) {
        EXPECT_EQ(test::levelOf(0x800), trace.level);
        EXPECT_EQ("Framework/ApplicationFramework/private/CModuleManager_c.cpp", trace.file);
        EXPECT_EQ(2u, trace.calls);
    }
}

TEST_F(GroupRunner, TheCallIsTracedBeforeItIsMade) {
    std::size_t linesBefore = 0;
    subscribe(5, addModule(5, "Fan").does([&] { linesBefore = TraceRecorder::lines().size(); }));
    TraceRecorder::reset();
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(5u, linesBefore);
}

TEST_F(GroupRunner, ACallback_ReceivesItsContextThePhaseAndItsPriority) {
    subscribe(5, addModule(5, "Fan"), HIGHER_THAN_NORMAL);
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ((Calls{{"Fan", 10, HIGHER_THAN_NORMAL}}), calls);
}

TEST_F(GroupRunner, Callbacks_RunOnTheCallersThread) {
    std::thread::id thread;
    subscribe(5, addModule(5, "Fan").does([&] { thread = std::this_thread::get_id(); }));
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(std::this_thread::get_id(), thread);
}

TEST_F(GroupRunner, Priorities_RunFromHighestToLowestWhateverTheOrderOfRegistration) {
    const std::array<ECallbackPriority, 7> shuffled{LOWEST, HIGH,  HIGHEST, LOWER_THAN_NORMAL, HIGHER_THAN_NORMAL,
                                                    LOW,    NORMAL};
    test::Callback &fan = addModule(5, "Fan");
    for (const ECallbackPriority priority : shuffled) {
        subscribe(5, fan, priority);
    }
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ((Calls{{"Fan", 10, 0},
                     {"Fan", 10, 1},
                     {"Fan", 10, 2},
                     {"Fan", 10, 3},
                     {"Fan", 10, 4},
                     {"Fan", 10, 5},
                     {"Fan", 10, 6}}),
              calls);
}

TEST_F(GroupRunner, CallbacksOfOnePriority_RunInOrderOfRegistrationNotOfTheirModules) {
    test::Callback &first = addModule(1, "RegisteredFirst");
    test::Callback &second = addModule(2, "RegisteredSecond");
    subscribe(2, second);
    subscribe(1, first, LOW);
    subscribe(1, first);
    subscribe(2, second, LOW);
    CModuleManager_RunGroup(0, 1);
    EXPECT_THAT(namesOfCalls(),
                ElementsAre("RegisteredSecond", "RegisteredFirst", "RegisteredFirst", "RegisteredSecond"));
}

TEST_F(GroupRunner, AModule_IsCalledOnceForEachMatchingDescriptor) {
    test::Callback &fan = addModule(5, "Fan");
    subscribe(5, fan, HIGH, 1);
    subscribe(5, fan, HIGH, 2);
    subscribe(5, fan, LOW, 1);
    subscribe(5, fan, LOW, 100);
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ((Calls{{"Fan", 10, HIGH}, {"Fan", 10, LOW}, {"Fan", 10, LOW}}), calls);
}

TEST_F(GroupRunner, BatchesRunInOrderOfRegistration_EntriesInOrderOfInsertion) {
    CModuleManager_RegisterBatch(9, "RegisteredSecondWithAHighId");
    CModuleManager_RegisterBatch(0, "RegisteredThirdWithALowId");
    addPhase(30, "A", 0, 0);
    addPhase(20, "B", 0, 9);
    addPhase(5, "C", 0, 1);
    CModuleManager_InsertPhaseIntoBatch(10, 0, 1);
    test::Callback &fan = addModule(5, "Fan");
    for (const std::uint32_t batch : {0u, 9u, 1u}) {
        subscribe(5, fan, NORMAL, 100, batch);
    }
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ((Calls{{"Fan", 10, 3}, {"Fan", 5, 3}, {"Fan", 10, 3}, {"Fan", 20, 3}, {"Fan", 30, 3}}), calls);
}

TEST_F(GroupRunner, EntriesOfOtherGroups_AreLeftOut) {
    addPhase(11, "Down", 1, 1);
    subscribe(5, addModule(5, "Fan"));
    CModuleManager_RunGroup(1, 1);
    EXPECT_EQ((Calls{{"Fan", 11, NORMAL}}), calls);
}

TEST_F(GroupRunner, EveryBatchIsNamed_EvenWithoutAnEntryForTheGroup) {
    CModuleManager_RegisterBatch(2, "Empty");
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(1, 1));
    EXPECT_EQ((Lines{{label, "GROUP: Stop", 0x800},
                     {label, "  Running batch Boot", 0x800},
                     {label, "  Running batch Empty", 0x800}}),
              TraceRecorder::lines());
}

TEST_F(GroupRunner, WithoutBatches_NamesTheGroupAndSucceeds) {
    forgetAll();
    CModuleManager_RegisterGroup(3, "Lonely");
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(3, 4));
    EXPECT_EQ((Lines{{label, "GROUP: Lonely", 0x800}}), TraceRecorder::lines());
}

TEST_F(GroupRunner, APhaseInsertedTwice_RunsAsAWholeTwice) {
    CModuleManager_InsertPhaseIntoBatch(10, 0, 1);
    test::Callback &fan = addModule(5, "Fan");
    subscribe(5, fan, LOW);
    subscribe(5, fan, HIGH);
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ((Calls{{"Fan", 10, HIGH}, {"Fan", 10, LOW}, {"Fan", 10, HIGH}, {"Fan", 10, LOW}}), calls);
}

TEST_F(GroupRunner, AnyCodeBelow0x8000_IsASuccess) {
    test::Callback &fan = addModule(5, "Fan");
    subscribe(5, fan);
    for (const std::uint32_t code : {0x0000u, 0x0002u, 0x0101u, 0x0800u, 0x1000u, 0x1001u, 0x1009u, 0x7FFFu}) {
        CModuleManager_SetModuleState(5, 42);
        fan.answers(code);
        TraceRecorder::reset();
        EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroupWithReturnOption(0, 1, 1)) << code;
        EXPECT_EQ(3u, stateOf(5)) << code;
        EXPECT_THAT(TraceRecorder::failures(), IsEmpty());
    }
}

TEST_F(GroupRunner, KeepsNothingBetweenRuns) {
    test::Callback &fan = addModule(5, "Fan").answers(0x8001);
    subscribe(5, fan);
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    fan.answers(0);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
}

TEST_F(GroupRunner, ACallback_MayRunAnotherGroup) {
    addPhase(11, "Down", 1, 1);
    test::Callback &fan = addModule(5, "Fan");
    bool nested = false;
    fan.does([&] {
        if (!std::exchange(nested, true)) {
            EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(1, 2));
        }
    });
    subscribe(5, fan);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ((Calls{{"Fan", 10, NORMAL}, {"Fan", 11, NORMAL}}), calls);
}

TEST_F(GroupRunner, RunGroup_TracesUnderTheNameOfTheOperationThatItCalls) {
    CModuleManager_RunGroup(99, 1);
    CModuleManager_RunGroup(0, 0);
    EXPECT_EQ((Lines{{label, "Could not get group element with id 99", 0x8000}, {label, "invalid channel: 0", 0x8006}}),
              TraceRecorder::lines());
}

} // namespace
