// The records of the interface on the 32-bit board, byte by byte. Other processes, hosts in C and libraries built
// years ago rely on them.
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

#include "CApplicationFramework.h"
#include "CDatabase.h"
#include "CEventCache.h"
#include "CEventHandler.h"
#include "CEventTask.h"
#include "CModuleManager_c.h"
#include "CStorageManager.h"
#include "CVariable.h"
#include "EventRegistry.h"
#include "ModuleRegistry.h"
#include "SLocationDescriptor.h"
#include "SProviderDescriptor.h"

namespace {

constexpr bool isBoard = sizeof(void *) == 4;

/// On other targets the widths follow the pointer, so only the board's figures are settled.
constexpr bool onBoard(std::size_t actual, std::size_t settled) {
    return !isBoard || actual == settled;
}

/// Where a member comes that would begin at an offset, were it not for its alignment.
constexpr std::size_t aligned(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

// NOLINTBEGIN(bugprone-sizeof-container): texts and lists lie in records: their own size counts, not what they hold

/// A record's field: where it begins and how many bytes it takes.
#define FIELD(record, field, offset, size)                                                                             \
    static_assert(onBoard(offsetof(record, field), offset) && onBoard(sizeof(record::field), size), #record "." #field)
#define SIZE(record, size) static_assert(onBoard(sizeof(record), size), "size of " #record)

static_assert(sizeof(EAFResult) == 4 && sizeof(ECallbackPriority) == 4 && sizeof(EVariableType) == 4 &&
              sizeof(EAccessType) == 4 && sizeof(EProviderOperation) == 4);

// Application list

FIELD(SApplicationDescriptor, initialize, 0, 4);
FIELD(SApplicationDescriptor, getName, 4, 4);
SIZE(SApplicationDescriptor, 8);

// Module manager

FIELD(SModuleCallback, context, 0, 4);
FIELD(SModuleCallback, function, 4, 4);
SIZE(SModuleCallback, 8);

FIELD(SResetProvider, performSystemReset, 0, 4);
FIELD(SResetProvider, getSystemResetInfo, 4, 4);
FIELD(SResetProvider, isColdReset, 8, 4);
SIZE(SResetProvider, 12);

// The registry's own records name their things in this order; how a list is kept is this library's business.
constexpr std::size_t text = sizeof(std::string);
static_assert(onBoard(text, 24));

FIELD(SModuleDescriptor, id, 0, 4);
FIELD(SModuleDescriptor, name, 4, text);
FIELD(SModuleDescriptor, state, 4 + text, 4);
SIZE(SModuleDescriptor, 8 + text);

FIELD(SGroupDescriptor, id, 0, 4);
FIELD(SGroupDescriptor, name, 4, text);
SIZE(SGroupDescriptor, 4 + text);

FIELD(SBatchEntry, groupId, 0, 4);
FIELD(SBatchEntry, phaseId, 4, 4);
static_assert(sizeof(SBatchEntry) == 8);

FIELD(SBatchDescriptor, id, 0, 4);
FIELD(SBatchDescriptor, name, 4, text);
FIELD(SBatchDescriptor, entries, 4 + text, sizeof SBatchDescriptor::entries);
SIZE(SBatchDescriptor, 4 + text + sizeof SBatchDescriptor::entries);

FIELD(SPhaseDescriptor, id, 0, 4);
FIELD(SPhaseDescriptor, name, 4, text);
FIELD(SPhaseDescriptor, callbacks, 4 + text, sizeof SPhaseDescriptor::callbacks);
SIZE(SPhaseDescriptor, 4 + text + sizeof SPhaseDescriptor::callbacks);

FIELD(SCallbackDescriptor, moduleId, 0, 4);
FIELD(SCallbackDescriptor, radioChannel, 4, 4);
FIELD(SCallbackDescriptor, callback, 8, 4);
FIELD(SCallbackDescriptor, priority, 12, 4);
FIELD(SCallbackDescriptor, name, 16, text);
SIZE(SCallbackDescriptor, 16 + text);

// The library's std::list has bases with members. Both compilers lay it out as any other member.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(CModuleManager_c, modules) == 0 &&
              offsetof(CModuleManager_c, modules) < offsetof(CModuleManager_c, groups) &&
              offsetof(CModuleManager_c, groups) < offsetof(CModuleManager_c, batches) &&
              offsetof(CModuleManager_c, batches) < offsetof(CModuleManager_c, phases) &&
              offsetof(CModuleManager_c, phases) < offsetof(CModuleManager_c, resetProvider));
#pragma GCC diagnostic pop

// Events

FIELD(SListenerCallback, context, 0, 4);
FIELD(SListenerCallback, function, 4, 4);
SIZE(SListenerCallback, 8);

// Goes through queues as it lies.
FIELD(SEventDataMessage, eventId, 0, 4);
FIELD(SEventDataMessage, pData, 4, 4);
FIELD(SEventDataMessage, isCopied, 8, 4);
SIZE(SEventDataMessage, 12);
static_assert(sizeof SEventDataMessage::eventId == 4 && sizeof SEventDataMessage::isCopied == 4);

FIELD(SEventHandlerStatistics, noOfRegisteredEvents, 0, 4);
FIELD(SEventHandlerStatistics, maxNoOfEvents, 4, 4);
FIELD(SEventHandlerStatistics, noOfListeners, 8, 4);
FIELD(SEventHandlerStatistics, maxNoOfListeners, 12, 4);
FIELD(SEventHandlerStatistics, noOfErrorResponses, 16, 4);
FIELD(SEventHandlerStatistics, noOfPumpedEvents, 20, 4);
FIELD(SEventHandlerStatistics, noOfCacheMisses, 24, 4);
static_assert(sizeof(SEventHandlerStatistics) == 28);

FIELD(SEventDescriptor, eventId, 0, 4);
FIELD(SEventDescriptor, name, 4, 50);
SIZE(SEventDescriptor, 56);

FIELD(SListenerDescriptor, handle, 0, 4);
FIELD(SListenerDescriptor, callback, 4, 4);
FIELD(SListenerDescriptor, queue, 8, 4);
FIELD(SListenerDescriptor, name, 12, 30);
FIELD(SListenerDescriptor, eventFilter, 44, 4);
FIELD(SListenerDescriptor, noOfFilterEvents, 48, 4);
SIZE(SListenerDescriptor, 52);

FIELD(SEventListenerList, listeners, 0, 4);
FIELD(SEventListenerList, noOfListeners, 4, 4);

FIELD(SEventCacheEntry, key, 0, 4);
FIELD(SEventCacheEntry, value, 4, 4);
static_assert(sizeof(SEventCacheEntry) == 8);

FIELD(CEventCache, capacity, 0, 4);
FIELD(CEventCache, count, 4, 4);
FIELD(CEventCache, next, 8, 4);
FIELD(CEventCache, entries, 12, 4);
SIZE(CEventCache, 16);

FIELD(ITask, Create, 0, 4);
FIELD(ITask, GetThreadHandle, 4, 4);
FIELD(ITask, Start, 8, 4);
FIELD(ITask, Stop, 12, 4);
FIELD(ITask, IsRunning, 16, 4);
FIELD(ITask, Destroy, 20, 4);
SIZE(ITask, 24);

FIELD(CEventTask, operations, 0, 24);
FIELD(CEventTask, threadHandle, 24, 4);
FIELD(CEventTask, queue, 28, 4);
FIELD(CEventTask, queueName, 32, 20);
FIELD(CEventTask, priority, 52, 1);
FIELD(CEventTask, stackSize, 56, 4);
FIELD(CEventTask, messageSize, 60, 4);
FIELD(CEventTask, createQueue, 64, 4);
FIELD(CEventTask, semaphore, 68, 16);
FIELD(CEventTask, running, 84, 4);
FIELD(CEventTask, runFlag, 88, 4);
FIELD(CEventTask, taskName, 92, 10);
SIZE(CEventTask, 104);

// Storage

FIELD(SVariableDescriptor, contentAddress, 0, 4);
FIELD(SVariableDescriptor, type, 4, 4);
FIELD(SVariableDescriptor, noOfElements, 8, 4);
FIELD(SVariableDescriptor, name, 12, 4);
FIELD(SVariableDescriptor, defaultContentAddress, 16, 4);
SIZE(SVariableDescriptor, 20);

FIELD(CVariable, dynamicallyAllocated, 0, 4);
FIELD(CVariable, content, 4, 4);
FIELD(CVariable, type, 8, 4);
FIELD(CVariable, noOfElements, 12, 4);
FIELD(CVariable, name, 16, 120);
FIELD(CVariable, path, 136, 512);
FIELD(CVariable, defaultContent, 648, 4);
FIELD(CVariable, retrieved, 652, 4);
FIELD(CVariable, accessType, 656, 4);
FIELD(CVariable, mutex, 660, 24);
SIZE(CVariable, 684);

// What stands behind an embedded container moves with the platform's own record of it.
constexpr std::size_t object = aligned(4, alignof(CList)) + sizeof(CList);
FIELD(CStorageObject, dynamicallyAllocated, 0, 4);
FIELD(CStorageObject, variables, object - sizeof(CList), sizeof(CList));
FIELD(CStorageObject, reservedSize, object, 4);
FIELD(CStorageObject, name, object + 4, 120);
FIELD(CStorageObject, rawObjectContentAddress, object + 124, 4);
FIELD(CStorageObject, applicationData, object + 128, 4);
FIELD(CStorageObject, writable, object + 132, 4);
SIZE(CStorageObject, aligned(object + 136, alignof(CStorageObject)));

FIELD(SStorageList, head, 0, 4);
FIELD(SStorageList, tail, 4, 4);
FIELD(SStorageList, count, 8, 4);
SIZE(SStorageList, 12);

FIELD(CStorageRegion, dynamicallyAllocated, 0, 4);
FIELD(CStorageRegion, objects, 4, 12);
FIELD(CStorageRegion, locationId, 16, 4);
FIELD(CStorageRegion, reservedSize, 20, 4);
FIELD(CStorageRegion, name, 24, 40);
SIZE(CStorageRegion, 64);

constexpr std::size_t table = aligned(12, alignof(CHashTable));
FIELD(CDatabase, regions, 0, 12);
FIELD(CDatabase, pathHashTable, table, sizeof(CHashTable));
FIELD(CDatabase, noOfVariablesProcessed, table + sizeof(CHashTable), 4);
SIZE(CDatabase, aligned(table + sizeof(CHashTable) + 4, alignof(CDatabase)));

FIELD(IStorageProvider, Initialize, 0, 4);
FIELD(IStorageProvider, ReserveWritableSpace, 4, 4);
FIELD(IStorageProvider, StoreAll, 8, 4);
FIELD(IStorageProvider, RetrieveAll, 12, 4);
SIZE(IStorageProvider, 16);

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
FIELD(SProviderDescriptor, name, 0, text);
FIELD(SProviderDescriptor, provider, text, 4);
FIELD(SProviderDescriptor, providerId, text + 4, 4);
FIELD(SProviderDescriptor, locations, text + 8, sizeof(std::list<SLocationDescriptor *>));
SIZE(SProviderDescriptor, text + 8 + sizeof(std::list<SLocationDescriptor *>));
#pragma GCC diagnostic pop

FIELD(SLocationDescriptor, name, 0, text);
FIELD(SLocationDescriptor, locationId, text, 4);
FIELD(SLocationDescriptor, providerId, text + 4, 4);
FIELD(SLocationDescriptor, providerAssigned, text + 8, 1);
FIELD(SLocationDescriptor, provider, text + 12, 4);
FIELD(SLocationDescriptor, writableSize, text + 16, 4);
FIELD(SLocationDescriptor, database, text + 20, 4);
FIELD(SLocationDescriptor, locationData, text + 24, 4);
SIZE(SLocationDescriptor, text + 28);

// The lengths of texts and the 32-bit words are the same on every target.
static_assert(sizeof SEventDescriptor::name == 50 && sizeof SListenerDescriptor::name == 30 &&
              sizeof CEventTask::queueName == 20 && sizeof CEventTask::taskName == 10 &&
              sizeof CVariable::name == 120 && sizeof CVariable::path == 512 && sizeof CStorageObject::name == 120 &&
              sizeof CStorageRegion::name == 40);

// NOLINTEND(bugprone-sizeof-container)
#undef FIELD
#undef SIZE

} // namespace
