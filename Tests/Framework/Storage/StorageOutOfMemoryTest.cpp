// Every allocation of an operation fails in turn: its code, nothing changed, nothing leaked, and it succeeds
// afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <string>

#include "AllocationProbe.h"
#include "CStorageManager.h"
#include "InterfaceBroker.h"
#include "Providers.h"
#include "QuietTraces.h"
#include "StorageTree.h"

namespace {

using test::AllocationProbe;

class StorageOutOfMemory : public testing::Test {
protected:
    StorageOutOfMemory() = default;
    ~StorageOutOfMemory() override { CStorageManager_Uninitialize(); }
    StorageOutOfMemory(const StorageOutOfMemory &) = delete;
    StorageOutOfMemory &operator=(const StorageOutOfMemory &) = delete;

    /// Runs a step with its first, second, ... allocation refused until it needs none more.
    /// @param afterFailure  checks what a failure has left.
    /// @return how many allocations the step needs.
    static unsigned failInTurn(const std::function<EAFResult()> &step, const std::function<void()> &afterFailure) {
        for (unsigned allowed = 0;; ++allowed) {
            const long blocks = AllocationProbe::blocks();
            EAFResult result = eAF_S_OK;
            unsigned refused = 0;
            {
                const auto probe = AllocationProbe::refusingOnly(allowed);
                result = step();
                refused = AllocationProbe::refusals();
            }
            if (refused == 0) {
                EXPECT_EQ(eAF_S_OK, result);
                return allowed;
            }
            EXPECT_EQ(eAF_E_OUT_OF_MEMORY, result) << "allocation " << allowed;
            EXPECT_EQ(blocks, AllocationProbe::blocks()) << "allocation " << allowed << " leaked";
            afterFailure();
        }
    }

    /// The platform's list may take its memory past `operator new`.
    static unsigned allocationsOfAnAppend() {
        CList list{};
        const AllocationProbe probe;
        CList_PushTail(&list, &list);
        const unsigned allocations = AllocationProbe::allocations();
        CList_Destruct(&list);
        return allocations;
    }

    /// So may its table.
    static bool tableTakesMemory() {
        CHashTable table{};
        CHashTable_Construct(&table, 1);
        const std::string longPath(100, 'p');
        const AllocationProbe probe;
        CHashTable_Set(&table, longPath.c_str(), &table);
        const bool takesMemory = AllocationProbe::allocations() != 0;
        CHashTable_Destruct(&table);
        return takesMemory;
    }

    test::StorageTree tree;
};

TEST_F(StorageOutOfMemory, AVariablesContent_LeavesTheRecordAsItWas) {
    CVariable variable{};
    variable.noOfElements = 77;
    EXPECT_EQ(1u, failInTurn([&] { return CVariable_Construct(&variable, nullptr, TYPE_INT32, 1, "V", nullptr); },
                             [&] { EXPECT_EQ(77u, variable.noOfElements); }));
    CVariable_Destruct(&variable);
}

TEST_F(StorageOutOfMemory, CreateVariables_KeepsThoseBeforeTheOneThatFailed) {
    SVariableDescriptor descriptors[] = {{nullptr, TYPE_INT32, 1, "A", nullptr},
                                         {nullptr, TYPE_INT32, 1, "B", nullptr}};
    // Each takes a record, a content and whatever the list takes. What a failing list may hold is not taken back.
    const unsigned each = 2 + allocationsOfAnAppend();
    for (const unsigned refused : {0U, 1U, each, each + 1}) {
        CStorageObject object;
        CStorageObject_Construct(&object, "O");
        const long blocks = AllocationProbe::blocks();
        {
            const auto probe = AllocationProbe::refusingOnly(refused);
            EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CStorageObject_CreateVariables(&object, descriptors, 2));
        }
        EXPECT_EQ(refused / each, CStorageObject_GetNoOfVariables(&object));
        CStorageObject_Destruct(&object);
        EXPECT_EQ(blocks, AllocationProbe::blocks());
    }
}

TEST_F(StorageOutOfMemory, AddObject_AddsNothing) {
    CStorageObject *parent = tree.object("Parent");
    CStorageObject *child = tree.object("Child");
    const long blocks = AllocationProbe::blocks();
    for (const unsigned refused : {0U, 1U}) {
        const auto probe = AllocationProbe::refusingOnly(refused);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CStorageObject_AddObject(parent, child));
        EXPECT_NE(0u, CStorageObject_IsEmpty(parent));
    }
    EXPECT_EQ(blocks, AllocationProbe::blocks());
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddObject(parent, child));
    CVariable *wrapper = nullptr;
    ASSERT_EQ(1u, CStorageObject_GetVariableByName(parent, "Child", &wrapper));
    const std::unique_ptr<CVariable[]> freed(wrapper);
    CStorageObject_Destruct(parent);
}

TEST_F(StorageOutOfMemory, ARegionAndADatabase_StayAsTheyWere) {
    CStorageRegion *region = tree.region("R");
    CStorageObject *object = tree.object("O");
    EXPECT_EQ(1u, failInTurn([&] { return CStorageRegion_AddObject(region, object); },
                             [&] { EXPECT_EQ(1u, CStorageRegion_IsEmpty(region)); }));
    CDatabase database;
    CDatabase_Construct(&database, 4);
    EXPECT_EQ(1u, failInTurn([&] { return CDatabase_AddRegion(&database, region); },
                             [&] { EXPECT_EQ(0u, CDatabase_GetNoOfRegions(&database)); }));
    CDatabase_Destruct(&database);
}

TEST_F(StorageOutOfMemory, RegistrationsAndAssignments_LeaveTheManagerAsItWas) {
    const std::string longName(100, 'n');
    EXPECT_LT(2u, failInTurn([&] { return CStorageManager_RegisterLocation(1, longName.c_str(), 4, 0); },
                             [] { EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CStorageManager_ReserveWritableSpace(1, 1)); }));
    EXPECT_LT(
        1u,
        failInTurn(
            [&] { return CStorageManager_RegisterStorageProvider(&test::FirstProvider::table, 1, longName.c_str()); },
            [] { EXPECT_EQ(eAF_E_UNKNOWN_PROVIDER, CStorageManager_AssignStorageProviderToLocation(1, 1)); }));
    EXPECT_EQ(1u, failInTurn([] { return CStorageManager_AssignStorageProviderToLocation(1, 1); },
                             [] {
                                 test::resetProviders();
                                 EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
                                 EXPECT_TRUE(test::providerCalls().empty());
                                 EXPECT_EQ(eAF_E_FAILED, CStorageManager_ReserveWritableSpace(1, 1)) << "not assigned";
                             }));
}

TEST_F(StorageOutOfMemory, ARegionThatCanNotBeFiled_FailsAsTheStepThatFailed) {
    CStorageManager_RegisterLocation(1, "L", 4, 0);
    CStorageRegion *region = tree.region("R", 1);
    {
        const auto probe = AllocationProbe::refusingOnly(0);
        EXPECT_EQ(eAF_E_FAILED, CStorageManager_RegisterRegion(region));
    }
    EXPECT_EQ(eAF_S_OK, CStorageManager_RegisterRegion(region));
}

EAFResult nothing(CDatabase *, CVariable *, const char *, const char *, const char *, const char *) {
    return eAF_S_OK;
}

class WalkOutOfMemory : public StorageOutOfMemory {
protected:
    WalkOutOfMemory() {
        CDatabase_Construct(&database, 4);
        CStorageRegion *region = tree.region("R");
        CDatabase_AddRegion(&database, region);
        object = tree.objectIn(region, std::string(119, 'o'));
    }
    ~WalkOutOfMemory() override { CDatabase_Destruct(&database); }
    void nest(int depth) {
        for (int i = 0; i < depth; ++i) {
            object = tree.nested(object, std::string(119, 'p'));
        }
        tree.integer(object, "V");
    }

    CDatabase database{};
    CStorageObject *object;
};

TEST_F(WalkOutOfMemory, SixteenObjectsInsideOneAnother_NeedNone) {
    nest(15);
    EXPECT_EQ(0u, failInTurn([&] { return CDatabase_DoVariableOperation(&database, nothing); }, [] {}));
    EXPECT_EQ(1, database.noOfVariablesProcessed);
}

TEST_F(WalkOutOfMemory, DeeperObjects_MakeItFailAndTheNextOneSucceeds) {
    nest(20);
    EXPECT_LE(1u, failInTurn([&] { return CDatabase_DoVariableOperation(&database, nothing); }, [] {}));
    EXPECT_EQ(1, database.noOfVariablesProcessed);
}

TEST_F(StorageOutOfMemory, APathUpdate_AnswersThatAllIsWell) {
    CStorageManager_RegisterLocation(1, "L", 4, 0);
    CStorageRegion *region = tree.region("R", 1);
    CStorageManager_RegisterRegion(region);
    tree.integer(tree.objectIn(region, std::string(100, 'o')), "V");
    CVariable *found = nullptr;
    const std::string path = "R/" + std::string(100, 'o') + "/V";
    {
        const auto probe = AllocationProbe::refusingFrom(0);
        EXPECT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    }
    EXPECT_EQ(tableTakesMemory() ? eAF_E_UNKNOWN_VARIABLE : eAF_S_OK,
              CStorageManager_GetVariableByPath(path.c_str(), &found));
    EXPECT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath(path.c_str(), &found));
}

TEST_F(StorageOutOfMemory, APathUpdateThatBreaksOff_AnswersThatAllIsWell) {
    CStorageManager_RegisterLocation(1, "L", 4, 0);
    CStorageRegion *region = tree.region("R", 1);
    CStorageManager_RegisterRegion(region);
    CStorageObject *object = tree.objectIn(region, "O");
    for (int depth = 0; depth < 20; ++depth) {
        object = tree.nested(object, std::string(119, 'n'));
    }
    tree.integer(object, "Deep");
    tree.integer(tree.objectIn(region, "Next"), "V");
    {
        const auto probe = AllocationProbe::refusingFrom(0);
        EXPECT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    }
    CVariable *found = nullptr;
    EXPECT_NE(eAF_S_OK, CStorageManager_GetVariableByPath("R/Next/V", &found));
    EXPECT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath("R/Next/V", &found));
}

TEST_F(StorageOutOfMemory, LookUps_NeedNoMemoryAndLoseAtMostTheirLog) {
    CStorageManager_RegisterLocation(1, "L", 4, 0);
    CStorageRegion *region = tree.region("R", 1);
    CStorageManager_RegisterRegion(region);
    CVariable *variable = tree.integer(tree.objectIn(region, "O"), "V");
    CStorageManager_UpdatePathHashTable();
    const std::string longPath = "R/O/" + std::string(400, 'x');
    CVariable *found = nullptr;
    const auto probe = AllocationProbe::refusingFrom(0);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByPath("R/O/V", &found));
    EXPECT_EQ(variable, found);
    EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableByName("V", &found));
    EXPECT_EQ(variable, found);
    EXPECT_EQ(eAF_E_UNKNOWN_VARIABLE, CStorageManager_GetVariableByPath(longPath.c_str(), &found));
}

TEST_F(StorageOutOfMemory, TheBroker_LetsTheAllocatorsExceptionThroughAndAddsNothing) {
    InterfaceBroker &broker = InterfaceBroker::getInstance();
    IInterface interface(std::string(100, 'i'));
    const long blocks = AllocationProbe::blocks();
    for (const unsigned refused : {0U, 1U}) {
        bool hasThrown = false;
        {
            const auto probe = AllocationProbe::refusingOnly(refused);
            try {
                broker.registerInterface(&interface);
            } catch (const std::bad_alloc &) {
                hasThrown = true;
            }
        }
        EXPECT_TRUE(hasThrown) << refused;
    }
    EXPECT_EQ(blocks, AllocationProbe::blocks());
    IInterface *found = nullptr;
    EXPECT_EQ(eAF_E_FAILED, broker.getInterface(interface.getName(), &found));
    EXPECT_EQ(eAF_S_OK, broker.registerInterface(&interface));
    broker.clear();
}

EAFResult markRetrieved(CDatabase *, CVariable *variable, const char *, const char *, const char *, const char *) {
    CVariable_SetRetrieved(variable, 1);
    return eAF_S_OK;
}

TEST_F(StorageOutOfMemory, AWalk_RunsNoActionWhereItCanNotFinish) {
    CDatabase database;
    CDatabase_Construct(&database, 4);
    CStorageRegion *region = tree.region("R");
    CDatabase_AddRegion(&database, region);
    CVariable *first = tree.integer(tree.objectIn(region, "O"), "First");
    CVariable *last = tree.integer(tree.objectIn(region, std::string(100, 'o')), "Last");
    failInTurn([&] { return CDatabase_DoVariableOperation(&database, markRetrieved); },
               [&] {
                   EXPECT_EQ(0u, CVariable_IsRetrieved(first)) << "everything is as it was";
                   CVariable_SetRetrieved(first, 0);
               });
    EXPECT_EQ(1u, CVariable_IsRetrieved(last));
    CDatabase_Destruct(&database);
}

TEST_F(StorageOutOfMemory, TheBroker_ReportsAnEntryOnlyOnceItIsThere) {
    InterfaceBroker &broker = InterfaceBroker::getInstance();
    IInterface interface("I");
    test::QuietTraces::reset();
    {
        const auto probe = AllocationProbe::refusingOnly(0);
        EXPECT_THROW(broker.registerInterface(&interface), std::bad_alloc);
    }
    EXPECT_EQ("registerInterface:   Register interface I      code: 0x800\n", test::QuietTraces::text());
    EXPECT_EQ(0, test::QuietTraces::open());
    EXPECT_EQ(eAF_S_OK, broker.registerInterface(&interface));
    broker.clear();
}

} // namespace
