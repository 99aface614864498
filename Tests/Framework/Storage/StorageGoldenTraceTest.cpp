// The whole trace of a host that keeps its variables, from the first location to the last clean-up, against a page
// that is written by hand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CStorageManager.h"
#include "GoldenTrace.h"
#include "StorageTree.h"
#include "TraceRecorder.h"

namespace {

using test::TraceRecorder;

enum Location : unsigned long { flash = 1, eeprom = 2, nowhere = 3 };
enum Provider : unsigned long { first = 10, second = 20, nobody = 30 };

/// What the store of the first provider holds: a gain of 7.
EAFResult keepGain(CDatabase * /*database*/, CVariable *variable, const char *fullPath, const char * /*regionName*/,
                   const char * /*objectPath*/, const char * /*variableName*/) {
    if (std::string(fullPath) != "Cfg/Radio/Gain") {
        return eAF_W_VARIABLE_MISSING_IN_STORAGE;
    }
    *static_cast<std::int32_t *>(variable->content) = 7;
    CVariable_SetRetrieved(variable, 1);
    return eAF_S_OK;
}

EAFResult answerWell(unsigned long /*locationId*/) {
    return eAF_S_OK;
}
EAFResult refuseTheEeprom(unsigned long locationId) {
    return locationId == eeprom ? eAF_E_INITIALIZATION_ERROR : eAF_S_OK;
}
EAFResult reserveAtMost100(unsigned long /*locationId*/, unsigned long size) {
    return size <= 100 ? eAF_S_OK : eAF_E_BUFFER_TOO_SMALL;
}
EAFResult refuseToStore(unsigned long /*locationId*/, CDatabase * /*database*/, unsigned long /*locationData*/) {
    return eAF_E_WRONG_ACCESS;
}
EAFResult leaveAlone(unsigned long /*locationId*/, CDatabase * /*database*/, unsigned long /*locationData*/) {
    return eAF_W_WARNING;
}
EAFResult retrieve(unsigned long /*locationId*/, CDatabase *database, unsigned long /*locationData*/) {
    CDatabase_SetAsNotRetrieved(database);
    CDatabase_DoVariableOperation(database, keepGain);
    return CDatabase_SetNotRetrievedVariablesToDefault(database);
}

IStorageProvider firstTable{answerWell, reserveAtMost100, refuseToStore, retrieve};
IStorageProvider secondTable{refuseTheEeprom, reserveAtMost100, leaveAlone, leaveAlone};

class StorageGoldenTrace : public testing::Test {
protected:
    StorageGoldenTrace() { TraceRecorder::reset(); }

    void registerEverything();
    void lookUp();
    void storeAndReassign();

    test::StorageTree tree;
    std::int32_t defaultGain = 20;
    std::int32_t defaultLow = -5;
};

void StorageGoldenTrace::registerEverything() {
    CStorageManager_Initialize();
    CStorageManager_RegisterLocation(flash, "Flash", 16, 77);
    CStorageManager_RegisterLocation(eeprom, "Eeprom", 16, 0);
    CStorageManager_RegisterLocation(nowhere, "", 16, 0);
    CStorageManager_RegisterStorageProvider(&firstTable, first, "First");
    CStorageManager_RegisterStorageProvider(&secondTable, second, "Second");
    CStorageManager_AssignStorageProviderToLocation(flash, first);
    CStorageManager_ReserveWritableSpace(eeprom, 10);
    CStorageManager_AssignStorageProviderToLocation(eeprom, second);
    CStorageManager_AssignStorageProviderToLocation(nowhere, nobody);
    CStorageManager_AssignStorageProviderToLocation(nowhere, first);

    CStorageRegion *cfg = tree.region("Cfg", flash);
    CStorageObject *radio = tree.objectIn(cfg, "Radio");
    tree.integer(radio, "Gain", 1, &defaultGain);
    CStorageObject *tx = tree.nested(radio, "Tx");
    tree.integer(tx, "Low", 2, &defaultLow);
    tree.integer(tx, "High", 3);
    CStorageRegion *cal = tree.region("Cal", eeprom);
    CStorageObject *table = tree.objectIn(cal, "Table");
    tree.objectArray(table, "Filters", {"Wide", "", "Narrow"});
    tree.integer(table, "Count", 4);
    CStorageManager_RegisterRegion(cfg);
    CStorageManager_RegisterRegion(cal);
    CStorageManager_RegisterRegion(tree.region("Cfg", flash));
    CStorageManager_RegisterRegion(tree.region("Lost", nowhere));
    CStorageManager_RegisterRegion(tree.region("", flash));
}

void StorageGoldenTrace::lookUp() {
    CVariable *variable = nullptr;
    void *content = nullptr;
    unsigned long size = 0;
    CStorageManager_GetVariableByPath("Cfg/Radio/Tx/Low", &variable);
    CStorageManager_GetVariableByPath("Cal/Table/Count", &variable);
    CStorageManager_GetVariableByName("Gain", &variable);
    CStorageManager_GetVariableByName("Low", &variable);
    CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Tx", &content, &size);
    CStorageManager_GetVariableContentAddressByName("Count", &content, &size);
    CStorageManager_GetVariableContentAddressByName("Nothing", &content, &size);
}

void StorageGoldenTrace::storeAndReassign() {
    CStorageManager_StoreAll();
    CStorageManager_ReserveWritableSpace(flash, 100);
    CStorageManager_ReserveWritableSpace(flash, 101);
    CStorageManager_ReserveWritableSpace(nowhere, 1);
    CStorageManager_ReassignStorageProviderToLocation(nowhere, first);
    CStorageManager_ReassignStorageProviderToLocation(flash, second);
    CStorageManager_ReassignStorageProviderToLocation(eeprom, nobody);
    CStorageManager_ReserveWritableSpace(eeprom, 1);
    CStorageManager_StoreAll();
    CStorageManager_RemoveRegionFromLocation("Cfg", nowhere);
    CStorageManager_RemoveRegionFromLocation("Cal", flash);
    CStorageManager_RemoveRegionFromLocation("Cal", eeprom);
    CStorageManager_Uninitialize();
}

TEST_F(StorageGoldenTrace, OfAHostThatKeepsItsVariables_IsTheOneWrittenDown) {
    registerEverything();
    CStorageManager_UpdatePathHashTable();
    CStorageManager_InitializeAllProviders();
    CStorageManager_RetrieveAll();
    lookUp();
    storeAndReassign();
    test::expectGoldenTrace(GOLDEN_TRACE);

    std::vector<std::string> accesses;
    for (const test::DomainTrace &record : TraceRecorder::domainRecords()) {
        accesses.push_back(record.domain + " " + std::to_string(record.level) + " " + record.function + ": " +
                           record.text);
    }
    const std::vector<std::string> expected = {
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableByPath: Cfg/Radio/Tx/Low",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableByPath: Cal/Table/Count",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableByName: Gain",
        "ZEL.AF.STOR.ACC 7 CStorageObject_GetVariableByName: Gain",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableByName: Low",
        "ZEL.AF.STOR.ACC 7 CStorageObject_GetVariableByName: Low",
        "ZEL.AF.STOR.ACC 7 CStorageObject_GetVariableByName: Low",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableContentAddressByPath: Cfg/Radio/Tx",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableByPath: Cfg/Radio/Tx",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableContentAddressByName: Count",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableByName: Count",
        "ZEL.AF.STOR.ACC 7 CStorageObject_GetVariableByName: Count",
        "ZEL.AF.STOR.ACC 7 CStorageObject_GetVariableByName: Count",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableContentAddressByName: Nothing",
        "ZEL.AF.STOR.ACC 7 CStorageManager_GetVariableByName: Nothing",
        "ZEL.AF.STOR.ACC 7 CStorageObject_GetVariableByName: Nothing",
        "ZEL.AF.STOR.ACC 7 CStorageObject_GetVariableByName: Nothing",
    };
    EXPECT_EQ(expected, accesses);
}

} // namespace
