/// @file
/// A listener's queue as another process sees it: found by name, written to without the event service.
#pragma once

#include <CEventTask.h>

#include <cstdint>
#include <string>

namespace radio {

/// The name of the queue that belongs to a listener of this user and server port.
std::string queueName(const std::string &listener);

/// As queueName, cut where the event task cuts the name of its own queue.
std::string eventTaskQueueName();

constexpr unsigned int normalPriority = 0;
constexpr unsigned int urgentPriority = 32767;

enum class WhenFull { Wait, Fail };

/// Puts one message on a queue that exists.
/// @return empty when done, otherwise what is wrong and what to do.
std::string postMessage(const std::string &queue, const SEventDataMessage &message, unsigned int priority,
                        WhenFull whenFull);

} // namespace radio
