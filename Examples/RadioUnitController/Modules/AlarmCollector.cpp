#include "Modules/AlarmCollector.h"

#include <CStorageManager.h>

#include <cstring>

#include "Hardware/Board.h"
#include "Support/DataWord.h"
#include "Support/PhaseCall.h"

namespace radio {
namespace {

std::string describe(const Alarm &alarm) {
    return "alarm " + std::to_string(alarm.number) + " (message " + std::to_string(alarm.message) +
           (alarm.urgent ? ", urgent)" : ")");
}

} // namespace

AlarmCollector::AlarmCollector(Arrivals &arrivals)
    : ControllerModule(MODULE_ALARM_COLLECTOR), m_arrivals(arrivals),
      m_listener(LISTENER_ALARM_COLLECTOR,
                 {EVENT_ALARM_RAISED, EVENT_ALARM_CLEARED, EVENT_ALARM_ACKNOWLEDGED, EVENT_BOARD_SAMPLED},
                 [this](uint32_t eventId, const void *data) { return onEvent(eventId, data); }) {}

EAFResult AlarmCollector::onPhaseModuleStorageObjectsRetrieved() {
    // By name: which object and region keep it is nobody's business here.
    void *content = nullptr;
    unsigned long size = 0;
    if (CStorageManager_GetVariableContentAddressByName("SerialNumber", &content, &size) >= eAF_E_FAILED) {
        note("no serial number is known");
        return eAF_W_WARNING;
    }
    note("alarms are those of unit " +
         std::string(static_cast<const char *>(content), strnlen(static_cast<const char *>(content), size)));
    return eAF_S_OK;
}

EAFResult AlarmCollector::onModuleInit() {
    note("listens to four events");
    return m_listener.open();
}

EAFResult AlarmCollector::onPhaseStart() {
    note("alarm thread runs");
    return m_listener.start();
}

EAFResult AlarmCollector::onPhaseStop() {
    note("alarm thread ended");
    return m_listener.stop();
}

EAFResult AlarmCollector::onPhaseDisableAlarmThread() {
    note("alarm thread held: alarms wait in the queue");
    return m_listener.stop();
}

EAFResult AlarmCollector::onPhaseEnableAlarmThread() {
    note("alarm thread runs again");
    return m_listener.start();
}

EAFResult AlarmCollector::onEvent(uint32_t eventId, const void *data) {
    switch (eventId) {
    case EVENT_ALARM_RAISED:
        return raise(*static_cast<const Alarm *>(data));
    case EVENT_ALARM_CLEARED:
        return clear(*static_cast<const Alarm *>(data));
    case EVENT_ALARM_ACKNOWLEDGED:
        return acknowledge(fromDataWord(data));
    case EVENT_BOARD_SAMPLED:
        m_arrivals.add(m_listener.name(), eventId, toString(*static_cast<const BoardSample *>(data)));
        return eAF_S_OK;
    default:
        // The filter holds for events that this process fires; another process reaches the queue by its name.
        m_arrivals.add(m_listener.name(), eventId, "is not for this listener");
        return eAF_W_UNEXPECTED_EVENT;
    }
}

EAFResult AlarmCollector::raise(const Alarm &alarm) {
    m_active[alarm.number] = alarm.text;
    m_arrivals.add(m_listener.name(), EVENT_ALARM_RAISED, describe(alarm) + ": " + alarm.text);
    return eAF_S_OK;
}

EAFResult AlarmCollector::clear(const Alarm &alarm) {
    const bool known = m_active.erase(alarm.number) != 0;
    m_arrivals.add(m_listener.name(), EVENT_ALARM_CLEARED,
                   describe(alarm) +
                       (known ? "; active alarms: " + std::to_string(m_active.size()) : " is not active"));
    return known ? eAF_S_OK : eAF_W_UNEXPECTED_EVENT;
}

EAFResult AlarmCollector::acknowledge(uint32_t number) {
    const auto alarm = m_active.find(number);
    const bool known = alarm != m_active.end();
    m_arrivals.add(m_listener.name(), EVENT_ALARM_ACKNOWLEDGED,
                   "alarm " + std::to_string(number) + (known ? ": " + alarm->second : " is not active"));
    return known ? eAF_S_OK : eAF_W_UNEXPECTED_EVENT;
}

} // namespace radio
