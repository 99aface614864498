// Containers and variables that fail under a walk.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CDatabase.h"
#include "CStorageManager.h"
#include "ListFaults.h"
#include "StorageTree.h"
#include "TraceRecorder.h"

namespace {

EAFResult contentAddressAnswer = eAF_S_OK;
EAFResult defaultAddressAnswer = eAF_S_OK;
EAFResult setPathAnswer = eAF_S_OK;
EAFResult getPathAnswer = eAF_S_OK;
bool getPathGivesNull = false;

template <class Function>
Function *librarys(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace {

std::vector<std::string> destructions;

} // namespace

EAFResult CVariable_Destruct(CVariable *variable) {
    static auto *const own = librarys<decltype(CVariable_Destruct)>("CVariable_Destruct");
    destructions.emplace_back(variable->name);
    return own(variable);
}
void CStorageObject_Destruct(CStorageObject *object) {
    static auto *const own = librarys<decltype(CStorageObject_Destruct)>("CStorageObject_Destruct");
    destructions.emplace_back(object->name);
    own(object);
}
void CStorageRegion_Destruct(CStorageRegion *region) {
    static auto *const own = librarys<decltype(CStorageRegion_Destruct)>("CStorageRegion_Destruct");
    destructions.emplace_back(region->name);
    own(region);
}

// The library calls its own exported operations as any program would: these come first.
EAFResult CVariable_GetContentAddress(CVariable *variable, void **out) {
    static auto *const own = librarys<decltype(CVariable_GetContentAddress)>("CVariable_GetContentAddress");
    return contentAddressAnswer != eAF_S_OK ? contentAddressAnswer : own(variable, out);
}
EAFResult CVariable_GetDefaultContentAddress(CVariable *variable, void **out) {
    static auto *const own =
        librarys<decltype(CVariable_GetDefaultContentAddress)>("CVariable_GetDefaultContentAddress");
    return defaultAddressAnswer != eAF_S_OK ? defaultAddressAnswer : own(variable, out);
}
EAFResult CVariable_SetPath(CVariable *variable, const char *a, const char *b, const char *c) {
    static auto *const own = librarys<decltype(CVariable_SetPath)>("CVariable_SetPath");
    return setPathAnswer != eAF_S_OK ? setPathAnswer : own(variable, a, b, c);
}
EAFResult CVariable_GetPath(CVariable *variable, const char **out) {
    static auto *const own = librarys<decltype(CVariable_GetPath)>("CVariable_GetPath");
    const EAFResult result = getPathAnswer != eAF_S_OK ? getPathAnswer : own(variable, out);
    *out = getPathGivesNull ? nullptr : *out;
    return result;
}

namespace {

using test::Line;
using test::listFaults;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

EAFResult nothing(CDatabase *, CVariable *, const char *, const char *, const char *, const char *) {
    return eAF_S_OK;
}

class DatabaseWalkFaults : public testing::Test {
protected:
    DatabaseWalkFaults() {
        CDatabase_Construct(&database, 8);
        CStorageRegion *region = tree.region("Cfg");
        CDatabase_AddRegion(&database, region);
        radio = tree.objectIn(region, "Radio");
        gain = tree.integer(radio, "Gain", 1, &defaultValue);
        TraceRecorder::reset();
    }
    ~DatabaseWalkFaults() override {
        setBack();
        CDatabase_Destruct(&database);
    }
    static void setBack() {
        listFaults() = {};
        contentAddressAnswer = defaultAddressAnswer = setPathAnswer = getPathAnswer = eAF_S_OK;
    }
    static Line object(const std::string &message, std::uint32_t code) {
        return {"CDatabase_DoObjectOperation", message, code};
    }

    const std::int32_t defaultValue = 20;
    test::StorageTree tree;
    CDatabase database{};
    CStorageObject *radio;
    CVariable *gain;
};

TEST_F(DatabaseWalkFaults, AnIterationThatDoesNotStart_IsTracedAndFailsTheWalk) {
    listFaults().startIteration = 0x8005;
    EXPECT_EQ(eAF_E_FAILED, CDatabase_DoVariableOperation(&database, nothing));
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(object("Could not get variable iterator", eAF_E_FAILED)));
}

TEST_F(DatabaseWalkFaults, AnIterationThatBreaksOff_IsTracedAndFailsTheWalk) {
    listFaults().getNext = 0x8004;
    EXPECT_EQ(eAF_E_FAILED, CDatabase_DoVariableOperation(&database, nothing));
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(object("Could not get variable", eAF_E_FAILED)));
}

TEST_F(DatabaseWalkFaults, RemoveRegion_OfAnIterationThatDoesNotStart_RemovesItAllTheSame) {
    CDatabase_UpdatePathHashTable(&database);
    listFaults().startIteration = 0x8005;
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "Cfg"));
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&database));
}

TEST_F(DatabaseWalkFaults, RemoveRegion_OfAnIterationThatBreaksOff_RemovesItAllTheSame) {
    CDatabase_UpdatePathHashTable(&database);
    listFaults().getNext = 0x8004;
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "Cfg"));
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&database));
}

TEST_F(DatabaseWalkFaults, AContentThatCanNotBeHad_FailsNestedObjectsAndArrays) {
    tree.integer(tree.nested(radio, "Tx"), "Lo");
    tree.objectArray(radio, "Channels", {"C1"});
    contentAddressAnswer = eAF_E_STACK_EMPTY;
    EXPECT_EQ(eAF_E_FAILED, CDatabase_DoVariableOperation(&database, nothing));
    EXPECT_EQ(1, database.noOfVariablesProcessed);
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(object("CVariable_GetContentAddress() failed", eAF_E_FAILED),
                                                       object("CVariable_GetContentAddress() failed", eAF_E_FAILED)));
}

TEST_F(DatabaseWalkFaults, APathThatCanNotBeFiled_IsTracedTwiceAndTheWalkSucceeds) {
    listFaults().hashSet = 0x8005;
    EXPECT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    EXPECT_STREQ("", gain->path);
    EXPECT_THAT(
        TraceRecorder::failures(),
        ElementsAre(Line{"CDatabase_ActionUpdateHash", "Could not add to variable hash table", 0x8005},
                    object("Could not do operation on variable Gain", eAF_E_COULD_NOT_ADD_TO_VARIABLE_HASH_TABLE)));
}

TEST_F(DatabaseWalkFaults, APathThatCanNotBeSet_IsTracedWithTheName) {
    setPathAnswer = eAF_E_STACK_EMPTY;
    EXPECT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(Line{"CDatabase_ActionUpdateHash", "Could not set variable path in variable Gain",
                                 eAF_E_STACK_EMPTY},
                            object("Could not do operation on variable Gain", eAF_E_FAILED)));
}

TEST_F(DatabaseWalkFaults, SetToDefault_WithoutTheContentAddress_ReturnsItsCode) {
    contentAddressAnswer = eAF_E_STACK_EMPTY;
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_THAT(
        TraceRecorder::failures(),
        ElementsAre(Line{"CDatabase_ActionSetToDefault", "Could not get variable content address", eAF_E_STACK_EMPTY},
                    object("Could not do operation on variable Gain", eAF_E_STACK_EMPTY)));
}

TEST_F(DatabaseWalkFaults, SetToDefault_WithoutTheDefaultAddress_ReturnsItsCode) {
    defaultAddressAnswer = eAF_E_STACK_EMPTY;
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(1, test::valueOf(gain));
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(Line{"CDatabase_ActionSetToDefault", "Could not get variable default content address",
                                 eAF_E_STACK_EMPTY},
                            object("Could not do operation on variable Gain", eAF_E_STACK_EMPTY)));
}

TEST_F(DatabaseWalkFaults, SetToDefault_WithoutThePath_WarnsWithAndWithoutADefault) {
    tree.integer(radio, "Bare", 7);
    getPathAnswer = eAF_E_FAILED;
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(20, test::valueOf(gain));
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(Line{"CDatabase_ActionSetToDefault",
                                 "**WARNING** Variable Gain missing in storage, applying default value",
                                 eAF_W_VARIABLE_MISSING_IN_STORAGE},
                            Line{"CDatabase_ActionSetToDefault",
                                 "**WARNING** Variable Bare missing in storage, default value not available",
                                 eAF_W_VARIABLE_MISSING_IN_STORAGE}));
}

TEST_F(DatabaseWalkFaults, ATableWithoutMemory_FindsNothingAndRefusesALocation) {
    listFaults().hashConstruct = 0x8005;
    CDatabase other{};
    CDatabase_Construct(&other, 8);
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CStorageManager_RegisterLocation(1, "flash", 8, 0));
    listFaults().hashConstruct = 0;
    CVariable *found = gain;
    EXPECT_EQ(eAF_E_VARIABLE_HASH_TABLE_EMPTY, CDatabase_GetVariableByPath(&other, "Cfg/Radio/Gain", &found));
    EXPECT_EQ(gain, found);
    CDatabase_Destruct(&other);
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_ReserveWritableSpace(1, 1)) << "no location was left behind";
}

TEST_F(DatabaseWalkFaults, AContentAddressThatFails_EndsTheLookUpOfContents) {
    CStorageManager_RegisterLocation(1, "flash", 8, 0);
    test::StorageTree other;
    CStorageRegion *region = other.region("Cfg", 1);
    other.integer(other.objectIn(region, "Radio"), "Gain");
    CStorageManager_RegisterRegion(region);
    CStorageManager_UpdatePathHashTable();
    contentAddressAnswer = eAF_E_STACK_EMPTY;
    TraceRecorder::reset();
    void *content = &other;
    unsigned long size = 99;
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Gain", &content, &size));
    EXPECT_EQ(0u, size);
    size = 99;
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_GetVariableContentAddressByName("Gain", &content, &size));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(&other, content);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_GetVariableContentAddressByPath",
                                 "Could not get content address for variable using path Cfg/Radio/Gain", eAF_E_FAILED},
                            Line{"CStorageManager_GetVariableContentAddressByName",
                                 "Could not get content address for variable Gain", eAF_E_FAILED}));
    contentAddressAnswer = eAF_S_OK;
    CStorageManager_Uninitialize();
}

TEST_F(DatabaseWalkFaults, AWalkThatFails_IsAWarningOfThePathUpdate) {
    CStorageManager_RegisterLocation(1, "flash", 8, 0);
    test::StorageTree other;
    CStorageRegion *region = other.region("Cfg", 1);
    other.integer(other.objectIn(region, "Radio"), "Gain");
    CStorageManager_RegisterRegion(region);
    listFaults().getNext = 0x8004;
    TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    EXPECT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(object("Could not get variable", eAF_E_FAILED),
                    Line{"updatePathHashTable", "Could not update path hash table in database", eAF_W_WARNING}));
    EXPECT_EQ(test::levelOf(eAF_W_WARNING), TraceRecorder::records().back().level);
    TraceRecorder::reset(test::levelOf(eAF_E_FAILED));
    EXPECT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(object("Could not get variable", eAF_E_FAILED)));
    listFaults() = {};
    CStorageManager_Uninitialize();
}

TEST_F(DatabaseWalkFaults, SetToDefault_WithAPathThatIsNull_WarnsToo) {
    tree.integer(radio, "Bare", 7);
    getPathGivesNull = true;
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    getPathGivesNull = false;
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(Line{"CDatabase_ActionSetToDefault",
                                 "**WARNING** Variable Gain missing in storage, applying default value",
                                 eAF_W_VARIABLE_MISSING_IN_STORAGE},
                            Line{"CDatabase_ActionSetToDefault",
                                 "**WARNING** Variable Bare missing in storage, default value not available",
                                 eAF_W_VARIABLE_MISSING_IN_STORAGE}));
}

TEST_F(DatabaseWalkFaults, Destruct_GivesEverythingUpFromTheFront) {
    CDatabase other;
    CDatabase_Construct(&other, 4);
    test::StorageTree owned;
    for (const char *name : {"R1", "R2"}) {
        CStorageRegion *region = owned.region(name);
        CDatabase_AddRegion(&other, region);
        for (const char *suffix : {"a", "b"}) {
            CStorageObject *object = owned.objectIn(region, std::string(name) + suffix);
            owned.integer(object, std::string(name) + suffix + "1");
            owned.integer(object, std::string(name) + suffix + "2");
        }
    }
    destructions.clear();
    CDatabase_Destruct(&other);
    EXPECT_THAT(destructions, ElementsAre("R1", "R1a", "R1a1", "R1a2", "R1b", "R1b1", "R1b2", "R2", "R2a", "R2a1",
                                          "R2a2", "R2b", "R2b1", "R2b2"));
}

TEST_F(DatabaseWalkFaults, Uninitialize_DestructsTheDatabasesBetweenItsTraces) {
    CStorageManager_RegisterLocation(1, "flash", 8, 0);
    test::StorageTree other;
    CStorageRegion *region = other.region("Cfg", 1);
    other.integer(other.objectIn(region, "Radio"), "Gain");
    CStorageManager_RegisterRegion(region);
    TraceRecorder::reset();
    listFaults().popHead = 0x8004; // makes the destruction of an object visible
    EXPECT_EQ(eAF_S_OK, CStorageManager_Uninitialize());
    listFaults() = {};
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_Uninitialize", "Cleanup provider list", eAF_DEBUG},
                            Line{"CStorageManager_Uninitialize", "Cleanup location list", eAF_DEBUG},
                            Line{"CStorageObject_Destruct", "Failed to pop head from non-empty list", 0x8004},
                            Line{"CStorageManager_Uninitialize", "Cleanup of providerList and locationList finished",
                                 eAF_DEBUG}));
}

} // namespace
