/// @file
/// SIGINT and SIGTERM as something to ask for, instead of something that happens.
#pragma once

#include <string>

namespace radio {

/// Blocks both signals in this thread and in every thread started after. A signal therefore interrupts no
/// receive of a listener, which would cost it a message. Made before anything that starts a thread.
class SignalWatch {
public:
    SignalWatch();
    SignalWatch(const SignalWatch &) = delete;
    SignalWatch &operator=(const SignalWatch &) = delete;
    ~SignalWatch();

    /// @return "SIGINT" or "SIGTERM" once one has come, and from then on; empty before.
    std::string received();

    /// Waits for a signal or for something to read. @param other  a descriptor.
    void wait(int other) const;

private:
    int m_descriptor;
    std::string m_received;
};

} // namespace radio
