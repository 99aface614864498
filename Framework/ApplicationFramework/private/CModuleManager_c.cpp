#include "CModuleManager_c.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <stdexcept>

#include "AfTrace.h"
#include "ModuleRegistry.h"
#include "OutOfMemory.h"

namespace {

/// Made at load and emptied at exit, but never destroyed: modules may still withdraw after that, from exit
/// handlers older than this library, and find an empty registry.
union RegistryStorage {
    CModuleManager_c registry;
    RegistryStorage() : registry() {}
    ~RegistryStorage() {}
};

RegistryStorage storage;
CModuleManager_c &registry = storage.registry;

struct EmptyAtExit {
    ~EmptyAtExit() { registry.empty(); }
} emptyAtExit;

template <class Records>
typename Records::value_type *find(Records &records, std::uint32_t id) {
    // Not a loop of its own: the standard library looks at several records a turn, and a run is mostly this.
    const auto found =
        std::find_if(records.begin(), records.end(), [id](const auto &record) { return record.id == id; });
    return found != records.end() ? &*found : nullptr;
}

/// The step that all four registrations share; each adds its own traces.
template <class Records>
EAFResult addRecord(Records &records, std::uint32_t id, const char *name) {
    if (name == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (find(records, id) != nullptr) {
        return eAF_W_ALREADY_REGISTERED;
    }
    return af::withOutOfMemoryAsCode([&] {
        records.push_back({id, name});
        return eAF_S_OK;
    });
}

/// A text without an owner, so that a run needs no memory to name a priority.
const char *priorityText(std::uint32_t priority) {
#define AF_PRIORITY_CASE(name, value)                                                                                  \
    case name:                                                                                                         \
        return #name;
    switch (priority) { AF_CALLBACK_PRIORITY_TABLE(AF_PRIORITY_CASE) }
#undef AF_PRIORITY_CASE
    return "UNKNOWN";
}

/// What a %ld or %d of a 32-bit id prints on the board, whatever the width of long here.
constexpr std::int32_t asSigned(std::uint32_t id) {
    return static_cast<std::int32_t>(id);
}

} // namespace

CModuleManager_c &CModuleManager_c::instance() {
    return registry;
}

void CModuleManager_c::empty() {
    phases.clear();
    batches.clear();
    groups.clear();
    modules = std::vector<SModuleDescriptor>();
    ++timesEmptied;
}

std::string getECallbackPriorityName(ECallbackPriority priority) {
    return priorityText(priority);
}

// Lifecycle

EAFResult CModuleManager_Initialize(void) {
    registry.resetProvider = nullptr;
    return eAF_S_OK;
}

EAFResult CModuleManager_Start(void) {
    return eAF_S_OK;
}

EAFResult CModuleManager_Stop(void) {
    return eAF_S_OK;
}

EAFResult CModuleManager_UnInitialize(void) {
    registry.empty();
    return eAF_S_OK;
}

// Registration

EAFResult CModuleManager_RegisterModule(uint32_t moduleId, const char *name) {
    const EAFResult result = addRecord(registry.modules, moduleId, name);
    if (result == eAF_W_ALREADY_REGISTERED) {
        AF_TRACE(result, "Module with id:%u name:%s already registered", moduleId, name);
    } else if (result == eAF_S_OK) {
        ++registry.moduleChanges;
        AF_TRACE(eAF_DEBUG, "  Register module %s, id %u", name, moduleId);
    }
    return result;
}

EAFResult CModuleManager_UnregisterModule(uint32_t moduleId) {
    const auto module = std::find_if(registry.modules.begin(), registry.modules.end(),
                                     [moduleId](const SModuleDescriptor &record) { return record.id == moduleId; });
    if (module == registry.modules.end()) {
        AF_TRACE(eAF_E_UNKNOWN_MODULE, "Attempt to unregister an unknown module");
        return eAF_E_UNKNOWN_MODULE;
    }
    for (SPhaseDescriptor &phase : registry.phases) {
        const auto ofModule = [moduleId](const SCallbackDescriptor &record) { return record.moduleId == moduleId; };
        phase.callbacks.erase(std::remove_if(phase.callbacks.begin(), phase.callbacks.end(), ofModule),
                              phase.callbacks.end());
    }
    AF_TRACE(eAF_DEBUG, "  Unregistered module: %s", module->name.c_str());
    registry.modules.erase(module);
    ++registry.moduleChanges;
    return eAF_S_OK;
}

EAFResult CModuleManager_RegisterGroup(uint32_t groupId, const char *name) {
    const EAFResult result = addRecord(registry.groups, groupId, name);
    if (result == eAF_W_ALREADY_REGISTERED) {
        AF_TRACE(result, "Group with id %u already registered", groupId);
    } else if (result == eAF_S_OK) {
        AF_TRACE(eAF_DEBUG, "  Registered group %s", name);
    }
    return result;
}

EAFResult CModuleManager_RegisterBatch(uint32_t batchId, const char *name) {
    const EAFResult result = addRecord(registry.batches, batchId, name);
    if (result == eAF_W_ALREADY_REGISTERED) {
        // The wording is settled, although the batch was found: log readers look for it.
        AF_TRACE(result, "Batch with id %u not found", batchId);
    } else if (result == eAF_S_OK) {
        AF_TRACE(eAF_DEBUG, "  Registered batch %s", name);
    }
    return result;
}

EAFResult CModuleManager_RegisterPhase(uint32_t phaseId, const char *name) {
    const EAFResult result = addRecord(registry.phases, phaseId, name);
    if (result == eAF_W_ALREADY_REGISTERED) {
        AF_TRACE(result, "Phase with id %u already registered", phaseId);
    }
    return result;
}

EAFResult CModuleManager_InsertPhaseIntoBatch(uint32_t phaseId, uint32_t groupId, uint32_t batchId) {
    SBatchDescriptor *batch = find(registry.batches, batchId);
    if (batch == nullptr) {
        AF_TRACE(eAF_E_FAILED, "Could not get batch with id = %u", batchId);
        return eAF_E_FAILED;
    }
    const SGroupDescriptor *group = find(registry.groups, groupId);
    if (group == nullptr) {
        AF_TRACE(eAF_E_FAILED, "Could not get group with id = %u", groupId);
        return eAF_E_FAILED;
    }
    const SPhaseDescriptor *phase = find(registry.phases, phaseId);
    if (phase == nullptr) {
        AF_TRACE(eAF_E_FAILED, "Could not get phase with id = %u", phaseId);
        return eAF_E_FAILED;
    }
    const EAFResult result = af::withOutOfMemoryAsCode([&] {
        batch->entries.push_back({groupId, phaseId});
        return eAF_S_OK;
    });
    if (result == eAF_S_OK) {
        AF_TRACE(eAF_DEBUG, "  Inserted phase %s into batch %s for group %s", phase->name.c_str(), batch->name.c_str(),
                 group->name.c_str());
    }
    return result;
}

EAFResult CModuleManager_GetPhaseName(uint32_t phaseId, const char **name) {
    if (name == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *name = nullptr;
    const SPhaseDescriptor *phase = find(registry.phases, phaseId);
    if (phase == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_PHASE, "Phase with id %u not found", phaseId);
        return eAF_E_UNKNOWN_PHASE;
    }
    *name = phase->name.c_str();
    return eAF_S_OK;
}

EAFResult CModuleManager_GetPriorityName(int32_t priority, const char **name) {
    if (name == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    // Compared signed: a negative priority has the name of an unknown one, it is not refused.
    if (priority > static_cast<std::int32_t>(LOWEST)) {
        *name = nullptr;
        return eAF_E_FAILED;
    }
    *name = priorityText(static_cast<std::uint32_t>(priority));
    return eAF_S_OK;
}

uint32_t CModuleManager_GetNumberOfRegisteredModules(void) {
    return static_cast<std::uint32_t>(registry.modules.size());
}

// Callbacks

namespace {

/// A callback descriptor and the phase that it is for.
struct PreparedCallback {
    SPhaseDescriptor *phase;
    SCallbackDescriptor descriptor;
};

/// Makes room for one more, doubling: what follows can then be moved in without asking for memory.
template <class Vector>
void reserveOneMore(Vector &vector) {
    if (vector.size() == vector.capacity()) {
        vector.reserve(std::max<std::size_t>(4, 2 * vector.size()));
    }
}

} // namespace

EAFResult CModuleManager_RegisterCallback(uint32_t moduleId, const char *callbackName, uint32_t radioChannel,
                                          SModuleCallback *callback, ECallbackPriority priority, uint32_t batchId,
                                          const uint32_t *phaseFilter, uint32_t phaseFilterCount) {
    if ((phaseFilterCount != 0) != (phaseFilter != nullptr)) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (find(registry.modules, moduleId) == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_MODULE, "Could not get module with id = %u", moduleId);
        return eAF_E_UNKNOWN_MODULE;
    }
    const SBatchDescriptor *batch = find(registry.batches, batchId);
    if (batch == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_BATCH, "Could not get batch with id = %d", asSigned(batchId));
        return eAF_E_UNKNOWN_BATCH;
    }
    return af::withOutOfMemoryAsCode([&] {
        // All memory is asked for before the first phase changes, so that running out of it changes nothing.
        // An unregistered phase is another matter: the phases before it keep what they got.
        std::vector<PreparedCallback> prepared;
        const SBatchEntry *unregistered = nullptr;
        for (const SBatchEntry &entry : batch->entries) {
            if (phaseFilter != nullptr && std::find(phaseFilter, phaseFilter + phaseFilterCount, entry.phaseId) ==
                                              phaseFilter + phaseFilterCount) {
                continue;
            }
            SPhaseDescriptor *phase = find(registry.phases, entry.phaseId);
            if (phase == nullptr) {
                unregistered = &entry;
                break;
            }
            if (std::any_of(prepared.begin(), prepared.end(),
                            [phase](const PreparedCallback &other) { return other.phase == phase; })) {
                continue;
            }
            if (callbackName == nullptr) {
                throw std::logic_error("CModuleManager_RegisterCallback: the callback name is null");
            }
            reserveOneMore(phase->callbacks);
            prepared.push_back({phase, {moduleId, radioChannel, callback, priority, callbackName}});
        }
        for (PreparedCallback &each : prepared) {
            each.phase->callbacks.push_back(std::move(each.descriptor));
        }
        if (unregistered != nullptr) {
            AF_TRACE_AS("CModuleManager_RegisterCallback", eAF_E_FAILED, "Could not get phase with id = %lu",
                        static_cast<unsigned long>(unregistered->phaseId));
            return eAF_E_FAILED;
        }
        return eAF_S_OK;
    });
}

// The group runner

namespace {

constexpr char runnerLabel[] = "CModuleManager_RunGroupWithReturnOption";

bool isRadioChannel(std::uint32_t channel) {
    return (channel >= 1 && channel <= 4) || channel == ALL_RADIO_CHANNELS;
}

bool matchesChannel(std::uint32_t ofCallback, std::uint32_t ofRun) {
    return ofRun == ALL_RADIO_CHANNELS || ofCallback == ALL_RADIO_CHANNELS || ofCallback == ofRun;
}

EAFResult call(const SModuleCallback *callback, std::uint32_t phaseId, ECallbackPriority priority) {
    if (callback == nullptr || callback->function == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return callback->function(callback->context, phaseId, priority);
}

/// The modules of a phase's callbacks, one search after the other. Callbacks mostly come in the order of their modules:
/// each search begins where the last one ended, and goes around. Only a place, right or wrong: the ids decide.
class ModuleSearch {
public:
    SModuleDescriptor *find(std::uint32_t id) {
        std::vector<SModuleDescriptor> &modules = registry.modules;
        const auto hasId = [id](const SModuleDescriptor &module) { return module.id == id; };
        const auto start = modules.begin() + static_cast<std::ptrdiff_t>(std::min(m_place, modules.size()));
        auto found = std::find_if(start, modules.end(), hasId);
        if (found == modules.end()) {
            found = std::find_if(modules.begin(), start, hasId);
            if (found == start) {
                return nullptr;
            }
        }
        m_place = static_cast<std::size_t>(found - modules.begin());
        return &*found;
    }

private:
    std::size_t m_place = 0;
};

/// The phases of a run, in the same way: a batch mostly has them in the order of their registration. A phase keeps its
/// place until everything is freed, which ends the run.
class PhaseSearch {
public:
    SPhaseDescriptor *find(std::uint32_t id) {
        std::list<SPhaseDescriptor> &phases = registry.phases;
        const auto hasId = [id](const SPhaseDescriptor &phase) { return phase.id == id; };
        auto found = std::find_if(m_place, phases.end(), hasId);
        if (found == phases.end()) {
            found = std::find_if(phases.begin(), m_place, hasId);
            if (found == m_place) {
                return nullptr;
            }
        }
        m_place = found;
        return &*found;
    }

private:
    std::list<SPhaseDescriptor>::iterator m_place = registry.phases.begin();
};

/// One descriptor whose turn has come. Names and records are asked for anew when the callback changed the
/// registry under the run.
/// @return whether the callback succeeded.
bool runCallback(const SPhaseDescriptor &phase, const SCallbackDescriptor &descriptor, SModuleDescriptor *module,
                 bool stopAtFirstFailure) {
    AF_TRACE_AS(runnerLabel, eAF_DEBUG, "  Call module: %s", module->name.c_str());
    AF_TRACE_AS(runnerLabel, eAF_DEBUG, "    with callback: %s and Priority: %s", descriptor.name.c_str(),
                priorityText(descriptor.priority));

    const std::uint32_t moduleId = module->id;
    const ECallbackPriority priority = descriptor.priority;
    const std::uint32_t changesBefore = registry.moduleChanges;
    const std::uint32_t emptiedBefore = registry.timesEmptied;
    const EAFResult result = call(descriptor.callback, phase.id, priority);
    if (registry.timesEmptied != emptiedBefore) {
        return false;
    }
    if (registry.moduleChanges != changesBefore) {
        module = find(registry.modules, moduleId);
    }
    if (module != nullptr) {
        module->state = af::isError(result) ? MODULE_STATE_PHASE_FAILED : MODULE_STATE_PHASE_OK;
    }
    if (!af::isError(result)) {
        return true;
    }
    // A run that stops here reports a warning: its caller gets the failure at once and decides.
    AF_TRACE_AS(runnerLabel, stopAtFirstFailure ? eAF_W_WARNING : eAF_E_FAILED,
                "***Application error*** - Module: %s, Phase: %s, Priority: %s, Error: %X",
                module != nullptr ? module->name.c_str() : "", phase.name.c_str(), priorityText(priority), result);
    return false;
}

/// All passes of one phase.
/// @return whether the phase is registered and no callback failed.
bool runPhase(PhaseSearch &phases, std::uint32_t phaseId, std::uint32_t channel, bool stopAtFirstFailure) {
    const SPhaseDescriptor *phase = phases.find(phaseId);
    if (phase == nullptr) {
        AF_TRACE_AS(runnerLabel, eAF_E_UNKNOWN_PHASE, "Could not find phase with id = %u", phaseId);
        return false;
    }
    AF_TRACE_AS(runnerLabel, eAF_DEBUG, "PHASE: %s", phase->name.c_str());
    const std::uint32_t emptiedBefore = registry.timesEmptied;
    ModuleSearch modules;
    bool succeeded = true;
    for (std::uint32_t priority = HIGHEST; priority <= LOWEST; ++priority) {
        // By index: a callback that registers or unregisters may move the descriptors.
        for (std::size_t i = 0; i < phase->callbacks.size(); ++i) {
            const SCallbackDescriptor &descriptor = phase->callbacks[i];
            // The module is looked up before the priority is judged, so every pass reports a missing one.
            SModuleDescriptor *module = modules.find(descriptor.moduleId);
            if (module == nullptr) {
                AF_TRACE_AS(runnerLabel, eAF_E_UNKNOWN_MODULE, "Module with id %lu not found",
                            static_cast<unsigned long>(descriptor.moduleId));
                continue;
            }
            if (descriptor.priority != priority || !matchesChannel(descriptor.radioChannel, channel)) {
                continue;
            }
            if (runCallback(*phase, descriptor, module, stopAtFirstFailure)) {
                continue;
            }
            succeeded = false;
            if (stopAtFirstFailure || registry.timesEmptied != emptiedBefore) {
                return false;
            }
        }
    }
    return succeeded;
}

} // namespace

EAFResult CModuleManager_RunGroupWithReturnOption(uint32_t groupId, uint32_t radioChannel, uint32_t returnOption) {
    const SGroupDescriptor *group = find(registry.groups, groupId);
    if (group == nullptr) {
        AF_TRACE(eAF_E_FAILED, "Could not get group element with id %u", groupId);
        return eAF_E_FAILED;
    }
    if (!isRadioChannel(radioChannel)) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "invalid channel: %d", asSigned(radioChannel));
        return eAF_E_INVALID_ARGUMENT;
    }
    AF_TRACE(eAF_DEBUG, "GROUP: %s", group->name.c_str());
    const std::uint32_t emptiedBefore = registry.timesEmptied;
    EAFResult result = eAF_S_OK;
    PhaseSearch phases;
    for (const SBatchDescriptor &batch : registry.batches) {
        AF_TRACE(eAF_DEBUG, "  Running batch %s", batch.name.c_str());
        for (std::size_t i = 0; i < batch.entries.size(); ++i) {
            const SBatchEntry entry = batch.entries[i];
            if (entry.groupId != groupId) {
                continue;
            }
            const bool succeeded = runPhase(phases, entry.phaseId, radioChannel, returnOption != 0);
            if (registry.timesEmptied != emptiedBefore) {
                return eAF_E_FAILED;
            }
            if (succeeded) {
                continue;
            }
            AF_TRACE(eAF_W_WARNING, "%s, Error running group: %s, phase: %ld", runnerLabel, group->name.c_str(),
                     static_cast<long>(asSigned(entry.phaseId)));
            if (returnOption != 0) {
                return eAF_E_FAILED;
            }
            result = eAF_E_FAILED;
        }
    }
    return result;
}

EAFResult CModuleManager_RunGroup(uint32_t groupId, uint32_t radioChannel) {
    return CModuleManager_RunGroupWithReturnOption(groupId, radioChannel, 0);
}

// Reset gateway

EAFResult CModuleManager_RegisterResetProvider(SResetProvider *provider) {
    if (provider == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    registry.resetProvider = provider;
    return eAF_S_OK;
}

EAFResult CModuleManager_PerformSystemReset(uint32_t first, uint32_t second, uint32_t third) {
    const SResetProvider *provider = registry.resetProvider;
    if (provider == nullptr) {
        return eAF_E_NOT_REGISTERED;
    }
    if (provider->performSystemReset == nullptr || af::isError(provider->performSystemReset(first, second, third))) {
        AF_TRACE(eAF_E_FAILED, "Error when calling Reset Provider to perform system reset");
    }
    return eAF_S_OK;
}

EAFResult CModuleManager_GetSystemResetInfo(void *first, void *second, uint32_t third) {
    if (first == nullptr || second == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    const SResetProvider *provider = registry.resetProvider;
    if (provider == nullptr) {
        return eAF_E_NOT_REGISTERED;
    }
    if (provider->getSystemResetInfo == nullptr || af::isError(provider->getSystemResetInfo(first, second, third))) {
        AF_TRACE(eAF_E_FAILED, "Error when calling Reset Info Provider");
    }
    return eAF_S_OK;
}

uint32_t CModuleManager_IsColdReset(void) {
    SResetProvider *provider = registry.resetProvider;
    if (provider == nullptr || provider->isColdReset == nullptr) {
        return 0;
    }
    return provider->isColdReset(provider);
}

// Module states and statistics

EAFResult CModuleManager_SetModuleState(uint32_t moduleId, uint32_t state) {
    SModuleDescriptor *module = find(registry.modules, moduleId);
    if (module == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_MODULE, "Module with id %u not found", moduleId);
        return eAF_E_UNKNOWN_MODULE;
    }
    module->state = state;
    return eAF_S_OK;
}

EAFResult CModuleManager_QueryModuleState(uint32_t moduleId, uint32_t *state) {
    if (state == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *state = 0;
    const SModuleDescriptor *module = find(registry.modules, moduleId);
    if (module == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_MODULE, "Module with id %u not found", moduleId);
        return eAF_E_UNKNOWN_MODULE;
    }
    *state = module->state;
    return eAF_S_OK;
}

EAFResult CModuleManager_GetStatistics(void *) {
    return eAF_E_NOT_IMPLEMENTED;
}

EAFResult CModuleManager_GetModuleStatisticsByIndex(uint32_t, void *) {
    return eAF_E_NOT_IMPLEMENTED;
}

EAFResult CModuleManager_GetModuleStatisticsByName(const char *, void *) {
    return eAF_E_NOT_IMPLEMENTED;
}

EAFResult CModuleManager_ResetStatistics(void) {
    return eAF_S_OK;
}
