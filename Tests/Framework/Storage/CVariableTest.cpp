#include "CVariable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CStorageObject.h"
#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class CVariableTest : public testing::Test {
protected:
    CVariableTest() {
        TraceRecorder::reset();
        std::memset(static_cast<void *>(&variable), 0xA5, sizeof variable);
    }
    CVariable variable;
};

struct Kind {
    EVariableType type;
    std::uint32_t value;
    const char *name;
    std::uint32_t sizeOfThree; ///< Of a variable of three elements.
};

constexpr auto pointer = static_cast<std::uint32_t>(sizeof(void *));

const Kind kinds[] = {
    {TYPE_INT8, 0, "TYPE_INT8", 1},
    {TYPE_INT8_ARRAY, 1, "TYPE_INT8_ARRAY", 3},
    {TYPE_INT16, 2, "TYPE_INT16", 2},
    {TYPE_INT16_ARRAY, 3, "TYPE_INT16_ARRAY", 6},
    {TYPE_INT32, 4, "TYPE_INT32", 4},
    {TYPE_INT32_ARRAY, 5, "TYPE_INT32_ARRAY", 12},
    {TYPE_UINT8, 6, "TYPE_UINT8", 1},
    {TYPE_UINT8_ARRAY, 7, "TYPE_UINT8_ARRAY", 3},
    {TYPE_UINT16, 8, "TYPE_UINT16", 2},
    {TYPE_UINT16_ARRAY, 9, "TYPE_UINT16_ARRAY", 6},
    {TYPE_UINT32, 10, "TYPE_UINT32", 4},
    {TYPE_UINT32_ARRAY, 11, "TYPE_UINT32_ARRAY", 12},
    {TYPE_BOOL, 12, "TYPE_BOOL", 4},
    {TYPE_BOOL_ARRAY, 13, "TYPE_BOOL_ARRAY", 12},
    {TYPE_CHAR, 14, "TYPE_CHAR", 1},
    {TYPE_CHAR_ARRAY, 15, "TYPE_CHAR_ARRAY", 3},
    {TYPE_STRING, 16, "TYPE_STRING", 3},
    {TYPE_FLOAT, 17, "TYPE_FLOAT", 4},
    {TYPE_FLOAT_ARRAY, 18, "TYPE_FLOAT_ARRAY", 12},
    {TYPE_DOUBLE, 19, "TYPE_DOUBLE", 8},
    {TYPE_DOUBLE_ARRAY, 20, "TYPE_DOUBLE_ARRAY", 24},
    {TYPE_OBJECT, 21, "TYPE_OBJECT", pointer},
    {TYPE_OBJECT_ARRAY, 22, "TYPE_OBJECT_ARRAY", 3 * pointer},
};

class EveryKind : public testing::TestWithParam<Kind> {
protected:
    CVariable variable{};
};
INSTANTIATE_TEST_SUITE_P(CVariable, EveryKind, testing::ValuesIn(kinds),
                         [](const auto &kind) { return std::string(kind.param.name); });

TEST_P(EveryKind, HasItsNumberAndItsSize) {
    EXPECT_EQ(GetParam().value, static_cast<std::uint32_t>(GetParam().type));
    std::array<unsigned char, 64> content{};
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, content.data(), TYPE_INT8, 3, "V", nullptr));
    variable.type = GetParam().type;
    EXPECT_EQ(GetParam().sizeOfThree, CVariable_GetSizeInBytes(&variable));
    variable.type = TYPE_INT8;
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
}

TEST_P(EveryKind, WithoutAContent_MakesAZeroedOneOfItsOwnThatIsFreedWithIt) {
    TraceRecorder::reset();
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, GetParam().type, 3, "V", nullptr));
    EXPECT_EQ(ByValue, CVariable_GetAccessType(&variable));
    void *content = nullptr;
    ASSERT_EQ(eAF_S_OK, CVariable_GetContentAddress(&variable, &content));
    ASSERT_NE(nullptr, content);
    const std::vector<unsigned char> zeros(GetParam().sizeOfThree, 0);
    EXPECT_EQ(0, std::memcmp(content, zeros.data(), zeros.size()));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_EQ(nullptr, variable.content);
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_P(EveryKind, OwnContent_IsSetAndReadAsAWhole) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, GetParam().type, 3, "V", nullptr));
    std::vector<unsigned char> source(GetParam().sizeOfThree + 1, 0);
    for (std::size_t i = 0; i + 1 < source.size(); ++i) {
        source[i] = static_cast<unsigned char>(i + 1);
    }
    const bool isObjects = GetParam().type == TYPE_OBJECT || GetParam().type == TYPE_OBJECT_ARRAY;
    if (isObjects) {
        source.assign(source.size(), 0); // the destructor takes what is there for objects
    }
    std::vector<unsigned char> destination(source.size(), 0xEE);
    EXPECT_EQ(eAF_S_OK, CVariable_SetContent(&variable, source.data()));
    EXPECT_EQ(eAF_S_OK, CVariable_GetContent(&variable, destination.data()));
    EXPECT_EQ(0xEE, destination.back()) << "not a byte more than the size";
    destination.back() = 0;
    EXPECT_EQ(source, destination);
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
}

TEST_F(CVariableTest, Construct_FillsEveryField) {
    std::int32_t content = 5;
    std::int32_t defaultContent = 6;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "Gain", &defaultContent));
    EXPECT_EQ(0u, variable.dynamicallyAllocated);
    EXPECT_EQ(&content, variable.content);
    EXPECT_EQ(TYPE_INT32, variable.type);
    EXPECT_EQ(1u, variable.noOfElements);
    EXPECT_STREQ("Gain", variable.name);
    EXPECT_STREQ("", variable.path);
    EXPECT_EQ(&defaultContent, variable.defaultContent);
    EXPECT_EQ(0u, variable.retrieved);
    EXPECT_EQ(ByReference, variable.accessType);
    EXPECT_EQ(5, content) << "the default is not applied here";
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_EQ(&content, variable.content) << "the caller's own stays";
}

TEST_F(CVariableTest, AnArrayOfFiveShortsOfItsOwn_IsTenZeroBytesThatMayBeSet) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, TYPE_INT16_ARRAY, 5, "V", nullptr));
    EXPECT_EQ(10u, CVariable_GetSizeInBytes(&variable));
    std::array<std::int16_t, 5> values{1, 2, 3, 4, 5};
    EXPECT_EQ(eAF_S_OK, CVariable_SetContent(&variable, values.data()));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
}

TEST_F(CVariableTest, TheCallersContent_RefusesSetAndGet) {
    std::array<std::int16_t, 5> content{1, 2, 3, 4, 5};
    std::array<std::int16_t, 5> other{};
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, content.data(), TYPE_INT16_ARRAY, 5, "V", nullptr));
    EXPECT_EQ(eAF_E_WRONG_ACCESS, CVariable_SetContent(&variable, other.data()));
    EXPECT_EQ(eAF_E_WRONG_ACCESS, CVariable_GetContent(&variable, other.data()));
    EXPECT_EQ(1, content[0]);
    EXPECT_EQ(0, other[0]);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CVariable_SetContent",
                                 "Wrong access type - attempt to use SetContent for a variable with ByReference access",
                                 eAF_E_WRONG_ACCESS},
                            Line{"CVariable_GetContent",
                                 "Wrong access type - attempt to use GetContent for a variable with ByReference access",
                                 eAF_E_WRONG_ACCESS}));
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, AnUnknownType_IsOneByteWithAWarning) {
    char content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, static_cast<EVariableType>(23), 7, "V", nullptr));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty()) << "no size is needed for the caller's block";
    EXPECT_EQ(1u, CVariable_GetSizeInBytes(&variable));
    const Line warning{
        "CVariable_GetSizeInBytes",
        "CVariable_GetSizeInBytes was called with unsupported EVariableType. Default memory allocation of 1 byte",
        eAF_W_WARNING};
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(warning));
    CVariable_Destruct(&variable);
    TraceRecorder::reset();
    ASSERT_EQ(eAF_S_OK,
              CVariable_Construct(&variable, nullptr, static_cast<EVariableType>(0xFFFFFFFFu), 7, "V", nullptr));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(warning));
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, ASizeBeyond32Bits_IsTheLargestNumberAndNeverAllocated) {
    double content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_DOUBLE_ARRAY, 0x20000001u, "V", nullptr));
    EXPECT_EQ(0xFFFFFFFFu, CVariable_GetSizeInBytes(&variable));
    CVariable_Destruct(&variable);
    const CVariable before = variable;
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY,
              CVariable_Construct(&variable, nullptr, TYPE_DOUBLE_ARRAY, 0x20000001u, "W", nullptr));
    EXPECT_STREQ(before.name, variable.name) << "the record is as before";
}

TEST_F(CVariableTest, ANameOf200Bytes_IsKeptAsItsFirst119) {
    int content = 0;
    const std::string name(200, 'n');
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, name.c_str(), nullptr));
    const char *kept = nullptr;
    EXPECT_EQ(eAF_S_OK, CVariable_GetName(&variable, &kept));
    EXPECT_EQ(std::string(119, 'n'), kept);
    EXPECT_EQ(variable.name, kept) << "the record's own text";
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, AnEmptyName_FailsWithoutATraceAndGivesNull) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "", nullptr));
    const char *name = "before";
    EXPECT_EQ(eAF_E_FAILED, CVariable_GetName(&variable, &name));
    EXPECT_EQ(nullptr, name);
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, GetName_OfNoVariable_IsTracedAndLeavesTheOutPointer) {
    const char *name = "before";
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetName(nullptr, &name));
    EXPECT_STREQ("before", name);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CVariable_GetName", "CVariable_GetName was called with a null parameter",
                                 eAF_E_INVALID_ARGUMENT}));
    EXPECT_EQ(1, TraceRecorder::records().at(0).level);
}

TEST_F(CVariableTest, SetPath_JoinsItsPartsAndCutsAt511) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "V", nullptr));
    EXPECT_EQ(eAF_S_OK, CVariable_SetPath(&variable, "R", "O/P", "V"));
    const char *path = nullptr;
    EXPECT_EQ(eAF_S_OK, CVariable_GetPath(&variable, &path));
    EXPECT_STREQ("R/O/P/V", path);
    const std::string part(300, 'p');
    EXPECT_EQ(eAF_S_OK, CVariable_SetPath(&variable, part.c_str(), part.c_str(), "V"));
    EXPECT_EQ((part + "/" + part).substr(0, 511), path);
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, SetPath_CutsWhereverTheEndFalls) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "V", nullptr));
    for (const std::size_t first : {0u, 505u, 506u, 507u, 508u, 509u, 510u, 511u, 512u, 600u}) {
        const std::string region(first, 'r');
        EXPECT_EQ(eAF_S_OK, CVariable_SetPath(&variable, region.c_str(), "O", "Name"));
        EXPECT_EQ((region + "/O/Name").substr(0, 511), variable.path) << first;
    }
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, Flags_AreKeptAsGiven) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 9, "V", nullptr));
    CVariable_SetRetrieved(&variable, 1);
    EXPECT_EQ(1u, CVariable_IsRetrieved(&variable));
    CVariable_SetRetrieved(&variable, 0);
    EXPECT_EQ(0u, CVariable_IsRetrieved(&variable));
    CVariable_SetDynamicallyAllocated(&variable, 1);
    EXPECT_EQ(1u, CVariable_IsDynamicallyAllocated(&variable));
    EXPECT_EQ(9u, CVariable_GetNoOfElements(&variable));
    EXPECT_EQ(TYPE_INT32, CVariable_GetType(&variable));
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, LockAndUnLock_AreTracedAtDebugLevelAndKeepOthersOut) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "Gain", nullptr));
    ASSERT_EQ(eAF_S_OK, CVariable_Lock(&variable));
    EXPECT_NE(0, pthread_mutex_trylock(&variable.mutex));
    ASSERT_EQ(eAF_S_OK, CVariable_UnLock(&variable));
    EXPECT_EQ(0, pthread_mutex_trylock(&variable.mutex));
    pthread_mutex_unlock(&variable.mutex);
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(Line{"CVariable_Lock", "Locking variable Gain", eAF_DEBUG},
                                                    Line{"CVariable_UnLock", "Unlocking variable Gain", eAF_DEBUG}));
    TraceRecorder::reset(test::levelOf(eAF_DEBUG) - 1);
    CVariable_Lock(&variable);
    CVariable_UnLock(&variable);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, TheLock_KeepsACopyWholeBetweenThreads) {
    constexpr std::uint32_t size = 4096;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, TYPE_UINT8_ARRAY, size, "V", nullptr));
    std::thread writer([&] {
        std::vector<unsigned char> value(size);
        for (int i = 0; i < 200; ++i) {
            value.assign(size, static_cast<unsigned char>(i));
            CVariable_Lock(&variable);
            CVariable_SetContent(&variable, value.data());
            CVariable_UnLock(&variable);
        }
    });
    std::vector<unsigned char> seen(size);
    for (int i = 0; i < 200; ++i) {
        CVariable_Lock(&variable);
        CVariable_GetContent(&variable, seen.data());
        CVariable_UnLock(&variable);
        EXPECT_EQ(std::vector<unsigned char>(size, seen[0]), seen);
    }
    writer.join();
    CVariable_Destruct(&variable);
}

// Nested objects

CStorageObject *newObject(const char *name, bool isMarked) {
    auto *object = new CStorageObject[1]();
    CStorageObject_Construct(object, name);
    CStorageObject_SetDynamicallyAllocated(object, isMarked ? 1 : 0);
    SVariableDescriptor descriptor{nullptr, TYPE_INT32, 1, "Inner", nullptr};
    EXPECT_EQ(eAF_S_OK, CStorageObject_CreateVariables(object, &descriptor, 1));
    return object;
}

TEST_F(CVariableTest, DestructOfAnObject_DestructsAndFreesTheMarkedOne) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, newObject("O", true), TYPE_OBJECT, 1, "O", nullptr));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_EQ(nullptr, variable.content);
}

TEST_F(CVariableTest, DestructOfAnObject_OnlyDestructsTheUnmarkedOne) {
    std::unique_ptr<CStorageObject[]> object(newObject("O", false));
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, object.get(), TYPE_OBJECT, 1, "O", nullptr));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_EQ(object.get(), variable.content);
    EXPECT_NE(0u, CStorageObject_IsEmpty(object.get()));
}

TEST_F(CVariableTest, DestructOfAnObjectArray_TakesEachElementByItsOwnMark) {
    std::unique_ptr<CStorageObject[]> unmarked(newObject("B", false));
    std::array<CStorageObject *, 3> elements{newObject("A", true), nullptr, unmarked.get()};
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, elements.data(), TYPE_OBJECT_ARRAY, 3, "Os", nullptr));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_THAT(elements, ElementsAre(nullptr, nullptr, unmarked.get()));
    EXPECT_NE(0u, CStorageObject_IsEmpty(unmarked.get()));
    EXPECT_EQ(elements.data(), variable.content) << "the caller's block of pointers stays";
}

TEST_F(CVariableTest, DestructOfAnObjectArrayOfItsOwn_FreesTheBlockOfPointersToo) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, TYPE_OBJECT_ARRAY, 2, "Os", nullptr));
    std::array<CStorageObject *, 2> elements{newObject("A", true), newObject("B", true)};
    ASSERT_EQ(eAF_S_OK, CVariable_SetContent(&variable, elements.data()));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_EQ(nullptr, variable.content);
}

TEST_F(CVariableTest, AnObjectsOwnContent_IsLargeEnoughToBeTakenForAnObject) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, TYPE_OBJECT, 1, "O", nullptr));
    const std::vector<unsigned char> zeros(sizeof(CStorageObject), 0);
    EXPECT_EQ(0, std::memcmp(variable.content, zeros.data(), zeros.size()));
    auto *object = static_cast<CStorageObject *>(variable.content);
    char *name = nullptr;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetName(object, &name));
    EXPECT_NE(0u, CStorageObject_IsEmpty(object));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_EQ(nullptr, variable.content);
}

TEST_F(CVariableTest, NoVariable_IsAnsweredAndNeverTouched) {
    void *address = &variable;
    const char *path = "before";
    char buffer[4];
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_Construct(nullptr, buffer, TYPE_INT32, 1, "V", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_Destruct(nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_SetContent(nullptr, buffer));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetContent(nullptr, buffer));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetContentAddress(nullptr, &address));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetDefaultContentAddress(nullptr, &address));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetPath(nullptr, &path));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_SetPath(nullptr, "R", "O", "V"));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_Lock(nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_UnLock(nullptr));
    EXPECT_EQ(0u, CVariable_GetSizeInBytes(nullptr));
    EXPECT_EQ(0u, CVariable_IsRetrieved(nullptr));
    EXPECT_EQ(0u, CVariable_IsDynamicallyAllocated(nullptr));
    CVariable_SetRetrieved(nullptr, 1);
    CVariable_SetDynamicallyAllocated(nullptr, 1);
    EXPECT_EQ(&variable, address);
    EXPECT_STREQ("before", path);
}

TEST_F(CVariableTest, AfterDestruct_SetAndGetHaveNoContentToCopy) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, TYPE_INT32, 1, "V", nullptr));
    ASSERT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    std::int32_t value = 5;
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CVariable_SetContent(&variable, &value));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CVariable_GetContent(&variable, &value));
    EXPECT_EQ(5, value);
}

TEST_F(CVariableTest, SetAndGetContent_OfAnUnknownType_CopyOneByteAndWarn) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, static_cast<EVariableType>(23), 7, "V", nullptr));
    TraceRecorder::reset();
    const std::array<char, 2> source{'a', 'b'};
    std::array<char, 2> destination{'#', '#'};
    EXPECT_EQ(eAF_S_OK, CVariable_SetContent(&variable, source.data()));
    EXPECT_EQ(eAF_S_OK, CVariable_GetContent(&variable, destination.data()));
    EXPECT_THAT(destination, ElementsAre('a', '#'));
    const Line warning{
        "CVariable_GetSizeInBytes",
        "CVariable_GetSizeInBytes was called with unsupported EVariableType. Default memory allocation of 1 byte",
        eAF_W_WARNING};
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(warning, warning));
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, NoPlaceForAnAnswer_IsRefused) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "V", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetContentAddress(&variable, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetDefaultContentAddress(&variable, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetPath(&variable, nullptr));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_GetName(&variable, nullptr));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CVariable_GetName", "CVariable_GetName was called with a null parameter",
                                 eAF_E_INVALID_ARGUMENT}));
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, SetPath_WithoutOneOfItsParts_LeavesThePath) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "V", nullptr));
    CVariable_SetPath(&variable, "R", "O", "V");
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_SetPath(&variable, nullptr, "O", "V"));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_SetPath(&variable, "R", nullptr, "V"));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CVariable_SetPath(&variable, "R", "O", nullptr));
    EXPECT_STREQ("R/O/V", variable.path);
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, WhatIsAskedOfNoVariable_HasAnAnswer) {
    EXPECT_EQ(0u, CVariable_GetNoOfElements(nullptr));
    EXPECT_EQ(TYPE_INT8, CVariable_GetType(nullptr));
    EXPECT_EQ(ByReference, CVariable_GetAccessType(nullptr));
}

TEST_F(CVariableTest, Flags_AreKeptAsWordsNotAsTruthValues) {
    int content = 0;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "V", nullptr));
    CVariable_SetRetrieved(&variable, 7);
    CVariable_SetDynamicallyAllocated(&variable, 8);
    EXPECT_EQ(7u, CVariable_IsRetrieved(&variable));
    EXPECT_EQ(8u, CVariable_IsDynamicallyAllocated(&variable));
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, DestructOfAnObjectOrArrayWhoseContentWasTakenAway_TouchesNothing) {
    CStorageObject object;
    CStorageObject_Construct(&object, "O");
    for (const EVariableType type : {TYPE_OBJECT, TYPE_OBJECT_ARRAY}) {
        ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &object, type, 1, "O", nullptr));
        variable.content = nullptr;
        EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable)) << type;
    }
}

TEST_F(CVariableTest, TheCallersContent_RefusesSetAndGetWhateverTheOtherBlock) {
    int content = 5;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "V", nullptr));
    EXPECT_EQ(eAF_E_WRONG_ACCESS, CVariable_SetContent(&variable, nullptr));
    EXPECT_EQ(eAF_E_WRONG_ACCESS, CVariable_GetContent(&variable, nullptr));
    EXPECT_EQ(2u, TraceRecorder::lines().size()) << "each traced";
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, AnArrayOfNoElements_IsSetAndReadWithoutABlock) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, TYPE_INT32_ARRAY, 0, "V", nullptr));
    const std::vector<std::int32_t> none; // its data() may be null
    EXPECT_EQ(eAF_S_OK, CVariable_SetContent(&variable, none.data()));
    CVariable_Destruct(&variable);
}

TEST_F(CVariableTest, NoPlaceToCopyFromOrTo_IsRefusedWhereThereIsSomethingToCopy) {
    const struct {
        EVariableType type;
        std::uint32_t noOfElements;
        EAFResult result;
    } cases[] = {{TYPE_INT32, 1, eAF_E_INVALID_ARGUMENT},
                 {TYPE_INT32, 0, eAF_E_INVALID_ARGUMENT},
                 {TYPE_INT32_ARRAY, 1, eAF_E_INVALID_ARGUMENT},
                 {TYPE_INT32_ARRAY, 0, eAF_S_OK}};
    for (const auto &each : cases) {
        ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, each.type, each.noOfElements, "V", nullptr));
        EXPECT_EQ(each.result, CVariable_SetContent(&variable, nullptr))
            << each.type << "[" << each.noOfElements << "]";
        EXPECT_EQ(each.result, CVariable_GetContent(&variable, nullptr))
            << each.type << "[" << each.noOfElements << "]";
        CVariable_Destruct(&variable);
    }
}

TEST_F(CVariableTest, DestructOfAnObjectWithoutContent_IsTracedByWhoAsksForItsMark) {
    CStorageObject object;
    CStorageObject_Construct(&object, "O");
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &object, TYPE_OBJECT, 1, "O", nullptr));
    variable.content = nullptr;
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageObject_IsDynamicallyAllocated",
                                 "CStorageObject_IsDynamicallyAllocated was called with a null pointer",
                                 eAF_E_INVALID_ARGUMENT}));
}

TEST_F(CVariableTest, DestructOfAMarkedObjectInsideItself_DestructsAndFreesItOnce) {
    CStorageObject *object = newObject("O", true);
    SVariableDescriptor self{object, TYPE_OBJECT, 1, "Self", nullptr};
    ASSERT_EQ(eAF_S_OK, CStorageObject_CreateVariables(object, &self, 1));
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, object, TYPE_OBJECT, 1, "O", nullptr));
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable)); // the sanitizers watch
    EXPECT_EQ(nullptr, variable.content);
}

} // namespace
