#include <mqueue.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "CApplicationFramework.h"
#include "CEventCache.h"
#include "CEventHandler.h"
#include "CFrameworkUtils.h"
#include "Measure.h"

namespace instructions {

namespace {

constexpr std::uint32_t noOfEvents = 1000; ///< Their ids begin with 1.
constexpr std::uint32_t noOfCachedEvents = 64;
constexpr std::uint32_t firstCachedEvent = 5000;
constexpr std::uint32_t crowdEvent = 6000; ///< Of the crowd alone.
constexpr std::uint32_t silentEvent = 6001;
constexpr std::uint32_t urgentCopyEvent = 6002;
constexpr std::uint32_t unknownEvent = 6003;
constexpr std::uint32_t firstLateEvent = 7000; ///< Registered while it is counted.
constexpr std::uint32_t noOfLateEvents = 1000;

constexpr std::uint32_t noOfCrowd = 16;
constexpr std::uint32_t noOfLateListeners = 100;

/// What a queue takes before it blocks.
constexpr std::uint32_t queueLength = 10;

std::uint32_t noOfCalls;

EAFResult onEvent(void * /*context*/, std::uint32_t /*eventId*/, void * /*data*/, SListenerCallback * /*self*/) {
    ++noOfCalls;
    return eAF_S_OK;
}

SListenerCallback callback{nullptr, onEvent};
std::vector<std::uint32_t> listenedEvents;
std::uint32_t listener;
std::array<std::uint32_t, noOfCrowd> crowd;
std::array<std::uint32_t, 1> crowdFilter{crowdEvent};

std::string crowdName(std::uint32_t number) {
    return numbered("Crowd", number);
}

void unlinkQueue(const char *suffix) {
    std::array<char, 256> name{};
    CFrameworkUtils_GetMQueueName(name.data(), static_cast<std::int32_t>(name.size()), suffix);
    mq_unlink(name.data());
}

/// The listeners' queues outlive their process.
void unlinkQueues() {
    for (std::uint32_t i = 0; i < noOfCrowd; ++i) {
        unlinkQueue(crowdName(i).c_str());
    }
    unlinkQueue("Listener");
    unlinkQueue("Late");
    unlinkQueue("EHNP");
}

void registerEvent(std::uint32_t event) {
    require("registering an event", CEventHandler_RegisterEvent(event, numbered("Event", event).c_str()));
}

std::uint32_t addListener(const std::uint32_t *filter, std::size_t filterSize, const std::string &name) {
    std::uint32_t handle = 0;
    require("adding a listener", CEventHandler_AddListener(&callback, filter, static_cast<std::uint32_t>(filterSize),
                                                           name.c_str(), &handle));
    return handle;
}

void start() {
    require("the server port", CApplicationFramework_SetServerPort(static_cast<std::int32_t>(getpid() % 0x10000)));
    std::atexit(unlinkQueues);
    require("the event service", CEventHandler_Initialize(noOfEvents + noOfCachedEvents + 3 + noOfLateEvents,
                                                          noOfCrowd + noOfLateListeners));
    for (std::uint32_t event = 1; event <= noOfEvents; ++event) {
        listenedEvents.push_back(event);
    }
    for (std::uint32_t i = 0; i < noOfCachedEvents; ++i) {
        listenedEvents.push_back(firstCachedEvent + i);
    }
    listenedEvents.push_back(urgentCopyEvent);
    for (const std::uint32_t event : listenedEvents) {
        registerEvent(event);
    }
    registerEvent(crowdEvent);
    registerEvent(silentEvent);
    listener = addListener(listenedEvents.data(), listenedEvents.size(), "Listener");
    for (std::uint32_t i = 0; i < noOfCrowd; ++i) {
        crowd[i] = addListener(crowdFilter.data(), crowdFilter.size(), crowdName(i));
    }
}

void pump(std::uint32_t handle, std::uint32_t times) {
    const std::uint32_t before = noOfCalls;
    errno = 0; // one that says EINTR drops the message
    for (std::uint32_t i = 0; i < times; ++i) {
        CEventHandler_PumpEvent(handle);
    }
    require("pumping", noOfCalls == before + times);
}

std::uint32_t noOfPending;

void drain() {
    pump(listener, noOfPending);
    noOfPending = 0;
}

void drainCrowd() {
    for (const std::uint32_t handle : crowd) {
        pump(handle, noOfPending);
    }
    noOfPending = 0;
}

void fill() {
    for (; noOfPending < queueLength; ++noOfPending) {
        require("a fire", CEventHandler_FireEvent(firstCachedEvent));
    }
}

std::uint32_t cacheMisses() {
    SEventHandlerStatistics statistics{};
    require("the statistics", CEventHandler_GetStatistics(&statistics));
    return statistics.noOfCacheMisses;
}

/// Leaves the cached events in the cache, in the order of their ids.
void fillCache() {
    for (std::uint32_t i = 0; i < noOfCachedEvents; ++i) {
        require("a fire", CEventHandler_FireEvent(firstCachedEvent + i));
        pump(listener, 1);
    }
    require("filling the cache", cacheMisses() >= noOfCachedEvents);
}

/// A batch that just fills the listener's queue.
template <class Fire>
void measureFire(const std::string &path, Fire fire, void (*before)() = drain) {
    measure(
        path, queueLength,
        [&fire] {
            for (; noOfPending < queueLength; ++noOfPending) {
                require("a fire", fire());
            }
        },
        before);
    before();
}

void hits() {
    fillCache();
    const std::uint32_t missesBefore = cacheMisses();
    measureFire("fire, first slot of the cache", [] { return CEventHandler_FireEvent(firstCachedEvent); });
    measureFire("fire, last slot of the cache",
                [] { return CEventHandler_FireEvent(firstCachedEvent + noOfCachedEvents - 1); });
    measureFire("fire with data", [] { return CEventHandler_FireEventWithData(firstCachedEvent, &noOfCalls); });
    static const std::array<char, 64> data{};
    measureFire("fire with 64 copied bytes",
                [] { return CEventHandler_FireEventWithCopiedData(firstCachedEvent, data.data(), data.size()); });
    measureFire("urgent fire", [] { return CEventHandler_FireUrgentEvent(firstCachedEvent); });
    require("hitting the cache", cacheMisses() == missesBefore);
    measure("fire to nobody", 100, [] {
        for (int i = 0; i < 100; ++i) {
            require("a fire", CEventHandler_FireEvent(silentEvent));
        }
    });
    measureFire(
        "fire to 16 listeners", [] { return CEventHandler_FireEvent(crowdEvent); }, drainCrowd);
}

/// More events in turn than the cache holds, spread over the registry.
void misses(const std::string &path, std::uint32_t offset, std::uint32_t distance) {
    const std::uint32_t before = cacheMisses();
    std::uint32_t next = 0;
    measureFire(path, [&] {
        next = next % 100 + 1;
        return CEventHandler_FireEvent(offset + next * distance);
    });
    require("missing the cache", cacheMisses() == before + 11 * queueLength);
}

void pumps() {
    measure(
        "pump", queueLength, [] { drain(); }, fill);
    measure(
        "pump 64 copied bytes", queueLength, [] { drain(); },
        [] {
            static const std::array<char, 64> data{};
            for (; noOfPending < queueLength; ++noOfPending) {
                require("a fire", CEventHandler_FireEventWithCopiedData(firstCachedEvent, data.data(), data.size()));
            }
        });
    measure(
        "pump if available", queueLength,
        [] {
            errno = 0;
            for (; noOfPending > 0; --noOfPending) {
                require("pumping", CEventHandler_PumpEventIfAvailable(listener) == 1);
            }
        },
        fill);
}

void registry() {
    measureFire("fire from the task's message, last of 1,000", [] {
        static SEventDataMessage message{};
        message.eventId = noOfEvents;
        return CEventHandler_FireEventFromMessageInternal(&message);
    });
    measure("fire an unknown event, 1,067 registered", 10, [] {
        for (int i = 0; i < 10; ++i) {
            require("an unknown event", CEventHandler_FireEvent(unknownEvent) == eAF_E_UNKNOWN_EVENT);
        }
    });
    measure("name of the last of 1,000 events", 10, [] {
        const char *name = nullptr;
        for (int i = 0; i < 10; ++i) {
            require("the name", CEventHandler_GetEventName(noOfEvents, &name));
        }
    });
    std::uint32_t late = firstLateEvent;
    measure("register an event", 10, [&late] {
        for (int i = 0; i < 10; ++i) {
            require("registering", CEventHandler_RegisterEvent(late++, "AnEventThatCameLater"));
        }
    });
    measure("add a listener to 10 of 1,000 events", 1, [] { addListener(&listenedEvents[490], 10, "Late"); });
}

void caches() {
    CEventCache cache{};
    CEventCache_Construct(&cache, noOfCachedEvents);
    for (std::uint32_t key = 1; key <= noOfCachedEvents; ++key) {
        require("filling a cache", CEventCache_Add(&cache, key, key));
    }
    const auto look = [&cache](const char *path, std::uint32_t key, std::uint32_t isHit) {
        measure(path, 100, [&cache, key, isHit] {
            std::uint32_t value = 0;
            for (int i = 0; i < 100; ++i) {
                require("looking up", CEventCache_IsHit(&cache, key, &value) == isHit);
            }
        });
    };
    look("cache, hit in the first slot", 1, 1);
    look("cache, hit in the last slot", noOfCachedEvents, 1);
    look("cache, miss", noOfCachedEvents + 1, 0);
    std::uint32_t key = noOfCachedEvents;
    measure("cache, add to a full one", 100, [&] {
        for (int i = 0; i < 100; ++i) {
            ++key;
            require("adding", CEventCache_Add(&cache, key, key));
        }
    });
    CEventCache_Destruct(&cache);
}

} // namespace

void eventPaths() {
    start();
    hits();
    pumps();
    misses("fire past the cache, among the first 100 events", 0, 1);
    misses("fire past the cache, among 1,000 events", 100, 9);
    registry();
    caches();
    require("the end of the event service", CEventHandler_UnInitialize());
}

} // namespace instructions
