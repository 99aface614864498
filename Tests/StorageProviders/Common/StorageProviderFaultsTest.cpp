#include "ProviderFixture.h"
#include "Unlockable.h"

namespace {

using test::TraceRecorder;
using test::Unlockable;
using test::valueOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::int32_t defaultGain = 20;

class StorageProviderFaultsTest : public test::ProviderFixture {
protected:
    /// Nothing but the provider's last word on a store that could not be read.
    static std::string unreadable() {
        return "cfg.store could not be read: the defaults hold, and nothing is stored until a retrieve succeeds";
    }
};

TEST_F(StorageProviderFaultsTest, AnOpenThatFailed_IsTriedAgainByTheStore) {
    disk->openAnswer = eAF_E_INITIALIZATION_ERROR;
    gain(1);
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, provider.initialize(1));
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, provider.storeAll(1, &database));
    EXPECT_EQ(0, disk->writes);
    disk->openAnswer = eAF_S_OK;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(3, disk->opens);
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
}

TEST_F(StorageProviderFaultsTest, AnOpenThatFailed_IsTriedAgainByTheRetrieve) {
    disk->openAnswer = eAF_E_ALREADY_INITIALIZED;
    keep("Cfg/Radio/Gain", 7);
    CVariable *variable = gain(1, &defaultGain);
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, provider.initialize(1));
    disk->openAnswer = eAF_S_OK;
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(7, valueOf(variable));
}

TEST_F(StorageProviderFaultsTest, AWarningOfTheStore_IsNoFailure) {
    disk->openAnswer = eAF_W_WARNING;
    disk->readAnswer = eAF_W_WARNING;
    disk->writeAnswer = eAF_W_WARNING;
    gain(1);
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
}

class AStoreThatCanNotBeRead : public StorageProviderFaultsTest, public testing::WithParamInterface<bool> {
protected:
    /// The two ways: it does not open, or opens and does not read.
    EAFResult &answer() { return GetParam() ? disk->openAnswer : disk->readAnswer; }
};

TEST_P(AStoreThatCanNotBeRead, LeavesTheDefaultsAndReturnsItsCode) {
    keep("Cfg/Radio/Gain", 7);
    CVariable *variable = gain(1, &defaultGain);
    CVariable_SetRetrieved(variable, 1);
    answer() = eAF_E_WRONG_ACCESS;
    EXPECT_EQ(eAF_E_WRONG_ACCESS, provider.retrieveAll(1, &database));
    EXPECT_EQ(20, valueOf(variable));
    EXPECT_EQ(0u, CVariable_IsRetrieved(variable));
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("mend it"), unreadable()));
    EXPECT_EQ(0u, statistics().noOfValuesRetrieved);
}

TEST_P(AStoreThatCanNotBeRead, IsNotWrittenUntilARetrieveSucceeds) {
    keep("Cfg/Radio/Gain", 7);
    CVariable *variable = gain(1, &defaultGain);
    answer() = eAF_E_FAILED;
    ASSERT_EQ(eAF_E_FAILED, provider.retrieveAll(1, &database));
    answer() = eAF_S_OK;
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, provider.storeAll(1, &database));
    EXPECT_THAT(errors(),
                ElementsAre("nothing is stored in cfg.store, because it could not be read before: retrieve it "
                            "first, or the defaults would replace what it holds"));
    EXPECT_EQ(7, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(eAF_S_OK, provider.initialize(1));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, provider.storeAll(1, &database)) << "to open it is not to read it";
    ASSERT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(7, valueOf(variable));
    set(variable, 8);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(8, kept("Cfg/Radio/Gain"));
}

TEST_P(AStoreThatCanNotBeRead, FailsAStoreWithoutARetrieveAndIsNotWritten) {
    keep("Cfg/Radio/Gain", 7);
    gain(1);
    answer() = eAF_E_FAILED;
    EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    EXPECT_EQ(0, disk->writes);
    answer() = eAF_S_OK;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database)) << "no default stands in the variable";
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
}

INSTANTIATE_TEST_SUITE_P(OpenOrRead, AStoreThatCanNotBeRead, testing::Bool(),
                         [](const auto &each) { return std::string(each.param ? "NotOpened" : "NotRead"); });

TEST_F(StorageProviderFaultsTest, AStoreThatWasSetAside_CountsAsEmptyAndIsWrittenAnew) {
    keep("Cfg/Radio/Gain", 7);
    CVariable *variable = gain(1, &defaultGain);
    disk->wasSetAside = true;
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(20, valueOf(variable));
    EXPECT_THAT(warnings(), ElementsAre(HasSubstr("set aside")));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(20, kept("Cfg/Radio/Gain"));
}

TEST_F(StorageProviderFaultsTest, AWriteThatFails_ReturnsItsCodeAndIsTriedAgain) {
    CVariable *variable = gain(1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    set(variable, 2);
    disk->writeAnswer = eAF_E_WRONG_ACCESS;
    EXPECT_EQ(eAF_E_WRONG_ACCESS, provider.storeAll(1, &database));
    EXPECT_EQ(0u, statistics().noOfValuesWritten);
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
    EXPECT_THAT(errors(), ElementsAre("cfg.store could not be written: mend it"));
    disk->writeAnswer = eAF_S_OK;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(2, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
}

TEST_F(StorageProviderFaultsTest, AFailedWriteThatReachedTheDisk_IsWrittenOverThoughTheVariableWentBack) {
    CVariable *variable = gain(1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    set(variable, 2);
    disk->writeAnswer = eAF_E_FAILED;
    disk->takesFailedWrites = true;
    ASSERT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    ASSERT_EQ(2, kept("Cfg/Radio/Gain"));
    set(variable, 1);
    disk->writeAnswer = eAF_S_OK;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
}

TEST_F(StorageProviderFaultsTest, AStoreThatWasSetAsideByAFailedWrite_IsWrittenWholeByTheNext) {
    CVariable *variable = gain(1);
    tree.integer(object, "Same", 5);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    set(variable, 2);
    disk->writeAnswer = eAF_E_FAILED;
    ASSERT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    disk->writeAnswer = eAF_S_OK;
    disk->wasSetAside = true;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(2u, statistics().noOfValuesWritten);
    EXPECT_EQ(5, kept("Cfg/Radio/Same"));
}

TEST_F(StorageProviderFaultsTest, AStoreThatAnotherLocationSetAside_IsReadAgainAndWrittenThoughNothingChanged) {
    keep("Cfg/Radio/Gain", 7);
    gain(1);
    ASSERT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    disk->values.clear();
    disk->isStale = true;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(7, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(2, disk->reads) << "what was read again is compared with from then on";
    EXPECT_EQ(1, disk->writes);
}

TEST_F(StorageProviderFaultsTest, AVariableThatCanNotBeLocked_KeepsItsStoredValueAndTheOthersAreStored) {
    CVariable *held = gain(1);
    CVariable *other = tree.integer(object, "Other", 1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    set(held, 2);
    set(other, 2);
    {
        const Unlockable unlockable(held);
        EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    }
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(2, kept("Cfg/Radio/Other"));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    EXPECT_THAT(errors(), ElementsAre("the variable Cfg/Radio/Gain could not be locked: its earlier value stays in "
                                      "cfg.store"));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(2, kept("Cfg/Radio/Gain"));
}

TEST_F(StorageProviderFaultsTest, TheOnlyVariable_ThatCanNotBeLocked_WritesNothing) {
    const Unlockable unlockable(gain(1));
    EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    EXPECT_EQ(0, disk->writes);
}

TEST_F(StorageProviderFaultsTest, AVariableThatCanNotBeLockedForARetrieve_GetsItsDefaultAndNothingIsStoredOverIt) {
    keep("Cfg/Radio/Gain", 7);
    keep("Cfg/Radio/Other", 8);
    CVariable *held = gain(1, &defaultGain);
    CVariable *other = tree.integer(object, "Other", 1);
    {
        const Unlockable unlockable(held);
        EXPECT_EQ(eAF_E_FAILED, provider.retrieveAll(1, &database));
    }
    EXPECT_EQ(20, valueOf(held));
    EXPECT_EQ(8, valueOf(other));
    EXPECT_THAT(errors(), ElementsAre("the variable Cfg/Radio/Gain could not be locked: its default holds"));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, provider.storeAll(1, &database));
    EXPECT_EQ(7, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(7, valueOf(held));
}

TEST_F(StorageProviderFaultsTest, AfterAnOperation_EveryLockIsFree) {
    CVariable *variable = gain(1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    ASSERT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    ASSERT_EQ(0, pthread_mutex_trylock(&variable->mutex));
    pthread_mutex_unlock(&variable->mutex);
}

class AWalkThatFails : public StorageProviderFaultsTest {
protected:
    AWalkThatFails() {
        before = gain(1, &defaultGain);
        // The wrapper carries the child's address in a block that the walk takes for an object without a name.
        CStorageObject *child = tree.object("Child");
        EXPECT_EQ(eAF_S_OK, CStorageObject_AddObject(object, child));
        CVariable *wrapper = nullptr;
        EXPECT_EQ(1u, CStorageObject_GetVariableByName(object, "Child", &wrapper));
        m_wrapper.reset(wrapper);
        behind = tree.integer(object, "Behind", 2, &defaultGain);
        TraceRecorder::reset();
    }
    ~AWalkThatFails() override { CStorageObject_Destruct(object); } // while the wrapper lives
    AWalkThatFails(const AWalkThatFails &) = delete;
    AWalkThatFails &operator=(const AWalkThatFails &) = delete;

    CVariable *before = nullptr;
    CVariable *behind = nullptr;

private:
    std::unique_ptr<CVariable[]> m_wrapper;
};

TEST_F(AWalkThatFails, StoresWhatItReached) {
    EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(2, kept("Cfg/Radio/Behind"));
    EXPECT_EQ(2u, statistics().noOfValuesWritten);
    EXPECT_THAT(errors(), ElementsAre(AllOf(HasSubstr("cfg.store"), HasSubstr("those that could are stored"))));
}

TEST_F(AWalkThatFails, SaysSoAlsoWhenNothingChanged) {
    EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    EXPECT_EQ(1, disk->writes);
}

TEST_F(AWalkThatFails, RetrievesWhatItReachedAndLetsItBeStored) {
    keep("Cfg/Radio/Gain", 7);
    EXPECT_EQ(eAF_E_FAILED, provider.retrieveAll(1, &database));
    EXPECT_EQ(7, valueOf(before));
    EXPECT_EQ(20, valueOf(behind));
    EXPECT_EQ(1u, statistics().noOfValuesRetrieved);
    EXPECT_THAT(errors(), ElementsAre(AllOf(HasSubstr("cfg.store"), HasSubstr("those that could are retrieved"))));
    set(before, 8);
    EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    EXPECT_EQ(8, kept("Cfg/Radio/Gain")) << "what could be read may be written";
}

TEST_F(StorageProviderFaultsTest, ARegionWithoutAName_EndsTheWalkAndItsCodeIsReturned) {
    gain(1);
    CStorageRegion *other = tree.region("Other");
    tree.integer(tree.objectIn(other, "O"), "V", 2);
    ASSERT_EQ(eAF_S_OK, CDatabase_AddRegion(&database, other));
    other->name[0] = '\0';
    EXPECT_EQ(eAF_E_FAILED, provider.storeAll(1, &database));
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/Gain"));
    EXPECT_EQ(eAF_E_FAILED, provider.retrieveAll(1, &database));
}

TEST_F(StorageProviderFaultsTest, AStoreThatRunsOutOfMemory_IsACodeAndATrace) {
    CVariable *variable = gain(1, &defaultGain);
    disk->isOutOfMemory = true;
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, provider.initialize(1));
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, provider.storeAll(1, &database));
    const auto told = testing::StrEq("memory ran out for the storage location 1: free some and try again");
    EXPECT_THAT(errors(), ElementsAre(told, told));
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, provider.retrieveAll(1, &database));
    EXPECT_EQ(20, valueOf(variable)) << "the defaults hold";
    EXPECT_THAT(errors(), ElementsAre(told, told, told));
    disk->isOutOfMemory = false;
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, provider.storeAll(1, &database)) << "it was not read";
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(20, kept("Cfg/Radio/Gain"));
}

TEST_F(StorageProviderFaultsTest, AWriteThatRunsOutOfMemory_IsTriedAgain) {
    CVariable *variable = gain(1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    set(variable, 2);
    disk->isOutOfMemory = true;
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, provider.storeAll(1, &database));
    EXPECT_EQ(1, kept("Cfg/Radio/Gain"));
    disk->isOutOfMemory = false;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(2, kept("Cfg/Radio/Gain"));
}

} // namespace
