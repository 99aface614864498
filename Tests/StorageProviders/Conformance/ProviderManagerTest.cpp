// A host's run from registration to the last store, through the storage manager.
#include "Conformance.h"
#include "StorageTree.h"

namespace {

using test::Conformance;
using test::StorageTree;

const std::int32_t defaultGain = 20;
const std::int32_t defaultLimit = 90;

class ProviderManager : public Conformance {
protected:
    ProviderManager() { provider->close(); }
    ~ProviderManager() override { CStorageManager_Uninitialize(); }
    ProviderManager(const ProviderManager &) = delete;
    ProviderManager &operator=(const ProviderManager &) = delete;

    void nameLocations(const std::string &fileOfSecond) {
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterLocation(1, "configuration", 16, 0));
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterLocation(2, "calibration", 16, 0));
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterStorageProvider(provider->table(), 7, "under test"));
        ASSERT_EQ(eAF_S_OK, CStorageManager_AssignStorageProviderToLocation(1, 7));
        ASSERT_EQ(eAF_S_OK, CStorageManager_AssignStorageProviderToLocation(2, 7));
        ASSERT_EQ(eAF_S_OK, provider->setFile(1, folder.file("configuration")));
        ASSERT_EQ(eAF_S_OK, provider->setFile(2, fileOfSecond));
    }

    static void registerVariables(StorageTree &tree, bool isNewer) {
        CStorageRegion *configuration = tree.region("Cfg", 1);
        CStorageObject *radio = tree.objectIn(configuration, "Radio");
        tree.integer(radio, "Gain", 0, &defaultGain);
        if (isNewer) {
            tree.integer(tree.nested(radio, "Alarm"), "Limit", 0, &defaultLimit);
        }
        CStorageRegion *calibration = tree.region("Cal", 2);
        tree.integer(tree.objectIn(calibration, "Radio"), "Gain", 0, &defaultGain);
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterRegion(configuration));
        ASSERT_EQ(eAF_S_OK, CStorageManager_RegisterRegion(calibration));
        ASSERT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
    }

    static std::int32_t &at(const char *path) {
        static std::int32_t none;
        none = -1;
        void *content = nullptr;
        unsigned long contentSize = 0;
        EXPECT_EQ(eAF_S_OK, CStorageManager_GetVariableContentAddressByPath(path, &content, &contentSize)) << path;
        EXPECT_EQ(sizeof none, contentSize);
        return content != nullptr ? *static_cast<std::int32_t *>(content) : none;
    }

    StorageTree firstRun;
    StorageTree secondRun;
};

TEST_F(ProviderManager, WhatAModuleChangedInOneRun_IsThereInTheNext) {
    {
        nameLocations(folder.file("calibration"));
        registerVariables(firstRun, false);
        ASSERT_EQ(eAF_S_OK, CStorageManager_InitializeAllProviders());
        ASSERT_EQ(eAF_S_OK, CStorageManager_ReserveWritableSpace(1, 1000));
        ASSERT_EQ(eAF_S_OK, CStorageManager_RetrieveAll());
        EXPECT_EQ(20, at("Cfg/Radio/Gain"));
        at("Cfg/Radio/Gain") = 33;
        at("Cal/Radio/Gain") = 44;
        ASSERT_EQ(eAF_S_OK, CStorageManager_StoreAll());
        at("Cfg/Radio/Gain") = 55; // not stored any more
        ASSERT_EQ(eAF_S_OK, CStorageManager_Uninitialize());
        provider->close();
    }
    nameLocations(folder.file("calibration"));
    registerVariables(secondRun, true);
    ASSERT_EQ(eAF_S_OK, CStorageManager_InitializeAllProviders());
    ASSERT_EQ(eAF_S_OK, CStorageManager_RetrieveAll());
    EXPECT_EQ(33, at("Cfg/Radio/Gain"));
    EXPECT_EQ(44, at("Cal/Radio/Gain"));
    EXPECT_EQ(90, at("Cfg/Radio/Alarm/Limit")) << "new in this run";
    EXPECT_EQ(1u, statistics(1).noOfValuesRetrieved);
    EXPECT_EQ(1u, statistics(1).noOfValuesMissing);
    EXPECT_EQ(1u, statistics(2).noOfValuesRetrieved);
    ASSERT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    EXPECT_EQ(1u, statistics(1).noOfValuesWritten);
    EXPECT_EQ(0u, statistics(2).noOfValuesWritten);
    ASSERT_EQ(eAF_S_OK, CStorageManager_Uninitialize());
}

TEST_F(ProviderManager, ALocationThatFails_IsToldAndTheOtherIsServed) {
    {
        nameLocations(folder.file("calibration"));
        registerVariables(firstRun, false);
        ASSERT_EQ(eAF_S_OK, CStorageManager_RetrieveAll());
        at("Cfg/Radio/Gain") = 33;
        ASSERT_EQ(eAF_S_OK, CStorageManager_StoreAll());
        ASSERT_EQ(eAF_S_OK, CStorageManager_Uninitialize());
        provider->close();
    }
    provider->makeUnreadable(folder.name());
    nameLocations(folder.name() + "-elsewhere");
    registerVariables(secondRun, false);
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_InitializeAllProviders());
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_RetrieveAll());
    EXPECT_EQ(20, at("Cfg/Radio/Gain"));
    EXPECT_EQ(20, at("Cal/Radio/Gain"));
    EXPECT_EQ(eAF_E_FAILED, CStorageManager_StoreAll());
    EXPECT_EQ(1u, statistics(2).noOfValuesWritten);
    provider->makeReadable(folder.name());
    EXPECT_EQ(eAF_S_OK, CStorageManager_RetrieveAll());
    EXPECT_EQ(33, at("Cfg/Radio/Gain"));
    EXPECT_EQ(eAF_S_OK, CStorageManager_StoreAll());
    ASSERT_EQ(eAF_S_OK, CStorageManager_Uninitialize());
}

} // namespace
