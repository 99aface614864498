#include "EventHandlerModel.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

namespace test {
namespace {

std::string signedText(std::uint32_t id) {
    return std::to_string(static_cast<std::int32_t>(id));
}

std::string handleText(std::uint32_t handle) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%X", handle);
    return text.data();
}

const std::string notInitialized = "CEventHandler has not been initialized";

} // namespace

EAFResult EventHandlerModel::initialize(std::uint32_t maxNoOfEvents, std::uint32_t maxNoOfListeners) {
    if (m_isInitialized) {
        trace("CEventHandler_Initialize", "CEventHandler has already been initialized", 0x8015);
        return eAF_E_ALREADY_INITIALIZED;
    }
    *this = {};
    m_isInitialized = true;
    m_maxNoOfEvents = maxNoOfEvents;
    m_maxNoOfListeners = maxNoOfListeners;
    return eAF_S_OK;
}

EAFResult EventHandlerModel::unInitialize() {
    if (!m_isInitialized) {
        trace("CEventHandler_UnInitialize", "CEventHandler was previosuly not initialized", 0x8014);
        return eAF_E_NOT_INITIALIZED;
    }
    *this = {};
    return eAF_S_OK;
}

EAFResult EventHandlerModel::registerEvent(std::uint32_t id, const std::string &name) {
    if (!m_isInitialized) {
        trace("CEventHandler_RegisterEvent", notInitialized, 0x8014);
        return eAF_E_NOT_INITIALIZED;
    }
    if (m_events.size() == m_maxNoOfEvents) {
        return eAF_E_TOO_MANY_REGISTRATIONS;
    }
    m_events.push_back({id, name.substr(0, 49)});
    m_lists.emplace_back();
    return eAF_S_OK;
}

EAFResult EventHandlerModel::addListener(const std::vector<std::uint32_t> &filter, const std::string &name,
                                         const std::string &queueName, bool isRefused) {
    if (!m_isInitialized) {
        trace("CEventHandler_AddListener", notInitialized, 0x8014);
        return eAF_E_NOT_INITIALIZED;
    }
    if (name.empty()) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (m_listeners.size() == m_maxNoOfListeners) {
        return eAF_E_TOO_MANY_REGISTRATIONS;
    }
    trace("CFrameworkUtils_GetMQueueName", "  MQueueName = " + queueName, 0x800);
    if (isRefused) {
        trace("CEventHandler_AddListener", std::strerror(EACCES), 0x800F);
        return eAF_E_QUEUE_CREATION_FAILED;
    }
    const std::size_t index = m_listeners.size();
    m_listeners.emplace_back();
    m_listeners.back().name = name.substr(0, 29);
    if (filter.empty()) {
        for (auto &list : m_lists) {
            list.push_back(index);
        }
        return eAF_S_OK;
    }
    EAFResult result = eAF_S_OK;
    for (const std::uint32_t id : filter) {
        const int event = find(id);
        if (event >= 0) {
            m_lists[static_cast<std::size_t>(event)].push_back(index);
        } else {
            trace("CEventHandler_FindEventIndex", "Unknown event id: " + signedText(id), 0x800E);
            trace("CEventHandler_AddListener", "Unknown event filter for listener " + name.substr(0, 29), 0x8000);
            result = eAF_E_FAILED;
        }
        m_misses = 0;
    }
    return result;
}

int EventHandlerModel::findFired(std::uint32_t id) {
    const int event = find(id);
    if (event < 0) {
        trace("CEventHandler_FindEventIndex", "Unknown event id: " + signedText(id), 0x800E);
        trace("CEventHandler_FireEventInternal", "Could not find event index for event id " + signedText(id), 0x800E);
    } else if (std::find(m_cached.begin(), m_cached.end(), id) == m_cached.end()) {
        ++m_misses;
        m_cached.push_back(id);
        if (m_cached.size() > cacheSize) {
            m_cached.pop_front();
        }
    }
    return event;
}

EAFResult EventHandlerModel::fire(std::uint32_t id, ModelMessage message, bool isUrgent) {
    const int event = findFired(id);
    if (event < 0) {
        return eAF_E_UNKNOWN_EVENT;
    }
    message.eventId = id;
    append(static_cast<std::size_t>(event), message, isUrgent);
    return eAF_S_OK;
}

EAFResult EventHandlerModel::fireFromNull(std::uint32_t id) {
    const int event = findFired(id);
    if (event < 0) {
        return eAF_E_UNKNOWN_EVENT;
    }
    return m_lists[static_cast<std::size_t>(event)].empty() ? eAF_S_OK : eAF_E_INVALID_ARGUMENT;
}

EAFResult EventHandlerModel::fireFromMessage(std::uint32_t id, std::uint32_t lowWordOfAddress) {
    const int event = find(id);
    if (event < 0) {
        trace("CEventHandler_FindEventIndex", "Unknown event id: " + signedText(id), 0x800E);
        trace("CEventHandler_FireEventFromMessageInternal", "Could not find event index for event id " + signedText(id),
              0x800E);
        return eAF_E_UNKNOWN_EVENT;
    }
    ModelMessage message;
    message.kind = ModelMessage::Kind::address;
    message.eventId = lowWordOfAddress;
    append(static_cast<std::size_t>(event), message, false);
    return eAF_S_OK;
}

ModelMessage EventHandlerModel::pump(std::uint32_t handle, EAFResult answer, bool isTraced) {
    const std::string label = "CEventHandler_PumpEventInternal";
    ModelMessage none;
    none.kind = ModelMessage::Kind::empty;
    if (handle >= m_maxNoOfListeners) {
        trace(label, "Illegal listener handle (" + handleText(handle) + ")", 0x8000);
        return none;
    }
    if (handle >= m_listeners.size()) {
        if (isTraced) {
            trace(label, "Failed to get event from queue", 0x8000);
        }
        return none;
    }
    ListenerModel &listener = m_listeners[handle];
    auto &queue = listener.urgent.empty() ? listener.normal : listener.urgent;
    ModelMessage message = std::move(queue.front());
    queue.pop_front();
    if (message.kind == ModelMessage::Kind::empty) {
        trace(label, "Failed to get event from queue", 0x8000);
        return none;
    }
    if (message.eventId == EVENT_ID_STOP) {
        return none;
    }
    ++m_pumped;
    if (answer >= 0x8000) {
        ++m_errorResponses;
        trace(label, "Error response from listener " + listener.name, 0x8000);
    } else if (answer >= 0x1000) {
        trace(label, "Warning response from listener " + listener.name, 0x1000);
    }
    return message;
}

void EventHandlerModel::sendEmptyMessage(std::uint32_t handle) {
    if (handle >= m_maxNoOfListeners) {
        trace("CEventHandler_SendEmptyMessage", "Illegal listener handle (" + handleText(handle) + ")", 0x8000);
    } else if (handle < m_listeners.size()) {
        ModelMessage message;
        message.kind = ModelMessage::Kind::empty;
        m_listeners[handle].normal.push_back(message);
    }
}

EAFResult EventHandlerModel::getEventName(std::uint32_t id, std::string &name) const {
    const int event = find(id);
    if (event < 0) {
        return eAF_E_UNKNOWN_EVENT;
    }
    name = m_events[static_cast<std::size_t>(event)].name;
    return eAF_S_OK;
}

std::uint32_t EventHandlerModel::getNumberOfRegisteredEvents() {
    if (!m_isInitialized) {
        trace("CEventHandler_GetNumberOfRegisteredEvents", notInitialized, 0x8014);
        return eAF_E_NOT_INITIALIZED;
    }
    return static_cast<std::uint32_t>(m_events.size());
}

EAFResult EventHandlerModel::getStatistics(SEventHandlerStatistics &statistics) {
    if (!m_isInitialized) {
        trace("CEventHandler_GetStatistics", notInitialized, 0x8014);
        return eAF_E_NOT_INITIALIZED;
    }
    statistics = {static_cast<std::uint32_t>(m_events.size()),
                  m_maxNoOfEvents,
                  static_cast<std::uint32_t>(m_listeners.size()),
                  m_maxNoOfListeners,
                  m_errorResponses,
                  m_pumped,
                  m_misses};
    return eAF_S_OK;
}

void EventHandlerModel::resetStatistics() {
    m_errorResponses = m_pumped = m_misses = 0;
}

bool EventHandlerModel::hasRoomFor(std::uint32_t id) const {
    const int event = find(id);
    if (event < 0) {
        return true;
    }
    const auto &list = m_lists[static_cast<std::size_t>(event)];
    return std::all_of(list.begin(), list.end(), [&](std::size_t listener) {
        const auto times = static_cast<std::size_t>(std::count(list.begin(), list.end(), listener));
        return m_listeners[listener].waiting() + times <= 10;
    });
}

std::vector<Line> EventHandlerModel::takeTraces() {
    return std::exchange(m_traces, {});
}

int EventHandlerModel::find(std::uint32_t id) const {
    for (std::size_t i = 0; i < m_events.size(); ++i) {
        if (m_events[i].id == id) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void EventHandlerModel::trace(const std::string &function, const std::string &message, std::uint32_t code) {
    m_traces.push_back({function, message, code});
}

void EventHandlerModel::append(std::size_t event, const ModelMessage &message, bool isUrgent) {
    for (const std::size_t listener : m_lists[event]) {
        (isUrgent ? m_listeners[listener].urgent : m_listeners[listener].normal).push_back(message);
    }
}

} // namespace test
