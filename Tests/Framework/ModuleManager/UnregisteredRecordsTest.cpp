// Batch entries and callback descriptors whose phase or module is not registered. The interface can not produce
// them; the runner and the registration meet them all the same, here with records put in by hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "ModuleManagerFixture.h"
#include "ModuleRegistry.h"

namespace {

using test::Calls;
using test::Lines;
using test::TraceRecorder;
using testing::ElementsAre;

const char *const label = "CModuleManager_RunGroupWithReturnOption";
const char *const phase99Failed = "CModuleManager_RunGroupWithReturnOption, Error running group: Start, phase: 99";

/// Group 0 runs phase 10 of batch 1; module 5 is called in it.
class UnregisteredRecords : public test::ModuleManagerFixture {
protected:
    UnregisteredRecords() : fan(addModule(5, "Fan")) {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterGroup(1, "Stop");
        CModuleManager_RegisterBatch(1, "Boot");
        addPhase(10, "Init", 0, 1);
    }

    static SBatchDescriptor &batch() { return CModuleManager_c::instance().batches.front(); }
    static SPhaseDescriptor &phase() { return CModuleManager_c::instance().phases.front(); }

    /// Adds a descriptor of a module that is not registered.
    void addOrphan(std::uint32_t moduleId, std::uint32_t priority, std::uint32_t channel = ALL_RADIO_CHANNELS) {
        phase().callbacks.push_back(
            {moduleId, channel, &fan.record, static_cast<ECallbackPriority>(priority), "Orphan"});
    }

    static long count(const char *message, std::uint32_t code) {
        const Lines lines = TraceRecorder::lines();
        return std::count(lines.begin(), lines.end(), test::Line{label, message, code});
    }

    test::Callback &fan;
};

TEST_F(UnregisteredRecords, AnEntryOfAnUnregisteredPhase_WithOption0_IsReportedAndTheRunGoesOn) {
    subscribe(5, fan);
    batch().entries.insert(batch().entries.begin(), {0, 99});
    TraceRecorder::reset();

    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));

    EXPECT_EQ((Lines{{label, "GROUP: Start", 0x800},
                     {label, "  Running batch Boot", 0x800},
                     {label, "Could not find phase with id = 99", 0x800B},
                     {label, phase99Failed, 0x1000},
                     {label, "PHASE: Init", 0x800},
                     {label, "  Call module: Fan", 0x800},
                     {label, "    with callback: cb and Priority: NORMAL", 0x800}}),
              TraceRecorder::lines());
    EXPECT_EQ((Calls{{"Fan", 10, NORMAL}}), calls);
}

TEST_F(UnregisteredRecords, AnEntryOfAnUnregisteredPhase_WithAnotherOption_EndsTheRun) {
    subscribe(5, fan);
    batch().entries.insert(batch().entries.begin(), {0, 99});
    TraceRecorder::reset();

    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(0, 1, 1));

    EXPECT_EQ((Lines{{label, "GROUP: Start", 0x800},
                     {label, "  Running batch Boot", 0x800},
                     {label, "Could not find phase with id = 99", 0x800B},
                     {label, phase99Failed, 0x1000}}),
              TraceRecorder::lines());
    EXPECT_TRUE(calls.empty());
}

TEST_F(UnregisteredRecords, AnEntryOfAnUnregisteredPhase_OfAnotherGroup_IsNotLookedAt) {
    batch().entries.push_back({1, 99});
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroupWithReturnOption(0, 1, 1));
}

TEST_F(UnregisteredRecords, AnUnregisteredPhase_IsTracedUnsignedThenSigned) {
    batch().entries.assign({{0, 0xFFFFFFFEu}});
    TraceRecorder::reset();
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(
        (Lines{{label, "Could not find phase with id = 4294967294", 0x800B},
               {label, "CModuleManager_RunGroupWithReturnOption, Error running group: Start, phase: -2", 0x1000}}),
        TraceRecorder::failures());
}

TEST_F(UnregisteredRecords, ADescriptorOfAnUnregisteredModule_IsReportedInEachOfTheSevenPasses) {
    addOrphan(4000000000u, LOW);
    TraceRecorder::reset();

    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1)) << "it does not fail the run";

    Lines expected{
        {label, "GROUP: Start", 0x800}, {label, "  Running batch Boot", 0x800}, {label, "PHASE: Init", 0x800}};
    expected.resize(10, {label, "Module with id 4000000000 not found", 0x800C});
    EXPECT_EQ(expected, TraceRecorder::lines());
    EXPECT_TRUE(calls.empty());
}

TEST_F(UnregisteredRecords, ADescriptorOfAnUnregisteredModule_IsReportedWhateverItsPriorityAndChannel) {
    addOrphan(98, 7);
    addOrphan(98, 0xFFFFFFFFu);
    addOrphan(98, NORMAL, 3);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroupWithReturnOption(0, 1, 1));
    EXPECT_EQ(21, count("Module with id 98 not found", 0x800C));
}

TEST_F(UnregisteredRecords, DescriptorsOfRegisteredModules_RunBetweenTheReports) {
    addOrphan(98, HIGHEST);
    subscribe(5, fan, HIGH);
    TraceRecorder::reset();

    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));

    Lines expected{{label, "GROUP: Start", 0x800},
                   {label, "  Running batch Boot", 0x800},
                   {label, "PHASE: Init", 0x800},
                   {label, "Module with id 98 not found", 0x800C},
                   {label, "Module with id 98 not found", 0x800C},
                   {label, "  Call module: Fan", 0x800},
                   {label, "    with callback: cb and Priority: HIGH", 0x800}};
    expected.resize(12, {label, "Module with id 98 not found", 0x800C});
    EXPECT_EQ(expected, TraceRecorder::lines());
}

TEST_F(UnregisteredRecords, APassThatStopsAtAFailure_ReportsNoMore) {
    addOrphan(98, HIGHEST);
    subscribe(5, fan.answers(0x8000), HIGH);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(0, 1, 1));
    EXPECT_EQ(2, count("Module with id 98 not found", 0x800C)) << "of the passes HIGHEST and HIGH";
}

TEST_F(UnregisteredRecords, RegisterCallback_AtAnUnregisteredPhase_FailsAndKeepsWhatItAddedBefore) {
    addPhase(11, "Load", 0, 1);
    batch().entries.insert(batch().entries.begin() + 1, {0, 4000000000u});
    TraceRecorder::reset();

    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RegisterCallback(5, "cb", 100, &fan.record, NORMAL, 1, nullptr, 0));

    EXPECT_EQ((Lines{{"CModuleManager_RegisterCallback", "Could not get phase with id = 4000000000", 0x8000}}),
              TraceRecorder::lines());
    batch().entries.erase(batch().entries.begin() + 1);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ((Calls{{"Fan", 10, NORMAL}}), calls) << "the phase before it was served, the one behind it was not";
}

TEST_F(UnregisteredRecords, RegisterCallback_MeetsTheUnregisteredPhaseOfAnyGroup) {
    batch().entries.push_back({12345, 99});
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RegisterCallback(5, "cb", 100, &fan.record, NORMAL, 1, nullptr, 0));
}

TEST_F(UnregisteredRecords, RegisterCallback_WithAFilterThatLeavesThePhaseOut_Succeeds) {
    batch().entries.insert(batch().entries.begin(), {0, 99});
    const std::uint32_t known = 10;
    const std::uint32_t unknown = 99;
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterCallback(5, "cb", 100, &fan.record, NORMAL, 1, &known, 1));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RegisterCallback(5, "cb", 100, &fan.record, NORMAL, 1, &unknown, 1));
}

TEST_F(UnregisteredRecords, RegisterCallback_AtAnUnregisteredPhase_NeedsNoNameForIt) {
    batch().entries.assign({{0, 99}});
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RegisterCallback(5, nullptr, 100, &fan.record, NORMAL, 1, nullptr, 0));
}

TEST_F(UnregisteredRecords, UnregisterModule_LeavesTheOrphansOfOtherModules) {
    addOrphan(98, NORMAL);
    subscribe(5, fan);
    addOrphan(97, NORMAL);
    CModuleManager_UnregisterModule(5);
    std::vector<std::uint32_t> left;
    for (const SCallbackDescriptor &descriptor : phase().callbacks) {
        left.push_back(descriptor.moduleId);
    }
    EXPECT_THAT(left, ElementsAre(98, 97));
}

TEST_F(UnregisteredRecords, ADescriptor_HoldsWhatWasRegistered) {
    CModuleManager_RegisterCallback(5, "cb", 7, &fan.record, static_cast<ECallbackPriority>(8), 1, nullptr, 0);
    ASSERT_EQ(1u, phase().callbacks.size());
    const SCallbackDescriptor &descriptor = phase().callbacks.front();
    EXPECT_EQ(5u, descriptor.moduleId);
    EXPECT_EQ(7u, descriptor.radioChannel);
    EXPECT_EQ(&fan.record, descriptor.callback);
    EXPECT_EQ(8u, static_cast<std::uint32_t>(descriptor.priority));
    EXPECT_EQ("cb", descriptor.name);
}

} // namespace
