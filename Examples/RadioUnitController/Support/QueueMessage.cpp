#include "Support/QueueMessage.h"

#include <fcntl.h>
#include <mqueue.h>

#include <CFrameworkUtils.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace radio {
namespace {

template <std::size_t Size>
std::string nameOfSize(const char *suffix) {
    std::array<char, Size> name{};
    CFrameworkUtils_GetMQueueName(name.data(), static_cast<int32_t>(name.size()), suffix);
    return name.data();
}

std::string systemText(int error) {
    return std::strerror(error);
}

/// An open queue; closed with its scope.
class Queue {
public:
    Queue(const std::string &name, int flags) : m_descriptor(mq_open(name.c_str(), flags)) {}
    Queue(const Queue &) = delete;
    Queue &operator=(const Queue &) = delete;
    ~Queue() {
        if (isOpen()) {
            mq_close(m_descriptor);
        }
    }
    bool isOpen() const { return m_descriptor != static_cast<mqd_t>(-1); }
    mqd_t descriptor() const { return m_descriptor; }

private:
    mqd_t m_descriptor;
};

} // namespace

std::string queueName(const std::string &listener) {
    return nameOfSize<256>(listener.c_str());
}

std::string eventTaskQueueName() {
    return nameOfSize<sizeof(CEventTask::queueName)>("EHNP");
}

std::string postMessage(const std::string &queue, const SEventDataMessage &message, unsigned int priority,
                        WhenFull whenFull) {
    const Queue target(queue, whenFull == WhenFull::Fail ? O_WRONLY | O_NONBLOCK : O_WRONLY);
    if (!target.isOpen()) {
        const int error = errno;
        if (error == ENOENT) {
            return "there is no queue " + queue + "; is the controller running, as this user and with this port?";
        }
        return "queue " + queue + " can not be opened: " + systemText(error);
    }
    mq_attr attributes{};
    mq_getattr(target.descriptor(), &attributes);
    if (attributes.mq_msgsize != static_cast<long>(sizeof message)) {
        return "queue " + queue + " takes messages of " + std::to_string(attributes.mq_msgsize) + " bytes, not of " +
               std::to_string(sizeof message) + "; it is no listener's, or the controller was built for another target";
    }
    if (mq_send(target.descriptor(), reinterpret_cast<const char *>(&message), sizeof message, priority) != 0) {
        const int error = errno;
        if (error == EAGAIN) {
            return "queue " + queue + " is full (" + std::to_string(attributes.mq_maxmsg) +
                   " messages wait); its listener does not pump, try again later";
        }
        return "queue " + queue + " did not take the message: " + systemText(error);
    }
    return {};
}

} // namespace radio
