#include "Support/EventListener.h"

#include <mqueue.h>
#include <sys/prctl.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Support/PhaseCall.h"
#include "Support/QueueMessage.h"

namespace radio {

EventListener::EventListener(std::string name, std::vector<uint32_t> filter, Handler handler)
    : m_name(std::move(name)), m_filter(std::move(filter)),
      m_handler(std::move(handler)), m_callback{this, &EventListener::onEvent} {}

EventListener::~EventListener() {
    if (!m_open) {
        return;
    }
    // Copies that still wait in the queue are freed by the pump alone: a last run empties it.
    if (m_thread.joinable() || start() < eAF_E_FAILED) {
        stop();
    }
    // The event service keeps the queue open until the process ends, but its name would outlive the process.
    mq_unlink(queueName(m_name).c_str());
}

EAFResult EventListener::open() {
    const EAFResult result =
        CEventHandler_AddListener(&m_callback, m_filter.empty() ? nullptr : m_filter.data(),
                                  static_cast<uint32_t>(m_filter.size()), m_name.c_str(), &m_handle);
    if (result >= eAF_E_FAILED) {
        if (result == eAF_E_FAILED) {
            // An event of the filter is unknown: the queue was made all the same.
            mq_unlink(queueName(m_name).c_str());
        }
        note("no listener " + m_name + "; see the trace, and /proc/sys/fs/mqueue for the limits of queues");
        return result;
    }
    m_open = true;
    return result;
}

EAFResult EventListener::start() {
    if (!m_open) {
        note("listener " + m_name + " was never opened; see what its module's Init said");
        return eAF_E_NOT_INITIALIZED;
    }
    if (m_thread.joinable()) {
        return eAF_S_OK;
    }
    m_stopping = false;
    try {
        m_thread = std::thread(&EventListener::run, this);
    } catch (const std::system_error &error) {
        note("no thread for listener " + m_name + ": " + error.what());
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

EAFResult EventListener::stop() {
    if (!m_thread.joinable()) {
        return eAF_S_OK;
    }
    m_stopping = true;
    // The marker queues behind everything that was sent before it and is swallowed by the pump without a trace,
    // which an empty message would leave.
    const SEventDataMessage marker{EVENT_ID_STOP, nullptr, 0};
    const std::string fault = postMessage(queueName(m_name), marker, normalPriority, WhenFull::Wait);
    if (!fault.empty()) {
        // Someone took the queue's name away; the queue itself is still reached through the handle.
        CEventHandler_SendEmptyMessage(m_handle);
    }
    m_thread.join();
    return eAF_S_OK;
}

EAFResult EventListener::onEvent(void *context, uint32_t eventId, void *data, SListenerCallback * /*self*/) {
    return static_cast<const EventListener *>(context)->m_handler(eventId, data);
}

void EventListener::run() const {
    prctl(PR_SET_NAME, m_name.c_str());
    for (;;) {
        // The pump takes a leftover EINTR for its own and would drop the message.
        errno = 0;
        if (CEventHandler_PumpEventIfAvailable(m_handle) == 0 && m_stopping) {
            return;
        }
    }
}

} // namespace radio
