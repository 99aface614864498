#include <array>
#include <cstdint>
#include <deque>

#include "CModuleManager_c.h"
#include "Measure.h"
#include "ModuleInterface.h"

namespace instructions {

namespace {

constexpr std::uint32_t noOfModules = 100;
constexpr std::uint32_t noOfPhases = 10;
constexpr std::uint32_t firstPhase = 100; ///< None of those that ModuleInterface has handlers for.
constexpr std::uint32_t group = 0;
constexpr std::uint32_t classGroup = 1;
constexpr std::uint32_t batch = 1;
constexpr std::uint32_t classBatch = 2;
constexpr std::uint32_t startPhase = 13;

std::uint32_t noOfCalls;

EAFResult onPhase(void * /*context*/, std::uint32_t /*phaseId*/, ECallbackPriority /*priority*/) {
    ++noOfCalls;
    return eAF_S_OK;
}

SModuleCallback callback{nullptr, onPhase};

class Module : public ModuleInterface {
public:
    explicit Module(unsigned id)
        : ModuleInterface(id, numbered("PowerAmplifier", id), ALL_RADIO_CHANNELS, classBatch, &startPhase, 1) {}
    EAFResult onPhaseStart() override {
        ++noOfCalls;
        return eAF_S_OK;
    }
};

void registerModule(std::uint32_t id) {
    require("registering a module", CModuleManager_RegisterModule(id, numbered("PowerAmplifier", id).c_str()));
}

void registerCallback(std::uint32_t id, std::uint32_t channel) {
    require("registering a callback",
            CModuleManager_RegisterCallback(id, numbered("OnPhaseOfPowerAmplifier", id).c_str(), channel, &callback,
                                            NORMAL, batch, nullptr, 0));
}

void start() {
    require("a group", CModuleManager_RegisterGroup(group, "Start"));
    require("a group", CModuleManager_RegisterGroup(classGroup, "StartOfClasses"));
    require("a batch", CModuleManager_RegisterBatch(batch, "Main"));
    require("a batch", CModuleManager_RegisterBatch(classBatch, "Classes"));
    for (std::uint32_t i = 0; i < noOfPhases; ++i) {
        require("a phase", CModuleManager_RegisterPhase(firstPhase + i, numbered("Phase", i).c_str()));
        require("a batch's phase", CModuleManager_InsertPhaseIntoBatch(firstPhase + i, group, batch));
    }
    require("a phase", CModuleManager_RegisterPhase(startPhase, "Start"));
    require("a batch's phase", CModuleManager_InsertPhaseIntoBatch(startPhase, classGroup, classBatch));
    for (std::uint32_t id = 1; id <= noOfModules; ++id) {
        registerModule(id);
        registerCallback(id, id % 2 == 0 ? 2 : ALL_RADIO_CHANNELS);
    }
}

void run(std::uint32_t ofGroup, std::uint32_t channel, std::uint32_t expectedCalls) {
    const std::uint32_t before = noOfCalls;
    require("a run", CModuleManager_RunGroup(ofGroup, channel));
    require("calling each callback", noOfCalls == before + expectedCalls);
}

void runs() {
    measure("callback of a run, 10 phases x 100 modules", noOfPhases * noOfModules,
            [] { run(group, ALL_RADIO_CHANNELS, noOfPhases * noOfModules); });
    measure("descriptor of a run for one channel, half of them for another", noOfPhases * noOfModules,
            [] { run(group, 1, noOfPhases * noOfModules / 2); });
}

void registrations() {
    std::uint32_t id = noOfModules;
    measure("register a module, 100 to 210 registered", 10, [&id] {
        for (int i = 0; i < 10; ++i) {
            registerModule(++id);
        }
    });
    std::uint32_t ofCallback = noOfModules;
    measure("register a callback for 10 phases", 10, [&ofCallback] {
        for (int i = 0; i < 10; ++i) {
            registerCallback(++ofCallback, ALL_RADIO_CHANNELS);
        }
    });
    measure("unregister the last of 210 modules", 10, [&id] {
        for (int i = 0; i < 10; ++i) {
            require("unregistering", CModuleManager_UnregisterModule(id--));
        }
    });
    measure("state of the last of 100 modules, set and asked", 100, [] {
        for (int i = 0; i < 100; ++i) {
            std::uint32_t state = 0;
            require("setting", CModuleManager_SetModuleState(noOfModules, MODULE_STATE_PHASE_OK));
            require("asking", CModuleManager_QueryModuleState(noOfModules, &state));
        }
    });
    measure("name of the last of 11 phases", 100, [] {
        for (int i = 0; i < 100; ++i) {
            const char *name = nullptr;
            require("asking", CModuleManager_GetPhaseName(startPhase, &name));
        }
    });
}

void classes() {
    std::deque<Module> modules;
    std::uint32_t id = 1000;
    measure("make a ModuleInterface, 100 to 210 registered", 10, [&] {
        for (int i = 0; i < 10; ++i) {
            modules.emplace_back(++id);
        }
    });
    const auto noOfClasses = static_cast<std::uint32_t>(modules.size());
    measure("handler of a run, 110 ModuleInterfaces", noOfClasses,
            [noOfClasses] { run(classGroup, ALL_RADIO_CHANNELS, noOfClasses); });
    measure("destroy the last of 110 ModuleInterfaces", 10, [&modules] {
        for (int i = 0; i < 10; ++i) {
            modules.pop_back();
        }
    });
}

} // namespace

void modulePaths() {
    require("the module manager", CModuleManager_Initialize());
    start();
    runs();
    registrations();
    classes();
    require("the end of the module manager", CModuleManager_UnInitialize());
    // Nothing is registered: what is left is the report, which nobody wants to see.
    measure("report that no level enables", 100, [] {
        for (int i = 0; i < 100; ++i) {
            require("unregistering", CModuleManager_UnregisterModule(1) == eAF_E_UNKNOWN_MODULE);
        }
    });
}

} // namespace instructions
