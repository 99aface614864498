#include "SoakTraffic.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "EventService.h"

namespace test {
namespace {

constexpr std::uint32_t ownEventsOfASender = 4;
constexpr std::uint32_t noOfSharedEvents = noOfSoakEvents - noOfSenders * ownEventsOfASender;
constexpr std::uint32_t listsTwice = noOfSoakListeners - 3;
constexpr std::uint32_t firstUnfiltered = noOfSoakListeners - 2;

/// Spreads what a firing is over all that it may be.
std::uint32_t spread(std::uint32_t sender, std::uint32_t number) {
    std::uint64_t mixed = (std::uint64_t{sender} << 32 | number) + 0x9E3779B97F4A7C15u;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
    return static_cast<std::uint32_t>(mixed >> 32);
}

unsigned char tailByte(std::uint32_t sender, std::uint32_t number, std::size_t i) {
    return static_cast<unsigned char>(sender * 31 + number * 7 + i);
}

} // namespace

std::atomic<std::int64_t> SharedPayload::alive{0};

SoakFiring firingOf(std::uint32_t sender, std::uint32_t number) {
    const std::uint32_t random = spread(sender, number);
    SoakFiring firing{};
    firing.isFiredUrgent = random % 4 == 0;
    switch (random / 4 % 4) {
    case 0: {
        // Known by its id: the sender's, and of what urgency.
        const std::uint32_t own = random / 16 % 2 * 2 + (firing.isFiredUrgent ? 1 : 0);
        firing.kind = FiringKind::plain;
        firing.eventId = noOfSharedEvents + sender * ownEventsOfASender + own;
        return firing;
    }
    case 1:
        firing.kind = FiringKind::withData;
        break;
    default:
        firing.kind = FiringKind::withCopiedData;
        break;
    }
    firing.eventId = random / 16 % noOfSharedEvents;
    return firing;
}

std::uint32_t timesHeard(std::uint32_t listener, std::uint32_t eventId) {
    if (listener >= firstUnfiltered) {
        return 1;
    }
    const std::uint32_t times = (eventId * 7 + listener) % 3 == 0 ? 1 : 0;
    return listener == listsTwice ? times * 2 : times;
}

std::uint32_t SoakPayload::sum() const {
    std::uint32_t sum = sender * 31 + number * 37 + eventId * 41 + isUrgent * 43 + tailSize;
    for (const std::uint32_t each : completed) {
        sum = sum * 33 + each;
    }
    for (std::size_t i = 0; i < std::min<std::size_t>(tailSize, tail.size()); ++i) {
        sum = sum * 33 + tail.at(i);
    }
    return sum;
}

// The senders

SoakPayload SoakProgress::makePayload(std::uint32_t sender, std::uint32_t number, const SoakFiring &firing) const {
    SoakPayload payload{};
    payload.sender = sender;
    payload.number = number;
    payload.eventId = firing.eventId;
    payload.isUrgent = firing.isUrgent() ? 1 : 0;
    for (std::uint32_t other = 0; other < noOfSenders; ++other) {
        payload.completed.at(other) = completed(other, firing.isUrgent());
    }
    payload.tailSize = spread(number, sender) % static_cast<uint32_t>(payload.tail.size() + 1);
    for (std::size_t i = 0; i < payload.tailSize; ++i) {
        payload.tail.at(i) = tailByte(sender, number, i);
    }
    payload.checksum = payload.sum();
    return payload;
}

EAFResult SoakProgress::fire(std::uint32_t sender, std::uint32_t number, const SoakFiring &firing) const {
    const std::uint32_t id = firing.eventId;
    if (firing.kind == FiringKind::plain) {
        return firing.isFiredUrgent ? CEventHandler_FireUrgentEvent(id) : CEventHandler_FireEvent(id);
    }
    if (firing.kind == FiringKind::withData) {
        auto *shared = new SharedPayload{makePayload(sender, number, firing), {0}};
        std::uint32_t users = 0;
        for (std::uint32_t listener = 0; listener < noOfSoakListeners; ++listener) {
            users += timesHeard(listener, id);
        }
        shared->users = users;
        ++SharedPayload::alive;
        return firing.isFiredUrgent ? CEventHandler_FireUrgentEventWithData(id, shared)
                                    : CEventHandler_FireEventWithData(id, shared);
    }
    SoakPayload payload = makePayload(sender, number, firing);
    const auto size = static_cast<std::uint32_t>(payload.size());
    const EAFResult result = firing.isFiredUrgent ? CEventHandler_FireUrgentEventWithCopiedData(id, &payload, size)
                                                  : CEventHandler_FireEventWithCopiedData(id, &payload, size);
    // A listener that was handed this instead of a copy would see it.
    std::memset(&payload, 0xA5, sizeof payload);
    return result;
}

std::uint32_t SoakProgress::fireAll(std::uint32_t sender) {
    m_threads.at(sender) = threadId();
    std::uint32_t bad = 0;
    for (std::uint32_t number = 0; number < m_firings; ++number) {
        const SoakFiring firing = firingOf(sender, number);
        bad += fire(sender, number, firing) != eAF_S_OK ? 1u : 0u;
        complete(sender, number, firing.isUrgent());
    }
    m_isDone.at(sender) = true;
    return bad;
}

// The listeners

SoakListener::SoakListener(std::uint32_t index, const SoakProgress &progress)
    : m_index(index), m_progress(progress), m_name("S" + std::to_string(index)),
      m_queue(expectedQueueName(m_name)), m_callback{this, onEvent} {
    mq_unlink(m_queue.c_str());
    for (std::uint32_t id = 0; id < noOfSoakEvents; ++id) {
        m_filter.insert(m_filter.end(), timesHeard(index, id), id);
    }
    m_filter.push_back(endEvent);
    for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
        moveToHeard(sender, false, m_cursors.at(sender)[0]);
        moveToHeard(sender, true, m_cursors.at(sender)[1]);
    }
}

SoakListener::~SoakListener() {
    mq_unlink(m_queue.c_str());
}

EAFResult SoakListener::add() {
    const bool isUnfiltered = m_index >= firstUnfiltered;
    return CEventHandler_AddListener(&m_callback, isUnfiltered ? nullptr : m_filter.data(),
                                     isUnfiltered ? 0 : static_cast<std::uint32_t>(m_filter.size()), m_name.c_str(),
                                     &m_handle);
}

void SoakListener::pumpToTheEnd(std::uint64_t stallsBehind) {
    while (!m_hasEnded) {
        if (stallsBehind != 0 && deliveries() >= stallsBehind) {
            stall();
            stallsBehind *= 2;
        }
        for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
            m_urgentBeforeReceive.at(sender) = m_progress.completed(sender, true);
        }
        CEventHandler_PumpEvent(m_handle);
    }
}

long SoakListener::waiting() const {
    return messagesIn(m_queue);
}

/// Its queue fills, and whoever fires something that it hears sleeps. Nobody can go on until it pumps again.
void SoakListener::stall() {
    std::uint32_t heldUp = 0;
    for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
        while (!m_progress.isDone(sender)) {
            if (m_progress.threadOf(sender) != 0 && blocksSending(m_progress.threadOf(sender)) && waiting() == 10) {
                ++heldUp;
                break;
            }
            std::this_thread::yield();
        }
    }
    m_sendersHeldUp = std::max(m_sendersHeldUp, heldUp);
}

bool SoakListener::hasEverything() const {
    return std::all_of(m_cursors.begin(), m_cursors.end(), [this](const auto &ofSender) {
        return std::all_of(ofSender.begin(), ofSender.end(), [this](const Cursor &cursor) {
            return cursor.number == m_progress.firingsOfASender() && cursor.times == 0;
        });
    });
}

/// Forward from the cursor's number to the next one of that urgency that this listener hears.
void SoakListener::moveToHeard(std::uint32_t sender, bool isUrgent, Cursor &cursor) const {
    cursor.times = 0;
    for (; cursor.number < m_progress.firingsOfASender(); ++cursor.number) {
        const SoakFiring firing = firingOf(sender, cursor.number);
        if (firing.isUrgent() == isUrgent && timesHeard(m_index, firing.eventId) != 0) {
            return;
        }
    }
}

EAFResult SoakListener::onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *) {
    static_cast<SoakListener *>(context)->take(eventId, data);
    return eAF_S_OK;
}

void SoakListener::note(std::uint64_t &count, const char *what, std::uint32_t sender, std::uint32_t number) {
    if (m_faults.sum() == 0) {
        m_firstFault = m_name + ": " + what + ", sender " + std::to_string(sender) + ", number " +
                       std::to_string(number) + ", delivery " + std::to_string(deliveries());
    }
    ++count;
}

void SoakListener::take(std::uint32_t eventId, void *data) {
    if (eventId == endEvent) {
        m_hasEnded = true;
        return;
    }
    m_deliveries.store(deliveries() + 1, std::memory_order_relaxed);
    if (data == nullptr) {
        takePlain(eventId);
        return;
    }
    const auto &payload = *static_cast<const SoakPayload *>(data);
    takePayload(eventId, payload);
    const bool isShared =
        payload.sender < noOfSenders && firingOf(payload.sender, payload.number).kind == FiringKind::withData;
    if (!isShared) {
        ++m_copies;
        return;
    }
    auto *shared = static_cast<SharedPayload *>(data);
    if (shared->users.fetch_sub(1) == 1) {
        delete shared;
        --SharedPayload::alive;
    }
}

void SoakListener::takePlain(std::uint32_t eventId) {
    if (eventId < noOfSharedEvents || eventId >= noOfSoakEvents) {
        note(m_faults.misled, "an id without data that nobody sends", 0, eventId);
        return;
    }
    const std::uint32_t sender = (eventId - noOfSharedEvents) / ownEventsOfASender;
    const bool isUrgent = eventId % 2 == 1;
    // It does not say its number, so it is taken for the next one, whose id has to fit.
    const std::uint32_t number = m_cursors.at(sender).at(isUrgent ? 1 : 0).number;
    if (number >= m_progress.firingsOfASender() || firingOf(sender, number).eventId != eventId) {
        note(m_faults.lost, "an id without data that is not the next", sender, number);
        return;
    }
    takeNumber(sender, number, isUrgent);
}

void SoakListener::takePayload(std::uint32_t eventId, const SoakPayload &payload) {
    if (payload.sender >= noOfSenders || payload.tailSize > payload.tail.size() || payload.isUrgent > 1 ||
        payload.checksum != payload.sum()) {
        note(m_faults.damaged, "damaged data", payload.sender, payload.number);
        return;
    }
    if (payload.eventId != eventId || timesHeard(m_index, eventId) == 0) {
        note(m_faults.misled, "not for this listener", payload.sender, payload.number);
        return;
    }
    const bool isUrgent = payload.isUrgent != 0;
    for (std::uint32_t other = 0; other < noOfSenders; ++other) {
        if (other != payload.sender && m_cursors.at(other).at(payload.isUrgent).number < payload.completed.at(other)) {
            note(m_faults.overtaken, "came before what had been sent before", payload.sender, payload.number);
        }
    }
    takeNumber(payload.sender, payload.number, isUrgent);
}

void SoakListener::takeNumber(std::uint32_t sender, std::uint32_t number, bool isUrgent) {
    Cursor &cursor = m_cursors.at(sender).at(isUrgent ? 1 : 0);
    if (number > cursor.number) {
        note(m_faults.lost, "one before it has not come", sender, number);
        cursor.number = number;
        cursor.times = 0;
    } else if (number < cursor.number) {
        note(m_faults.repeated, "it has come already", sender, number);
        return;
    }
    if (++cursor.times == timesHeard(m_index, firingOf(sender, number).eventId)) {
        ++cursor.number;
        moveToHeard(sender, isUrgent, cursor);
    }
    if (!isUrgent) {
        checkThatNoUrgentOneWaits();
    }
}

/// Whatever was in the queue when this receive began, urgent, has come before a normal one.
void SoakListener::checkThatNoUrgentOneWaits() {
    for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
        if (m_cursors.at(sender)[1].number < m_urgentBeforeReceive.at(sender)) {
            note(m_faults.heldBack, "urgent, and a normal one came first", sender, m_cursors.at(sender)[1].number);
        }
    }
}

} // namespace test
