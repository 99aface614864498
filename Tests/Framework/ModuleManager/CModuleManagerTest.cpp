#include "CModuleManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <type_traits>
#include <vector>

#include "ModuleInterface.h"
#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;

const char *const runner = "CModuleManager_RunGroupWithReturnOption";

/// Notes the phases and priorities that it is activated for.
class Listener : public ModuleInterface {
public:
    explicit Listener(unsigned int inBatch = 1, const std::vector<unsigned int> &filter = {})
        : ModuleInterface(deferred_registration_tag{}, 5, "Fan", 2, inBatch, filter.data(),
                          static_cast<unsigned int>(filter.size())) {}

    EAFResult onPhaseActivation(unsigned int phaseId, ECallbackPriority priority) override {
        phases.push_back(phaseId);
        priorities.push_back(priority);
        return eAF_S_OK;
    }

    std::vector<unsigned int> phases;
    std::vector<std::uint32_t> priorities;
};

/// Group 0 runs phases 10 and 11 of batch 1 and phase 12 of batch 2.
class CModuleManagerTest : public test::ModuleManagerFixture {
protected:
    CModuleManagerTest() {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterBatch(1, "Boot");
        CModuleManager_RegisterBatch(2, "Late");
        addPhase(10, "Init", 0, 1);
        addPhase(11, "Load", 0, 1);
        addPhase(12, "Go", 0, 2);
        TraceRecorder::reset();
    }

    CModuleManager &manager = CModuleManager::GetInstance();
};

TEST_F(CModuleManagerTest, GetInstance_GivesOneObjectToEveryThread) {
    std::array<CModuleManager *, 8> seen{};
    std::vector<std::thread> threads;
    threads.reserve(seen.size());
    for (CModuleManager *&place : seen) {
        threads.emplace_back([&place] { place = &CModuleManager::GetInstance(); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, Each(&CModuleManager::GetInstance()));
}

TEST_F(CModuleManagerTest, IsEmptyAndTheOnlyOneOfItsKind) {
    EXPECT_TRUE(std::is_empty_v<CModuleManager>);
    EXPECT_FALSE(std::is_default_constructible_v<CModuleManager>);
    EXPECT_FALSE(std::is_copy_constructible_v<CModuleManager>);
    EXPECT_FALSE(std::is_copy_assignable_v<CModuleManager>);
}

TEST_F(CModuleManagerTest, RegisterModule_RegistersTheModuleThenItsCallback) {
    Listener fan(1, {11});
    EXPECT_EQ(eAF_S_OK, manager.RegisterModule(&fan));
    EXPECT_EQ((Lines{{"CModuleManager_RegisterModule", "  Register module Fan, id 5", 0x800}}), TraceRecorder::lines());
    EXPECT_TRUE(TraceRecorder::domainRecords().empty());

    TraceRecorder::reset();
    CModuleManager_RunGroup(0, 2);
    EXPECT_THAT(fan.phases, ElementsAre(11));
    EXPECT_THAT(fan.priorities, ElementsAre(3));
    EXPECT_THAT(TraceRecorder::lines(),
                Contains(test::Line{runner, "    with callback: FanOnPhaseActivation and Priority: NORMAL", 0x800}));
}

TEST_F(CModuleManagerTest, RegisterModule_HandsOverTheRadioChannel) {
    Listener fan;
    manager.RegisterModule(&fan);
    CModuleManager_RunGroup(0, 1);
    EXPECT_TRUE(fan.phases.empty());
    CModuleManager_RunGroup(0, 2);
    EXPECT_EQ(2u, fan.phases.size());
}

TEST_F(CModuleManagerTest, RegisterModule_WithAnEmptyFilter_ServesTheWholeBatch) {
    Listener fan;
    EXPECT_EQ(eAF_S_OK, manager.RegisterModule(&fan));
    CModuleManager_RunGroup(0, 2);
    EXPECT_THAT(fan.phases, ElementsAre(10, 11));
}

TEST_F(CModuleManagerTest, RegisterModule_OfNull_IsRefused) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, manager.RegisterModule(nullptr));
    EXPECT_EQ((Lines{{"RegisterModule", "Try to register null pointer", 0x8006}}), TraceRecorder::lines());
    EXPECT_EQ("Framework/ApplicationFramework/private/CModuleManager.cpp", TraceRecorder::records().front().file);
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(CModuleManagerTest, RegisterModule_OfATakenId_GivesTheCallbacksResultForTheWarning) {
    CModuleManager_RegisterModule(5, "Somebody");
    Listener fan;
    EXPECT_EQ(eAF_S_OK, manager.RegisterModule(&fan));
    CModuleManager_RunGroup(0, 2);
    EXPECT_EQ(2u, fan.phases.size());
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(CModuleManagerTest, RegisterModule_Twice_RegistersTwoCallbacks) {
    Listener fan;
    manager.RegisterModule(&fan);
    EXPECT_EQ(eAF_S_OK, manager.RegisterModule(&fan)) << "only the registrator remembers";
    CModuleManager_RunGroup(0, 2);
    EXPECT_THAT(fan.phases, ElementsAre(10, 10, 11, 11));
}

TEST_F(CModuleManagerTest, RegisterModule_WhoseCallbackIsRefused_GivesThatCodeAndLeavesTheModule) {
    Listener fan(99);
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH, manager.RegisterModule(&fan));
    EXPECT_EQ((Lines{{"CModuleManager_RegisterModule", "  Register module Fan, id 5", 0x800},
                     {"CModuleManager_RegisterCallback", "Could not get batch with id = 99", 0x8009}}),
              TraceRecorder::lines());
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(CModuleManagerTest, UnRegisterModule_UnregistersByItsId) {
    Listener fan;
    manager.RegisterModule(&fan);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, manager.UnRegisterModule(&fan));
    EXPECT_EQ((Lines{{"CModuleManager_UnregisterModule", "  Unregistered module: Fan", 0x800}}),
              TraceRecorder::lines());
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, manager.UnRegisterModule(&fan));
}

TEST_F(CModuleManagerTest, UnRegisterModule_OfNull_IsRefusedUntraced) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, manager.UnRegisterModule(nullptr));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(CModuleManagerTest, RegisterCallbackVariant_TakesPriorityBatchAndFilterFromItsArguments) {
    Listener fan(1, {10});
    manager.RegisterModule(&fan);
    unsigned int filter[] = {12, 99};
    EXPECT_EQ(eAF_S_OK, manager.RegisterCallbackVariant(&fan, LOWER_THAN_NORMAL, 2, filter, 2));
    TraceRecorder::reset();

    CModuleManager_RunGroup(0, 2);

    EXPECT_THAT(fan.phases, ElementsAre(10, 12));
    EXPECT_THAT(fan.priorities, ElementsAre(3, 4));
    EXPECT_THAT(
        TraceRecorder::lines(),
        Contains(test::Line{runner, "    with callback: FanOnPhaseActivation and Priority: LOWER_THAN_NORMAL", 0x800}));
}

TEST_F(CModuleManagerTest, RegisterCallbackVariant_KeepsTheModulesRadioChannel) {
    Listener fan(1, {10});
    manager.RegisterModule(&fan);
    manager.RegisterCallbackVariant(&fan, HIGH, 2, nullptr, 0);
    CModuleManager_RunGroup(0, 3);
    EXPECT_TRUE(fan.phases.empty());
}

TEST_F(CModuleManagerTest, RegisterCallbackVariant_OfNull_IsRefusedUnderItsOwnName) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, manager.RegisterCallbackVariant(nullptr, HIGH, 1, nullptr, 0));
    EXPECT_EQ((Lines{{"RegisterCallbackVariant", "Try to register null pointer", 0x8006}}), TraceRecorder::lines());
}

TEST_F(CModuleManagerTest, RegisterCallbackVariant_DoesNotRegisterTheModule) {
    Listener fan;
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, manager.RegisterCallbackVariant(&fan, HIGH, 1, nullptr, 0));
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(CModuleManagerTest, RegisterCallbackVariant_PassesTheFlatLayersRefusalsOn) {
    Listener fan;
    manager.RegisterModule(&fan);
    unsigned int filter[] = {10};
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH, manager.RegisterCallbackVariant(&fan, HIGH, 99, nullptr, 0));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, manager.RegisterCallbackVariant(&fan, HIGH, 1, filter, 0));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, manager.RegisterCallbackVariant(&fan, HIGH, 1, nullptr, 1));
}

} // namespace
