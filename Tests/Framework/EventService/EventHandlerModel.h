/// @file
/// A second, much simpler event handler: it foretells what every operation answers, traces, counts and delivers.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "CEventHandler.h"
#include "TraceRecorder.h"

namespace test {

/// A message as a listener should see it.
struct ModelMessage {
    enum class Kind { plain, copied, address, empty } kind = Kind::plain;
    std::uint32_t eventId = 0;
    const void *data = nullptr; ///< Of a plain message.
    std::string copy;           ///< Of a copied one.
};

class EventHandlerModel {
public:
    struct Event {
        std::uint32_t id;
        std::string name;
    };
    struct ListenerModel {
        std::string name;
        std::deque<ModelMessage> urgent;
        std::deque<ModelMessage> normal;

        std::size_t waiting() const { return urgent.size() + normal.size(); }
    };

    EAFResult initialize(std::uint32_t maxNoOfEvents, std::uint32_t maxNoOfListeners);
    EAFResult unInitialize();
    EAFResult registerEvent(std::uint32_t id, const std::string &name);
    /// @param queueName  as it is traced; @param isRefused  whether the system refuses it.
    EAFResult addListener(const std::vector<std::uint32_t> &filter, const std::string &name,
                          const std::string &queueName, bool isRefused);
    /// A message without an id of its own takes the event's.
    EAFResult fire(std::uint32_t id, ModelMessage message, bool isUrgent);
    /// With copied data that is null and has a size.
    EAFResult fireFromNull(std::uint32_t id);
    EAFResult fireFromMessage(std::uint32_t id, std::uint32_t lowWordOfAddress);

    /// What the pump's callback should be called with; none is called where the kind is empty.
    /// @param isTraced  whether the empty message of an unfilled record would be.
    ModelMessage pump(std::uint32_t handle, EAFResult answer, bool isTraced);
    void sendEmptyMessage(std::uint32_t handle);

    EAFResult getEventName(std::uint32_t id, std::string &name) const;
    std::uint32_t getNumberOfRegisteredEvents();
    EAFResult getStatistics(SEventHandlerStatistics &statistics);
    void resetStatistics();

    bool isInitialized() const { return m_isInitialized; }
    /// Whether every listener has room for what the firing would send.
    bool hasRoomFor(std::uint32_t id) const;
    const std::vector<ListenerModel> &listeners() const { return m_listeners; }
    std::uint32_t capacity() const { return m_maxNoOfListeners; }

    std::vector<Line> takeTraces();

private:
    static constexpr std::size_t cacheSize = 64;

    int find(std::uint32_t id) const;
    /// As a firing finds it: through the cache. -1: unknown, which is traced.
    int findFired(std::uint32_t id);
    void trace(const std::string &function, const std::string &message, std::uint32_t code);
    void append(std::size_t event, const ModelMessage &message, bool isUrgent);

    bool m_isInitialized = false;
    std::uint32_t m_maxNoOfEvents = 0;
    std::uint32_t m_maxNoOfListeners = 0;
    std::uint32_t m_errorResponses = 0;
    std::uint32_t m_pumped = 0;
    std::uint32_t m_misses = 0;
    std::vector<Event> m_events;
    std::vector<ListenerModel> m_listeners;
    std::vector<std::vector<std::size_t>> m_lists;
    std::deque<std::uint32_t> m_cached;
    std::vector<Line> m_traces;
};

} // namespace test
