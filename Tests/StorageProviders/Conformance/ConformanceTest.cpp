#include "Conformance.h"

#include <memory>

namespace {

using test::Conformance;
using test::contentOf;
using test::Firmware;
using test::setValue;
using test::TraceRecorder;
using test::valueOf;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Bytes = std::vector<unsigned char>;

TEST_F(Conformance, OnlyWhatChanged_IsWritten) {
    TraceRecorder::reset(0, 0);
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    std::vector<CVariable *> variables;
    for (std::int32_t i = 0; i < 10000; ++i) {
        variables.push_back(firmware.single(object, "V" + std::to_string(i), TYPE_INT32, i));
        if (i % 100 == 99) { // names are searched for linearly in one object
            object = firmware.object("O" + std::to_string(i));
        }
    }
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(10000u, statistics().noOfValuesWritten);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(0u, statistics().noOfValuesWritten);
    setValue(variables[7777], -1);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    restart();
    ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(10000u, statistics().noOfValuesRetrieved);
    EXPECT_EQ(-1, valueOf<std::int32_t>(variables[7777]));
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(0u, statistics().noOfValuesWritten) << "also since a retrieve";
}

TEST_F(Conformance, AStoreWithoutARetrieve_WritesOnlyWhatDiffersFromTheStore) {
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    firmware.single(object, "Same", TYPE_INT32, 1);
    CVariable *other = firmware.single(object, "Other", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    restart();
    setValue(other, 3);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
}

TEST_F(Conformance, WhatTheStoreDoesNotHold_GetsItsDefaultOrStaysAsItIs) {
    {
        Firmware older;
        older.single(older.object("O"), "Old", TYPE_INT32, 5);
        ASSERT_EQ(eAF_S_OK, older.store(*provider));
    }
    restart();
    Firmware newer;
    CStorageObject *object = newer.object("O");
    const std::int32_t defaultValue = 70;
    const CVariable *old = newer.single(object, "Old", TYPE_INT32, 0, &defaultValue);
    const CVariable *added = newer.single(object, "New", TYPE_INT32, 0, &defaultValue);
    const CVariable *bare = newer.single(object, "Bare", TYPE_INT32, 9);
    ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
    EXPECT_EQ(5, valueOf<std::int32_t>(old));
    EXPECT_EQ(70, valueOf<std::int32_t>(added));
    EXPECT_EQ(9, valueOf<std::int32_t>(bare));
    EXPECT_EQ(2u, statistics().noOfValuesMissing);
    for (const CVariable *variable : {old, added, bare}) {
        EXPECT_EQ(0u, variable->retrieved) << "every flag ends cleared";
    }
}

TEST_F(Conformance, RetrievingFromNothing_AppliesEveryDefault) {
    Firmware firmware;
    const std::int32_t defaultValue = 70;
    const CVariable *variable = firmware.single(firmware.object("O"), "V", TYPE_INT32, 1, &defaultValue);
    EXPECT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(70, valueOf<std::int32_t>(variable));
    EXPECT_THAT(told(3), IsEmpty());
}

TEST_F(Conformance, AValueOfAnotherTypeOrCount_IsNotLoadedAndStaysUntilAStoreReplacesIt) {
    {
        Firmware older;
        CStorageObject *object = older.object("O");
        older.single(object, "Type", TYPE_INT32, 5);
        older.variable(object, "Count", TYPE_UINT8_ARRAY, 4, {1, 2, 3, 4});
        ASSERT_EQ(eAF_S_OK, older.store(*provider));
    }
    restart();
    const std::uint32_t defaultValue = 70;
    const Bytes defaultBytes{9, 9, 9, 9, 9};
    {
        Firmware newer;
        CStorageObject *object = newer.object("O");
        const CVariable *type = newer.single(object, "Type", TYPE_UINT32, 0U, &defaultValue);
        const CVariable *count = newer.variable(object, "Count", TYPE_UINT8_ARRAY, 5, Bytes(5), &defaultBytes);
        TraceRecorder::reset();
        ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
        EXPECT_EQ(70u, valueOf<std::uint32_t>(type));
        EXPECT_EQ(defaultBytes, contentOf(count));
        EXPECT_EQ(2u, statistics().noOfValuesMismatched);
        EXPECT_THAT(
            told(3),
            ElementsAre(AllOf(HasSubstr("Cfg/O/Type"), ContainsRegex("[^U]INT32\\[1\\]"), HasSubstr("UINT32[1]")),
                        AllOf(HasSubstr("Cfg/O/Count"), HasSubstr("UINT8_ARRAY[4]"), HasSubstr("UINT8_ARRAY[5]"))));
    }
    restart();
    {
        Firmware older;
        CStorageObject *object = older.object("O");
        const CVariable *type = older.single(object, "Type", TYPE_INT32, 0);
        const CVariable *count = older.variable(object, "Count", TYPE_UINT8_ARRAY, 4, Bytes(4));
        ASSERT_EQ(eAF_S_OK, older.retrieve(*provider));
        EXPECT_EQ(5, valueOf<std::int32_t>(type)) << "a downgrade finds it again";
        EXPECT_EQ((Bytes{1, 2, 3, 4}), contentOf(count));
    }
    restart();
    Firmware newer;
    const CVariable *type = newer.single(newer.object("O"), "Type", TYPE_UINT32, 0U, &defaultValue);
    ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
    ASSERT_EQ(eAF_S_OK, newer.store(*provider));
    EXPECT_EQ(1u, statistics().noOfValuesWritten);
    restart();
    ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
    EXPECT_EQ(70u, valueOf<std::uint32_t>(type));
    EXPECT_EQ(0u, statistics().noOfValuesMismatched);
}

TEST_F(Conformance, ValuesOfVariablesThatAreNotRegistered_AreKeptThroughStores) {
    {
        Firmware older;
        older.single(older.object("O"), "Gone", TYPE_INT32, 5);
        ASSERT_EQ(eAF_S_OK, older.store(*provider));
    }
    restart();
    {
        Firmware newer;
        CVariable *here = newer.single(newer.object("O"), "Here", TYPE_INT32, 1);
        ASSERT_EQ(eAF_S_OK, newer.retrieve(*provider));
        EXPECT_EQ(1u, statistics().noOfValuesUnknown);
        EXPECT_THAT(told(3), IsEmpty()) << "that is nothing to worry about";
        EXPECT_THAT(told(5), ElementsAre(HasSubstr("1 values")));
        ASSERT_EQ(eAF_S_OK, newer.store(*provider));
        setValue(here, 2);
        ASSERT_EQ(eAF_S_OK, newer.store(*provider));
    }
    restart();
    Firmware both;
    CStorageObject *object = both.object("O");
    const CVariable *gone = both.single(object, "Gone", TYPE_INT32, 0);
    const CVariable *here = both.single(object, "Here", TYPE_INT32, 0);
    ASSERT_EQ(eAF_S_OK, both.retrieve(*provider));
    EXPECT_EQ(5, valueOf<std::int32_t>(gone));
    EXPECT_EQ(2, valueOf<std::int32_t>(here));
}

TEST_F(Conformance, Locations_AreKeptApart) {
    Firmware first(1);
    Firmware second(2);
    CVariable *one = first.single(first.object("O"), "V", TYPE_INT32, 1);
    CVariable *two = second.single(second.object("O"), "V", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, first.store(*provider));
    ASSERT_EQ(eAF_S_OK, second.store(*provider));
    restart();
    setValue(one, 0);
    setValue(two, 0);
    ASSERT_EQ(eAF_S_OK, first.retrieve(*provider));
    ASSERT_EQ(eAF_S_OK, second.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(one));
    EXPECT_EQ(2, valueOf<std::int32_t>(two));
}

TEST_F(Conformance, LocationsThatShareAFile_AreKeptApartOrRefused) {
    provider->close();
    if (!provider->sharesFiles()) {
        EXPECT_EQ(eAF_S_OK, provider->setFile(1, folder.file("shared.store")));
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider->setFile(2, folder.file("shared.store")));
        return;
    }
    const auto share = [this] {
        ASSERT_EQ(eAF_S_OK, provider->setFile(1, folder.file("shared.store")));
        ASSERT_EQ(eAF_S_OK, provider->setFile(2, folder.file("shared.store")));
        ASSERT_EQ(eAF_S_OK, provider->table()->Initialize(1));
        ASSERT_EQ(eAF_S_OK, provider->table()->Initialize(2));
    };
    share();
    Firmware first(1);
    Firmware second(2);
    CVariable *one = first.single(first.object("O"), "V", TYPE_INT32, 1);
    CVariable *two = second.single(second.object("O"), "V", TYPE_INT32, 2);
    ASSERT_EQ(eAF_S_OK, first.store(*provider));
    ASSERT_EQ(eAF_S_OK, second.store(*provider));
    provider->close();
    share();
    setValue(one, 0);
    setValue(two, 0);
    ASSERT_EQ(eAF_S_OK, second.retrieve(*provider));
    ASSERT_EQ(eAF_S_OK, first.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(one));
    EXPECT_EQ(2, valueOf<std::int32_t>(two));
}

TEST_F(Conformance, ALocationWithoutAFile_IsUnknownAndItsDefaultsHold) {
    const std::int32_t defaultValue = 70;
    Firmware firmware(9);
    const CVariable *variable = firmware.single(firmware.object("O"), "V", TYPE_INT32, 1, &defaultValue);
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider->table()->Initialize(9));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, provider->table()->ReserveWritableSpace(9, 100));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, firmware.store(*provider));
    EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, firmware.retrieve(*provider));
    EXPECT_EQ(70, valueOf<std::int32_t>(variable));
}

TEST_F(Conformance, Initialize_MayBeCalledAgain) {
    Firmware firmware;
    CVariable *variable = firmware.single(firmware.object("O"), "V", TYPE_INT32, 1);
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(eAF_S_OK, provider->table()->Initialize(1));
    EXPECT_EQ(eAF_S_OK, provider->table()->ReserveWritableSpace(1, 1000));
    setValue(variable, 2);
    EXPECT_EQ(eAF_S_OK, firmware.store(*provider));
    setValue(variable, 3);
    EXPECT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(2, valueOf<std::int32_t>(variable));
}

TEST_F(Conformance, AWalkThatFails_StoresWhatItReachedAndSaysSo) {
    Firmware firmware;
    CStorageObject *object = firmware.object("O");
    CVariable *variable = firmware.single(object, "V", TYPE_INT32, 1);
    CStorageObject child;
    CStorageObject_Construct(&child, "Child");
    ASSERT_EQ(eAF_S_OK, CStorageObject_AddObject(object, &child));
    CVariable *wrapper = nullptr;
    ASSERT_EQ(1u, CStorageObject_GetVariableByName(object, "Child", &wrapper));
    const std::unique_ptr<CVariable[]> freed(wrapper);
    EXPECT_EQ(eAF_E_FAILED, firmware.store(*provider));
    setValue(variable, 0);
    EXPECT_EQ(eAF_E_FAILED, firmware.retrieve(*provider));
    EXPECT_EQ(1, valueOf<std::int32_t>(variable));
    CStorageObject_Destruct(object); // while the wrapper lives
}

TEST_F(Conformance, AStoreWithoutVariables_IsEmpty) {
    Firmware firmware;
    EXPECT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_EQ(0u, statistics().noOfValuesWritten);
    restart();
    EXPECT_EQ(eAF_S_OK, firmware.retrieve(*provider));
    EXPECT_EQ(0u, statistics().noOfValuesUnknown);
}

} // namespace
