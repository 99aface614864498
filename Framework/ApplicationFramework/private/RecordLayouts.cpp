// The records of the interface on the 32-bit board, byte by byte. Other processes, hosts in C and libraries built
// years ago rely on them.
#include <cstddef>

#include "CApplicationFramework.h"
#include "CEventCache.h"
#include "CEventHandler.h"
#include "CEventTask.h"
#include "CModuleManager_c.h"
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

} // namespace
