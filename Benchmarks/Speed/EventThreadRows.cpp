// Events between threads. On one processor the listener may run before the fire returns: what the caller waits and how
// late the callback is are two figures.
#include <semaphore.h>

#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "Channels.h"
#include "Comparison.h"
#include "Cores.h"

using namespace speed;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t there = EventService::firstEvent;
constexpr std::uint32_t back = EventService::firstEvent + 1;
constexpr std::uint32_t noOfListeners = 16;
constexpr std::uint32_t streamed = 1000;

/// A thread that receives until it is told to leave. It may wait for a message then, or be about to look whether it
/// leaves: one more is sent, and nobody waits for what comes of that one.
template <class Channel>
class Receiver {
public:
    Receiver(Channel &channel, int core)
        : m_thread([this, &channel, core] {
              runOn(core);
              while (!m_leaves.load(std::memory_order_relaxed)) {
                  channel.receive();
              }
          }) {}

    void leave() { m_leaves.store(true, std::memory_order_relaxed); }
    void join() { m_thread.join(); }

private:
    std::atomic<bool> m_leaves{false};
    std::thread m_thread;
};

EAFResult ignore(void * /*context*/, std::uint32_t /*event*/, void * /*data*/, SListenerCallback * /*self*/) {
    return eAF_S_OK;
}

template <class Channel>
EAFResult sendBack(void *context, std::uint32_t /*event*/, void * /*data*/, SListenerCallback * /*self*/) {
    (*static_cast<Channel **>(context))->send(back);
    return eAF_S_OK;
}

/// To a listener's thread and an answer back.
template <class Transport>
Body fireAndAnswer(int core) {
    return [core](benchmark::State &state) {
        using Channel = typename Transport::Channel;
        Channel *answers = nullptr;
        SListenerCallback answering{&answers, sendBack<Channel>};
        SListenerCallback ignoring{nullptr, ignore};
        Transport transport(2, 2);
        Channel &calls = transport.add(answering, {there});
        answers = &transport.add(ignoring, {back});
        Receiver<Channel> receiver(calls, core);
        for (auto _ : state) {
            calls.send(there);
            answers->receive();
        }
        receiver.leave();
        calls.send(there);
        receiver.join();
    };
}

void callOverDBus(benchmark::State &state) {
    DBusCaller caller;
    std::uint32_t event = there;
    for (auto _ : state) {
        caller.call(event++);
    }
}

/// When a callback ran.
struct Arrival {
    std::atomic<bool> happened{false};
    Clock::time_point time;

    static EAFResult stamp(void *context, std::uint32_t /*event*/, void * /*data*/, SListenerCallback * /*self*/) {
        auto *arrival = static_cast<Arrival *>(context);
        arrival->time = Clock::now();
        arrival->happened.store(true, std::memory_order_release);
        return eAF_S_OK;
    }
    void wait() {
        while (!happened.exchange(false, std::memory_order_acquire)) {
            sched_yield();
        }
    }
};

enum class Moment { fireReturns, callbackRuns };

template <class Transport>
Body fireUntil(Moment moment) {
    return [moment](benchmark::State &state) {
        using Channel = typename Transport::Channel;
        Arrival arrival;
        SListenerCallback stamping{&arrival, Arrival::stamp};
        Transport transport(1, 1);
        Channel &channel = transport.add(stamping, {there});
        Receiver<Channel> receiver(channel, firstCore());
        for (auto _ : state) {
            const Clock::time_point begin = Clock::now();
            channel.send(there);
            const Clock::time_point returned = Clock::now();
            arrival.wait();
            const Clock::time_point end = moment == Moment::fireReturns ? returned : arrival.time;
            state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
        }
        receiver.leave();
        channel.send(there);
        receiver.join();
    };
}

/// The last of several callbacks tells whoever waits for all of them.
class Countdown {
public:
    Countdown() { sem_init(&m_done, 0, 0); }
    Countdown(const Countdown &) = delete;
    Countdown &operator=(const Countdown &) = delete;
    ~Countdown() { sem_destroy(&m_done); }

    void start(std::uint32_t calls) { m_left.store(calls, std::memory_order_relaxed); }
    void wait() {
        while (sem_wait(&m_done) != 0) {
        }
    }

    static EAFResult count(void *context, std::uint32_t /*event*/, void * /*data*/, SListenerCallback * /*self*/) {
        auto *countdown = static_cast<Countdown *>(context);
        if (countdown->m_left.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            sem_post(&countdown->m_done);
        }
        return eAF_S_OK;
    }

private:
    std::atomic<std::uint32_t> m_left{0};
    sem_t m_done{};
};

/// One fire, until the last listener was called.
template <class Transport>
void fireToMany(benchmark::State &state) {
    using Channel = typename Transport::Channel;
    Countdown countdown;
    SListenerCallback counting{&countdown, Countdown::count};
    Transport transport(1, noOfListeners);
    std::list<Receiver<Channel>> receivers;
    std::vector<Channel *> channels;
    for (std::uint32_t i = 0; i < noOfListeners; ++i) {
        channels.push_back(&transport.add(counting, {there}));
    }
    for (Channel *channel : channels) {
        receivers.emplace_back(*channel, firstCore());
    }
    for (auto _ : state) {
        countdown.start(noOfListeners);
        transport.sendToAll(there);
        countdown.wait();
    }
    for (Receiver<Channel> &receiver : receivers) {
        receiver.leave();
    }
    transport.sendToAll(there);
    for (Receiver<Channel> &receiver : receivers) {
        receiver.join();
    }
}

/// A thousand fires in a row, until the last callback ran.
template <class Transport>
Body stream(int core) {
    return [core](benchmark::State &state) {
        using Channel = typename Transport::Channel;
        Countdown countdown;
        SListenerCallback counting{&countdown, Countdown::count};
        Transport transport(1, 1);
        Channel &channel = transport.add(counting, {there});
        Receiver<Channel> receiver(channel, core);
        for (auto _ : state) {
            countdown.start(streamed);
            for (std::uint32_t i = 0; i < streamed; ++i) {
                channel.send(there);
            }
            countdown.wait();
        }
        receiver.leave();
        channel.send(there);
        receiver.join();
    };
}

void addRoundTrip(const std::string &where, double aim, int core) {
    Work work{"events", "fire to a listener's thread and an answer back, " + where};
    work.aim = aim;
    compare(work, Role::limit, "mq_send, mq_receive", fireAndAnswer<Transport<QueueChannel>>(core));
    compare(work, Role::library, "library", fireAndAnswer<LibraryTransport>(core));
    compare(work, Role::peer, "ZeroMQ PAIR", fireAndAnswer<Transport<ZeroMqChannel>>(core));
    compare(work, Role::peer, "GAsyncQueue", fireAndAnswer<Transport<GLibChannel>>(core));
    if (core == firstCore()) {
        compare(work, Role::peer, "D-Bus, peer to peer", callOverDBus);
    }
}

void addHalves(const std::string &until, Moment moment) {
    const Work work{"events", "fire to a listener's thread on one core, until " + until};
    constexpr auto clock = speed::Clock::manual;
    compare(work, Role::limit, "mq_send, mq_receive", fireUntil<Transport<QueueChannel>>(moment), clock);
    compare(work, Role::library, "library", fireUntil<LibraryTransport>(moment), clock);
    compare(work, Role::peer, "ZeroMQ PAIR", fireUntil<Transport<ZeroMqChannel>>(moment), clock);
    compare(work, Role::peer, "GAsyncQueue", fireUntil<Transport<GLibChannel>>(moment), clock);
}

void addStream(const std::string &where, double aim, int core) {
    Work work{"events", "stream to a listener's thread " + where};
    work.aim = aim;
    work.parts = streamed;
    work.partUnit = "event";
    compare(work, Role::limit, "mq_send, mq_receive", stream<Transport<QueueChannel>>(core));
    compare(work, Role::library, "library", stream<LibraryTransport>(core));
    compare(work, Role::peer, "ZeroMQ PAIR", stream<Transport<ZeroMqChannel>>(core));
    compare(work, Role::peer, "condition variable and deque", stream<Transport<DequeChannel>>(core));
}

} // namespace

void speed::addEventThreadRows() {
    const bool hasTwoCores = secondCore() != firstCore();
    addRoundTrip("both on one core", 1.05, firstCore());
    if (hasTwoCores) {
        addRoundTrip("each on a core of its own", 0, secondCore());
    }
    addHalves("the fire returns", Moment::fireReturns);
    addHalves("the callback runs", Moment::callbackRuns);

    Work many{"events", "one fire to 16 listeners' threads on one core, until the last callback"};
    many.aim = 1.05;
    compare(many, Role::limit, "16 mq_send, mq_receive", fireToMany<Transport<QueueChannel>>);
    compare(many, Role::library, "library", fireToMany<LibraryTransport>);
    compare(many, Role::peer, "ZeroMQ PUB and SUB", fireToMany<ZeroMqPublisher>);
    compare(many, Role::peer, "GAsyncQueue", fireToMany<Transport<GLibChannel>>);

    if (hasTwoCores) {
        addStream("on another core", 1.15, secondCore());
    }
    addStream("on the same core", 0, firstCore());
}
