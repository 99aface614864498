#include "EventRegistry.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

#include "AtomicWord.h"
#include "BoundedText.h"

namespace {

constexpr std::uint32_t cacheCapacity = 64;

/// Zeroed memory that costs nothing until it is touched: the sizes are the caller's, and most of what is
/// reserved is never used. At least one element, so that null means that there was no memory.
template <class Element>
Element *allocateZeroed(std::uint64_t count) {
    if (count > PTRDIFF_MAX / sizeof(Element)) {
        return nullptr;
    }
    return static_cast<Element *>(
        std::calloc(static_cast<std::size_t>(std::max<std::uint64_t>(count, 1)), sizeof(Element)));
}

} // namespace

std::atomic<EventRegistry *> EventRegistry::current;
std::atomic<EventRegistry *> EventRegistry::headers;

bool EventRegistry::open(std::uint32_t maxNoOfEvents, std::uint32_t maxNoOfListeners) {
    EventRegistry *registry = claimHeader();
    if (registry == nullptr) {
        return false;
    }
    if (!registry->allocate(maxNoOfEvents, maxNoOfListeners)) {
        registry->empty();
        return false;
    }
    // The marks go, the count stays: threads that came too late for the header's last use may be in it.
    registry->pins.fetch_and(~(vacant | claimed));
    current.store(registry);
    return true;
}

void EventRegistry::close() {
    EventRegistry *registry = current.exchange(nullptr);
    if (registry != nullptr) {
        registry->pins.fetch_or(withdrawn);
        registry->emptyIfLast();
    }
}

EventRegistry *EventRegistry::pin() {
    for (;;) {
        EventRegistry *registry = current.load();
        if (registry == nullptr) {
            return nullptr;
        }
        registry->pins.fetch_add(1);
        if (current.load() == registry) {
            return registry;
        }
        registry->unpin();
    }
}

void EventRegistry::unpin() {
    if (pins.fetch_sub(1) - 1 == withdrawn) {
        emptyIfLast();
    }
}

void EventRegistry::emptyIfLast() {
    std::uint32_t withoutPins = withdrawn;
    if (pins.compare_exchange_strong(withoutPins, vacant | claimed)) {
        empty();
    }
}

EventRegistry *EventRegistry::claimHeader() {
    for (EventRegistry *header = headers.load(); header != nullptr; header = header->nextHeader) {
        std::uint32_t state = header->pins.load();
        while ((state & (vacant | claimed)) == vacant) {
            if (header->pins.compare_exchange_weak(state, state | claimed)) {
                return header;
            }
        }
    }
    auto *header = new (std::nothrow) EventRegistry();
    if (header != nullptr) {
        header->nextHeader = headers.load();
        while (!headers.compare_exchange_weak(header->nextHeader, header)) {
        }
    }
    return header;
}

bool EventRegistry::allocate(std::uint32_t eventCapacity, std::uint32_t listenerCapacity) {
    maxNoOfEvents = eventCapacity;
    maxNoOfListeners = listenerCapacity;
    noOfRegisteredEvents = 0;
    noOfListeners = 0;
    grownArrays = nullptr;
    events = allocateZeroed<SEventDescriptor>(eventCapacity);
    listeners = allocateZeroed<SListenerDescriptor>(listenerCapacity);
    eventListeners = allocateZeroed<SEventListenerList>(eventCapacity);
    rows = allocateZeroed<SListenerDescriptor *>(std::uint64_t{eventCapacity} * listenerCapacity);
    CEventCache_Construct(&cache, cacheCapacity);
    return events != nullptr && listeners != nullptr && eventListeners != nullptr && rows != nullptr &&
           cache.capacity == cacheCapacity;
}

void EventRegistry::empty() {
    CEventCache_Destruct(&cache);
    while (grownArrays != nullptr) {
        std::free(std::exchange(grownArrays, grownArrays->next));
    }
    std::free(rows);
    std::free(eventListeners);
    std::free(listeners);
    std::free(events);
    pins.fetch_and(~claimed);
}

bool EventRegistry::findEvent(std::uint32_t eventId, std::uint32_t &index) const {
    const std::uint32_t count = af::loadAcquire(noOfRegisteredEvents);
    const SEventDescriptor *found = std::find_if(
        events, events + count, [eventId](const SEventDescriptor &event) { return event.eventId == eventId; });
    index = static_cast<std::uint32_t>(found - events);
    return index != count;
}

void EventRegistry::addEvent(std::uint32_t eventId, const char *name) {
    SEventDescriptor &event = events[noOfRegisteredEvents];
    event.eventId = eventId;
    af::copyBounded(event.name, name);
    SEventListenerList &list = eventListeners[noOfRegisteredEvents];
    list.listeners = &rows[std::size_t{noOfRegisteredEvents} * maxNoOfListeners];
    list.capacity = maxNoOfListeners;
    af::storeRelease(noOfRegisteredEvents, noOfRegisteredEvents + 1);
}

bool EventRegistry::reserve(std::uint32_t eventIndex, std::uint32_t additional) {
    SEventListenerList &list = eventListeners[eventIndex];
    const std::uint64_t needed = std::uint64_t{list.noOfListeners} + additional;
    if (needed <= list.capacity) {
        return true;
    }
    const std::uint64_t capacity = std::max(needed, std::uint64_t{2} * list.capacity);
    constexpr std::uint64_t most = (PTRDIFF_MAX - sizeof(GrownArray)) / sizeof(SListenerDescriptor *);
    if (capacity > std::min<std::uint64_t>(most, UINT32_MAX)) {
        return false;
    }
    auto *grown = static_cast<GrownArray *>(
        std::malloc(sizeof(GrownArray) + static_cast<std::size_t>(capacity) * sizeof(SListenerDescriptor *)));
    if (grown == nullptr) {
        return false;
    }
    grown->next = std::exchange(grownArrays, grown);
    std::copy_n(list.listeners, list.noOfListeners, grown->listeners);
    af::storeRelease(list.listeners, grown->listeners);
    list.capacity = static_cast<std::uint32_t>(capacity);
    return true;
}

void EventRegistry::listen(std::uint32_t eventIndex, SListenerDescriptor &listener) {
    SEventListenerList &list = eventListeners[eventIndex];
    list.listeners[list.noOfListeners] = &listener;
    af::storeRelease(list.noOfListeners, list.noOfListeners + 1);
}
