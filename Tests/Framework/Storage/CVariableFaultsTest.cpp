// Mutex calls that fail, by definitions here that come before the C library's.
#include <pthread.h>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "CStorageObject.h"
#include "CVariable.h"
#include "TraceRecorder.h"

namespace {

/// The one mutex whose calls fail. Every other is the C library's own business.
pthread_mutex_t *failing;
bool initFails;

template <class Function>
Function *systems(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace {

void (*afterObjectDestruct)(CStorageObject *object);
CVariable *shrinking;

} // namespace

// The library calls its own exported operations as any program would: this one comes first.
void CStorageObject_Destruct(CStorageObject *object) {
    static auto *const own =
        reinterpret_cast<decltype(&CStorageObject_Destruct)>(dlsym(RTLD_NEXT, "CStorageObject_Destruct"));
    own(object);
    if (afterObjectDestruct != nullptr) {
        afterObjectDestruct(object);
    }
}

// Called by a sanitizer before that is ready to be called back.
#define PLAIN __attribute__((no_sanitize("address", "thread", "undefined")))

extern "C" {
PLAIN int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) noexcept {
    if (initFails && mutex == failing) {
        EXPECT_EQ(nullptr, attributes);
        return EAGAIN;
    }
    return systems<int(pthread_mutex_t *, const pthread_mutexattr_t *)>("pthread_mutex_init")(mutex, attributes);
}
PLAIN int pthread_mutex_destroy(pthread_mutex_t *mutex) noexcept {
    return mutex == failing ? EBUSY : systems<int(pthread_mutex_t *)>("pthread_mutex_destroy")(mutex);
}
PLAIN int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    static auto *const own = systems<int(pthread_mutex_t *)>("pthread_mutex_lock");
    return mutex == failing ? EINVAL : own(mutex);
}
PLAIN int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept {
    static auto *const own = systems<int(pthread_mutex_t *)>("pthread_mutex_unlock");
    return mutex == failing ? EPERM : own(mutex);
}
}

namespace {

using test::Line;
using test::TraceRecorder;
using testing::ElementsAre;

class CVariableFaults : public testing::Test {
protected:
    CVariableFaults() { TraceRecorder::reset(test::levelOf(eAF_E_FAILED)); }
    ~CVariableFaults() override {
        failing = nullptr;
        initFails = false;
    }
    CVariable variable{};
    int content = 7;
};

TEST_F(CVariableFaults, AMutexThatCanNotBeMade_IsTracedAndReturned_TheRecordIsFilled) {
    failing = &variable.mutex;
    initFails = true;
    EXPECT_EQ(eAF_E_MUTEX_ERROR, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "Gain", nullptr));
    EXPECT_STREQ("Gain", variable.name);
    EXPECT_EQ(&content, variable.content);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CVariable_Construct", "Can't init mutex", eAF_E_MUTEX_ERROR}));
}

TEST_F(CVariableFaults, AMutexThatCanNotBeDestroyed_IsTracedAndReturned_TheContentIsFreed) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, nullptr, TYPE_INT32, 1, "Gain", nullptr));
    failing = &variable.mutex;
    EXPECT_EQ(eAF_E_MUTEX_ERROR, CVariable_Destruct(&variable));
    EXPECT_EQ(nullptr, variable.content);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"CVariable_Destruct", "Can't destroy mutex", eAF_E_MUTEX_ERROR}));
}

TEST_F(CVariableFaults, LockAndUnLockThatFail_AreTracedAndReturned) {
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, &content, TYPE_INT32, 1, "Gain", nullptr));
    failing = &variable.mutex;
    EXPECT_EQ(eAF_E_MUTEX_ERROR, CVariable_Lock(&variable));
    EXPECT_EQ(eAF_E_MUTEX_ERROR, CVariable_UnLock(&variable));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(Line{"CVariable_Lock", "Can't lock mutex", eAF_E_MUTEX_ERROR},
                                                    Line{"CVariable_UnLock", "Can't unlock mutex", eAF_E_MUTEX_ERROR}));
}

TEST_F(CVariableFaults, DestructOfAnObjectArray_ReadsTheElementCountBeforeEachElement) {
    CStorageObject first;
    CStorageObject_Construct(&first, "A");
    CStorageObject second;
    CStorageObject_Construct(&second, "B");
    int value = 0;
    CVariable inner;
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&inner, &value, TYPE_INT32, 1, "Inner", nullptr));
    ASSERT_EQ(eAF_S_OK, CStorageObject_AddVariable(&second, &inner));
    CStorageObject *elements[] = {&first, &second};
    ASSERT_EQ(eAF_S_OK, CVariable_Construct(&variable, elements, TYPE_OBJECT_ARRAY, 2, "Os", nullptr));
    afterObjectDestruct = [](CStorageObject *) { shrinking->noOfElements = 1; };
    shrinking = &variable;
    EXPECT_EQ(eAF_S_OK, CVariable_Destruct(&variable));
    afterObjectDestruct = nullptr;
    EXPECT_EQ(1u, CStorageObject_GetNoOfVariables(&second)) << "the count had become 1 before its turn";
    CStorageObject_Destruct(&second);
}

} // namespace
