/// @file
/// Where listener threads leave word of the events that they handled. The control thread alone prints, so the
/// order of what is printed does not depend on how the threads were scheduled.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace radio {

class Arrivals {
public:
    Arrivals();
    Arrivals(const Arrivals &) = delete;
    Arrivals &operator=(const Arrivals &) = delete;
    ~Arrivals();

    /// Any thread.
    void add(const std::string &listener, uint32_t eventId, const std::string &text);

    /// Waits until a listener has handled some more events and prints them in the order in which it did.
    /// @return false when they did not come; what did come is printed, and what is missing is said.
    bool show(const std::string &listener, std::size_t count);

    /// Prints everything that has come from any listener, without waiting.
    void showPending();

    /// Readable while something waits for showPending.
    int descriptor() const { return m_signal; }

private:
    struct Arrival {
        std::chrono::microseconds time;
        std::string listener;
        uint32_t eventId;
        std::string text;
    };

    static void print(const Arrival &arrival);
    std::size_t countOf(const std::string &listener) const;

    std::mutex m_mutex;
    std::condition_variable m_added;
    std::deque<Arrival> m_arrivals; // guarded by m_mutex
    int m_signal;
};

} // namespace radio
