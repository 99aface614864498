#include "Modules/Alarm.h"

#include <CEventHandler.h>

#include <atomic>

#include "Configuration.h"

namespace radio {
namespace {

std::atomic<uint32_t> lastNumber{0};
std::atomic<uint32_t> lastMessage{0};

// What a listener's full or missing queue does to an alarm is in the library's trace; nobody here could mend it.
void fire(uint32_t eventId, uint32_t number, const std::string &text, Urgency urgency) {
    Alarm alarm{};
    alarm.number = number;
    alarm.message = ++lastMessage;
    alarm.urgent = urgency == Urgency::Urgent;
    text.copy(alarm.text, sizeof alarm.text - 1);
    if (alarm.urgent) {
        CEventHandler_FireUrgentEventWithCopiedData(eventId, &alarm, sizeof alarm);
    } else {
        CEventHandler_FireEventWithCopiedData(eventId, &alarm, sizeof alarm);
    }
}

} // namespace

uint32_t raiseAlarm(const std::string &text, Urgency urgency) {
    const uint32_t number = ++lastNumber;
    fire(EVENT_ALARM_RAISED, number, text, urgency);
    return number;
}

void clearAlarm(uint32_t number, Urgency urgency) {
    fire(EVENT_ALARM_CLEARED, number, {}, urgency);
}

} // namespace radio
