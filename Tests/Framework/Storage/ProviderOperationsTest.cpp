// The operations that run over all providers and their locations, and the two descriptors that carry them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "CStorageManager.h"
#include "Providers.h"
#include "SLocationDescriptor.h"
#include "SProviderDescriptor.h"
#include "StorageTree.h"
#include "TraceRecorder.h"

namespace {

using test::FirstProvider;
using test::Line;
using test::SecondProvider;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class ProviderOperations : public testing::Test {
protected:
    ProviderOperations() {
        test::resetProviders();
        TraceRecorder::reset();
    }
    ~ProviderOperations() override { CStorageManager_Uninitialize(); }
    ProviderOperations(const ProviderOperations &) = delete;
    ProviderOperations &operator=(const ProviderOperations &) = delete;

    static void fill() {
        for (unsigned long id = 1; id <= 3; ++id) {
            CStorageManager_RegisterLocation(id, ("L" + std::to_string(id)).c_str(), 4, id * 10);
        }
        CStorageManager_RegisterLocation(4, "Unassigned", 4, 40);
        CStorageManager_RegisterStorageProvider(&FirstProvider::table, 1, "First");
        CStorageManager_RegisterStorageProvider(&SecondProvider::table, 2, "Second");
        CStorageManager_AssignStorageProviderToLocation(2, 2);
        CStorageManager_AssignStorageProviderToLocation(3, 1);
        CStorageManager_AssignStorageProviderToLocation(1, 1);
        TraceRecorder::reset();
    }
    static Line enter() {
        return {"CStorageManager_PerformProviderOperation", "Enter: CStorageManager_PerformProviderOperation",
                eAF_DEBUG};
    }
    static Line calling(const char *what, const char *provider, int location) {
        return {"performProviderOperation",
                std::string("Calling ") + what + " for provider " + provider +
                    " (location: " + std::to_string(location) + ")",
                eAF_DEBUG};
    }
};

TEST_F(ProviderOperations, WithoutProviders_TraceTheirEntryAndSucceed) {
    EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(enter()));
}

TEST_F(ProviderOperations, GoProviderByProviderInTheOrderOfAssignment) {
    fill();
    EXPECT_EQ(eAF_S_OK, CStorageManager_InitializeAllProviders());
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.Initialize 3,0", "1.Initialize 1,0", "2.Initialize 2,0"));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(enter(), calling("Initialize", "First", 3), calling("Initialize", "First", 1),
                            calling("Initialize", "Second", 2)));
}

TEST_F(ProviderOperations, HandOverTheDatabaseAndTheLocationsData) {
    fill();
    test::StorageTree tree;
    CStorageRegion *region = tree.region("R", 2);
    CStorageManager_RegisterRegion(region);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    EXPECT_EQ(eAF_S_OK, CStorageManager_RetrieveAll());
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.StoreAll 3,30", "1.StoreAll 1,10", "2.StoreAll 2,20",
                                                   "1.RetrieveAll 3,30", "1.RetrieveAll 1,10", "2.RetrieveAll 2,20"));
    CStorageRegion *found = nullptr;
    EXPECT_EQ(eAF_S_OK, CDatabase_GetRegionByName(SecondProvider::lastDatabase, "R", &found));
    EXPECT_EQ(region, found);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(enter(), calling("StoreAll", "First", 3), calling("StoreAll", "First", 1),
                            calling("StoreAll", "Second", 2), enter(), calling("RetrieveAll", "First", 3),
                            calling("RetrieveAll", "First", 1), calling("RetrieveAll", "Second", 2)));
    CStorageManager_Uninitialize();
}

struct Operation {
    EAFResult (*run)();
    const char *failure;
};

class EachOperation : public ProviderOperations, public testing::WithParamInterface<Operation> {};
INSTANTIATE_TEST_SUITE_P(ProviderOperations, EachOperation,
                         testing::Values(Operation{CStorageManager_InitializeAllProviders, "Initialize failed"},
                                         Operation{CStorageManager_StoreAll, "StoreAll failed"},
                                         Operation{CStorageManager_RetrieveAll, "RetrieveAll failed"}));

TEST_P(EachOperation, VisitsEverybodyAfterAFailureAndReportsIt) {
    fill();
    FirstProvider::answer = eAF_E_STACK_EMPTY;
    FirstProvider::failingLocation = 3;
    TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    EXPECT_EQ(eAF_E_FAILED, GetParam().run());
    EXPECT_EQ(3u, test::providerCalls().size());
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(Line{"performProviderOperation", "Storage provider failure (provider: First)", eAF_E_STACK_EMPTY},
                    Line{"CStorageManager_PerformProviderOperation", GetParam().failure, eAF_E_FAILED}));
}

TEST_P(EachOperation, TakesAWarningForASuccess) {
    fill();
    FirstProvider::answer = eAF_W_WARNING;
    TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    EXPECT_EQ(eAF_S_OK, GetParam().run());
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_P(EachOperation, OfANullTableOrEntry_FailsInsteadOfCallingIt) {
    static IStorageProvider noEntries{};
    for (IStorageProvider *table : {static_cast<IStorageProvider *>(nullptr), &noEntries}) {
        CStorageManager_RegisterLocation(1, "L1", 4, 0);
        CStorageManager_RegisterStorageProvider(table, 1, "Null");
        CStorageManager_AssignStorageProviderToLocation(1, 1);
        TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
        EXPECT_EQ(eAF_E_FAILED, GetParam().run());
        EXPECT_EQ(
            (Line{"performProviderOperation", "Storage provider failure (provider: Null)", eAF_E_NOT_IMPLEMENTED}),
            TraceRecorder::lines().at(0));
        EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, CStorageManager_ReserveWritableSpace(1, 5));
        CStorageManager_Uninitialize();
    }
}

// The descriptors

TEST_F(ProviderOperations, ALocation_BeginsUnassignedWithADatabaseOfItsOwn) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    EXPECT_EQ("Flash", location.name);
    EXPECT_EQ(7u, location.locationId);
    EXPECT_EQ(0u, location.providerId);
    EXPECT_EQ(0, location.providerAssigned);
    EXPECT_EQ(nullptr, location.provider);
    EXPECT_EQ(0u, location.writableSize);
    EXPECT_EQ(70u, location.locationData);
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(location.database));
}

TEST_F(ProviderOperations, ALocationThatIsUnassigned_KeepsItsProvidersId) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    SProviderDescriptor provider("First", 3, &FirstProvider::table);
    provider.addLocation(&location);
    location.markProviderAssigned(3, &provider);
    EXPECT_EQ(1, location.providerAssigned);
    location.unassignProvider();
    EXPECT_EQ(0, location.providerAssigned);
    EXPECT_EQ(3u, location.providerId);
    EXPECT_EQ(nullptr, location.provider);
    EXPECT_THAT(provider.locations, IsEmpty());
    location.unassignProvider(); // nothing left to do
}

TEST_F(ProviderOperations, ALocation_KeepsTheSizeEvenWhenNobodyTakesIt) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    EXPECT_EQ(eAF_E_FAILED, location.reserveWritableSpace(500));
    EXPECT_EQ(500u, location.writableSize);
}

TEST_F(ProviderOperations, ALocation_AnswersForItsDatabase) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    test::StorageTree tree;
    CStorageRegion *region = tree.region("Cfg", 7);
    CVariable *gain = tree.integer(tree.objectIn(region, "Radio"), "Gain");
    EXPECT_EQ(eAF_S_OK, location.addRegion(region));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, location.addRegion(region));
    CVariable *found = nullptr;
    EXPECT_TRUE(location.getVariableByName("Gain", &found));
    EXPECT_EQ(gain, found);
    EXPECT_FALSE(location.getVariableByPath("Cfg/Radio/Gain", &found));
    location.updatePathHashTable();
    EXPECT_TRUE(location.getVariableByPath("Cfg/Radio/Gain", &found));
    EXPECT_FALSE(location.getVariableByName("Loss", &found));
    EXPECT_EQ(eAF_S_OK, location.removeRegion("Cfg"));
    EXPECT_EQ(eAF_E_FAILED, location.removeRegion("Cfg"));
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_FAILED, location.removeRegion(nullptr));
    EXPECT_THAT(
        TraceRecorder::failures(),
        testing::Contains(Line{"removeRegion", "Could not remove region (null) from location id 7)\n", eAF_E_FAILED}));
}

TEST_F(ProviderOperations, AnUnknownOperation_IsAnInternalError) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    EXPECT_TRUE(location.performProviderOperation(static_cast<EProviderOperation>(3), &FirstProvider::table, "First"));
    EXPECT_THAT(test::providerCalls(), IsEmpty());
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"performProviderOperation", "Internal error, Unknown operation", eAF_E_FAILED}));
}

TEST_F(ProviderOperations, AProvider_DeletesTheFirstListingOfALocationOnly) {
    SLocationDescriptor one("One", 1, 0, 4);
    SLocationDescriptor two("Two", 2, 0, 4);
    SProviderDescriptor provider("First", 3, &FirstProvider::table);
    provider.addLocation(&one);
    provider.addLocation(&two);
    provider.addLocation(&one);
    provider.deleteLocation(1);
    EXPECT_THAT(provider.locations, ElementsAre(&two, &one));
    provider.addLocation(nullptr);
    EXPECT_THAT(provider.locations, ElementsAre(&two, &one));
    provider.deleteLocation(9);
    EXPECT_THAT(provider.locations, ElementsAre(&two, &one));
    EXPECT_FALSE(provider.performProviderOperation(ePO_STORE_ALL));
    EXPECT_THAT(test::providerCalls(), ElementsAre("1.StoreAll 2,0", "1.StoreAll 1,0"));
    FirstProvider::answer = eAF_E_FAILED;
    EXPECT_TRUE(provider.performProviderOperation(ePO_INITIALIZE));
}

TEST_F(ProviderOperations, TheOperations_HaveTheNumbersThatBackEndsWereBuiltWith) {
    EXPECT_EQ(0u, static_cast<std::uint32_t>(ePO_INITIALIZE));
    EXPECT_EQ(1u, static_cast<std::uint32_t>(ePO_STORE_ALL));
    EXPECT_EQ(2u, static_cast<std::uint32_t>(ePO_RETRIEVE_ALL));
}

TEST_F(ProviderOperations, StoreAllAndRetrieveAll_AreEachHandedTheLocationsOwnDatabase) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    for (const EProviderOperation operation : {ePO_STORE_ALL, ePO_RETRIEVE_ALL}) {
        FirstProvider::lastDatabase = nullptr;
        EXPECT_FALSE(location.performProviderOperation(operation, &FirstProvider::table, "First"));
        EXPECT_EQ(location.database, FirstProvider::lastDatabase);
    }
}

TEST_F(ProviderOperations, TheCodeJustBelowTheErrors_IsASuccess) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    FirstProvider::answer = static_cast<EAFResult>(0x7fff);
    EXPECT_FALSE(location.performProviderOperation(ePO_STORE_ALL, &FirstProvider::table, "First"));
    FirstProvider::answer = static_cast<EAFResult>(0x8000);
    EXPECT_TRUE(location.performProviderOperation(ePO_STORE_ALL, &FirstProvider::table, "First"));
}

std::string messageBeforeTheCall;

EAFResult noteInitialize(unsigned long) {
    messageBeforeTheCall = TraceRecorder::lines().back().message;
    return eAF_S_OK;
}
EAFResult noteTransfer(unsigned long, CDatabase *, unsigned long) {
    return noteInitialize(0);
}

TEST_F(ProviderOperations, EachCall_IsTracedBeforeItIsMade) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    IStorageProvider table{noteInitialize, nullptr, noteTransfer, noteTransfer};
    location.performProviderOperation(ePO_INITIALIZE, &table, "First");
    EXPECT_EQ("Calling Initialize for provider First (location: 7)", messageBeforeTheCall);
    location.performProviderOperation(ePO_STORE_ALL, &table, "First");
    EXPECT_EQ("Calling StoreAll for provider First (location: 7)", messageBeforeTheCall);
    location.performProviderOperation(ePO_RETRIEVE_ALL, &table, "First");
    EXPECT_EQ("Calling RetrieveAll for provider First (location: 7)", messageBeforeTheCall);
}

const SLocationDescriptor *observed = nullptr;
unsigned long sizeSeenByTheProvider = 0;

EAFResult refuseSpace(unsigned long, unsigned long) {
    sizeSeenByTheProvider = observed->writableSize;
    return eAF_E_STACK_EMPTY;
}

TEST_F(ProviderOperations, ALocation_KeepsTheSizeBeforeItsProviderIsAskedAndWhenThatRefuses) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    IStorageProvider table{nullptr, refuseSpace, nullptr, nullptr};
    SProviderDescriptor provider("First", 3, &table);
    location.markProviderAssigned(3, &provider);
    observed = &location;
    EXPECT_EQ(eAF_E_STACK_EMPTY, location.reserveWritableSpace(500));
    EXPECT_EQ(500u, sizeSeenByTheProvider);
    EXPECT_EQ(500u, location.writableSize);
}

TEST_F(ProviderOperations, MarkProviderAssigned_SetsIdProviderAndFlag) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    SProviderDescriptor provider("First", 3, &FirstProvider::table);
    location.markProviderAssigned(5, &provider);
    EXPECT_EQ(5u, location.providerId);
    EXPECT_EQ(&provider, location.provider);
    EXPECT_EQ(1, location.providerAssigned);
    EXPECT_THAT(provider.locations, IsEmpty()) << "listing it is another step";
}

TEST_F(ProviderOperations, ALocationMarkedWithoutAProvider_CountsAsUnassigned) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    location.markProviderAssigned(3, nullptr);
    EXPECT_EQ(eAF_E_FAILED, location.reserveWritableSpace(500));
    location.updatePathHashTable();
    location.unassignProvider();
    EXPECT_EQ(0, location.providerAssigned);
    EXPECT_THAT(
        TraceRecorder::lines(),
        testing::IsSupersetOf(
            {Line{"reserveWritableSpace", "No StorageProvider is assigned to location Flash \n", eAF_E_FAILED},
             Line{"updatePathHashTable", "  Updating hash table for location Flash using provider none", eAF_DEBUG}}));
}

TEST_F(ProviderOperations, ALocationWhoseFlagIsClear_NeitherAsksNorLeavesItsProvider) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    SProviderDescriptor provider("First", 3, &FirstProvider::table);
    provider.addLocation(&location);
    location.markProviderAssigned(3, &provider);
    location.providerAssigned = 0;
    EXPECT_EQ(eAF_E_FAILED, location.reserveWritableSpace(500));
    EXPECT_THAT(test::providerCalls(), IsEmpty());
    location.unassignProvider();
    EXPECT_EQ(&provider, location.provider);
    EXPECT_THAT(provider.locations, ElementsAre(&location));
}

TEST_F(ProviderOperations, ALocation_AnswersWithTheDatabasesOwnCodeForARegionThatCanNotBeFiled) {
    SLocationDescriptor location("Flash", 7, 70, 4);
    test::StorageTree tree;
    EXPECT_EQ(eAF_E_FAILED, location.addRegion(nullptr));
    EXPECT_EQ(eAF_E_FAILED, location.addRegion(tree.region("", 7)));
    EXPECT_EQ(0u, CDatabase_GetNoOfRegions(location.database));
}

template <class First, class Second>
bool standsBefore(const First &first, const Second &second) {
    return std::less<const void *>()(&first, &second);
}

TEST_F(ProviderOperations, TheDescriptors_KeepTheOrderOfTheirFields) {
    const SLocationDescriptor location("Flash", 7, 70, 4);
    EXPECT_EQ(static_cast<const void *>(&location), &location.name);
    EXPECT_TRUE(standsBefore(location.name, location.locationId));
    EXPECT_TRUE(standsBefore(location.locationId, location.providerId));
    EXPECT_TRUE(standsBefore(location.providerId, location.providerAssigned));
    EXPECT_TRUE(standsBefore(location.providerAssigned, location.provider));
    EXPECT_TRUE(standsBefore(location.provider, location.writableSize));
    EXPECT_TRUE(standsBefore(location.writableSize, location.database));
    EXPECT_TRUE(standsBefore(location.database, location.locationData));
    const SProviderDescriptor provider("First", 3, &FirstProvider::table);
    EXPECT_EQ(static_cast<const void *>(&provider), &provider.name);
    EXPECT_TRUE(standsBefore(provider.name, provider.provider));
    EXPECT_TRUE(standsBefore(provider.provider, provider.providerId));
    EXPECT_TRUE(standsBefore(provider.providerId, provider.locations));
}

} // namespace
