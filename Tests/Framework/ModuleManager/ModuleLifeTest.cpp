// Modules as objects in the registry: registered for their lifetime, called by the runner.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ModuleInterface.h"
#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;
using testing::Contains;
using testing::IsEmpty;

const char *const runner = "CModuleManager_RunGroupWithReturnOption";
constexpr unsigned int startAndStop[] = {13, 16};
constexpr unsigned int startOnly[] = {13};

/// Overrides onPhaseStart alone.
class Starter : public ModuleInterface {
public:
    using ModuleInterface::ModuleInterface;

    EAFResult onPhaseStart() override {
        ++starts;
        return answer;
    }

    int starts = 0;
    EAFResult answer = eAF_S_OK;
};

/// Registers when it is complete.
class SelfRegistering : public ModuleInterface {
public:
    SelfRegistering() : ModuleInterface(deferred_registration_tag{}, 5, "Self", 100, 1, startOnly, 1) {
        result = RegisterModule();
    }

    EAFResult onPhaseStart() override { return eAF_S_TRUE; }

    EAFResult result = eAF_E_FAILED;
};

/// Group 0 runs phase 13, group 1 runs phase 16, both through batch 1.
class ModuleLife : public test::ModuleManagerFixture {
protected:
    ModuleLife() {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterGroup(1, "Stop");
        CModuleManager_RegisterBatch(1, "Boot");
        addPhase(13, "Start", 0, 1);
        addPhase(16, "Stop", 1, 1);
        TraceRecorder::reset();
    }
};

TEST_F(ModuleLife, Construction_RegistersTheModuleAndItsCallback) {
    const Starter fan(5, "Fan", 2, 1, startAndStop, 2);

    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
    EXPECT_EQ((Lines{{"CModuleManager_RegisterModule", "  Register module Fan, id 5", 0x800}}), TraceRecorder::lines());
    const auto records = TraceRecorder::domainRecords();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("CModuleManagerRegistrator::Register() AfResult: eAF_S_OK", records.front().text);
}

TEST_F(ModuleLife, ARun_CallsTheHandlerUnderTheNameAndPriorityOfTheCallback) {
    const Starter fan(5, "Fan", 2, 1, startAndStop, 2);
    TraceRecorder::reset();

    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 2));

    EXPECT_EQ(1, fan.starts);
    EXPECT_THAT(TraceRecorder::lines(),
                Contains(test::Line{runner, "    with callback: FanOnPhaseActivation and Priority: NORMAL", 0x800}));
    EXPECT_EQ(3u, stateOf(5));
}

TEST_F(ModuleLife, ARun_ForAnotherChannelLeavesTheModuleOut) {
    const Starter fan(5, "Fan", 2, 1, startAndStop, 2);
    CModuleManager_RunGroup(0, 3);
    EXPECT_EQ(0, fan.starts);
    CModuleManager_RunGroup(0, 100);
    EXPECT_EQ(1, fan.starts);
}

TEST_F(ModuleLife, AListedPhaseWithoutAHandler_FailsTheModule) {
    const Starter fan(5, "Fan", 2, 1, startAndStop, 2);
    TraceRecorder::reset();

    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(1, 2));

    EXPECT_EQ(9u, stateOf(5));
    ASSERT_EQ(2u, TraceRecorder::failures().size());
    EXPECT_EQ("***Application error*** - Module: Fan, Phase: Stop, Priority: NORMAL, Error: 8001",
              TraceRecorder::failures().front().message);
    ASSERT_EQ(1u, TraceRecorder::domainRecords().size());
    EXPECT_EQ("onPhaseStop", TraceRecorder::domainRecords().front().function);
}

TEST_F(ModuleLife, APhaseThatIsNotListed_DoesNotReachTheModule) {
    const Starter fan(5, "Fan", 2, 1, startOnly, 1);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(1, 2));
    EXPECT_EQ(1u, stateOf(5));
}

TEST_F(ModuleLife, AnEmptyFilter_SubscribesToEveryPhaseOfTheBatch) {
    const Starter fan(5, "Fan", 100, 1, nullptr, 0);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(1, 1));
}

TEST_F(ModuleLife, AHandlersFailure_FailsTheRunAndItsSuccessRepairsTheState) {
    Starter fan(5, "Fan", 100, 1, startOnly, 1);
    fan.answer = eAF_E_MUTEX_ERROR;
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(9u, stateOf(5));
    fan.answer = eAF_W_NO_MORE_DATA;
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(3u, stateOf(5));
}

TEST_F(ModuleLife, Destruction_UnregistersTheModule) {
    auto fan = std::make_unique<Starter>(5, "Fan", 100, 1, startOnly, 1);
    TraceRecorder::reset();

    fan.reset();

    EXPECT_EQ((Lines{{"CModuleManager_UnregisterModule", "  Unregistered module: Fan", 0x800}}),
              TraceRecorder::lines());
    ASSERT_EQ(1u, TraceRecorder::domainRecords().size());
    EXPECT_EQ("~CModuleManagerRegistrator() AfResult: eAF_S_OK", TraceRecorder::domainRecords().front().text);
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1)) << "the registry calls nothing that is gone";
}

TEST_F(ModuleLife, Destruction_ThroughTheBase_ReachesTheDerivedClass) {
    std::unique_ptr<ModuleInterface> fan = std::make_unique<Starter>(5, "Fan", 100, 1, startOnly, 1);
    fan.reset();
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(ModuleLife, ADeferredModule_ThatNeverRegisters_MakesNoFlatCall) {
    {
        const Starter fan(deferred_registration_tag{}, 5, "Fan", 100, 1, startOnly, 1);
        EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
        EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    ASSERT_EQ(1u, TraceRecorder::domainRecords().size());
    EXPECT_EQ("~CModuleManagerRegistrator() AfResult: eAF_E_NOT_REGISTERED",
              TraceRecorder::domainRecords().front().text);
}

TEST_F(ModuleLife, ADeferredModule_MayRegisterAtTheEndOfItsOwnConstructor) {
    const SelfRegistering module;
    EXPECT_EQ(eAF_S_OK, module.result);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(3u, stateOf(5));
}

TEST_F(ModuleLife, RegisterModule_Twice_WarnsWithoutAFlatCall) {
    Starter fan(5, "Fan", 100, 1, startOnly, 1);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, fan.RegisterModule());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(1, fan.starts);
}

TEST_F(ModuleLife, UnregisterAndRegister_TurnTheModuleOffAndOn) {
    Starter fan(5, "Fan", 100, 1, startOnly, 1);
    EXPECT_EQ(eAF_S_OK, fan.UnregisterModule());
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(0, fan.starts);
    EXPECT_EQ(eAF_E_NOT_REGISTERED, fan.UnregisterModule());
    EXPECT_EQ(eAF_S_OK, fan.RegisterModule());
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(1, fan.starts);
}

TEST_F(ModuleLife, RegisterCallbackVariant_AddsACallAtItsOwnPriorityBatchAndPhases) {
    CModuleManager_RegisterBatch(2, "Late");
    addPhase(19, "Frame", 0, 2);
    CModuleManager_InsertPhaseIntoBatch(13, 0, 2);
    Starter fan(5, "Fan", 100, 1, startAndStop, 2);
    unsigned int filter[] = {13};
    EXPECT_EQ(eAF_S_OK, fan.RegisterCallbackVariant(HIGHEST, 2, filter, 1));
    TraceRecorder::reset();

    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));

    EXPECT_EQ(4, fan.starts) << "two descriptors in phase 13, which is in both batches";
    const Lines phase{{runner, "PHASE: Start", 0x800},
                      {runner, "  Call module: Fan", 0x800},
                      {runner, "    with callback: FanOnPhaseActivation and Priority: HIGHEST", 0x800},
                      {runner, "  Call module: Fan", 0x800},
                      {runner, "    with callback: FanOnPhaseActivation and Priority: NORMAL", 0x800}};
    Lines expected{{runner, "GROUP: Start", 0x800}, {runner, "  Running batch Boot", 0x800}};
    expected.insert(expected.end(), phase.begin(), phase.end());
    expected.push_back({runner, "  Running batch Late", 0x800});
    expected.push_back({runner, "PHASE: Frame", 0x800});
    expected.insert(expected.end(), phase.begin(), phase.end());
    EXPECT_EQ(expected, TraceRecorder::lines());
}

TEST_F(ModuleLife, RegisterCallbackVariant_NeedsTheModuleToBeRegistered) {
    Starter fan(deferred_registration_tag{}, 5, "Fan", 100, 1, startOnly, 1);
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, fan.RegisterCallbackVariant(HIGH, 1, nullptr, 0));
    EXPECT_EQ((Lines{{"CModuleManager_RegisterCallback", "Could not get module with id = 5", 0x800C}}),
              TraceRecorder::lines());
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
}

TEST_F(ModuleLife, SeveralModules_ShareAPhase) {
    const Starter fan(5, "Fan", 100, 1, startOnly, 1);
    const Starter pump(6, "Pump", 100, 1, startOnly, 1);
    CModuleManager_RunGroup(0, 1);
    EXPECT_EQ(1, fan.starts);
    EXPECT_EQ(1, pump.starts);
}

} // namespace
