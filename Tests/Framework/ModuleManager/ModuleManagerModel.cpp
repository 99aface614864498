#include "ModuleManagerModel.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace test {

namespace {

constexpr std::uint32_t debug = 0x800;
constexpr std::uint32_t warning = 0x1000;
constexpr std::uint32_t alreadyRegistered = 0x1001;
constexpr std::uint32_t failed = 0x8000;
constexpr std::uint32_t invalidArgument = 0x8006;
constexpr std::uint32_t notRegistered = 0x8007;
constexpr std::uint32_t unknownBatch = 0x8009;
constexpr std::uint32_t unknownPhase = 0x800B;
constexpr std::uint32_t unknownModule = 0x800C;

std::string text(std::uint32_t number) {
    return std::to_string(number);
}
std::string signedText(std::uint32_t number) {
    return std::to_string(static_cast<std::int32_t>(number));
}

std::string hexadecimal(std::uint32_t code) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%X", code);
    return digits;
}

} // namespace

std::string ModuleManagerModel::priorityName(std::uint32_t priority) {
    static const std::vector<std::string> names{"HIGHEST", "HIGH",  "HIGHER_THAN_NORMAL", "NORMAL", "LOWER_THAN_NORMAL",
                                                "LOW",     "LOWEST"};
    return priority < names.size() ? names[priority] : "UNKNOWN";
}

std::uint32_t ModuleManagerModel::report(const std::string &message, std::uint32_t code) {
    lines.push_back({function, message, code});
    return code;
}

ModuleManagerModel::Batch *ModuleManagerModel::batchOf(Id id) {
    for (Batch &batch : batches) {
        if (batch.id == id) {
            return &batch;
        }
    }
    return nullptr;
}

ModuleManagerModel::Phase *ModuleManagerModel::phaseOf(Id id) {
    for (Phase &phase : phases) {
        if (phase.id == id) {
            return &phase;
        }
    }
    return nullptr;
}

std::uint32_t ModuleManagerModel::registerModule(Id id, const std::string &name) {
    function = "CModuleManager_RegisterModule";
    if (!modules.insert({id, {name, 1}}).second) {
        return report("Module with id:" + text(id) + " name:" + name + " already registered", alreadyRegistered);
    }
    report("  Register module " + name + ", id " + text(id), debug);
    return 0;
}

std::uint32_t ModuleManagerModel::registerGroup(Id id, const std::string &name) {
    function = "CModuleManager_RegisterGroup";
    if (!groups.insert({id, name}).second) {
        return report("Group with id " + text(id) + " already registered", alreadyRegistered);
    }
    report("  Registered group " + name, debug);
    return 0;
}

std::uint32_t ModuleManagerModel::registerBatch(Id id, const std::string &name) {
    function = "CModuleManager_RegisterBatch";
    if (batchOf(id) != nullptr) {
        return report("Batch with id " + text(id) + " not found", alreadyRegistered);
    }
    batches.push_back({id, name, {}});
    report("  Registered batch " + name, debug);
    return 0;
}

std::uint32_t ModuleManagerModel::registerPhase(Id id, const std::string &name) {
    function = "CModuleManager_RegisterPhase";
    if (phaseOf(id) != nullptr) {
        return report("Phase with id " + text(id) + " already registered", alreadyRegistered);
    }
    phases.push_back({id, name, {}});
    return 0;
}

std::uint32_t ModuleManagerModel::insertPhaseIntoBatch(Id phaseId, Id groupId, Id batchId) {
    function = "CModuleManager_InsertPhaseIntoBatch";
    Batch *batch = batchOf(batchId);
    if (batch == nullptr) {
        return report("Could not get batch with id = " + text(batchId), failed);
    }
    if (groups.count(groupId) == 0) {
        return report("Could not get group with id = " + text(groupId), failed);
    }
    const Phase *phase = phaseOf(phaseId);
    if (phase == nullptr) {
        return report("Could not get phase with id = " + text(phaseId), failed);
    }
    batch->entries.emplace_back(groupId, phaseId);
    report("  Inserted phase " + phase->name + " into batch " + batch->name + " for group " + groups[groupId], debug);
    return 0;
}

std::uint32_t ModuleManagerModel::registerCallback(Id moduleId, const std::string &name, std::uint32_t channel,
                                                   std::size_t callback, std::uint32_t priority, Id batchId,
                                                   const Filter &filter) {
    function = "CModuleManager_RegisterCallback";
    if (filter.given == filter.phases.empty()) {
        return invalidArgument;
    }
    if (modules.count(moduleId) == 0) {
        return report("Could not get module with id = " + text(moduleId), unknownModule);
    }
    const Batch *batch = batchOf(batchId);
    if (batch == nullptr) {
        return report("Could not get batch with id = " + signedText(batchId), unknownBatch);
    }
    const std::set<Id> wanted(filter.phases.begin(), filter.phases.end());
    std::set<Id> served;
    for (const auto &[groupId, phaseId] : batch->entries) {
        if (filter.given && wanted.count(phaseId) == 0) {
            continue;
        }
        Phase *phase = phaseOf(phaseId);
        if (phase == nullptr) {
            return report("Could not get phase with id = " + text(phaseId), failed);
        }
        if (served.insert(phaseId).second) {
            phase->callbacks.push_back({moduleId, channel, callback, priority, name});
        }
    }
    return 0;
}

std::uint32_t ModuleManagerModel::registerNamelessCallback(Id moduleId, Id batchId, bool &isCopied) {
    function = "CModuleManager_RegisterCallback";
    isCopied = false;
    if (modules.count(moduleId) == 0) {
        return report("Could not get module with id = " + text(moduleId), unknownModule);
    }
    const Batch *batch = batchOf(batchId);
    if (batch == nullptr) {
        return report("Could not get batch with id = " + signedText(batchId), unknownBatch);
    }
    if (batch->entries.empty()) {
        return 0;
    }
    const Id first = batch->entries.front().second;
    isCopied = phaseOf(first) != nullptr;
    return isCopied ? 0 : report("Could not get phase with id = " + text(first), failed);
}

std::uint32_t ModuleManagerModel::unregisterModule(Id id) {
    function = "CModuleManager_UnregisterModule";
    const auto module = modules.find(id);
    if (module == modules.end()) {
        return report("Attempt to unregister an unknown module", unknownModule);
    }
    for (Phase &phase : phases) {
        std::vector<Descriptor> kept;
        for (const Descriptor &descriptor : phase.callbacks) {
            if (descriptor.moduleId != id) {
                kept.push_back(descriptor);
            }
        }
        phase.callbacks = kept;
    }
    report("  Unregistered module: " + module->second.name, debug);
    modules.erase(module);
    return 0;
}

bool ModuleManagerModel::callOne(const Phase &phase, const Descriptor &descriptor, Module &module, bool stopAtOnce) {
    report("  Call module: " + module.name, debug);
    report("    with callback: " + descriptor.name + " and Priority: " + priorityName(descriptor.priority), debug);
    std::uint32_t answer = invalidArgument;
    if (descriptor.callback != nobody) {
        calls.push_back({descriptor.callback, phase.id, descriptor.priority});
        answer = answers.at(descriptor.callback);
    }
    const bool well = answer < 0x8000;
    module.state = well ? 3 : 9;
    if (!well) {
        report("***Application error*** - Module: " + module.name + ", Phase: " + phase.name +
                   ", Priority: " + priorityName(descriptor.priority) + ", Error: " + hexadecimal(answer),
               stopAtOnce ? warning : failed);
    }
    return well;
}

bool ModuleManagerModel::runPhase(Phase &phase, std::uint32_t channel, bool stopAtOnce) {
    report("PHASE: " + phase.name, debug);
    bool well = true;
    for (std::uint32_t pass = 0; pass < 7; ++pass) {
        for (const Descriptor &descriptor : phase.callbacks) {
            const auto module = modules.find(descriptor.moduleId);
            if (module == modules.end()) {
                report("Module with id " + text(descriptor.moduleId) + " not found", unknownModule);
                continue;
            }
            const bool onChannel = channel == 100 || descriptor.channel == 100 || channel == descriptor.channel;
            if (descriptor.priority != pass || !onChannel) {
                continue;
            }
            if (!callOne(phase, descriptor, module->second, stopAtOnce)) {
                well = false;
                if (stopAtOnce) {
                    return false;
                }
            }
        }
    }
    return well;
}

std::uint32_t ModuleManagerModel::runGroup(Id groupId, std::uint32_t channel, std::uint32_t option) {
    function = "CModuleManager_RunGroupWithReturnOption";
    const auto group = groups.find(groupId);
    if (group == groups.end()) {
        return report("Could not get group element with id " + text(groupId), failed);
    }
    static const std::set<std::uint32_t> channels{1, 2, 3, 4, 100};
    if (channels.count(channel) == 0) {
        return report("invalid channel: " + signedText(channel), invalidArgument);
    }
    report("GROUP: " + group->second, debug);
    std::uint32_t result = 0;
    for (const Batch &batch : batches) {
        report("  Running batch " + batch.name, debug);
        for (const auto &[ofGroup, phaseId] : batch.entries) {
            if (ofGroup != groupId) {
                continue;
            }
            Phase *phase = phaseOf(phaseId);
            if (phase == nullptr) {
                report("Could not find phase with id = " + text(phaseId), unknownPhase);
            } else if (runPhase(*phase, channel, option != 0)) {
                continue;
            }
            report(function + ", Error running group: " + group->second + ", phase: " + signedText(phaseId), warning);
            result = failed;
            if (option != 0) {
                return result;
            }
        }
    }
    return result;
}

std::uint32_t ModuleManagerModel::setModuleState(Id id, std::uint32_t state) {
    function = "CModuleManager_SetModuleState";
    const auto module = modules.find(id);
    if (module == modules.end()) {
        return report("Module with id " + text(id) + " not found", unknownModule);
    }
    module->second.state = state;
    return 0;
}

std::uint32_t ModuleManagerModel::queryModuleState(Id id, std::uint32_t &state) {
    function = "CModuleManager_QueryModuleState";
    const auto module = modules.find(id);
    state = module != modules.end() ? module->second.state : 0;
    return module != modules.end() ? 0 : report("Module with id " + text(id) + " not found", unknownModule);
}

std::uint32_t ModuleManagerModel::getPhaseName(Id id, std::string &name) {
    function = "CModuleManager_GetPhaseName";
    const Phase *phase = phaseOf(id);
    if (phase == nullptr) {
        return report("Phase with id " + text(id) + " not found", unknownPhase);
    }
    name = phase->name;
    return 0;
}

std::uint32_t ModuleManagerModel::perform(const std::string &operation, const std::string &failure,
                                          std::uint32_t answer) {
    if (!hasResetProvider) {
        return notRegistered;
    }
    if (answer >= failed) {
        function = operation;
        report(failure, failed);
    }
    return 0;
}

std::uint32_t ModuleManagerModel::refuse(const std::string &operation, const std::string &message) {
    function = operation;
    return report(message, invalidArgument);
}

void ModuleManagerModel::unInitialize() {
    groups.clear();
    batches.clear();
    phases.clear();
    modules.clear();
}

void ModuleManagerModel::forceEntry(std::size_t batch, Id groupId, Id phaseId) {
    batches.at(batch).entries.emplace_back(groupId, phaseId);
}

void ModuleManagerModel::forceCallback(std::size_t phase, Id moduleId, std::uint32_t channel, std::size_t callback,
                                       std::uint32_t priority, const std::string &name) {
    phases.at(phase).callbacks.push_back({moduleId, channel, callback, priority, name});
}

} // namespace test
