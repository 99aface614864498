// Initialize, Start, Stop and UnInitialize, and what each of them leaves alone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ModuleManagerFixture.h"

namespace {

using test::Calls;
using test::Lines;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

std::uint32_t coldResetAnswers42(SResetProvider *) {
    return 42;
}

class RegistryLifecycle : public test::ModuleManagerFixture {
protected:
    RegistryLifecycle() {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterBatch(1, "Boot");
        addPhase(10, "Init", 0, 1);
        subscribe(5, addModule(5, "Fan"));
        CModuleManager_RegisterResetProvider(&provider);
        TraceRecorder::reset();
    }

    SResetProvider provider{nullptr, nullptr, &coldResetAnswers42};
};

TEST_F(RegistryLifecycle, Initialize_ForgetsTheResetProvider) {
    EXPECT_EQ(42u, CModuleManager_IsColdReset());
    EXPECT_EQ(eAF_S_OK, CModuleManager_Initialize());
    EXPECT_EQ(0u, CModuleManager_IsColdReset());
    EXPECT_EQ(eAF_E_NOT_REGISTERED, CModuleManager_PerformSystemReset(1, 2, 3));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(RegistryLifecycle, Initialize_KeepsEveryRecord) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_Initialize());
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ((Calls{{"Fan", 10, NORMAL}}), calls);
}

TEST_F(RegistryLifecycle, StartAndStop_DoNothing) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_Start());
    EXPECT_EQ(eAF_S_OK, CModuleManager_Stop());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(42u, CModuleManager_IsColdReset());
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_THAT(namesOfCalls(), ElementsAre("Fan"));
}

TEST_F(RegistryLifecycle, UnInitialize_EmptiesEveryListAndTracesNothing) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_UnInitialize());

    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
    const char *name = nullptr;
    EXPECT_EQ(eAF_E_UNKNOWN_PHASE, CModuleManager_GetPhaseName(10, &name));
    std::uint32_t state = 1;
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_QueryModuleState(5, &state));
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_InsertPhaseIntoBatch(10, 0, 1));
    EXPECT_EQ((Lines{{"CModuleManager_RunGroupWithReturnOption", "Could not get group element with id 0", 0x8000},
                     {"CModuleManager_InsertPhaseIntoBatch", "Could not get batch with id = 1", 0x8000}}),
              TraceRecorder::lines());
}

TEST_F(RegistryLifecycle, UnInitialize_LeavesNoEntriesAndNoCallbacksForTheSameIdsRegisteredAnew) {
    CModuleManager_UnInitialize();
    CModuleManager_RegisterModule(5, "Fan");
    CModuleManager_RegisterGroup(0, "Start");
    CModuleManager_RegisterBatch(1, "Boot");
    CModuleManager_RegisterPhase(10, "Init");
    TraceRecorder::reset();
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(2u, TraceRecorder::lines().size()) << "GROUP and Running batch, no PHASE";

    CModuleManager_InsertPhaseIntoBatch(10, 0, 1);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(RegistryLifecycle, UnInitialize_KeepsTheResetProvider) {
    CModuleManager_UnInitialize();
    EXPECT_EQ(42u, CModuleManager_IsColdReset());
}

TEST_F(RegistryLifecycle, UnInitialize_KeepsTheModulesOwnCallbackRecords) {
    CModuleManager_UnInitialize();
    SModuleCallback &record = callbacks.front().record;
    EXPECT_EQ(eAF_S_OK, record.function(record.context, 10, NORMAL));
}

TEST_F(RegistryLifecycle, UnInitialize_Twice_Succeeds) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_UnInitialize());
    EXPECT_EQ(eAF_S_OK, CModuleManager_UnInitialize());
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
}

} // namespace
