/// @file
/// The one place that opens, fills and reads the queues of the event service.
#pragma once

#include <mqueue.h>
#include <sys/types.h>

#include <cstdint>
#include <cstring>

#include "CEventTask.h"

namespace af {

constexpr mqd_t noQueue = -1;
constexpr long queueLength = 10;
constexpr unsigned int normalPriority = 0;
constexpr unsigned int urgentPriority = 32767;

/// Opens a blocking queue of ten SEventDataMessage for reading and writing, created if missing.
mqd_t openEventQueue(const char *name, mode_t mode);

/// A message whose unused bytes are zero.
inline SEventDataMessage makeMessage(std::uint32_t eventId, void *data, std::uint32_t isCopied) {
    SEventDataMessage message;
    // Padding travels too: other processes read the queue.
    std::memset(&message, 0, sizeof message);
    message.eventId = eventId;
    message.pData = data;
    message.isCopied = isCopied;
    return message;
}

/// The message that carries the address of another one and nothing else.
SEventDataMessage makeAddressMessage(const SEventDataMessage *message);

/// @return whether the queue took the message; blocks while it is full.
bool sendMessage(mqd_t queue, const SEventDataMessage &message, unsigned int priority);

/// Waits for a message; what a short one does not fill is zero.
/// @return as mq_receive.
ssize_t receiveMessage(mqd_t queue, SEventDataMessage &message);

/// Removes one message, also one of a queue of larger messages, which another program made; never waits. One that is
/// too large for the memory that is left stays, as one does whose size can not be told.
/// @return whether there was one, or may have been: the receive was interrupted.
bool discardMessage(mqd_t queue);

/// Sends EVENT_ID_STOP, or an empty message where the queue, another program's, takes no record; never waits. A full
/// queue needs no waking.
void wakeReceiver(mqd_t queue);

} // namespace af
