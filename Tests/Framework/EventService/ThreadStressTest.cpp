// Everything at once: eight firing threads, more event ids than the cache holds, sixteen listeners that share ids, each
// pumped by a thread of its own.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "EventService.h"
#include "Sanitized.h"

namespace {

constexpr std::uint32_t noOfSenders = 8;
constexpr std::uint32_t noOfListeners = 16;
constexpr std::uint32_t noOfEvents = 300;
constexpr std::uint32_t endEvent = 1000;
#ifdef ZELAF_SANITIZED
constexpr std::uint32_t firingsOfASender = 150;
#else
constexpr std::uint32_t firingsOfASender = 2000;
#endif

/// What travels: who sent it, as which of his, and enough to see a byte that is not his.
struct Payload {
    std::uint32_t sender;
    std::uint32_t number;
    std::uint32_t eventId;
    std::uint32_t isUrgent;
    std::array<std::uint32_t, 12> noise;
    std::uint32_t checksum;

    std::uint32_t sum() const {
        std::uint32_t sum = sender * 31 + number * 37 + eventId * 41 + isUrgent;
        for (const std::uint32_t word : noise) {
            sum = sum * 33 + word;
        }
        return sum;
    }
};

enum class Kind { withData, withCopiedData, urgentWithData, urgentWithCopiedData, count };

Kind kindOf(std::uint32_t sender, std::uint32_t number) {
    return static_cast<Kind>((number * 5 + sender) % static_cast<std::uint32_t>(Kind::count));
}

std::uint32_t eventOf(std::uint32_t sender, std::uint32_t number) {
    return (number * 13 + sender * 101) % noOfEvents;
}

Payload payloadOf(std::uint32_t sender, std::uint32_t number) {
    Payload payload{};
    payload.sender = sender;
    payload.number = number;
    payload.eventId = eventOf(sender, number);
    const Kind kind = kindOf(sender, number);
    const bool isTheException = kind == Kind::withCopiedData && payload.eventId == 48;
    payload.isUrgent = kind == Kind::urgentWithData || kind == Kind::urgentWithCopiedData || isTheException ? 1 : 0;
    for (std::size_t i = 0; i < payload.noise.size(); ++i) {
        payload.noise[i] = sender * 7919 + number * 104729 + static_cast<std::uint32_t>(i);
    }
    payload.checksum = payload.sum();
    return payload;
}

/// Overlapping thirds; the last two listen to everything.
bool hears(std::uint32_t listener, std::uint32_t eventId) {
    return listener >= noOfListeners - 2 || (eventId * 7 + listener) % 3 == 0;
}

/// A listener with the checks that can be made on the way; the counts are looked at in the end.
class CheckedListener {
public:
    explicit CheckedListener(std::uint32_t index)
        : m_index(index), m_name("S" + std::to_string(index)),
          m_queue(test::expectedQueueName(m_name)), m_callback{this, onEvent} {
        mq_unlink(m_queue.c_str());
        for (std::uint32_t id = 0; id < noOfEvents; ++id) {
            if (hears(index, id)) {
                m_filter.push_back(id);
            }
        }
        m_filter.push_back(endEvent);
    }
    ~CheckedListener() { mq_unlink(m_queue.c_str()); }
    CheckedListener(const CheckedListener &) = delete;
    CheckedListener &operator=(const CheckedListener &) = delete;

    EAFResult add() {
        const bool isUnfiltered = m_index >= noOfListeners - 2;
        return CEventHandler_AddListener(&m_callback, isUnfiltered ? nullptr : m_filter.data(),
                                         static_cast<std::uint32_t>(m_filter.size()), m_name.c_str(), &m_handle);
    }
    void pumpToTheEnd() {
        while (!m_hasEnded) {
            CEventHandler_PumpEvent(m_handle);
        }
    }
    void expectExactlyWhatTheFilterAsks() const {
        SCOPED_TRACE(m_name);
        EXPECT_EQ(0u, m_damaged);
        EXPECT_EQ(0u, m_misled);
        EXPECT_EQ(0u, m_outOfOrder) << "within one sender and priority";
        for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
            for (std::uint32_t number = 0; number < firingsOfASender; ++number) {
                const auto counted = m_counts.find({sender, number});
                const std::uint32_t times = counted != m_counts.end() ? counted->second : 0;
                const std::uint32_t expected = hears(m_index, eventOf(sender, number)) ? 1 : 0;
                ASSERT_EQ(expected, times) << "firing " << number << " of sender " << sender;
            }
        }
    }
    std::size_t deliveries() const { return m_counts.size(); }

private:
    static EAFResult onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *) {
        static_cast<CheckedListener *>(context)->take(eventId, static_cast<const Payload *>(data));
        return eAF_S_OK;
    }
    void take(std::uint32_t eventId, const Payload *payload) {
        if (eventId == endEvent) {
            m_hasEnded = true;
            return;
        }
        if (payload == nullptr || payload->checksum != payload->sum() || payload->sender >= noOfSenders) {
            ++m_damaged;
            return;
        }
        m_misled += payload->eventId != eventId || !hears(m_index, eventId) ? 1u : 0u;
        std::uint32_t &next = m_next.at(payload->sender).at(payload->isUrgent);
        m_outOfOrder += payload->number < next ? 1u : 0u;
        next = payload->number + 1;
        ++m_counts[{payload->sender, payload->number}];
    }

    std::uint32_t m_index;
    std::string m_name;
    std::string m_queue;
    SListenerCallback m_callback;
    std::vector<std::uint32_t> m_filter;
    std::uint32_t m_handle = 0;
    bool m_hasEnded = false;
    std::uint32_t m_damaged = 0;
    std::uint32_t m_misled = 0;
    std::uint32_t m_outOfOrder = 0;
    std::array<std::array<std::uint32_t, 2>, noOfSenders> m_next{};
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> m_counts;
};

class ThreadStress : public test::EventService {};

/// @return firings that did not answer eAF_S_OK.
std::uint32_t fireAll(std::uint32_t sender, const std::vector<Payload> &kept) {
    std::uint32_t bad = 0;
    for (std::uint32_t number = 0; number < firingsOfASender; ++number) {
        const std::uint32_t id = eventOf(sender, number);
        Payload onTheStack = payloadOf(sender, number);
        // The listeners only read.
        void *data = const_cast<Payload *>(&kept[number]); // NOLINT(cppcoreguidelines-pro-type-const-cast)
        EAFResult result = eAF_E_FAILED;
        switch (kindOf(sender, number)) {
        case Kind::withData:
            result = CEventHandler_FireEventWithData(id, data);
            break;
        case Kind::withCopiedData:
            result = CEventHandler_FireEventWithCopiedData(id, &onTheStack, sizeof onTheStack);
            break;
        case Kind::urgentWithData:
            result = CEventHandler_FireUrgentEventWithData(id, data);
            break;
        case Kind::urgentWithCopiedData:
        case Kind::count:
            result = CEventHandler_FireUrgentEventWithCopiedData(id, &onTheStack, sizeof onTheStack);
            break;
        }
        onTheStack = {};
        bad += result != eAF_S_OK ? 1u : 0u;
    }
    return bad;
}

TEST_F(ThreadStress, EveryListenerGetsExactlyWhatItsFilterAsks) {
    initialize(noOfEvents + 1, noOfListeners);
    for (std::uint32_t id = 0; id < noOfEvents; ++id) {
        registerEvents({id});
    }
    registerEvents({endEvent});
    std::vector<std::unique_ptr<CheckedListener>> listeners;
    for (std::uint32_t i = 0; i < noOfListeners; ++i) {
        listeners.push_back(std::make_unique<CheckedListener>(i));
        ASSERT_EQ(eAF_S_OK, listeners.back()->add());
    }
    forgetTraces();
    std::array<std::vector<Payload>, noOfSenders> kept;
    for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
        for (std::uint32_t number = 0; number < firingsOfASender; ++number) {
            kept.at(sender).push_back(payloadOf(sender, number));
        }
    }

    std::vector<std::thread> pumps;
    pumps.reserve(listeners.size());
    for (const auto &listener : listeners) {
        pumps.emplace_back([&listener] { listener->pumpToTheEnd(); });
    }
    std::array<std::uint32_t, noOfSenders> bad{};
    std::vector<std::thread> senders;
    for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
        senders.emplace_back([&, sender] { bad.at(sender) = fireAll(sender, kept.at(sender)); });
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    // Behind everything that was sent before, so what is missing by then is lost.
    ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(endEvent));
    for (std::thread &pump : pumps) {
        pump.join();
    }

    std::size_t deliveries = 0;
    for (const auto &listener : listeners) {
        listener->expectExactlyWhatTheFilterAsks();
        deliveries += listener->deliveries();
    }
    EXPECT_EQ((std::array<std::uint32_t, noOfSenders>{}), bad);
    EXPECT_GT(deliveries, firingsOfASender * noOfSenders * 6u);
    EXPECT_GE(statistics().noOfCacheMisses, noOfEvents) << "each id at least once, and the cache is too small";
    EXPECT_EQ(test::Lines{}, traced());
    RecordProperty("deliveries", static_cast<int>(deliveries));
}

TEST_F(ThreadStress, ListenersThatComeWhileEventsFlow_AreServedWholeOrNotAtAll) {
    initialize(4, 12);
    registerEvents({1, 2, 3});
    constexpr std::uint32_t late = 10;
    std::vector<std::unique_ptr<test::Listener>> listeners;
    for (std::uint32_t i = 0; i < late; ++i) {
        listeners.push_back(std::make_unique<test::Listener>("L" + std::to_string(i)));
    }
    std::array<std::uint32_t, 2> bad{};
    std::vector<std::thread> senders;
    for (std::uint32_t sender = 0; sender < 2; ++sender) {
        senders.emplace_back([&bad, sender] {
            for (std::uint32_t firing = 0; firing < 4; ++firing) {
                bad.at(sender) += CEventHandler_FireEvent(2) != eAF_S_OK ? 1u : 0u;
                std::this_thread::yield();
            }
        });
    }
    for (const auto &listener : listeners) {
        ASSERT_EQ(eAF_S_OK, listener->add({2, 1}));
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    for (const auto &listener : listeners) {
        EXPECT_LE(listener->waiting(), 9);
        listener->pumpAll();
        EXPECT_EQ(1u, listener->ids().back());
    }
    EXPECT_EQ((std::array<std::uint32_t, 2>{}), bad);
}

} // namespace
