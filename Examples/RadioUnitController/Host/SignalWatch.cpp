#include "Host/SignalWatch.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace radio {

SignalWatch::SignalWatch() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    const int error = pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "pthread_sigmask");
    }
    m_descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
}

SignalWatch::~SignalWatch() {
    close(m_descriptor);
}

std::string SignalWatch::received() {
    signalfd_siginfo info{};
    if (m_received.empty() && read(m_descriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        m_received = info.ssi_signo == SIGINT ? "SIGINT" : "SIGTERM";
    }
    return m_received;
}

void SignalWatch::wait(int other) const {
    std::array<pollfd, 2> descriptors{{{m_descriptor, POLLIN, 0}, {other, POLLIN, 0}}};
    // Whatever ends the wait, the caller looks at both again.
    static_cast<void>(poll(descriptors.data(), descriptors.size(), -1));
}

} // namespace radio
