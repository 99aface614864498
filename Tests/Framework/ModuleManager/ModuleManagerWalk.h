/// @file
/// Operations on the module manager and on its model, one after the other; whatever the two can show is compared after
/// each. What is done is chosen by somebody else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "Choices.h"
#include "ModuleInterface.h"
#include "ModuleManagerModel.h"

namespace test {

/// What a module is made with.
struct ModuleWords {
    std::uint32_t id;
    std::string name;
    std::uint32_t channel;
    std::uint32_t batch;
    std::vector<std::uint32_t> filter;
};

/// A module written as a class, which answers as one of the callbacks does.
class ProbeModule : public ModuleInterface {
public:
    ProbeModule(std::size_t callback, const ModuleWords &words);
    EAFResult onPhaseActivation(unsigned int phaseId, ECallbackPriority priority) override;

    /// Whether it tells what it was made with.
    void expectItsWords();

    bool isRegistered = false; ///< By itself.

private:
    std::size_t m_callback;
    const ModuleWords m_words;
};

/// One at a time: the module manager is the process's.
class ModuleManagerWalk {
public:
    explicit ModuleManagerWalk(Choices &choices);
    ~ModuleManagerWalk();
    ModuleManagerWalk(const ModuleManagerWalk &) = delete;
    ModuleManagerWalk &operator=(const ModuleManagerWalk &) = delete;

    /// Fails the test where the two differ.
    void step();

    const std::string &lastOperation() const { return what; }

    std::size_t linesSeen = 0;
    std::size_t callsSeen = 0;
    std::size_t failuresSeen = 0;

private:
    using Id = ModuleManagerModel::Id;

    std::uint32_t below(std::uint32_t limit) { return choices.below(limit); }
    bool oneIn(std::uint32_t chances) { return choices.oneIn(chances); }
    template <std::size_t size>
    std::uint32_t any(const std::uint32_t (&values)[size]) {
        return choices.any(values);
    }

    /// Few enough to collide, the edges of signed and unsigned among them.
    static constexpr Id ids[] = {0, 1, 2, 5, 0x7FFFFFFF, 0xFFFFFFFE};
    Id id() { return any(ids); }
    std::uint32_t channel() { return any({1, 1, 1, 2, 2, 2, 3, 4, 100, 100, 100, 100, 0, 5, 0xFFFFFFFF}); }
    std::uint32_t priority() { return any({0, 1, 2, 3, 4, 5, 6, 3, 3, 7, 0xFFFFFFFF}); }
    std::string name(const char *kind);

    void operate();
    void registerSomething();
    void registerCallback();
    void registerModule(Id module, const std::string &text);
    void unregisterModule(Id module);
    void force();
    void run();
    void changeAnswers();
    void reset(std::uint32_t chosen);
    void query();
    void odd();
    void withoutNames(Id of);
    void withoutAddresses(Id of);
    void withoutACallbackName(Id module, Id batch);
    void withoutAModule();
    void withoutAResetProvider();
    void askModules(std::uint32_t round);
    void askForPriorityNames(std::int32_t of);
    void askWhatOnlyAnswers();
    void compare();
    void same(std::uint32_t expected, std::uint32_t actual);

    /// Every second time a module written as a class is asked. Not by choice: the kept inputs of the fuzzer stay what
    /// they are.
    bool isClassesTurn() { return ++turns % 2 == 0; }

    Choices &choices;
    ModuleManagerModel model;
    std::deque<ProbeModule> modules; ///< The registry keeps their records until it is emptied.
    std::uint32_t turns = 0;
    std::uint32_t oddCalls = 0;
    std::string what;
};

} // namespace test
