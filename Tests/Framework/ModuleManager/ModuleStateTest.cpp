// Module states, and the statistics that are not kept.
#include <gtest/gtest.h>

#include <array>

#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;

class ModuleState : public test::ModuleManagerFixture {};

TEST_F(ModuleState, TheNamedStates_HaveTheSettledValues) {
    EXPECT_EQ(1u, MODULE_STATE_REGISTERED);
    EXPECT_EQ(3u, MODULE_STATE_PHASE_OK);
    EXPECT_EQ(9u, MODULE_STATE_PHASE_FAILED);
}

TEST_F(ModuleState, OfAModuleJustRegistered_Is1) {
    CModuleManager_RegisterModule(5, "Fan");
    TraceRecorder::reset();
    EXPECT_EQ(1u, stateOf(5));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ModuleState, SetModuleState_StoresAnyValueOfThatModuleAlone) {
    CModuleManager_RegisterModule(5, "Fan");
    CModuleManager_RegisterModule(6, "Pump");
    TraceRecorder::reset();
    for (const std::uint32_t state : {42u, 0u, 1u, 3u, 9u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(eAF_S_OK, CModuleManager_SetModuleState(5, state));
        EXPECT_EQ(state, stateOf(5));
        EXPECT_EQ(1u, stateOf(6));
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ModuleState, SetModuleState_OfAnUnknownModule_Fails) {
    CModuleManager_RegisterModule(5, "Fan");
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_SetModuleState(4000000000u, 42));
    EXPECT_EQ((Lines{{"CModuleManager_SetModuleState", "Module with id 4000000000 not found", 0x800C}}),
              TraceRecorder::lines());
    EXPECT_EQ(1u, stateOf(5));
}

TEST_F(ModuleState, QueryModuleState_OfAnUnknownModule_LeavesZero) {
    std::uint32_t state = 0xA5A5A5A5u;
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_QueryModuleState(4000000000u, &state));
    EXPECT_EQ(0u, state);
    EXPECT_EQ((Lines{{"CModuleManager_QueryModuleState", "Module with id 4000000000 not found", 0x800C}}),
              TraceRecorder::lines());
}

TEST_F(ModuleState, FollowsTheRunsOfAModulesCallbacks) {
    CModuleManager_RegisterGroup(0, "Start");
    CModuleManager_RegisterBatch(1, "Boot");
    addPhase(10, "Init", 0, 1);
    test::Callback &fan = addModule(5, "Fan");
    CModuleManager_RegisterModule(6, "Bystander");
    subscribe(5, fan);
    EXPECT_EQ(1u, stateOf(5));

    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(3u, stateOf(5));

    fan.answers(0x8001);
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(9u, stateOf(5));

    fan.answers(0x1001);
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(3u, stateOf(5));
    EXPECT_EQ(1u, stateOf(6));
}

TEST_F(ModuleState, DuringItsCallback_IsStillTheOneBefore) {
    CModuleManager_RegisterGroup(0, "Start");
    CModuleManager_RegisterBatch(1, "Boot");
    addPhase(10, "Init", 0, 1);
    std::uint32_t seen = 0;
    subscribe(5, addModule(5, "Fan").does([&] {
        seen = stateOf(5);
        CModuleManager_SetModuleState(5, 42);
    }));
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(1u, seen);
    EXPECT_EQ(3u, stateOf(5)) << "the outcome is written after the callback, over what it set";
}

TEST_F(ModuleState, VanishesWithTheModule) {
    CModuleManager_RegisterModule(5, "Fan");
    CModuleManager_SetModuleState(5, 42);
    CModuleManager_UnregisterModule(5);
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_SetModuleState(5, 1));
    CModuleManager_RegisterModule(5, "Fan");
    EXPECT_EQ(1u, stateOf(5));
}

TEST_F(ModuleState, Statistics_AreNotImplementedAndWriteNothing) {
    CModuleManager_RegisterModule(5, "Fan");
    TraceRecorder::reset();
    std::array<unsigned char, 64> statistics{};
    statistics.fill(0xA5);
    const auto untouched = statistics;
    for (void *out : {static_cast<void *>(statistics.data()), static_cast<void *>(nullptr)}) {
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetStatistics(out));
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetModuleStatisticsByIndex(0, out));
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetModuleStatisticsByIndex(0xFFFFFFFFu, out));
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetModuleStatisticsByName("Fan", out));
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetModuleStatisticsByName(nullptr, out));
    }
    EXPECT_EQ(untouched, statistics);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ModuleState, ResetStatistics_SucceedsAndChangesNothing) {
    CModuleManager_RegisterModule(5, "Fan");
    CModuleManager_SetModuleState(5, 42);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CModuleManager_ResetStatistics());
    EXPECT_EQ(42u, stateOf(5));
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

} // namespace
