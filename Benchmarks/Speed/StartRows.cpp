// Starts: the framework's share of the example host's life, and the room that the event service makes.
#include <mqueue.h>
#include <unistd.h>

#include <malloc.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CApplicationFramework.h"
#include "CFrameworkUtils.h"
#include "CModuleManager_c.h"
#include "Comparison.h"
#include "Configuration.h"
#include "EventService.h"
#include "ProviderKeepers.h"
#include "StorageRows.h"
#include "StoreFolder.h"

using namespace speed;

namespace {

using std::chrono::steady_clock;

/// What the process has taken from the heap.
double heapInUse() {
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
}

EAFResult onPhase(void * /*context*/, std::uint32_t /*phase*/, ECallbackPriority /*priority*/) {
    return eAF_S_OK;
}

EAFResult onEvent(void * /*context*/, std::uint32_t /*event*/, void * /*data*/, SListenerCallback * /*self*/) {
    return eAF_S_OK;
}

SModuleCallback moduleCallback{nullptr, onPhase};
SListenerCallback listenerCallback{nullptr, onEvent};
SApplicationDescriptor application{[] { return eAF_S_OK; }, [] { return "Speed"; }};
constexpr std::array listeners{LISTENER_EVENT_LOG, LISTENER_ALARM_COLLECTOR, LISTENER_BOARD_SUPERVISION,
                               LISTENER_PARAMETER_STORE};

void registerConfiguration() {
    for (const SNamedId &each : radio::groups()) {
        require("group", CModuleManager_RegisterGroup(each.id, each.name));
    }
    for (const SNamedId &each : radio::batches()) {
        require("batch", CModuleManager_RegisterBatch(each.id, each.name));
    }
    for (const SNamedId &each : radio::phases()) {
        require("phase", CModuleManager_RegisterPhase(each.id, each.name));
    }
    for (const SPhaseLink &each : radio::phaseLinks()) {
        require("phase of a batch", CModuleManager_InsertPhaseIntoBatch(each.phaseId, each.groupId, each.batchId));
    }
    for (const SNamedId &each : radio::events()) {
        require("event", CEventHandler_RegisterEvent(each.id, each.name));
    }
}

/// @param copies  how often each module of the controller is there.
void registerModules(std::uint32_t copies) {
    constexpr std::uint32_t idsOfCopy = 100;
    for (std::uint32_t copy = 0; copy < copies; ++copy) {
        for (const SModuleConfiguration &module : radio::moduleTable()) {
            const std::uint32_t id = copy * idsOfCopy + module.id;
            require("module", CModuleManager_RegisterModule(id, module.name));
            for (std::size_t i = 0; i < module.subscriptionCount; ++i) {
                const SSubscription &each = module.subscriptions[i];
                require("callback",
                        CModuleManager_RegisterCallback(id, module.name, module.radioChannel, &moduleCallback,
                                                        each.priority, each.batchId, each.phases, each.phaseCount));
            }
        }
    }
}

void addListeners() {
    for (const char *name : listeners) {
        std::uint32_t handle = 0;
        require("listener", CEventHandler_AddListener(&listenerCallback, nullptr, 0, name, &handle));
    }
}

void closeListeners() {
    for (const char *listener : listeners) {
        std::array<char, 256> name{};
        CFrameworkUtils_GetMQueueName(name.data(), static_cast<std::int32_t>(name.size()), listener);
        mq_unlink(name.data());
        closeQueue(name.data());
    }
}

/// What a host keeps from one start to the next.
struct Kept {
    explicit Kept(std::size_t count) : values(count) { makeKeeper()->store(); }
    std::unique_ptr<Keeper> makeKeeper() { return makeSqliteProvider(values, folder.path()); }

    Values values;
    StoreFolder folder;
};

/// From the first call of a host to the last, with nothing of the host's own in between.
/// @param valuesOfModule  0: the host has no storage. With one it retrieves before it starts, and when it stops it
///                        stores what has changed, which is how often it was started.
Body startToStop(std::uint32_t copies, std::size_t valuesOfModule) {
    return [copies, valuesOfModule](benchmark::State &state) {
        endLookUps();
        endProviders();
        std::optional<Kept> kept;
        if (valuesOfModule != 0) {
            kept.emplace(valuesOfModule * copies * radio::moduleTable().size());
        }
        CModuleManager_UnInitialize();
        require("server port", CApplicationFramework_SetServerPort(static_cast<std::int32_t>(getpid() % 0x10000)));
        const std::size_t threads = threadCount();
        const double heapBefore = heapInUse();
        double heap = 0;
        for (auto _ : state) {
            const steady_clock::time_point begin = steady_clock::now();
            require("module manager", CModuleManager_Initialize());
            require("event service", CEventHandler_Initialize(static_cast<std::uint32_t>(radio::events().size()),
                                                              static_cast<std::uint32_t>(listeners.size())));
            require("framework", CApplicationFramework_Initialize());
            registerConfiguration();
            require("application", CApplicationFramework_RegisterApplication(&application));
            registerModules(copies);
            addListeners();
            std::unique_ptr<Keeper> keeper;
            if (kept.has_value()) {
                keeper = kept->makeKeeper();
                keeper->retrieve();
            }
            require("start", CApplicationFramework_Start());
            const steady_clock::time_point started = steady_clock::now();
            heap = heapInUse() - heapBefore;
            const steady_clock::time_point looked = steady_clock::now();
            if (keeper != nullptr) {
                kept->values.changeOne();
                keeper->store();
            }
            require("stop", CApplicationFramework_Stop());
            keeper.reset();
            require("end of the framework", CApplicationFramework_UnInitialize());
            require("end of the module manager", CModuleManager_UnInitialize());
            const steady_clock::time_point end = steady_clock::now();
            state.SetIterationTime(std::chrono::duration<double>(end - looked + (started - begin)).count());
            closeListeners();
            waitForThreads(threads);
        }
        state.counters["heap"] = heap;
    };
}

/// @param alsoRegisters  whether each event is registered too.
Body initializeEvents(std::uint32_t noOfEvents, std::uint32_t noOfListeners, bool alsoRegisters) {
    return [=](benchmark::State &state) {
        require("server port", CApplicationFramework_SetServerPort(static_cast<std::int32_t>(getpid() % 0x10000)));
        // A host makes room once. From the second time on the allocator would keep blocks of this size, and clear them.
        constexpr int asAtTheFirstTime = 128 * 1024;
        mallopt(M_MMAP_THRESHOLD, asAtTheFirstTime);
        const std::size_t threads = threadCount();
        double heap = 0;
        for (auto _ : state) {
            const double heapBefore = heapInUse();
            const steady_clock::time_point begin = steady_clock::now();
            require("event service", CEventHandler_Initialize(noOfEvents, noOfListeners));
            for (std::uint32_t event = 0; alsoRegisters && event < noOfEvents; ++event) {
                CEventHandler_RegisterEvent(EventService::firstEvent + event, "Event");
            }
            state.SetIterationTime(std::chrono::duration<double>(steady_clock::now() - begin).count());
            heap = heapInUse() - heapBefore;
            CEventHandler_UnInitialize();
            waitForThreads(threads);
        }
        state.counters["heap"] = heap;
    };
}

} // namespace

void speed::addStartRows() {
    const auto modules = static_cast<std::uint32_t>(radio::moduleTable().size());
    for (const std::size_t valuesOfModule : {0U, 3U}) {
        for (const std::uint32_t copies : {1U, 10U, 100U}) {
            Work work{"start", std::string("the example's host, ") +
                                   (valuesOfModule == 0 ? "without storage" : "three variables a module in SQLite") +
                                   ", from its first call to its last"};
            work.size = std::uint64_t{copies} * modules;
            work.sizeUnit = "modules";
            compare(work, Role::library, "library", startToStop(copies, valuesOfModule), Clock::manual);
        }
    }
    constexpr std::uint32_t listenersToBe = 100;
    for (const bool alsoRegisters : {false, true}) {
        for (const std::uint32_t events : {10U, 100U, 1000U, 10000U}) {
            Work work{"start", std::string("CEventHandler_Initialize with room for 100 listeners") +
                                   (alsoRegisters ? ", and every event registered" : "")};
            work.size = events;
            work.sizeUnit = "events";
            compare(work, Role::library, "library", initializeEvents(events, listenersToBe, alsoRegisters),
                    Clock::manual);
        }
    }
}
