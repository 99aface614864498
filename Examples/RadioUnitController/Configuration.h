/// @file
/// Everything that this controller runs, and when: its ids, the tables that name and link them, and each
/// module's place in them. Plain C, since the modules in C read it too.
///
/// A group is one thing that the controller can do (start, stop, restart a radio). Running it walks the batches
/// in the order of the table, in each batch the group's phases in the order of the links, in each phase the
/// modules by priority.
#pragma once

#include <CModuleManager_c.h>
#include <stddef.h>
#include <stdint.h>

AF_EXTERN_C_BEGIN

/// The framework's start and stop run groups 0 and 1; the others are this controller's own.
enum {
    GROUP_START = 0,
    GROUP_STOP = 1,
    GROUP_FRAME_FORMAT_LOAD = 2,
    GROUP_DSP_RECOVERY = 3,
    GROUP_RADIO_RESTART_COLD = 4,
    GROUP_RADIO_RESTART_WARM = 5,
};

enum {
    BATCH_PREPARATION = 1,
    BATCH_FRAME_FORMAT = 2,
    BATCH_OPERATION = 3,
    BATCH_RECOVERY = 4,
    BATCH_RADIO_RESTART = 5,
};

/// ModuleInterface hands each of these numbers to the handler of the same name.
enum {
    PHASE_REGISTER_STORAGE_OBJECTS = 0,
    PHASE_STORAGE_OBJECTS_RETRIEVED = 5,
    PHASE_INIT = 11,
    PHASE_START = 13,
    PHASE_STOP = 16,
    PHASE_PRE_FRAME_FORMAT_LOAD = 18,
    PHASE_FRAME_FORMAT_LOAD = 19,
    PHASE_POST_FRAME_FORMAT_LOAD = 20,
    PHASE_END_FRAME_FORMAT_LOAD = 21,
    PHASE_PRE_RADIO_RESTART_COLD = 27,
    PHASE_PRE_RADIO_RESTART_WARM = 28,
    PHASE_POST_RADIO_RESTART_COLD = 29,
    PHASE_POST_RADIO_RESTART_WARM = 30,
    PHASE_DISABLE_ALARM_THREAD = 31,
    PHASE_PRE_DSP_RECOVERY = 32,
    PHASE_DSP_RECOVERY_RELOAD_FW = 33,
    PHASE_DSP_RECOVERY_RELOAD_FF = 34,
    PHASE_DSP_RECOVERY_RECONFIG = 35,
    PHASE_POST_DSP_RECOVERY = 36,
    PHASE_ENABLE_ALARM_THREAD = 37,
};

enum {
    MODULE_EVENT_LOG = 1,
    MODULE_ALARM_COLLECTOR = 2,
    MODULE_CLOCK = 3,
    MODULE_BOARD_SUPERVISION = 4,
    MODULE_FRAME_FORMAT_LOADER = 5,
    MODULE_DSP_LOADER = 6,
    MODULE_PARAMETER_STORE = 7,
    MODULE_POWER_AMPLIFIER_1 = 11,
    MODULE_POWER_AMPLIFIER_2 = 12,
    MODULE_POWER_AMPLIFIER_3 = 13,
    MODULE_POWER_AMPLIFIER_4 = 14,
};

enum {
    EVENT_FRAME_FORMAT_ACTIVE = 1, ///< data word: number of the load
    EVENT_POWER_AMPLIFIER_ON = 2,  ///< data word: radio channel
    EVENT_POWER_AMPLIFIER_OFF = 3, ///< data word: radio channel
    EVENT_ALARM_RAISED = 10,       ///< copied data: Alarm
    EVENT_ALARM_CLEARED = 11,      ///< copied data: Alarm
    EVENT_ALARM_ACKNOWLEDGED = 12, ///< data word: the alarm's number
    EVENT_SAMPLE_BOARD = 20,       ///< no data
    EVENT_BOARD_SAMPLED = 21,      ///< copied data: BoardSample
    EVENT_STORE_PARAMETERS = 30,   ///< no data
};

/// A listener's name is also the last part of its queue's name.
#define LISTENER_EVENT_LOG "EventLog"
#define LISTENER_ALARM_COLLECTOR "AlarmCollector"
#define LISTENER_BOARD_SUPERVISION "BoardSupervision"
#define LISTENER_PARAMETER_STORE "ParameterStore"

enum { FIRST_RADIO_CHANNEL = 1, LAST_RADIO_CHANNEL = 4 };

/// An id and the name that goes with it.
struct SNamedId {
    uint32_t id;
    const char *name;
};

/// When the group runs, the batch runs the phase.
struct SPhaseLink {
    uint32_t phaseId;
    uint32_t groupId;
    uint32_t batchId;
};

/// Some phases of one batch that a module is called in, at one priority.
struct SSubscription {
    ECallbackPriority priority;
    uint32_t batchId;
    const uint32_t *phases;
    uint32_t phaseCount;
};

/// A module's place in the controller. Modules written as classes register their first subscription at NORMAL.
struct SModuleConfiguration {
    uint32_t id;
    const char *name;
    uint32_t radioChannel;
    const struct SSubscription *subscriptions;
    size_t subscriptionCount;
};

/// Null when no module has this id.
const struct SModuleConfiguration *Configuration_FindModule(uint32_t moduleId);

/// The name of a phase of this controller, "?" for any other id.
const char *Configuration_PhaseName(uint32_t phaseId);

AF_EXTERN_C_END

#ifdef __cplusplus
#include <optional>
#include <string>
#include <vector>

namespace radio {

const std::vector<SNamedId> &groups();
const std::vector<SNamedId> &batches();
const std::vector<SNamedId> &phases();
const std::vector<SNamedId> &events();
const std::vector<SPhaseLink> &phaseLinks();
const std::vector<SModuleConfiguration> &moduleTable();

/// Whether an event's data means anything to another process: a number does, memory does not.
enum class EventData { None, Number, Memory };
EventData dataOf(uint32_t eventId);

/// The id that goes with a name.
std::optional<uint32_t> findId(const std::vector<SNamedId> &table, const std::string &name);

/// The name that goes with an id, "?" when there is none.
const char *findName(const std::vector<SNamedId> &table, uint32_t id);

bool isCalledIn(const SModuleConfiguration &module, uint32_t phaseId);

} // namespace radio
#endif
