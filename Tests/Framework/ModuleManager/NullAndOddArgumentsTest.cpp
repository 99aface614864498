// Arguments that no sensible host passes: what happens is defined all the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const char *const runner = "CModuleManager_RunGroupWithReturnOption";

/// Group 0 runs phases 10 and 11 of batch 1; module 5 is registered.
class NullAndOddArguments : public test::ModuleManagerFixture {
protected:
    NullAndOddArguments() : fan(addModule(5, "Fan")) {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterBatch(1, "Boot");
        addPhase(10, "Init", 0, 1);
        addPhase(11, "Load", 0, 1);
        TraceRecorder::reset();
    }

    EAFResult enter(SModuleCallback *callback, const char *name, const std::uint32_t *filter = nullptr) {
        return CModuleManager_RegisterCallback(5, name, 100, callback, NORMAL, 1, filter, filter != nullptr ? 1 : 0);
    }

    test::Callback &fan;
};

TEST_F(NullAndOddArguments, GetPhaseName_WithANullOutPointer_IsRefusedUntraced) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_GetPhaseName(10, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_GetPhaseName(99, nullptr));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(NullAndOddArguments, GetPriorityName_WithANullOutPointer_IsRefusedUntraced) {
    for (const std::int32_t priority : {-1, 0, 6, 7}) {
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_GetPriorityName(priority, nullptr));
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(NullAndOddArguments, QueryModuleState_WithANullOutPointer_IsRefusedUntraced) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_QueryModuleState(5, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_QueryModuleState(99, nullptr));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(NullAndOddArguments, EmptyNames_AreNamesLikeOthers) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterModule(6, ""));
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterGroup(6, ""));
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterBatch(6, ""));
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterPhase(6, ""));
    EXPECT_EQ(eAF_S_OK, CModuleManager_InsertPhaseIntoBatch(6, 6, 6));
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterCallback(6, "", 100, &fan.record, LOW, 6, nullptr, 0));
    const char *name = nullptr;
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetPhaseName(6, &name));
    EXPECT_STREQ("", name);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(6, 1));
    EXPECT_EQ((Lines{{runner, "GROUP: ", 0x800},
                     {runner, "  Running batch Boot", 0x800},
                     {runner, "  Running batch ", 0x800},
                     {runner, "PHASE: ", 0x800},
                     {runner, "  Call module: ", 0x800},
                     {runner, "    with callback:  and Priority: LOW", 0x800}}),
              TraceRecorder::lines());
}

TEST_F(NullAndOddArguments, PercentSignsInNames_AreTracedAsTheyAre) {
    CModuleManager_RegisterModule(6, "100%s%n");
    CModuleManager_UnregisterModule(6);
    EXPECT_EQ((Lines{{"CModuleManager_RegisterModule", "  Register module 100%s%n, id 6", 0x800},
                     {"CModuleManager_UnregisterModule", "  Unregistered module: 100%s%n", 0x800}}),
              TraceRecorder::lines());
}

TEST_F(NullAndOddArguments, LongNames_AreKeptWhole) {
    const std::string name(5000, 'x');
    CModuleManager_RegisterPhase(6, name.c_str());
    const char *found = nullptr;
    CModuleManager_GetPhaseName(6, &found);
    EXPECT_EQ(name, found);
}

TEST_F(NullAndOddArguments, ANullCallbackName_RaisesALogicErrorAndAddsNothing) {
    try {
        enter(&fan.record, nullptr);
        ADD_FAILURE() << "nothing was raised";
    } catch (const std::logic_error &raised) {
        EXPECT_STREQ("CModuleManager_RegisterCallback: the callback name is null", raised.what());
    }
    const std::uint32_t second = 11;
    EXPECT_THROW(enter(&fan.record, nullptr, &second), std::logic_error);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(NullAndOddArguments, ANullCallbackName_ThatIsNeverCopied_GoesUnnoticed) {
    const std::uint32_t none = 99;
    EXPECT_EQ(eAF_S_OK, enter(&fan.record, nullptr, &none));
    CModuleManager_RegisterBatch(2, "Empty");
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterCallback(5, nullptr, 100, &fan.record, NORMAL, 2, nullptr, 0));
}

TEST_F(NullAndOddArguments, ANullCallbackName_IsFoundAfterTheOtherFaults) {
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE,
              CModuleManager_RegisterCallback(99, nullptr, 100, &fan.record, NORMAL, 1, nullptr, 0));
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH,
              CModuleManager_RegisterCallback(5, nullptr, 100, &fan.record, NORMAL, 99, nullptr, 0));
}

TEST_F(NullAndOddArguments, ANullCallbackRecord_IsStoredAndFailsWhenItsTurnComes) {
    EXPECT_EQ(eAF_S_OK, enter(nullptr, "Nothing"));
    subscribe(5, fan, LOW);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_THAT(namesOfCalls(), ElementsAre("Fan", "Fan"));
    EXPECT_THAT(
        TraceRecorder::lines(),
        Contains(test::Line{runner, "***Application error*** - Module: Fan, Phase: Init, Priority: NORMAL, Error: 8006",
                            0x8000}));
    EXPECT_EQ(3u, stateOf(5)) << "of the later callback";
}

TEST_F(NullAndOddArguments, ANullCallbackFunction_FailsTheModuleAndStopsARunThatStopsAtFailures) {
    SModuleCallback hollow{nullptr, nullptr};
    EXPECT_EQ(eAF_S_OK, enter(&hollow, "Hollow"));
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(0, 1, 1));
    EXPECT_EQ(9u, stateOf(5));
}

TEST_F(NullAndOddArguments, ANullContext_IsHandedBackAsItIs) {
    static void *seen;
    seen = this;
    SModuleCallback record{nullptr, [](void *context, std::uint32_t, ECallbackPriority) {
                               seen = context;
                               return eAF_S_OK;
                           }};
    EXPECT_EQ(eAF_S_OK, enter(&record, "NoContext"));
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(nullptr, seen);
}

TEST_F(NullAndOddArguments, AResetProviderWithoutFunctions_CountsAsOneThatFails) {
    SResetProvider hollow{nullptr, nullptr, nullptr};
    int info = 7;
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterResetProvider(&hollow));
    EXPECT_EQ(eAF_S_OK, CModuleManager_PerformSystemReset(1, 2, 3));
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetSystemResetInfo(&info, &info, 3));
    EXPECT_EQ(0u, CModuleManager_IsColdReset());
    EXPECT_EQ(7, info);
    EXPECT_EQ((Lines{{"CModuleManager_PerformSystemReset", "Error when calling Reset Provider to perform system reset",
                      0x8000},
                     {"CModuleManager_GetSystemResetInfo", "Error when calling Reset Info Provider", 0x8000}}),
              TraceRecorder::lines());
}

TEST_F(NullAndOddArguments, IdsAtTheEdges_AreOrdinaryIds) {
    for (const std::uint32_t id : {0u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        forgetAll();
        calls.clear();
        CModuleManager_RegisterGroup(id, "Group");
        CModuleManager_RegisterBatch(id, "Batch");
        addPhase(id, "Phase", id, id);
        CModuleManager_RegisterModule(id, "Module");
        EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterCallback(id, "cb", 100, &fan.record, NORMAL, id, &id, 1));
        EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(id, 1));
        EXPECT_EQ((test::Calls{{"Fan", id, NORMAL}}), calls);
        EXPECT_EQ(3u, stateOf(id));
        EXPECT_EQ(eAF_S_OK, CModuleManager_UnregisterModule(id));
    }
}

} // namespace
