// What a fire spends on finding its event, beside the calls of the system that follow it.
#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "CEventCache.h"
#include "Channels.h"
#include "Comparison.h"

using namespace speed;

namespace {

constexpr std::uint32_t slots = 64;

EAFResult ignore(void * /*context*/, std::uint32_t /*event*/, void * /*data*/, SListenerCallback * /*self*/) {
    return eAF_S_OK;
}

void sendAndReceive(benchmark::State &state) {
    SListenerCallback ignoring{nullptr, ignore};
    QueueChannel channel(ignoring);
    for (auto _ : state) {
        channel.send(EventService::firstEvent);
        channel.receive();
    }
}

Body hitInSlot(std::uint32_t slot) {
    return [slot](benchmark::State &state) {
        CEventCache cache;
        CEventCache_Construct(&cache, slots);
        for (std::uint32_t i = 0; i < slots; ++i) {
            CEventCache_Add(&cache, EventService::firstEvent + i, i);
        }
        std::uint32_t key = EventService::firstEvent + slot;
        std::uint32_t value = 0;
        for (auto _ : state) {
            benchmark::DoNotOptimize(key);
            benchmark::DoNotOptimize(CEventCache_IsHit(&cache, key, &value));
        }
        if (value != slot) {
            state.SkipWithError("the cache tells another slot");
        }
        CEventCache_Destruct(&cache);
    };
}

/// Nobody listens: a fire ends when it knows its event. Each of the last events in turn, one more than the cache has
/// slots, and so each fire searches the registry.
Body missAmong(std::uint32_t noOfEvents) {
    return [noOfEvents](benchmark::State &state) {
        const EventService service(noOfEvents, 1);
        constexpr std::uint32_t fired = slots + 1;
        const std::uint32_t first = EventService::firstEvent + noOfEvents - fired;
        CEventHandler_ResetStatistics();
        std::uint32_t next = 0;
        for (auto _ : state) {
            CEventHandler_FireEvent(first + next);
            next = next + 1 < fired ? next + 1 : 0;
        }
        SEventHandlerStatistics statistics{};
        CEventHandler_GetStatistics(&statistics);
        if (statistics.noOfCacheMisses != static_cast<std::uint32_t>(state.iterations())) {
            state.SkipWithError("not every fire missed the cache");
        }
    };
}

/// As above, with one event that stays in the cache's first or last slot.
Body unheardFire(std::uint32_t slot) {
    return [slot](benchmark::State &state) {
        const EventService service(slots, 1);
        for (std::uint32_t i = 0; i < slots; ++i) {
            CEventHandler_FireEvent(EventService::firstEvent + i);
        }
        std::uint32_t event = EventService::firstEvent + slot;
        for (auto _ : state) {
            benchmark::DoNotOptimize(event);
            CEventHandler_FireEvent(event);
        }
    };
}

/// A fire and a pump each count themselves in and out of the registry, and the pump is counted.
void addFiveTimes(benchmark::State &state) {
    std::atomic<std::uint32_t> pins{0};
    std::atomic<std::uint32_t> pumped{0};
    for (auto _ : state) {
        pins.fetch_add(1);
        pins.fetch_sub(1);
        pins.fetch_add(1);
        pumped.fetch_add(1, std::memory_order_relaxed);
        pins.fetch_sub(1);
    }
    benchmark::DoNotOptimize(pumped.load());
}

} // namespace

void speed::addEventLookUpRows() {
    const Work atomics{"events", "the five atomic additions of a fire and a pump"};
    compare(atomics, Role::limit, "mq_send, mq_receive beside it", sendAndReceive);
    compare(atomics, Role::library, "the additions alone", addFiveTimes);
    for (const auto &[place, slot] : {std::pair{"first", 0U}, std::pair{"last", slots - 1}}) {
        Work hit{"events", std::string("look an event up: in the cache's ") + place + " slot"};
        hit.aim = 0.02;
        compare(hit, Role::limit, "mq_send, mq_receive beside it", sendAndReceive);
        compare(hit, Role::library, "CEventCache_IsHit", hitInSlot(slot));
        compare(hit, Role::library, "a fire that nobody hears", unheardFire(slot));
    }
    for (const std::uint32_t noOfEvents : {100U, 1000U, 10000U}) {
        Work miss{"events", "look an event up: a fire that nobody hears and that misses the cache"};
        miss.size = noOfEvents;
        miss.sizeUnit = "events";
        compare(miss, Role::limit, "mq_send, mq_receive beside it", sendAndReceive);
        compare(miss, Role::library, "library", missAmong(noOfEvents));
    }
}
