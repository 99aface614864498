// The documented start of a host, with what each service takes from the heap on the way; Documentation/Footprint.md
// describes the host and keeps the figures.
#include <mqueue.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "CApplicationFramework.h"
#include "CEventHandler.h"
#include "CFrameworkUtils.h"
#include "CStorageManager.h"
#include "HeapCount.h"
#include "ModuleInterface.h"

namespace {

constexpr unsigned noOfModules = 100;
constexpr unsigned noOfEvents = 500;
constexpr unsigned noOfListeners = 50;
constexpr unsigned noOfVariables = 1000;

constexpr unsigned noOfFilterEvents = 20;
constexpr unsigned noOfRegions = 10;
constexpr unsigned noOfObjects = 100;
constexpr unsigned noOfVariablesPerObject = noOfVariables / noOfObjects;

constexpr std::uint32_t startGroup = 0;
constexpr std::uint32_t stopGroup = 1;
constexpr std::uint32_t batch = 1;

struct Phase {
    std::uint32_t id;
    std::uint32_t group;
    const char *name;
};

constexpr Phase phases[] = {{0, startGroup, "RegisterStorageObjects"},
                            {5, startGroup, "StorageObjectsRetrieved"},
                            {11, startGroup, "ModuleInit"},
                            {13, startGroup, "Start"},
                            {16, stopGroup, "Stop"}};

[[noreturn]] void giveUp(const char *step, EAFResult result) {
    std::fprintf(stderr, "FootprintHost: %s failed with %#x; VOXTRACE_LEVEL=warning tells more\n", step,
                 static_cast<unsigned>(result));
    if (result == eAF_E_QUEUE_CREATION_FAILED) {
        std::fprintf(stderr,
                     "It takes %u message queues, of those that fs.mqueue.queues_max allows to the machine. "
                     "Killed hosts leave theirs behind: they lie in /dev/mqueue, once that is mounted.\n",
                     noOfListeners + 1);
    }
    std::exit(1);
}

void require(const char *step, EAFResult result) {
    if (result >= eAF_W_WARNING) {
        giveUp(step, result);
    }
}

/// A name as controllers have them: a word, a number, longer than a std::string holds without the heap.
using Name = std::array<char, 32>;

Name numbered(const char *word, unsigned number) {
    Name name{};
    std::snprintf(name.data(), name.size(), "%s%03u", word, number);
    return name;
}

/// Calls a step and keeps what it took.
class Ledger {
public:
    template <class Step>
    void enter(const char *service, const char *part, Step step) {
        const HeapCount before = heapInUse();
        step();
        const HeapCount after = heapInUse();
        m_rows[m_count++] = {service, part, after.blocks - before.blocks, after.bytes - before.bytes};
    }

    /// One line each: service, part, blocks, bytes, separated by tabs.
    void print() const {
        for (std::size_t i = 0; i < m_count; ++i) {
            std::printf("%s\t%s\t%zu\t%zu\n", m_rows[i].service, m_rows[i].part, m_rows[i].blocks, m_rows[i].bytes);
        }
    }

private:
    struct Row {
        const char *service;
        const char *part;
        std::size_t blocks;
        std::size_t bytes;
    };
    std::array<Row, 16> m_rows{}; // no memory of its own that would be counted
    std::size_t m_count = 0;
};

// Modules

class Module : public ModuleInterface {
public:
    Module(unsigned id, const char *name, const unsigned *filter, unsigned filterSize)
        : ModuleInterface(deferred_registration_tag{}, id, name, ALL_RADIO_CHANNELS, batch, filter, filterSize) {}

    EAFResult onModuleRegisterStorageObjects() override { return called(); }
    EAFResult onPhaseModuleStorageObjectsRetrieved() override { return called(); }
    EAFResult onModuleInit() override { return called(); }
    EAFResult onPhaseStart() override { return called(); }
    EAFResult onPhaseStop() override { return called(); }

    unsigned calls = 0;

private:
    EAFResult called() {
        ++calls;
        return eAF_S_OK;
    }
};

std::array<std::optional<Module>, noOfModules> modules;

void registerConfiguration() {
    require("group", CModuleManager_RegisterGroup(startGroup, "Start"));
    require("group", CModuleManager_RegisterGroup(stopGroup, "Stop"));
    require("batch", CModuleManager_RegisterBatch(batch, "Main"));
    for (const Phase &phase : phases) {
        require("phase", CModuleManager_RegisterPhase(phase.id, phase.name));
        require("phase of the batch", CModuleManager_InsertPhaseIntoBatch(phase.id, phase.group, batch));
    }
}

void makeModules() {
    std::array<unsigned, std::size(phases)> filter{};
    for (std::size_t i = 0; i < filter.size(); ++i) {
        filter[i] = phases[i].id;
    }
    for (unsigned i = 0; i < noOfModules; ++i) {
        modules[i].emplace(i + 1, numbered("PowerAmplifier", i).data(), filter.data(),
                           static_cast<unsigned>(filter.size()));
    }
}

void registerModules() {
    for (std::optional<Module> &module : modules) {
        require("module", module->RegisterModule());
    }
}

// Events

EAFResult onEvent(void * /*context*/, std::uint32_t /*eventId*/, void * /*data*/, SListenerCallback * /*self*/) {
    return eAF_S_OK;
}

SListenerCallback listenerCallback{nullptr, onEvent};
std::array<std::array<std::uint32_t, noOfFilterEvents>, noOfListeners> filters;

void registerEvents() {
    for (unsigned event = 1; event <= noOfEvents; ++event) {
        require("event", CEventHandler_RegisterEvent(event, numbered("Event", event).data()));
    }
}

/// Each event has two listeners.
void addListeners() {
    std::uint32_t next = 0;
    for (unsigned i = 0; i < noOfListeners; ++i) {
        for (std::uint32_t &event : filters[i]) {
            event = next++ % noOfEvents + 1;
        }
        std::uint32_t handle = 0;
        require("listener", CEventHandler_AddListener(&listenerCallback, filters[i].data(), noOfFilterEvents,
                                                      numbered("Listener", i).data(), &handle));
    }
}

void unlinkQueue(const char *suffix) {
    std::array<char, 256> queue{};
    CFrameworkUtils_GetMQueueName(queue.data(), static_cast<std::int32_t>(queue.size()), suffix);
    mq_unlink(queue.data());
}

/// At the exit, also of a host that gave up: the listeners' queues outlive their process, the event task's does where
/// the event service was not uninitialized.
void unlinkQueues() {
    for (unsigned i = 0; i < noOfListeners; ++i) {
        unlinkQueue(numbered("Listener", i).data());
    }
    unlinkQueue("EHNP");
}

// Storage

constexpr unsigned long location = 1;
constexpr unsigned long providerId = 1;

/// The memory of objects, regions and contents is the host's own, as in a controller.
std::array<CStorageRegion, noOfRegions> regions;
std::array<CStorageObject, noOfObjects> objects;
std::array<std::int32_t, noOfVariables> contents;
const std::int32_t defaultContent = 20;

EAFResult initializeStore(unsigned long /*locationId*/) {
    return eAF_S_OK;
}

EAFResult reserveSpace(unsigned long /*locationId*/, unsigned long /*size*/) {
    return eAF_S_OK;
}

EAFResult storeNothing(unsigned long /*locationId*/, CDatabase * /*database*/, unsigned long /*locationData*/) {
    return eAF_S_OK;
}

/// An empty store: every variable takes its default.
EAFResult retrieveNothing(unsigned long /*locationId*/, CDatabase *database, unsigned long /*locationData*/) {
    const EAFResult result = CDatabase_SetAsNotRetrieved(database);
    return result < eAF_E_FAILED ? CDatabase_SetNotRetrievedVariablesToDefault(database) : result;
}

IStorageProvider provider{initializeStore, reserveSpace, storeNothing, retrieveNothing};

void registerLocation() {
    require("location", CStorageManager_RegisterLocation(location, "configuration", noOfVariables, 0));
    require("provider", CStorageManager_RegisterStorageProvider(&provider, providerId, "none"));
    require("assignment", CStorageManager_AssignStorageProviderToLocation(location, providerId));
}

void createVariables() {
    for (unsigned i = 0; i < noOfObjects; ++i) {
        CStorageObject_Construct(&objects[i], numbered("Object", i).data());
        for (unsigned k = 0; k < noOfVariablesPerObject; ++k) {
            const Name name = numbered("Variable", k);
            SVariableDescriptor descriptor{
                &contents[i * noOfVariablesPerObject + k], TYPE_INT32, 1, name.data(),
                const_cast<std::int32_t *>(&defaultContent)}; // NOLINT: the record knows no const
            require("variable", CStorageObject_CreateVariables(&objects[i], &descriptor, 1));
        }
    }
}

void registerRegions() {
    for (unsigned i = 0; i < noOfRegions; ++i) {
        CStorageRegion_Construct(&regions[i], numbered("Region", i).data(), location);
        for (unsigned k = 0; k < noOfObjects / noOfRegions; ++k) {
            require("object", CStorageRegion_AddObject(&regions[i], &objects[i * (noOfObjects / noOfRegions) + k]));
        }
        require("region", CStorageManager_RegisterRegion(&regions[i]));
    }
}

void retrieve() {
    require("providers", CStorageManager_InitializeAllProviders());
    require("retrieval", CStorageManager_RetrieveAll());
    for (const std::int32_t content : contents) {
        if (content != defaultContent) {
            giveUp("taking the defaults", eAF_E_FAILED);
        }
    }
}

// The host

SApplicationDescriptor application{[] { return eAF_S_OK; }, [] { return "Footprint"; }};

void start() {
    require("start", CApplicationFramework_Start());
    for (const std::optional<Module> &module : modules) {
        if (module->calls != std::size(phases) - 1) {
            giveUp("calling every module in every phase", eAF_E_FAILED);
        }
    }
}

void stop() {
    require("stop", CApplicationFramework_Stop());
    require("end of the storage", CStorageManager_Uninitialize());
    for (std::optional<Module> &module : modules) {
        module.reset();
    }
    require("end of the framework", CApplicationFramework_UnInitialize());
    require("end of the module manager", CModuleManager_UnInitialize());
}

} // namespace

int main() {
    // The port keeps the queues apart from those of another host. The first look at the user's name makes the C
    // library read its databases: what it keeps of them is not the framework's.
    require("server port", CApplicationFramework_SetServerPort(static_cast<std::int32_t>(getpid() % 0x10000)));
    std::array<char, 256> queueName{};
    require("queue name",
            CFrameworkUtils_GetMQueueName(queueName.data(), static_cast<std::int32_t>(queueName.size()), "warm"));
    std::atexit(unlinkQueues);
    Ledger ledger;
    ledger.enter("events", "room for events and listeners, event task", [] {
        require("module manager", CModuleManager_Initialize());
        require("event service", CEventHandler_Initialize(noOfEvents, noOfListeners));
    });
    ledger.enter("applications", "application list", [] {
        require("framework", CApplicationFramework_Initialize());
        require("application", CApplicationFramework_RegisterApplication(&application));
    });
    ledger.enter("modules", "groups, batch, phases", registerConfiguration);
    ledger.enter("modules", "names and filters of the module objects", makeModules);
    ledger.enter("modules", "modules and callbacks", registerModules);
    ledger.enter("events", "events", registerEvents);
    ledger.enter("events", "listeners", addListeners);
    ledger.enter("storage", "location and provider", registerLocation);
    ledger.enter("storage", "variables", createVariables);
    ledger.enter("storage", "regions", registerRegions);
    ledger.enter("storage", "paths", [] { require("paths", CStorageManager_UpdatePathHashTable()); });
    ledger.enter("storage", "retrieval", retrieve);
    ledger.enter("start", "start of every application and module", start);
    ledger.print();
    stop();
    return 0;
}
