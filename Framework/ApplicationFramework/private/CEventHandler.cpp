#include "CEventHandler.h"

#include <mqueue.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "AfTrace.h"
#include "AtomicWord.h"
#include "BoundedText.h"
#include "CEventCache.h"
#include "CFrameworkUtils.h"
#include "EventQueue.h"
#include "EventRegistry.h"

namespace {

constexpr char fireLabel[] = "CEventHandler_FireEventInternal";
constexpr char pumpLabel[] = "CEventHandler_PumpEventInternal";

/// What every process of the user's message queues may hold together, in bytes.
constexpr rlim_t queueByteLimit = 2457600;

/// Set-user-id and set-group-id with everything for all, less what the process's umask takes away.
constexpr mode_t listenerQueueMode = 0xdff;

constexpr std::size_t queueNameSize = 256;

/// The one event that its copied-data firing sends urgent.
constexpr std::uint32_t alwaysUrgentCopiedEvent = 48;

constexpr char taskName[] = "EHNP";
constexpr std::uint32_t taskPriority = 100;
constexpr std::uint32_t taskStackSize = 2048;
constexpr std::uint32_t taskMessageSize = sizeof(SEventDataMessage);
constexpr std::uint32_t taskCreatesQueue = 60;

CEventTask task;

/// Registering threads take turns; firing and pumping threads take no lock.
std::mutex registrationLock;

std::atomic<std::uint32_t> noOfErrorResponses;
std::atomic<std::uint32_t> noOfPumpedEvents;
std::atomic<std::uint32_t> noOfCacheMisses;

void clearCounters() {
    noOfErrorResponses.store(0, std::memory_order_relaxed);
    noOfPumpedEvents.store(0, std::memory_order_relaxed);
    noOfCacheMisses.store(0, std::memory_order_relaxed);
}

/// Raises the message-queue byte limit; the service works, with fewer queues, where that is refused.
void raiseQueueByteLimit() {
    const rlimit limit{queueByteLimit, queueByteLimit};
    if (setrlimit(RLIMIT_MSGQUEUE, &limit) != 0) {
        AF_TRACE_AS("CEventHandler_Initialize", eAF_I_INFO, "setrlimit() failed, continuing anyway.");
    }
}

EAFResult startTask() {
    ITask *operations = nullptr;
    if (af::isError(CEventTask_GetInterface(&task, &operations))) {
        AF_TRACE_AS("CEventHandler_Initialize", eAF_E_FAILED, "Could not get event task interface");
        return eAF_E_FAILED;
    }
    const EAFResult created =
        operations->Create(operations, taskName, taskPriority, taskStackSize, taskMessageSize, taskCreatesQueue);
    if (created == eAF_E_OUT_OF_MEMORY) {
        return created;
    }
    if (af::isError(created) || af::isError(operations->Start(operations))) {
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

void stopTask() {
    ITask *operations = nullptr;
    if (af::isError(CEventTask_GetInterface(&task, &operations))) {
        AF_TRACE_AS("CEventHandler_UnInitialize", eAF_W_WARNING,
                    "Could not get event task interface. Continuing anyway.");
        return;
    }
    if (af::isError(operations->Stop(operations))) {
        AF_TRACE_AS("CEventHandler_UnInitialize", eAF_W_WARNING, "Could not stop the EventTask. Continuing anyway.");
    }
    operations->Destroy(operations);
}

} // namespace

EAFResult CEventHandler_Initialize(uint32_t maxNoOfEvents, uint32_t maxNoOfListeners) {
    if (RegistryPin()) {
        AF_TRACE(eAF_E_ALREADY_INITIALIZED, "CEventHandler has already been initialized");
        return eAF_E_ALREADY_INITIALIZED;
    }
    clearCounters();
    raiseQueueByteLimit();
    if (!EventRegistry::open(maxNoOfEvents, maxNoOfListeners)) {
        return eAF_E_OUT_OF_MEMORY;
    }
    const EAFResult started = startTask();
    if (started == eAF_E_OUT_OF_MEMORY) {
        EventRegistry::close();
    }
    return started;
}

EAFResult CEventHandler_UnInitialize(void) {
    if (!RegistryPin()) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "CEventHandler was previosuly not initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    stopTask();
    EventRegistry::close();
    clearCounters();
    return eAF_S_OK;
}

// Registration

EAFResult CEventHandler_RegisterEvent(uint32_t eventId, const char *name) {
    const std::lock_guard<std::mutex> lock(registrationLock);
    const RegistryPin registry;
    if (!registry) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "CEventHandler has not been initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    if (registry->noOfRegisteredEvents >= registry->maxNoOfEvents) {
        return eAF_E_TOO_MANY_REGISTRATIONS;
    }
    registry->addEvent(eventId, name);
    return eAF_S_OK;
}

namespace {

/// The filter of a listener about to be added.
struct Filter {
    const std::uint32_t *eventIds;
    std::uint32_t size;

    bool isEmpty() const { return eventIds == nullptr || size == 0; }
    const std::uint32_t *begin() const { return eventIds; }
    const std::uint32_t *end() const { return eventIds + size; }
};

/// Makes room in every list that the listener will join, so that nothing fails for memory once it is added.
bool reserveRoom(EventRegistry &registry, const Filter &filter) {
    if (filter.isEmpty()) {
        for (std::uint32_t i = 0; i < registry.noOfRegisteredEvents; ++i) {
            if (!registry.reserve(i, 1)) {
                return false;
            }
        }
        return true;
    }
    return std::all_of(filter.begin(), filter.end(), [&](std::uint32_t eventId) {
        std::uint32_t index = 0;
        const auto timesListed = static_cast<std::uint32_t>(std::count(filter.begin(), filter.end(), eventId));
        return !registry.findEvent(eventId, index) || registry.reserve(index, timesListed);
    });
}

/// Opens the listener's queue in place of one that an earlier run or another process left.
EAFResult openListenerQueue(const char *name, mqd_t &queue) {
    char queueName[queueNameSize];
    CFrameworkUtils_GetMQueueName(queueName, sizeof queueName, name);
    mq_unlink(queueName);
    queue = af::openEventQueue(queueName, listenerQueueMode);
    if (queue == af::noQueue) {
        const int error = errno;
        AF_TRACE_AS("CEventHandler_AddListener", eAF_E_QUEUE_CREATION_FAILED, "%s", std::strerror(error));
        return eAF_E_QUEUE_CREATION_FAILED;
    }
    return eAF_S_OK;
}

EAFResult findEventIndex(EventRegistry *registry, std::uint32_t eventId, std::uint32_t &index, bool cacheIt) {
    std::uint32_t found = 0;
    if (registry == nullptr || !registry->findEvent(eventId, found)) {
        index = 0;
        AF_TRACE_AS("CEventHandler_FindEventIndex", eAF_E_UNKNOWN_EVENT, "Unknown event id: %d",
                    static_cast<std::int32_t>(eventId));
        return eAF_E_UNKNOWN_EVENT;
    }
    if (cacheIt) {
        noOfCacheMisses.fetch_add(1, std::memory_order_relaxed);
        if (af::isError(CEventCache_Add(&registry->cache, eventId, found))) {
            AF_TRACE_AS("CEventHandler_FindEventIndex", eAF_W_COULD_NOT_CACHE_EVENT, "Error when caching event");
            return eAF_W_COULD_NOT_CACHE_EVENT;
        }
    }
    index = found;
    return eAF_S_OK;
}

/// @return whether every entry of the filter is a registered event.
bool listenToFilter(EventRegistry &registry, const Filter &filter, SListenerDescriptor &listener) {
    bool allKnown = true;
    for (const std::uint32_t eventId : filter) {
        std::uint32_t index = 0;
        if (af::isError(findEventIndex(&registry, eventId, index, false))) {
            AF_TRACE_AS("CEventHandler_AddListener", eAF_E_FAILED, "Unknown event filter for listener %s",
                        listener.name);
            allKnown = false;
        } else {
            registry.listen(index, listener);
        }
        // Part of the settled behaviour: a filtered listener starts the statistic anew.
        noOfCacheMisses.store(0, std::memory_order_relaxed);
    }
    return allKnown;
}

} // namespace

EAFResult CEventHandler_AddListener(SListenerCallback *callback, const uint32_t *eventFilter, uint32_t noOfFilterEvents,
                                    const char *name, uint32_t *handle) {
    const std::lock_guard<std::mutex> lock(registrationLock);
    const RegistryPin registry;
    if (!registry) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "CEventHandler has not been initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    if (callback == nullptr || name == nullptr || handle == nullptr || name[0] == '\0') {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (registry->noOfListeners >= registry->maxNoOfListeners) {
        return eAF_E_TOO_MANY_REGISTRATIONS;
    }
    const Filter filter{eventFilter, noOfFilterEvents};
    if (!reserveRoom(*registry.get(), filter)) {
        return eAF_E_OUT_OF_MEMORY;
    }
    mqd_t queue = af::noQueue;
    const EAFResult opened = openListenerQueue(name, queue);
    if (af::isError(opened)) {
        return opened;
    }

    SListenerDescriptor &listener = registry->listeners[registry->noOfListeners];
    listener.handle = registry->noOfListeners;
    listener.callback = callback;
    listener.queue = queue;
    af::copyBounded(listener.name, name);
    listener.eventFilter = eventFilter;
    listener.noOfFilterEvents = noOfFilterEvents;
    *handle = listener.handle;
    af::storeRelease(registry->noOfListeners, registry->noOfListeners + 1);

    if (filter.isEmpty()) {
        for (std::uint32_t i = 0; i < registry->noOfRegisteredEvents; ++i) {
            registry->listen(i, listener);
        }
        return eAF_S_OK;
    }
    return listenToFilter(*registry.get(), filter, listener) ? eAF_S_OK : eAF_E_FAILED;
}

// Firing

namespace {

/// @return false when the copy could not be made or the queue did not take it.
bool sendCopy(mqd_t queue, std::uint32_t eventId, const void *data, std::uint32_t size, unsigned int priority) {
    char *copy = new (std::nothrow) char[size];
    if (copy == nullptr) {
        return false;
    }
    if (size != 0) {
        std::memcpy(copy, data, size);
    }
    if (af::sendMessage(queue, af::makeMessage(eventId, copy, 1), priority)) {
        return true;
    }
    delete[] copy;
    return false;
}

/// Sends to every listener of an event, whatever fails.
template <class Send>
EAFResult sendToListeners(const EventRegistry &registry, std::uint32_t eventIndex, Send &&send) {
    const SEventListenerList &list = registry.eventListeners[eventIndex];
    const std::uint32_t count = af::loadAcquire(list.noOfListeners);
    SListenerDescriptor *const *listeners = af::loadAcquire(list.listeners);
    EAFResult result = eAF_S_OK;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!send(listeners[i]->queue)) {
            result = eAF_W_NOT_ALL_EVENTS_SENT;
        }
    }
    return result;
}

/// Looks a fired event up, in the cache first.
EAFResult findFired(EventRegistry *registry, std::uint32_t eventId, std::uint32_t &index) {
    if (registry != nullptr && CEventCache_IsHit(&registry->cache, eventId, &index) != 0) {
        return eAF_S_OK;
    }
    if (!af::isError(findEventIndex(registry, eventId, index, true))) {
        return eAF_S_OK;
    }
    AF_TRACE_AS(fireLabel, eAF_E_UNKNOWN_EVENT, "Could not find event index for event id %d",
                static_cast<std::int32_t>(eventId));
    return eAF_E_UNKNOWN_EVENT;
}

EAFResult fire(std::uint32_t eventId, void *data, unsigned int priority) {
    const RegistryPin registry;
    std::uint32_t index = 0;
    if (af::isError(findFired(registry.get(), eventId, index))) {
        return eAF_E_UNKNOWN_EVENT;
    }
    const SEventDataMessage message = af::makeMessage(eventId, data, 0);
    return sendToListeners(*registry.get(), index,
                           [&](mqd_t queue) { return af::sendMessage(queue, message, priority); });
}

EAFResult fireCopies(std::uint32_t eventId, const void *data, std::uint32_t size, unsigned int priority) {
    const RegistryPin registry;
    std::uint32_t index = 0;
    if (af::isError(findFired(registry.get(), eventId, index))) {
        return eAF_E_UNKNOWN_EVENT;
    }
    if (data == nullptr && size != 0) {
        return af::loadAcquire(registry->eventListeners[index].noOfListeners) == 0 ? eAF_S_OK : eAF_E_INVALID_ARGUMENT;
    }
    return sendToListeners(*registry.get(), index,
                           [&](mqd_t queue) { return sendCopy(queue, eventId, data, size, priority); });
}

} // namespace

EAFResult CEventHandler_FireEvent(uint32_t eventId) {
    return fire(eventId, nullptr, af::normalPriority);
}

EAFResult CEventHandler_FireEventWithData(uint32_t eventId, void *data) {
    return fire(eventId, data, af::normalPriority);
}

EAFResult CEventHandler_FireEventWithCopiedData(uint32_t eventId, const void *data, uint32_t size) {
    return fireCopies(eventId, data, size,
                      eventId == alwaysUrgentCopiedEvent ? af::urgentPriority : af::normalPriority);
}

EAFResult CEventHandler_FireUrgentEvent(uint32_t eventId) {
    return fire(eventId, nullptr, af::urgentPriority);
}

EAFResult CEventHandler_FireUrgentEventWithData(uint32_t eventId, void *data) {
    return fire(eventId, data, af::urgentPriority);
}

EAFResult CEventHandler_FireUrgentEventWithCopiedData(uint32_t eventId, const void *data, uint32_t size) {
    return fireCopies(eventId, data, size, af::urgentPriority);
}

EAFResult CEventHandler_FireEventFromMessageInternal(SEventDataMessage *message) {
    if (message == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    const RegistryPin registry;
    std::uint32_t index = 0;
    if (af::isError(findEventIndex(registry.get(), message->eventId, index, false))) {
        AF_TRACE(eAF_E_UNKNOWN_EVENT, "Could not find event index for event id %d",
                 static_cast<std::int32_t>(message->eventId));
        return eAF_E_UNKNOWN_EVENT;
    }
    const SEventDataMessage forwarded = af::makeAddressMessage(message);
    return sendToListeners(*registry.get(), index,
                           [&](mqd_t queue) { return af::sendMessage(queue, forwarded, af::normalPriority); });
}

// Pumping

namespace {

/// What a pump needs of its listener. Copied, so that a pump that waits keeps no registry alive.
struct PumpedListener {
    SListenerCallback *callback = nullptr;
    mqd_t queue = af::noQueue;
    char name[sizeof SListenerDescriptor::name] = "";
};

/// A handle within the capacity is accepted; where no listener was added yet, its record is unfilled.
/// @return false for any other handle.
bool findListener(std::uint32_t handle, PumpedListener &listener) {
    const RegistryPin registry;
    if (!registry || handle >= registry->maxNoOfListeners) {
        return false;
    }
    if (handle < af::loadAcquire(registry->noOfListeners)) {
        const SListenerDescriptor &record = registry->listeners[handle];
        listener.callback = record.callback;
        listener.queue = record.queue;
        std::memcpy(listener.name, record.name, sizeof listener.name);
    }
    return true;
}

/// The copy that a message brought along, freed also when the callback throws.
using Copy = std::unique_ptr<char[]>;

Copy takeCopy(const SEventDataMessage &message) {
    return Copy(message.isCopied != 0 ? static_cast<char *>(message.pData) : nullptr);
}

void deliver(const PumpedListener &listener, const SEventDataMessage &message) {
    Copy copy = takeCopy(message);
    EAFResult result = eAF_E_INVALID_ARGUMENT;
    if (listener.callback != nullptr && listener.callback->function != nullptr) {
        result =
            listener.callback->function(listener.callback->context, message.eventId, message.pData, listener.callback);
    }
    noOfPumpedEvents.fetch_add(1, std::memory_order_relaxed);
    copy.reset();
    if (af::isError(result)) {
        noOfErrorResponses.fetch_add(1, std::memory_order_relaxed);
        AF_TRACE_AS(pumpLabel, eAF_E_FAILED, "Error response from listener %s", listener.name);
    } else if (result >= eAF_W_WARNING) {
        AF_TRACE_AS(pumpLabel, eAF_W_WARNING, "Warning response from listener %s", listener.name);
    }
}

enum class FailedReceive { isTraced, isSilent };

/// @return whether a callback ran.
bool pump(std::uint32_t handle, FailedReceive failedReceive) {
    PumpedListener listener;
    if (!findListener(handle, listener)) {
        AF_TRACE_AS(pumpLabel, eAF_E_FAILED, "Illegal listener handle (%X)", handle);
        return false;
    }
    SEventDataMessage message;
    const ssize_t received = af::receiveMessage(listener.queue, message);
    // An interruption is told by errno alone, which a successful receive leaves as it was: the pump does not
    // clear it, so what an earlier call of this thread left there drops the message.
    if (errno == EINTR) {
        takeCopy(message);
        return false;
    }
    if (received <= 0) {
        if (received == 0 || failedReceive == FailedReceive::isTraced) {
            AF_TRACE_AS(pumpLabel, eAF_E_FAILED, "Failed to get event from queue");
        }
        return false;
    }
    if (message.eventId == EVENT_ID_STOP) {
        takeCopy(message);
        return false;
    }
    deliver(listener, message);
    return true;
}

} // namespace

void CEventHandler_PumpEvent(uint32_t handle) {
    pump(handle, FailedReceive::isTraced);
}

uint32_t CEventHandler_PumpEventIfAvailable(uint32_t handle) {
    return pump(handle, FailedReceive::isSilent) ? 1 : 0;
}

void CEventHandler_SendEmptyMessage(uint32_t handle) {
    PumpedListener listener;
    if (!findListener(handle, listener)) {
        AF_TRACE(eAF_E_FAILED, "Illegal listener handle (%X)", handle);
        return;
    }
    mq_send(listener.queue, "", 0, af::normalPriority);
}

// Look-ups and statistics

EAFResult CEventHandler_GetEventName(uint32_t eventId, const char **name) {
    if (name == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *name = nullptr;
    const RegistryPin registry;
    std::uint32_t index = 0;
    if (!registry || !registry->findEvent(eventId, index)) {
        return eAF_E_UNKNOWN_EVENT;
    }
    *name = registry->events[index].name;
    return eAF_S_OK;
}

uint32_t CEventHandler_GetNumberOfRegisteredEvents(void) {
    const RegistryPin registry;
    if (!registry) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "CEventHandler has not been initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    return af::loadAcquire(registry->noOfRegisteredEvents);
}

EAFResult CEventHandler_GetStatistics(SEventHandlerStatistics *statistics) {
    const RegistryPin registry;
    if (!registry) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "CEventHandler has not been initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    if (statistics == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    statistics->noOfRegisteredEvents = af::loadAcquire(registry->noOfRegisteredEvents);
    statistics->maxNoOfEvents = registry->maxNoOfEvents;
    statistics->noOfListeners = af::loadAcquire(registry->noOfListeners);
    statistics->maxNoOfListeners = registry->maxNoOfListeners;
    statistics->noOfErrorResponses = noOfErrorResponses.load(std::memory_order_relaxed);
    statistics->noOfPumpedEvents = noOfPumpedEvents.load(std::memory_order_relaxed);
    statistics->noOfCacheMisses = noOfCacheMisses.load(std::memory_order_relaxed);
    return eAF_S_OK;
}

void CEventHandler_ResetStatistics(void) {
    clearCounters();
}
