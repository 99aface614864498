// Callbacks must not change the registry under a run. Where one does, which of the changed callbacks still run is
// not settled, but no memory is touched that is gone (the sanitizers watch) and the run ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ModuleManagerFixture.h"

namespace {

using test::TraceRecorder;
using testing::Contains;
using testing::Not;

/// Group 0: batch 1 with phases 10 and 11, batch 2 with phase 12. Modules 1 to 3 are called in each phase. The
/// names are too long to lie inside their records, so that a stale one is a read of freed memory.
class ChangesDuringARun : public test::ModuleManagerFixture, public testing::WithParamInterface<std::uint32_t> {
protected:
    ChangesDuringARun() {
        CModuleManager_RegisterGroup(0, "Start, with a name that needs memory");
        CModuleManager_RegisterBatch(1, "Boot, with a name that needs memory");
        CModuleManager_RegisterBatch(2, "Late, with a name that needs memory");
        addPhase(10, "Init, with a name that needs memory", 0, 1);
        addPhase(11, "Load, with a name that needs memory", 0, 1);
        addPhase(12, "Go, with a name that needs memory", 0, 2);
        for (const std::uint32_t id : {1u, 2u, 3u}) {
            test::Callback &callback = addModule(id, names[id]);
            subscribe(id, callback, NORMAL, 100, 1);
            subscribe(id, callback, NORMAL, 100, 2);
        }
    }

    test::Callback &first() { return callbacks[0]; }
    test::Callback &second() { return callbacks[1]; }

    /// Whatever happened, the registry is usable afterwards.
    void TearDown() override {
        for (test::Callback &callback : callbacks) {
            callback.does(nullptr).answers(0);
        }
        CModuleManager_RegisterGroup(0, "Start");
        EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterModule(77, "After"));
        EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
        EXPECT_EQ(eAF_S_OK, CModuleManager_UnregisterModule(77));
    }

    /// More than the modules' storage has room for, so that it moves.
    void registerManyModules() {
        for (std::uint32_t id = 1000; id < 3000 && !registeredMany; ++id) {
            CModuleManager_RegisterModule(id, "One of many, with a name that needs memory");
        }
        registeredMany = true;
    }

    static EAFResult run() { return CModuleManager_RunGroupWithReturnOption(0, 1, GetParam()); }

    bool registeredMany = false;
    const char *names[4] = {"", "First, with a name that needs memory", "Second, with a name that needs memory",
                            "Third, with a name that needs memory"};
};

INSTANTIATE_TEST_SUITE_P(WithEitherOption, ChangesDuringARun, testing::Values(0u, 1u));

TEST_P(ChangesDuringARun, ACallbackThatUnregistersItself_EndsItsOwnCallsAlone) {
    first().does([] { CModuleManager_UnregisterModule(1); });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_EQ(1,
              std::count_if(calls.begin(), calls.end(), [&](const auto &call) { return call.callback == names[1]; }));
    EXPECT_EQ(2u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_P(ChangesDuringARun, ACallbackThatUnregistersItselfAndFails_IsTracedAsAFailure) {
    first().answers(0x8000).does([] { CModuleManager_UnregisterModule(1); });
    EXPECT_EQ(eAF_E_FAILED, run());
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_SetModuleState(1, 3));
}

TEST_P(ChangesDuringARun, ACallbackThatUnregistersOthers_TheyAreNotCalledAnyMore) {
    first().does([] {
        CModuleManager_UnregisterModule(3);
        CModuleManager_UnregisterModule(2);
    });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_THAT(namesOfCalls(), Not(Contains(std::string(names[3]))));
    EXPECT_EQ(3u, stateOf(1));
}

TEST_P(ChangesDuringARun, ACallbackThatUnregistersItself_LeavesTheStatesOfTheOthers) {
    first().does([] { CModuleManager_UnregisterModule(1); });
    std::vector<std::uint32_t> states;
    second().does([&] { states.push_back(stateOf(2)); });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_EQ(1u, states.at(0)) << "the state of the callback that is gone went to another module";
}

TEST_P(ChangesDuringARun, ACallbackThatUnregistersAnEarlierModule_ItsOwnStateIsStillWritten) {
    std::vector<std::uint32_t> states;
    second().does([] { CModuleManager_UnregisterModule(1); });
    callbacks[2].does([&] { states.insert(states.end(), {stateOf(2), stateOf(3)}); });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_EQ(3u, states.at(0));
    EXPECT_EQ(1u, states.at(1)) << "not called yet";
}

TEST_P(ChangesDuringARun, ACallbackThatUnregistersAnEarlierModuleAndFails_IsTracedByItsOwnName) {
    second().answers(0x8000).does([] { CModuleManager_UnregisterModule(1); });
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, run());
    EXPECT_EQ("***Application error*** - Module: Second, with a name that needs memory, Phase: Init, with a name that "
              "needs memory, Priority: NORMAL, Error: 8000",
              TraceRecorder::failures().front().message);
    EXPECT_EQ(9u, stateOf(2));
}

TEST_P(ChangesDuringARun, ACallbackThatUnregistersEveryModule_LeavesNone) {
    second().does([] {
        for (const std::uint32_t id : {1u, 2u, 3u}) {
            CModuleManager_UnregisterModule(id);
        }
    });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_EQ(2u, calls.size());
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_P(ChangesDuringARun, ACallbackThatRegistersManyModules_ItsOwnStateIsStillWritten) {
    std::vector<std::uint32_t> states;
    second().does([&] { states.push_back(stateOf(1)); });
    first().does([this] { registerManyModules(); });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_EQ(3u, states.at(0));
    EXPECT_EQ(2003u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_P(ChangesDuringARun, ACallbackThatRegistersManyModulesAndFails_IsTracedByItsOwnName) {
    first().answers(0x8000).does([this] { registerManyModules(); });
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, run());
    EXPECT_EQ("***Application error*** - Module: First, with a name that needs memory, Phase: Init, with a name that "
              "needs memory, Priority: NORMAL, Error: 8000",
              TraceRecorder::failures().front().message);
    EXPECT_EQ(9u, stateOf(1));
}

TEST_P(ChangesDuringARun, ACallbackThatRegistersCallbacks_TheRunStaysWhole) {
    test::Callback &extra = callbacks.emplace_back("Extra", calls);
    bool done = false;
    first().does([&] {
        for (int i = 0; i < 100 && !done; ++i) {
            subscribe(2, extra, HIGHEST);
            subscribe(2, extra, LOWEST);
        }
        done = true;
    });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_EQ(3u, stateOf(1));
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_THAT(namesOfCalls(), Contains("Extra"));
}

TEST_P(ChangesDuringARun, ACallbackThatExtendsBatchesGroupsAndPhases_TheRunStaysWhole) {
    bool done = false;
    first().does([&] {
        for (std::uint32_t id = 1000; id < 1100 && !done; ++id) {
            CModuleManager_RegisterGroup(id, "Further, with a name that needs memory");
            CModuleManager_RegisterBatch(id, "Further, with a name that needs memory");
            CModuleManager_RegisterPhase(id, "Further, with a name that needs memory");
            CModuleManager_InsertPhaseIntoBatch(id, 0, 1);
            CModuleManager_InsertPhaseIntoBatch(id, 0, id);
        }
        done = true;
    });
    EXPECT_EQ(eAF_S_OK, run());
    EXPECT_EQ(3u, stateOf(3));
}

TEST_P(ChangesDuringARun, ACallbackThatUnInitializes_EndsTheRunWithAnEmptyRegistry) {
    second().does([] { CModuleManager_UnInitialize(); });
    run();
    EXPECT_EQ(2u, calls.size());
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
    const char *name = nullptr;
    EXPECT_EQ(eAF_E_UNKNOWN_PHASE, CModuleManager_GetPhaseName(10, &name));
    EXPECT_EQ(0u, TraceRecorder::openRecords());
}

TEST_P(ChangesDuringARun, ACallbackThatUnInitializesAndFails_EndsTheRun) {
    second().answers(0x8000).does([] { CModuleManager_UnInitialize(); });
    run();
    EXPECT_EQ(2u, calls.size());
}

TEST_P(ChangesDuringARun, ACallbackThatUnInitializesAndBuildsTheSameAnew_EndsTheRun) {
    second().does([&] {
        CModuleManager_UnInitialize();
        CModuleManager_RegisterGroup(0, "Anew");
        CModuleManager_RegisterBatch(1, "Anew");
        addPhase(10, "Anew", 0, 1);
        CModuleManager_RegisterModule(2, "Anew");
        // As many as there were, and in passes to come: a run that went on would call them.
        for (int i = 0; i < 4; ++i) {
            subscribe(2, second());
            subscribe(2, second(), LOWEST);
        }
    });
    run();
    EXPECT_EQ(2u, calls.size());
    second().does(nullptr);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(10u, calls.size());
}

TEST_P(ChangesDuringARun, ACallbackOfANestedRunThatUnInitializes_EndsBothRuns) {
    bool nested = false;
    second().does([&] {
        if (nested) {
            CModuleManager_UnInitialize();
            return;
        }
        nested = true;
        CModuleManager_RunGroup(0, 2);
    });
    run();
    EXPECT_EQ(4u, calls.size());
    EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
}

} // namespace
