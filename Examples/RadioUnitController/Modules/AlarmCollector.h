/// @file
/// Keeps the list of active alarms.
#pragma once

#include <map>
#include <string>

#include "Modules/Alarm.h"
#include "Support/Arrivals.h"
#include "Support/ControllerModule.h"
#include "Support/EventListener.h"

namespace radio {

/// A listener with a filter. While its thread is held, alarms wait in its queue: ten of them, then whoever
/// raises the next one waits too.
class AlarmCollector final : public ControllerModule {
public:
    explicit AlarmCollector(Arrivals &arrivals);

    EAFResult onPhaseModuleStorageObjectsRetrieved() override;
    EAFResult onModuleInit() override;
    EAFResult onPhaseStart() override;
    EAFResult onPhaseStop() override;
    EAFResult onPhaseDisableAlarmThread() override;
    EAFResult onPhaseEnableAlarmThread() override;

private:
    EAFResult onEvent(uint32_t eventId, const void *data);
    EAFResult raise(const Alarm &alarm);
    EAFResult clear(const Alarm &alarm);
    EAFResult acknowledge(uint32_t number);

    Arrivals &m_arrivals;
    std::map<uint32_t, std::string> m_active; // touched by the listener's thread only
    EventListener m_listener;                 // last: its thread uses the members above
};

} // namespace radio
