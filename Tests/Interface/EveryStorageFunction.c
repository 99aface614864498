/* The part of the C program that keeps variables: every flat function of the storage service, on a provider in C. */
#include "EveryStorageFunction.h"

#include <stdint.h>
#include <string.h>

#include "CStorageManager.h"
#include "Check.h"

static unsigned initialized;
static unsigned reserved;
static int32_t stored;

static EAFResult initialize(unsigned long locationId) {
    CHECK(locationId == 1);
    ++initialized;
    return eAF_S_OK;
}

static EAFResult reserveWritableSpace(unsigned long locationId, unsigned long size) {
    CHECK(locationId == 1 && size == 4096);
    ++reserved;
    return eAF_S_OK;
}

static EAFResult keep(CDatabase *database, CVariable *variable, const char *fullPath, const char *regionName,
                      const char *objectPath, const char *variableName) {
    CHECK(database->noOfVariablesProcessed > 0);
    if (strcmp(variableName, "Gain") == 0) {
        void *content = 0;
        CHECK(strcmp(fullPath, "Cfg/Radio/Gain") == 0);
        CHECK(strcmp(regionName, "Cfg") == 0 && strcmp(objectPath, "Radio") == 0);
        CHECK(CVariable_Lock(variable) == eAF_S_OK);
        CHECK(CVariable_GetContentAddress(variable, &content) == eAF_S_OK);
        memcpy(&stored, content, sizeof stored);
        CHECK(CVariable_UnLock(variable) == eAF_S_OK);
    }
    return eAF_S_OK;
}

static EAFResult storeAll(unsigned long locationId, CDatabase *database, unsigned long locationData) {
    CHECK(locationId == 1 && locationData == 77);
    return CDatabase_DoVariableOperation(database, keep);
}

static EAFResult retrieveAll(unsigned long locationId, CDatabase *database, unsigned long locationData) {
    CVariable *variable = 0;
    CHECK(locationId == 1 && locationData == 77);
    CHECK(CDatabase_SetAsNotRetrieved(database) == eAF_S_OK);
    CHECK(CDatabase_GetVariableByPath(database, "Cfg/Radio/Gain", &variable) == eAF_S_OK);
    CVariable_SetRetrieved(variable, 1);
    CHECK(CVariable_IsRetrieved(variable) == 1);
    CHECK(CDatabase_SetNotRetrievedVariablesToDefault(database) == eAF_S_OK);
    CHECK(CVariable_IsRetrieved(variable) == 0);
    return eAF_S_OK;
}

static IStorageProvider provider = {initialize, reserveWritableSpace, storeAll, retrieveAll};

static void checkVariable(void) {
    static const int16_t values[3] = {1, -2, 3};
    int16_t back[3] = {0, 0, 0};
    CVariable variable;
    void *address = &variable;
    const char *text = 0;
    char buffer[64];
    uint32_t needed = 0;
    CHECK(CVariable_Construct(&variable, 0, TYPE_INT16_ARRAY, 3, "Own", 0) == eAF_S_OK);
    CHECK(CVariable_GetAccessType(&variable) == ByValue && CVariable_GetType(&variable) == TYPE_INT16_ARRAY);
    CHECK(CVariable_GetNoOfElements(&variable) == 3 && CVariable_GetSizeInBytes(&variable) == 6);
    CHECK(CVariable_SetContent(&variable, values) == eAF_S_OK);
    CHECK(CVariable_GetContent(&variable, back) == eAF_S_OK && memcmp(values, back, sizeof back) == 0);
    CHECK(CVariable_GetDefaultContentAddress(&variable, &address) == eAF_S_OK && address == 0);
    CHECK(CVariable_GetName(&variable, &text) == eAF_S_OK && strcmp(text, "Own") == 0);
    CHECK(CVariable_SetPath(&variable, "R", "O/P", "V") == eAF_S_OK);
    CHECK(CVariable_GetPath(&variable, &text) == eAF_S_OK && strcmp(text, "R/O/P/V") == 0);
    CHECK(CVariable_FormatText(&variable, buffer, sizeof buffer, &needed) == eAF_S_OK);
    CHECK(strcmp(buffer, "[1 ,-2 ,3]") == 0 && needed == sizeof "[1 ,-2 ,3]");
    CHECK(CVariable_ToString(&variable, buffer, sizeof buffer) == eAF_S_OK && buffer[0] == '[');
    CVariable_SetDynamicallyAllocated(&variable, 1);
    CHECK(CVariable_IsDynamicallyAllocated(&variable) == 1);
    CHECK(CVariable_Destruct(&variable) == eAF_S_OK);
}

static void checkObject(CStorageObject *object) {
    static int word;
    void *address = 0;
    uintptr_t data = 0;
    char *name = 0;
    unsigned long size = 0;
    CListIterator iterator;
    CVariable *variable = 0;
    CHECK(CStorageObject_GetName(object, &name) == eAF_S_OK && strcmp(name, "Radio") == 0);
    CHECK(CStorageObject_IsEmpty(object) == 0 && CStorageObject_GetNoOfVariables(object) == 3);
    CHECK(CStorageObject_GetVariableIterator(object, &iterator) == eAF_S_OK);
    CHECK(CStorageObject_GetNextVariable(object, &variable, &iterator) == eAF_S_OK);
    CHECK(CStorageObject_GetNextVariable(object, &variable, &iterator) == eAF_S_OK);
    CHECK(CStorageObject_GetNextVariable(object, &variable, &iterator) == eAF_W_NO_MORE_DATA);
    CHECK(CStorageObject_GetVariableByName(object, "Offset", &variable) == 1 && variable->type == TYPE_INT32);
    CHECK(CStorageObject_ReserveSize(object, 100) == eAF_S_OK && object->reservedSize == 100);
    CHECK(CStorageObject_GetSizeInBytes(object, &size) == eAF_S_OK && size == 12);
    CHECK(CStorageObject_SetRawObjectContentAddress(object, &word) == eAF_S_OK);
    CHECK(CStorageObject_GetRawObjectContentAddress(object, &address) == eAF_S_OK && address == &word);
    CStorageObject_SetApplicationData(object, 9);
    CHECK(CStorageObject_GetApplicationData(object, &data) == eAF_S_OK && data == 9);
    CStorageObject_SetWritable(object, 0);
    CHECK(CStorageObject_IsWritable(object) == 0);
    CStorageObject_SetDynamicallyAllocated(object, 0);
    CHECK(CStorageObject_IsDynamicallyAllocated(object) == 0);
}

static void checkRegion(CStorageRegion *region) {
    char *name = 0;
    unsigned long size = 0;
    CHECK(CStorageRegion_GetName(region, &name) == eAF_S_OK && strcmp(name, "Cfg") == 0);
    CHECK(CStorageRegion_GetLocationId(region) == 1 && CStorageRegion_GetNoOfObjects(region) == 1);
    CHECK(CStorageRegion_IsEmpty(region) == 0);
    CHECK(CStorageRegion_ReserveSize(region, 200) == eAF_S_OK);
    CHECK(CStorageRegion_GetReservedSize(region, &size) == eAF_S_OK && size == 200);
    CHECK(CStorageRegion_GetSizeInBytes(region, &size) == eAF_S_OK && size == 12);
    CStorageRegion_SetDynamicallyAllocated(region, 0);
    CHECK(CStorageRegion_IsDynamicallyAllocated(region) == 0);
}

/* A database of its own, outside the manager. */
static void checkDatabase(void) {
    CDatabase database;
    CStorageRegion region;
    CStorageRegion *found = 0;
    CVariable *variable = 0;
    CStorageObject parent;
    CStorageObject child;
    CVariable *wrapper = 0;
    CDatabase_Construct(&database, 4);
    CStorageRegion_Construct(&region, "Alone", 5);
    CStorageObject_Construct(&parent, "Parent");
    CStorageObject_Construct(&child, "Child");
    CHECK(CStorageObject_AddObject(&parent, &child) == eAF_S_OK);
    CHECK(CStorageRegion_AddObject(&region, &parent) == eAF_S_OK);
    CHECK(CDatabase_AddRegion(&database, &region) == eAF_S_OK && CDatabase_GetNoOfRegions(&database) == 1);
    CHECK(CDatabase_GetRegionByName(&database, "Alone", &found) == eAF_S_OK && found == &region);
    CHECK(CDatabase_UpdatePathHashTable(&database) == eAF_E_FAILED); /* the wrapper is no object */
    CHECK(CDatabase_GetVariableByName(&database, "Child", &wrapper) == eAF_S_OK);
    CHECK(CDatabase_GetVariableByPath(&database, "Alone/Parent/Child", &variable) == eAF_E_VARIABLE_HASH_TABLE_EMPTY);
    CHECK(CDatabase_RemoveRegion(&database, "Alone") == eAF_S_OK && CDatabase_GetNoOfRegions(&database) == 0);
    CDatabase_Destruct(&database);
    CStorageObject_Destruct(&child);
    freeWrapper(wrapper);
}

void useEveryStorageFunction(void) {
    static int32_t gain = 5;
    static int32_t offset = 6;
    static const int32_t defaultOffset = 60;
    static CVariable added;
    CStorageObject object;
    CStorageRegion region;
    CVariable *variable = 0;
    void *content = 0;
    unsigned long size = 0;
    SVariableDescriptor variables[] = {{&gain, TYPE_INT32, 1, "Gain", 0},
                                       {&offset, TYPE_INT32, 1, "Offset", (void *)(uintptr_t)&defaultOffset}};

    checkVariable();
    CHECK(CStorageManager_Initialize() == eAF_S_OK);
    CStorageObject_Construct(&object, "Radio");
    CHECK(CStorageObject_CreateVariables(&object, variables, 2) == eAF_S_OK);
    CHECK(CVariable_Construct(&added, 0, TYPE_FLOAT, 1, "Added", 0) == eAF_S_OK);
    CHECK(CStorageObject_AddVariable(&object, &added) == eAF_S_OK);
    checkObject(&object);
    CStorageRegion_Construct(&region, "Cfg", 1);
    CHECK(CStorageRegion_AddObject(&region, &object) == eAF_S_OK);
    checkRegion(&region);
    checkDatabase();

    CHECK(CStorageManager_RegisterLocation(1, "flash", 16, 77) == eAF_S_OK);
    CHECK(CStorageManager_RegisterStorageProvider(&provider, 3, "memory") == eAF_S_OK);
    CHECK(CStorageManager_AssignStorageProviderToLocation(1, 3) == eAF_S_OK);
    CHECK(CStorageManager_RegisterRegion(&region) == eAF_S_OK);
    CHECK(CStorageManager_ReserveWritableSpace(1, 4096) == eAF_S_OK && reserved == 1);
    CHECK(CStorageManager_UpdatePathHashTable() == eAF_S_OK);
    CHECK(CStorageManager_InitializeAllProviders() == eAF_S_OK && initialized == 1);
    CHECK(CStorageManager_RetrieveAll() == eAF_S_OK && gain == 5 && offset == 60);
    CHECK(CStorageManager_StoreAll() == eAF_S_OK && stored == 5);
    CHECK(CStorageManager_StoreAllWritable() == eAF_E_NOT_IMPLEMENTED);
    CHECK(CStorageManager_GetVariableByPath("Cfg/Radio/Gain", &variable) == eAF_S_OK);
    CHECK(CStorageManager_GetVariableByName("Gain", &variable) == eAF_S_OK);
    CHECK(CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Gain", &content, &size) == eAF_S_OK);
    CHECK(content == &gain && size == 4);
    CHECK(CStorageManager_GetVariableContentAddressByName("Offset", &content, &size) == eAF_S_OK);
    CHECK(content == &offset && size == 4);
    CHECK(CStorageManager_ReassignStorageProviderToLocation(1, 3) == eAF_S_OK);
    CHECK(CStorageManager_RemoveRegionFromLocation("Cfg", 1) == eAF_S_OK);
    CHECK(CStorageManager_Uninitialize() == eAF_S_OK);

    CStorageRegion_Construct(&region, "Unfiled", 1);
    CStorageRegion_Destruct(&region);
    CHECK(CStorageRegion_IsEmpty(&region) == 1);
}
