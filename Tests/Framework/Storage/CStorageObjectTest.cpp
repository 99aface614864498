#include "CStorageObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class CStorageObjectTest : public testing::Test {
protected:
    CStorageObjectTest() {
        TraceRecorder::reset();
        std::memset(static_cast<void *>(&object), 0xA5, sizeof object);
        CStorageObject_Construct(&object, "Radio");
    }
    ~CStorageObjectTest() override { CStorageObject_Destruct(&object); }

    EAFResult create(std::vector<SVariableDescriptor> descriptors) {
        return CStorageObject_CreateVariables(&object, descriptors.data(), descriptors.size());
    }

    /// The names in the order of an iteration, as every walker does it.
    std::vector<std::string> names() {
        std::vector<std::string> result;
        CListIterator iterator{};
        EAFResult more = CStorageObject_GetVariableIterator(&object, &iterator);
        while (more == eAF_S_OK) {
            CVariable *variable = nullptr;
            more = CStorageObject_GetNextVariable(&object, &variable, &iterator);
            result.emplace_back(variable->name);
        }
        EXPECT_EQ(eAF_W_NO_MORE_DATA, more);
        return result;
    }

    CVariable *find(const char *name) {
        CVariable *variable = nullptr;
        EXPECT_EQ(1u, CStorageObject_GetVariableByName(&object, name, &variable)) << name;
        return variable;
    }

    CStorageObject object;
    std::int32_t content = 5;
};

TEST_F(CStorageObjectTest, Construct_MakesAnEmptyWritableObject) {
    EXPECT_EQ(0u, CStorageObject_IsDynamicallyAllocated(&object));
    EXPECT_NE(0u, CStorageObject_IsEmpty(&object));
    EXPECT_EQ(0u, CStorageObject_GetNoOfVariables(&object));
    EXPECT_EQ(0u, object.reservedSize);
    EXPECT_STREQ("Radio", object.name);
    EXPECT_EQ(nullptr, object.rawObjectContentAddress);
    EXPECT_EQ(0u, object.applicationData);
    EXPECT_EQ(1u, CStorageObject_IsWritable(&object));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageObjectTest, FieldsStandInTheirSettledOrder) {
    EXPECT_EQ(0u, offsetof(CStorageObject, dynamicallyAllocated));
    EXPECT_LT(offsetof(CStorageObject, dynamicallyAllocated), offsetof(CStorageObject, variables));
    EXPECT_LT(offsetof(CStorageObject, variables), offsetof(CStorageObject, reservedSize));
    EXPECT_LT(offsetof(CStorageObject, reservedSize), offsetof(CStorageObject, name));
    EXPECT_LT(offsetof(CStorageObject, name), offsetof(CStorageObject, rawObjectContentAddress));
    EXPECT_LT(offsetof(CStorageObject, rawObjectContentAddress), offsetof(CStorageObject, applicationData));
    EXPECT_LT(offsetof(CStorageObject, applicationData), offsetof(CStorageObject, writable));
    EXPECT_LT(offsetof(CVariable, retrieved), offsetof(CVariable, accessType));
    EXPECT_LT(offsetof(CVariable, accessType), offsetof(CVariable, mutex));
}

TEST_F(CStorageObjectTest, ANameOf130Characters_IsKeptAsItsFirst119) {
    CStorageObject_Construct(&object, std::string(130, 'o').c_str());
    char *name = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetName(&object, &name));
    EXPECT_EQ(std::string(119, 'o'), name);
    EXPECT_EQ(object.name, name);
}

TEST_F(CStorageObjectTest, GetName_OfAnEmptyName_HandsItOutAndFails) {
    CStorageObject_Construct(&object, "");
    char *name = nullptr;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetName(&object, &name));
    EXPECT_EQ(object.name, name);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetName(nullptr, &name));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetName(&object, nullptr));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageObjectTest, CreateVariables_HandsTheFiveWordsOnAndMarksTheVariable) {
    std::int32_t defaultContent = 6;
    ASSERT_EQ(eAF_S_OK, create({{&content, TYPE_UINT32, 1, "Gain", &defaultContent},
                                {nullptr, TYPE_STRING, 9, "Serial", nullptr}}));
    EXPECT_THAT(names(), ElementsAre("Gain", "Serial"));
    EXPECT_EQ(2u, CStorageObject_GetNoOfVariables(&object));
    const CVariable *gain = find("Gain");
    EXPECT_EQ(&content, gain->content);
    EXPECT_EQ(TYPE_UINT32, gain->type);
    EXPECT_EQ(1u, gain->noOfElements);
    EXPECT_EQ(&defaultContent, gain->defaultContent);
    EXPECT_EQ(1u, gain->dynamicallyAllocated);
    EXPECT_EQ(9u, find("Serial")->noOfElements);
    EXPECT_EQ(ByValue, find("Serial")->accessType);
}

TEST_F(CStorageObjectTest, CreateVariables_RefusesNullAndACountOfZero) {
    SVariableDescriptor descriptor{&content, TYPE_INT32, 1, "Gain", nullptr};
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_CreateVariables(&object, &descriptor, 0));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_CreateVariables(nullptr, &descriptor, 1));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_CreateVariables(&object, nullptr, 1));
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageObjectTest, CreateVariables_StopsAtARepeatedNameAndKeepsThoseBeforeIt) {
    EXPECT_EQ(eAF_E_NAME_NOT_UNIQUE, create({{&content, TYPE_INT32, 1, "A", nullptr},
                                             {&content, TYPE_INT32, 1, "B", nullptr},
                                             {&content, TYPE_INT32, 1, "A", nullptr},
                                             {&content, TYPE_INT32, 1, "C", nullptr}}));
    EXPECT_THAT(names(), ElementsAre("A", "B"));
    EXPECT_EQ(eAF_E_NAME_NOT_UNIQUE, create({{&content, TYPE_INT32, 1, "B", nullptr}}));
    EXPECT_EQ(eAF_S_OK, create({{&content, TYPE_INT32, 1, "b", nullptr}})) << "names are case-sensitive";
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageObjectTest, CreateVariables_WithoutAName_AreNeverFoundTwice) {
    EXPECT_EQ(eAF_S_OK, create({{&content, TYPE_INT32, 1, "", nullptr}, {&content, TYPE_INT32, 1, nullptr, nullptr}}));
    EXPECT_EQ(2u, CStorageObject_GetNoOfVariables(&object)) << "a name that can not be read matches nothing";
}

TEST_F(CStorageObjectTest, AddVariable_KeepsTheFlagThatItsCreatorGave) {
    CVariable mine;
    CVariable_Construct(&mine, &content, TYPE_INT32, 1, "Mine", nullptr);
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(&object, &mine));
    EXPECT_EQ(0u, CVariable_IsDynamicallyAllocated(&mine));
    auto *given = new CVariable[1]();
    CVariable_Construct(given, nullptr, TYPE_INT32, 1, "Given", nullptr);
    CVariable_SetDynamicallyAllocated(given, 1);
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(&object, given));
    EXPECT_THAT(names(), ElementsAre("Mine", "Given"));
    CStorageObject_Destruct(&object); // frees the given one alone; the sanitizers watch
    EXPECT_NE(0u, CStorageObject_IsEmpty(&object));
}

TEST_F(CStorageObjectTest, AddVariable_RefusesNullNamelessAndTaken) {
    CVariable nameless;
    CVariable_Construct(&nameless, &content, TYPE_INT32, 1, "", nullptr);
    CVariable first;
    CVariable_Construct(&first, &content, TYPE_INT32, 1, "Name", nullptr);
    CVariable second;
    CVariable_Construct(&second, &content, TYPE_INT32, 1, "Name", nullptr);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_AddVariable(nullptr, &first));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_AddVariable(&object, nullptr));
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_AddVariable(&object, &nameless));
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(&object, &first));
    EXPECT_EQ(eAF_E_NAME_NOT_UNIQUE, CStorageObject_AddVariable(&object, &second));
    EXPECT_EQ(&first, find("Name"));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    CStorageObject_Destruct(&object); // while its variable lives
    CVariable_Destruct(&nameless);
    CVariable_Destruct(&second);
}

TEST_F(CStorageObjectTest, AddObject_MakesAnUnmarkedVariableThatCarriesTheChildsAddress) {
    CStorageObject child;
    CStorageObject_Construct(&child, "Tx");
    ASSERT_EQ(eAF_S_OK, CStorageObject_AddObject(&object, &child));
    const std::unique_ptr<CVariable[]> wrapper(find("Tx"));
    EXPECT_EQ(TYPE_OBJECT, wrapper[0].type);
    EXPECT_EQ(1u, wrapper[0].noOfElements);
    EXPECT_EQ(ByValue, wrapper[0].accessType);
    EXPECT_EQ(nullptr, wrapper[0].defaultContent);
    EXPECT_EQ(0u, wrapper[0].dynamicallyAllocated);
    CStorageObject *carried = nullptr;
    EXPECT_EQ(eAF_S_OK, CVariable_GetContent(wrapper.get(), &carried));
    EXPECT_EQ(&child, carried);

    CVariable inner;
    CVariable_Construct(&inner, &content, TYPE_INT32, 1, "Inner", nullptr);
    CStorageObject_AddVariable(&child, &inner);
    CStorageObject_Destruct(&object);
    EXPECT_EQ(nullptr, wrapper[0].content) << "destructed, not freed";
    EXPECT_EQ(1u, CStorageObject_GetNoOfVariables(&child)) << "the child is its builder's";
    CStorageObject_Destruct(&child);
}

TEST_F(CStorageObjectTest, AddObject_RefusesNullNamelessAndTaken) {
    CStorageObject nameless;
    CStorageObject_Construct(&nameless, "");
    CStorageObject child;
    CStorageObject_Construct(&child, "Gain");
    create({{&content, TYPE_INT32, 1, "Gain", nullptr}});
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_AddObject(nullptr, &child));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_AddObject(&object, nullptr));
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_AddObject(&object, &nameless));
    EXPECT_EQ(eAF_E_NAME_NOT_UNIQUE, CStorageObject_AddObject(&object, &child));
    EXPECT_THAT(names(), ElementsAre("Gain"));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageObjectTest, TheLastVariable_ComesTogetherWithNoMoreData) {
    create({{&content, TYPE_INT32, 1, "Only", nullptr}});
    CListIterator iterator{};
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetVariableIterator(&object, &iterator));
    CVariable *variable = nullptr;
    EXPECT_EQ(eAF_W_NO_MORE_DATA, CStorageObject_GetNextVariable(&object, &variable, &iterator));
    ASSERT_NE(nullptr, variable);
    EXPECT_STREQ("Only", variable->name);
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetNextVariable(&object, &variable, &iterator));
    EXPECT_EQ(nullptr, variable);
}

TEST_F(CStorageObjectTest, AnEmptyObject_HasNoMoreDataFromTheBeginning) {
    CListIterator before;
    std::memset(static_cast<void *>(&before), 0xA5, sizeof before);
    CListIterator iterator = before;
    EXPECT_EQ(eAF_W_NO_MORE_DATA, CStorageObject_GetVariableIterator(&object, &iterator));
    EXPECT_NE(0, std::memcmp(&before, &iterator, sizeof before)) << "it is always written";
}

TEST_F(CStorageObjectTest, Iterating_RefusesNull) {
    CListIterator iterator{};
    CVariable *variable = nullptr;
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetVariableIterator(nullptr, &iterator));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetVariableIterator(&object, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetNextVariable(nullptr, &variable, &iterator));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetNextVariable(&object, nullptr, &iterator));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetNextVariable(&object, &variable, nullptr));
}

TEST_F(CStorageObjectTest, GetSizeInBytes_SumsTheVariablesOwnSizes) {
    unsigned long size = 99;
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetSizeInBytes(&object, &size));
    EXPECT_EQ(0u, size) << "of an empty object";
    CStorageObject child;
    CStorageObject_Construct(&child, "Child");
    SVariableDescriptor big{nullptr, TYPE_DOUBLE_ARRAY, 1000, "Big", nullptr};
    CStorageObject_CreateVariables(&child, &big, 1);
    create({{nullptr, TYPE_INT16_ARRAY, 5, "A", nullptr},
            {&child, TYPE_OBJECT, 1, "Child", nullptr},
            {nullptr, TYPE_DOUBLE, 1, "Z", nullptr}});
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetSizeInBytes(&object, &size));
    EXPECT_EQ(10 + sizeof(void *) + 8, size) << "the nested object counts as its pointer";
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetSizeInBytes(nullptr, &size));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetSizeInBytes(&object, nullptr));
    CStorageObject_Destruct(&object); // while the child lives
}

TEST_F(CStorageObjectTest, GetVariableByName_FindsItsOwnVariablesOnly) {
    CStorageObject child;
    CStorageObject_Construct(&child, "Child");
    SVariableDescriptor inner{nullptr, TYPE_INT32, 1, "Inner", nullptr};
    CStorageObject_CreateVariables(&child, &inner, 1);
    create({{&content, TYPE_INT32, 1, "Gain", nullptr}, {&child, TYPE_OBJECT, 1, "Child", nullptr}});
    CVariable *variable = nullptr;
    EXPECT_EQ(1u, CStorageObject_GetVariableByName(&object, "Gain", &variable));
    EXPECT_STREQ("Gain", variable->name);
    EXPECT_EQ(1u, CStorageObject_GetVariableByName(&object, "Child", &variable));
    EXPECT_EQ(TYPE_OBJECT, variable->type);
    EXPECT_EQ(0u, CStorageObject_GetVariableByName(&object, "Inner", &variable));
    EXPECT_EQ(nullptr, variable);
    EXPECT_EQ(0u, CStorageObject_GetVariableByName(&object, "gain", &variable));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    CStorageObject_Destruct(&object); // while the child lives
}

TEST_F(CStorageObjectTest, GetVariableByName_ComparesNamesToTheirEnds) {
    const std::string longest(119, 'n');
    ASSERT_EQ(eAF_S_OK, create({{&content, TYPE_INT32, 1, longest.c_str(), nullptr},
                                {&content, TYPE_INT32, 1, "TxAttenuation", nullptr},
                                {&content, TYPE_INT32, 1, "RxAttenuation", nullptr},
                                {&content, TYPE_INT32, 1, "Rx", nullptr}}));
    for (const std::string &name : {longest, std::string("TxAttenuation"), std::string("RxAttenuation")}) {
        EXPECT_EQ(name, find(name.c_str())->name);
    }
    EXPECT_STREQ("Rx", find("Rx")->name);
    CVariable *variable = nullptr;
    for (const std::string &name :
         {longest + "n", longest + std::string(1000, 'n'), longest.substr(1), std::string("FxAttenuation"),
          std::string("Attenuation"), std::string("x"), std::string("RxA"), std::string()}) {
        EXPECT_EQ(0u, CStorageObject_GetVariableByName(&object, name.c_str(), &variable)) << name;
        EXPECT_EQ(nullptr, variable) << name;
    }
    find("Rx")->name[0] = '\0'; // one that lost its name answers to none
    for (const std::string &name : {std::string(), std::string("Rx"), longest + "n"}) {
        EXPECT_EQ(0u, CStorageObject_GetVariableByName(&object, name.c_str(), &variable)) << name;
    }
}

TEST_F(CStorageObjectTest, GetVariableByName_TracesEachNullArgumentOnceAndInOrder) {
    const Line noObject{"CStorageObject_GetVariableByName",
                        "CStorageObject_GetVariableByName is calling with pThis = NULL", eAF_E_INVALID_ARGUMENT};
    const Line noName{"CStorageObject_GetVariableByName",
                      "CStorageObject_GetVariableByName is calling with pszVariableName = NULL",
                      eAF_E_INVALID_ARGUMENT};
    const Line noPlace{"CStorageObject_GetVariableByName",
                       "CStorageObject_GetVariableByName is calling with ppVariable = NULL", eAF_E_INVALID_ARGUMENT};
    EXPECT_EQ(0u, CStorageObject_GetVariableByName(nullptr, nullptr, nullptr));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(noObject, noName, noPlace));
    TraceRecorder::reset();
    CVariable *variable = reinterpret_cast<CVariable *>(&content);
    EXPECT_EQ(0u, CStorageObject_GetVariableByName(&object, nullptr, &variable));
    EXPECT_EQ(reinterpret_cast<CVariable *>(&content), variable) << "left alone";
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(noName));
    TraceRecorder::reset();
    EXPECT_EQ(0u, CStorageObject_GetVariableByName(&object, "Gain", nullptr));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(noPlace));
}

TEST_F(CStorageObjectTest, GetVariableByName_TracesANullElementAndGoesOnBehindIt) {
    ASSERT_EQ(eAF_S_OK, create({{&content, TYPE_INT32, 1, "Gain", nullptr}}));
    ASSERT_EQ(0u, CList_PushHead(&object.variables, nullptr));
    CVariable *variable = nullptr;
    EXPECT_EQ(1u, CStorageObject_GetVariableByName(&object, "Gain", &variable));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CVariable_GetName", "CVariable_GetName was called with a null parameter",
                                 eAF_E_INVALID_ARGUMENT}));
    void *taken = &content;
    EXPECT_EQ(0u, CList_PopHead(&object.variables, &taken));
    EXPECT_EQ(nullptr, taken);
}

TEST_F(CStorageObjectTest, GetVariableByName_LogsTheNameOnTheAccessDomain) {
    create({{&content, TYPE_INT32, 1, "Gain", nullptr}});
    CVariable *variable = nullptr;
    TraceRecorder::reset(0, 7);
    CStorageObject_GetVariableByName(&object, "Gain", &variable);
    CStorageObject_GetVariableByName(&object, nullptr, &variable);
    const auto records = TraceRecorder::domainRecords();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ("ZEL.AF.STOR.ACC", records[0].domain);
    EXPECT_EQ(7, records[0].level);
    EXPECT_EQ("Gain", records[0].text);
    EXPECT_EQ("CStorageObject_GetVariableByName", records[0].function);
    EXPECT_THAT(records[0].file, testing::HasSubstr("CStorageObject.cpp"));
    EXPECT_EQ("", records[1].text) << "before any check, and nothing of a null name";
    TraceRecorder::reset(0, 6);
    CStorageObject_GetVariableByName(&object, "Gain", &variable);
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
}

TEST_F(CStorageObjectTest, TheTwoAccessTraceObjects_AreMadeAtLoad) {
    int found = 0;
    for (const test::Domain &domain : TraceRecorder::domains()) {
        if (domain.name == "ZEL.AF.STOR.ACC") {
            ++found;
            EXPECT_EQ(3, domain.level);
            EXPECT_EQ(256, domain.option);
        }
    }
    EXPECT_EQ(2, found);
}

TEST_F(CStorageObjectTest, TheApplicationsWords_AreKeptAndZeroCountsAsNotSet) {
    void *address = &content;
    uintptr_t data = 7;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetRawObjectContentAddress(&object, &address));
    EXPECT_EQ(nullptr, address) << "written all the same";
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetApplicationData(&object, &data));
    EXPECT_EQ(0u, data);
    EXPECT_EQ(eAF_S_OK, CStorageObject_SetRawObjectContentAddress(&object, &content));
    CStorageObject_SetApplicationData(&object, 42);
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetRawObjectContentAddress(&object, &address));
    EXPECT_EQ(&content, address);
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetApplicationData(&object, &data));
    EXPECT_EQ(42u, data);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetRawObjectContentAddress(nullptr, &address));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetRawObjectContentAddress(&object, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetApplicationData(nullptr, &data));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_GetApplicationData(&object, nullptr));
}

TEST_F(CStorageObjectTest, FlagsAndReservedSize_AreKeptAsGiven) {
    CStorageObject_SetWritable(&object, 0);
    EXPECT_EQ(0u, CStorageObject_IsWritable(&object));
    CStorageObject_SetDynamicallyAllocated(&object, 1);
    EXPECT_EQ(1u, CStorageObject_IsDynamicallyAllocated(&object));
    EXPECT_EQ(eAF_S_OK, CStorageObject_ReserveSize(&object, 4096));
    EXPECT_EQ(4096u, object.reservedSize);
}

TEST_F(CStorageObjectTest, IsDynamicallyAllocated_OfNoObject_IsTracedAndNo) {
    EXPECT_EQ(0u, CStorageObject_IsDynamicallyAllocated(nullptr));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageObject_IsDynamicallyAllocated",
                                 "CStorageObject_IsDynamicallyAllocated was called with a null pointer",
                                 eAF_E_INVALID_ARGUMENT}));
}

TEST_F(CStorageObjectTest, NoObject_IsAnsweredAndNeverTouched) {
    CStorageObject_Construct(nullptr, "Name");
    CStorageObject_Destruct(nullptr);
    CStorageObject_SetWritable(nullptr, 1);
    CStorageObject_SetApplicationData(nullptr, 1);
    CStorageObject_SetDynamicallyAllocated(nullptr, 1);
    EXPECT_EQ(0u, CStorageObject_GetNoOfVariables(nullptr));
    EXPECT_EQ(0u, CStorageObject_IsWritable(nullptr));
    EXPECT_NE(0u, CStorageObject_IsEmpty(nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_ReserveSize(nullptr, 1));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageObject_SetRawObjectContentAddress(nullptr, &object));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageObjectTest, Words_AreKeptAsGivenNotAsTruthValues) {
    CStorageObject_SetWritable(&object, 7);
    CStorageObject_SetDynamicallyAllocated(&object, 8);
    EXPECT_EQ(7u, CStorageObject_IsWritable(&object));
    EXPECT_EQ(8u, CStorageObject_IsDynamicallyAllocated(&object));
    EXPECT_EQ(eAF_S_OK, CStorageObject_ReserveSize(&object, 0xFFFFFFFFul));
    EXPECT_EQ(0xFFFFFFFFu, object.reservedSize);
}

} // namespace
