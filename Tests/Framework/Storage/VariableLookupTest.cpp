// Finding variables across all locations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CStorageManager.h"
#include "StorageTree.h"
#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class VariableLookup : public testing::Test {
protected:
    VariableLookup() {
        CStorageManager_RegisterLocation(1, "First", 4, 0);
        CStorageManager_RegisterLocation(2, "Second", 4, 0);
        // The second location is registered later, whatever comes into it first.
        CStorageRegion *second = tree.region("Cal", 2);
        CStorageManager_RegisterRegion(second);
        sameInSecond = tree.integer(tree.objectIn(second, "O"), "Same", 2);
        onlyInSecond = tree.integer(tree.objectIn(second, "P"), "Only", 3);
        CStorageRegion *first = tree.region("Cfg", 1);
        CStorageManager_RegisterRegion(first);
        CStorageObject *radio = tree.objectIn(first, "Radio");
        sameInFirst = tree.integer(radio, "Same", 1);
        lo = tree.integer(tree.nested(radio, "Tx"), "Lo", 4);
    }
    ~VariableLookup() override { CStorageManager_Uninitialize(); }
    VariableLookup(const VariableLookup &) = delete;
    VariableLookup &operator=(const VariableLookup &) = delete;

    static void update() {
        ASSERT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
        TraceRecorder::reset();
    }

    test::StorageTree tree;
    CVariable *sameInFirst;
    CVariable *sameInSecond;
    CVariable *onlyInSecond;
    CVariable *lo;
    CVariable sentinel{};
};

TEST_F(VariableLookup, ByPath_BeforeTheTableIsFilled_LeavesTheOutPointer) {
    TraceRecorder::reset();
    CVariable *found = &sentinel;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableByPath("Cfg/Radio/Same", &found));
    EXPECT_EQ(&sentinel, found);
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(VariableLookup, ByPath_FindsAcrossLocationsAndNestedObjects) {
    update();
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath("Cfg/Radio/Tx/Lo", &found));
    EXPECT_EQ(lo, found);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath("Cal/P/Only", &found));
    EXPECT_EQ(onlyInSecond, found);
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(Line{"CDatabase_GetVariableByPath",
                                                         "eAF_E_UNKNOWN_VARIABLE, path: Cal/P/Only", eAF_DEBUG2}))
        << "of the location that was asked first";
}

TEST_F(VariableLookup, ByPath_OfAnUnknownPath_HasEachDatabaseTraceAndGivesNull) {
    update();
    CVariable *found = &sentinel;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableByPath("No", &found));
    EXPECT_EQ(nullptr, found);
    const Line line{"CDatabase_GetVariableByPath", "eAF_E_UNKNOWN_VARIABLE, path: No", eAF_DEBUG2};
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(line, line)) << "and no line of its own";
}

TEST_F(VariableLookup, ByName_TakesTheEarlierRegisteredLocation) {
    TraceRecorder::reset();
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByName("Same", &found));
    EXPECT_EQ(sameInFirst, found);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByName("Only", &found));
    EXPECT_EQ(onlyInSecond, found);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByName("Tx", &found));
    EXPECT_EQ(TYPE_OBJECT, found->type) << "a nested object's variable";
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(VariableLookup, ByName_DoesNotSeeIntoNestedObjects) {
    TraceRecorder::reset();
    CVariable *found = &sentinel;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableByName("Lo", &found));
    EXPECT_EQ(nullptr, found);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_GetVariableByName", "Could not find variable with name Lo",
                                 eAF_E_UNKNOWN_VARIABLE}));
}

TEST_F(VariableLookup, ContentAddressByPath_GivesAddressAndSize) {
    update();
    void *content = nullptr;
    unsigned long size = 99;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Tx/Lo", &content, &size));
    EXPECT_EQ(lo->content, content);
    EXPECT_EQ(4u, size);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Tx/Lo", &content, nullptr));
}

TEST_F(VariableLookup, ContentAddressByPath_OfAnUnknownPath_TracesOneCodeAndReturnsAnother) {
    update();
    TraceRecorder::reset(test::levelOf(eAF_E_FAILED));
    void *content = &sentinel;
    unsigned long size = 99;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableContentAddressByPath("No", &content, &size));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(&sentinel, content);
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(Line{"CStorageManager_GetVariableContentAddressByPath",
                                                         "Could not find variable using path No", eAF_E_FAILED}));
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableContentAddressByPath("No", &content, nullptr));
}

TEST_F(VariableLookup, ContentAddressByName_GivesAddressAndSizeOrTracesOnce) {
    TraceRecorder::reset();
    void *content = nullptr;
    unsigned long size = 99;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByName("Same", &content, &size));
    EXPECT_EQ(sameInFirst->content, content);
    EXPECT_EQ(4u, size);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByName("Same", &content, nullptr));
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableContentAddressByName("No", &content, &size));
    EXPECT_EQ(0u, size);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_GetVariableByName", "Could not find variable with name No",
                                 eAF_E_UNKNOWN_VARIABLE}));
}

TEST_F(VariableLookup, NullAndEmptyArguments_AreRefusedUntracedAndTouchNothing) {
    update();
    CVariable *found = &sentinel;
    void *content = &sentinel;
    unsigned long size = 99;
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableByPath(nullptr, &found));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableByPath("", &found));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableByPath("P", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableByName(nullptr, &found));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableByName("", &found));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableByName("N", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableContentAddressByPath(nullptr, &content, &size));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableContentAddressByPath("", &content, &size));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableContentAddressByPath("P", nullptr, &size));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableContentAddressByName(nullptr, &content, &size));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableContentAddressByName("", &content, &size));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_GetVariableContentAddressByName("N", nullptr, &size));
    EXPECT_EQ(&sentinel, found);
    EXPECT_EQ(&sentinel, content);
    EXPECT_EQ(99u, size);
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

std::vector<std::string> accesses() {
    std::vector<std::string> result;
    for (const test::DomainTrace &record : TraceRecorder::domainRecords()) {
        EXPECT_EQ("ZEL.AF.STOR.ACC", record.domain);
        EXPECT_EQ(7, record.level);
        result.push_back(record.function + ": " + record.text);
    }
    return result;
}

TEST_F(VariableLookup, EveryCall_IsLoggedBeforeItsArgumentsAreChecked) {
    update();
    CVariable *found = nullptr;
    CStorageManager_GetVariableByPath("Cfg/Radio/Same", &found);
    CStorageManager_GetVariableByPath(nullptr, nullptr);
    CStorageManager_GetVariableByName("", nullptr);
    CStorageManager_GetVariableContentAddressByName(nullptr, nullptr, nullptr);
    EXPECT_THAT(accesses(), ElementsAre("CStorageManager_GetVariableByPath: Cfg/Radio/Same",
                                        "CStorageManager_GetVariableByPath: ", "CStorageManager_GetVariableByName: ",
                                        "CStorageManager_GetVariableContentAddressByName: "));
    EXPECT_THAT(TraceRecorder::domainRecords().at(0).file, testing::HasSubstr("CStorageManager.cpp"));
}

TEST_F(VariableLookup, OneContentAddressCall_LogsTwoLines) {
    update();
    void *content = nullptr;
    CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Same", &content, nullptr);
    EXPECT_THAT(accesses(), ElementsAre("CStorageManager_GetVariableContentAddressByPath: Cfg/Radio/Same",
                                        "CStorageManager_GetVariableByPath: Cfg/Radio/Same"));
    TraceRecorder::reset();
    CStorageManager_GetVariableContentAddressByName("Same", &content, nullptr);
    EXPECT_THAT(accesses(),
                ElementsAre("CStorageManager_GetVariableContentAddressByName: Same",
                            "CStorageManager_GetVariableByName: Same", "CStorageObject_GetVariableByName: Same"))
        << "and the object that is searched logs its own";
}

TEST_F(VariableLookup, BelowLevel7_NothingIsLogged) {
    update();
    TraceRecorder::reset(TraceRecorder::everything, 6);
    CVariable *found = nullptr;
    CStorageManager_GetVariableByPath("Cfg/Radio/Same", &found);
    CStorageManager_GetVariableByName("Same", &found);
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
}

TEST_F(VariableLookup, ContentAddressByPath_OfARemovedRegionWhoseVariablesAreTheCallers_StillAnswers) {
    CStorageRegion *region = tree.region("Gone", 1);
    CStorageManager_RegisterRegion(region);
    CVariable *kept = tree.integer(tree.objectIn(region, "O"), "V", 5);
    update();
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    void *content = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Gone/O/V", &content, &size));
    EXPECT_EQ(kept->content, content);
    EXPECT_EQ(4u, size);
}

/// A region, an object and a variable that are the library's to free.
void registerOwned(const char *regionName, std::int32_t value) {
    auto *region = new CStorageRegion[1]();
    CStorageRegion_Construct(region, regionName, 1);
    CStorageRegion_SetDynamicallyAllocated(region, 1);
    auto *object = new CStorageObject[1]();
    CStorageObject_Construct(object, "O");
    CStorageObject_SetDynamicallyAllocated(object, 1);
    SVariableDescriptor descriptor{nullptr, TYPE_INT32, 1, "V", nullptr};
    CStorageObject_CreateVariables(object, &descriptor, 1);
    CStorageRegion_AddObject(region, object);
    CStorageManager_RegisterRegion(region);
    CVariable *variable = nullptr;
    CStorageObject_GetVariableByName(object, "V", &variable);
    CVariable_SetContent(variable, &value);
}

TEST_F(VariableLookup, ContentAddressByPath_OfAFreedVariable_NeverLeadsToWhoeverGotItsMemory) {
    for (int i = 0; i < 20; ++i) {
        registerOwned("Old", 1);
        update();
        ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Old", 1));
        registerOwned("New", 2);
        CStorageManager_UpdatePathHashTable();
        void *content = nullptr;
        EXPECT_EQ(eAF_E_FAILED, CStorageManager_GetVariableContentAddressByPath("Old/O/V", &content, nullptr));
        EXPECT_EQ(nullptr, content);
        ASSERT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("New/O/V", &content, nullptr));
        EXPECT_EQ(2, *static_cast<std::int32_t *>(content));
        ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("New", 1));
    }
    registerOwned("Old", 3);
    CStorageManager_UpdatePathHashTable();
    void *content = nullptr;
    ASSERT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Old/O/V", &content, nullptr));
    EXPECT_EQ(3, *static_cast<std::int32_t *>(content)) << "a path that is filed anew leads to the new variable";
}

TEST_F(VariableLookup, ContentAddressByPath_OfAVariableThatWasFreedBeforeItsPathWasFiled_IsUnknown) {
    update();
    registerOwned("Gone", 1);
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    update();
    void *content = nullptr;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableContentAddressByPath("Gone/O/V", &content, nullptr));
    EXPECT_EQ(nullptr, content);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Tx/Lo", &content, nullptr));
    EXPECT_EQ(lo->content, content);
}

TEST_F(VariableLookup, ContentAddressByPath_OfAFreedVariableWhosePathWasCut_FailsToo) {
    CStorageRegion *region = tree.region("Deep", 1);
    CStorageObject *object = tree.objectIn(region, "O");
    std::string path = "Deep/O";
    for (int i = 0; i < 6; ++i) {
        const std::string name(100, static_cast<char>('a' + i));
        object = tree.nested(object, name);
        path += "/" + name;
    }
    SVariableDescriptor descriptor{nullptr, TYPE_INT32, 1, "V", nullptr};
    ASSERT_EQ(eAF_S_OK, CStorageObject_CreateVariables(object, &descriptor, 1));
    CStorageManager_RegisterRegion(region);
    update();
    path.resize(511);
    void *content = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath(path.c_str(), &content, nullptr));
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Deep", 1));
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_GetVariableContentAddressByPath(path.c_str(), &content, nullptr));
}

TEST_F(VariableLookup, ContentAddressByPath_OfEachFreedVariable_Fails) {
    CStorageRegion *region = tree.region("Gone", 1);
    CStorageObject *object = tree.objectIn(region, "O");
    std::vector<SVariableDescriptor> descriptors{{nullptr, TYPE_INT32, 1, "ALongName", nullptr},
                                                 {nullptr, TYPE_INT32, 1, "V", nullptr}};
    for (CStorageObject *each : {object, tree.nested(object, "N"), tree.objectArray(object, "Es", {"E0", "E1"})[0],
                                 tree.objectArray(object, "Fs", {"F0", "F1"})[1]}) {
        ASSERT_EQ(eAF_S_OK, CStorageObject_CreateVariables(each, descriptors.data(), descriptors.size()));
    }
    CStorageManager_RegisterRegion(region);
    update();
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    for (const char *path : {"Gone/O/ALongName", "Gone/O/V", "Gone/O/N/ALongName", "Gone/O/N/V", "Gone/O/E0/ALongName",
                             "Gone/O/E0/V", "Gone/O/F1/ALongName", "Gone/O/F1/V"}) {
        void *content = nullptr;
        EXPECT_EQ(eAF_E_FAILED, CStorageManager_GetVariableContentAddressByPath(path, &content, nullptr)) << path;
    }
}

TEST_F(VariableLookup, ContentAddressByPath_ThatAFreedVariableSharedWithTheCallers_StillAnswers) {
    CStorageRegion *region = tree.region("Gone", 1);
    CStorageObject *object = tree.objectIn(region, "O");
    SVariableDescriptor descriptor{nullptr, TYPE_INT32, 1, "A/B", nullptr};
    ASSERT_EQ(eAF_S_OK, CStorageObject_CreateVariables(object, &descriptor, 1));
    CVariable *kept = tree.integer(tree.nested(object, "A"), "B", 5);
    CStorageManager_RegisterRegion(region);
    update();
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    void *content = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Gone/O/A/B", &content, nullptr));
    EXPECT_EQ(kept->content, content) << "it was filed last";
}

// A path outlives its region: what it leads to may be freed.
TEST_F(VariableLookup, ContentAddressByPath_OfARemovedRegion_FailsInsteadOfTouchingFreedMemory) {
    registerOwned("Gone", 5);
    update();
    CVariable *before = nullptr;
    ASSERT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath("Gone/O/V", &before));
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    TraceRecorder::reset();
    CVariable *after = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath("Gone/O/V", &after));
    EXPECT_EQ(before, after);
    void *content = nullptr;
    unsigned long size = 99;
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_GetVariableContentAddressByPath("Gone/O/V", &content, &size));
    EXPECT_EQ(0u, size);
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(Line{"CStorageManager_GetVariableContentAddressByPath",
                                 "Could not get content address for variable using path Gone/O/V", eAF_E_FAILED}));
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Tx/Lo", &content, &size));
    EXPECT_EQ(lo->content, content) << "the others go on";
}

TEST_F(VariableLookup, ContentAddressByPath_AfterARegionWasRemoved_StillReachesIntoArraysAndLoops) {
    CStorageRegion *region = tree.region("Array", 1);
    CStorageManager_RegisterRegion(region);
    CStorageObject *object = tree.objectIn(region, "O");
    auto &elements = tree.objectArray(object, "Es", {"", "E1", ""});
    elements[2] = object; // leads back
    CVariable *deep = tree.integer(tree.nested(elements[1], "N"), "Deep", 5);
    CVariable *behind = tree.integer(object, "Behind", 6);
    CStorageManager_RegisterRegion(tree.region("Gone", 1));
    update();
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    void *content = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Array/O/E1/N/Deep", &content, nullptr));
    EXPECT_EQ(deep->content, content);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Array/O/Behind", &content, nullptr));
    EXPECT_EQ(behind->content, content);
    elements[2] = nullptr;
}

TEST_F(VariableLookup, WithoutALocation_TheOutPointerIsLeft) {
    CStorageManager_Uninitialize();
    TraceRecorder::reset();
    CVariable *found = &sentinel;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableByName("Same", &found));
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableByPath("Cfg/Radio/Same", &found));
    EXPECT_EQ(&sentinel, found);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_GetVariableByName", "Could not find variable with name Same",
                                 eAF_E_UNKNOWN_VARIABLE}));
}

TEST_F(VariableLookup, ByPath_OfAPathInTwoLocations_TakesTheEarlierRegisteredOne) {
    CStorageRegion *region = tree.region("Cfg", 2);
    CStorageManager_RegisterRegion(region);
    tree.integer(tree.objectIn(region, "Radio"), "Same", 9);
    update();
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath("Cfg/Radio/Same", &found));
    EXPECT_EQ(sameInFirst, found);
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty()) << "the second is not asked";
}

TEST_F(VariableLookup, ByPath_ADatabaseWithoutPaths_IsPassedOverWithoutATrace) {
    CStorageManager_RegisterLocation(3, "Empty", 4, 0);
    update();
    CVariable *found = &sentinel;
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableByPath("No", &found));
    EXPECT_EQ(nullptr, found) << "from those that have some";
    EXPECT_EQ(2u, TraceRecorder::lines().size());
}

TEST_F(VariableLookup, AllFour_AreLoggedWithoutAPathOrName) {
    update();
    CVariable *found = nullptr;
    void *content = nullptr;
    for (const char *nothing : {static_cast<const char *>(nullptr), ""}) {
        TraceRecorder::reset();
        CStorageManager_GetVariableByPath(nothing, &found);
        CStorageManager_GetVariableContentAddressByPath(nothing, &content, nullptr);
        CStorageManager_GetVariableByName(nothing, &found);
        CStorageManager_GetVariableContentAddressByName(nothing, &content, nullptr);
        EXPECT_THAT(
            accesses(),
            ElementsAre("CStorageManager_GetVariableByPath: ", "CStorageManager_GetVariableContentAddressByPath: ",
                        "CStorageManager_GetVariableByName: ", "CStorageManager_GetVariableContentAddressByName: "));
    }
}

TEST_F(VariableLookup, ContentAddressByPath_AfterARemoval_StillAnswersForEveryLocation) {
    CStorageManager_RegisterRegion(tree.region("Gone", 1));
    update();
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    void *content = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Cal/P/Only", &content, nullptr));
    EXPECT_EQ(onlyInSecond->content, content);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Cfg/Radio/Tx/Lo", &content, nullptr));
    EXPECT_EQ(lo->content, content);
}

TEST_F(VariableLookup, ContentAddressByPath_AfterARemoval_SeesIntoArraysAndPastObjectsWithinThemselves) {
    CStorageRegion *region = tree.region("Deep", 2);
    CStorageManager_RegisterRegion(region);
    CStorageObject *object = tree.objectIn(region, "O");
    tree.variable(object, {object, TYPE_OBJECT, 1, "Self", nullptr});
    CVariable *inArray = tree.integer(tree.objectArray(object, "Channels", {"", "C1"}).at(1), "Lo");
    CStorageManager_RegisterRegion(tree.region("Gone", 1));
    update();
    ASSERT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("Gone", 1));
    void *content = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath("Deep/O/C1/Lo", &content, nullptr));
    EXPECT_EQ(inArray->content, content);
}

} // namespace
