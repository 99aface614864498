#include "Configuration.h"

#include <algorithm>
#include <iterator>

namespace radio {
namespace {

template <std::size_t Size>
constexpr SSubscription subscription(ECallbackPriority priority, uint32_t batchId, const uint32_t (&phaseIds)[Size]) {
    return {priority, batchId, phaseIds, static_cast<uint32_t>(Size)};
}

template <std::size_t Size>
constexpr SModuleConfiguration module(uint32_t id, const char *name, uint32_t radioChannel,
                                      const SSubscription (&subscriptions)[Size]) {
    return {id, name, radioChannel, subscriptions, Size};
}

constexpr uint32_t init[] = {PHASE_INIT};
constexpr uint32_t start[] = {PHASE_START};
constexpr uint32_t stop[] = {PHASE_STOP};
constexpr uint32_t startAndStop[] = {PHASE_START, PHASE_STOP};
constexpr uint32_t retrieved[] = {PHASE_STORAGE_OBJECTS_RETRIEVED};
constexpr uint32_t retrievedAndInit[] = {PHASE_STORAGE_OBJECTS_RETRIEVED, PHASE_INIT};
constexpr uint32_t registerAndInit[] = {PHASE_REGISTER_STORAGE_OBJECTS, PHASE_INIT};
constexpr uint32_t storage[] = {PHASE_REGISTER_STORAGE_OBJECTS, PHASE_STORAGE_OBJECTS_RETRIEVED};
constexpr uint32_t storageAndInit[] = {PHASE_REGISTER_STORAGE_OBJECTS, PHASE_STORAGE_OBJECTS_RETRIEVED, PHASE_INIT};
constexpr uint32_t allOfFrameFormat[] = {PHASE_PRE_FRAME_FORMAT_LOAD, PHASE_FRAME_FORMAT_LOAD,
                                         PHASE_POST_FRAME_FORMAT_LOAD, PHASE_END_FRAME_FORMAT_LOAD};
constexpr uint32_t frameFormatLoad[] = {PHASE_FRAME_FORMAT_LOAD};
constexpr uint32_t alarmThread[] = {PHASE_DISABLE_ALARM_THREAD, PHASE_ENABLE_ALARM_THREAD};
constexpr uint32_t dspRecovery[] = {PHASE_PRE_DSP_RECOVERY, PHASE_DSP_RECOVERY_RELOAD_FW, PHASE_POST_DSP_RECOVERY};
constexpr uint32_t reloadFrameFormat[] = {PHASE_DSP_RECOVERY_RELOAD_FF};
constexpr uint32_t reconfigure[] = {PHASE_DSP_RECOVERY_RECONFIG};
constexpr uint32_t radioRestart[] = {PHASE_PRE_RADIO_RESTART_COLD, PHASE_POST_RADIO_RESTART_COLD,
                                     PHASE_PRE_RADIO_RESTART_WARM, PHASE_POST_RADIO_RESTART_WARM};

// The event log hears everything: it stops after all others.
constexpr SSubscription eventLog[] = {
    subscription(NORMAL, BATCH_PREPARATION, init),
    subscription(LOWEST, BATCH_OPERATION, stop),
};

// The alarm thread is held while the DSP recovers and while a radio restarts cold: phases 31 and 37 belong to
// both groups, one subscription serves both.
constexpr SSubscription alarmCollector[] = {
    subscription(NORMAL, BATCH_PREPARATION, retrievedAndInit),
    subscription(HIGH, BATCH_OPERATION, start),
    subscription(LOW, BATCH_OPERATION, stop),
    subscription(NORMAL, BATCH_RECOVERY, alarmThread),
};

constexpr SSubscription clock[] = {
    subscription(HIGHEST, BATCH_PREPARATION, init),
    subscription(NORMAL, BATCH_OPERATION, startAndStop),
};

constexpr SSubscription boardSupervision[] = {
    subscription(NORMAL, BATCH_PREPARATION, retrievedAndInit),
    subscription(NORMAL, BATCH_OPERATION, startAndStop),
};

constexpr SSubscription frameFormatLoader[] = {
    subscription(NORMAL, BATCH_PREPARATION, storage),
    subscription(NORMAL, BATCH_FRAME_FORMAT, allOfFrameFormat),
    subscription(NORMAL, BATCH_RECOVERY, reloadFrameFormat),
};

// The DSP's memory is checked before a frame format is written into it.
constexpr SSubscription dspLoader[] = {
    subscription(NORMAL, BATCH_PREPARATION, storageAndInit),
    subscription(HIGH, BATCH_FRAME_FORMAT, frameFormatLoad),
    subscription(LOWER_THAN_NORMAL, BATCH_OPERATION, stop),
    subscription(NORMAL, BATCH_RECOVERY, dspRecovery),
};

// Everything is retrieved before anybody takes a value up, and stored when those who change values have stopped.
constexpr SSubscription parameterStore[] = {
    subscription(NORMAL, BATCH_PREPARATION, registerAndInit),
    subscription(HIGHEST, BATCH_PREPARATION, retrieved),
    subscription(LOW, BATCH_OPERATION, stop),
};

// Power comes on last and goes off first.
constexpr SSubscription powerAmplifier[] = {
    subscription(NORMAL, BATCH_PREPARATION, storageAndInit), subscription(LOWER_THAN_NORMAL, BATCH_OPERATION, start),
    subscription(HIGHER_THAN_NORMAL, BATCH_OPERATION, stop), subscription(NORMAL, BATCH_RADIO_RESTART, radioRestart),
    subscription(NORMAL, BATCH_RECOVERY, reconfigure),
};

} // namespace

const std::vector<SNamedId> &groups() {
    static const std::vector<SNamedId> table = {
        {GROUP_START, "Start"},
        {GROUP_STOP, "Stop"},
        {GROUP_FRAME_FORMAT_LOAD, "FrameFormatLoad"},
        {GROUP_DSP_RECOVERY, "DspRecovery"},
        {GROUP_RADIO_RESTART_COLD, "RadioRestartCold"},
        {GROUP_RADIO_RESTART_WARM, "RadioRestartWarm"},
    };
    return table;
}

const std::vector<SNamedId> &batches() {
    static const std::vector<SNamedId> table = {
        {BATCH_PREPARATION, "Preparation"}, {BATCH_FRAME_FORMAT, "FrameFormat"},   {BATCH_OPERATION, "Operation"},
        {BATCH_RECOVERY, "Recovery"},       {BATCH_RADIO_RESTART, "RadioRestart"},
    };
    return table;
}

const std::vector<SNamedId> &phases() {
    static const std::vector<SNamedId> table = {
        {PHASE_REGISTER_STORAGE_OBJECTS, "RegisterStorageObjects"},
        {PHASE_STORAGE_OBJECTS_RETRIEVED, "StorageObjectsRetrieved"},
        {PHASE_INIT, "Init"},
        {PHASE_START, "Start"},
        {PHASE_STOP, "Stop"},
        {PHASE_PRE_FRAME_FORMAT_LOAD, "PreFrameFormatLoad"},
        {PHASE_FRAME_FORMAT_LOAD, "FrameFormatLoad"},
        {PHASE_POST_FRAME_FORMAT_LOAD, "PostFrameFormatLoad"},
        {PHASE_END_FRAME_FORMAT_LOAD, "EndFrameFormatLoad"},
        {PHASE_PRE_RADIO_RESTART_COLD, "PreRadioRestartCold"},
        {PHASE_PRE_RADIO_RESTART_WARM, "PreRadioRestartWarm"},
        {PHASE_POST_RADIO_RESTART_COLD, "PostRadioRestartCold"},
        {PHASE_POST_RADIO_RESTART_WARM, "PostRadioRestartWarm"},
        {PHASE_DISABLE_ALARM_THREAD, "DisableAlarmThread"},
        {PHASE_PRE_DSP_RECOVERY, "PreDspRecovery"},
        {PHASE_DSP_RECOVERY_RELOAD_FW, "DspRecoveryReloadFw"},
        {PHASE_DSP_RECOVERY_RELOAD_FF, "DspRecoveryReloadFf"},
        {PHASE_DSP_RECOVERY_RECONFIG, "DspRecoveryReconfig"},
        {PHASE_POST_DSP_RECOVERY, "PostDspRecovery"},
        {PHASE_ENABLE_ALARM_THREAD, "EnableAlarmThread"},
    };
    return table;
}

const std::vector<SPhaseLink> &phaseLinks() {
    static const std::vector<SPhaseLink> table = {
        {PHASE_REGISTER_STORAGE_OBJECTS, GROUP_START, BATCH_PREPARATION},
        {PHASE_STORAGE_OBJECTS_RETRIEVED, GROUP_START, BATCH_PREPARATION},
        {PHASE_INIT, GROUP_START, BATCH_PREPARATION},

        // Loading a frame format is part of the start and a group of its own.
        {PHASE_PRE_FRAME_FORMAT_LOAD, GROUP_START, BATCH_FRAME_FORMAT},
        {PHASE_FRAME_FORMAT_LOAD, GROUP_START, BATCH_FRAME_FORMAT},
        {PHASE_POST_FRAME_FORMAT_LOAD, GROUP_START, BATCH_FRAME_FORMAT},
        {PHASE_END_FRAME_FORMAT_LOAD, GROUP_START, BATCH_FRAME_FORMAT},
        {PHASE_PRE_FRAME_FORMAT_LOAD, GROUP_FRAME_FORMAT_LOAD, BATCH_FRAME_FORMAT},
        {PHASE_FRAME_FORMAT_LOAD, GROUP_FRAME_FORMAT_LOAD, BATCH_FRAME_FORMAT},
        {PHASE_POST_FRAME_FORMAT_LOAD, GROUP_FRAME_FORMAT_LOAD, BATCH_FRAME_FORMAT},
        {PHASE_END_FRAME_FORMAT_LOAD, GROUP_FRAME_FORMAT_LOAD, BATCH_FRAME_FORMAT},

        {PHASE_START, GROUP_START, BATCH_OPERATION},
        {PHASE_STOP, GROUP_STOP, BATCH_OPERATION},

        {PHASE_DISABLE_ALARM_THREAD, GROUP_DSP_RECOVERY, BATCH_RECOVERY},
        {PHASE_PRE_DSP_RECOVERY, GROUP_DSP_RECOVERY, BATCH_RECOVERY},
        {PHASE_DSP_RECOVERY_RELOAD_FW, GROUP_DSP_RECOVERY, BATCH_RECOVERY},
        {PHASE_DSP_RECOVERY_RELOAD_FF, GROUP_DSP_RECOVERY, BATCH_RECOVERY},
        {PHASE_DSP_RECOVERY_RECONFIG, GROUP_DSP_RECOVERY, BATCH_RECOVERY},
        {PHASE_POST_DSP_RECOVERY, GROUP_DSP_RECOVERY, BATCH_RECOVERY},
        {PHASE_ENABLE_ALARM_THREAD, GROUP_DSP_RECOVERY, BATCH_RECOVERY},

        {PHASE_DISABLE_ALARM_THREAD, GROUP_RADIO_RESTART_COLD, BATCH_RADIO_RESTART},
        {PHASE_PRE_RADIO_RESTART_COLD, GROUP_RADIO_RESTART_COLD, BATCH_RADIO_RESTART},
        {PHASE_POST_RADIO_RESTART_COLD, GROUP_RADIO_RESTART_COLD, BATCH_RADIO_RESTART},
        {PHASE_ENABLE_ALARM_THREAD, GROUP_RADIO_RESTART_COLD, BATCH_RADIO_RESTART},
        {PHASE_PRE_RADIO_RESTART_WARM, GROUP_RADIO_RESTART_WARM, BATCH_RADIO_RESTART},
        {PHASE_POST_RADIO_RESTART_WARM, GROUP_RADIO_RESTART_WARM, BATCH_RADIO_RESTART},
    };
    return table;
}

const std::vector<SNamedId> &events() {
    static const std::vector<SNamedId> table = {
        {EVENT_FRAME_FORMAT_ACTIVE, "FrameFormatActive"},
        {EVENT_POWER_AMPLIFIER_ON, "PowerAmplifierOn"},
        {EVENT_POWER_AMPLIFIER_OFF, "PowerAmplifierOff"},
        {EVENT_ALARM_RAISED, "AlarmRaised"},
        {EVENT_ALARM_CLEARED, "AlarmCleared"},
        {EVENT_ALARM_ACKNOWLEDGED, "AlarmAcknowledged"},
        {EVENT_SAMPLE_BOARD, "SampleBoard"},
        {EVENT_BOARD_SAMPLED, "BoardSampled"},
        {EVENT_STORE_PARAMETERS, "StoreParameters"},
    };
    return table;
}

const std::vector<SModuleConfiguration> &moduleTable() {
    static const std::vector<SModuleConfiguration> table = {
        module(MODULE_EVENT_LOG, "EventLog", ALL_RADIO_CHANNELS, eventLog),
        module(MODULE_ALARM_COLLECTOR, "AlarmCollector", ALL_RADIO_CHANNELS, alarmCollector),
        module(MODULE_CLOCK, "Clock", ALL_RADIO_CHANNELS, clock),
        module(MODULE_BOARD_SUPERVISION, "BoardSupervision", ALL_RADIO_CHANNELS, boardSupervision),
        module(MODULE_FRAME_FORMAT_LOADER, "FrameFormatLoader", ALL_RADIO_CHANNELS, frameFormatLoader),
        module(MODULE_DSP_LOADER, "DspLoader", ALL_RADIO_CHANNELS, dspLoader),
        module(MODULE_PARAMETER_STORE, "ParameterStore", ALL_RADIO_CHANNELS, parameterStore),
        module(MODULE_POWER_AMPLIFIER_1, "PowerAmplifier1", 1, powerAmplifier),
        module(MODULE_POWER_AMPLIFIER_2, "PowerAmplifier2", 2, powerAmplifier),
        module(MODULE_POWER_AMPLIFIER_3, "PowerAmplifier3", 3, powerAmplifier),
        module(MODULE_POWER_AMPLIFIER_4, "PowerAmplifier4", 4, powerAmplifier),
    };
    return table;
}

EventData dataOf(uint32_t eventId) {
    switch (eventId) {
    case EVENT_SAMPLE_BOARD:
    case EVENT_STORE_PARAMETERS:
        return EventData::None;
    case EVENT_FRAME_FORMAT_ACTIVE:
    case EVENT_POWER_AMPLIFIER_ON:
    case EVENT_POWER_AMPLIFIER_OFF:
    case EVENT_ALARM_ACKNOWLEDGED:
        return EventData::Number;
    default:
        return EventData::Memory;
    }
}

std::optional<uint32_t> findId(const std::vector<SNamedId> &table, const std::string &name) {
    const auto entry =
        std::find_if(table.begin(), table.end(), [&name](const SNamedId &candidate) { return name == candidate.name; });
    return entry == table.end() ? std::nullopt : std::optional(entry->id);
}

const char *findName(const std::vector<SNamedId> &table, uint32_t id) {
    const auto entry =
        std::find_if(table.begin(), table.end(), [id](const SNamedId &candidate) { return id == candidate.id; });
    return entry == table.end() ? "?" : entry->name;
}

bool isCalledIn(const SModuleConfiguration &module, uint32_t phaseId) {
    return std::any_of(module.subscriptions, module.subscriptions + module.subscriptionCount,
                       [phaseId](const SSubscription &subscription) {
                           const uint32_t *end = subscription.phases + subscription.phaseCount;
                           return std::find(subscription.phases, end, phaseId) != end;
                       });
}

} // namespace radio

const SModuleConfiguration *Configuration_FindModule(uint32_t moduleId) {
    const std::vector<SModuleConfiguration> &table = radio::moduleTable();
    const auto entry = std::find_if(table.begin(), table.end(), [moduleId](const SModuleConfiguration &candidate) {
        return candidate.id == moduleId;
    });
    return entry == table.end() ? nullptr : &*entry;
}

const char *Configuration_PhaseName(uint32_t phaseId) {
    return radio::findName(radio::phases(), phaseId);
}
