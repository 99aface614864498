#include "CModuleManagerRegistrator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "ModuleInterface.h"
#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;
using testing::IsEmpty;

const std::string registerText = "CModuleManagerRegistrator::Register() AfResult: ";
const std::string unregisterText = "~CModuleManagerRegistrator() AfResult: ";

/// Batch 1 exists, batch 99 does not: a module for it is refused when its callback comes to be registered.
class CModuleManagerRegistratorTest : public test::ModuleManagerFixture {
protected:
    CModuleManagerRegistratorTest() {
        CModuleManager_RegisterBatch(1, "Boot");
        TraceRecorder::reset();
    }

    /// The text of the one message logged since reset, checked for domain, level and method.
    static std::string logged(const char *method) {
        const auto records = TraceRecorder::domainRecords();
        TraceRecorder::reset();
        if (records.size() != 1) {
            return std::to_string(records.size()) + " messages";
        }
        EXPECT_EQ("ZEL.AF.MOD", records.front().domain);
        EXPECT_EQ(5, records.front().level);
        EXPECT_EQ(method, records.front().function);
        EXPECT_EQ("Framework/ApplicationFramework/private/ModuleInterface.cpp", records.front().file);
        return records.front().text;
    }

    static bool isRegistered(std::uint32_t moduleId) {
        std::uint32_t state = 0;
        const bool found = CModuleManager_QueryModuleState(moduleId, &state) == eAF_S_OK;
        TraceRecorder::reset();
        return found;
    }

    ModuleInterface fan{deferred_registration_tag{}, 5, "Fan", 100, 1, nullptr, 0};
    ModuleInterface pump{deferred_registration_tag{}, 6, "Pump", 100, 1, nullptr, 0};
    ModuleInterface refused{deferred_registration_tag{}, 7, "Refused", 100, 99, nullptr, 0};
};

TEST_F(CModuleManagerRegistratorTest, TheRegisteringConstructor_Registers) {
    const CModuleManagerRegistrator registrator(fan);
    EXPECT_EQ(registerText + "eAF_S_OK", logged("Register"));
    EXPECT_TRUE(isRegistered(5));
}

TEST_F(CModuleManagerRegistratorTest, TheDeferredConstructor_DoesNothingElse) {
    const CModuleManagerRegistrator registrator(fan, deferred_registration_tag{});
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
    EXPECT_FALSE(isRegistered(5));
}

TEST_F(CModuleManagerRegistratorTest, Unregistered_RegisterThatSucceeds_BecomesRegistered) {
    CModuleManagerRegistrator registrator(fan, deferred_registration_tag{});
    EXPECT_EQ(eAF_S_OK, registrator.Register());
    EXPECT_EQ(registerText + "eAF_S_OK", logged("Register"));
    EXPECT_TRUE(isRegistered(5));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, registrator.Register());
}

TEST_F(CModuleManagerRegistratorTest, Unregistered_RegisterOfAnIdThatIsTaken_BecomesRegistered) {
    CModuleManager_RegisterModule(5, "Somebody");
    TraceRecorder::reset();
    CModuleManagerRegistrator registrator(fan, deferred_registration_tag{});
    EXPECT_EQ(eAF_S_OK, registrator.Register()) << "the callback's result stands for the warning";
    EXPECT_EQ((Lines{{"CModuleManager_RegisterModule", "Module with id:5 name:Fan already registered", 0x1001}}),
              TraceRecorder::lines());
    EXPECT_EQ(registerText + "eAF_S_OK", logged("Register"));
    EXPECT_EQ(eAF_S_OK, registrator.Unregister());
}

TEST_F(CModuleManagerRegistratorTest, Unregistered_RegisterThatFails_StaysUnregistered) {
    CModuleManagerRegistrator registrator(refused, deferred_registration_tag{});
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH, registrator.Register());
    EXPECT_EQ(registerText + "eAF_E_UNKNOWN_BATCH", logged("Register"));
    EXPECT_EQ(eAF_E_NOT_REGISTERED, registrator.Unregister());
    EXPECT_TRUE(isRegistered(7)) << "the module was registered before its callback was refused";
}

TEST_F(CModuleManagerRegistratorTest, Unregistered_RegisterAfterAFailure_TriesAgain) {
    CModuleManagerRegistrator registrator(refused, deferred_registration_tag{});
    registrator.Register();
    CModuleManager_RegisterBatch(99, "Late");
    EXPECT_EQ(eAF_S_OK, registrator.Register());
    EXPECT_EQ(eAF_S_OK, registrator.Unregister());
    EXPECT_FALSE(isRegistered(7));
}

TEST_F(CModuleManagerRegistratorTest, Registered_Register_WarnsAndDoesNotCallTheManager) {
    CModuleManagerRegistrator registrator(fan);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, registrator.Register());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_EQ(registerText + "eAF_W_ALREADY_REGISTERED", logged("Register"));
}

TEST_F(CModuleManagerRegistratorTest, Registered_UnregisterThatSucceeds_BecomesUnregistered) {
    CModuleManagerRegistrator registrator(fan);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, registrator.Unregister());
    EXPECT_EQ(unregisterText + "eAF_S_OK", logged("Unregister"));
    EXPECT_FALSE(isRegistered(5));
    EXPECT_EQ(eAF_E_NOT_REGISTERED, registrator.Unregister());
}

TEST_F(CModuleManagerRegistratorTest, Registered_UnregisterThatFails_StaysRegistered) {
    CModuleManagerRegistrator registrator(fan);
    CModuleManager_UnregisterModule(5);
    TraceRecorder::reset();

    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, registrator.Unregister());
    EXPECT_EQ((Lines{{"CModuleManager_UnregisterModule", "Attempt to unregister an unknown module", 0x800C}}),
              TraceRecorder::lines());
    EXPECT_EQ(unregisterText + "eAF_E_UNKNOWN_MODULE", logged("Unregister"));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, registrator.Register()) << "still counted as registered";

    CModuleManager_RegisterModule(5, "Back again");
    EXPECT_EQ(eAF_S_OK, registrator.Unregister());
}

TEST_F(CModuleManagerRegistratorTest, Unregistered_Unregister_FailsAndDoesNotCallTheManager) {
    CModuleManager_RegisterModule(5, "Somebody");
    TraceRecorder::reset();
    CModuleManagerRegistrator registrator(fan, deferred_registration_tag{});
    EXPECT_EQ(eAF_E_NOT_REGISTERED, registrator.Unregister());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_EQ(unregisterText + "eAF_E_NOT_REGISTERED", logged("Unregister"));
    EXPECT_TRUE(isRegistered(5));
}

TEST_F(CModuleManagerRegistratorTest, Destruction_UnregistersAndDropsTheResult) {
    std::optional<CModuleManagerRegistrator> registrator(std::in_place, fan);
    TraceRecorder::reset();
    registrator.reset();
    EXPECT_EQ(unregisterText + "eAF_S_OK", logged("Unregister"));
    EXPECT_FALSE(isRegistered(5));

    registrator.emplace(fan);
    CModuleManager_UnregisterModule(5);
    TraceRecorder::reset();
    registrator.reset();
    EXPECT_EQ(unregisterText + "eAF_E_UNKNOWN_MODULE", logged("Unregister"));

    registrator.emplace(fan, deferred_registration_tag{});
    registrator.reset();
    EXPECT_EQ(unregisterText + "eAF_E_NOT_REGISTERED", logged("Unregister"));
}

TEST_F(CModuleManagerRegistratorTest, WithLevel5Disabled_TheResultsAreTheSameAndNothingIsLogged) {
    TraceRecorder::reset(TraceRecorder::everything, 4);
    CModuleManagerRegistrator registrator(fan, deferred_registration_tag{});
    EXPECT_EQ(eAF_S_OK, registrator.Register());
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, registrator.Register());
    EXPECT_EQ(eAF_S_OK, registrator.Unregister());
    EXPECT_EQ(eAF_E_NOT_REGISTERED, registrator.Unregister());
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
}

TEST_F(CModuleManagerRegistratorTest, Moving_HandsTheRegistrationOver) {
    std::optional<CModuleManagerRegistrator> source(std::in_place, fan);
    TraceRecorder::reset();
    CModuleManagerRegistrator target(std::move(*source));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());

    source.reset();
    EXPECT_EQ(unregisterText + "eAF_E_NOT_REGISTERED", logged("Unregister"));
    EXPECT_TRUE(isRegistered(5));
    EXPECT_EQ(eAF_S_OK, target.Unregister());
    EXPECT_FALSE(isRegistered(5));
}

TEST_F(CModuleManagerRegistratorTest, AMovedFromOne_HoldsNoModule) {
    CModuleManagerRegistrator source(fan);
    const CModuleManagerRegistrator target(std::move(source));
    TraceRecorder::reset();
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what is left behind is described
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, source.Register());
    EXPECT_EQ((Lines{{"RegisterModule", "Try to register null pointer", 0x8006}}), TraceRecorder::lines());
    EXPECT_EQ(registerText + "eAF_E_INVALID_ARGUMENT", logged("Register"));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, source.RegisterCallbackVariant(LOW, 1, nullptr, 0));
    EXPECT_EQ((Lines{{"RegisterCallbackVariant", "Try to register null pointer", 0x8006}}), TraceRecorder::lines());
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_NOT_REGISTERED, source.Unregister());
    EXPECT_EQ(unregisterText + "eAF_E_NOT_REGISTERED", logged("Unregister"));
}

TEST_F(CModuleManagerRegistratorTest, MoveAssignment_Swaps_SoTheSourceUndoesWhatTheTargetHeld) {
    std::optional<CModuleManagerRegistrator> b(std::in_place, pump);
    CModuleManagerRegistrator a(fan);
    TraceRecorder::reset();

    EXPECT_EQ(&a, &(a = std::move(*b)));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());

    b.reset();
    EXPECT_EQ((Lines{{"CModuleManager_UnregisterModule", "  Unregistered module: Fan", 0x800}}),
              TraceRecorder::lines());
    EXPECT_FALSE(isRegistered(5));
    EXPECT_TRUE(isRegistered(6));
    EXPECT_EQ(eAF_S_OK, a.Unregister());
    EXPECT_FALSE(isRegistered(6));
}

TEST_F(CModuleManagerRegistratorTest, MoveAssignment_SwapsTheFlagWithTheModule) {
    CModuleManagerRegistrator a(fan, deferred_registration_tag{});
    CModuleManagerRegistrator b(pump);
    a = std::move(b);
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, a.Register());
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): the swap is described, b holds what a held
    EXPECT_EQ(eAF_E_NOT_REGISTERED, b.Unregister());
    EXPECT_EQ(eAF_S_OK, b.Register());
    EXPECT_TRUE(isRegistered(5));
}

TEST_F(CModuleManagerRegistratorTest, MoveAssignment_ToItself_ChangesNothing) {
    CModuleManagerRegistrator registrator(fan);
    CModuleManagerRegistrator &same = registrator;
    registrator = std::move(same);
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, registrator.Register());
    EXPECT_EQ(eAF_S_OK, registrator.Unregister());
}

TEST_F(CModuleManagerRegistratorTest, CanBeMovedButNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<CModuleManagerRegistrator>);
    EXPECT_FALSE(std::is_copy_assignable_v<CModuleManagerRegistrator>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<CModuleManagerRegistrator>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<CModuleManagerRegistrator>);
    EXPECT_TRUE(std::is_nothrow_destructible_v<CModuleManagerRegistrator>);
    EXPECT_TRUE(std::is_empty_v<deferred_registration_tag>);
}

TEST_F(CModuleManagerRegistratorTest, RegisterCallbackVariant_LogsNothingAndLeavesTheFlag) {
    CModuleManager_RegisterModule(5, "Somebody");
    TraceRecorder::reset();
    CModuleManagerRegistrator registrator(fan, deferred_registration_tag{});
    EXPECT_EQ(eAF_S_OK, registrator.RegisterCallbackVariant(HIGH, 1, nullptr, 0)) << "the flag is not asked";
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
    EXPECT_EQ(eAF_E_NOT_REGISTERED, registrator.Unregister()) << "and not changed";
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH, registrator.RegisterCallbackVariant(HIGH, 99, nullptr, 0));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, registrator.RegisterCallbackVariant(HIGH, 1, nullptr, 3));
}

} // namespace
