/* A host that loads the library while it runs. */
#include <unistd.h>

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "EAFResult.h"

static void *library;

static void *function(const char *name) {
    void *address = dlsym(library, name);
    if (address == NULL) {
        fprintf(stderr, "the library has no %s\n", name);
        exit(1);
    }
    return address;
}

static EAFResult callWithNothing(const char *name) {
    EAFResult (*operation)(void) = NULL;
    void *address = function(name);
    memcpy(&operation, &address, sizeof operation);
    return operation();
}

static EAFResult callWithIdAndName(const char *name, uint32_t id, const char *text) {
    EAFResult (*operation)(uint32_t, const char *) = NULL;
    void *address = function(name);
    memcpy(&operation, &address, sizeof operation);
    return operation(id, text);
}

static EAFResult callWithTwoWords(const char *name, uint32_t first, uint32_t second) {
    EAFResult (*operation)(uint32_t, uint32_t) = NULL;
    void *address = function(name);
    memcpy(&operation, &address, sizeof operation);
    return operation(first, second);
}

static EAFResult callWithNameAndPlace(const char *name, const char *text, void **place) {
    EAFResult (*operation)(const char *, void **) = NULL;
    void *address = function(name);
    memcpy(&operation, &address, sizeof operation);
    return operation(text, place);
}

static void useOwnPort(void) {
    EAFResult (*operation)(const void *) = NULL;
    void *address = function("CApplicationFramework_FinalInitialization");
    int32_t configuration[9] = {0};
    configuration[8] = (int32_t)getpid();
    memcpy(&operation, &address, sizeof operation);
    operation(configuration);
}

static void load(const char *path) {
    library = dlopen(path, RTLD_NOW);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
}

/* Nobody waits for the worker, so its code must outlast the closing. */
static int closeWhileTheWorkerLeaves(const char *path) {
    for (int round = 0; round < 50; ++round) {
        load(path);
        useOwnPort();
        if (callWithTwoWords("CEventHandler_Initialize", 1, 1) != eAF_S_OK ||
            callWithNothing("CEventHandler_UnInitialize") != eAF_S_OK) {
            return 1;
        }
        dlclose(library);
    }
    return 0;
}

/* Runs after the library's own objects are gone, since it was registered before they were made. */
static void exitHandler(void) {
    if (callWithIdAndName("CModuleManager_RegisterModule", 2, "Late") != eAF_S_OK ||
        callWithNothing("CModuleManager_GetNumberOfRegisteredModules") != 1 ||
        callWithNothing("CModuleManager_UnInitialize") != eAF_S_OK) {
        fprintf(stderr, "the registry did not work in the exit handler\n");
        _exit(1);
    }
    /* Each access is logged, as long as there is something to log it with. */
    void *variable = NULL;
    if (callWithNameAndPlace("CStorageManager_GetVariableByPath", "Cfg/Radio/Gain", &variable) !=
        eAF_E_UNKNOWN_VARIABLE) {
        fprintf(stderr, "the storage manager did not work in the exit handler\n");
        _exit(1);
    }
}

static int useInAnOlderExitHandler(const char *path) {
    atexit(exitHandler);
    load(path);
    return callWithIdAndName("CModuleManager_RegisterModule", 1, "a name too long to stand inside a string") == eAF_S_OK
               ? 0
               : 1;
}

int main(int count, char **arguments) {
    if (count == 3 && strcmp(arguments[2], "ClosedWhileTheWorkerLeaves") == 0) {
        return closeWhileTheWorkerLeaves(arguments[1]);
    }
    if (count == 3 && strcmp(arguments[2], "UsedByAnOlderExitHandler") == 0) {
        return useInAnOlderExitHandler(arguments[1]);
    }
    fprintf(stderr, "usage: LoadedAtRunTime LIBRARY ClosedWhileTheWorkerLeaves|UsedByAnOlderExitHandler\n");
    return 2;
}
