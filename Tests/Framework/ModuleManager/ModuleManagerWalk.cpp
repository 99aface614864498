#include "ModuleManagerWalk.h"

#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <vector>

#include "CModuleManager.h"
#include "CModuleManager_c.h"
#include "ModuleRegistry.h"
#include "TraceRecorder.h"

namespace test {

namespace {

constexpr std::size_t numberOfCallbacks = 8;

struct Probe {
    SModuleCallback record;
    std::uint32_t answer;
};
std::array<Probe, numberOfCallbacks> probes;
std::vector<ModuleManagerModel::Call> calls;
std::uint32_t resetAnswer;
std::vector<std::uint32_t> resetWords; ///< What the reset provider was called with.

EAFResult onCall(void *context, std::uint32_t phaseId, ECallbackPriority priority) {
    const Probe *probe = static_cast<Probe *>(context);
    calls.push_back({static_cast<std::size_t>(probe - probes.data()), phaseId, priority});
    return static_cast<EAFResult>(probe->answer);
}

EAFResult onReset(std::uint32_t first, std::uint32_t second, std::uint32_t third) {
    resetWords = {first, second, third};
    return static_cast<EAFResult>(resetAnswer);
}

EAFResult onResetInfo(void *first, void *second, std::uint32_t third) {
    *static_cast<std::uint32_t *>(first) = third;
    *static_cast<std::uint32_t *>(second) = third + 1;
    return static_cast<EAFResult>(resetAnswer);
}

std::uint32_t onIsColdReset(SResetProvider * /*self*/) {
    return resetAnswer;
}

SResetProvider resetProvider{onReset, onResetInfo, onIsColdReset};

} // namespace

// Null counts as an empty filter, whatever the count beside it.
ProbeModule::ProbeModule(std::size_t callback, const ModuleWords &words)
    : ModuleInterface(deferred_registration_tag{}, words.id, words.name, words.channel, words.batch,
                      words.filter.empty() ? nullptr : words.filter.data(),
                      static_cast<unsigned int>(words.filter.empty() ? callback : words.filter.size())),
      m_callback(callback), m_words(words) {}

void ProbeModule::expectItsWords() {
    EXPECT_EQ(m_words.id, getId());
    EXPECT_EQ(m_words.name, getName());
    EXPECT_EQ(m_words.channel, getRadioChannelId());
    EXPECT_EQ(m_words.batch, getBatchId());
    ASSERT_EQ(m_words.filter.size(), getNoOfPhaseFilterElements());
    ASSERT_EQ(m_words.filter.empty(), getPhaseFilter() == nullptr);
    if (!m_words.filter.empty()) {
        EXPECT_EQ(m_words.filter,
                  std::vector<std::uint32_t>(getPhaseFilter(), getPhaseFilter() + m_words.filter.size()));
    }
    EXPECT_EQ(static_cast<ModuleInterface *>(this), getCallback()->context);
    EXPECT_EQ(&ModuleInterface::onPhaseActivationWrapper, getCallback()->function);
}

EAFResult ProbeModule::onPhaseActivation(unsigned int phaseId, ECallbackPriority priority) {
    return onCall(&probes[m_callback], phaseId, priority);
}

ModuleManagerWalk::ModuleManagerWalk(Choices &theChoices) : choices(theChoices) {
    CModuleManager_UnInitialize();
    CModuleManager_Initialize();
    model.answers.assign(numberOfCallbacks, 0);
    for (Probe &probe : probes) {
        probe = {{&probe, &onCall}, 0};
    }
}

ModuleManagerWalk::~ModuleManagerWalk() {
    CModuleManager_UnInitialize();
}

std::string ModuleManagerWalk::name(const char *kind) {
    const bool isNumberAlone = oneIn(20);
    return (isNumberAlone ? "" : kind) + std::to_string(below(100));
}

void ModuleManagerWalk::same(std::uint32_t expected, std::uint32_t actual) {
    EXPECT_EQ(expected, actual) << "the code of " << what;
}

void ModuleManagerWalk::registerSomething() {
    const Id first = id();
    switch (below(5)) {
    case 0: {
        what = "RegisterModule";
        const std::string text = name("Module");
        registerModule(first, text);
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

void ModuleManagerWalk::registerModule(Id module, const std::string &text) {
    if (!isClassesTurn()) {
        same(model.registerModule(module, text), CModuleManager_RegisterModule(module, text.c_str()));
        return;
    }
    const std::size_t callback = module % numberOfCallbacks;
    constexpr std::uint32_t everyChannel = 100;
    const std::vector<Id> filter = turns % 8 == 0 ? std::vector<Id>{module, 1, 5} : std::vector<Id>();
    modules.emplace_back(callback, ModuleWords{module, text, everyChannel, module, filter});
    model.registerModule(module, text);
    const std::uint32_t expected = model.registerCallback(module, text + "OnPhaseActivation", everyChannel, callback,
                                                          NORMAL, module, {!filter.empty(), filter});
    modules.back().isRegistered = expected < eAF_E_FAILED;
    same(expected, modules.back().RegisterModule());
}

void ModuleManagerWalk::unregisterModule(Id module) {
    if (!isClassesTurn()) {
        same(model.unregisterModule(module), CModuleManager_UnregisterModule(module));
    } else if (modules.empty() || turns % 4 == 0) {
        ProbeModule another(0, {module, "another of that id", 1, 0, {}});
        same(model.unregisterModule(module), CModuleManager::GetInstance().UnRegisterModule(&another));
    } else {
        ProbeModule &last = modules.back();
        const std::uint32_t expected =
            last.isRegistered ? model.unregisterModule(last.getId()) : std::uint32_t{eAF_E_NOT_REGISTERED};
        last.isRegistered = last.isRegistered && expected >= eAF_E_FAILED;
        same(expected, last.UnregisterModule());
    }
}

void ModuleManagerWalk::registerCallback() {
    what = "RegisterCallback";
    const Id module = id();
    const Id batch = id();
    const std::string text = name("Callback");
    const std::uint32_t onChannel = channel();
    const std::uint32_t atPriority = priority();
    const std::size_t callback = below(numberOfCallbacks);
    ModuleManagerModel::Filter filter{oneIn(2), {}};
    const bool isOdd = oneIn(20);
    const std::uint32_t length = filter.given == isOdd ? 0 : 1 + below(4);
    for (std::uint32_t i = 0; i < length; ++i) {
        filter.phases.push_back(id());
    }
    // A count without a filter: the library must not read what the pointer does not offer.
    static std::uint32_t noPhase = 0;
    std::uint32_t *phases = filter.phases.empty() ? &noPhase : filter.phases.data();
    if (isClassesTurn()) {
        modules.emplace_back(callback, ModuleWords{module, text, onChannel, batch, {}});
        same(model.registerCallback(module, text + "OnPhaseActivation", onChannel, callback, atPriority, batch, filter),
             modules.back().RegisterCallbackVariant(static_cast<ECallbackPriority>(atPriority), batch,
                                                    filter.given ? phases : nullptr, length));
        return;
    }
    static SModuleCallback hollow{nullptr, nullptr};
    SModuleCallback *record = &probes[callback].record;
    if (turns % 16 == 7 || turns % 16 == 15) {
        record = turns % 16 == 7 ? nullptr : &hollow;
    }
    const std::size_t called = record == &probes[callback].record ? callback : ModuleManagerModel::nobody;
    same(model.registerCallback(module, text, onChannel, called, atPriority, batch, filter),
         CModuleManager_RegisterCallback(module, text.c_str(), onChannel, record,
                                         static_cast<ECallbackPriority>(atPriority), batch,
                                         filter.given ? phases : nullptr, length));
}

void ModuleManagerWalk::force() {
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

void ModuleManagerWalk::run() {
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

void ModuleManagerWalk::changeAnswers() {
    what = "nothing";
    const std::size_t callback = below(numberOfCallbacks);
    const std::uint32_t answer = any({0, 0, 0, 0, 0, 2, 0x1001, 0x7FFF, 0x8000, 0x8005, 0x800D, 0xFFFFFFFF});
    probes[callback].answer = answer;
    model.answers[callback] = answer;
    resetAnswer = answer;
    reset(static_cast<std::uint32_t>(callback));
}

/// Takes no choice of its own, so that the kept inputs of the fuzzer stay what they are.
void ModuleManagerWalk::reset(std::uint32_t chosen) {
    const bool isThere = model.hasResetProvider;
    what = "PerformSystemReset";
    resetWords.clear();
    same(model.perform("CModuleManager_PerformSystemReset", "Error when calling Reset Provider to perform system reset",
                       resetAnswer),
         CModuleManager_PerformSystemReset(chosen, 2, 0xFFFFFFFF));
    EXPECT_EQ(isThere ? (std::vector<std::uint32_t>{chosen, 2, 0xFFFFFFFF}) : std::vector<std::uint32_t>(), resetWords);
    what = "GetSystemResetInfo";
    std::uint32_t first = 70;
    std::uint32_t second = 70;
    same(model.perform("CModuleManager_GetSystemResetInfo", "Error when calling Reset Info Provider", resetAnswer),
         CModuleManager_GetSystemResetInfo(&first, &second, chosen));
    EXPECT_EQ(isThere ? chosen : 70, first);
    EXPECT_EQ(isThere ? chosen + 1 : 70, second);
    what = "IsColdReset";
    EXPECT_EQ(isThere ? resetAnswer : 0, CModuleManager_IsColdReset());
    model.hasResetProvider = chosen != 0;
    if (chosen != 0) {
        what = "RegisterResetProvider";
        same(0, CModuleManager_RegisterResetProvider(&resetProvider));
    } else {
        what = "Initialize"; // forgets it
        same(0, CModuleManager_Initialize());
    }
}

void ModuleManagerWalk::query() {
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

/// What is refused, and what only answers, in whatever state. Takes no choice of its own either.
void ModuleManagerWalk::odd() {
    constexpr std::uint32_t noOfOddCalls = 8;
    const std::uint32_t round = oddCalls / noOfOddCalls;
    const Id of = ids[round % std::size(ids)];
    switch (oddCalls++ % noOfOddCalls) {
    case 0:
        return withoutNames(of);
    case 1:
        return withoutAddresses(of);
    case 2:
        return withoutACallbackName(of, ids[round / std::size(ids) % std::size(ids)]);
    case 3:
        return withoutAModule();
    case 4:
        return withoutAResetProvider();
    case 5:
        return askModules(round);
    case 6:
        return askForPriorityNames(static_cast<std::int32_t>(round % 10) - 1);
    default:
        return askWhatOnlyAnswers();
    }
}

void ModuleManagerWalk::withoutNames(Id of) {
    what = "registrations without a name";
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterModule(of, nullptr));
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterGroup(of, nullptr));
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterBatch(of, nullptr));
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterPhase(of, nullptr));
}

void ModuleManagerWalk::withoutAddresses(Id of) {
    what = "questions without a place for the answer";
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_GetPhaseName(of, nullptr));
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_QueryModuleState(of, nullptr));
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_GetPriorityName(static_cast<std::int32_t>(of), nullptr));
}

void ModuleManagerWalk::withoutACallbackName(Id module, Id batch) {
    what = "RegisterCallback without a name";
    bool isCopied = false;
    const std::uint32_t expected = model.registerNamelessCallback(module, batch, isCopied);
    bool isThrown = false;
    try {
        same(expected, CModuleManager_RegisterCallback(module, nullptr, ALL_RADIO_CHANNELS, &probes[0].record, NORMAL,
                                                       batch, nullptr, 0));
    } catch (const std::logic_error &) {
        isThrown = true;
    }
    EXPECT_EQ(isCopied, isThrown);
}

void ModuleManagerWalk::withoutAModule() {
    what = "classes' calls without a module";
    CModuleManager &manager = CModuleManager::GetInstance();
    Id phase = 1;
    same(model.refuse("RegisterModule", "Try to register null pointer"), manager.RegisterModule(nullptr));
    same(eAF_E_INVALID_ARGUMENT, manager.UnRegisterModule(nullptr));
    same(model.refuse("RegisterCallbackVariant", "Try to register null pointer"),
         manager.RegisterCallbackVariant(nullptr, HIGH, 1, &phase, 1));
    same(model.refuse("onPhaseActivationWrapper", "Phase activation called with null pointer."),
         ModuleInterface::onPhaseActivationWrapper(nullptr, phase, HIGH));
}

void ModuleManagerWalk::withoutAResetProvider() {
    what = "reset without a provider or a record";
    resetWords.clear();
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterResetProvider(nullptr));
    std::uint32_t word = 70;
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_GetSystemResetInfo(nullptr, &word, 1));
    same(eAF_E_INVALID_ARGUMENT, CModuleManager_GetSystemResetInfo(&word, nullptr, 1));
    EXPECT_EQ(70u, word);
    EXPECT_EQ(model.hasResetProvider ? resetAnswer : 0, CModuleManager_IsColdReset()) << "the provider is kept";
}

void ModuleManagerWalk::askModules(std::uint32_t round) {
    what = "what a module was made with";
    std::vector<Id> filter;
    for (Id phase = 0; phase < round % 4; ++phase) {
        filter.push_back(round + phase);
    }
    ProbeModule(round % numberOfCallbacks, {round, "Module" + std::to_string(round), round % 5, round / 2, filter})
        .expectItsWords();
    if (!modules.empty()) {
        modules.back().expectItsWords();
    }
}

void ModuleManagerWalk::askForPriorityNames(std::int32_t of) {
    what = "the names of priorities";
    for (const std::int32_t each :
         {of, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
        const auto number = static_cast<std::uint32_t>(each);
        const char *name = "left over";
        same(each > 6 ? eAF_E_FAILED : eAF_S_OK, CModuleManager_GetPriorityName(each, &name));
        EXPECT_EQ(each > 6 ? "(null)" : ModuleManagerModel::priorityName(number), name != nullptr ? name : "(null)");
        EXPECT_EQ(ModuleManagerModel::priorityName(number),
                  getECallbackPriorityName(static_cast<ECallbackPriority>(number)));
    }
}

void ModuleManagerWalk::askWhatOnlyAnswers() {
    what = "what only answers";
    std::uint32_t word = 70;
    same(eAF_S_OK, CModuleManager_Start());
    same(eAF_S_OK, CModuleManager_Stop());
    same(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetStatistics(&word));
    same(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetModuleStatisticsByIndex(0, &word));
    same(eAF_E_NOT_IMPLEMENTED, CModuleManager_GetModuleStatisticsByName("Module1", &word));
    same(eAF_S_OK, CModuleManager_ResetStatistics());
    EXPECT_EQ(70u, word);
}

void ModuleManagerWalk::operate() {
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
        unregisterModule(module);
    } else if (dice < 99 || !oneIn(5)) {
        query();
    } else {
        what = "UnInitialize";
        model.unInitialize();
        same(0, CModuleManager_UnInitialize());
    }
}

void ModuleManagerWalk::compare() {
    const std::vector<Trace> records = TraceRecorder::records();
    std::vector<Line> lines;
    for (const Trace &trace : records) {
        EXPECT_EQ(levelOf(trace.code), trace.level);
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

void ModuleManagerWalk::step() {
    TraceRecorder::reset();
    calls.clear();
    model.lines.clear();
    model.calls.clear();

    odd();
    compare();
    operate();
    compare();
    if (model.numberOfModules() == 0 && what == "UnInitialize") {
        modules.clear(); // some ask to be unregistered once more
    }

    linesSeen += model.lines.size();
    callsSeen += model.calls.size();
    for (const Line &line : model.lines) {
        failuresSeen += line.code >= 0x1000 ? 1 : 0;
    }
}

} // namespace test
