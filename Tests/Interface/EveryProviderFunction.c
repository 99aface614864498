/* A storage provider as a host in C uses it: every flat function of one, chosen by PROVIDER and PROVIDER_HEADER. */
#include PROVIDER_HEADER

#include <unistd.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "CStorageManager.h"
#include "Check.h"

#define JOIN(a, b) a##b
#define NAME(class, operation) JOIN(class, operation)
#define SetFile NAME(PROVIDER, _SetFile)
#define GetProvider NAME(PROVIDER, _GetProvider)
#define GetStatistics NAME(PROVIDER, _GetStatistics)
#define UnInitialize NAME(PROVIDER, _UnInitialize)

enum { location = 1, provider = 7 };

static void store(int32_t value) {
    static int32_t gain;
    CStorageObject object;
    CStorageRegion region;
    SStorageStatistics statistics;
    SVariableDescriptor variable = {&gain, TYPE_INT32, 1, "Gain", 0};

    CHECK(CStorageManager_Initialize() == eAF_S_OK);
    CHECK(CStorageManager_RegisterLocation(location, "Parameters", 16, 0) == eAF_S_OK);
    CHECK(CStorageManager_RegisterStorageProvider(GetProvider(), provider, "Provider") == eAF_S_OK);
    CHECK(CStorageManager_AssignStorageProviderToLocation(location, provider) == eAF_S_OK);
    CStorageObject_Construct(&object, "Radio");
    CHECK(CStorageObject_CreateVariables(&object, &variable, 1) == eAF_S_OK);
    CStorageRegion_Construct(&region, "Cfg", location);
    CHECK(CStorageRegion_AddObject(&region, &object) == eAF_S_OK);
    CHECK(CStorageManager_RegisterRegion(&region) == eAF_S_OK);
    CHECK(CStorageManager_InitializeAllProviders() == eAF_S_OK);

    CHECK(CStorageManager_RetrieveAll() == eAF_S_OK);
    CHECK(GetStatistics(location, &statistics) == eAF_S_OK);
    CHECK(statistics.noOfValuesRetrieved + statistics.noOfValuesMissing == 1);
    CHECK(gain == (statistics.noOfValuesRetrieved == 1 ? value - 1 : 0));

    gain = value;
    CHECK(CStorageManager_StoreAll() == eAF_S_OK);
    CHECK(GetStatistics(location, &statistics) == eAF_S_OK && statistics.noOfValuesWritten == 1);
    CHECK(CStorageManager_StoreAll() == eAF_S_OK);
    CHECK(GetStatistics(location, &statistics) == eAF_S_OK && statistics.noOfValuesWritten == 0);
    gain = 0;
    CHECK(CStorageManager_Uninitialize() == eAF_S_OK);
}

int main(void) {
    char folder[] = "/tmp/every-provider-function-XXXXXX";
    char file[64];
    char command[64];
    SStorageStatistics statistics;
    CHECK(mkdtemp(folder) != 0);
    snprintf(file, sizeof file, "%s/store", folder);
    snprintf(command, sizeof command, "rm -r %s", folder);

    CHECK(SetFile(location, "") == eAF_E_INVALID_ARGUMENT);
    CHECK(GetStatistics(location, &statistics) == eAF_E_UNKNOWN_LOCATION);
    CHECK(SetFile(location, file) == eAF_S_OK);
    store(5); /* the first finds no file, the second what the first left */
    CHECK(SetFile(location, file) == eAF_E_ALREADY_INITIALIZED);
    CHECK(UnInitialize() == eAF_S_OK);
    CHECK(GetStatistics(location, &statistics) == eAF_E_UNKNOWN_LOCATION);
    CHECK(SetFile(location, file) == eAF_S_OK);
    store(6);
    CHECK(UnInitialize() == eAF_S_OK);
    CHECK(system(command) == 0);
    return 0;
}
