/// @file
/// The records of the event service and their lifetime.
#pragma once

#include <mqueue.h>

#include <atomic>
#include <cstdint>

#include "CEventCache.h"
#include "CEventHandler.h"
#include "EventQueue.h"

struct SEventDescriptor {
    std::uint32_t eventId;
    char name[50];
};

struct SListenerDescriptor {
    std::uint32_t handle;
    SListenerCallback *callback; ///< The listener's.
    mqd_t queue;
    char name[30];
    const std::uint32_t *eventFilter; ///< The listener's; may be null.
    std::uint32_t noOfFilterEvents;
};

/// Who listens to one event, in the order of delivery. Read by firing threads while a listener is added: the
/// count is published last, and an array that was outgrown stays until the registry goes.
struct SEventListenerList {
    SListenerDescriptor **listeners;
    std::uint32_t noOfListeners;
    std::uint32_t capacity;
};

/// Everything between Initialize and UnInitialize. Threads may still be inside when UnInitialize comes, which
/// waits for none of them: each holds a RegistryPin, and the memory goes with the last of these.
///
/// Counts are written by the registering thread with release order and read by all others with acquire order;
/// the records below a count never change again.
class EventRegistry {
public:
    std::uint32_t maxNoOfEvents = 0;
    std::uint32_t maxNoOfListeners = 0;
    std::uint32_t noOfRegisteredEvents = 0;
    std::uint32_t noOfListeners = 0;
    SEventDescriptor *events = nullptr;
    SListenerDescriptor *listeners = nullptr;
    SEventListenerList *eventListeners = nullptr; ///< Parallel to events.
    CEventCache cache{};                          ///< Event id to index in events.

    /// Makes the process's registry. Nothing may be open.
    /// @return false when there is no memory.
    static bool open(std::uint32_t maxNoOfEvents, std::uint32_t maxNoOfListeners);

    /// Takes the process's registry away; its memory goes when the last pin does.
    static void close();

    /// Finds the first event with the id.
    bool findEvent(std::uint32_t eventId, std::uint32_t &index) const;

    /// Adds an event behind the others; there is room.
    void addEvent(std::uint32_t eventId, const char *name);

    /// Makes room for more listeners of an event.
    /// @return false when there is no memory; the list is as before.
    bool reserve(std::uint32_t eventIndex, std::uint32_t additional);

    /// Appends to an event's list, which has room.
    void listen(std::uint32_t eventIndex, SListenerDescriptor &listener);

private:
    friend class RegistryPin;

    /// The array of a list that grew past the row it started with.
    struct GrownArray {
        GrownArray *next;
        SListenerDescriptor *listeners[1]; ///< As many as the list has capacity for.
    };

    // A header is never given back to the allocator, so a thread that meets a stale one may count itself in
    // and find out that it came too late. The word holds the number of pins and the header's state:
    static constexpr std::uint32_t vacant = 0x80000000u;    // holds no registry
    static constexpr std::uint32_t claimed = 0x40000000u;   // vacant, and somebody is filling or emptying it
    static constexpr std::uint32_t withdrawn = 0x20000000u; // no longer the process's; the last pin empties it
    std::atomic<std::uint32_t> pins{vacant | claimed};
    EventRegistry *nextHeader = nullptr;

    SListenerDescriptor **rows = nullptr; ///< The arrays that the lists start with, one row an event.
    GrownArray *grownArrays = nullptr;

    static std::atomic<EventRegistry *> current;
    static std::atomic<EventRegistry *> headers;

    static EventRegistry *claimHeader();
    static EventRegistry *pin();
    void unpin();
    void emptyIfLast();
    bool allocate(std::uint32_t eventCapacity, std::uint32_t listenerCapacity);
    void empty();
};

/// Keeps the process's registry, if there is one, for as long as it lives.
class RegistryPin {
public:
    RegistryPin() : m_registry(EventRegistry::pin()) {}
    ~RegistryPin() {
        if (m_registry != nullptr) {
            m_registry->unpin();
        }
    }
    RegistryPin(const RegistryPin &) = delete;
    RegistryPin &operator=(const RegistryPin &) = delete;

    explicit operator bool() const { return m_registry != nullptr; }
    EventRegistry *operator->() const { return m_registry; }
    EventRegistry *get() const { return m_registry; }

private:
    EventRegistry *m_registry;
};
