// Every allocation of every operation fails in turn.
#include "ProviderFixture.h"
#include "RefusedNew.h"

namespace {

using test::RefusedNew;
using test::TraceRecorder;
using test::valueOf;

const std::int32_t defaultGain = 20;
constexpr int moreThanAnyNeeds = 10000;

class StorageProviderMemoryTest : public test::ProviderFixture {
protected:
    StorageProviderMemoryTest() {
        first = gain(1, &defaultGain);
        second = tree.integer(tree.nested(object, "A nested object whose name is no short one"), "Level", 2);
        CStorageObject *deep = object; // as deep as it takes for a walk to need memory
        for (int i = 0; i < 17; ++i) {
            deep = tree.nested(deep, std::string(119, 'n'));
            deepPath += std::string(119, 'n') + "/";
        }
        deepPath.resize(511);
        tree.integer(deep, "Deep");
        twin =
            tree.integer(object, "A nested object whose name is no short one/Level", 3); // said to have a double path
        TraceRecorder::reset(0, 0); // the recorder's own memory is not what is tested
    }

    /// Runs an operation until it needs no more memory than it gets. @return how often it was refused some.
    template <class Operation, class Check>
    int refuseEach(Operation operation, Check checkAfterwards) {
        for (int allowed = 0; allowed < moreThanAnyNeeds; ++allowed) {
            EAFResult result = eAF_S_OK;
            bool wasRefused = false;
            {
                const RefusedNew refused(allowed);
                result = operation();
                wasRefused = refused.wasRefused();
            }
            if (!wasRefused) {
                EXPECT_EQ(eAF_S_OK, result);
                return allowed;
            }
            EXPECT_EQ(eAF_E_OUT_OF_MEMORY, result) << allowed;
            checkAfterwards(allowed);
        }
        ADD_FAILURE() << "it never got enough";
        return 0;
    }

    CVariable *first = nullptr;
    CVariable *second = nullptr;
    CVariable *twin = nullptr;
    std::string deepPath = "Cfg/Radio/";
    static constexpr const char *secondPath = "Cfg/Radio/A nested object whose name is no short one/Level";
};

TEST_F(StorageProviderMemoryTest, SetFile_WithoutMemory_ChangesNothing) {
    const int refusals = refuseEach([this] { return provider.setFile(2, "a name that is longer than a short string"); },
                                    [this](int allowed) {
                                        SStorageStatistics unused{};
                                        EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.statistics(2, &unused)) << allowed;
                                    });
    EXPECT_GT(refusals, 2);
}

TEST_F(StorageProviderMemoryTest, StoreAll_WithoutMemory_LeavesTheStoreAsItIs) {
    keep("Cfg/Radio/Gain", 7);
    const int refusals = refuseEach([this] { return provider.storeAll(1, &database); },
                                    [this](int allowed) {
                                        EXPECT_EQ(1u, disk->values.size()) << allowed;
                                        EXPECT_EQ(7, kept("Cfg/Radio/Gain")) << allowed;
                                        EXPECT_EQ(1, valueOf(first)) << allowed;
                                        disk->reads = 0;
                                    });
    EXPECT_GT(refusals, 10);
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(2, kept(secondPath));
}

TEST_F(StorageProviderMemoryTest, StoreAll_OfWhatChanged_IsMadeWholeOnceThereIsMemory) {
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    set(first, 5);
    set(second, 6);
    const int refusals = refuseEach([this] { return provider.storeAll(1, &database); },
                                    [this](int allowed) {
                                        EXPECT_EQ(1, kept("Cfg/Radio/Gain")) << allowed;
                                        EXPECT_EQ(2, kept(secondPath)) << allowed;
                                    });
    EXPECT_GT(refusals, 5);
    EXPECT_EQ(5, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(6, kept(secondPath));
}

TEST_F(StorageProviderMemoryTest, RetrieveAll_WithoutMemory_LeavesEachVariableStoredOrDefault) {
    keep("Cfg/Radio/Gain", 7);
    keep(secondPath, 8);
    keep(deepPath, 0);
    keep("Cfg/Radio/Not registered today", 9);
    set(second, 2);
    const int refusals =
        refuseEach([this] { return provider.retrieveAll(1, &database); },
                   [this](int allowed) {
                       EXPECT_TRUE(valueOf(first) == 7 || valueOf(first) == 20) << allowed << ": " << valueOf(first);
                       EXPECT_TRUE(valueOf(second) == 8 || valueOf(second) == 2) << allowed << ": " << valueOf(second);
                       EXPECT_TRUE(CVariable_IsRetrieved(first) == 0 || valueOf(first) == 7) << allowed;
                       EXPECT_EQ(eAF_E_NOT_INITIALIZED, provider.storeAll(1, &database)) << allowed;
                       EXPECT_EQ(0, disk->writes) << allowed;
                       set(second, 2);
                   });
    EXPECT_GT(refusals, 5);
    EXPECT_EQ(7, valueOf(first));
    EXPECT_EQ(8, valueOf(second));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(0, disk->writes);
}

} // namespace
