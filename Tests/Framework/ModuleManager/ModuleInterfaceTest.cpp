#include "ModuleInterface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t noPhase = ~0u;

// Order of slot, handler, phase id that is dispatched to it. Written out by hand, apart from the library's own.
#define TEST_HANDLERS(ROW)                                                                                             \
    ROW(2, onModuleRegisterStorageObjects, 0)                                                                          \
    ROW(3, onModuleInit, 11)                                                                                           \
    ROW(4, onPhaseModuleStorageObjectsRetrieved, 5)                                                                    \
    ROW(5, onPhasePostFrameformatLoad, 20)                                                                             \
    ROW(6, onPhaseEndFrameformatLoad, 21)                                                                              \
    ROW(7, onPhaseRestartTickScheduler, 22)                                                                            \
    ROW(8, onModuleRegisterImTi, 24)                                                                                   \
    ROW(9, onWarmRestartWaitForHw, noPhase)                                                                            \
    ROW(10, onWarmRestartInit, noPhase)                                                                                \
    ROW(11, onWarmRestartWaitForSetInitCompleteRequest, noPhase)                                                       \
    ROW(12, onPhaseStart, 13)                                                                                          \
    ROW(13, onPhaseStop, 16)                                                                                           \
    ROW(14, onPhaseFrameformatLoad, 19)                                                                                \
    ROW(15, onPhasePreFrameformatLoad, 18)                                                                             \
    ROW(16, onPhaseSuppressErrors, 23)                                                                                 \
    ROW(17, onPhaseSetRadioChannelNearEndFinished, 26)                                                                 \
    ROW(18, onPhasePreRadioRestartCold, 27)                                                                            \
    ROW(19, onPhasePreRadioRestartWarm, 28)                                                                            \
    ROW(20, onPhasePostRadioRestartCold, 29)                                                                           \
    ROW(21, onPhasePostRadioRestartWarm, 30)                                                                           \
    ROW(22, onPhaseDisableAlarmThread, 31)                                                                             \
    ROW(23, onPhasePreDspRecovery, 32)                                                                                 \
    ROW(24, onPhaseDspRecoveryReloadFw, 33)                                                                            \
    ROW(25, onPhaseDspRecoveryReloadFf, 34)                                                                            \
    ROW(26, onPhaseDspRecoveryReconfig, 35)                                                                            \
    ROW(27, onPhasePostDspRecovery, 36)                                                                                \
    ROW(28, onPhaseEnableAlarmThread, 37)

using Handler = EAFResult (ModuleInterface::*)();

struct HandlerRow {
    std::size_t order;
    const char *name;
    Handler handler;
    std::uint32_t phaseId;
};

#define TEST_HANDLER_ROW(order, handler, phase) {order, #handler, &ModuleInterface::handler, phase},
const HandlerRow handlers[] = {TEST_HANDLERS(TEST_HANDLER_ROW)};
#undef TEST_HANDLER_ROW

/// A module without a handler of its own.
class Plain : public ModuleInterface {
public:
    explicit Plain(const std::vector<unsigned int> &filter = {})
        : ModuleInterface(deferred_registration_tag{}, 5, "Fan", 100, 1, filter.data(),
                          static_cast<unsigned int>(filter.size())) {}
};

/// Overrides every handler with one that notes its name.
class Attentive : public Plain {
public:
#define TEST_OVERRIDE(order, handler, phase)                                                                           \
    EAFResult handler() override {                                                                                     \
        called.emplace_back(#handler);                                                                                 \
        return answer;                                                                                                 \
    }
    TEST_HANDLERS(TEST_OVERRIDE)
#undef TEST_OVERRIDE

    std::vector<std::string> called;
    EAFResult answer = eAF_S_OK;
};

/// Takes the place of the dispatcher itself.
class Dispatching : public Plain {
public:
    EAFResult onPhaseActivation(unsigned int phaseId, ECallbackPriority priority) override {
        phase = phaseId;
        itsPriority = priority;
        return eAF_W_DUPLICATE_IGNORED;
    }

    unsigned int phase = 0;
    ECallbackPriority itsPriority = LOWEST;
};

/// The place of a virtual function in the table, the two destructors being 0 and 1. A pointer to a virtual member
/// holds its offset there: plus one on x86, with the mark in the second word on ARM.
template <class Member>
std::size_t slotOf(Member member) {
    std::uintptr_t words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    return (words[0] & ~std::uintptr_t{1}) / sizeof(void *);
}

class ModuleInterfaceTest : public test::ModuleManagerFixture {};

TEST_F(ModuleInterfaceTest, VirtualFunctionsKeepTheSettledSlots) {
    EXPECT_TRUE(std::has_virtual_destructor_v<ModuleInterface>);
    EXPECT_EQ(2u, slotOf(&ModuleInterface::onPhaseActivation)) << "behind the two forms of the destructor";
    for (const HandlerRow &row : handlers) {
        EXPECT_EQ(row.order + 1, slotOf(row.handler)) << row.name;
    }
}

TEST_F(ModuleInterfaceTest, ThereAre27Handlers) {
    EXPECT_EQ(27, std::end(handlers) - std::begin(handlers));
}

TEST_F(ModuleInterfaceTest, EachPhaseIdReachesItsHandlerAndNoOther) {
    for (const HandlerRow &row : handlers) {
        if (row.phaseId != noPhase) {
            Attentive module;
            EXPECT_EQ(eAF_S_OK, module.onPhaseActivation(row.phaseId, NORMAL));
            EXPECT_THAT(module.called, ElementsAre(row.name)) << "phase " << row.phaseId;
        }
    }
}

TEST_F(ModuleInterfaceTest, AHandlersResultIsReturnedUnchanged) {
    Attentive module;
    for (const std::uint32_t code : {0x0002u, 0x1001u, 0x8000u, 0xDEADBEEFu}) {
        module.answer = static_cast<EAFResult>(code);
        for (const HandlerRow &row : handlers) {
            if (row.phaseId != noPhase) {
                EXPECT_EQ(module.answer, module.onPhaseActivation(row.phaseId, LOWEST)) << row.name;
            }
        }
    }
}

TEST_F(ModuleInterfaceTest, PhaseIdsWithoutAHandler_SucceedSilently) {
    Attentive module;
    std::set<std::uint32_t> without{1, 2, 3, 4, 6, 7, 8, 9, 10, 12, 14, 15, 17, 25, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (std::uint32_t id = 38; id < 2000; ++id) {
        without.insert(id);
    }
    for (const std::uint32_t id : without) {
        EXPECT_EQ(eAF_S_OK, module.onPhaseActivation(id, NORMAL)) << id;
        EXPECT_EQ(eAF_S_OK, Plain().onPhaseActivation(id, NORMAL)) << id;
    }
    EXPECT_THAT(module.called, IsEmpty());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ModuleInterfaceTest, TheWarmRestartHandlers_AreReachedByACallAlone) {
    Attentive module;
    for (std::uint32_t id = 0; id < 100; ++id) {
        module.onPhaseActivation(id, NORMAL);
    }
    EXPECT_EQ(24u, module.called.size()) << "27 handlers but for these three";
    module.called.clear();
    ModuleInterface &base = module;
    base.onWarmRestartWaitForHw();
    base.onWarmRestartInit();
    base.onWarmRestartWaitForSetInitCompleteRequest();
    EXPECT_THAT(module.called, ElementsAre("onWarmRestartWaitForHw", "onWarmRestartInit",
                                           "onWarmRestartWaitForSetInitCompleteRequest"));
}

TEST_F(ModuleInterfaceTest, EachBaseHandler_IsNotImplementedAndSaysSoUnderItsOwnName) {
    Plain module;
    for (const HandlerRow &row : handlers) {
        TraceRecorder::reset();
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, (module.*row.handler)()) << row.name;
        const auto records = TraceRecorder::domainRecords();
        ASSERT_EQ(1u, records.size()) << row.name;
        EXPECT_EQ("ZEL.AF.MOD", records.front().domain);
        EXPECT_EQ(1, records.front().level);
        EXPECT_EQ(row.name, records.front().function);
        EXPECT_EQ("subscription to phase without implementation", records.front().text);
        EXPECT_EQ(0u, TraceRecorder::traceCalls()) << "no procedural trace";
    }
}

TEST_F(ModuleInterfaceTest, EachBaseHandler_IsNotImplementedWithTheLevelDisabledToo) {
    TraceRecorder::reset(TraceRecorder::everything, 0);
    Plain module;
    for (const HandlerRow &row : handlers) {
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, (module.*row.handler)()) << row.name;
    }
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
}

TEST_F(ModuleInterfaceTest, TheDispatcher_ReachesTheBaseHandlersOfPhasesNotOverridden) {
    Plain module;
    EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, module.onPhaseActivation(16, NORMAL));
    ASSERT_EQ(1u, TraceRecorder::domainRecords().size());
    EXPECT_EQ("onPhaseStop", TraceRecorder::domainRecords().front().function);
}

TEST_F(ModuleInterfaceTest, TheWrapper_CallsTheDispatcherOfTheDerivedClass) {
    Dispatching module;
    EXPECT_EQ(eAF_W_DUPLICATE_IGNORED, ModuleInterface::onPhaseActivationWrapper(
                                           static_cast<ModuleInterface *>(&module), 25, HIGHER_THAN_NORMAL));
    EXPECT_EQ(25u, module.phase);
    EXPECT_EQ(HIGHER_THAN_NORMAL, module.itsPriority);
}

TEST_F(ModuleInterfaceTest, TheWrapper_RefusesANullContext) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, ModuleInterface::onPhaseActivationWrapper(nullptr, 13, NORMAL));
    EXPECT_EQ((Lines{{"onPhaseActivationWrapper", "Phase activation called with null pointer.", 0x8006}}),
              TraceRecorder::lines());
    EXPECT_EQ("Framework/ApplicationFramework/private/ModuleInterface.cpp", TraceRecorder::records().front().file);
}

TEST_F(ModuleInterfaceTest, TheCallbackRecord_IsTheWrapperWithTheModuleAsItsContext) {
    Attentive module;
    SModuleCallback *callback = module.getCallback();
    ASSERT_NE(nullptr, callback);
    EXPECT_EQ(static_cast<ModuleInterface *>(&module), callback->context);
    EXPECT_EQ(&ModuleInterface::onPhaseActivationWrapper, callback->function);
    EXPECT_EQ(callback, module.getCallback());
    EXPECT_EQ(eAF_S_OK, callback->function(callback->context, 13, NORMAL));
    EXPECT_THAT(module.called, ElementsAre("onPhaseStart"));
}

TEST_F(ModuleInterfaceTest, Getters_GiveWhatTheConstructorTook) {
    const std::vector<unsigned int> filter{13, 16, 13};
    const ModuleInterface module(deferred_registration_tag{}, 0xFFFFFFFFu, "Fan", 3, 77, filter.data(), 3);
    EXPECT_EQ(0xFFFFFFFFu, module.getId());
    EXPECT_EQ("Fan", module.getName());
    EXPECT_EQ(&module.getName(), &module.getName());
    EXPECT_EQ(3u, module.getRadioChannelId());
    EXPECT_EQ(77u, module.getBatchId());
    EXPECT_EQ(3u, module.getNoOfPhaseFilterElements());
}

TEST_F(ModuleInterfaceTest, NameAndFilter_AreCopies) {
    std::string name = "Fan";
    std::vector<unsigned int> filter{13, 16};
    ModuleInterface module(deferred_registration_tag{}, 5, name, 100, 1, filter.data(), 2);
    name = "???";
    filter.assign({1, 2});
    EXPECT_EQ("Fan", module.getName());
    ASSERT_NE(nullptr, module.getPhaseFilter());
    EXPECT_THAT(std::vector<unsigned int>(module.getPhaseFilter(), module.getPhaseFilter() + 2), ElementsAre(13, 16));
    EXPECT_NE(filter.data(), module.getPhaseFilter());
}

TEST_F(ModuleInterfaceTest, AnEmptyFilter_IsNullAndItsArrayIsNotRead) {
    const auto nothing = std::make_unique<unsigned int[]>(0);
    const unsigned int *unreadable = nothing.get();
    ModuleInterface module(deferred_registration_tag{}, 5, "Fan", 100, 1, unreadable, 0);
    EXPECT_EQ(nullptr, module.getPhaseFilter());
    EXPECT_EQ(0u, module.getNoOfPhaseFilterElements());
    ModuleInterface registering(6, "Pump", 100, 1, unreadable, 0);
    EXPECT_EQ(nullptr, registering.getPhaseFilter());
}

TEST_F(ModuleInterfaceTest, ANullFilterWithACount_IsAnEmptyFilter) {
    ModuleInterface module(deferred_registration_tag{}, 5, "Fan", 100, 1, nullptr, 3);
    EXPECT_EQ(nullptr, module.getPhaseFilter());
    EXPECT_EQ(0u, module.getNoOfPhaseFilterElements());
}

TEST_F(ModuleInterfaceTest, AModule_CanBeNeitherCopiedNorAssigned) {
    EXPECT_FALSE(std::is_copy_constructible_v<ModuleInterface>);
    EXPECT_FALSE(std::is_copy_assignable_v<ModuleInterface>);
}

} // namespace
