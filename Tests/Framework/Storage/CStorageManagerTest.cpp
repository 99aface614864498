#include "CStorageManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Providers.h"
#include "StorageTree.h"
#include "TraceRecorder.h"

namespace {

using test::FirstProvider;
using test::Line;
using test::SecondProvider;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class CStorageManagerTest : public testing::Test {
protected:
    CStorageManagerTest() {
        test::resetProviders();
        TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    }
    ~CStorageManagerTest() override { CStorageManager_Uninitialize(); }
    CStorageManagerTest(const CStorageManagerTest &) = delete;
    CStorageManagerTest &operator=(const CStorageManagerTest &) = delete;

    static void location(unsigned long id) {
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterLocation(id, ("L" + std::to_string(id)).c_str(), 4, id * 10));
    }
    static void providers() {
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterStorageProvider(&FirstProvider::table, 1, "First"));
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterStorageProvider(&SecondProvider::table, 2, "Second"));
    }

    test::StorageTree tree;
};

TEST_F(CStorageManagerTest, Initialize_DoesNothing) {
    location(1);
    EXPECT_EQ(eAF_S_OK, CStorageManager_Initialize());
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterRegion(tree.region("R", 1))) << "the location is still there";
}

TEST_F(CStorageManagerTest, StoreAllWritable_IsNotImplemented) {
    EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, CStorageManager_StoreAllWritable());
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageManagerTest, Registrations_RefuseNullAndEmptyNames) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_RegisterLocation(1, nullptr, 4, 0));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_RegisterLocation(1, "", 4, 0));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_RegisterStorageProvider(&FirstProvider::table, 1, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_RegisterStorageProvider(&FirstProvider::table, 1, ""));
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterStorageProvider(nullptr, 1, "Null")) << "the table is not tested";
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageManagerTest, ASecondLocationWithTheSameId_IsNeverFound) {
    CStorageManager_RegisterLocation(1, "First", 4, 10);
    CStorageManager_RegisterLocation(1, "Second", 4, 20);
    providers();
    CStorageManager_AssignStorageProviderToLocation(1, 1);
    CStorageManager_StoreAll();
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.StoreAll 1,10"));
}

TEST_F(CStorageManagerTest, ASecondProviderWithTheSameId_IsNeverFound) {
    location(1);
    CStorageManager_RegisterStorageProvider(&FirstProvider::table, 7, "First");
    CStorageManager_RegisterStorageProvider(&SecondProvider::table, 7, "Second");
    CStorageManager_AssignStorageProviderToLocation(1, 7);
    CStorageManager_StoreAll();
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.StoreAll 1,10"));
}

TEST_F(CStorageManagerTest, Assign_AsksForTheProviderFirst) {
    EXPECT_EQ(eAF_E_UNKNOWN_PROVIDER, CStorageManager_AssignStorageProviderToLocation(8, 9));
    providers();
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_AssignStorageProviderToLocation(8, 1));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_AssignStorageProviderToLocation",
                                 "No such storage provider (provider id=9)", eAF_E_UNKNOWN_PROVIDER},
                            Line{"CStorageManager_AssignStorageProviderToLocation",
                                 "No such storage location (location id=8)", eAF_E_UNKNOWN_LOCATION}));
}

TEST_F(CStorageManagerTest, ALocationAssignedTwice_IsOperatedOnTwice) {
    location(1);
    providers();
    EXPECT_EQ(eAF_S_OK, CStorageManager_AssignStorageProviderToLocation(1, 1));
    EXPECT_EQ(eAF_S_OK, CStorageManager_AssignStorageProviderToLocation(1, 1));
    EXPECT_EQ(eAF_S_OK, CStorageManager_AssignStorageProviderToLocation(1, 2));
    EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.StoreAll 1,10", "1.StoreAll 1,10", "2.StoreAll 1,10"));
}

TEST_F(CStorageManagerTest, Reassign_AsksForTheLocationFirst) {
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_ReassignStorageProviderToLocation(8, 9));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_ReassignStorageProviderToLocation",
                                 "No such storage location (location id=8)", eAF_E_UNKNOWN_LOCATION}));
}

TEST_F(CStorageManagerTest, Reassign_ToAnUnknownProvider_LeavesTheLocationUnassigned) {
    location(1);
    providers();
    CStorageManager_AssignStorageProviderToLocation(1, 1);
    EXPECT_EQ(eAF_E_UNKNOWN_PROVIDER, CStorageManager_ReassignStorageProviderToLocation(1, 9));
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_ReserveWritableSpace(1, 100));
    EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    EXPECT_THAT(test::providerCalls(), IsEmpty());
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(Line{"CStorageManager_ReassignStorageProviderToLocation",
                         "No such storage provider (provider id=9)", eAF_E_UNKNOWN_PROVIDER},
                    Line{"reserveWritableSpace", "No StorageProvider is assigned to location L1 \n", eAF_E_FAILED}));
}

TEST_F(CStorageManagerTest, Reassign_InitialisesAllProvidersAndTheNewOneNeverVisitsTheLocation) {
    location(1);
    location(2);
    providers();
    CStorageManager_AssignStorageProviderToLocation(1, 1);
    CStorageManager_AssignStorageProviderToLocation(2, 2);
    EXPECT_EQ(eAF_S_OK, CStorageManager_ReassignStorageProviderToLocation(1, 2));
    EXPECT_THAT(test::providerCalls(), ElementsAre("2.Initialize 2,0"));
    test::providerCalls().clear();
    EXPECT_EQ(eAF_S_OK, CStorageManager_RetrieveAll());
    EXPECT_EQ(eAF_S_OK, CStorageManager_ReserveWritableSpace(1, 50));
    EXPECT_THAT(test::providerCalls(), ElementsAre("2.RetrieveAll 2,20", "2.Reserve 1,50"));
}

TEST_F(CStorageManagerTest, Reassign_TakesOneListingOfALocationThatWasAssignedTwice) {
    location(1);
    providers();
    CStorageManager_AssignStorageProviderToLocation(1, 1);
    CStorageManager_AssignStorageProviderToLocation(1, 1);
    CStorageManager_ReassignStorageProviderToLocation(1, 2);
    test::providerCalls().clear();
    CStorageManager_StoreAll();
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.StoreAll 1,10"));
}

TEST_F(CStorageManagerTest, Reassign_WithAFailingInitialisation_FailsAfterTheAssignment) {
    location(1);
    location(2);
    providers();
    CStorageManager_AssignStorageProviderToLocation(1, 1);
    CStorageManager_AssignStorageProviderToLocation(2, 2);
    SecondProvider::answer = eAF_E_STACK_EMPTY;
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_ReassignStorageProviderToLocation(1, 2));
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(Line{"performProviderOperation", "Storage provider failure (provider: Second)", eAF_E_STACK_EMPTY},
                    Line{"CStorageManager_PerformProviderOperation", "Initialize failed", eAF_E_FAILED},
                    Line{"CStorageManager_ReassignStorageProviderToLocation",
                         "Could not re-initialize storage providers (call to "
                         "CStorageManager_InitializeAllProviders() failed)\n",
                         eAF_E_FAILED}));
    SecondProvider::answer = eAF_S_OK;
    EXPECT_EQ(eAF_S_OK, CStorageManager_ReserveWritableSpace(1, 50));
}

TEST_F(CStorageManagerTest, RegisterRegion_FilesItInItsLocation) {
    location(1);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_RegisterRegion(nullptr));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_RegisterRegion(tree.region("R", 4)));
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterRegion(tree.region("R", 1)));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(Line{"CStorageManager_RegisterRegion",
                                                         "No such location (location id=4)", eAF_E_UNKNOWN_LOCATION}));
}

TEST_F(CStorageManagerTest, RegisterRegion_OfATakenName_SucceedsAndKeepsTheFirst) {
    location(1);
    CStorageRegion *first = tree.region("R", 1);
    CVariable *variable = tree.integer(tree.objectIn(first, "O"), "V");
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterRegion(first));
    CStorageRegion *second = tree.region("R", 1);
    tree.integer(tree.objectIn(second, "O"), "V");
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterRegion(second));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    CVariable *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByName("V", &found));
    EXPECT_EQ(variable, found);
    CStorageRegion_Destruct(second);
}

TEST_F(CStorageManagerTest, RegisterRegion_WithoutAName_TracesAndFails) {
    location(1);
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_RegisterRegion(tree.region("", 1)));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_RegisterRegion", "Could not add region to database (location id=1)\n",
                                 eAF_E_FAILED}));
}

TEST_F(CStorageManagerTest, RemoveRegionFromLocation_ChecksNameThenLocationThenRegion) {
    location(1);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_RemoveRegionFromLocation(nullptr, 9));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageManager_RemoveRegionFromLocation("", 9));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_RemoveRegionFromLocation("R", 9));
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_RemoveRegionFromLocation("R", 1));
    CStorageManager_RegisterRegion(tree.region("R", 1));
    EXPECT_EQ(eAF_S_OK, CStorageManager_RemoveRegionFromLocation("R", 1));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_RemoveRegionFromLocation", "No such location (location id=9)",
                                 eAF_E_UNKNOWN_LOCATION},
                            Line{"CDatabase_RemoveRegion", "Could not get region", eAF_E_UNKNOWN_REGION},
                            Line{"removeRegion", "Could not remove region R from location id 1)\n", eAF_E_FAILED}));
}

TEST_F(CStorageManagerTest, ReserveWritableSpace_GoesToTheAssignedProvider) {
    location(1);
    providers();
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_ReserveWritableSpace(9, 100));
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_ReserveWritableSpace(1, 100));
    CStorageManager_AssignStorageProviderToLocation(1, 2);
    EXPECT_EQ(eAF_S_OK, CStorageManager_ReserveWritableSpace(1, 100));
    EXPECT_THAT(test::providerCalls(), ElementsAre("2.Reserve 1,100"));
    SecondProvider::answer = eAF_E_BUFFER_TOO_SMALL;
    EXPECT_EQ(eAF_E_BUFFER_TOO_SMALL, CStorageManager_ReserveWritableSpace(1, 100));
    SecondProvider::answer = eAF_W_WARNING;
    EXPECT_EQ(eAF_S_OK, CStorageManager_ReserveWritableSpace(1, 100)) << "a warning is not handed on";
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(
            Line{"CStorageManager_ReserveWritableSpace", "No such location (location id=9)", eAF_E_UNKNOWN_LOCATION},
            Line{"reserveWritableSpace", "No StorageProvider is assigned to location L1 \n", eAF_E_FAILED},
            Line{"reserveWritableSpace", "Storage provider reports error when reserving writable size (location id=1)",
                 eAF_E_BUFFER_TOO_SMALL}));
}

TEST_F(CStorageManagerTest, UpdatePathHashTable_NamesEachLocationAndItsProvider) {
    location(1);
    location(2);
    providers();
    CStorageManager_AssignStorageProviderToLocation(2, 2);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    const Line count{"CDatabase_DoVariableOperation", "Number of variables processed: 0", eAF_DEBUG};
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(
            Line{"updatePathHashTable", "  Updating hash table for location L1 using provider none", eAF_DEBUG}, count,
            Line{"updatePathHashTable", "  Updating hash table for location L2 using provider Second", eAF_DEBUG},
            count));
}

TEST_F(CStorageManagerTest, Uninitialize_TracesItsStepsAndEmptiesTheManager) {
    location(1);
    providers();
    auto *marked = new CStorageRegion[1]();
    CStorageRegion_Construct(marked, "Marked", 1);
    CStorageRegion_SetDynamicallyAllocated(marked, 1);
    CStorageRegion *unmarked = tree.region("Unmarked", 1);
    tree.objectIn(unmarked, "O");
    CStorageManager_RegisterRegion(marked);
    CStorageManager_RegisterRegion(unmarked);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CStorageManager_Uninitialize());
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageManager_Uninitialize", "Cleanup provider list", eAF_DEBUG},
                            Line{"CStorageManager_Uninitialize", "Cleanup location list", eAF_DEBUG},
                            Line{"CStorageManager_Uninitialize", "Cleanup of providerList and locationList finished",
                                 eAF_DEBUG}));
    EXPECT_EQ(1u, CStorageRegion_IsEmpty(unmarked)) << "its database went, and the regions with it";
    EXPECT_EQ(eAF_E_UNKNOWN_PROVIDER, CStorageManager_AssignStorageProviderToLocation(1, 1));
    location(1);
    providers();
    EXPECT_EQ(eAF_S_OK, CStorageManager_AssignStorageProviderToLocation(1, 1)) << "it may be filled again";
}

TEST_F(CStorageManagerTest, ASecondRegistrationWithTheSameId_IsNotRefused) {
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterLocation(1, "First", 4, 0));
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterLocation(1, "Second", 4, 0));
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterStorageProvider(&FirstProvider::table, 1, "First"));
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterStorageProvider(&SecondProvider::table, 1, "Second"));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    CStorageManager_UpdatePathHashTable();
    EXPECT_THAT(TraceRecorder::lines(),
                testing::Contains(Line{"updatePathHashTable",
                                       "  Updating hash table for location Second using provider none", eAF_DEBUG}))
        << "only look-ups by id pass it over";
}

TEST_F(CStorageManagerTest, RegisterLocation_WithATableBeyondAllMemory_RegistersNothing) {
    // A platform may take the size for a hint and find memory for less.
    CHashTable table;
    const bool isRefused = CHashTable_Construct(&table, ~0UL) >= 0x8000;
    CHashTable_Destruct(&table);
    TraceRecorder::reset();
    EXPECT_EQ(isRefused ? eAF_E_OUT_OF_MEMORY : eAF_S_OK, CStorageManager_RegisterLocation(1, "L", ~0UL, 0));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    EXPECT_EQ(isRefused ? eAF_E_UNKNOWN_LOCATION : eAF_E_FAILED, CStorageManager_ReserveWritableSpace(1, 1));
}

TEST_F(CStorageManagerTest, Reassign_OfALocationWithoutAProvider_NamesOne) {
    location(1);
    providers();
    EXPECT_EQ(eAF_S_OK, CStorageManager_ReassignStorageProviderToLocation(1, 2));
    EXPECT_EQ(eAF_S_OK, CStorageManager_ReserveWritableSpace(1, 50));
    EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    EXPECT_THAT(test::providerCalls(), ElementsAre("2.Reserve 1,50"));
}

TEST_F(CStorageManagerTest, UpdatePathHashTable_AfterAReassignment_NamesTheNewProvider) {
    location(1);
    providers();
    CStorageManager_AssignStorageProviderToLocation(1, 1);
    CStorageManager_ReassignStorageProviderToLocation(1, 2);
    TraceRecorder::reset();
    CStorageManager_UpdatePathHashTable();
    EXPECT_EQ((Line{"updatePathHashTable", "  Updating hash table for location L1 using provider Second", eAF_DEBUG}),
              TraceRecorder::lines().at(0));
}

TEST_F(CStorageManagerTest, AnIdBeyondTheSignedRange_IsPrintedUnsignedInErrorsAndSignedBeforeCalls) {
    const unsigned long id = ~0UL;
    ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterLocation(id, "Last", 4, 10));
    providers();
    CStorageManager_AssignStorageProviderToLocation(id, 1);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_ReserveWritableSpace(id - 1, 1));
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.StoreAll " + std::to_string(id) + ",10"));
    EXPECT_THAT(TraceRecorder::lines(),
                testing::IsSupersetOf(
                    {Line{"performProviderOperation", "Calling StoreAll for provider First (location: -1)", eAF_DEBUG},
                     Line{"CStorageManager_ReserveWritableSpace",
                          "No such location (location id=" + std::to_string(id - 1) + ")", eAF_E_UNKNOWN_LOCATION}}));
}

// The manager is made by whoever comes first; ThreadSanitizer watches.
TEST_F(CStorageManagerTest, FirstCallsFromSeveralThreads_FindOneManager) {
    std::vector<EAFResult> results(8, eAF_E_FAILED);
    std::vector<std::thread> threads;
    for (EAFResult &result : results) {
        threads.emplace_back([&result] { result = CStorageManager_StoreAll(); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_THAT(results, testing::Each(eAF_S_OK));
    location(1);
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_ReserveWritableSpace(1, 1)) << "there, without a provider";
}

CStorageRegion *regionAtExit = nullptr;

/// Registered before the manager is made, so it runs when the manager is gone. _Exit: the descriptors are left to
/// the system, which is no leak.
void lookAtWhatTheManagerLeft() {
    const bool isForgotten = CStorageManager_ReserveWritableSpace(1, 1) == eAF_E_UNKNOWN_LOCATION &&
                             CStorageManager_AssignStorageProviderToLocation(1, 1) == eAF_E_UNKNOWN_PROVIDER;
    const bool isUntouched = CStorageRegion_IsEmpty(regionAtExit) == 0;
    std::_Exit(isForgotten && isUntouched ? 0 : 1);
}

TEST_F(CStorageManagerTest, TheEndOfTheProcess_ForgetsTheDescriptorsAndLeavesTheRegionsAlone) {
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a process in which nobody has called the manager
    EXPECT_EXIT(
        {
            std::atexit(lookAtWhatTheManagerLeft);
            regionAtExit = tree.region("R", 1);
            tree.objectIn(regionAtExit, "O");
            location(1);
            providers();
            CStorageManager_RegisterRegion(regionAtExit);
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
