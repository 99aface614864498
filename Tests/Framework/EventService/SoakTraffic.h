/// @file
/// Traffic of many senders to many listeners that is settled beforehand, firing by firing, so that each listener
/// knows the next message of each sender and takes no other.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CEventHandler.h"

namespace test {

constexpr std::uint32_t noOfSenders = 8;
constexpr std::uint32_t noOfSoakListeners = 16;
/// The last few are the senders' own, for firings that carry nothing else to know the sender by.
constexpr std::uint32_t noOfSoakEvents = 300;
constexpr std::uint32_t endEvent = 1000;

enum class FiringKind : std::uint32_t { plain, withData, withCopiedData };

struct SoakFiring {
    std::uint32_t eventId;
    FiringKind kind;
    bool isFiredUrgent;
    /// What the queue sees: copied data of event 48 is urgent, whichever way it is fired.
    bool isUrgent() const { return isFiredUrgent || (kind == FiringKind::withCopiedData && eventId == 48); }
};

/// The firing that a sender makes as its number-th.
SoakFiring firingOf(std::uint32_t sender, std::uint32_t number);

/// How often a listener is served with an event: not at all, once, or twice for the one that lists each id twice.
std::uint32_t timesHeard(std::uint32_t listener, std::uint32_t eventId);

/// What travels: who sent it, as which of his, what had been sent before, and enough to see a byte that is not his.
struct SoakPayload {
    std::uint32_t sender;
    std::uint32_t number;
    std::uint32_t eventId;
    std::uint32_t isUrgent;
    /// How far each sender was with firings of this urgency when this one began.
    std::array<std::uint32_t, noOfSenders> completed;
    std::uint32_t tailSize;
    std::uint32_t checksum;
    std::array<unsigned char, 64> tail;

    std::uint32_t sum() const;
    std::size_t size() const { return offsetof(SoakPayload, tail) + tailSize; }
};

/// A payload that several listeners are handed: the last of them gives it back.
struct SharedPayload {
    SoakPayload payload;
    std::atomic<std::uint32_t> users;
    static std::atomic<std::int64_t> alive;
};

/// How far all senders are, seen by everybody.
class SoakProgress {
public:
    explicit SoakProgress(std::uint32_t firingsOfASender) : m_firings(firingsOfASender) {}

    std::uint32_t firingsOfASender() const { return m_firings; }
    void complete(std::uint32_t sender, std::uint32_t number, bool isUrgent) {
        m_completed.at(sender).at(isUrgent ? 1 : 0).store(number + 1, std::memory_order_release);
    }
    /// The number behind the sender's last firing of that urgency that reached all its listeners' queues.
    std::uint32_t completed(std::uint32_t sender, bool isUrgent) const {
        return m_completed.at(sender).at(isUrgent ? 1 : 0).load(std::memory_order_acquire);
    }
    bool isDone(std::uint32_t sender) const { return m_isDone.at(sender); }

    /// Makes all firings of a sender. @return those that did not answer eAF_S_OK.
    std::uint32_t fireAll(std::uint32_t sender);

    /// The senders' threads; 0 until one has begun.
    int threadOf(std::uint32_t sender) const { return m_threads.at(sender); }

private:
    EAFResult fire(std::uint32_t sender, std::uint32_t number, const SoakFiring &firing) const;
    SoakPayload makePayload(std::uint32_t sender, std::uint32_t number, const SoakFiring &firing) const;

    const std::uint32_t m_firings;
    std::array<std::array<std::atomic<std::uint32_t>, 2>, noOfSenders> m_completed{};
    std::array<std::atomic<bool>, noOfSenders> m_isDone{};
    std::array<std::atomic<int>, noOfSenders> m_threads{};
};

/// What a listener may find wrong with a delivery.
struct SoakFaults {
    std::uint64_t damaged = 0;
    std::uint64_t misled = 0;    ///< Not for this listener, or under another id.
    std::uint64_t lost = 0;      ///< Something before it has not come.
    std::uint64_t repeated = 0;  ///< It, or something behind it, has come already.
    std::uint64_t overtaken = 0; ///< By one that was sent later at the same priority.
    std::uint64_t heldBack = 0;  ///< An urgent one waited while a normal one was handed out.
    std::uint64_t sum() const { return damaged + misled + lost + repeated + overtaken + heldBack; }
};

/// A listener that checks every delivery against the next one that it must be.
class SoakListener {
public:
    SoakListener(std::uint32_t index, const SoakProgress &progress);
    ~SoakListener();
    SoakListener(const SoakListener &) = delete;
    SoakListener &operator=(const SoakListener &) = delete;

    EAFResult add();
    /// Until the end event; stops pumping behind as many deliveries, until every sender is held up by it or done.
    void pumpToTheEnd(std::uint64_t stallsBehind);

    const std::string &name() const { return m_name; }
    /// Counted also in @ref faults, as lost.
    bool hasEverything() const;
    SoakFaults faults() const { return m_faults; }
    const std::string &firstFault() const { return m_firstFault; }
    std::uint64_t deliveries() const { return m_deliveries.load(std::memory_order_relaxed); }
    std::uint64_t copies() const { return m_copies; }
    std::uint32_t sendersHeldUp() const { return m_sendersHeldUp; }
    long waiting() const;

private:
    /// Where a listener is in one sender's firings of one urgency.
    struct Cursor {
        std::uint32_t number = 0;
        std::uint32_t times = 0; ///< How often that number has come.
    };
    static EAFResult onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *self);
    void take(std::uint32_t eventId, void *data);
    void takePlain(std::uint32_t eventId);
    void takePayload(std::uint32_t eventId, const SoakPayload &payload);
    void takeNumber(std::uint32_t sender, std::uint32_t number, bool isUrgent);
    void checkThatNoUrgentOneWaits();
    void moveToHeard(std::uint32_t sender, bool isUrgent, Cursor &cursor) const;
    void stall();
    void note(std::uint64_t &count, const char *what, std::uint32_t sender, std::uint32_t number);

    const std::uint32_t m_index;
    const SoakProgress &m_progress;
    const std::string m_name;
    const std::string m_queue;
    SListenerCallback m_callback;
    std::vector<std::uint32_t> m_filter;
    std::uint32_t m_handle = 0;
    bool m_hasEnded = false;
    std::uint64_t m_copies = 0;
    std::uint32_t m_sendersHeldUp = 0;
    std::atomic<std::uint64_t> m_deliveries{0};
    std::array<std::array<Cursor, 2>, noOfSenders> m_cursors{};
    std::array<std::uint32_t, noOfSenders> m_urgentBeforeReceive{};
    SoakFaults m_faults;
    std::string m_firstFault;
};

} // namespace test
