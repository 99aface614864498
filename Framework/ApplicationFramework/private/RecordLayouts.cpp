// The records of the interface on the 32-bit board, byte by byte. Other processes, hosts in C and libraries built
// years ago rely on them.
#include <cstddef>

#include "CApplicationFramework.h"
#include "CDatabase.h"
#include "CEventCache.h"
#include "CEventHandler.h"
#include "CEventTask.h"
#include "CModuleManager_c.h"
#include "CStorageManager.h"
#include "CVariable.h"
#include "EventRegistry.h"

namespace {

constexpr bool isBoard = sizeof(void *) == 4;

/// On other targets the widths follow the pointer, so only the board's figures are settled.
constexpr bool onBoard(std::size_t actual, std::size_t settled) {
    return !isBoard || actual == settled;
}

static_assert(sizeof(EAFResult) == 4 && sizeof(ECallbackPriority) == 4);

static_assert(onBoard(sizeof(SApplicationDescriptor), 8) && onBoard(offsetof(SApplicationDescriptor, getName), 4));
static_assert(onBoard(sizeof(SModuleCallback), 8) && onBoard(offsetof(SModuleCallback, function), 4));
static_assert(onBoard(sizeof(SResetProvider), 12) && onBoard(offsetof(SResetProvider, getSystemResetInfo), 4) &&
              onBoard(offsetof(SResetProvider, isColdReset), 8));
static_assert(onBoard(sizeof(SListenerCallback), 8) && onBoard(offsetof(SListenerCallback, function), 4));

static_assert(onBoard(sizeof(SEventDataMessage), 12) && offsetof(SEventDataMessage, eventId) == 0 &&
              onBoard(offsetof(SEventDataMessage, pData), 4) && onBoard(offsetof(SEventDataMessage, isCopied), 8));

static_assert(sizeof(SEventHandlerStatistics) == 28 && offsetof(SEventHandlerStatistics, noOfCacheMisses) == 24);

static_assert(sizeof(SEventCacheEntry) == 8 && offsetof(SEventCacheEntry, value) == 4);
static_assert(offsetof(CEventCache, capacity) == 0 && offsetof(CEventCache, count) == 4 &&
              offsetof(CEventCache, next) == 8 && onBoard(offsetof(CEventCache, entries), 12) &&
              onBoard(sizeof(CEventCache), 16));

static_assert(onBoard(sizeof(ITask), 24));
static_assert(offsetof(CEventTask, operations) == 0 && onBoard(offsetof(CEventTask, threadHandle), 24) &&
              onBoard(offsetof(CEventTask, queue), 28) && onBoard(offsetof(CEventTask, queueName), 32) &&
              onBoard(offsetof(CEventTask, priority), 52) && onBoard(offsetof(CEventTask, stackSize), 56) &&
              onBoard(offsetof(CEventTask, messageSize), 60) && onBoard(offsetof(CEventTask, createQueue), 64) &&
              onBoard(offsetof(CEventTask, semaphore), 68));
static_assert(offsetof(CEventTask, running) < offsetof(CEventTask, runFlag) &&
              offsetof(CEventTask, runFlag) < offsetof(CEventTask, taskName));

static_assert(sizeof SEventDescriptor::name == 50 && sizeof SListenerDescriptor::name == 30);
static_assert(sizeof CEventTask::queueName == 20 && sizeof CEventTask::taskName == 10);

static_assert(sizeof(EVariableType) == 4 && sizeof(EAccessType) == 4 && sizeof(EProviderOperation) == 4);

static_assert(onBoard(sizeof(SVariableDescriptor), 20) && onBoard(offsetof(SVariableDescriptor, type), 4) &&
              onBoard(offsetof(SVariableDescriptor, noOfElements), 8) &&
              onBoard(offsetof(SVariableDescriptor, name), 12) &&
              onBoard(offsetof(SVariableDescriptor, defaultContentAddress), 16));

static_assert(offsetof(CVariable, dynamicallyAllocated) == 0 && onBoard(offsetof(CVariable, content), 4) &&
              onBoard(offsetof(CVariable, type), 8) && onBoard(offsetof(CVariable, noOfElements), 12) &&
              onBoard(offsetof(CVariable, name), 16) && onBoard(offsetof(CVariable, path), 136) &&
              onBoard(offsetof(CVariable, defaultContent), 648) && onBoard(offsetof(CVariable, retrieved), 652) &&
              onBoard(offsetof(CVariable, accessType), 656) && onBoard(offsetof(CVariable, mutex), 660));

// What stands behind an embedded container moves with the platform's own record of it.
static_assert(offsetof(CStorageObject, dynamicallyAllocated) == 0 && onBoard(offsetof(CStorageObject, variables), 4) &&
              offsetof(CStorageObject, reservedSize) == offsetof(CStorageObject, variables) + sizeof(CList) &&
              offsetof(CStorageObject, name) == offsetof(CStorageObject, reservedSize) + 4 &&
              onBoard(offsetof(CStorageObject, rawObjectContentAddress), offsetof(CStorageObject, name) + 120) &&
              onBoard(offsetof(CStorageObject, applicationData), offsetof(CStorageObject, name) + 124) &&
              onBoard(offsetof(CStorageObject, writable), offsetof(CStorageObject, name) + 128) &&
              onBoard(sizeof(CStorageObject), offsetof(CStorageObject, name) + 132));

static_assert(offsetof(CStorageRegion, dynamicallyAllocated) == 0 && onBoard(offsetof(CStorageRegion, objects), 4) &&
              onBoard(sizeof(SStorageList), 12) && onBoard(offsetof(CStorageRegion, locationId), 16) &&
              onBoard(offsetof(CStorageRegion, reservedSize), 20) && onBoard(offsetof(CStorageRegion, name), 24) &&
              onBoard(sizeof(CStorageRegion), 64));

static_assert(offsetof(CDatabase, regions) == 0 && onBoard(offsetof(CDatabase, pathHashTable), 12) &&
              onBoard(offsetof(CDatabase, noOfVariablesProcessed), 12 + sizeof(CHashTable)));

static_assert(onBoard(sizeof(IStorageProvider), 16) && onBoard(offsetof(IStorageProvider, ReserveWritableSpace), 4) &&
              onBoard(offsetof(IStorageProvider, StoreAll), 8) && onBoard(offsetof(IStorageProvider, RetrieveAll), 12));

static_assert(sizeof CVariable::name == 120 && sizeof CVariable::path == 512 && sizeof CStorageObject::name == 120 &&
              sizeof CStorageRegion::name == 40);

} // namespace
