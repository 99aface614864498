/// @file
/// What the module manager is expected to do, written apart from it: codes, calls, states and traces.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "TraceRecorder.h"

namespace test {

/// A registry in memory of its own. Names are never null here but where an operation says so, and a callback is a
/// number; what it answers is asked of `answers` when it is called.
class ModuleManagerModel {
public:
    using Id = std::uint32_t;
    /// A callback that is null, or has no function.
    static constexpr std::size_t nobody = ~std::size_t{0};

    struct Call {
        std::size_t callback;
        Id phaseId;
        std::uint32_t priority;
    };

    /// The two kinds of filter that there are: none, or a list that may even be empty.
    struct Filter {
        bool given;
        std::vector<Id> phases;
    };

    std::uint32_t registerModule(Id id, const std::string &name);
    std::uint32_t registerGroup(Id id, const std::string &name);
    std::uint32_t registerBatch(Id id, const std::string &name);
    std::uint32_t registerPhase(Id id, const std::string &name);
    std::uint32_t insertPhaseIntoBatch(Id phaseId, Id groupId, Id batchId);
    std::uint32_t registerCallback(Id moduleId, const std::string &name, std::uint32_t channel, std::size_t callback,
                                   std::uint32_t priority, Id batchId, const Filter &filter);
    /// A callback for all phases of a batch, whose name is null. @param isCopied  receives whether the name is come to.
    std::uint32_t registerNamelessCallback(Id moduleId, Id batchId, bool &isCopied);
    std::uint32_t unregisterModule(Id id);
    std::uint32_t runGroup(Id groupId, std::uint32_t channel, std::uint32_t option);
    std::uint32_t setModuleState(Id id, std::uint32_t state);
    std::uint32_t queryModuleState(Id id, std::uint32_t &state);
    std::uint32_t getPhaseName(Id id, std::string &name);
    /// An operation of the reset provider, which gives that answer.
    std::uint32_t perform(const std::string &operation, const std::string &failure, std::uint32_t answer);
    /// An operation of the classes that was given null.
    std::uint32_t refuse(const std::string &operation, const std::string &message);
    static std::string priorityName(std::uint32_t priority);
    std::size_t numberOfModules() const { return modules.size(); }
    void unInitialize();

    /// What the interface can not produce: an entry whatever is registered, a callback of whatever module.
    /// Batch and phase are named by their place in the order of registration.
    void forceEntry(std::size_t batch, Id groupId, Id phaseId);
    void forceCallback(std::size_t phase, Id moduleId, std::uint32_t channel, std::size_t callback,
                       std::uint32_t priority, const std::string &name);
    std::size_t numberOfBatches() const { return batches.size(); }
    std::size_t numberOfPhases() const { return phases.size(); }

    bool hasResetProvider = false;

    /// Of each callback.
    std::vector<std::uint32_t> answers;

    /// What happened since these were last cleared.
    std::vector<Line> lines;
    std::vector<Call> calls;

private:
    struct Module {
        std::string name;
        std::uint32_t state;
    };
    struct Batch {
        Id id;
        std::string name;
        std::vector<std::pair<Id, Id>> entries; // group, phase
    };
    struct Descriptor {
        Id moduleId;
        std::uint32_t channel;
        std::size_t callback;
        std::uint32_t priority;
        std::string name;
    };
    struct Phase {
        Id id;
        std::string name;
        std::vector<Descriptor> callbacks;
    };

    std::uint32_t report(const std::string &message, std::uint32_t code);
    Batch *batchOf(Id id);
    Phase *phaseOf(Id id);
    bool runPhase(Phase &phase, std::uint32_t channel, bool stopAtOnce);
    bool callOne(const Phase &phase, const Descriptor &descriptor, Module &module, bool stopAtOnce);

    std::string function; // of the operation under way
    std::map<Id, Module> modules;
    std::map<Id, std::string> groups;
    std::vector<Batch> batches;
    std::vector<Phase> phases;
};

} // namespace test
