/// @file
/// Real message queues for tests of the event service.
#pragma once

#include <mqueue.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace test {

/// The port of a process; no two have the same.
std::int32_t ownServerPort(std::int32_t process);

/// Gives this process a server port of its own, so that tests run side by side.
void useOwnServerPort();

/// The name of the queue that belongs to a suffix in this process.
std::string queueName(const std::string &suffix);

/// The name of the event task's queue in this process, which the library cuts.
std::string taskQueueName();

/// Removes this process's queues with these suffixes, or the event task's, when it goes, and before the test begins.
class QueueCleaner {
public:
    explicit QueueCleaner(std::vector<std::string> suffixes);
    ~QueueCleaner();
    void unlinkAll() const;
    QueueCleaner(const QueueCleaner &) = delete;
    QueueCleaner &operator=(const QueueCleaner &) = delete;

private:
    std::vector<std::string> m_suffixes;
};

/// Whether a queue of this name exists.
bool queueExists(const std::string &name);

/// Messages that wait in a queue; -1 when there is none of the name.
long messagesIn(const std::string &name);

/// Waits, with a deadline far beyond what is needed, until another thread has made the condition true.
/// @return whether it came true.
bool eventually(const std::function<bool()> &condition);

} // namespace test
