/// @file
/// A listener with a thread of its own.
#pragma once

#include <CEventHandler.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace radio {

/// Opens its queue once, pumps it whenever it is started, and removes the queue's name when it dies.
class EventListener {
public:
    /// Runs on the listener's thread and lets no exception out; data as in SListenerCallback.
    using Handler = std::function<EAFResult(uint32_t eventId, const void *data)>;

    /// @param filter  the events to hear; empty hears every event registered when the listener is opened.
    EventListener(std::string name, std::vector<uint32_t> filter, Handler handler);
    EventListener(const EventListener &) = delete;
    EventListener &operator=(const EventListener &) = delete;
    ~EventListener();

    const std::string &name() const { return m_name; }

    /// Adds the listener to the event service.
    EAFResult open();

    /// Starts the thread, which first handles what came while there was none.
    EAFResult start();

    /// Ends the thread once it has handled everything that was sent before this call.
    EAFResult stop();

private:
    static EAFResult onEvent(void *context, uint32_t eventId, void *data, SListenerCallback *self);
    void run() const;

    const std::string m_name;
    const std::vector<uint32_t> m_filter;
    const Handler m_handler;
    SListenerCallback m_callback;
    uint32_t m_handle = 0;
    bool m_open = false;
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};

} // namespace radio
