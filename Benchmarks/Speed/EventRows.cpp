// Events within one thread: what a fire and its callback cost, and what the data that travels along does.
#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "Channels.h"
#include "Comparison.h"

using namespace speed;

namespace {

/// What every callback does: it counts, and looks at the data that came along.
struct Counter {
    std::uint64_t calls = 0;
    std::uint64_t sum = 0;

    static EAFResult count(void *context, std::uint32_t event, void *data, SListenerCallback * /*self*/) {
        auto *counter = static_cast<Counter *>(context);
        ++counter->calls;
        counter->sum += data != nullptr ? *static_cast<const unsigned char *>(data) : event;
        return eAF_S_OK;
    }
};

void requireCalls(benchmark::State &state, const Counter &counter, std::uint64_t callsPerIteration) {
    if (counter.calls != static_cast<std::uint64_t>(state.iterations()) * callsPerIteration) {
        state.SkipWithError("not every message came back as one call");
    }
}

/// As many events as the cache holds, in an order that no branch predictor knows at once.
std::vector<std::uint32_t> shuffledEvents() {
    constexpr std::uint32_t cached = 64;
    std::vector<std::uint32_t> events(cached);
    for (std::uint32_t i = 0; i < cached; ++i) {
        events[i] = EventService::firstEvent + i;
    }
    std::shuffle(events.begin(), events.end(),
                 std::mt19937(1)); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
    return events;
}

template <class Transport>
void fireInOneThread(benchmark::State &state) {
    const std::vector<std::uint32_t> events = shuffledEvents();
    Counter counter;
    SListenerCallback callback{&counter, Counter::count};
    Transport transport(static_cast<std::uint32_t>(events.size()), 1);
    auto &channel = transport.add(callback, events);
    // The order of the first fires is the order of the cache's slots.
    for (std::uint32_t i = 0; i < events.size(); ++i) {
        channel.send(EventService::firstEvent + i);
        channel.receive();
    }
    counter.calls = 0;
    std::size_t next = 0;
    for (auto _ : state) {
        channel.send(events[next]);
        channel.receive();
        next = (next + 1) % events.size();
    }
    requireCalls(state, counter, 1);
}

/// What channels without a copy of their own do with data.
template <class Channel>
void receiveCopy(Channel &channel) {
    channel.receive();
}

void receiveCopy(ZeroMqChannel &channel) {
    channel.receiveCopy();
}

template <class Transport>
Body copyTo(std::uint32_t noOfListeners, std::uint32_t size) {
    return [noOfListeners, size](benchmark::State &state) {
        const std::vector<char> data(size, 'x');
        const std::vector<std::uint32_t> events = {EventService::firstEvent};
        Counter counter;
        SListenerCallback callback{&counter, Counter::count};
        Transport transport(1, noOfListeners);
        std::vector<typename Transport::Channel *> channels;
        for (std::uint32_t i = 0; i < noOfListeners; ++i) {
            channels.push_back(&transport.add(callback, events));
        }
        for (auto _ : state) {
            transport.sendCopyToAll(events.front(), data.data(), size);
            for (auto *channel : channels) {
                receiveCopy(*channel);
            }
        }
        requireCalls(state, counter, noOfListeners);
    };
}

} // namespace

void speed::addEventRows() {
    Work work{"events", "fire, receive and call back in one thread"};
    work.aim = 1.05;
    compare(work, Role::limit, "mq_send, mq_receive", fireInOneThread<Transport<QueueChannel>>);
    compare(work, Role::library, "library", fireInOneThread<LibraryTransport>);
    compare(work, Role::peer, "UNIX datagram pair", fireInOneThread<Transport<SocketChannel>>);
    compare(work, Role::peer, "ZeroMQ PAIR", fireInOneThread<Transport<ZeroMqChannel>>);
    compare(work, Role::peer, "GAsyncQueue", fireInOneThread<Transport<GLibChannel>>);

    for (const std::uint32_t listeners : {1U, 16U}) {
        for (const std::uint32_t size : {64U, 4096U, 65536U}) {
            Work copies{"events", "copied data to " + std::to_string(listeners) +
                                      (listeners == 1 ? " listener" : " listeners") + " in one thread"};
            copies.size = size;
            copies.sizeUnit = "bytes";
            copies.aim = 1.10;
            compare(copies, Role::limit, "allocation, copy, mq_send, mq_receive",
                    copyTo<Transport<QueueChannel>>(listeners, size));
            compare(copies, Role::library, "library", copyTo<LibraryTransport>(listeners, size));
            compare(copies, Role::peer, "ZeroMQ PAIR", copyTo<Transport<ZeroMqChannel>>(listeners, size));
        }
    }
}
