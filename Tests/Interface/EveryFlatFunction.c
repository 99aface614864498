/* A host in plain C that calls every flat function once at least and checks what it answers. */
#include <mqueue.h>
#include <unistd.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "CApplicationFramework.h"
#include "CEventCache.h"
#include "CEventHandler.h"
#include "CEventTask.h"
#include "CFrameworkUtils.h"
#include "CModuleManager_c.h"
#include "Check.h"
#include "EveryStorageFunction.h"

static unsigned phasesSeen;

static EAFResult onPhase(void *context, uint32_t phaseId, ECallbackPriority priority) {
    CHECK(context == &phasesSeen);
    CHECK(phaseId == 13 || phaseId == 16);
    CHECK(priority == HIGH);
    ++phasesSeen;
    return eAF_S_OK;
}

static unsigned applicationsInitialized;

static EAFResult initializeApplication(void) {
    ++applicationsInitialized;
    return eAF_S_OK;
}

static const char *nameOfApplication(void) {
    return "CApplication";
}

static uint32_t resetWords[3];

static EAFResult performSystemReset(uint32_t first, uint32_t second, uint32_t third) {
    resetWords[0] = first;
    resetWords[1] = second;
    resetWords[2] = third;
    return eAF_S_OK;
}

static EAFResult getSystemResetInfo(void *first, void *second, uint32_t third) {
    *(uint32_t *)first = third;
    *(uint32_t *)second = third + 1;
    return eAF_S_OK;
}

static uint32_t isColdReset(SResetProvider *self) {
    return self->performSystemReset == performSystemReset ? 77 : 0;
}

struct Heard {
    unsigned count;
    uint32_t eventId;
    void *data;
    char text[8];
};

static EAFResult onEvent(void *context, uint32_t eventId, void *data, SListenerCallback *self) {
    struct Heard *heard = context;
    CHECK(self->context == context);
    ++heard->count;
    heard->eventId = eventId;
    heard->data = data;
    if (eventId == 3) {
        memcpy(heard->text, data, sizeof heard->text);
    }
    return eAF_S_OK;
}

static void modules(void) {
    static SModuleCallback callback = {&phasesSeen, onPhase};
    const uint32_t filter[] = {13, 16};
    const char *name = NULL;
    uint32_t state = 99;

    CHECK(CModuleManager_Initialize() == eAF_S_OK);
    CHECK(CModuleManager_Start() == eAF_S_OK);
    CHECK(CModuleManager_Stop() == eAF_S_OK);
    CHECK(CModuleManager_RegisterModule(5, "Fan") == eAF_S_OK);
    CHECK(CModuleManager_RegisterModule(6, "Spare") == eAF_S_OK);
    CHECK(CModuleManager_RegisterModule(5, "Other") == eAF_W_ALREADY_REGISTERED);
    CHECK(CModuleManager_GetNumberOfRegisteredModules() == 2);
    CHECK(CModuleManager_UnregisterModule(6) == eAF_S_OK);
    CHECK(CModuleManager_GetNumberOfRegisteredModules() == 1);
    CHECK(CModuleManager_RegisterGroup(0, "Start") == eAF_S_OK);
    CHECK(CModuleManager_RegisterGroup(1, "Stop") == eAF_S_OK);
    CHECK(CModuleManager_RegisterBatch(1, "Batch") == eAF_S_OK);
    CHECK(CModuleManager_RegisterPhase(13, "Starting") == eAF_S_OK);
    CHECK(CModuleManager_RegisterPhase(16, "Stopping") == eAF_S_OK);
    CHECK(CModuleManager_InsertPhaseIntoBatch(13, 0, 1) == eAF_S_OK);
    CHECK(CModuleManager_InsertPhaseIntoBatch(16, 1, 1) == eAF_S_OK);
    CHECK(CModuleManager_RegisterCallback(5, "FanCallback", 2, &callback, HIGH, 1, filter, 2) == eAF_S_OK);
    CHECK(CModuleManager_GetPhaseName(16, &name) == eAF_S_OK);
    CHECK(strcmp(name, "Stopping") == 0);
    CHECK(CModuleManager_GetPriorityName(HIGHER_THAN_NORMAL, &name) == eAF_S_OK);
    CHECK(strcmp(name, "HIGHER_THAN_NORMAL") == 0);

    CHECK(CModuleManager_QueryModuleState(5, &state) == eAF_S_OK);
    CHECK(state == MODULE_STATE_REGISTERED);
    CHECK(CModuleManager_RunGroup(0, 3) == eAF_S_OK);
    CHECK(phasesSeen == 0);
    CHECK(CModuleManager_RunGroup(0, 2) == eAF_S_OK);
    CHECK(phasesSeen == 1);
    CHECK(CModuleManager_RunGroupWithReturnOption(1, ALL_RADIO_CHANNELS, 1) == eAF_S_OK);
    CHECK(phasesSeen == 2);
    CHECK(CModuleManager_QueryModuleState(5, &state) == eAF_S_OK);
    CHECK(state == MODULE_STATE_PHASE_OK);
    CHECK(CModuleManager_SetModuleState(5, MODULE_STATE_PHASE_FAILED) == eAF_S_OK);
    CHECK(CModuleManager_QueryModuleState(5, &state) == eAF_S_OK);
    CHECK(state == MODULE_STATE_PHASE_FAILED);

    CHECK(CModuleManager_GetStatistics(NULL) == eAF_E_NOT_IMPLEMENTED);
    CHECK(CModuleManager_GetModuleStatisticsByIndex(0, NULL) == eAF_E_NOT_IMPLEMENTED);
    CHECK(CModuleManager_GetModuleStatisticsByName("Fan", NULL) == eAF_E_NOT_IMPLEMENTED);
    CHECK(CModuleManager_ResetStatistics() == eAF_S_OK);
}

static void resets(void) {
    static SResetProvider provider = {performSystemReset, getSystemResetInfo, isColdReset};
    uint32_t first = 0;
    uint32_t second = 0;

    CHECK(CModuleManager_PerformSystemReset(1, 2, 3) == eAF_E_NOT_REGISTERED);
    CHECK(CModuleManager_IsColdReset() == 0);
    CHECK(CModuleManager_RegisterResetProvider(&provider) == eAF_S_OK);
    CHECK(CModuleManager_PerformSystemReset(1, 2, 3) == eAF_S_OK);
    CHECK(resetWords[0] == 1 && resetWords[1] == 2 && resetWords[2] == 3);
    CHECK(CModuleManager_GetSystemResetInfo(&first, &second, 41) == eAF_S_OK);
    CHECK(first == 41 && second == 42);
    CHECK(CModuleManager_IsColdReset() == 77);
}

static void applications(void) {
    static SApplicationDescriptor application = {initializeApplication, nameOfApplication};

    CHECK(CApplicationFramework_Initialize() == eAF_S_OK);
    CHECK(CApplicationFramework_Start() == eAF_E_NO_APPLICATION);
    CHECK(CApplicationFramework_RegisterApplication(&application) == eAF_S_OK);
    CHECK(CApplicationFramework_Start() == eAF_S_OK);
    CHECK(applicationsInitialized == 1);
    CHECK(phasesSeen == 3);
    CHECK(CApplicationFramework_Stop() == eAF_S_OK);
    CHECK(phasesSeen == 4);
}

static void serverPort(void) {
    int32_t configuration[9] = {0};

    CHECK(CApplicationFramework_SetServerPort(4711) == eAF_S_OK);
    CHECK(CApplicationFramework_GetServerPort() == 4711);
    /* The process's own number, so that programs may run side by side. */
    configuration[8] = (int32_t)getpid();
    CHECK(CApplicationFramework_FinalInitialization(configuration) == eAF_S_OK);
    CHECK(CApplicationFramework_GetServerPort() == (int32_t)getpid());
}

static void events(void) {
    static struct Heard heard;
    static SListenerCallback listener = {&heard, onEvent};
    static const uint32_t filter[] = {2, 3, 4};
    static int datum;
    SEventHandlerStatistics statistics;
    SEventDataMessage message = {2, NULL, 0};
    const char *name = NULL;
    uint32_t handle = 99;
    char queueName[128];

    CHECK(CEventHandler_GetNumberOfRegisteredEvents() == 32788);
    CHECK(CEventHandler_Initialize(4, 2) == eAF_S_OK);
    CHECK(CEventHandler_RegisterEvent(2, "Two") == eAF_S_OK);
    CHECK(CEventHandler_RegisterEvent(3, "Three") == eAF_S_OK);
    CHECK(CEventHandler_RegisterEvent(4, "Four") == eAF_S_OK);
    CHECK(CEventHandler_GetNumberOfRegisteredEvents() == 3);
    CHECK(CEventHandler_GetEventName(3, &name) == eAF_S_OK);
    CHECK(strcmp(name, "Three") == 0);
    CHECK(CEventHandler_AddListener(&listener, filter, 3, "CListener", &handle) == eAF_S_OK);
    CHECK(handle == 0);

    CHECK(CEventHandler_FireEvent(2) == eAF_S_OK);
    CHECK(CEventHandler_FireEventWithData(4, &datum) == eAF_S_OK);
    CHECK(CEventHandler_FireEventWithCopiedData(3, "normal!", 8) == eAF_S_OK);
    CHECK(CEventHandler_FireUrgentEvent(2) == eAF_S_OK);
    CHECK(CEventHandler_FireUrgentEventWithData(4, &datum) == eAF_S_OK);
    CHECK(CEventHandler_FireUrgentEventWithCopiedData(3, "urgent!", 8) == eAF_S_OK);

    CEventHandler_PumpEvent(handle);
    CHECK(heard.count == 1 && heard.eventId == 2 && heard.data == NULL);
    CHECK(CEventHandler_PumpEventIfAvailable(handle) == 1);
    CHECK(heard.count == 2 && heard.eventId == 4 && heard.data == &datum);
    CEventHandler_PumpEvent(handle);
    CHECK(heard.count == 3 && heard.eventId == 3 && strcmp(heard.text, "urgent!") == 0);
    CEventHandler_PumpEvent(handle);
    CHECK(heard.count == 4 && heard.eventId == 2 && heard.data == NULL);
    CEventHandler_PumpEvent(handle);
    CHECK(heard.count == 5 && heard.eventId == 4 && heard.data == &datum);
    CEventHandler_PumpEvent(handle);
    CHECK(heard.count == 6 && heard.eventId == 3 && strcmp(heard.text, "normal!") == 0);

    CHECK(CEventHandler_FireEventFromMessageInternal(&message) == eAF_S_OK);
    CHECK(CEventHandler_PumpEventIfAvailable(handle) == 1);
    CHECK(heard.count == 7 && heard.eventId == (uint32_t)(uintptr_t)&message);

    CEventHandler_SendEmptyMessage(handle);
    CHECK(CEventHandler_PumpEventIfAvailable(handle) == 0);
    CHECK(heard.count == 7);

    CHECK(CEventHandler_GetStatistics(&statistics) == eAF_S_OK);
    CHECK(statistics.noOfRegisteredEvents == 3 && statistics.maxNoOfEvents == 4);
    CHECK(statistics.noOfListeners == 1 && statistics.maxNoOfListeners == 2);
    CHECK(statistics.noOfErrorResponses == 0 && statistics.noOfPumpedEvents == 7 && statistics.noOfCacheMisses == 3);
    CEventHandler_ResetStatistics();
    CHECK(CEventHandler_GetStatistics(&statistics) == eAF_S_OK);
    CHECK(statistics.noOfPumpedEvents == 0 && statistics.noOfCacheMisses == 0);

    CHECK(CFrameworkUtils_GetMQueueName(queueName, sizeof queueName, "CListener") == eAF_S_OK);
    CHECK(CEventHandler_UnInitialize() == eAF_S_OK);
    CHECK(mq_unlink(queueName) == 0);
}

static void tasks(void) {
    static CEventTask task;
    ITask *operations = NULL;
    SEventDataMessage message = {0, NULL, 0};

    CHECK(CEventTask_GetInterface(&task, &operations) == eAF_S_OK);
    CHECK((void *)operations == (void *)&task);
    CHECK(operations->Create(&task, "CTask", 100, 2048, 12, 60) == eAF_S_OK);
    CHECK(operations->GetThreadHandle(&task) == &task.threadHandle);
    CHECK(operations->Start(&task) == eAF_S_OK);
    CHECK(CEventTask_HandleEvent(&task, &message) == eAF_S_OK);
    CHECK(operations->Stop(&task) == eAF_S_OK);
    operations->Destroy(&task);
    CHECK(operations->IsRunning(&task) == 0);
}

static void caches(void) {
    CEventCache cache;
    uint32_t value = 99;

    CEventCache_Construct(&cache, 2);
    CHECK(CEventCache_Add(&cache, 7, 70) == eAF_S_OK);
    CHECK(CEventCache_Add(&cache, 7, 71) == eAF_I_ALREADY_CACHED);
    CHECK(CEventCache_IsHit(&cache, 7, &value) == 1 && value == 70);
    CHECK(CEventCache_IsHit(&cache, 8, &value) == 0 && value == 0);
    CEventCache_Destruct(&cache);
    CHECK(cache.entries == NULL);
}

int main(void) {
    serverPort();
    modules();
    resets();
    applications();
    events();
    tasks();
    caches();
    useEveryStorageFunction();
    CHECK(CApplicationFramework_UnInitialize() == eAF_S_OK);
    CHECK(CModuleManager_UnInitialize() == eAF_S_OK);
    CHECK(CModuleManager_GetNumberOfRegisteredModules() == 0);
    puts("every flat function answered as it should");
    return 0;
}
