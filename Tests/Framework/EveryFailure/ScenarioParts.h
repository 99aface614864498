/// @file
/// What the host of the scenario keeps for the library, and what it has heard of it.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include "AfResult.h"
#include "CApplicationFramework.h"
#include "CDatabase.h"
#include "CEventCache.h"
#include "CEventHandler.h"
#include "CEventTask.h"
#include "CFrameworkUtils.h"
#include "CModuleManager.h"
#include "CModuleManagerRegistrator.h"
#include "CStorageManager.h"
#include "InterfaceBroker.h"
#include "ModuleInterface.h"
#include "SLocationDescriptor.h"
#include "SProviderDescriptor.h"
#include "Scenario.h"

namespace test {

/// What is no result code: a step whose answer was right and whose effect was not.
constexpr std::uint32_t wrongEffect = 0xBAD0EFFE;

// Texts and ids that need memory of their own in whoever copies them.
inline const std::string longName = "a name that is longer than any small buffer of the library's strings";

/// Calls in their order; takes no memory.
struct CallLog {
    std::array<std::uint32_t, 64> entries{};
    std::size_t count = 0;
    void add(std::uint32_t entry) {
        if (count < entries.size()) {
            entries[count++] = entry;
        }
    }
    bool isExactly(std::initializer_list<std::uint32_t> expected) const;
};

struct HeardEvent {
    std::uint32_t eventId = 0;
    void *data = nullptr;
    std::array<char, 8> bytes{};
};

struct ScenarioListener {
    explicit ScenarioListener(const char *listenerName);
    std::string name;
    SListenerCallback callback{};
    std::uint32_t handle = ~0u;
    std::uint32_t noOfHeard = 0;
    HeardEvent last;
    /// Messages in its queue; -1 without a queue.
    long waiting() const;
};

class ScenarioModule : public ModuleInterface {
public:
    ScenarioModule(std::uint32_t id, CallLog &log);
    ScenarioModule(deferred_registration_tag tag, std::uint32_t id, CallLog &log);
    EAFResult onPhaseStart() override;
    EAFResult onPhaseStop() override;

private:
    CallLog &m_log;
};

struct Scenario::Parts {
    Parts();

    // The framework
    std::array<std::int32_t, 9> configuration{};

    // Modules
    CallLog phases;
    SModuleCallback callback{};
    std::array<unsigned int, 2> filter{13, 16};
    SResetProvider resetProvider{};
    std::optional<ScenarioModule> module;
    std::optional<ScenarioModule> deferred;
    std::optional<CModuleManagerRegistrator> registrator;
    std::optional<CModuleManagerRegistrator> movedTo;

    // Events
    ScenarioListener greedy{"Greedy"};
    ScenarioListener unfiltered{"Unfiltered"};
    std::array<std::uint32_t, 5> greedyFilter{2, 2, 2, 2, 3};
    SEventDataMessage message{};
    CEventTask task{};
    ITask *operations = nullptr;
    bool isTaskCreated = false;
    std::uint64_t takenBefore = 0; ///< Messages that workers had taken when the last one was put into a queue.
    CEventCache cache{};

    // Storage
    static constexpr unsigned long locationId = 1;
    static constexpr std::uint32_t blobSize = 300;
    static constexpr std::size_t noOfStored = 7;
    static constexpr std::int32_t generationOfDefaults = 5;
    std::array<std::int32_t, 4> numbers{};
    std::array<std::int32_t, 4> defaults{};
    std::array<unsigned char, blobSize> blob{};
    std::array<unsigned char, blobSize> defaultBlob{};
    std::array<char, 24> text{};
    std::array<char, 24> defaultText{};
    CVariable own{};
    CVariable added{};
    CVariable array{};
    std::array<CStorageObject *, 1> elements{};
    CStorageObject top{};
    CStorageObject nested{};
    CStorageObject parent{};
    CStorageObject child{};
    CVariable *wrapper = nullptr;
    CStorageRegion region{};
    CStorageRegion alone{};
    CStorageRegion described{};
    CDatabase database{};
    bool isDatabaseThere = false;
    std::optional<SLocationDescriptor> location;
    std::optional<SProviderDescriptor> provider;

    // Interfaces
    std::optional<IInterface> anInterface;

    // As the stored values are numbered: all that stands in the variables belongs to one generation.
    void setGeneration(std::int32_t generation);
    void setDefaults(std::int32_t generation);
    /// @return the generation, or -1 where they are mixed.
    std::int32_t generation() const;
    std::int32_t generationBefore = 0; ///< What stood in the variables when a retrieve began.
    /// @return whether each variable for itself is of one of these generations.
    bool holdsOnly(std::initializer_list<std::int32_t> generations) const;
};

/// A table of the tests' own that keeps one generation of numbers and takes no memory.
IStorageProvider *tableInMemory();
void forgetMemory();

} // namespace test
