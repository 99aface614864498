// Thousands of random operations on the library and on a model that was written apart from it; whatever the two
// can show is compared after each. AF_TEST_SEED=<number> in the environment repeats one seed.
#include "ModuleManagerModel.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "CModuleManager_c.h"
#include "ModuleRegistry.h"
#include "TraceRecorder.h"

namespace {

using test::ModuleManagerModel;
using test::TraceRecorder;
using Id = ModuleManagerModel::Id;

constexpr std::size_t numberOfCallbacks = 8;
constexpr int operations = 2500;

struct Probe {
    SModuleCallback record;
    std::uint32_t answer;
};
std::array<Probe, numberOfCallbacks> probes;
std::vector<ModuleManagerModel::Call> calls;

EAFResult onCall(void *context, std::uint32_t phaseId, ECallbackPriority priority) {
    const Probe *probe = static_cast<Probe *>(context);
    calls.push_back({static_cast<std::size_t>(probe - probes.data()), phaseId, priority});
    return static_cast<EAFResult>(probe->answer);
}

std::uint32_t seedOf(std::uint32_t parameter) {
    const char *given = std::getenv("AF_TEST_SEED");
    return given != nullptr ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 0)) : parameter;
}

class ModuleManagerModelTest : public testing::TestWithParam<std::uint32_t> {
protected:
    ModuleManagerModelTest() {
        std::cout << "seed " << seed << std::endl;
        CModuleManager_UnInitialize();
        CModuleManager_Initialize();
        model.answers.assign(numberOfCallbacks, 0);
        for (Probe &probe : probes) {
            probe = {{&probe, &onCall}, 0};
        }
    }
    ~ModuleManagerModelTest() override { CModuleManager_UnInitialize(); }

    std::uint32_t below(std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random);
    }
    bool oneIn(std::uint32_t chances) { return below(chances) == 0; }

    template <std::size_t size>
    std::uint32_t any(const std::uint32_t (&values)[size]) {
        return values[below(size)];
    }

    /// Few enough to collide, the edges of signed and unsigned among them.
    Id id() { return any({0, 1, 2, 5, 0x7FFFFFFF, 0xFFFFFFFE}); }
    std::uint32_t channel() { return any({1, 1, 1, 2, 2, 2, 3, 4, 100, 100, 100, 100, 0, 5, 0xFFFFFFFF}); }
    std::uint32_t priority() { return any({0, 1, 2, 3, 4, 5, 6, 3, 3, 7, 0xFFFFFFFF}); }
    std::string name(const char *kind) { return std::string(oneIn(20) ? "" : kind) + std::to_string(below(100)); }

    void operate();
    void registerSomething();
    void registerCallback();
    void force();
    void run();
    void changeAnswers();
    void query();
    void compare();

    void same(std::uint32_t expected, std::uint32_t actual) { EXPECT_EQ(expected, actual) << "the code of " << what; }

    const std::uint32_t seed = seedOf(GetParam());
    std::mt19937 random{seed};
    ModuleManagerModel model;
    std::string what;
};

void ModuleManagerModelTest::registerSomething() {
    const Id first = id();
    switch (below(5)) {
    case 0: {
        what = "RegisterModule";
        const std::string text = name("Module");
        same(model.registerModule(first, text), CModuleManager_RegisterModule(first, text.c_str()));
        break;
    }
    case 1: {
        what = "RegisterGroup";
        const std::string text = name("Group");
        same(model.registerGroup(first, text), CModuleManager_RegisterGroup(first, text.c_str()));
        break;
    }
    case 2: {
        what = "RegisterBatch";
        const std::string text = name("Batch");
        same(model.registerBatch(first, text), CModuleManager_RegisterBatch(first, text.c_str()));
        break;
    }
    case 3: {
        what = "RegisterPhase";
        const std::string text = name("Phase");
        same(model.registerPhase(first, text), CModuleManager_RegisterPhase(first, text.c_str()));
        break;
    }
    default: {
        what = "InsertPhaseIntoBatch";
        const Id group = id();
        const Id batch = id();
        same(model.insertPhaseIntoBatch(first, group, batch), CModuleManager_InsertPhaseIntoBatch(first, group, batch));
        break;
    }
    }
}

void ModuleManagerModelTest::registerCallback() {
    what = "RegisterCallback";
    const Id module = id();
    const Id batch = id();
    const std::string text = name("Callback");
    const std::uint32_t onChannel = channel();
    const std::uint32_t atPriority = priority();
    const std::size_t callback = below(numberOfCallbacks);
    ModuleManagerModel::Filter filter{oneIn(2), {}};
    const std::uint32_t length = filter.given == oneIn(20) ? 0 : 1 + below(4);
    for (std::uint32_t i = 0; i < length; ++i) {
        filter.phases.push_back(id());
    }
    // A count without a filter: the library must not read what the pointer does not offer.
    static const std::uint32_t noPhase = 0;
    const std::uint32_t *phases = filter.phases.empty() ? &noPhase : filter.phases.data();
    same(model.registerCallback(module, text, onChannel, callback, atPriority, batch, filter),
         CModuleManager_RegisterCallback(module, text.c_str(), onChannel, &probes[callback].record,
                                         static_cast<ECallbackPriority>(atPriority), batch,
                                         filter.given ? phases : nullptr, length));
}

void ModuleManagerModelTest::force() {
    CModuleManager_c &registry = CModuleManager_c::instance();
    if (oneIn(2) && model.numberOfBatches() != 0) {
        what = "an entry of any phase";
        const std::uint32_t batch = below(static_cast<std::uint32_t>(model.numberOfBatches()));
        const Id group = id();
        const Id phase = id();
        model.forceEntry(batch, group, phase);
        std::next(registry.batches.begin(), batch)->entries.push_back({group, phase});
    } else if (model.numberOfPhases() != 0) {
        what = "a callback of any module";
        const std::uint32_t phase = below(static_cast<std::uint32_t>(model.numberOfPhases()));
        const Id module = id();
        const std::uint32_t onChannel = channel();
        const std::uint32_t atPriority = priority();
        const std::size_t callback = below(numberOfCallbacks);
        model.forceCallback(phase, module, onChannel, callback, atPriority, "Forced");
        std::next(registry.phases.begin(), phase)
            ->callbacks.push_back(
                {module, onChannel, &probes[callback].record, static_cast<ECallbackPriority>(atPriority), "Forced"});
    }
}

void ModuleManagerModelTest::run() {
    const Id group = id();
    const std::uint32_t onChannel = channel();
    if (oneIn(4)) {
        what = "RunGroup";
        same(model.runGroup(group, onChannel, 0), CModuleManager_RunGroup(group, onChannel));
        return;
    }
    what = "RunGroupWithReturnOption";
    const std::uint32_t option = any({0, 0, 0, 1, 2, 0x80000000, 0xFFFFFFFF});
    same(model.runGroup(group, onChannel, option), CModuleManager_RunGroupWithReturnOption(group, onChannel, option));
}

void ModuleManagerModelTest::changeAnswers() {
    what = "nothing";
    const std::size_t callback = below(numberOfCallbacks);
    const std::uint32_t answer = any({0, 0, 0, 0, 0, 2, 0x1001, 0x7FFF, 0x8000, 0x8005, 0x800D, 0xFFFFFFFF});
    probes[callback].answer = answer;
    model.answers[callback] = answer;
}

void ModuleManagerModelTest::query() {
    const Id which = id();
    switch (below(3)) {
    case 0: {
        what = "SetModuleState";
        const std::uint32_t state = below(50);
        same(model.setModuleState(which, state), CModuleManager_SetModuleState(which, state));
        break;
    }
    case 1: {
        what = "QueryModuleState";
        std::uint32_t expected = 0;
        std::uint32_t actual = 0xA5A5A5A5u;
        same(model.queryModuleState(which, expected), CModuleManager_QueryModuleState(which, &actual));
        EXPECT_EQ(expected, actual);
        break;
    }
    default: {
        what = "GetPhaseName";
        std::string expected = "(null)";
        const char *actual = "left over";
        same(model.getPhaseName(which, expected), CModuleManager_GetPhaseName(which, &actual));
        EXPECT_EQ(expected, actual != nullptr ? actual : "(null)");
        break;
    }
    }
}

void ModuleManagerModelTest::operate() {
    const std::uint32_t dice = below(100);
    if (dice < 45) {
        registerSomething();
    } else if (dice < 60) {
        registerCallback();
    } else if (dice < 62) {
        force();
    } else if (dice < 75) {
        run();
    } else if (dice < 80) {
        changeAnswers();
    } else if (dice < 84) {
        what = "UnregisterModule";
        const Id module = id();
        same(model.unregisterModule(module), CModuleManager_UnregisterModule(module));
    } else if (dice < 99 || !oneIn(5)) {
        query();
    } else {
        what = "UnInitialize";
        model.unInitialize();
        same(0, CModuleManager_UnInitialize());
    }
}

void ModuleManagerModelTest::compare() {
    const std::vector<test::Trace> records = TraceRecorder::records();
    std::vector<test::Line> lines;
    for (const test::Trace &trace : records) {
        EXPECT_EQ(test::levelOf(trace.code), trace.level);
        EXPECT_TRUE(trace.hasCodeLine);
        lines.push_back({trace.function, trace.message, trace.code});
    }
    EXPECT_EQ(model.lines, lines);
    ASSERT_EQ(model.calls.size(), calls.size());
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(model.calls[i].callback, calls[i].callback) << "call " << i;
        EXPECT_EQ(model.calls[i].phaseId, calls[i].phaseId) << "call " << i;
        EXPECT_EQ(model.calls[i].priority, calls[i].priority) << "call " << i;
    }
    EXPECT_EQ(model.numberOfModules(), CModuleManager_GetNumberOfRegisteredModules());
}

TEST_P(ModuleManagerModelTest, LibraryAndModelAgreeOnEverything) {
    std::size_t linesSeen = 0;
    std::size_t callsSeen = 0;
    std::size_t failuresSeen = 0;
    for (int operation = 0; operation < operations; ++operation) {
        TraceRecorder::reset();
        calls.clear();
        model.lines.clear();
        model.calls.clear();

        operate();
        compare();

        ASSERT_FALSE(HasFailure()) << "operation " << operation << " of seed " << seed << ": " << what;
        linesSeen += model.lines.size();
        callsSeen += model.calls.size();
        for (const test::Line &line : model.lines) {
            failuresSeen += line.code >= 0x1000 ? 1 : 0;
        }
    }
    std::cout << linesSeen << " traces, " << failuresSeen << " of them of failures; " << callsSeen << " calls\n";
    EXPECT_GT(callsSeen, 100u) << "a walk that reaches no callback shows little";
}

INSTANTIATE_TEST_SUITE_P(Seeds, ModuleManagerModelTest,
                         testing::Values(1u, 2u, 3u, 20u, 4711u, 65535u, 123456789u, 0xFFFFFFFFu));

} // namespace
