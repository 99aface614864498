/// @file
/// The records behind the flat module manager.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "CModuleManager_c.h"

struct SModuleDescriptor {
    std::uint32_t id;
    std::string name;
    std::uint32_t state = MODULE_STATE_REGISTERED;
};

struct SGroupDescriptor {
    std::uint32_t id;
    std::string name;
};

struct SBatchEntry {
    std::uint32_t groupId;
    std::uint32_t phaseId;
};

struct SBatchDescriptor {
    std::uint32_t id;
    std::string name;
    std::vector<SBatchEntry> entries{}; ///< In insertion order.
};

struct SCallbackDescriptor {
    std::uint32_t moduleId;
    std::uint32_t radioChannel;
    SModuleCallback *callback; ///< The module's.
    ECallbackPriority priority;
    std::string name;
};

struct SPhaseDescriptor {
    std::uint32_t id;
    std::string name;
    std::vector<SCallbackDescriptor> callbacks{}; ///< In registration order.
};

/// Every list is in registration order, which is the order of search and of running. Groups, batches and
/// phases keep their address (their names are handed out, and a run holds on to them); modules lie side by
/// side, because a run searches them for each callback in each pass.
class CModuleManager_c {
public:
    std::vector<SModuleDescriptor> modules;
    std::list<SGroupDescriptor> groups;
    std::list<SBatchDescriptor> batches;
    std::list<SPhaseDescriptor> phases;
    SResetProvider *resetProvider = nullptr;

    /// Counts what could move or remove one module's record, so that a run notices it after a callback.
    std::uint32_t moduleChanges = 0;
    /// Counts how often everything was freed: a run that sees it change has lost all of its records.
    std::uint32_t timesEmptied = 0;

    /// Frees every record; the reset provider stays.
    void empty();

    /// The process's one registry, for tests of what the interface can not bring about.
    static CModuleManager_c &instance();
};
