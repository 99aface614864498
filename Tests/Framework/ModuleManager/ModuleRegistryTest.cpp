// Registration of the four kinds of records, and what unregistering a module takes along.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "ModuleManagerFixture.h"

namespace {

using test::Calls;
using test::Lines;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

/// One of the four kinds of records.
struct Kind {
    const char *name;
    EAFResult (*add)(std::uint32_t id, const char *name);
    const char *function;
    const char *duplicateMessage; ///< Of id 5 and the new name B.
    const char *successMessage;   ///< Of id 5 and the name A; null for none.
};

/// How a failing test names it.
void PrintTo(const Kind &kind, std::ostream *out) {
    *out << kind.name;
}

const Kind kinds[] = {
    {"Module", CModuleManager_RegisterModule, "CModuleManager_RegisterModule",
     "Module with id:5 name:B already registered", "  Register module A, id 5"},
    {"Group", CModuleManager_RegisterGroup, "CModuleManager_RegisterGroup", "Group with id 5 already registered",
     "  Registered group A"},
    {"Batch", CModuleManager_RegisterBatch, "CModuleManager_RegisterBatch", "Batch with id 5 not found",
     "  Registered batch A"},
    {"Phase", CModuleManager_RegisterPhase, "CModuleManager_RegisterPhase", "Phase with id 5 already registered",
     nullptr},
};

class Registration : public test::ModuleManagerFixture, public testing::WithParamInterface<Kind> {};

INSTANTIATE_TEST_SUITE_P(OfEveryKind, Registration, testing::ValuesIn(kinds),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(Registration, OfANewId_SucceedsAndTracesTheNameWhereTheKindDoes) {
    EXPECT_EQ(eAF_S_OK, GetParam().add(5, "A"));

    if (GetParam().successMessage == nullptr) {
        EXPECT_EQ(0u, TraceRecorder::traceCalls());
    } else {
        EXPECT_EQ((Lines{{GetParam().function, GetParam().successMessage, 0x800}}), TraceRecorder::lines());
        EXPECT_EQ(test::levelOf(0x800), TraceRecorder::records().front().level);
    }
}

TEST_P(Registration, OfATakenId_WarnsWithTheKindsOwnWording) {
    GetParam().add(5, "A");
    TraceRecorder::reset();

    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, GetParam().add(5, "B"));

    EXPECT_EQ((Lines{{GetParam().function, GetParam().duplicateMessage, 0x1001}}), TraceRecorder::lines());
    EXPECT_EQ(test::levelOf(0x1001), TraceRecorder::records().front().level);
}

TEST_P(Registration, OfANullName_IsRefusedWithoutATrace) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, GetParam().add(5, nullptr));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_EQ(eAF_S_OK, GetParam().add(5, "A")) << "the refused call left something behind";
}

TEST_P(Registration, OfANullNameForATakenId_IsRefusedBeforeTheIdIsLookedUp) {
    GetParam().add(5, "A");
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, GetParam().add(5, nullptr));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_P(Registration, KeepsAnIdSpaceOfItsOwn) {
    for (const Kind &other : kinds) {
        if (other.add != GetParam().add) {
            other.add(5, "Other");
        }
    }
    EXPECT_EQ(eAF_S_OK, GetParam().add(5, "A"));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, GetParam().add(5, "B"));
}

TEST_P(Registration, TakesEveryIdOf32BitsAndAnyNumberOfRecords) {
    EXPECT_EQ(eAF_S_OK, GetParam().add(0, "Lowest"));
    EXPECT_EQ(eAF_S_OK, GetParam().add(0xFFFFFFFFu, "Highest"));
    for (std::uint32_t id = 1; id <= 1000; ++id) {
        ASSERT_EQ(eAF_S_OK, GetParam().add(id, "Between")) << id;
    }
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, GetParam().add(0, "Lowest"));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, GetParam().add(0xFFFFFFFFu, "Highest"));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, GetParam().add(1000, "Between"));
}

TEST_P(Registration, TracesIdsUnsigned) {
    GetParam().add(0xFFFFFFFEu, "A");
    TraceRecorder::reset();
    GetParam().add(0xFFFFFFFEu, "B");
    ASSERT_EQ(1u, TraceRecorder::lines().size());
    EXPECT_THAT(TraceRecorder::lines().front().message, testing::HasSubstr("4294967294"));
}

class ModuleRegistry : public test::ModuleManagerFixture {
protected:
    /// Group 0 runs phases 10 and 11 through batch 1.
    void arrangeTwoPhases() {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterBatch(1, "Boot");
        addPhase(10, "Init", 0, 1);
        addPhase(11, "Load", 0, 1);
    }
};

TEST_F(ModuleRegistry, RegisterModule_WithATakenId_KeepsTheFirstName) {
    CModuleManager_RegisterModule(5, "A");
    CModuleManager_RegisterModule(5, "B");
    TraceRecorder::reset();

    EXPECT_EQ(eAF_S_OK, CModuleManager_UnregisterModule(5));

    EXPECT_EQ((Lines{{"CModuleManager_UnregisterModule", "  Unregistered module: A", 0x800}}), TraceRecorder::lines());
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(ModuleRegistry, RegisterModule_WithATakenId_KeepsItsStateAndItsCallbacks) {
    arrangeTwoPhases();
    subscribe(5, addModule(5, "A"));
    CModuleManager_SetModuleState(5, 42);
    CModuleManager_RegisterModule(5, "B");
    EXPECT_EQ(42u, stateOf(5));
    CModuleManager_RunGroup(0, 1);
    EXPECT_THAT(namesOfCalls(), ElementsAre("A", "A"));
}

TEST_F(ModuleRegistry, GroupBatchAndPhase_RegisteredAgain_KeepTheFirstNames) {
    CModuleManager_RegisterGroup(7, "Group A");
    CModuleManager_RegisterBatch(7, "Batch A");
    CModuleManager_RegisterPhase(7, "Phase A");
    CModuleManager_RegisterGroup(7, "Group B");
    CModuleManager_RegisterBatch(7, "Batch B");
    CModuleManager_RegisterPhase(7, "Phase B");
    TraceRecorder::reset();

    CModuleManager_InsertPhaseIntoBatch(7, 7, 7);

    EXPECT_EQ((Lines{{"CModuleManager_InsertPhaseIntoBatch",
                      "  Inserted phase Phase A into batch Batch A for group Group A", 0x800}}),
              TraceRecorder::lines());
}

TEST_F(ModuleRegistry, RegisterBatch_WithATakenId_KeepsItsEntries) {
    arrangeTwoPhases();
    subscribe(5, addModule(5, "A"));
    CModuleManager_RegisterBatch(1, "Again");
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(2u, calls.size());
}

TEST_F(ModuleRegistry, RegisteredNames_AreCopies) {
    std::string name = "Fan";
    CModuleManager_RegisterModule(1, name.c_str());
    CModuleManager_RegisterGroup(1, name.c_str());
    CModuleManager_RegisterBatch(1, name.c_str());
    CModuleManager_RegisterPhase(1, name.c_str());
    name = "???";
    TraceRecorder::reset();

    CModuleManager_InsertPhaseIntoBatch(1, 1, 1);
    CModuleManager_UnregisterModule(1);

    EXPECT_EQ(
        (Lines{{"CModuleManager_InsertPhaseIntoBatch", "  Inserted phase Fan into batch Fan for group Fan", 0x800},
               {"CModuleManager_UnregisterModule", "  Unregistered module: Fan", 0x800}}),
        TraceRecorder::lines());
}

TEST_F(ModuleRegistry, GetNumberOfRegisteredModules_CountsModulesAlone) {
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
    CModuleManager_RegisterModule(1, "One");
    CModuleManager_RegisterModule(2, "Two");
    CModuleManager_RegisterModule(2, "Two again");
    CModuleManager_RegisterModule(3, nullptr);
    CModuleManager_RegisterGroup(4, "Group");
    CModuleManager_RegisterBatch(4, "Batch");
    CModuleManager_RegisterPhase(4, "Phase");
    EXPECT_EQ(2u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(ModuleRegistry, GetNumberOfRegisteredModules_TracesNothing) {
    CModuleManager_GetNumberOfRegisteredModules();
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ModuleRegistry, UnregisterModule_OfAnUnknownId_FailsAndLeavesTheOthers) {
    CModuleManager_RegisterModule(1, "One");
    TraceRecorder::reset();

    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_UnregisterModule(2));

    EXPECT_EQ((Lines{{"CModuleManager_UnregisterModule", "Attempt to unregister an unknown module", 0x800C}}),
              TraceRecorder::lines());
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(ModuleRegistry, UnregisterModule_Twice_FailsTheSecondTime) {
    CModuleManager_RegisterModule(1, "One");
    EXPECT_EQ(eAF_S_OK, CModuleManager_UnregisterModule(1));
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_UnregisterModule(1));
}

TEST_F(ModuleRegistry, UnregisterModule_OfEachPosition_LeavesTheOthers) {
    for (const std::uint32_t position : {1u, 2u, 3u}) {
        forgetAll();
        for (const std::uint32_t id : {1u, 2u, 3u}) {
            CModuleManager_RegisterModule(id, "Any");
            CModuleManager_SetModuleState(id, 100 + id);
        }
        EXPECT_EQ(eAF_S_OK, CModuleManager_UnregisterModule(position));
        EXPECT_EQ(2u, CModuleManager_GetNumberOfRegisteredModules());
        for (const std::uint32_t id : {1u, 2u, 3u}) {
            if (id != position) {
                EXPECT_EQ(100 + id, stateOf(id));
            }
        }
    }
}

TEST_F(ModuleRegistry, UnregisterModule_RemovesItsCallbacksFromEveryPhaseAndNoOthers) {
    arrangeTwoPhases();
    test::Callback &gone = addModule(1, "Gone");
    test::Callback &stays = addModule(2, "Stays");
    subscribe(1, gone);
    subscribe(2, stays);
    subscribe(1, gone, HIGHEST);
    TraceRecorder::reset();

    EXPECT_EQ(eAF_S_OK, CModuleManager_UnregisterModule(1));

    EXPECT_EQ((Lines{{"CModuleManager_UnregisterModule", "  Unregistered module: Gone", 0x800}}),
              TraceRecorder::lines());
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ((Calls{{"Stays", 10, NORMAL}, {"Stays", 11, NORMAL}}), calls);
    EXPECT_THAT(TraceRecorder::failures(), IsEmpty()) << "a descriptor without a module would be reported";
}

TEST_F(ModuleRegistry, UnregisterModule_LeavesTheModulesOwnRecordUsable) {
    arrangeTwoPhases();
    test::Callback &fan = addModule(1, "Fan");
    subscribe(1, fan);
    CModuleManager_UnregisterModule(1);

    EXPECT_EQ(eAF_S_OK, fan.record.function(fan.record.context, 10, LOW));
    EXPECT_EQ((Calls{{"Fan", 10, LOW}}), calls);
}

TEST_F(ModuleRegistry, AModuleRegisteredAnew_StartsInItsFirstStateWithoutCallbacks) {
    arrangeTwoPhases();
    subscribe(1, addModule(1, "Fan"));
    CModuleManager_RunGroup(0, 1);
    CModuleManager_UnregisterModule(1);
    calls.clear();

    CModuleManager_RegisterModule(1, "Fan");
    EXPECT_EQ(1u, stateOf(1));
    CModuleManager_RunGroup(0, 1);
    EXPECT_THAT(calls, IsEmpty());
}

} // namespace
