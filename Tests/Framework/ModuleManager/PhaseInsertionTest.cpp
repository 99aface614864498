#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ModuleManagerFixture.h"

namespace {

using test::Calls;
using test::Lines;
using test::TraceRecorder;

const char *const label = "CModuleManager_InsertPhaseIntoBatch";

class PhaseInsertion : public test::ModuleManagerFixture {
protected:
    PhaseInsertion() {
        CModuleManager_RegisterPhase(7, "Init");
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterBatch(3, "Boot");
        TraceRecorder::reset();
    }

    /// How often phase 7 runs when a group runs.
    std::size_t runsOfPhase7(std::uint32_t groupId) {
        test::Callback &probe = addModule(900 + groupId, "Probe");
        subscribe(900 + groupId, probe, NORMAL, ALL_RADIO_CHANNELS, 3);
        EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(groupId, 1));
        return calls.size();
    }
};

TEST_F(PhaseInsertion, OfKnownRecords_TracesTheirNames) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_InsertPhaseIntoBatch(7, 0, 3));
    EXPECT_EQ((Lines{{label, "  Inserted phase Init into batch Boot for group Start", 0x800}}), TraceRecorder::lines());
}

TEST_F(PhaseInsertion, TakesPhaseGroupAndBatchInThisOrder) {
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_InsertPhaseIntoBatch(3, 0, 7));
    EXPECT_EQ((Lines{{label, "Could not get batch with id = 7", 0x8000}}), TraceRecorder::lines());
}

TEST_F(PhaseInsertion, IntoAnUnknownBatch_ReportsOnlyTheBatchWhateverElseIsUnknown) {
    for (const std::uint32_t group : {0u, 99u}) {
        for (const std::uint32_t phase : {7u, 98u}) {
            TraceRecorder::reset();
            EXPECT_EQ(eAF_E_FAILED, CModuleManager_InsertPhaseIntoBatch(phase, group, 4000000000u));
            EXPECT_EQ((Lines{{label, "Could not get batch with id = 4000000000", 0x8000}}), TraceRecorder::lines());
        }
    }
}

TEST_F(PhaseInsertion, ForAnUnknownGroup_ReportsOnlyTheGroupWhateverThePhase) {
    for (const std::uint32_t phase : {7u, 98u}) {
        TraceRecorder::reset();
        EXPECT_EQ(eAF_E_FAILED, CModuleManager_InsertPhaseIntoBatch(phase, 4000000000u, 3));
        EXPECT_EQ((Lines{{label, "Could not get group with id = 4000000000", 0x8000}}), TraceRecorder::lines());
    }
}

TEST_F(PhaseInsertion, OfAnUnknownPhase_IsReportedLast) {
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_InsertPhaseIntoBatch(4000000000u, 0, 3));
    EXPECT_EQ((Lines{{label, "Could not get phase with id = 4000000000", 0x8000}}), TraceRecorder::lines());
}

TEST_F(PhaseInsertion, ThatFails_LeavesTheBatchWithoutAnEntry) {
    CModuleManager_InsertPhaseIntoBatch(7, 99, 3);
    CModuleManager_InsertPhaseIntoBatch(98, 0, 3);
    TraceRecorder::reset();
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ((Lines{{"CModuleManager_RunGroupWithReturnOption", "GROUP: Start", 0x800},
                     {"CModuleManager_RunGroupWithReturnOption", "  Running batch Boot", 0x800}}),
              TraceRecorder::lines());
}

TEST_F(PhaseInsertion, Once_RunsThePhaseOnce) {
    CModuleManager_InsertPhaseIntoBatch(7, 0, 3);
    EXPECT_EQ(1u, runsOfPhase7(0));
}

TEST_F(PhaseInsertion, OfTheSamePairTwice_RunsThePhaseTwice) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_InsertPhaseIntoBatch(7, 0, 3));
    EXPECT_EQ(eAF_S_OK, CModuleManager_InsertPhaseIntoBatch(7, 0, 3));
    EXPECT_EQ(2u, runsOfPhase7(0));
}

TEST_F(PhaseInsertion, ForTwoGroups_RunsThePhaseOnceForEach) {
    CModuleManager_RegisterGroup(1, "Stop");
    CModuleManager_InsertPhaseIntoBatch(7, 0, 3);
    CModuleManager_InsertPhaseIntoBatch(7, 1, 3);
    EXPECT_EQ(1u, runsOfPhase7(0));
    calls.clear();
    CModuleManager_UnregisterModule(900);
    EXPECT_EQ(1u, runsOfPhase7(1));
}

TEST_F(PhaseInsertion, IntoTwoBatches_RunsThePhaseInEach) {
    CModuleManager_RegisterBatch(4, "Late");
    CModuleManager_InsertPhaseIntoBatch(7, 0, 3);
    CModuleManager_InsertPhaseIntoBatch(7, 0, 4);
    EXPECT_EQ(2u, runsOfPhase7(0));
}

} // namespace
