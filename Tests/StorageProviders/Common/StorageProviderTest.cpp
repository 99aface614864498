#include "ProviderFixture.h"

namespace {

using storage::StorageProvider;
using test::Disk;
using test::ScriptedStore;
using test::TraceRecorder;
using test::valueOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StrEq;

const std::int32_t defaultGain = 20;

class StorageProviderTest : public test::ProviderFixture {};

TEST_F(StorageProviderTest, SetFile_WithoutAName_IsRefused) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider.setFile(2, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider.setFile(2, ""));
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("name the file"), HasSubstr("name the file")));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.initialize(2));
}

TEST_F(StorageProviderTest, SetFile_OfAnOpenLocation_IsRefusedAndNamesBothFiles) {
    ASSERT_EQ(eAF_S_OK, provider.initialize(1));
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, provider.setFile(1, "other.store"));
    EXPECT_THAT(errors(), ElementsAre(AllOf(HasSubstr("cfg.store"), HasSubstr("other.store"))));
}

TEST_F(StorageProviderTest, SetFile_BeforeTheLocationIsOpen_ReplacesTheName) {
    EXPECT_EQ(eAF_S_OK, provider.setFile(1, "other.store"));
    disk->openAnswer = eAF_E_FAILED;
    EXPECT_EQ(eAF_E_FAILED, provider.initialize(1));
    EXPECT_THAT(errors(), ElementsAre("other.store could not be opened: mend it"));
}

TEST_F(StorageProviderTest, IsAnothersFile_LooksAtTheOtherLocations) {
    EXPECT_FALSE(provider.isAnothersFile(1, "cfg.store"));
    EXPECT_TRUE(provider.isAnothersFile(2, "cfg.store"));
    EXPECT_FALSE(provider.isAnothersFile(2, "Cfg.store"));
    EXPECT_FALSE(provider.isAnothersFile(2, nullptr));
}

TEST_F(StorageProviderTest, Initialize_OpensTheStoreOnce) {
    EXPECT_EQ(eAF_S_OK, provider.initialize(1));
    EXPECT_EQ(eAF_S_OK, provider.initialize(1));
    gain(1);
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(1, disk->opens);
}

TEST_F(StorageProviderTest, ALocationWithoutAFile_IsUnknownToEveryOperation) {
    CVariable *variable = gain(5, &defaultGain);
    CVariable_SetRetrieved(variable, 1);
    SStorageStatistics untouched{1, 2, 3, 4, 5};
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.initialize(7));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.reserve(7, 100));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.storeAll(7, &database));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.statistics(7, &untouched));
    EXPECT_EQ(1u, untouched.noOfValuesWritten);
    EXPECT_EQ(5, valueOf(variable));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.retrieveAll(7, &database));
    EXPECT_EQ(20, valueOf(variable)) << "the start goes on with defaults";
    EXPECT_EQ(0u, CVariable_IsRetrieved(variable));
    const auto unnamed = StrEq("no file was named for the storage location 7: name one before the providers are "
                               "initialised");
    EXPECT_THAT(errors(), ElementsAre(unnamed, unnamed, unnamed, unnamed));
}

TEST_F(StorageProviderTest, ANullDatabase_IsRefused) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider.storeAll(1, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider.retrieveAll(1, nullptr));
    EXPECT_EQ(2u, errors().size());
    EXPECT_EQ(0, disk->opens);
}

TEST_F(StorageProviderTest, Statistics_WithoutARecordToFill_AreRefused) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider.statistics(1, nullptr));
}

TEST_F(StorageProviderTest, Statistics_AreAllZeroBeforeTheFirstOperation) {
    const SStorageStatistics all = statistics();
    EXPECT_EQ(0u, all.noOfValuesWritten | all.noOfValuesRetrieved | all.noOfValuesMismatched | all.noOfValuesMissing |
                      all.noOfValuesUnknown);
}

TEST_F(StorageProviderTest, StoreAll_OfNewVariables_WritesThemInTheOrderOfTheWalk) {
    tree.integer(object, "Zulu", 1);
    tree.integer(tree.nested(object, "Tx"), "Lo", 2);
    tree.integer(object, "Alpha", 3);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/Zulu", "Cfg/Radio/Tx/Lo", "Cfg/Radio/Alpha"));
    EXPECT_EQ(2, kept("Cfg/Radio/Tx/Lo"));
    EXPECT_EQ(3u, statistics().noOfValuesWritten);
}

TEST_F(StorageProviderTest, StoreAll_OfUnchangedVariables_DoesNotWriteAtAll) {
    gain(1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1, disk->writes);
    EXPECT_EQ(1, disk->reads) << "what is stored is known";
    EXPECT_EQ(0u, statistics().noOfValuesWritten);
}

TEST_F(StorageProviderTest, StoreAll_WithoutVariables_WritesNothing) {
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(0, disk->writes);
}

TEST_F(StorageProviderTest, StoreAll_WritesWhatChangedAlone) {
    CVariable *variable = gain(1);
    tree.integer(object, "Same", 1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    set(variable, 2);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/Gain"));
    EXPECT_EQ(2, kept("Cfg/Radio/Gain"));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
}

TEST_F(StorageProviderTest, StoreAll_WithoutARetrieve_ReadsWhatIsStoredBeforeItCompares) {
    keep("Cfg/Radio/Gain", 1);
    gain(1);
    tree.integer(object, "New", 5);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1, disk->opens);
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/New"));
}

TEST_F(StorageProviderTest, StoreAll_OfAnotherTypeOrCount_ReplacesTheStoredValue) {
    keep("Cfg/Radio/Gain", 1);
    keep("Cfg/Radio/Table", 1);
    const std::int32_t one = 1;
    std::int32_t table = 1;
    tree.variable(object, {const_cast<std::int32_t *>(&one), TYPE_UINT32, 1, "Gain", nullptr});
    tree.variable(object, {&table, TYPE_INT32_ARRAY, 1, "Table", nullptr});
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/Gain", "Cfg/Radio/Table")) << "the same bytes are another value";
    EXPECT_EQ(TYPE_UINT32, disk->values["Cfg/Radio/Gain"].type);
}

TEST_F(StorageProviderTest, ACountThatDiffersAlone_IsAnotherValueThoughTheSizeIsTheSame) {
    keep("Cfg/Radio/Gain", 7);
    std::int32_t content = 7; // one element is as large as two, for a type that is no array
    tree.variable(object, {&content, TYPE_INT32, 2, "Gain", const_cast<std::int32_t *>(&defaultGain)});
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(20, content);
    EXPECT_EQ(1u, statistics().noOfValuesMismatched);
    content = 7;
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    EXPECT_EQ(2u, disk->values["Cfg/Radio/Gain"].noOfElements);
}

TEST_F(StorageProviderTest, StoreAll_LeavesTheRetrievedFlagsAndTheContentsAlone) {
    CVariable *variable = gain(1, &defaultGain);
    CVariable_SetRetrieved(variable, 1);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1u, CVariable_IsRetrieved(variable));
    EXPECT_EQ(1, valueOf(variable));
}

TEST_F(StorageProviderTest, TwoVariablesOfOnePath_KeepTheFirstAndSaySoWithThePath) {
    CVariable *first = tree.integer(tree.nested(object, "Tx"), "Lo", 1);
    CVariable *second = tree.integer(object, "Tx/Lo", 2);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1, kept("Cfg/Radio/Tx/Lo"));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    const auto told = AllOf(HasSubstr("Cfg/Radio/Tx/Lo"), HasSubstr("only the first"));
    EXPECT_THAT(warnings(), ElementsAre(told));
    set(first, 8);
    set(second, 9);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(1, valueOf(first));
    EXPECT_EQ(9, valueOf(second));
    EXPECT_THAT(warnings(), ElementsAre(told));
}

TEST_F(StorageProviderTest, TwoVariablesOfAPathThatTheStoreHolds_KeepTheFirstInEachStore) {
    keep("Cfg/Radio/Tx/Lo", 3);
    CVariable *first = tree.integer(tree.nested(object, "Tx"), "Lo", 1);
    CVariable *second = tree.integer(object, "Tx/Lo", 2);
    const auto told = AllOf(HasSubstr("Cfg/Radio/Tx/Lo"), HasSubstr("only the first"));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(1, kept("Cfg/Radio/Tx/Lo"));
    EXPECT_THAT(warnings(), ElementsAre(told));
    set(second, 4);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(0u, statistics().noOfValuesWritten) << "the second's changes are nobody's";
    EXPECT_THAT(warnings(), ElementsAre(told, told));
    set(first, 5);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(5, kept("Cfg/Radio/Tx/Lo"));
    EXPECT_THAT(warnings(), ElementsAre(told, told, told));
}

TEST_F(StorageProviderTest, AVariableWithoutContentOrOfNoKnownType_IsNamedAndLeftOut) {
    CVariable *variable = gain(1);
    CVariable *bare = tree.integer(object, "Bare", 2);
    CVariable *odd = tree.integer(object, "Odd", 3);
    void *content = bare->content;
    bare->content = nullptr;
    odd->type = static_cast<EVariableType>(23);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/Gain"));
    EXPECT_THAT(warnings(), ElementsAre(AllOf(HasSubstr("Cfg/Radio/Bare"), HasSubstr("no content")),
                                        AllOf(HasSubstr("Cfg/Radio/Odd"), HasSubstr("unknown type"))));
    EXPECT_EQ(1, valueOf(variable));
    bare->content = content;
    odd->type = TYPE_INT32;
}

TEST_F(StorageProviderTest, AStoreOfMoreThanWasReserved_IsMadeAndWarnedOf) {
    gain(1);
    tree.integer(object, "More", 2);
    EXPECT_EQ(eAF_S_OK, provider.reserve(1, 8));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(warnings(), IsEmpty()) << "as much as reserved is no more";
    EXPECT_EQ(eAF_S_OK, provider.reserve(1, 7));
    tree.integer(object, "Yet", 3);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(warnings(), ElementsAre("the variables of cfg.store take 12 bytes, reserved were 7: reserve more"));
    EXPECT_EQ(3, kept("Cfg/Radio/Yet"));
}

TEST_F(StorageProviderTest, ReservingNothing_IsNoLimit) {
    EXPECT_EQ(eAF_S_OK, provider.reserve(1, 0));
    gain(1);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(StorageProviderTest, RetrieveAll_FillsWhatIsStoredAndGivesTheRestItsDefaults) {
    keep("Cfg/Radio/Gain", 7);
    CVariable *stored = gain(0, &defaultGain);
    CVariable *missing = tree.integer(object, "Missing", 1, &defaultGain);
    CVariable *bare = tree.integer(object, "Bare", 3);
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(7, valueOf(stored));
    EXPECT_EQ(20, valueOf(missing));
    EXPECT_EQ(3, valueOf(bare)) << "without a default it stays";
    const SStorageStatistics counted = statistics();
    EXPECT_EQ(1u, counted.noOfValuesRetrieved);
    EXPECT_EQ(2u, counted.noOfValuesMissing);
    EXPECT_EQ(0u, counted.noOfValuesMismatched);
    EXPECT_EQ(0u, counted.noOfValuesUnknown);
}

TEST_F(StorageProviderTest, RetrieveAll_EndsWithEveryRetrievedFlagClear) {
    keep("Cfg/Radio/Gain", 7);
    CVariable *stored = gain(0);
    CVariable *missing = tree.integer(object, "Missing", 1);
    CVariable_SetRetrieved(missing, 1);
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(0u, CVariable_IsRetrieved(stored));
    EXPECT_EQ(0u, CVariable_IsRetrieved(missing));
}

TEST_F(StorageProviderTest, RetrieveAll_AfterAFlagWasLeftSet_StillAppliesTheDefault) {
    CVariable *missing = tree.integer(object, "Missing", 1, &defaultGain);
    CVariable_SetRetrieved(missing, 1);
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(20, valueOf(missing));
}

TEST_F(StorageProviderTest, RetrieveAll_ReadsTheStoreEachTime) {
    CVariable *variable = gain(0);
    keep("Cfg/Radio/Gain", 7);
    ASSERT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    keep("Cfg/Radio/Gain", 8);
    ASSERT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(8, valueOf(variable));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(0, disk->writes) << "what was retrieved is what is stored";
}

TEST_F(StorageProviderTest, AValueOfAnotherTypeOrCount_IsNamedAndNotLoaded) {
    keep("Cfg/Radio/Gain", 7);
    keep("Cfg/Radio/Table", 7);
    std::uint32_t gainContent = 1;
    std::int32_t table[2] = {1, 2};
    std::int32_t defaults[2] = {3, 4};
    tree.variable(object, {&gainContent, TYPE_UINT32, 1, "Gain", nullptr});
    tree.variable(object, {table, TYPE_INT32_ARRAY, 2, "Table", defaults});
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(1u, gainContent);
    EXPECT_EQ(3, table[0]);
    EXPECT_EQ(4, table[1]);
    EXPECT_THAT(
        warnings(),
        ElementsAre("the variable Cfg/Radio/Gain is stored in cfg.store as INT32[1], expected is UINT32[1]: its "
                    "default holds, the stored one stays until the next store",
                    "the variable Cfg/Radio/Table is stored in cfg.store as INT32[1], expected is "
                    "INT32_ARRAY[2]: its default holds, the stored one stays until the next store"));
    EXPECT_EQ(2u, statistics().noOfValuesMismatched);
    EXPECT_EQ(0u, statistics().noOfValuesUnknown);
    EXPECT_EQ(TYPE_INT32, disk->values["Cfg/Radio/Gain"].type);
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/Gain", "Cfg/Radio/Table"));
}

TEST_F(StorageProviderTest, ValuesWithoutAVariable_AreCountedAndNeverWritten) {
    keep("Cfg/Radio/Gone", 7);
    keep("Cfg/Radio/Away", 8);
    gain(1);
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(2u, statistics().noOfValuesUnknown);
    EXPECT_THAT(informations(),
                ElementsAre("cfg.store holds 2 values of variables that are not registered: they are kept"));
    EXPECT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_THAT(disk->written, ElementsAre("Cfg/Radio/Gain"));
    EXPECT_EQ(7, kept("Cfg/Radio/Gone"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(StorageProviderTest, TheStatisticsOfAStore_OutliveARetrieve) {
    gain(1);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    ASSERT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    EXPECT_EQ(1u, statistics().noOfValuesRetrieved);
    ASSERT_EQ(eAF_S_OK, provider.storeAll(1, &database));
    EXPECT_EQ(0u, statistics().noOfValuesWritten);
    EXPECT_EQ(1u, statistics().noOfValuesRetrieved);
}

TEST_F(StorageProviderTest, Locations_HaveStoresAndStatisticsOfTheirOwn) {
    std::map<std::string, std::shared_ptr<Disk>> disks;
    std::vector<unsigned long> ids;
    StorageProvider two(trace, [&](unsigned long locationId, const std::string &file) {
        ids.push_back(locationId);
        disks[file] = std::make_shared<Disk>();
        return std::make_unique<ScriptedStore>(file, disks[file]);
    });
    ASSERT_EQ(eAF_S_OK, two.setFile(1, "a"));
    ASSERT_EQ(eAF_S_OK, two.setFile(9, "b"));
    EXPECT_THAT(ids, ElementsAre(1, 9));
    gain(1);
    EXPECT_EQ(eAF_S_OK, two.storeAll(9, &database));
    EXPECT_EQ(0u, disks["a"]->values.size());
    EXPECT_EQ(1u, disks["b"]->values.size());
    SStorageStatistics ofFirst{};
    SStorageStatistics ofSecond{};
    EXPECT_EQ(eAF_S_OK, two.statistics(1, &ofFirst));
    EXPECT_EQ(eAF_S_OK, two.statistics(9, &ofSecond));
    EXPECT_EQ(0u, ofFirst.noOfValuesWritten);
    EXPECT_EQ(1u, ofSecond.noOfValuesWritten);
}

TEST_F(StorageProviderTest, Clear_ForgetsEveryLocation) {
    ASSERT_EQ(eAF_S_OK, provider.initialize(1));
    provider.clear();
    EXPECT_EQ(1, disk.use_count()) << "the store is closed";
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider.initialize(1));
    EXPECT_EQ(eAF_S_OK, provider.setFile(1, "cfg.store"));
    EXPECT_EQ(eAF_S_OK, provider.initialize(1));
}

TEST_F(StorageProviderTest, EachTrace_NamesItsOperation) {
    disk->openAnswer = eAF_E_FAILED;
    gain(1);
    provider.initialize(1);
    provider.storeAll(1, &database);
    provider.retrieveAll(1, &database);
    std::vector<std::string> operations;
    for (const test::DomainTrace &record : TraceRecorder::domainRecords()) {
        if (record.domain == "TEST.STORE" && record.text == "cfg.store could not be opened: mend it") {
            operations.push_back(record.function);
        }
    }
    EXPECT_THAT(operations, ElementsAre("Initialize", "StoreAll", "RetrieveAll"));
}

TEST_F(StorageProviderTest, ADisabledLevel_IsNotLogged) {
    TraceRecorder::reset(TraceRecorder::everything, 1);
    keep("Cfg/Radio/Gone", 7);
    tree.integer(tree.nested(object, "Tx"), "Lo", 1);
    tree.integer(object, "Tx/Lo", 2);
    EXPECT_EQ(eAF_S_OK, provider.retrieveAll(1, &database));
    EXPECT_THAT(warnings(), IsEmpty());
    EXPECT_THAT(informations(), IsEmpty());
}

} // namespace
