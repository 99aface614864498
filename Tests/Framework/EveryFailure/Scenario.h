/// @file
/// A host's whole life, step by step: every flat operation and every class of the interface, in an order in which a
/// host calls them. A test makes something fail in the middle of it, looks at what the step answered and left, and
/// lets the host do the step again; from there on everything has to be as if nothing had happened.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "EAFResult.h"
#include "IStorageProvider.h"
#include "SStorageStatistics.h"
#include "VariableStore.h"

namespace test {

/// What a step answers when the allocator's exception came out of it.
constexpr std::uint32_t thrownBadAlloc = 0xBAD0A110;

/// What a step answers whose worker did not do its part.
constexpr std::uint32_t unsettled = 0xBAD0DEAD;

struct Step {
    enum class Memory {
        none,    ///< The operation needs none, so that nothing of it can be refused.
        needed,  ///< It answers one of `withoutMemory`; if that is an error, all is as before.
        ignored, ///< Its answer need not tell: the step is done again, whatever it was.
    };

    std::string operation;
    std::function<std::uint32_t()> run;
    std::uint32_t expected = eAF_S_OK;
    Memory memory = Memory::none;
    std::vector<std::uint32_t> withoutMemory;
    /// The operation's description says what stays after it failed; what stays is not compared as a whole.
    bool leavesSomething = false;
    /// Whether what stays is what the description says; memory that ran out may take more.
    std::function<bool(bool isOutOfMemory)> isLeftAsDescribed;
    /// Of a variable that a list could not take: it stays as it is, and nobody has it.
    bool losesWhatTheListRefused = false;
    /// It reads or writes the store: the calls below that may fail it.
    bool isOfTheStore = false;
    /// When it answers eAF_S_OK the store holds what stands in the host's variables.
    bool stores = false;
    /// What a host does before it tries again.
    std::function<void()> undo;
    /// Whether it may be done at all: a pump that nobody has fired for would wait for ever.
    std::function<bool()> isReady;
    /// Waits for what workers do when it succeeds. @return whether they did.
    std::function<bool()> settle;
    const char *unsettledBy = nullptr; ///< After whose failure they do it later.
    /// Of a step that answers nothing: whether it had no effect, and is done again.
    std::function<bool()> hadNoEffect;

    /// What it answers when a system's call fails inside it; without an entry, nothing else than ever.
    struct CallFailure {
        const char *call;
        std::vector<std::uint32_t> answers;
        const char *trace; ///< Part of a message that has to be there; null for none.
    };
    std::vector<CallFailure> onFailingCall;

    /// @return what the step answered, or what tells that nobody answered to it.
    std::uint32_t settled(std::uint32_t code) const {
        return code != expected || !settle || settle() ? code : unsettled;
    }

    Step &needs(std::vector<std::uint32_t> codes = {eAF_E_OUT_OF_MEMORY});
    Step &ignores(std::vector<std::uint32_t> codes = {});
    Step &answers(std::uint32_t code);
    Step &leaves();
    Step &leavesOnly(std::function<bool(bool isOutOfMemory)> what);
    Step &loses();
    Step &undoneBy(std::function<void()> what);
    Step &after(std::function<bool()> what);
    Step &settles(std::function<bool()> what);
    Step &settlesLaterAfter(const char *call);
    Step &usesTheStore();
    Step &storesWhenItSaysSo();
    Step &isUnansweredWhen(std::function<bool()> what);
    Step &onCall(const char *call, std::vector<std::uint32_t> codes, const char *trace = nullptr);
};

/// Where the host keeps its variables.
struct Backend {
    const char *name;
    enum Operation { setFileName, closeName, statisticsName };
    std::array<const char *, 3> operations;
    IStorageProvider *(*table)();
    EAFResult (*setFile)(unsigned long locationId, const char *file);
    EAFResult (*close)();
    EAFResult (*statistics)(unsigned long locationId, SStorageStatistics *statistics);
    /// Reads a store past the provider.
    EAFResult (*read)(const std::string &file, storage::StoredValues &values);
    /// The calls below it whose failure a store or a retrieve may answer.
    bool keepsFiles;
    /// Others may let it keep a log of what is written.
    bool keepsLog;
};

/// In memory, without memory of its own.
const Backend &memoryBackend();
const Backend &sqliteBackend();
const Backend &fileBackend();

class Scenario {
public:
    /// @param folder  for the stores; empty when they are kept in memory.
    Scenario(const Backend &backend, std::string folder);
    ~Scenario();
    Scenario(const Scenario &) = delete;
    Scenario &operator=(const Scenario &) = delete;

    const std::vector<Step> &steps() const { return m_steps; }

    /// Everything that a host can see of the library now.
    std::string state();

    /// What the stores hold, read past the host: the generation of all values, or what is wrong.
    std::string stored();

    /// What a store would hold that has taken everything that stands in the host's variables.
    std::string inVariables() const;

    /// @return how the store belies what the step has answered; empty when it does not.
    std::string notAsAnswered(const Step &step, std::uint32_t code);

    /// After the last step, or instead of those that are left: whatever is still there is taken down, also when a step
    /// did not do what it should.
    /// @return the names of queues that the library was to remove and did not, and whatever else is left.
    std::string tearDown();

    struct Parts;

private:
    Step &add(const char *operation, std::function<std::uint32_t()> run);
    void addFramework();
    void addModules();
    void addModuleClasses();
    void addEvents();
    void addTask();
    void addCache();
    void addVariables();
    void addObjectsAndRegions();
    void addDatabase();
    void addStorage();
    void addSetFile();
    void addNewStart(std::function<bool()> meanwhile);
    void addStores();
    void addStorageClasses();
    void addBroker();
    void addEnd();

    const Backend &m_backend;
    std::string m_folder;
    std::string m_store;
    std::string m_link; ///< To the store.
    std::string m_name; ///< Of the link, as the host knows it: from its own folder on.
    std::vector<Step> m_steps;
    Parts *m_parts;
};

/// Waits for what another thread is about to do, many times in a life: at first without a pause.
bool soon(const std::function<bool()> &condition);

/// Waits until there are so many worker threads.
/// @return whether it came to that.
bool workersAre(std::size_t number);

} // namespace test
