// The walk over every variable of a database, and the actions that are built on it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CDatabase.h"
#include "StorageTree.h"
#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using test::valueOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

struct Visit {
    std::string fullPath;
    std::string regionName;
    std::string objectPath;
    std::string variableName;
    const char *fullPathAddress;
};
std::vector<Visit> visits;
std::function<EAFResult(CVariable *)> answer;

EAFResult note(CDatabase *database, CVariable *variable, const char *fullPath, const char *regionName,
               const char *objectPath, const char *variableName) {
    EXPECT_EQ(static_cast<long>(visits.size()) + 1, database->noOfVariablesProcessed);
    visits.push_back({fullPath, regionName, objectPath, variableName, fullPath});
    return answer ? answer(variable) : eAF_S_OK;
}

// The count expectation of the action does not hold when a nameless variable was counted too.
EAFResult noteOnly(CDatabase *, CVariable *, const char *fullPath, const char *, const char *, const char *) {
    visits.push_back({fullPath, "", "", "", fullPath});
    return eAF_S_OK;
}

EAFResult noteAndAnswer(CDatabase *, CVariable *variable, const char *fullPath, const char *, const char *,
                        const char *) {
    visits.push_back({fullPath, "", "", "", fullPath});
    return answer(variable);
}

class DatabaseWalk : public testing::Test {
protected:
    DatabaseWalk() {
        visits.clear();
        answer = nullptr;
        CDatabase_Construct(&database, 8);
        region = tree.region("Cfg");
        CDatabase_AddRegion(&database, region);
        radio = tree.objectIn(region, "Radio");
        TraceRecorder::reset();
    }
    ~DatabaseWalk() override { CDatabase_Destruct(&database); }

    EAFResult walk() { return CDatabase_DoVariableOperation(&database, note); }

    static std::vector<std::string> paths() {
        std::vector<std::string> result;
        for (const Visit &visit : visits) {
            result.push_back(visit.fullPath);
        }
        return result;
    }
    static Line line(const std::string &message, std::uint32_t code) {
        return {"CDatabase_DoObjectOperation", message, code};
    }
    static Line count(long number) {
        return {"CDatabase_DoVariableOperation", "Number of variables processed: " + std::to_string(number), eAF_DEBUG};
    }
    static Line processing(const std::string &name) {
        return {"CDatabase_DoVariableOperation", "Processing region: " + name, eAF_DEBUG};
    }

    test::StorageTree tree;
    CDatabase database{};
    CStorageRegion *region;
    CStorageObject *radio;
};

TEST_F(DatabaseWalk, MeetsEveryPlainVariableInOrderThroughNestedObjectsAndArrays) {
    tree.integer(radio, "Gain");
    CStorageObject *tx = tree.nested(radio, "Tx");
    tree.integer(tx, "Lo");
    tree.integer(tree.nested(tx, "Pll"), "Divider");
    const auto &channels = tree.objectArray(radio, "Channels", {"C1", "C2"});
    tree.integer(channels[0], "Power");
    tree.integer(channels[1], "Power");
    tree.integer(radio, "Last");
    tree.integer(tree.objectIn(region, "Fan"), "Speed");
    CStorageRegion *second = tree.region("Cal");
    CDatabase_AddRegion(&database, second);
    tree.integer(tree.objectIn(second, "Radio"), "Gain");
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, walk());
    EXPECT_THAT(paths(),
                ElementsAre("Cfg/Radio/Gain", "Cfg/Radio/Tx/Lo", "Cfg/Radio/Tx/Pll/Divider", "Cfg/Radio/C1/Power",
                            "Cfg/Radio/C2/Power", "Cfg/Radio/Last", "Cfg/Fan/Speed", "Cal/Radio/Gain"));
    EXPECT_EQ("Cfg", visits[2].regionName);
    EXPECT_EQ("Radio/Tx/Pll", visits[2].objectPath);
    EXPECT_EQ("Divider", visits[2].variableName);
    EXPECT_EQ(8, database.noOfVariablesProcessed);
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(processing("Cfg"), processing("Cal"), count(8)));
    EXPECT_EQ(visits[0].fullPathAddress, visits[7].fullPathAddress) << "one buffer, shared";
}

TEST_F(DatabaseWalk, BeginsItsCountAnew) {
    tree.integer(radio, "Gain");
    walk();
    visits.clear();
    EXPECT_EQ(eAF_S_OK, walk());
    EXPECT_EQ(1, database.noOfVariablesProcessed);
}

TEST_F(DatabaseWalk, PassesAnEmptyObjectInSilence) {
    EXPECT_EQ(eAF_S_OK, walk());
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(processing("Cfg"), count(0)));
}

TEST_F(DatabaseWalk, ARegionWithoutAName_EndsTheWholeWalkWithItsCode) {
    tree.integer(radio, "Gain");
    CStorageRegion *nameless = tree.region("Nameless");
    CStorageRegion *after = tree.region("After");
    tree.integer(tree.objectIn(after, "O"), "V");
    CDatabase_AddRegion(&database, nameless);
    CDatabase_AddRegion(&database, after);
    nameless->name[0] = '\0';
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/Gain"));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(processing("Cfg"), Line{"CDatabase_DoVariableOperation",
                                                                            "Could not get region name", eAF_E_FAILED}))
        << "no count line";
}

TEST_F(DatabaseWalk, AnObjectWithoutAName_FailsAndTheWalkGoesOn) {
    tree.integer(radio, "Gain");
    tree.integer(tree.objectIn(region, "After"), "V");
    radio->name[0] = '\0';
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/After/V"));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(processing("Cfg"), line("Could not get object name", eAF_E_FAILED), count(1)));
}

TEST_F(DatabaseWalk, AVariableWithoutAName_EndsItsObjectButNotTheWalk) {
    CVariable *nameless = tree.integer(radio, "Nameless");
    tree.integer(radio, "Skipped");
    tree.integer(tree.objectIn(region, "After"), "V");
    nameless->name[0] = '\0';
    EXPECT_EQ(eAF_E_FAILED, CDatabase_DoVariableOperation(&database, noteOnly));
    EXPECT_EQ(2, database.noOfVariablesProcessed) << "it was counted before its name was asked for";
    EXPECT_EQ("Cfg/After/V", visits.at(0).fullPath);
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(line("Could not get variable name", eAF_E_FAILED)));
}

TEST_F(DatabaseWalk, ANestedObjectThatFails_IsTracedTwiceAndTheRestIsWalked) {
    CStorageObject *tx = tree.nested(radio, "Tx");
    tree.integer(tx, "Lo");
    tree.integer(radio, "After");
    tx->name[0] = '\0';
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/After"));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(processing("Cfg"), line("Could not get object name", eAF_E_FAILED),
                                                    line("Failed to handle nested object", eAF_E_FAILED), count(1)));
}

TEST_F(DatabaseWalk, EachFailingArrayElement_IsTracedAndTheOthersAreWalked) {
    const auto &channels = tree.objectArray(radio, "Channels", {"C1", "", "C3"});
    tree.integer(channels[0], "P");
    tree.integer(channels[2], "P");
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/C1/P", "Cfg/Radio/C3/P"));
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(line("Could not get object name", eAF_E_INVALID_ARGUMENT),
                                                       line("Failed to handle object array element", eAF_E_FAILED)));
}

TEST_F(DatabaseWalk, WhatIsWholeBehindAFailure_MakesNoSuccessOfIt) {
    tree.nested(radio, "Broken")->name[0] = '\0';
    tree.integer(tree.nested(radio, "Tx"), "Lo");
    tree.integer(tree.objectArray(radio, "Channels", {"C1"})[0], "P");
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/Tx/Lo", "Cfg/Radio/C1/P"));
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(line("Could not get object name", eAF_E_FAILED),
                                                       line("Failed to handle nested object", eAF_E_FAILED)));
}

TEST_F(DatabaseWalk, TheElementCount_IsReadBeforeEachElement) {
    const auto &channels = tree.objectArray(radio, "Channels", {"C1", "C2"});
    tree.integer(channels[0], "P");
    tree.integer(channels[1], "P");
    CVariable *array = nullptr;
    ASSERT_EQ(1u, CStorageObject_GetVariableByName(radio, "Channels", &array));
    answer = [array](CVariable *) {
        array->noOfElements = 1;
        return eAF_S_OK;
    };
    EXPECT_EQ(eAF_S_OK, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/C1/P"));
    array->noOfElements = 2; // so that both are destructed
}

TEST_F(DatabaseWalk, TheVariableOfAddObject_IsTakenForANamelessObject) {
    CStorageObject *child = tree.object("Child");
    tree.integer(child, "Lost");
    ASSERT_EQ(eAF_S_OK, CStorageObject_AddObject(radio, child));
    tree.integer(radio, "After");
    CVariable *found = nullptr;
    ASSERT_EQ(eAF_S_OK, CDatabase_GetVariableByName(&database, "Child", &found));
    const std::unique_ptr<CVariable[]> wrapper(found);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/After"));
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(line("Could not get object name", eAF_E_FAILED),
                                                       line("Failed to handle nested object", eAF_E_FAILED)));
    CDatabase_RemoveRegion(&database, "Cfg"); // while the wrapper lives
    CStorageObject_Destruct(child);
}

TEST_F(DatabaseWalk, AnObjectInsideItself_FailsInsteadOfBeingWalkedForEver) {
    auto &loop = tree.objectArray(radio, "Loop", {""});
    loop[0] = radio;
    tree.integer(radio, "After");
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/After"));
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(line("Failed to handle object array element", eAF_E_FAILED)));
    loop[0] = nullptr;
}

TEST_F(DatabaseWalk, AnActionThatFails_IsTracedWithItsCodeAndDoesNotFailTheWalk) {
    tree.integer(radio, "A");
    tree.integer(radio, "B");
    answer = [](CVariable *) { return eAF_E_STACK_EMPTY; };
    EXPECT_EQ(eAF_S_OK, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/A", "Cfg/Radio/B"));
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(line("Could not do operation on variable A", eAF_E_STACK_EMPTY),
                            line("Could not do operation on variable B", eAF_E_STACK_EMPTY)));
    answer = [](CVariable *) { return eAF_W_WARNING; };
    visits.clear();
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, walk());
    EXPECT_THAT(TraceRecorder::failures(), IsEmpty());
}

TEST_F(DatabaseWalk, TheMessageOfALongName_IsCutTo149Bytes) {
    tree.integer(radio, std::string(119, '%'));
    answer = [](CVariable *) { return eAF_E_FAILED; };
    walk();
    EXPECT_EQ("Could not do operation on variable " + std::string(114, '%'), TraceRecorder::failures().at(0).message)
        << "and a percent sign is not a format";
}

TEST_F(DatabaseWalk, AFullPath_IsCutTo511BytesTheObjectPathIsNot) {
    CStorageObject *object = radio;
    for (int i = 0; i < 6; ++i) {
        object = tree.nested(object, std::string(100, static_cast<char>('a' + i)));
    }
    tree.integer(object, "V");
    EXPECT_EQ(eAF_S_OK, walk());
    EXPECT_EQ(511u, visits.at(0).fullPath.size());
    EXPECT_EQ(5u + 6 * 101, visits.at(0).objectPath.size());
    ASSERT_EQ(eAF_S_OK, CDatabase_UpdatePathHashTable(&database));
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetVariableByPath(&database, visits.at(0).fullPath.c_str(), &found));
    EXPECT_EQ(visits.at(0).fullPath, found->path);
}

// The actions

TEST_F(DatabaseWalk, ObjectsDeeperThanAnyHostHas_HaveTheirWholePaths) {
    const std::string name(119, 'n');
    std::string expected = "Radio";
    CStorageObject *innermost = radio;
    for (int depth = 0; depth < 20; ++depth) {
        innermost = tree.nested(innermost, name);
        expected += "/" + name;
    }
    tree.integer(innermost, "Deep");
    tree.integer(radio, "Behind");
    EXPECT_EQ(eAF_S_OK, walk());
    ASSERT_EQ(2u, visits.size());
    EXPECT_EQ(expected, visits[0].objectPath);
    EXPECT_EQ(("Cfg/" + expected).substr(0, 511), visits[0].fullPath);
    EXPECT_EQ("Cfg/Radio/Behind", visits[1].fullPath);
}

TEST_F(DatabaseWalk, AnActionThatWalksAnotherDatabase_SpoilsNoPathBehindIt) {
    tree.integer(radio, "First");
    tree.integer(radio, "Second");
    CDatabase other{};
    CDatabase_Construct(&other, 8);
    CStorageRegion *otherRegion = tree.region("Calibration");
    CDatabase_AddRegion(&other, otherRegion);
    tree.integer(tree.objectIn(otherRegion, "Receiver"), "Offset");
    answer = [&other](CVariable *) { return CDatabase_DoVariableOperation(&other, noteOnly); };
    EXPECT_EQ(eAF_S_OK, CDatabase_DoVariableOperation(&database, noteAndAnswer));
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/First", "Calibration/Receiver/Offset", "Cfg/Radio/Second",
                                     "Calibration/Receiver/Offset"));
    CDatabase_Destruct(&other);
}

TEST_F(DatabaseWalk, SetAsNotRetrieved_ClearsEveryFlag) {
    CVariable *a = tree.integer(radio, "A");
    CVariable *b = tree.integer(tree.nested(radio, "Tx"), "B");
    CVariable_SetRetrieved(a, 1);
    CVariable_SetRetrieved(b, 1);
    EXPECT_EQ(eAF_S_OK, CDatabase_SetAsNotRetrieved(&database));
    EXPECT_EQ(0u, CVariable_IsRetrieved(a));
    EXPECT_EQ(0u, CVariable_IsRetrieved(b));
}

TEST_F(DatabaseWalk, SetToDefault_CopiesTheDefaultOfWhatWasNotRetrievedAndClearsEveryFlag) {
    const std::int32_t defaultValue = 20;
    CVariable *retrieved = tree.integer(radio, "Retrieved", 1, &defaultValue);
    CVariable *missing = tree.integer(radio, "Missing", 1, &defaultValue);
    CVariable_SetRetrieved(retrieved, 1);
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(1, valueOf(retrieved));
    EXPECT_EQ(20, valueOf(missing));
    EXPECT_EQ(0u, CVariable_IsRetrieved(retrieved));
    EXPECT_EQ(0u, CVariable_IsRetrieved(missing));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(processing("Cfg"), count(2))) << "nothing about either";
}

TEST_F(DatabaseWalk, SetToDefault_WithoutADefault_TracesTheNameAndPathAndLeavesTheContent) {
    CVariable *variable = tree.integer(radio, "Gain", 7);
    CDatabase_UpdatePathHashTable(&database);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(7, valueOf(variable));
    EXPECT_THAT(
        TraceRecorder::lines(),
        Contains(Line{"CDatabase_ActionSetToDefault",
                      "Variable Gain missing in storage, default value not available (variable path: Cfg/Radio/Gain",
                      eAF_DEBUG}));
}

TEST_F(DatabaseWalk, SetToDefault_WithTheContentAsItsOwnDefault_CopiesNothing) {
    std::int32_t content = 9;
    tree.variable(radio, {&content, TYPE_INT32, 1, "Own", &content});
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(9, content);
    EXPECT_THAT(TraceRecorder::failures(), IsEmpty());
}

TEST_F(DatabaseWalk, SetToDefault_OfANullContent_FailsThatVariableOnly) {
    CVariable *broken = tree.integer(radio, "Broken");
    const std::int32_t defaultValue = 3;
    CVariable *whole = tree.integer(radio, "Whole", 1, &defaultValue);
    void *content = broken->content;
    broken->content = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(3, valueOf(whole));
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(Line{"CDatabase_ActionSetToDefault", "Content address was nullptr!", eAF_E_FAILED},
                            line("Could not do operation on variable Broken", eAF_E_FAILED)));
    broken->content = content;
}

TEST_F(DatabaseWalk, SetToDefault_CopiesWholeArrays) {
    std::vector<double> content(100, 0.0);
    std::vector<double> defaults(100, 2.5);
    tree.variable(radio, {content.data(), TYPE_DOUBLE_ARRAY, 100, "Table", defaults.data()});
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(defaults, content);
}

TEST_F(DatabaseWalk, ANestedObjectThatBreaksOff_LeavesTheNextOnesPathWhole) {
    CStorageObject *tx = tree.nested(radio, "Tx");
    CVariable *nameless = tree.integer(tree.nested(tx, "Pll"), "Nameless");
    nameless->name[0] = '\0';
    tree.integer(tx, "Lo");
    const auto &channels = tree.objectArray(radio, "Channels", {"C1", "C2"});
    CVariable *namelessToo = tree.integer(channels[0], "Nameless");
    namelessToo->name[0] = '\0';
    tree.integer(channels[1], "P");
    EXPECT_EQ(eAF_E_FAILED, CDatabase_DoVariableOperation(&database, noteOnly));
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/Tx/Lo", "Cfg/Radio/C2/P"));
    EXPECT_THAT(TraceRecorder::failures(),
                ElementsAre(line("Could not get variable name", eAF_E_FAILED),
                            line("Failed to handle nested object", eAF_E_FAILED), // Pll in Tx
                            line("Failed to handle nested object", eAF_E_FAILED), // and so Tx in Radio
                            line("Could not get variable name", eAF_E_FAILED),
                            line("Failed to handle object array element", eAF_E_FAILED)));
    EXPECT_EQ(4, database.noOfVariablesProcessed);
}

TEST_F(DatabaseWalk, NestedObjectsWhoseContentWasTakenAway_FailAndTheRestIsWalked) {
    tree.nested(radio, "Tx");
    tree.objectArray(radio, "Channels", {"C1", "C2"});
    tree.integer(radio, "After");
    CVariable *nested = nullptr;
    CVariable *array = nullptr;
    CStorageObject_GetVariableByName(radio, "Tx", &nested);
    CStorageObject_GetVariableByName(radio, "Channels", &array);
    void *const contents[] = {nested->content, array->content};
    nested->content = array->content = nullptr;
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/After"));
    EXPECT_THAT(TraceRecorder::failures(), ElementsAre(line("Could not get object name", eAF_E_INVALID_ARGUMENT),
                                                       line("Failed to handle nested object", eAF_E_FAILED),
                                                       line("Could not get object name", eAF_E_INVALID_ARGUMENT),
                                                       line("Failed to handle object array element", eAF_E_FAILED),
                                                       line("Could not get object name", eAF_E_INVALID_ARGUMENT),
                                                       line("Failed to handle object array element", eAF_E_FAILED)));
    nested->content = contents[0];
    array->content = contents[1];
}

TEST_F(DatabaseWalk, AnObjectInsideItsOwnChild_FailsInsteadOfBeingWalkedForEver) {
    CStorageObject *child = tree.nested(radio, "Child");
    auto &loop = tree.objectArray(child, "Loop", {""});
    loop[0] = radio;
    tree.integer(child, "V");
    EXPECT_EQ(eAF_E_FAILED, walk());
    EXPECT_THAT(paths(), ElementsAre("Cfg/Radio/Child/V"));
    loop[0] = nullptr;
}

TEST_F(DatabaseWalk, SetToDefault_WithTheContentAsItsOwnDefault_TracesNothing) {
    std::int32_t content = 9;
    tree.variable(radio, {&content, TYPE_INT32, 1, "Own", &content});
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(processing("Cfg"), count(1))) << "it has a default";
}

TEST_F(DatabaseWalk, SetToDefault_WithADefaultThatOverlapsTheContent_CopiesWhatItWas) {
    std::vector<unsigned char> block{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    tree.variable(radio, {block.data() + 2, TYPE_UINT8_ARRAY, 8, "Table", block.data()});
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_THAT(block, ElementsAre(1, 2, 1, 2, 3, 4, 5, 6, 7, 8));
}

TEST_F(DatabaseWalk, SetToDefault_TakesAnyWordButZeroForRetrieved) {
    const std::int32_t defaultValue = 20;
    CVariable *variable = tree.integer(radio, "Gain", 1, &defaultValue);
    CVariable_SetRetrieved(variable, 2);
    EXPECT_EQ(eAF_S_OK, CDatabase_SetNotRetrievedVariablesToDefault(&database));
    EXPECT_EQ(1, valueOf(variable));
    EXPECT_EQ(0u, CVariable_IsRetrieved(variable));
}

} // namespace
