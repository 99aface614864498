#include "CDatabase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "StorageTree.h"
#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class CDatabaseTest : public testing::Test {
protected:
    CDatabaseTest() {
        std::memset(static_cast<void *>(&database), 0xA5, sizeof database);
        CDatabase_Construct(&database, 8);
        TraceRecorder::reset();
    }
    ~CDatabaseTest() override { CDatabase_Destruct(&database); }

    CStorageRegion *addRegion(const std::string &name) {
        CStorageRegion *region = tree.region(name);
        EXPECT_EQ(eAF_S_OK, CDatabase_AddRegion(&database, region));
        return region;
    }

    test::StorageTree tree;
    CDatabase database;
};

TEST_F(CDatabaseTest, Construct_MakesAnEmptyDatabase) {
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&database));
    EXPECT_EQ(0, database.noOfVariablesProcessed);
    EXPECT_EQ(0u, CHashTable_Count(&database.pathHashTable));
}

TEST_F(CDatabaseTest, WithoutRegions_LookUpsFindNothingAndAWalkSucceeds) {
    CVariable untouched;
    CVariable *variable = &untouched;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CDatabase_GetVariableByName(&database, "V", &variable));
    EXPECT_EQ(nullptr, variable);
    variable = &untouched;
    EXPECT_EQ(eAF_E_VARIABLE_HASH_TABLE_EMPTY, CDatabase_GetVariableByPath(&database, "R/O/V", &variable));
    EXPECT_EQ(&untouched, variable);
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    EXPECT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CDatabase_DoVariableOperation", "Number of variables processed: 0", eAF_DEBUG}));
}

TEST_F(CDatabaseTest, AddRegion_AppendsAndCounts) {
    addRegion("A");
    addRegion("B");
    EXPECT_EQ(2u, CDatabase_GetNoOfRegions(&database));
}

TEST_F(CDatabaseTest, AddRegion_OfATakenName_WarnsAndLeavesOne) {
    CStorageRegion *first = addRegion("A");
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CDatabase_AddRegion(&database, tree.region("A")));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CDatabase_AddRegion(&database, first));
    EXPECT_EQ(1u, CDatabase_GetNoOfRegions(&database));
    first->name[0] = '\0';
    EXPECT_EQ(eAF_S_OK, CDatabase_AddRegion(&database, tree.region("A"))) << "a nameless one is skipped";
}

TEST_F(CDatabaseTest, AddRegion_OfANamelessOrNoRegion_Fails) {
    EXPECT_EQ(eAF_E_FAILED, CDatabase_AddRegion(&database, nullptr));
    EXPECT_EQ(eAF_E_FAILED, CDatabase_AddRegion(&database, tree.region("")));
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&database));
}

TEST_F(CDatabaseTest, GetRegionByName_SkipsOneThatLostItsName) {
    addRegion("A")->name[0] = '\0';
    CStorageRegion *region = addRegion("B");
    CStorageRegion *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetRegionByName(&database, "B", &found));
    EXPECT_EQ(region, found);
    EXPECT_EQ(eAF_E_UNKNOWN_REGION, CDatabase_GetRegionByName(&database, "", &found));
}

TEST_F(CDatabaseTest, GetRegionByName_FindsTheExactName) {
    CStorageRegion *region = addRegion("Cfg");
    CStorageRegion *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetRegionByName(&database, "Cfg", &found));
    EXPECT_EQ(region, found);
    EXPECT_EQ(eAF_E_UNKNOWN_REGION, CDatabase_GetRegionByName(&database, "cfg", &found));
    EXPECT_EQ(nullptr, found);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetRegionByName(&database, nullptr, &found));
}

TEST_F(CDatabaseTest, RemoveRegion_OfAnUnknownName_TracesAndReturnsTheReason) {
    EXPECT_EQ(eAF_E_UNKNOWN_REGION, CDatabase_RemoveRegion(&database, "Cfg"));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CDatabase_RemoveRegion", "Could not get region", eAF_E_UNKNOWN_REGION}));
}

TEST_F(CDatabaseTest, RemoveRegion_DestructsTheUnmarkedOneAndFreesTheMarkedOne) {
    CStorageRegion *unmarked = addRegion("Unmarked");
    CStorageObject *object = tree.objectIn(unmarked, "O");
    tree.integer(object, "V");
    auto *marked = new CStorageRegion[1]();
    CStorageRegion_Construct(marked, "Marked", 1);
    CStorageRegion_SetDynamicallyAllocated(marked, 1);
    ASSERT_EQ(eAF_S_OK, CDatabase_AddRegion(&database, marked));
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "Unmarked"));
    EXPECT_EQ(1u, CStorageRegion_IsEmpty(unmarked));
    EXPECT_NE(0u, CStorageObject_IsEmpty(object));
    EXPECT_EQ(1u, CDatabase_GetNoOfRegions(&database));
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "Marked")); // the sanitizers watch it go
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&database));
}

TEST_F(CDatabaseTest, RemoveRegion_LeavesItsPathsInTheTable) {
    CStorageRegion *region = addRegion("Cfg");
    CVariable *variable = tree.integer(tree.objectIn(region, "Radio"), "Gain");
    addRegion("Other");
    CDatabase_UpdatePathHashTable(&database);
    ASSERT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "Cfg"));
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByPath(&database, "Cfg/Radio/Gain", &found));
    EXPECT_EQ(variable, found) << "the destructed one";
    EXPECT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByPath(&database, "Cfg/Radio/Gain", &found)) << "an update removes none";
}

TEST_F(CDatabaseTest, RemoveRegion_ComesThroughWhateverNestsInItsObjects) {
    CStorageRegion *region = addRegion("Cfg");
    CStorageObject *radio = tree.objectIn(region, "Radio");
    tree.objectIn(region, "Empty");
    tree.nested(radio, "Nameless")->name[0] = '\0';
    tree.variable(radio, {radio, TYPE_OBJECT, 1, "Itself", nullptr});
    tree.objectArray(radio, "Channels", {"C1", ""});
    void *none = nullptr;
    tree.variable(radio, {&none, TYPE_OBJECT_ARRAY, 2, "NoArray", nullptr})->content = nullptr;
    tree.integer(radio, "Gain");
    CDatabase_UpdatePathHashTable(&database);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "Cfg"));
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&database));
    EXPECT_THAT(TraceRecorder::failures(), IsEmpty()) << "what cannot be entered has no paths in the table";
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByPath(&database, "Cfg/Radio/Gain", &found));
}

TEST_F(CDatabaseTest, GetVariableByName_SearchesTopLevelObjectsInOrder) {
    CStorageRegion *first = addRegion("First");
    CStorageRegion *second = addRegion("Second");
    tree.integer(tree.objectIn(second, "O"), "Same", 2);
    CStorageObject *object = tree.objectIn(first, "O");
    CVariable *expected = tree.integer(object, "Same", 1);
    tree.integer(tree.nested(object, "Inner"), "Hidden");
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByName(&database, "Same", &found));
    EXPECT_EQ(expected, found);
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByName(&database, "Inner", &found));
    EXPECT_EQ(TYPE_OBJECT, found->type);
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CDatabase_GetVariableByName(&database, "Hidden", &found));
    EXPECT_EQ(nullptr, found);
    EXPECT_THAT(TraceRecorder::failures(), IsEmpty());
}

TEST_F(CDatabaseTest, GetVariableByPath_FindsNestedOnesOnceTheTableIsFilled) {
    CStorageRegion *region = addRegion("Cfg");
    CStorageObject *radio = tree.objectIn(region, "Radio");
    CVariable *gain = tree.integer(radio, "Gain");
    CVariable *lo = tree.integer(tree.nested(radio, "Tx"), "Lo");
    std::vector<CStorageObject *> &channels = tree.objectArray(radio, "Channels", {"C1", "C2"});
    CVariable *power = tree.integer(channels[1], "Power");
    ASSERT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    EXPECT_EQ(3, database.noOfVariablesProcessed);
    for (const auto &[path, expected] :
         {std::pair{"Cfg/Radio/Gain", gain}, {"Cfg/Radio/Tx/Lo", lo}, {"Cfg/Radio/C2/Power", power}}) {
        CVariable *found = nullptr;
        EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByPath(&database, path, &found)) << path;
        EXPECT_EQ(expected, found);
        EXPECT_STREQ(path, found->path);
    }
}

TEST_F(CDatabaseTest, GetVariableByPath_OfAnUnknownPath_TracesAtTheSecondDebugLevel) {
    tree.integer(tree.objectIn(addRegion("Cfg"), "Radio"), "Gain");
    CDatabase_UpdatePathHashTable(&database);
    TraceRecorder::reset();
    CVariable untouched;
    CVariable *found = &untouched;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CDatabase_GetVariableByPath(&database, "Cfg/Radio/Loss", &found));
    EXPECT_EQ(nullptr, found);
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(Line{"CDatabase_GetVariableByPath",
                                                         "eAF_E_UNKNOWN_VARIABLE, path: Cfg/Radio/Loss", eAF_DEBUG2}));
    EXPECT_EQ(test::levelOf(eAF_DEBUG2), TraceRecorder::records().at(0).level);
}

TEST_F(CDatabaseTest, ASecondUpdate_SetsEveryPathAgain) {
    CVariable *gain = tree.integer(tree.objectIn(addRegion("Cfg"), "Radio"), "Gain");
    CDatabase_UpdatePathHashTable(&database);
    EXPECT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    EXPECT_EQ(1u, CHashTable_Count(&database.pathHashTable));
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByPath(&database, "Cfg/Radio/Gain", &found));
    EXPECT_EQ(gain, found);
}

TEST_F(CDatabaseTest, ManyMorePathsThanTheTableWasSizedFor_AreAllFound) {
    CStorageObject *object = tree.objectIn(addRegion("R"), "O");
    for (int i = 0; i < 1000; ++i) {
        tree.integer(object, "V" + std::to_string(i), i);
    }
    TraceRecorder::reset(0, 0);
    ASSERT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    for (int i = 0; i < 1000; ++i) {
        CVariable *found = nullptr;
        ASSERT_EQ(eAF_S_OK, CDatabase_GetVariableByPath(&database, ("R/O/V" + std::to_string(i)).c_str(), &found));
        EXPECT_EQ(i, test::valueOf(found));
    }
}

TEST_F(CDatabaseTest, Destruct_DestructsEveryRegionAndFreesTheMarkedOnes) {
    CDatabase other;
    CDatabase_Construct(&other, 0);
    CStorageRegion *unmarked = tree.region("Unmarked");
    tree.objectIn(unmarked, "O");
    auto *marked = new CStorageRegion[1]();
    CStorageRegion_Construct(marked, "Marked", 1);
    CStorageRegion_SetDynamicallyAllocated(marked, 1);
    CDatabase_AddRegion(&other, unmarked);
    CDatabase_AddRegion(&other, marked);
    CDatabase_Destruct(&other);
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&other));
    EXPECT_EQ(1u, CStorageRegion_IsEmpty(unmarked));
}

TEST_F(CDatabaseTest, NullArguments_AreAnswered) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_SetAsNotRetrieved(nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_SetNotRetrievedVariablesToDefault(nullptr));
    CVariable *variable = nullptr;
    CDatabase_Construct(nullptr, 1);
    CDatabase_Destruct(nullptr);
    EXPECT_EQ(eAF_E_FAILED, CDatabase_AddRegion(nullptr, tree.region("R")));
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetVariableByName(nullptr, "V", &variable));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetVariableByName(&database, "V", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetVariableByPath(nullptr, "V", &variable));
    EXPECT_EQ(eAF_E_VARIABLE_HASH_TABLE_EMPTY, CDatabase_GetVariableByPath(&database, nullptr, &variable));
    tree.integer(tree.objectIn(addRegion("Cfg"), "Radio"), "Gain");
    CDatabase_UpdatePathHashTable(&database);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetVariableByPath(&database, nullptr, &variable));
    CStorageRegion *region = tree.region("R");
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetRegionByName(&database, nullptr, &region));
    EXPECT_EQ(nullptr, region);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_DoVariableOperation(nullptr, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_DoVariableOperation(&database, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_UpdatePathHashTable(nullptr));
}

TEST_F(CDatabaseTest, RemoveRegion_FromAnyPlace_LeavesTheOthersInOrderAndRoomBehindThem) {
    const auto names = [this] {
        std::string walked;
        CVariable *found = nullptr;
        for (const char *name : {"A", "B", "C", "D"}) {
            CStorageRegion *region = nullptr;
            if (CDatabase_GetRegionByName(&database, name, &region) == eAF_S_OK) {
                walked += name;
            }
        }
        EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CDatabase_GetVariableByName(&database, "None", &found));
        EXPECT_EQ(walked.size(), CDatabase_GetNoOfRegions(&database));
        return walked;
    };
    addRegion("A");
    addRegion("B");
    addRegion("C");
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "C")); // the last
    addRegion("D");
    EXPECT_EQ("ABD", names());
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "B")); // one between
    EXPECT_EQ("AD", names());
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "A")); // the first
    EXPECT_EQ(eAF_S_OK, CDatabase_RemoveRegion(&database, "D")); // the only one
    EXPECT_EQ("", names());
    addRegion("C");
    EXPECT_EQ("C", names());
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    EXPECT_THAT(TraceRecorder::lines(),
                Contains(Line{"CDatabase_DoVariableOperation", "Processing region: C", eAF_DEBUG}));
}

TEST_F(CDatabaseTest, AddRegion_OfATakenName_LeavesTheRefusedRegionWhole) {
    addRegion("A");
    CStorageRegion *refused = tree.region("A");
    tree.integer(tree.objectIn(refused, "O"), "V");
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CDatabase_AddRegion(&database, refused));
    EXPECT_EQ(1u, CStorageRegion_GetNoOfObjects(refused));
    CStorageRegion_Destruct(refused);
}

TEST_F(CDatabaseTest, RemoveRegion_PassesTheCodeOfItsSearchOn) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_RemoveRegion(nullptr, "Cfg"));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CDatabase_RemoveRegion", "Could not get region", eAF_E_INVALID_ARGUMENT}));
}

TEST_F(CDatabaseTest, NoPlaceForAnAnswer_IsRefused) {
    tree.integer(tree.objectIn(addRegion("Cfg"), "Radio"), "Gain");
    CDatabase_UpdatePathHashTable(&database);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetRegionByName(&database, "Cfg", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetVariableByPath(&database, "Cfg/Radio/Gain", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CDatabase_GetVariableByPath(&database, "None", nullptr));
}

TEST_F(CDatabaseTest, GetVariableByName_LogsOneAccessForEachObjectThatItSearches) {
    CStorageRegion *region = addRegion("Cfg");
    tree.objectIn(region, "A");
    tree.integer(tree.objectIn(region, "B"), "Gain");
    tree.objectIn(region, "C");
    TraceRecorder::reset();
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByName(&database, "Gain", &found));
    EXPECT_EQ(2u, TraceRecorder::domainRecords().size()) << "it stops at the first hit";
}

TEST_F(CDatabaseTest, GetVariableByName_WithoutAName_IsTracedByEachObjectAndFindsNothing) {
    CStorageRegion *region = addRegion("Cfg");
    tree.objectIn(region, "A");
    tree.objectIn(region, "B");
    TraceRecorder::reset();
    CVariable untouched;
    CVariable *found = &untouched;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CDatabase_GetVariableByName(&database, nullptr, &found));
    EXPECT_EQ(nullptr, found);
    const Line noName{"CStorageObject_GetVariableByName",
                      "CStorageObject_GetVariableByName is calling with pszVariableName = NULL",
                      eAF_E_INVALID_ARGUMENT};
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(noName, noName));
}

} // namespace
