/// @file
/// Message queues by name, and the server port that keeps each test's apart.
#pragma once

#include <mqueue.h>

#include <cstdint>
#include <string>
#include <vector>

namespace test {

/// A server port of this test process's own.
std::int32_t port();

/// The port that a test would have whose process that is; nobody else takes it while that process is there.
std::int32_t portOf(pid_t process);

/// The name of a listener's queue at that port.
std::string queueName(const std::string &listener);

bool queueExists(const std::string &name);

/// Names of all queues that a controller at that port opens.
std::vector<std::string> controllerQueues();

/// A queue that is there before a program runs, and gone after the test.
class NamedQueue {
public:
    NamedQueue(std::string name, long messageSize);
    NamedQueue(const NamedQueue &) = delete;
    NamedQueue &operator=(const NamedQueue &) = delete;
    ~NamedQueue();

    const std::string &name() const { return m_name; }

    /// Sends zeros until nothing more fits.
    void fill() const;

    /// Takes one message. @return its bytes, and its priority in the argument.
    std::string receive(unsigned int &priority) const;

private:
    std::string m_name;
    std::size_t m_messageSize;
    mqd_t m_queue;
};

} // namespace test
