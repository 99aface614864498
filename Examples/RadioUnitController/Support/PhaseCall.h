/// @file
/// What surrounds a module's work in a phase: the failures asked for on the command line, the stop watch, the
/// line in the timeline and the list of what failed. Control thread only. Plain C, for the modules in C.
#pragma once

#include "Configuration.h"

AF_EXTERN_C_BEGIN

/// Runs the work, unless the module was told to fail here, and prints the call.
/// @return the work's result, or eAF_E_FAILED in its place.
EAFResult PhaseCall_Run(const struct SModuleConfiguration *module, uint32_t phaseId, ECallbackPriority priority,
                        EAFResult (*work)(void *context, uint32_t phaseId, ECallbackPriority priority), void *context);

/// What the running call did, or why it failed and what to do about it; shown at the end of its line. Copied.
void PhaseCall_Note(const char *text);

/// The same for a number between two words.
void PhaseCall_NoteNumber(const char *before, long long number, const char *after);

AF_EXTERN_C_END

#ifdef __cplusplus
#include <string>
#include <vector>

namespace radio {

struct PhaseFailure {
    std::string module;
    std::string phase;
    EAFResult code;
    std::string reason;
};

/// Lets the module fail whenever it is called in the phase.
void failOnPurpose(uint32_t moduleId, uint32_t phaseId);

/// The failed calls since the last time this was asked.
std::vector<PhaseFailure> takeFailures();

/// The headings of the lines that PhaseCall_Run prints.
void printPhaseCallHeader();

inline void note(const std::string &text) {
    PhaseCall_Note(text.c_str());
}

} // namespace radio
#endif
