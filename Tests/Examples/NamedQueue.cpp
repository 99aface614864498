#include "NamedQueue.h"

#include <fcntl.h>
#include <unistd.h>

#include <CApplicationFramework.h>
#include <CEventTask.h>
#include <CFrameworkUtils.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace test {
namespace {

constexpr auto noQueue = static_cast<mqd_t>(-1);

template <std::size_t Size>
std::string nameOfSize(const std::string &suffix) {
    CApplicationFramework_SetServerPort(port());
    std::array<char, Size> name{};
    CFrameworkUtils_GetMQueueName(name.data(), static_cast<std::int32_t>(name.size()), suffix.c_str());
    return name.data();
}

} // namespace

std::int32_t port() {
    return portOf(getpid());
}

std::int32_t portOf(pid_t process) {
    // Tests run side by side, each in its own process: process ids that are in use at the same time are no
    // multiple of 50000 apart. The event task's queue loses the end of its name where the user's is long: neighbours
    // differ in the first digits.
    std::int32_t port = 1 + process % 5;
    process /= 5;
    for (int digits = 1; digits < 5; ++digits, process /= 10) {
        port = port * 10 + process % 10;
    }
    return port;
}

std::string queueName(const std::string &listener) {
    return nameOfSize<256>(listener);
}

bool queueExists(const std::string &name) {
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
    if (queue == noQueue) {
        return errno != ENOENT;
    }
    mq_close(queue);
    return true;
}

std::vector<std::string> controllerQueues() {
    return {queueName("EventLog"), queueName("AlarmCollector"), queueName("BoardSupervision"),
            nameOfSize<sizeof(CEventTask::queueName)>("EHNP")};
}

NamedQueue::NamedQueue(std::string name, long messageSize)
    : m_name(std::move(name)), m_messageSize(static_cast<std::size_t>(messageSize)) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 2;
    attributes.mq_msgsize = messageSize;
    m_queue = mq_open(m_name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK, 0600, &attributes);
    if (m_queue == noQueue) {
        throw std::system_error(errno, std::generic_category(), m_name);
    }
}

NamedQueue::~NamedQueue() {
    mq_close(m_queue);
    mq_unlink(m_name.c_str());
}

void NamedQueue::fill() const {
    const std::string zeros(m_messageSize, '\0');
    while (mq_send(m_queue, zeros.data(), zeros.size(), 0) == 0) {
    }
}

std::string NamedQueue::receive(unsigned int &priority) const {
    std::string message(m_messageSize, '\0');
    const ssize_t size = mq_receive(m_queue, message.data(), message.size(), &priority);
    message.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return message;
}

} // namespace test
