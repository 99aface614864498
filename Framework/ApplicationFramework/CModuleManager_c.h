/// @file
/// The flat module manager: registry of modules, groups, batches and phases, callbacks, the group runner,
/// module states and the reset gateway.
///
/// One thread at a time. While a group runs, callbacks must not register or unregister anything: nothing
/// breaks, but which of the changed callbacks that run still calls is not settled.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
#include <string>
#endif

#include "AFExport.h"
#include "EAFResult.h"

#define ALL_RADIO_CHANNELS 100u ///< Matches every channel, in a run as in a registration.

#define MODULE_STATE_REGISTERED 1u   ///< Registered, no callback has run yet.
#define MODULE_STATE_PHASE_OK 3u     ///< The latest callback returned less than 0x8000.
#define MODULE_STATE_PHASE_FAILED 9u ///< The latest callback returned 0x8000 or more.

/// Callbacks of a phase run in ascending value: HIGH before HIGHER_THAN_NORMAL, LOWER_THAN_NORMAL before LOW.
#define AF_CALLBACK_PRIORITY_TABLE(ROW)                                                                                \
    ROW(HIGHEST, 0)                                                                                                    \
    ROW(HIGH, 1)                                                                                                       \
    ROW(HIGHER_THAN_NORMAL, 2)                                                                                         \
    ROW(NORMAL, 3)                                                                                                     \
    ROW(LOWER_THAN_NORMAL, 4)                                                                                          \
    ROW(LOW, 5)                                                                                                        \
    ROW(LOWEST, 6)

#define AF_CALLBACK_PRIORITY_ENUMERATOR(name, value) name = (value),

#ifdef __cplusplus
enum ECallbackPriority : uint32_t { AF_CALLBACK_PRIORITY_TABLE(AF_CALLBACK_PRIORITY_ENUMERATOR) };
#else
typedef uint32_t ECallbackPriority;
enum { AF_CALLBACK_PRIORITY_TABLE(AF_CALLBACK_PRIORITY_ENUMERATOR) };
#endif

#undef AF_CALLBACK_PRIORITY_ENUMERATOR

AF_EXTERN_C_BEGIN

/// What the runner calls. The module owns it and keeps it, at the same address, while it is registered.
typedef struct SModuleCallback {
    void *context; ///< Handed back as the first argument.
    EAFResult (*function)(void *context, uint32_t phaseId, ECallbackPriority priority);
} SModuleCallback;

/// The host's reset functions. The host owns the table and keeps it while it is registered.
typedef struct SResetProvider {
    EAFResult (*performSystemReset)(uint32_t first, uint32_t second, uint32_t third);
    EAFResult (*getSystemResetInfo)(void *first, void *second, uint32_t third);
    uint32_t (*isColdReset)(struct SResetProvider *self); ///< Non-zero: the last start was a cold reset.
} SResetProvider;

/// Forgets the reset provider; the registry stays as it is.
/// @return eAF_S_OK.
AF_API EAFResult CModuleManager_Initialize(void);

/// Does nothing. @return eAF_S_OK.
AF_API EAFResult CModuleManager_Start(void);

/// Does nothing. @return eAF_S_OK.
AF_API EAFResult CModuleManager_Stop(void);

/// Frees every group, batch, phase and module record. The reset provider and the modules' own callback
/// records stay.
/// @return eAF_S_OK.
AF_API EAFResult CModuleManager_UnInitialize(void);

/// Adds a module in state MODULE_STATE_REGISTERED.
/// @retval eAF_E_INVALID_ARGUMENT    null name; not traced.
/// @retval eAF_W_ALREADY_REGISTERED  the id is taken: its record keeps its first name; traced.
AF_API EAFResult CModuleManager_RegisterModule(uint32_t moduleId, const char *name);

/// Removes a module and its callbacks from every phase.
/// @retval eAF_E_UNKNOWN_MODULE  traced.
AF_API EAFResult CModuleManager_UnregisterModule(uint32_t moduleId);

/// Adds a group. Codes as CModuleManager_RegisterModule. The framework's start runs group 0, its stop group 1.
AF_API EAFResult CModuleManager_RegisterGroup(uint32_t groupId, const char *name);

/// Adds a batch behind those registered before: groups run batch by batch in this order. Codes as
/// CModuleManager_RegisterModule; the trace of a taken id reads "Batch with id %u not found".
AF_API EAFResult CModuleManager_RegisterBatch(uint32_t batchId, const char *name);

/// Adds a phase. Codes as CModuleManager_RegisterModule; success is not traced.
AF_API EAFResult CModuleManager_RegisterPhase(uint32_t phaseId, const char *name);

/// Lets a batch run a phase, behind those inserted before, whenever the group runs. A pair inserted twice
/// runs twice.
/// @retval eAF_E_FAILED  unknown batch, group or phase, asked for in this order; traced.
AF_API EAFResult CModuleManager_InsertPhaseIntoBatch(uint32_t phaseId, uint32_t groupId, uint32_t batchId);

/// Tells the name that a phase was registered with.
/// @param name receives the registry's own text, valid while the phase is registered; null when unknown.
/// @retval eAF_E_UNKNOWN_PHASE     traced.
/// @retval eAF_E_INVALID_ARGUMENT  null out pointer; not traced.
AF_API EAFResult CModuleManager_GetPhaseName(uint32_t phaseId, const char **name);

/// Tells a priority's name.
/// @param name receives a text that is valid for ever: "UNKNOWN" for a negative priority, null above 6.
/// @retval eAF_E_FAILED            a priority above 6; not traced.
/// @retval eAF_E_INVALID_ARGUMENT  null out pointer; not traced.
AF_API EAFResult CModuleManager_GetPriorityName(int32_t priority, const char **name);

/// @return the number of registered modules; a plain number.
AF_API uint32_t CModuleManager_GetNumberOfRegisteredModules(void);

/// Adds one callback to each distinct phase of a batch, whatever the group, optionally narrowed by a list
/// of phases. Registering again registers a further call. Phases that join the batch later are not served.
/// @param radioChannel      1 to 4 or ALL_RADIO_CHANNELS; not checked.
/// @param callback          kept, not copied; the runner takes a null one for a callback that failed with
///                          eAF_E_INVALID_ARGUMENT, and so one without a function.
/// @param priority          not checked; above LOWEST it never runs.
/// @param phaseFilter       phase ids, or null for all phases of the batch; read during the call only.
/// @param phaseFilterCount  number of ids; 0 exactly when phaseFilter is null.
/// @retval eAF_E_INVALID_ARGUMENT  filter and count disagree; not traced.
/// @retval eAF_E_UNKNOWN_MODULE    traced.
/// @retval eAF_E_UNKNOWN_BATCH     traced.
/// @retval eAF_E_FAILED            a phase of the batch is not registered; traced. Callbacks already added to
///                                 earlier phases stay.
/// @throw std::logic_error  null callbackName, when it comes to be copied.
AF_API EAFResult CModuleManager_RegisterCallback(uint32_t moduleId, const char *callbackName, uint32_t radioChannel,
                                                 SModuleCallback *callback, ECallbackPriority priority,
                                                 uint32_t batchId, const uint32_t *phaseFilter,
                                                 uint32_t phaseFilterCount);

/// Runs a group for a radio channel, on the caller's thread: batches in registration order, in each the
/// group's phases in insertion order, in each phase priorities HIGHEST to LOWEST, in each priority the
/// callbacks in registration order. Sets the state of every module called. Needs no memory.
/// @param radioChannel  1 to 4 or ALL_RADIO_CHANNELS.
/// @param returnOption  0 runs everything and reports at the end; any other value stops at the first failure.
/// @retval eAF_E_INVALID_ARGUMENT  another channel; traced.
/// @retval eAF_E_FAILED            unknown group (asked for first), unknown phase, or a callback that failed
///                                 (its own code is in the trace); traced. Also when a callback emptied the
///                                 registry, which ends the run without a trace.
AF_API EAFResult CModuleManager_RunGroupWithReturnOption(uint32_t groupId, uint32_t radioChannel,
                                                         uint32_t returnOption);

/// CModuleManager_RunGroupWithReturnOption with option 0.
AF_API EAFResult CModuleManager_RunGroup(uint32_t groupId, uint32_t radioChannel);

/// Registers the host's reset functions in place of any before.
/// @retval eAF_E_INVALID_ARGUMENT  null; not traced, the provider before is kept.
AF_API EAFResult CModuleManager_RegisterResetProvider(SResetProvider *provider);

/// Hands the three words to the provider. Its failure is traced, not returned.
/// @retval eAF_E_NOT_REGISTERED  no provider; not traced.
AF_API EAFResult CModuleManager_PerformSystemReset(uint32_t first, uint32_t second, uint32_t third);

/// Lets the provider fill the two records. Its failure is traced, not returned.
/// @retval eAF_E_INVALID_ARGUMENT  either pointer null, asked before the provider; not traced.
/// @retval eAF_E_NOT_REGISTERED    no provider; not traced.
AF_API EAFResult CModuleManager_GetSystemResetInfo(void *first, void *second, uint32_t third);

/// @return the provider's answer unchanged, 0 without a provider; a truth value.
AF_API uint32_t CModuleManager_IsColdReset(void);

/// Stores any value as a module's state.
/// @retval eAF_E_UNKNOWN_MODULE  traced.
AF_API EAFResult CModuleManager_SetModuleState(uint32_t moduleId, uint32_t state);

/// Tells what a module's latest callback came to, or what was stored as its state since.
/// @param state receives the module's state, 0 when the module is unknown.
/// @retval eAF_E_UNKNOWN_MODULE    traced.
/// @retval eAF_E_INVALID_ARGUMENT  null out pointer; not traced.
AF_API EAFResult CModuleManager_QueryModuleState(uint32_t moduleId, uint32_t *state);

/// Not implemented; writes nothing. @return eAF_E_NOT_IMPLEMENTED.
AF_API EAFResult CModuleManager_GetStatistics(void *statistics);

/// Not implemented; writes nothing. @return eAF_E_NOT_IMPLEMENTED.
AF_API EAFResult CModuleManager_GetModuleStatisticsByIndex(uint32_t index, void *statistics);

/// Not implemented; writes nothing. @return eAF_E_NOT_IMPLEMENTED.
AF_API EAFResult CModuleManager_GetModuleStatisticsByName(const char *name, void *statistics);

/// Does nothing; no statistics are kept. @return eAF_S_OK.
AF_API EAFResult CModuleManager_ResetStatistics(void);

AF_EXTERN_C_END

#ifdef __cplusplus
/// The priority's name, "UNKNOWN" for 7 and above.
AF_API std::string getECallbackPriorityName(ECallbackPriority priority);
#endif
