// Memory that runs out: every registration either happens or leaves everything as it was, and a run needs none.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "AllocationProbe.h"
#include "CModuleManager.h"
#include "CModuleManager_c.h"
#include "ModuleInterface.h"
#include "QuietTraces.h"

namespace {

using test::AllocationProbe;
using test::QuietTraces;

// Too long to lie inside a std::string, so that each copy is an allocation.
const char *const longName = "a name that is too long to lie inside of its record";
const char *const otherName = "another name that is too long to lie inside of its record";

unsigned callsMade = 0;

EAFResult succeed(void *, std::uint32_t, ECallbackPriority) {
    ++callsMade;
    return eAF_S_OK;
}
EAFResult fail(void *, std::uint32_t, ECallbackPriority) {
    ++callsMade;
    return eAF_E_MUTEX_ERROR;
}

SModuleCallback good{nullptr, &succeed};
SModuleCallback bad{nullptr, &fail};

void forgetAll() {
    CModuleManager_UnInitialize();
    CModuleManager_Initialize();
}

/// Group 0 runs phases 10 to 14 through batch 1, module 5 is called in each of them.
void buildRegistry() {
    forgetAll();
    CModuleManager_RegisterModule(5, longName);
    CModuleManager_RegisterGroup(0, longName);
    CModuleManager_RegisterBatch(1, longName);
    for (std::uint32_t phase = 10; phase < 15; ++phase) {
        CModuleManager_RegisterPhase(phase, longName);
        CModuleManager_InsertPhaseIntoBatch(phase, 0, 1);
    }
    CModuleManager_RegisterCallback(5, longName, 100, &good, NORMAL, 1, nullptr, 0);
}

/// All that can be read of the registry: module count and states, phase names, and the traces of a run of each
/// group, which name every batch, phase, module and callback in their order.
std::string readBack() {
    QuietTraces::reset();
    std::string all = "modules " + std::to_string(CModuleManager_GetNumberOfRegisteredModules()) + "\n";
    std::vector<std::uint32_t> states;
    for (std::uint32_t module = 0; module < 20; ++module) {
        std::uint32_t state = 0;
        all += CModuleManager_QueryModuleState(module, &state) == eAF_S_OK ? std::to_string(state) + " " : "- ";
        states.push_back(state);
    }
    for (std::uint32_t phase = 0; phase < 40; ++phase) {
        const char *name = nullptr;
        CModuleManager_GetPhaseName(phase, &name);
        all += name != nullptr ? name : "-";
    }
    QuietTraces::reset();
    for (std::uint32_t group = 0; group < 5; ++group) {
        CModuleManager_RunGroup(group, 100);
    }
    all += QuietTraces::text();
    EXPECT_FALSE(QuietTraces::overflowed());
    for (std::uint32_t module = 0; module < 20; ++module) {
        CModuleManager_SetModuleState(module, states[module]);
    }
    QuietTraces::reset();
    return all;
}

struct Operation {
    const char *name;
    EAFResult (*act)();
};

/// How a failing test names it.
void PrintTo(const Operation &operation, std::ostream *out) {
    *out << operation.name;
}

const Operation operations[] = {
    {"RegisterModule", [] { return CModuleManager_RegisterModule(6, otherName); }},
    {"RegisterGroup", [] { return CModuleManager_RegisterGroup(1, otherName); }},
    {"RegisterBatch", [] { return CModuleManager_RegisterBatch(2, otherName); }},
    {"RegisterPhase", [] { return CModuleManager_RegisterPhase(20, otherName); }},
    {"RegisterCallback", [] { return CModuleManager_RegisterCallback(5, otherName, 2, &bad, HIGH, 1, nullptr, 0); }},
    {"RegisterCallbackWithAFilter",
     [] {
         const std::uint32_t filter[] = {14, 10, 12};
         return CModuleManager_RegisterCallback(5, otherName, 2, &bad, HIGH, 1, filter, 3);
     }},
};

class OutOfMemory : public testing::Test {
protected:
    OutOfMemory() { QuietTraces::reset(); }
    ~OutOfMemory() override {
        EXPECT_EQ(0, QuietTraces::open());
        forgetAll();
    }
};

/// Lets the k-th allocation of an operation fail, for each k until none more is needed.
/// @param judge  looks at the result and at what the operation left.
/// @return how many allocations there were.
unsigned refuseEach(EAFResult (*operation)(), bool allBehind, const std::function<void(EAFResult)> &judge) {
    for (unsigned number = 0;; ++number) {
        buildRegistry();
        QuietTraces::reset();
        EAFResult result = eAF_S_OK;
        unsigned refusals = 0;
        {
            const AllocationProbe probe =
                allBehind ? AllocationProbe::refusingFrom(number) : AllocationProbe::refusingOnly(number);
            result = operation();
            refusals = AllocationProbe::refusals();
        }
        if (refusals == 0) {
            EXPECT_EQ(eAF_S_OK, result);
            return number;
        }
        judge(result);
    }
}

class OutOfMemoryDuring : public OutOfMemory, public testing::WithParamInterface<Operation> {};

INSTANTIATE_TEST_SUITE_P(Each, OutOfMemoryDuring, testing::ValuesIn(operations),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(OutOfMemoryDuring, ItsCodeIsReturnedAndEverythingIsAsBefore) {
    buildRegistry();
    const std::string before = readBack();
    ASSERT_EQ(eAF_S_OK, GetParam().act());
    ASSERT_NE(before, readBack()) << "what the operation does must show";

    for (const bool allBehind : {false, true}) {
        const unsigned allocations = refuseEach(GetParam().act, allBehind, [&](EAFResult result) {
            EXPECT_EQ(eAF_E_OUT_OF_MEMORY, result);
            EXPECT_EQ("", QuietTraces::text()) << "neither a success nor another failure is traced";
            EXPECT_EQ(before, readBack());
        });
        EXPECT_GT(allocations, 0u);
    }
}

TEST_P(OutOfMemoryDuring, TheOperationSucceedsOnceThereIsMemory) {
    buildRegistry();
    GetParam().act();
    const std::string wanted = readBack();
    refuseEach(GetParam().act, true, [&](EAFResult) {
        EXPECT_EQ(eAF_S_OK, GetParam().act());
        EXPECT_EQ(wanted, readBack());
    });
}

TEST_P(OutOfMemoryDuring, NothingIsLeaked) {
    const auto blocksAfterAllRefusals = [] {
        refuseEach(GetParam().act, false, [](EAFResult) {});
        forgetAll();
        return AllocationProbe::blocks();
    };
    const long blocks = blocksAfterAllRefusals();
    for (int repetition = 0; repetition < 5; ++repetition) {
        EXPECT_EQ(blocks, blocksAfterAllRefusals());
    }
}

TEST_F(OutOfMemory, RegisterCallback_TouchesNoneOfSeveralPhasesWhicheverAllocationFails) {
    unsigned judged = 0;
    refuseEach([] { return CModuleManager_RegisterCallback(5, otherName, 100, &bad, HIGHEST, 1, nullptr, 0); }, false,
               [&](EAFResult) {
                   ++judged;
                   callsMade = 0;
                   EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 100)) << "a descriptor of the refused call is left";
                   EXPECT_EQ(5u, callsMade);
               });
    EXPECT_GE(judged, 5u) << "at least the name in each of the five phases";
}

TEST_F(OutOfMemory, InsertPhaseIntoBatch_ThatNeedsMemory_LeavesTheBatchAsItWas) {
    buildRegistry();
    bool refused = false;
    for (int insertion = 0; insertion < 200 && !refused; ++insertion) {
        const std::string before = readBack();
        EAFResult result = eAF_S_OK;
        {
            const AllocationProbe probe = AllocationProbe::refusingFrom(0);
            result = CModuleManager_InsertPhaseIntoBatch(11, 0, 1);
            refused = AllocationProbe::refusals() != 0;
        }
        if (refused) {
            EXPECT_EQ(eAF_E_OUT_OF_MEMORY, result);
            EXPECT_EQ("", QuietTraces::text());
            EXPECT_EQ(before, readBack());
            EXPECT_EQ(eAF_S_OK, CModuleManager_InsertPhaseIntoBatch(11, 0, 1));
        } else {
            EXPECT_EQ(eAF_S_OK, result);
        }
        EXPECT_NE(before, readBack());
    }
    EXPECT_TRUE(refused) << "no insertion needed memory";
}

TEST_F(OutOfMemory, RegisterModule_WhenTheModulesHaveToMove_LeavesThemAll) {
    // The modules' own storage grows now and then: goes on until a registration has met that.
    bool grown = false;
    std::uint32_t registered = 0;
    for (std::uint32_t id = 0; id < 100000 && !grown; ++id) {
        for (unsigned number = 0;; ++number) {
            EAFResult result = eAF_S_OK;
            {
                const AllocationProbe probe = AllocationProbe::refusingOnly(number);
                result = CModuleManager_RegisterModule(id, longName);
            }
            if (result == eAF_S_OK) {
                break;
            }
            ASSERT_EQ(eAF_E_OUT_OF_MEMORY, result);
            ASSERT_EQ(registered, CModuleManager_GetNumberOfRegisteredModules());
            grown = grown || (number > 0 && registered > 8);
        }
        ++registered;
    }
    EXPECT_TRUE(grown) << "no registration needed more than its name";
    for (std::uint32_t id = 0; id < registered; ++id) {
        std::uint32_t state = 0;
        ASSERT_EQ(eAF_S_OK, CModuleManager_QueryModuleState(id, &state));
        ASSERT_EQ(MODULE_STATE_REGISTERED, state);
    }
}

TEST_F(OutOfMemory, Refusals_AreJudgedBeforeMemoryIsNeeded) {
    buildRegistry();
    const AllocationProbe probe = AllocationProbe::refusingFrom(0);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterModule(6, nullptr));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CModuleManager_RegisterModule(5, longName));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CModuleManager_RegisterGroup(0, longName));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CModuleManager_RegisterBatch(1, longName));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CModuleManager_RegisterPhase(10, longName));
    EXPECT_EQ(eAF_E_FAILED, CModuleManager_InsertPhaseIntoBatch(10, 0, 9));
    EXPECT_EQ(eAF_E_UNKNOWN_MODULE, CModuleManager_RegisterCallback(9, longName, 1, &good, LOW, 1, nullptr, 0));
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH, CModuleManager_RegisterCallback(5, longName, 1, &good, LOW, 9, nullptr, 0));
    EXPECT_EQ(0u, AllocationProbe::allocations());
}

TEST_F(OutOfMemory, EverythingElse_NeedsNoMemory) {
    buildRegistry();
    SResetProvider provider{[](std::uint32_t, std::uint32_t, std::uint32_t) { return eAF_E_FAILED; },
                            [](void *, void *, std::uint32_t) { return eAF_E_FAILED; },
                            [](SResetProvider *) { return 1u; }};
    std::uint32_t state = 0;
    const char *name = nullptr;
    const AllocationProbe probe = AllocationProbe::refusingFrom(0);
    EXPECT_EQ(eAF_S_OK, CModuleManager_SetModuleState(5, 7));
    EXPECT_EQ(eAF_S_OK, CModuleManager_QueryModuleState(5, &state));
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetPhaseName(10, &name));
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetPriorityName(3, &name));
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterResetProvider(&provider));
    EXPECT_EQ(eAF_S_OK, CModuleManager_PerformSystemReset(1, 2, 3));
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetSystemResetInfo(&state, &state, 3));
    EXPECT_EQ(1u, CModuleManager_IsColdReset());
    EXPECT_EQ(eAF_S_OK, CModuleManager_UnregisterModule(5));
    EXPECT_EQ(eAF_S_OK, CModuleManager_UnInitialize());
    EXPECT_EQ(eAF_S_OK, CModuleManager_Initialize());
    EXPECT_EQ(0u, AllocationProbe::allocations());
}

TEST_F(OutOfMemory, ARunAllocatesNothingAtAll) {
    buildRegistry();
    CModuleManager_RegisterModule(6, otherName);
    CModuleManager_RegisterCallback(6, otherName, 2, &bad, HIGHEST, 1, nullptr, 0);
    CModuleManager_RegisterCallback(6, otherName, 100, nullptr, LOWEST, 1, nullptr, 0);
    QuietTraces::reset();

    const AllocationProbe probe = AllocationProbe::refusingFrom(0);
    for (const std::uint32_t option : {0u, 1u}) {
        for (const std::uint32_t channel : {1u, 2u, 100u}) {
            EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(0, channel, option));
        }
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_RunGroupWithReturnOption(0, 5, option));
        EXPECT_EQ(eAF_E_FAILED, CModuleManager_RunGroupWithReturnOption(9, 1, option));
    }
    EXPECT_EQ(0u, AllocationProbe::allocations());
    EXPECT_FALSE(QuietTraces::overflowed()) << "and the traces were composed";
}

/// A module whose name needs memory, with a handler for phase 13.
class Module : public ModuleInterface {
public:
    explicit Module(const std::string &ownName)
        : ModuleInterface(deferred_registration_tag{}, 8, ownName, 100, 1, filter, 1) {}
    Module(const std::string &ownName, bool) : ModuleInterface(8, ownName, 100, 1, filter, 1) {}

    EAFResult onPhaseStart() override {
        ++starts;
        return eAF_S_OK;
    }

    int starts = 0;

private:
    static constexpr unsigned int filter[] = {13};
};

/// Group 0 runs phase 13 through batch 1.
class OutOfMemoryInTheClassLayer : public OutOfMemory {
protected:
    static void build() {
        forgetAll();
        CModuleManager_RegisterGroup(0, longName);
        CModuleManager_RegisterBatch(1, longName);
        CModuleManager_RegisterPhase(13, longName);
        CModuleManager_InsertPhaseIntoBatch(13, 0, 1);
        QuietTraces::reset();
    }

    const std::string name{longName};
};

TEST_F(OutOfMemoryInTheClassLayer, ARunOfModules_AllocatesNothing) {
    build();
    Module module(name);
    module.RegisterModule();
    const AllocationProbe probe = AllocationProbe::refusingFrom(0);
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, 1));
    EXPECT_EQ(1, module.starts);
    EXPECT_EQ(0u, AllocationProbe::allocations());
}

TEST_F(OutOfMemoryInTheClassLayer, RegisterModule_ReturnsItsCodeAndSucceedsLater) {
    unsigned failures = 0;
    for (unsigned number = 0;; ++number) {
        build();
        Module module(name);
        EAFResult result = eAF_S_OK;
        unsigned refusals = 0;
        {
            const AllocationProbe probe = AllocationProbe::refusingOnly(number);
            result = module.RegisterModule();
            refusals = AllocationProbe::refusals();
        }
        CModuleManager_RunGroup(0, 1);
        if (result >= eAF_E_FAILED) {
            ++failures;
            EXPECT_EQ(eAF_E_OUT_OF_MEMORY, result);
            EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules()) << "the module was taken back";
            EXPECT_EQ(0, module.starts) << "a callback without a registration";
            EXPECT_EQ(eAF_E_NOT_REGISTERED, module.UnregisterModule());
            EXPECT_EQ(eAF_S_OK, module.RegisterModule());
            CModuleManager_RunGroup(0, 1);
        }
        EXPECT_EQ(1, module.starts);
        EXPECT_EQ(eAF_S_OK, module.UnregisterModule());
        EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
        if (refusals == 0) {
            break;
        }
    }
    EXPECT_GT(failures, 2u) << "the callback's name, the module's and the callback's copy at least";
}

TEST_F(OutOfMemoryInTheClassLayer, RegisterModule_OfOneThatIsRegisteredAlready_NeverTakesItBack) {
    unsigned failures = 0;
    for (unsigned number = 0;; ++number) {
        build();
        CModuleManager_RegisterModule(8, "by another hand");
        Module module(name);
        EAFResult result = eAF_S_OK;
        unsigned refusals = 0;
        {
            const AllocationProbe probe = AllocationProbe::refusingOnly(number);
            result = CModuleManager::GetInstance().RegisterModule(&module);
            refusals = AllocationProbe::refusals();
        }
        EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules()) << "allocation " << number;
        if (refusals == 0) {
            EXPECT_LT(result, std::uint32_t{eAF_E_FAILED});
            break;
        }
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, result);
        ++failures;
    }
    EXPECT_GT(failures, 1u) << "the callback's name and its copy at least";
}

TEST_F(OutOfMemoryInTheClassLayer, AResultThatCanNotBeLogged_IsReturnedAllTheSame) {
    build();
    Module module(name);
    EXPECT_EQ(eAF_S_OK, module.RegisterModule());
    QuietTraces::reset();
    {
        const AllocationProbe probe = AllocationProbe::refusingFrom(0);
        EXPECT_EQ(eAF_W_ALREADY_REGISTERED, module.RegisterModule());
        EXPECT_EQ(eAF_S_OK, module.UnregisterModule());
        EXPECT_EQ(eAF_E_NOT_REGISTERED, module.UnregisterModule());
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, module.onPhaseStop());
        EXPECT_GT(AllocationProbe::refusals(), 0u);
    }
    EXPECT_EQ(std::string::npos, QuietTraces::text().find("AfResult"));
}

TEST_F(OutOfMemoryInTheClassLayer, AMessageIsLoggedWholeOrNotAtAll_WhicheverAllocationFails) {
    Module module(name);
    const std::string whole = "onPhaseStop: subscription to phase without implementation\n";
    for (unsigned number = 0;; ++number) {
        QuietTraces::reset();
        unsigned refusals = 0;
        {
            const AllocationProbe probe = AllocationProbe::refusingOnly(number);
            EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, module.onPhaseStop());
            refusals = AllocationProbe::refusals();
        }
        if (refusals == 0) {
            EXPECT_EQ(whole, QuietTraces::text());
            EXPECT_GT(number, 0u) << "an allocation was refused at least once";
            break;
        }
        EXPECT_EQ("", QuietTraces::text()) << "allocation " << number;
    }
}

TEST_F(OutOfMemoryInTheClassLayer, RegisterCallbackVariant_ReturnsItsCodeAndAddsNothing) {
    unsigned failures = 0;
    for (bool done = false; !done;) {
        build();
        Module module(name);
        module.RegisterModule();
        EAFResult result = eAF_S_OK;
        {
            const AllocationProbe probe = AllocationProbe::refusingOnly(failures);
            result = module.RegisterCallbackVariant(LOW, 1, nullptr, 0);
            done = AllocationProbe::refusals() == 0;
        }
        EXPECT_EQ(done ? eAF_S_OK : eAF_E_OUT_OF_MEMORY, result);
        failures += done ? 0 : 1;
        CModuleManager_RunGroup(0, 1);
        EXPECT_EQ(done ? 2 : 1, module.starts);
    }
    EXPECT_GT(failures, 1u);
}

TEST_F(OutOfMemoryInTheClassLayer, Construction_EitherThrowsOrYieldsAModuleThatCanRegisterLater) {
    unsigned thrown = 0;
    unsigned constructed = 0;
    for (bool done = false; !done;) {
        build();
        const long blocks = AllocationProbe::blocks();
        alignas(Module) unsigned char place[sizeof(Module)];
        Module *module = nullptr;
        {
            const AllocationProbe probe = AllocationProbe::refusingOnly(thrown + constructed);
            try {
                module = new (place) Module(name, true);
            } catch (const std::bad_alloc &) {
                ++thrown;
            }
            done = AllocationProbe::refusals() == 0;
        }
        if (module == nullptr) {
            EXPECT_EQ(blocks, AllocationProbe::blocks()) << "of a module that never came to be";
            EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
            continue;
        }
        constructed += done ? 0 : 1;
        const EAFResult result = module->RegisterModule();
        EXPECT_TRUE(result == eAF_S_OK || result == eAF_W_ALREADY_REGISTERED) << result;
        CModuleManager_RunGroup(0, 1);
        EXPECT_EQ(1, module->starts);
        module->~Module();
        EXPECT_EQ(0u, CModuleManager_GetNumberOfRegisteredModules());
    }
    EXPECT_EQ(2u, thrown) << "for the copies of the name and of the filter, and for nothing else";
    EXPECT_GT(constructed, 0u);
}

} // namespace
