#include "EventQueue.h"

#include <fcntl.h>

#include <cstring>
#include <ctime>

namespace {

constexpr long queueLength = 10;

} // namespace

mqd_t af::openEventQueue(const char *name, mode_t mode) {
    mq_attr attributes{};
    attributes.mq_maxmsg = queueLength;
    attributes.mq_msgsize = sizeof(SEventDataMessage);
    return mq_open(name, O_RDWR | O_CREAT, mode, &attributes);
}

SEventDataMessage af::makeMessage(std::uint32_t eventId, void *data, std::uint32_t isCopied) {
    SEventDataMessage message;
    // Padding travels too: other processes read the queue.
    std::memset(&message, 0, sizeof message);
    message.eventId = eventId;
    message.pData = data;
    message.isCopied = isCopied;
    return message;
}

SEventDataMessage af::makeAddressMessage(const SEventDataMessage *message) {
    SEventDataMessage addressMessage;
    std::memset(&addressMessage, 0, sizeof addressMessage);
    std::memcpy(&addressMessage, &message, sizeof message);
    return addressMessage;
}

bool af::sendMessage(mqd_t queue, const SEventDataMessage &message, unsigned int priority) {
    return mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, priority) == 0;
}

ssize_t af::receiveMessage(mqd_t queue, SEventDataMessage &message) {
    std::memset(&message, 0, sizeof message);
    return mq_receive(queue, reinterpret_cast<char *>(&message), sizeof message, nullptr);
}

void af::discardMessage(mqd_t queue) {
    SEventDataMessage message;
    const timespec alreadyPast{};
    mq_timedreceive(queue, reinterpret_cast<char *>(&message), sizeof message, nullptr, &alreadyPast);
}
