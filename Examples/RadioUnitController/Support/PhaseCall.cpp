#include "Support/PhaseCall.h"

#include <AfResult.h>

#include <chrono>
#include <cstdio>
#include <set>
#include <utility>

#include "Support/Timeline.h"

namespace radio {
namespace {

struct Calls {
    std::set<std::pair<uint32_t, uint32_t>> failOnPurpose;
    std::vector<PhaseFailure> failures;
    std::string note;
};

Calls &calls() {
    static Calls instance;
    return instance;
}

std::string channelText(uint32_t radioChannel) {
    return radioChannel == ALL_RADIO_CHANNELS ? "all" : std::to_string(radioChannel);
}

} // namespace

void failOnPurpose(uint32_t moduleId, uint32_t phaseId) {
    calls().failOnPurpose.insert({moduleId, phaseId});
}

std::vector<PhaseFailure> takeFailures() {
    return std::exchange(calls().failures, {});
}

void printPhaseCallHeader() {
    std::printf("    %8s  %-23s  %-18s  %-7s  %-17s  %-13s  %8s  %s\n", "time [s]", "phase", "priority", "channel",
                "module", "result", "duration", "what was done");
}

} // namespace radio

void PhaseCall_Note(const char *text) {
    radio::calls().note = text;
}

void PhaseCall_NoteNumber(const char *before, long long number, const char *after) {
    radio::note(std::string(before) + ' ' + std::to_string(number) + ' ' + after);
}

EAFResult PhaseCall_Run(const SModuleConfiguration *module, uint32_t phaseId, ECallbackPriority priority,
                        EAFResult (*work)(void *context, uint32_t phaseId, ECallbackPriority priority), void *context) {
    radio::Calls &calls = radio::calls();
    const std::chrono::microseconds begin = radio::timeSinceStart();
    calls.note.clear();
    EAFResult result = eAF_E_FAILED;
    if (calls.failOnPurpose.count({module->id, phaseId}) != 0) {
        calls.note = "told to fail by --fail; start without that option";
    } else {
        result = work(context, phaseId, priority);
    }
    const auto duration = radio::timeSinceStart() - begin;

    const char *phase = Configuration_PhaseName(phaseId);
    std::printf("    %8s  %-23s  %-18s  %-7s  %-17s  %-13s  %5lld us  %s\n", radio::seconds(begin).c_str(), phase,
                getECallbackPriorityName(priority).c_str(), radio::channelText(module->radioChannel).c_str(),
                module->name, AfResult::toString(result).c_str(), static_cast<long long>(duration.count()),
                calls.note.c_str());
    if (result >= eAF_E_FAILED) {
        calls.failures.push_back({module->name, phase, result, calls.note});
    }
    return result;
}
