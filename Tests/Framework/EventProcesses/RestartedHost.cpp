/// @file
/// A host that is there to be killed: it begins its event service, fires, pumps and ends it, over and over.
///
///     RestartedHost PORT STATE RUN [LIVES]
///
/// Every event that it fires carries RUN, and every listener of it wants exactly those, in order: whatever an earlier
/// run left in a queue would be found. Without LIVES it goes on until it is killed. Exit code 0 after LIVES, 1 when
/// something was not as it should be, which then stands in the file STATE.
#include <mqueue.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "AfResult.h"
#include "CApplicationFramework.h"
#include "CEventHandler.h"
#include "CFrameworkUtils.h"
#include "HostState.h"

namespace {

using test::HostPhase;

constexpr std::uint32_t noOfSenders = 2;
constexpr std::uint32_t firingsOfASender = 60;
constexpr std::uint32_t firstEvent = 1; ///< One of each sender.
constexpr std::uint32_t delayedEvent = 7;
constexpr std::uint32_t waitingEvent = 8;
constexpr std::uint32_t endEvent = 9;
constexpr std::uint32_t largestEvent = endEvent;
constexpr std::uint32_t noOfDelayed = 5;
constexpr std::uint32_t queueLength = 10;

test::MappedHostState *state;

[[noreturn]] void fail(const std::string &what) {
    std::snprintf((*state)->fault, sizeof(*state)->fault, "%s", what.c_str());
    std::_Exit(1);
}

void require(EAFResult result, const char *what) {
    if (result != eAF_S_OK) {
        fail(std::string(what) + ": " + AfResult::toString(result));
    }
}

/// Fails unless a delivery is as it should be.
void require(bool isGood, const char *what, std::uint32_t eventId, std::uint32_t number) {
    if (!isGood) {
        fail(std::string(what) + ", event " + std::to_string(eventId) + ", number " + std::to_string(number));
    }
}

struct Payload {
    std::uint32_t run;
    std::uint32_t life;
    std::uint32_t sender;
    std::uint32_t number;
    std::uint32_t check;
    std::uint32_t sum() const { return run * 31 + life * 37 + sender * 41 + number * 43; }
};

void *dataOf(std::uint32_t number) {
    return reinterpret_cast<void *>(std::uintptr_t{number}); // NOLINT(performance-no-int-to-ptr): no address
}

/// Urgent ones travel in a stream of their own.
constexpr std::uint32_t firstUrgent = 4;

bool isUrgent(std::uint32_t number) {
    return number % 5 == firstUrgent;
}

std::uint32_t nextNumber(std::uint32_t number, bool urgent) {
    do {
        ++number;
    } while (number < firingsOfASender && isUrgent(number) != urgent);
    return number;
}

class HostListener {
public:
    HostListener(std::string name, std::vector<std::uint32_t> filter, std::uint32_t run, std::uint32_t life)
        : m_name(std::move(name)), m_filter(std::move(filter)), m_run(run), m_life(life), m_callback{this, onEvent} {
        m_next.fill({0, firstUrgent});
    }
    void add() {
        require(CEventHandler_AddListener(&m_callback, m_filter.empty() ? nullptr : m_filter.data(),
                                          static_cast<std::uint32_t>(m_filter.size()), m_name.c_str(), &m_handle),
                "AddListener");
    }
    bool hears(std::uint32_t eventId) const {
        for (const std::uint32_t id : m_filter) {
            if (id == eventId) {
                return true;
            }
        }
        return m_filter.empty();
    }
    void start() {
        m_hasEnded = false;
        m_thread = std::thread([this] {
            while (!m_hasEnded) {
                errno = 0;
                CEventHandler_PumpEvent(m_handle);
            }
        });
    }
    void join() { m_thread.join(); }
    /// Before these are there its end must not be fired: the event task forwards them when it gets to it.
    void waitForDelayed() const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (m_delayed < noOfDelayed) {
            require(std::chrono::steady_clock::now() < end, "lost", delayedEvent, m_delayed);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
    std::string queue() const {
        char name[256];
        CFrameworkUtils_GetMQueueName(name, sizeof name, m_name.c_str());
        return name;
    }
    void requireEverything() const {
        for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
            if (hears(firstEvent + sender)) {
                for (const std::uint32_t next : m_next.at(sender)) {
                    require(next >= firingsOfASender, "lost", firstEvent + sender, next);
                }
            }
        }
        require(m_waiting == (hears(waitingEvent) ? queueLength - 1 : 0), "lost", waitingEvent, m_waiting);
    }

private:
    static EAFResult onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *) {
        static_cast<HostListener *>(context)->take(eventId, data);
        ++(*state)->delivered;
        return eAF_S_OK;
    }
    void take(std::uint32_t eventId, const void *data) {
        if (eventId == endEvent) {
            m_hasEnded = true;
        } else if (eventId == waitingEvent) {
            require(reinterpret_cast<std::uintptr_t>(data) == m_run, "of another run", eventId, m_waiting);
            ++m_waiting;
        } else if (eventId == delayedEvent) {
            require(false, "an id that only the event task is sent", eventId, 0);
        } else if (eventId > largestEvent) {
            // The event task tells an address of its own, whatever it was sent.
            require(data == nullptr, "a delayed event with data", eventId, 0);
            ++m_delayed;
            ++(*state)->delayed;
        } else {
            takePayload(eventId, static_cast<const Payload *>(data));
        }
    }
    void takePayload(std::uint32_t eventId, const Payload *payload) {
        require(payload != nullptr && payload->check == payload->sum() && payload->run == m_run &&
                    payload->life == m_life && eventId == firstEvent + payload->sender && hears(eventId),
                "not fired by this run for this listener", eventId, payload != nullptr ? payload->number : 0);
        const bool urgent = isUrgent(payload->number);
        std::uint32_t &next = m_next.at(payload->sender).at(urgent ? 1 : 0);
        require(payload->number == next, "lost, repeated or out of order", eventId, payload->number);
        next = nextNumber(next, urgent);
    }

    const std::string m_name;
    const std::vector<std::uint32_t> m_filter;
    const std::uint32_t m_run;
    const std::uint32_t m_life;
    SListenerCallback m_callback;
    std::uint32_t m_handle = 0;
    bool m_hasEnded = false;
    std::atomic<std::uint32_t> m_delayed{0};
    std::array<std::array<std::uint32_t, 2>, noOfSenders> m_next{};
    std::uint32_t m_waiting = 0;
    std::thread m_thread;
};

void fireAll(std::uint32_t sender, std::uint32_t run, std::uint32_t life) {
    for (std::uint32_t number = 0; number < firingsOfASender; ++number) {
        Payload payload{run, life, sender, number, 0};
        payload.check = payload.sum();
        require(isUrgent(number)
                    ? CEventHandler_FireUrgentEventWithCopiedData(firstEvent + sender, &payload, sizeof payload)
                    : CEventHandler_FireEventWithCopiedData(firstEvent + sender, &payload, sizeof payload),
                "Fire");
    }
}

void sendToTask(std::uint32_t messages) {
    char name[sizeof CEventTask::queueName];
    CFrameworkUtils_GetMQueueName(name, sizeof name, "EHNP");
    const mqd_t queue = mq_open(name, O_WRONLY);
    SEventDataMessage message{};
    message.eventId = delayedEvent;
    for (std::uint32_t i = 0; i < messages && queue != -1; ++i) {
        mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, 0);
    }
    if (queue == -1) {
        fail("the event task's queue is not there");
    }
    mq_close(queue);
}

/// Listeners' queues stay open when the service ends, as they have to, and a machine has few: what a host that ends
/// would give back, one that goes on has to.
void closeQueuesOf(const std::vector<std::unique_ptr<HostListener>> &listeners) {
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = std::filesystem::read_symlink(entry.path(), ignored);
        for (const auto &listener : listeners) {
            if (target.rfind(listener->queue(), 0) == 0) {
                mq_close(std::stoi(entry.path().filename()));
                break;
            }
        }
    }
}

void live(std::uint32_t run, std::uint32_t life) {
    (*state)->phase = HostPhase::starting;
    require(CEventHandler_Initialize(largestEvent, 3), "Initialize");
    for (std::uint32_t id = 1; id <= largestEvent; ++id) {
        require(CEventHandler_RegisterEvent(id, "event"), "RegisterEvent");
    }
    std::vector<std::unique_ptr<HostListener>> listeners;
    listeners.push_back(std::make_unique<HostListener>(
        "One", std::vector<std::uint32_t>{firstEvent, waitingEvent, endEvent}, run, life));
    listeners.push_back(std::make_unique<HostListener>(
        "Two", std::vector<std::uint32_t>{firstEvent + 1, delayedEvent, endEvent}, run, life));
    listeners.push_back(std::make_unique<HostListener>("All", std::vector<std::uint32_t>{}, run, life));
    for (const auto &listener : listeners) {
        listener->add();
    }

    (*state)->phase = HostPhase::firing;
    for (const auto &listener : listeners) {
        listener->start();
    }
    std::vector<std::thread> senders;
    for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
        senders.emplace_back(fireAll, sender, run, life);
    }
    sendToTask(noOfDelayed);
    for (std::thread &sender : senders) {
        sender.join();
    }
    for (const auto &listener : listeners) {
        if (listener->hears(delayedEvent)) {
            listener->waitForDelayed();
        }
    }
    require(CEventHandler_FireEvent(endEvent), "Fire");
    for (const auto &listener : listeners) {
        listener->join();
    }

    (*state)->phase = HostPhase::pumping;
    // The first does not pump for a while: a kill leaves messages behind. No delayed event is for it, so that its
    // queue holds all of these.
    listeners[1]->start();
    listeners[2]->start();
    for (std::uint32_t i = 0; i < queueLength - 1; ++i) {
        require(CEventHandler_FireEventWithData(waitingEvent, dataOf(run)), "Fire");
    }
    listeners[0]->start();
    require(CEventHandler_FireEvent(endEvent), "Fire");
    for (const auto &listener : listeners) {
        listener->join();
        listener->requireEverything();
    }

    (*state)->phase = HostPhase::stopping;
    require(CEventHandler_UnInitialize(), "UnInitialize");
    closeQueuesOf(listeners);
    (*state)->phase = HostPhase::ended;
    ++(*state)->lives;
}

std::uint32_t number(const char *text) {
    return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        std::fprintf(stderr, "RestartedHost PORT STATE RUN [LIVES]\n");
        return 2;
    }
    std::array<std::int32_t, 9> configuration{}; // which takes any port
    configuration[8] = static_cast<std::int32_t>(number(argv[1]));
    CApplicationFramework_FinalInitialization(configuration.data());
    test::MappedHostState mapped(argv[2]);
    if (!mapped) {
        std::fprintf(stderr, "RestartedHost: %s can not be mapped\n", argv[2]);
        return 2;
    }
    state = &mapped;
    const std::uint32_t run = number(argv[3]);
    const std::uint32_t lives = argc > 4 ? number(argv[4]) : UINT32_MAX;
    for (std::uint32_t life = 0; life < lives; ++life) {
        live(run, life);
    }
    state = nullptr;
    return 0;
}
