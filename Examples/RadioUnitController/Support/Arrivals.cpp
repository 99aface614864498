#include "Support/Arrivals.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

#include "Configuration.h"
#include "Support/Timeline.h"

namespace radio {

Arrivals::Arrivals() : m_signal(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_signal < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

Arrivals::~Arrivals() {
    close(m_signal);
}

void Arrivals::add(const std::string &listener, uint32_t eventId, const std::string &text) {
    {
        const std::lock_guard lock(m_mutex);
        m_arrivals.push_back({timeSinceStart(), listener, eventId, text});
    }
    m_added.notify_one();
    // Fails only when the counter is near its end: then the descriptor is readable already.
    static_cast<void>(eventfd_write(m_signal, 1));
}

bool Arrivals::show(const std::string &listener, std::size_t count) {
    // Far longer than a listener takes: only a controller that is broken comes to the end of it.
    constexpr std::chrono::seconds patience{60};
    std::unique_lock lock(m_mutex);
    const bool complete = m_added.wait_for(lock, patience, [&] { return countOf(listener) >= count; });
    std::size_t shown = 0;
    for (auto arrival = m_arrivals.begin(); arrival != m_arrivals.end() && shown < count;) {
        if (arrival->listener == listener) {
            print(*arrival);
            ++shown;
            arrival = m_arrivals.erase(arrival);
        } else {
            ++arrival;
        }
    }
    if (!complete) {
        std::cerr << "RadioUnitController: " << listener << " handled " << shown << " of " << count << " events within "
                  << patience.count() << " s; look for its thread\n";
    }
    return complete;
}

void Arrivals::showPending() {
    eventfd_t ignored = 0;
    static_cast<void>(eventfd_read(m_signal, &ignored));
    const std::lock_guard lock(m_mutex);
    std::for_each(m_arrivals.begin(), m_arrivals.end(), print);
    m_arrivals.clear();
}

void Arrivals::print(const Arrival &arrival) {
    std::printf("    %8s  event %-18s -> %-17s  %s\n", seconds(arrival.time).c_str(),
                findName(events(), arrival.eventId), arrival.listener.c_str(), arrival.text.c_str());
}

std::size_t Arrivals::countOf(const std::string &listener) const {
    return static_cast<std::size_t>(
        std::count_if(m_arrivals.begin(), m_arrivals.end(),
                      [&listener](const Arrival &arrival) { return arrival.listener == listener; }));
}

} // namespace radio
