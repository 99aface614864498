/// @file
/// Alarms, as they travel from any module to the alarm collector.
#pragma once

#include <cstdint>
#include <string>

namespace radio {

/// The copied data of the alarm events: plain bytes, since each listener receives a copy of them.
struct Alarm {
    uint32_t number;  ///< The same when it is raised and when it is cleared.
    uint32_t message; ///< Counts alarm messages in the order in which they were sent.
    bool urgent;
    char text[48];
};

enum class Urgency { Normal, Urgent };

/// Fires EVENT_ALARM_RAISED. Any thread.
/// @return the new alarm's number.
uint32_t raiseAlarm(const std::string &text, Urgency urgency);

/// Fires EVENT_ALARM_CLEARED. Any thread.
void clearAlarm(uint32_t number, Urgency urgency);

} // namespace radio
