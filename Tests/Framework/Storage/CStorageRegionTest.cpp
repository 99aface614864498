#include "CStorageRegion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class CStorageRegionTest : public testing::Test {
protected:
    CStorageRegionTest() {
        std::memset(static_cast<void *>(&region), 0xA5, sizeof region);
        TraceRecorder::reset();
        CStorageRegion_Construct(&region, "Cfg", 7);
    }
    ~CStorageRegionTest() override { CStorageRegion_Destruct(&region); }

    static CStorageObject *newObject(const char *name, bool isMarked) {
        auto *object = new CStorageObject[1]();
        CStorageObject_Construct(object, name);
        CStorageObject_SetDynamicallyAllocated(object, isMarked ? 1 : 0);
        SVariableDescriptor descriptor{nullptr, TYPE_INT32, 1, "Inner", nullptr};
        CStorageObject_CreateVariables(object, &descriptor, 1);
        return object;
    }

    CStorageRegion region;
};

TEST_F(CStorageRegionTest, Construct_MakesAnEmptyRegionAndTracesItsName) {
    EXPECT_EQ(0u, CStorageRegion_IsDynamicallyAllocated(&region));
    EXPECT_EQ(1u, CStorageRegion_IsEmpty(&region));
    EXPECT_EQ(0u, CStorageRegion_GetNoOfObjects(&region));
    EXPECT_EQ(7u, CStorageRegion_GetLocationId(&region));
    unsigned long reserved = 9;
    EXPECT_EQ(eAF_S_OK, CStorageRegion_GetReservedSize(&region, &reserved));
    EXPECT_EQ(0u, reserved);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageRegion_Construct", "CStorageRegion Cfg created", eAF_DEBUG}));
    EXPECT_TRUE(TraceRecorder::records().at(0).hasCodeLine);
    EXPECT_EQ(test::levelOf(eAF_DEBUG), TraceRecorder::records().at(0).level);
}

TEST_F(CStorageRegionTest, Construct_WithoutAName_TracesThatThereIsNone) {
    TraceRecorder::reset();
    CStorageRegion_Construct(&region, nullptr, 7);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageRegion_Construct", "CStorageRegion (null) created", eAF_DEBUG}));
    char *name = nullptr;
    EXPECT_EQ(eAF_E_FAILED, CStorageRegion_GetName(&region, &name));
}

TEST_F(CStorageRegionTest, ANameOf50Characters_IsKeptAsItsFirst39AndTracedWhole) {
    TraceRecorder::reset();
    const std::string name(50, 'r');
    CStorageRegion_Construct(&region, name.c_str(), 7);
    char *kept = nullptr;
    EXPECT_EQ(eAF_S_OK, CStorageRegion_GetName(&region, &kept));
    EXPECT_EQ(std::string(39, 'r'), kept);
    EXPECT_EQ("CStorageRegion " + name + " created", TraceRecorder::lines().at(0).message);
}

TEST_F(CStorageRegionTest, ConstructAnew_LeavesListedObjectsAlone) {
    CStorageObject object;
    CStorageObject_Construct(&object, "O");
    CStorageRegion other;
    CStorageRegion_Construct(&other, "Other", 1);
    CStorageRegion_AddObject(&other, &object);
    const SStorageList listed = other.objects;
    CStorageRegion_Construct(&other, "Again", 2);
    EXPECT_EQ(0u, CStorageRegion_GetNoOfObjects(&other));
    EXPECT_STREQ("O", object.name);
    other.objects = listed; // so that the node is freed
    CStorageRegion_Destruct(&other);
}

TEST_F(CStorageRegionTest, FieldsStandInTheirSettledOrder) {
    EXPECT_EQ(0u, offsetof(CStorageRegion, dynamicallyAllocated));
    EXPECT_LT(offsetof(CStorageRegion, objects), offsetof(CStorageRegion, locationId));
    EXPECT_LT(offsetof(CStorageRegion, locationId), offsetof(CStorageRegion, reservedSize));
    EXPECT_LT(offsetof(CStorageRegion, reservedSize), offsetof(CStorageRegion, name));
}

TEST_F(CStorageRegionTest, GetName_OfAnEmptyNameOrNull) {
    CStorageRegion_Construct(&region, "", 7);
    char *name = nullptr;
    EXPECT_EQ(eAF_E_FAILED, CStorageRegion_GetName(&region, &name));
    EXPECT_EQ(region.name, name);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_GetName(nullptr, &name));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_GetName(&region, nullptr));
}

TEST_F(CStorageRegionTest, AddObject_AppendsAndCounts) {
    EXPECT_EQ(eAF_S_OK, CStorageRegion_AddObject(&region, newObject("A", true)));
    EXPECT_EQ(eAF_S_OK, CStorageRegion_AddObject(&region, newObject("B", true)));
    EXPECT_EQ(2u, CStorageRegion_GetNoOfObjects(&region));
    EXPECT_EQ(0u, CStorageRegion_IsEmpty(&region));
}

TEST_F(CStorageRegionTest, AddObject_OfATakenName_WarnsAndKeepsOneEntry) {
    CStorageObject *object = newObject("A", true);
    EXPECT_EQ(eAF_S_OK, CStorageRegion_AddObject(&region, object));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CStorageRegion_AddObject(&region, object));
    CStorageObject sameName;
    CStorageObject_Construct(&sameName, "A");
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, CStorageRegion_AddObject(&region, &sameName));
    EXPECT_EQ(1u, CStorageRegion_GetNoOfObjects(&region));
}

TEST_F(CStorageRegionTest, AddObject_SkipsListedObjectsWhoseNameCanNotBeRead) {
    CStorageObject *object = newObject("A", true);
    CStorageRegion_AddObject(&region, object);
    object->name[0] = '\0';
    EXPECT_EQ(eAF_S_OK, CStorageRegion_AddObject(&region, newObject("A", true)));
}

TEST_F(CStorageRegionTest, AddObject_RefusesNullAndNameless) {
    CStorageObject nameless;
    CStorageObject_Construct(&nameless, "");
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_AddObject(nullptr, &nameless));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_AddObject(&region, nullptr));
    EXPECT_EQ(eAF_E_FAILED, CStorageRegion_AddObject(&region, &nameless));
    EXPECT_EQ(1u, CStorageRegion_IsEmpty(&region));
}

TEST_F(CStorageRegionTest, GetSizeInBytes_SumsTheObjects) {
    unsigned long size = 99;
    EXPECT_EQ(eAF_S_OK, CStorageRegion_GetSizeInBytes(&region, &size));
    EXPECT_EQ(0u, size);
    CStorageRegion_AddObject(&region, newObject("A", true));
    CStorageRegion_AddObject(&region, newObject("B", true));
    EXPECT_EQ(eAF_S_OK, CStorageRegion_GetSizeInBytes(&region, &size));
    EXPECT_EQ(8u, size);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_GetSizeInBytes(nullptr, &size));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_GetSizeInBytes(&region, nullptr));
}

TEST_F(CStorageRegionTest, ReservedSizeAndFlag_AreKeptAsGiven) {
    unsigned long reserved = 0;
    EXPECT_EQ(eAF_S_OK, CStorageRegion_ReserveSize(&region, 4096));
    EXPECT_EQ(eAF_S_OK, CStorageRegion_GetReservedSize(&region, &reserved));
    EXPECT_EQ(4096u, reserved);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_GetReservedSize(nullptr, &reserved));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_GetReservedSize(&region, nullptr));
    CStorageRegion_SetDynamicallyAllocated(&region, 1);
    EXPECT_EQ(1u, CStorageRegion_IsDynamicallyAllocated(&region));
}

TEST_F(CStorageRegionTest, Destruct_DestructsEveryObjectAndFreesTheMarkedOnes) {
    CStorageObject *unmarked = newObject("B", false);
    CStorageRegion_AddObject(&region, newObject("A", true));
    CStorageRegion_AddObject(&region, unmarked);
    CStorageRegion_SetDynamicallyAllocated(&region, 1);
    CStorageRegion_Destruct(&region); // its own mark is the database's business
    EXPECT_EQ(1u, CStorageRegion_IsEmpty(&region));
    EXPECT_EQ(0u, CStorageRegion_GetNoOfObjects(&region));
    EXPECT_NE(0u, CStorageObject_IsEmpty(unmarked)) << "destructed";
    EXPECT_STREQ("B", unmarked->name) << "not freed";
    delete[] unmarked;
}

TEST_F(CStorageRegionTest, NoRegion_IsAnsweredAndNeverTouched) {
    CStorageRegion_Construct(nullptr, "Name", 1);
    CStorageRegion_Destruct(nullptr);
    CStorageRegion_SetDynamicallyAllocated(nullptr, 1);
    EXPECT_EQ(0u, CStorageRegion_GetLocationId(nullptr));
    EXPECT_EQ(0u, CStorageRegion_GetNoOfObjects(nullptr));
    EXPECT_EQ(1u, CStorageRegion_IsEmpty(nullptr));
    EXPECT_EQ(0u, CStorageRegion_IsDynamicallyAllocated(nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CStorageRegion_ReserveSize(nullptr, 1));
}

} // namespace
