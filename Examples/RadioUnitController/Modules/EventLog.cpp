#include "Modules/EventLog.h"

#include <cstdio>

#include "Support/PhaseCall.h"

namespace radio {

EventLog::EventLog()
    : ControllerModule(MODULE_EVENT_LOG), m_counts(events().size()),
      m_listener(LISTENER_EVENT_LOG, {}, [this](uint32_t eventId, const void * /*data*/) { return count(eventId); }) {}

EAFResult EventLog::onModuleInit() {
    note("listens to every event");
    const EAFResult result = m_listener.open();
    return result < eAF_E_FAILED ? m_listener.start() : result;
}

EAFResult EventLog::onPhaseStop() {
    note("event thread ended");
    return m_listener.stop();
}

void EventLog::print() const {
    for (std::size_t i = 0; i < m_counts.size(); ++i) {
        std::printf("    %-18s  %3u\n", events()[i].name, m_counts[i].load());
    }
}

EAFResult EventLog::count(uint32_t eventId) {
    for (std::size_t i = 0; i < m_counts.size(); ++i) {
        if (events()[i].id == eventId) {
            ++m_counts[i];
            return eAF_S_OK;
        }
    }
    return eAF_W_UNEXPECTED_EVENT;
}

} // namespace radio
