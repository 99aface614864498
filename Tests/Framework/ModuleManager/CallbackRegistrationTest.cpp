#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "ModuleManagerFixture.h"

namespace {

using test::Calls;
using test::Lines;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

const char *const label = "CModuleManager_RegisterCallback";

/// Batch 1 holds (0, 10), (1, 10), (1, 11) and (1, 12); module 5 is registered.
class CallbackRegistration : public test::ModuleManagerFixture {
protected:
    CallbackRegistration() : fan(addModule(5, "Fan")) {
        CModuleManager_RegisterGroup(0, "Start");
        CModuleManager_RegisterGroup(1, "Stop");
        CModuleManager_RegisterBatch(1, "Boot");
        CModuleManager_RegisterBatch(2, "Empty");
        addPhase(10, "Init", 0, 1);
        CModuleManager_InsertPhaseIntoBatch(10, 1, 1);
        addPhase(11, "Load", 1, 1);
        addPhase(12, "Late", 1, 1);
        TraceRecorder::reset();
    }

    EAFResult enter(const std::vector<std::uint32_t> &filter, std::uint32_t batchId = 1) {
        return CModuleManager_RegisterCallback(5, "cb", ALL_RADIO_CHANNELS, &fan.record, NORMAL, batchId,
                                               filter.empty() ? nullptr : filter.data(),
                                               static_cast<std::uint32_t>(filter.size()));
    }

    /// The phases, in order, in which a run of a group called the callback.
    std::vector<std::uint32_t> phasesCalledBy(std::uint32_t groupId) {
        calls.clear();
        EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(groupId, 1));
        std::vector<std::uint32_t> phases;
        for (const test::Call &call : calls) {
            phases.push_back(call.phaseId);
        }
        return phases;
    }

    test::Callback &fan;
};

TEST_F(CallbackRegistration, OnSuccess_TracesNothing) {
    EXPECT_EQ(eAF_S_OK, enter({}));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(CallbackRegistration, WithoutAFilter_ServesEachDistinctPhaseOfTheBatchOnce) {
    EXPECT_EQ(eAF_S_OK, enter({}));
    EXPECT_THAT(phasesCalledBy(0), ElementsAre(10)) << "one descriptor although the phase is in the batch twice";
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(10, 11, 12)) << "whatever the group of the entry";
}

TEST_F(CallbackRegistration, WithAPhaseInsertedTwiceForOneGroup_AddsOneDescriptor) {
    CModuleManager_InsertPhaseIntoBatch(11, 0, 1);
    CModuleManager_InsertPhaseIntoBatch(11, 0, 1);
    EXPECT_EQ(eAF_S_OK, enter({11}));
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(11));
    EXPECT_THAT(phasesCalledBy(0), ElementsAre(11, 11)) << "two runs of one descriptor, not of two";
}

TEST_F(CallbackRegistration, WithAFilter_ServesThePhasesListedAlone) {
    EXPECT_EQ(eAF_S_OK, enter({11}));
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(11));
}

TEST_F(CallbackRegistration, WithAFilter_ItsOrderAndRepetitionsDoNotMatter) {
    EXPECT_EQ(eAF_S_OK, enter({12, 10, 12, 99}));
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(10, 12));
}

TEST_F(CallbackRegistration, WithAFilter_ReadsItsFirstCountElementsAlone) {
    const std::uint32_t filter[] = {11, 12};
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterCallback(5, "cb", 100, &fan.record, NORMAL, 1, filter, 1));
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(11));
}

TEST_F(CallbackRegistration, WithAFilterThatMatchesNothing_SucceedsAndAddsNothing) {
    EXPECT_EQ(eAF_S_OK, enter({99}));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(phasesCalledBy(1), IsEmpty());
}

TEST_F(CallbackRegistration, ForABatchWithoutEntries_SucceedsAndAddsNothing) {
    EXPECT_EQ(eAF_S_OK, enter({}, 2));
    EXPECT_EQ(eAF_S_OK, enter({10}, 2));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(phasesCalledBy(1), IsEmpty());
}

TEST_F(CallbackRegistration, ServesNoPhaseOfAnotherBatch) {
    CModuleManager_RegisterBatch(3, "Other");
    addPhase(13, "Other", 1, 3);
    EXPECT_EQ(eAF_S_OK, enter({}, 3));
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(13));
}

TEST_F(CallbackRegistration, ServesAPhaseInEveryBatchThatHoldsIt) {
    CModuleManager_RegisterBatch(3, "Other");
    CModuleManager_InsertPhaseIntoBatch(11, 1, 3);
    EXPECT_EQ(eAF_S_OK, enter({}, 3));
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(11, 11)) << "the descriptor is the phase's, not the batch's";
}

TEST_F(CallbackRegistration, DoesNotServePhasesThatJoinTheBatchLater) {
    EXPECT_EQ(eAF_S_OK, enter({}));
    addPhase(13, "Latecomer", 1, 1);
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(10, 11, 12));
}

TEST_F(CallbackRegistration, Twice_CallsTwice) {
    EXPECT_EQ(eAF_S_OK, enter({11}));
    EXPECT_EQ(eAF_S_OK, enter({11}));
    EXPECT_THAT(phasesCalledBy(1), ElementsAre(11, 11));
}

TEST_F(CallbackRegistration, WhoseFilterAndCountDisagree_IsRefusedWithoutATrace) {
    const std::uint32_t filter[] = {11};
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterCallback(5, "cb", 100, &fan.record, NORMAL, 1, filter, 0));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT,
              CModuleManager_RegisterCallback(5, "cb", 100, &fan.record, NORMAL, 1, nullptr, 2));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(phasesCalledBy(1), IsEmpty());
}

TEST_F(CallbackRegistration, JudgesTheFilterBeforeItLooksForModuleAndBatch) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT,
              CModuleManager_RegisterCallback(99, nullptr, 100, &fan.record, NORMAL, 98, nullptr, 2));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(CallbackRegistration, OfAnUnknownModule_IsReportedBeforeAnUnknownBatch) {
    for (const std::uint32_t batch : {1u, 98u}) {
        TraceRecorder::reset();
        EXPECT_EQ(eAF_E_UNKNOWN_MODULE,
                  CModuleManager_RegisterCallback(4000000000u, "cb", 100, &fan.record, NORMAL, batch, nullptr, 0));
        EXPECT_EQ((Lines{{label, "Could not get module with id = 4000000000", 0x800C}}), TraceRecorder::lines());
    }
    EXPECT_THAT(phasesCalledBy(1), IsEmpty());
}

TEST_F(CallbackRegistration, ForAnUnknownBatch_TracesItsIdSigned) {
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH, enter({}, 98));
    EXPECT_EQ(eAF_E_UNKNOWN_BATCH, enter({}, 0xFFFFFFFFu));
    EXPECT_EQ((Lines{{label, "Could not get batch with id = 98", 0x8009},
                     {label, "Could not get batch with id = -1", 0x8009}}),
              TraceRecorder::lines());
}

TEST_F(CallbackRegistration, CopiesTheCallbackName) {
    std::string name = "FanOnStart";
    CModuleManager_RegisterCallback(5, name.c_str(), 100, &fan.record, LOW, 1, nullptr, 0);
    name = "???";
    TraceRecorder::reset();

    CModuleManager_RunGroup(0, 1);

    EXPECT_THAT(TraceRecorder::lines(),
                testing::Contains(test::Line{"CModuleManager_RunGroupWithReturnOption",
                                             "    with callback: FanOnStart and Priority: LOW", 0x800}));
}

TEST_F(CallbackRegistration, CopiesNeitherTheCallbackRecordNorTheFilter) {
    std::vector<std::uint32_t> filter{10};
    EXPECT_EQ(eAF_S_OK, enter(filter));
    filter.assign({11});
    test::Callback other("Other", calls);
    fan.record.context = &other;

    CModuleManager_RunGroup(1, 1);

    EXPECT_EQ((Calls{{"Other", 10, NORMAL}}), calls) << "the record is read when it is called, the filter was before";
}

TEST_F(CallbackRegistration, AddsDescriptorsBehindThoseRegisteredBefore) {
    subscribe(5, fan);
    subscribe(6, addModule(6, "Pump"));
    subscribe(5, fan);
    CModuleManager_RunGroup(0, 1);
    EXPECT_THAT(namesOfCalls(), ElementsAre("Fan", "Pump", "Fan"));
}

TEST_F(CallbackRegistration, WithAPriorityAboveLowest_IsStoredAndNeverRuns) {
    for (const std::uint32_t priority : {7u, 8u, 100u, 0xFFFFFFFFu}) {
        EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterCallback(5, "cb", 100, &fan.record,
                                                            static_cast<ECallbackPriority>(priority), 1, nullptr, 0));
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    EXPECT_THAT(phasesCalledBy(1), IsEmpty());
}

TEST_F(CallbackRegistration, ForAnyRadioChannel_IsTaken) {
    for (const std::uint32_t channel : {0u, 5u, 7u, 99u, 101u, 0xFFFFFFFFu}) {
        EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterCallback(5, "cb", channel, &fan.record, NORMAL, 1, nullptr, 0));
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    CModuleManager_RunGroup(0, 1);
    EXPECT_THAT(calls, IsEmpty());
    CModuleManager_RunGroup(0, ALL_RADIO_CHANNELS);
    EXPECT_EQ(6u, calls.size());
}

TEST_F(CallbackRegistration, DoesNotChangeTheModulesState) {
    CModuleManager_SetModuleState(5, 42);
    EXPECT_EQ(eAF_S_OK, enter({}));
    EXPECT_EQ(42u, stateOf(5));
}

TEST_F(CallbackRegistration, TheRecord_IsTheContextThenTheFunction) {
    static_assert(offsetof(SModuleCallback, context) == 0);
    static_assert(offsetof(SModuleCallback, function) == sizeof(void *));
    EXPECT_EQ(sizeof(void *) + sizeof(void (*)()), sizeof(SModuleCallback));
}

TEST_F(CallbackRegistration, IsUndoneInEveryPhaseByUnregisteringTheModule) {
    EXPECT_EQ(eAF_S_OK, enter({}));
    CModuleManager_UnregisterModule(5);
    EXPECT_THAT(phasesCalledBy(0), IsEmpty());
    EXPECT_THAT(phasesCalledBy(1), IsEmpty());
}

} // namespace
