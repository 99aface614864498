// A list that fails under an object, and a variable whose content can not be had.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "CStorageObject.h"
#include "CStorageRegion.h"
#include "ListFaults.h"
#include "TraceRecorder.h"

namespace {

EAFResult contentAddressAnswer = eAF_S_OK;
CVariable *askedForContent;

} // namespace

EAFResult CVariable_GetContentAddress(CVariable *variable, void **out) {
    static auto *const own =
        reinterpret_cast<decltype(&CVariable_GetContentAddress)>(dlsym(RTLD_NEXT, "CVariable_GetContentAddress"));
    askedForContent = variable;
    return contentAddressAnswer != eAF_S_OK ? contentAddressAnswer : own(variable, out);
}

namespace {

EAFResult constructAnswer = eAF_S_OK;
CVariable *lastConstructed;
CVariable *lastBeforeTheBreak; ///< Behind its size every list breaks off.

} // namespace

// It does its work whatever it answers, as where a mutex can not be had.
EAFResult CVariable_Construct(CVariable *variable, void *contentAddress, EVariableType type, uint32_t noOfElements,
                              const char *name, void *defaultContentAddress) {
    static auto *const own = reinterpret_cast<decltype(&CVariable_Construct)>(dlsym(RTLD_NEXT, "CVariable_Construct"));
    lastConstructed = variable;
    const EAFResult result = own(variable, contentAddress, type, noOfElements, name, defaultContentAddress);
    return constructAnswer != eAF_S_OK ? constructAnswer : result;
}

uint32_t CVariable_GetSizeInBytes(CVariable *variable) {
    static auto *const own =
        reinterpret_cast<decltype(&CVariable_GetSizeInBytes)>(dlsym(RTLD_NEXT, "CVariable_GetSizeInBytes"));
    if (variable == lastBeforeTheBreak) {
        test::listFaults().getNext = 0x8004;
    }
    return own(variable);
}

namespace {

using test::Line;
using test::listFaults;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class CStorageObjectFaults : public testing::Test {
protected:
    CStorageObjectFaults() {
        CStorageObject_Construct(&object, "Radio");
        CVariable_Construct(&first, &content, TYPE_INT32, 1, "First", nullptr);
        CVariable_Construct(&second, &content, TYPE_INT32, 1, "Second", nullptr);
        CStorageObject_AddVariable(&object, &first);
        TraceRecorder::reset();
    }
    ~CStorageObjectFaults() override {
        listFaults() = {};
        contentAddressAnswer = eAF_S_OK;
        CStorageObject_Destruct(&object);
        CVariable_Destruct(&second);
    }

    CStorageObject object{};
    CVariable first{};
    CVariable second{};
    std::int32_t content = 1;
    test::ListFaultsReset m_reset;
};

TEST_F(CStorageObjectFaults, AnAppendThatFails_IsFailedAndUntraced) {
    listFaults().pushTail = test::listOutOfMemory;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_AddVariable(&object, &second));
    EXPECT_EQ(1u, CStorageObject_GetNoOfVariables(&object));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
}

TEST_F(CStorageObjectFaults, APopThatFails_IsTracedAndEndsTheDestruction) {
    listFaults().popHead = 0x8123;
    CStorageObject_Destruct(&object);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageObject_Destruct", "Failed to pop head from non-empty list", 0x8123}));
    EXPECT_EQ(&content, first.content);
    EXPECT_EQ(0, pthread_mutex_trylock(&first.mutex)) << "it was not destructed";
    pthread_mutex_unlock(&first.mutex);
    CVariable_Destruct(&first);
}

TEST_F(CStorageObjectFaults, AnIterationThatDoesNotStart_Fails) {
    CListIterator iterator{};
    unsigned long size = 99;
    listFaults().startIteration = 0x8005;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetVariableIterator(&object, &iterator));
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetSizeInBytes(&object, &size));
    EXPECT_EQ(0u, size);
    listFaults().startIteration = test::listExhausted;
    EXPECT_EQ(eAF_W_NO_MORE_DATA, CStorageObject_GetVariableIterator(&object, &iterator));
}

TEST_F(CStorageObjectFaults, AnIterationThatBreaksOff_FailsWithNoVariable) {
    CListIterator iterator{};
    CStorageObject_GetVariableIterator(&object, &iterator);
    listFaults().getNext = 0x8004;
    CVariable *variable = &first;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetNextVariable(&object, &variable, &iterator));
    EXPECT_EQ(nullptr, variable);
    unsigned long size = 99;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetSizeInBytes(&object, &size));
}

TEST_F(CStorageObjectFaults, ARegionsSize_IsPartialWhereAnObjectFails) {
    CStorageRegion region;
    CStorageRegion_Construct(&region, "Cfg", 1);
    CStorageRegion_AddObject(&region, &object);
    unsigned long size = 99;
    listFaults().getNext = 0x8004;
    EXPECT_EQ(eAF_E_FAILED, CStorageRegion_GetSizeInBytes(&region, &size));
    EXPECT_EQ(0u, size);
    listFaults().getNext = 0;
    CStorageRegion_Destruct(&region);
}

TEST_F(CStorageObjectFaults, AddObject_WithoutTheWrappersContent_TracesAndAddsNothing) {
    CStorageObject child;
    CStorageObject_Construct(&child, "Child");
    contentAddressAnswer = eAF_E_STACK_EMPTY;
    EXPECT_EQ(eAF_E_STACK_EMPTY, CStorageObject_AddObject(&object, &child));
    contentAddressAnswer = eAF_S_OK;
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CStorageObject_AddObject",
                                 "Could not get variable content address when adding object", eAF_E_STACK_EMPTY}));
    EXPECT_EQ(1u, CStorageObject_GetNoOfVariables(&object));
    const std::unique_ptr<CVariable[]> wrapper(askedForContent); // not freed there
    CVariable_Destruct(wrapper.get());
}

TEST_F(CStorageObjectFaults, CreateVariables_WhoseAppendFails_IsFailedAndKeepsTheVariable) {
    SVariableDescriptor descriptors[] = {{nullptr, TYPE_INT32, 1, "Third", nullptr},
                                         {nullptr, TYPE_INT32, 1, "Fourth", nullptr}};
    listFaults().pushTail = test::listOutOfMemory;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_CreateVariables(&object, descriptors, 2));
    EXPECT_EQ(1u, CStorageObject_GetNoOfVariables(&object));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    const std::unique_ptr<CVariable[]> kept(lastConstructed); // not freed there
    EXPECT_STREQ("Third", kept[0].name) << "none behind it was tried";
    EXPECT_EQ(1u, CVariable_IsDynamicallyAllocated(kept.get()));
    CVariable_Destruct(kept.get());
}

TEST_F(CStorageObjectFaults, AddObject_WhoseAppendFails_IsFailedAndUntraced) {
    CStorageObject child;
    CStorageObject_Construct(&child, "Child");
    listFaults().pushTail = test::listOutOfMemory;
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_AddObject(&object, &child));
    EXPECT_EQ(1u, CStorageObject_GetNoOfVariables(&object));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    const std::unique_ptr<CVariable[]> wrapper(lastConstructed);
    CVariable_Destruct(wrapper.get());
}

TEST_F(CStorageObjectFaults, VariablesWithoutAMutex_AreMadeAndAddedAllTheSame) {
    SVariableDescriptor descriptor{nullptr, TYPE_INT32, 1, "Third", nullptr};
    CStorageObject child;
    CStorageObject_Construct(&child, "Child");
    constructAnswer = eAF_E_MUTEX_ERROR;
    EXPECT_EQ(eAF_S_OK, CStorageObject_CreateVariables(&object, &descriptor, 1));
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddObject(&object, &child));
    constructAnswer = eAF_S_OK;
    EXPECT_EQ(3u, CStorageObject_GetNoOfVariables(&object));
    const std::unique_ptr<CVariable[]> wrapper(lastConstructed);
    CStorageObject_Destruct(&object); // while the wrapper lives
}

TEST_F(CStorageObjectFaults, AfterAPopThatFailed_TheListIsEmptyAndTheRestUntouched) {
    ASSERT_EQ(eAF_S_OK, CStorageObject_AddVariable(&object, &second));
    listFaults().popHead = 0x8123;
    CStorageObject_Destruct(&object);
    listFaults().popHead = 0;
    EXPECT_NE(0u, CStorageObject_IsEmpty(&object));
    for (CVariable *variable : {&first, &second}) {
        EXPECT_EQ(0, pthread_mutex_trylock(&variable->mutex)) << variable->name;
        pthread_mutex_unlock(&variable->mutex);
    }
    CVariable_Destruct(&first);
}

TEST_F(CStorageObjectFaults, SizesThatBreakOff_KeepTheSumOfWhatWasRead) {
    ASSERT_EQ(eAF_S_OK, CStorageObject_AddVariable(&object, &second));
    CStorageObject other;
    CStorageObject_Construct(&other, "Other");
    SVariableDescriptor descriptors[] = {{nullptr, TYPE_DOUBLE, 1, "A", nullptr},
                                         {nullptr, TYPE_DOUBLE, 1, "B", nullptr}};
    ASSERT_EQ(eAF_S_OK, CStorageObject_CreateVariables(&other, descriptors, 2));
    CStorageRegion region;
    CStorageRegion_Construct(&region, "Cfg", 1);
    CStorageRegion_AddObject(&region, &object);
    CStorageRegion_AddObject(&region, &other);
    unsigned long size = 99;
    CStorageObject_GetVariableByName(&other, "A", &lastBeforeTheBreak);
    EXPECT_EQ(eAF_E_FAILED, CStorageObject_GetSizeInBytes(&other, &size));
    EXPECT_EQ(8u, size) << "of an object: its first variable";
    listFaults().getNext = 0;
    EXPECT_EQ(eAF_E_FAILED, CStorageRegion_GetSizeInBytes(&region, &size));
    EXPECT_EQ(8u, size) << "of a region: the two integers of its first object, nothing of the one that failed";
    listFaults().getNext = 0;
    lastBeforeTheBreak = nullptr;
    CStorageRegion_Destruct(&region);
}

TEST_F(CStorageObjectFaults, AnIterationThatStartsWithAWarning_HasStarted) {
    CListIterator iterator{};
    listFaults().startIteration = test::listLastElement;
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetVariableIterator(&object, &iterator));
}

TEST_F(CStorageObjectFaults, AnEmptyListThatAnswersTheWarning_HasNoMoreData) {
    CStorageObject empty;
    CStorageObject_Construct(&empty, "Empty");
    CListIterator iterator{};
    unsigned long size = 99;
    listFaults().startIteration = test::listLastElement;
    EXPECT_EQ(eAF_W_NO_MORE_DATA, CStorageObject_GetVariableIterator(&empty, &iterator));
    EXPECT_EQ(eAF_S_OK, CStorageObject_GetSizeInBytes(&empty, &size));
    EXPECT_EQ(0u, size);
    CStorageObject_Destruct(&empty);
}

} // namespace
