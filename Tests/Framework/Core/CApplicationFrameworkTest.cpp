#include "CApplicationFramework.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "CEventHandler.h"
#include "CList.h"
#include "CModuleManager_c.h"
#include "EventQueues.h"
#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

/// What the container answers instead of the truth; empty means the truth.
std::function<std::uint32_t(CList *, CListIterator *)> startAnswer;
std::function<std::uint32_t(CList *, void **, CListIterator *)> nextAnswer;
std::uint32_t pushResult;

template <class Function>
Function *containersOwn(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The container's operations, as the library finds them: this program comes before the container's library.
uint32_t CList_StartIterationFromHead(CList *list, CListIterator *iterator) {
    static auto *const own = containersOwn<decltype(CList_StartIterationFromHead)>("CList_StartIterationFromHead");
    return startAnswer ? startAnswer(list, iterator) : own(list, iterator);
}

uint32_t CList_GetNext(CList *list, void **element, CListIterator *iterator) {
    static auto *const own = containersOwn<decltype(CList_GetNext)>("CList_GetNext");
    return nextAnswer ? nextAnswer(list, element, iterator) : own(list, element, iterator);
}

uint32_t CList_PushHead(CList *list, void *element) {
    static auto *const own = containersOwn<decltype(CList_PushHead)>("CList_PushHead");
    return pushResult != 0 ? pushResult : own(list, element);
}

namespace {

std::vector<std::string> calls;
EAFResult resultOfB = eAF_S_OK;
EAFResult resultOfGroup = eAF_S_OK;

SApplicationDescriptor applicationA{[] {
                                        calls.emplace_back("A.initialize");
                                        return eAF_S_OK;
                                    },
                                    [] {
                                        calls.emplace_back("A.getName");
                                        return "Radio";
                                    }};
SApplicationDescriptor applicationB{[] {
                                        calls.emplace_back("B.initialize");
                                        return resultOfB;
                                    },
                                    [] {
                                        calls.emplace_back("B.getName");
                                        return "Power";
                                    }};
SApplicationDescriptor applicationC{[] {
                                        calls.emplace_back("C.initialize");
                                        return eAF_W_WARNING;
                                    },
                                    [] {
                                        calls.emplace_back("C.getName");
                                        return "Clock";
                                    }};
SApplicationDescriptor nameless{[] {
                                    calls.emplace_back("nameless.initialize");
                                    return eAF_E_INITIALIZATION_ERROR;
                                },
                                []() -> const char * {
                                    calls.emplace_back("nameless.getName");
                                    return nullptr;
                                }};

EAFResult moduleCallback(void *, std::uint32_t phaseId, ECallbackPriority) {
    calls.push_back("phase " + std::to_string(phaseId));
    return resultOfGroup;
}

SModuleCallback callback{nullptr, moduleCallback};

/// Group 0 runs phase 10, group 1 runs phase 11, group 2 nothing.
void registerGroups() {
    CModuleManager_RegisterModule(1, "Module");
    CModuleManager_RegisterGroup(0, "Start");
    CModuleManager_RegisterGroup(1, "Stop");
    CModuleManager_RegisterBatch(1, "Batch");
    CModuleManager_RegisterPhase(10, "Starting");
    CModuleManager_RegisterPhase(11, "Stopping");
    CModuleManager_InsertPhaseIntoBatch(10, 0, 1);
    CModuleManager_InsertPhaseIntoBatch(11, 1, 1);
    CModuleManager_RegisterCallback(1, "callback", 3, &callback, NORMAL, 1, nullptr, 0);
}

class ApplicationFramework : public testing::Test {
protected:
    ApplicationFramework() {
        test::useOwnServerPort();
        CApplicationFramework_UnInitialize();
        CApplicationFramework_Initialize();
        registerGroups();
        TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    }
    ~ApplicationFramework() override {
        startAnswer = nullptr;
        nextAnswer = nullptr;
        pushResult = 0;
        calls.clear();
        resultOfB = eAF_S_OK;
        resultOfGroup = eAF_S_OK;
        CModuleManager_UnInitialize();
        CApplicationFramework_UnInitialize();
    }

    static Line line(const char *operation, const char *message, std::uint32_t code) {
        return {std::string("CApplicationFramework_") + operation, message, code};
    }
};

TEST_F(ApplicationFramework, Uninitialized_EveryOperationButInitializeIsRefusedAndTraced) {
    CApplicationFramework_UnInitialize();
    TraceRecorder::reset();

    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CApplicationFramework_RegisterApplication(&applicationA));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CApplicationFramework_RegisterApplication(nullptr));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CApplicationFramework_Start());
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CApplicationFramework_Stop());

    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(line("RegisterApplication", "Application is not initialized", 0x8014),
                            line("RegisterApplication", "Application is not initialized", 0x8014),
                            line("Start", "Application is not initialized", 0x8014),
                            line("Stop", "Application is not initialized", 0x8014)));
}

TEST_F(ApplicationFramework, RegisterApplication_OfNull_IsRefusedAndTracedAndNotCounted) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CApplicationFramework_RegisterApplication(nullptr));
    EXPECT_EQ(eAF_E_NO_APPLICATION, CApplicationFramework_Start());
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line("RegisterApplication", "Invalid argument", 0x8006),
                                                    line("Start", "No applications", 0x8013)));
}

TEST_F(ApplicationFramework, StartAndStop_WithoutAnApplication_RunNoGroup) {
    EXPECT_EQ(eAF_E_NO_APPLICATION, CApplicationFramework_Start());
    EXPECT_EQ(eAF_E_NO_APPLICATION, CApplicationFramework_Stop());
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(line("Start", "No applications", 0x8013), line("Stop", "No applications", 0x8013)));
}

TEST_F(ApplicationFramework, Start_InitializesTheNewestFirstThenRunsGroup0ForAllChannels) {
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&applicationB);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    // The callback is registered for channel 3: only a run for all channels reaches it.
    EXPECT_THAT(calls, ElementsAre("B.initialize", "A.initialize", "phase 10"));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(ApplicationFramework, AnApplicationRegisteredTwice_IsInitializedTwice) {
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&applicationA);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("A.initialize", "A.initialize", "phase 10"));
}

TEST_F(ApplicationFramework, Start_WithOneOfThreeFailing_InitializesAllNamesItAndRunsNoGroup) {
    resultOfB = eAF_E_UNKNOWN_REGION;
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&applicationB);
    CApplicationFramework_RegisterApplication(&applicationC);
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("C.initialize", "B.initialize", "B.getName", "A.initialize"));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line("Start", "Failed to initialize application Power\n", 0x8016),
                                                    line("Start", "Could not initialize all applications", 0x8000)));
}

TEST_F(ApplicationFramework, Start_WithTheOldestFailing_FailsAllTheSame) {
    resultOfB = static_cast<EAFResult>(0xFFFFFFFF);
    CApplicationFramework_RegisterApplication(&applicationB);
    CApplicationFramework_RegisterApplication(&applicationA);
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(line("Start", "Failed to initialize application Power\n", 0xFFFFFFFF),
                            line("Start", "Could not initialize all applications", 0x8000)));
}

TEST_F(ApplicationFramework, Start_WithANamelessApplicationFailing_NamesNoneButFails) {
    CApplicationFramework_RegisterApplication(&nameless);
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("nameless.initialize", "nameless.getName"));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line("Start", "Could not initialize all applications", 0x8000)));
}

TEST_F(ApplicationFramework, Start_WithTheHighestSuccess_CountsItAsSuccess) {
    resultOfB = static_cast<EAFResult>(0x7FFF);
    CApplicationFramework_RegisterApplication(&applicationB);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("B.initialize", "phase 10"));
}

TEST_F(ApplicationFramework, Start_WithTheStartGroupFailing_TracesFailedAndReturnsTheRunnersCode) {
    CApplicationFramework_RegisterApplication(&applicationA);
    resultOfGroup = eAF_E_APPLICATION_ERROR_DURING_PHASE_EXECUTION;
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_EQ(line("Start", "One or more application start phases indicates errors", 0x8000),
              TraceRecorder::lines().back());
}

TEST_F(ApplicationFramework, StartAndStop_WithoutTheirGroups_Fail) {
    CModuleManager_UnInitialize();
    CApplicationFramework_RegisterApplication(&applicationA);
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Stop());
    const std::string runner = "CModuleManager_RunGroupWithReturnOption";
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{runner, "Could not get group element with id 0", 0x8000},
                            line("Start", "One or more application start phases indicates errors", 0x8000),
                            Line{runner, "Could not get group element with id 1", 0x8000},
                            line("Stop", "Application stop failed", 0x8000)));
}

TEST_F(ApplicationFramework, Stop_RunsGroup1WithoutCallingAnApplicationAndMayComeFirst) {
    CApplicationFramework_RegisterApplication(&applicationA);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Stop());
    EXPECT_THAT(calls, ElementsAre("phase 11"));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(ApplicationFramework, StartStopStart_FindsTheSameApplications) {
    CApplicationFramework_RegisterApplication(&applicationA);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Stop());
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("A.initialize", "phase 10", "phase 11", "A.initialize", "phase 10"));
}

TEST_F(ApplicationFramework, Stop_WithTheStopGroupFailing_TracesAndReturnsFailed) {
    CApplicationFramework_RegisterApplication(&applicationA);
    resultOfGroup = eAF_E_APPLICATION_ERROR_DURING_PHASE_EXECUTION;
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Stop());
    EXPECT_EQ(line("Stop", "Application stop failed", 0x8000), TraceRecorder::lines().back());
}

TEST_F(ApplicationFramework, StartGroupWarnings_AreNotPassedOn) {
    CApplicationFramework_RegisterApplication(&applicationA);
    resultOfGroup = eAF_W_WARNING;
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Stop());
}

TEST_F(ApplicationFramework, UnInitialize_ForgetsTheApplicationsAndLeavesTheModuleManager) {
    CApplicationFramework_RegisterApplication(&applicationA);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_UnInitialize());
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Initialize());
    EXPECT_EQ(eAF_E_NO_APPLICATION, CApplicationFramework_Start());
    EXPECT_EQ(eAF_S_OK, CModuleManager_RunGroup(0, ALL_RADIO_CHANNELS));
}

TEST_F(ApplicationFramework, UnInitialize_IgnoresThatTheEventHandlerIsNotInitialized) {
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_UnInitialize());
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_UnInitialize());
    const Line refused{"CEventHandler_UnInitialize", "CEventHandler was previosuly not initialized", 0x8014};
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(refused, refused));
}

TEST_F(ApplicationFramework, UnInitialize_StopsTheEventService) {
    const test::QueueCleaner cleaner({"EHNP"});
    ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(1, 1));
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_UnInitialize());
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
    EXPECT_FALSE(test::queueExists(test::taskQueueName()));
}

TEST_F(ApplicationFramework, InitializeTwice_StartsWithAnEmptyListAndLeaksNothing) {
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&applicationB);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Initialize());
    EXPECT_EQ(eAF_E_NO_APPLICATION, CApplicationFramework_Start());
    CApplicationFramework_RegisterApplication(&applicationC);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("C.initialize", "phase 10"));
}

TEST_F(ApplicationFramework, InitializeTouchesNeitherPortNorModulesNorEvents) {
    const test::QueueCleaner cleaner({"EHNP"});
    ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(1, 1));
    CApplicationFramework_Initialize();
    EXPECT_EQ(0u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_EQ(1u, CModuleManager_GetNumberOfRegisteredModules());
}

TEST_F(ApplicationFramework, AnApplicationWithoutAnInitializeEntry_FailsTheStart) {
    SApplicationDescriptor empty{nullptr, [] { return "Empty"; }};
    CApplicationFramework_RegisterApplication(&empty);
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line("Start", "Failed to initialize application Empty\n", 0x8006),
                                                    line("Start", "Could not initialize all applications", 0x8000)));
}

TEST_F(ApplicationFramework, AnApplicationWithoutANameEntry_FailsUnnamed) {
    SApplicationDescriptor mute{[] { return eAF_E_FAILED; }, nullptr};
    CApplicationFramework_RegisterApplication(&mute);
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line("Start", "Could not initialize all applications", 0x8000)));
}

// An application that takes the list away that it stands in

TEST_F(ApplicationFramework, Start_WhenAnApplicationUninitializes_EndsLikeAListThatCanNotBeIterated) {
    static SApplicationDescriptor quitter{[] {
                                              calls.emplace_back("quitter");
                                              return CApplicationFramework_UnInitialize();
                                          },
                                          nullptr};
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&quitter);
    TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("quitter"));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CEventHandler_UnInitialize", "CEventHandler was previosuly not initialized", 0x8014},
                            line("Start", "Could not iterate application list", 0x8000),
                            line("Start", "Could not initialize all applications", 0x8000)));
}

TEST_F(ApplicationFramework, Start_WhenAnApplicationInitializesAnew_EndsLikeAListThatCanNotBeIterated) {
    static SApplicationDescriptor renewer{[] {
                                              CApplicationFramework_Initialize();
                                              return CApplicationFramework_RegisterApplication(&applicationC);
                                          },
                                          nullptr};
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&renewer);
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("C.initialize", "phase 10"));
}

TEST_F(ApplicationFramework, Start_WhenAnApplicationRegistersAnother_GoesOnWithItsOwnList) {
    static SApplicationDescriptor adder{[] { return CApplicationFramework_RegisterApplication(&applicationC); },
                                        nullptr};
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&adder);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("A.initialize", "phase 10"));
}

// What the container may answer

TEST_F(ApplicationFramework, Start_WhenTheIterationCanNotBegin_TracesTwiceAndRunsNothing) {
    CApplicationFramework_RegisterApplication(&applicationA);
    startAnswer = [](CList *, CListIterator *) { return 0x8004u; };
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line("Start", "Could not iterate application list", 0x8000),
                                                    line("Start", "Could not initialize all applications", 0x8000)));
}

TEST_F(ApplicationFramework, Start_WhenTheContainerHasNothingToIterate_RunsTheStartGroup) {
    CApplicationFramework_RegisterApplication(&applicationA);
    startAnswer = [](CList *, CListIterator *) { return 0x1002u; };
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("phase 10"));
}

TEST_F(ApplicationFramework, Start_WhenTheIterationBreaksOff_KeepsWhatWasInitializedAndFails) {
    CApplicationFramework_RegisterApplication(&applicationA);
    CApplicationFramework_RegisterApplication(&applicationB);
    nextAnswer = [step = 0](CList *, void **element, CListIterator *) mutable {
        *element = &applicationB;
        return step++ == 0 ? 0x0000u : 0x8000u;
    };
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("B.initialize"));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line("Start", "Could not iterate application list", 0x8000),
                                                    line("Start", "Could not initialize all applications", 0x8000)));
}

TEST_F(ApplicationFramework, Start_TakesAnyOtherSuccessOfTheIterationForMoreToCome) {
    CApplicationFramework_RegisterApplication(&applicationA);
    nextAnswer = [step = 0](CList *, void **element, CListIterator *) mutable {
        *element = &applicationA;
        return ++step < 3 ? 0x1004u : 0x1002u;
    };
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_Start());
    EXPECT_THAT(calls, ElementsAre("A.initialize", "A.initialize", "A.initialize", "phase 10"));
}

TEST_F(ApplicationFramework, RegisterApplication_IgnoresThatTheContainerIsFull) {
    pushResult = 0x8005;
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_RegisterApplication(&applicationA));
    // Counted, though nothing is in the list: the start gets as far as the empty list.
    startAnswer = [](CList *, CListIterator *) { return 0x8004u; };
    EXPECT_EQ(eAF_E_FAILED, CApplicationFramework_Start());
    EXPECT_EQ(line("Start", "Could not iterate application list", 0x8000), TraceRecorder::lines().front());
}

} // namespace
