/// @file
/// The library's event service, from its initialization to the last descriptor that it leaves open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CEventHandler.h"

namespace speed {

/// Fails with an exception that names the step; warnings fail too.
void require(const char *step, EAFResult result);

/// One at a time in a process.
class EventService {
public:
    /// Registers that many events, firstEvent and those that follow it.
    EventService(std::uint32_t noOfEvents, std::uint32_t noOfListeners);
    EventService(const EventService &) = delete;
    EventService &operator=(const EventService &) = delete;
    ~EventService();

    /// @param filter  must outlive the service; empty hears every event.
    /// @return the handle.
    std::uint32_t add(SListenerCallback &callback, const std::vector<std::uint32_t> &filter);

    /// No event is called 48, which goes out urgent.
    static constexpr std::uint32_t firstEvent = 1000;

private:
    std::size_t m_threadsBefore;
    std::vector<std::string> m_queues;
};

/// Closes what the process has open of that name, among the descriptors of queues that the service leaves open.
void closeQueue(const std::string &name);

/// Waits until the threads of the process are no more than that: what leaves does not share the next turn's processor.
void waitForThreads(std::size_t most);
std::size_t threadCount();

} // namespace speed
