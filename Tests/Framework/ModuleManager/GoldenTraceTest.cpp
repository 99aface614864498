// The whole trace of a small host's life, from its first registration to the last, against a page that is written
// by hand.
#include "GoldenTrace.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ModuleManagerFixture.h"

namespace {

using test::Callback;

class GoldenTrace : public test::ModuleManagerFixture {
protected:
    Callback &callback(const char *name) { return callbacks.emplace_back(name, calls); }

    static void enter(std::uint32_t moduleId, const char *name, std::uint32_t channel, Callback &callback,
                      ECallbackPriority priority, std::uint32_t batchId, const std::vector<std::uint32_t> &filter) {
        CModuleManager_RegisterCallback(moduleId, name, channel, &callback.record, priority, batchId,
                                        filter.empty() ? nullptr : filter.data(),
                                        static_cast<std::uint32_t>(filter.size()));
    }

    void liveThroughEverything();
};

void GoldenTrace::liveThroughEverything() {
    CModuleManager_RegisterGroup(0, "Start");
    CModuleManager_RegisterGroup(1, "Stop");
    CModuleManager_RegisterGroup(0, "Begin");
    CModuleManager_RegisterBatch(1, "Boot");
    CModuleManager_RegisterBatch(2, "Radio");
    CModuleManager_RegisterBatch(3, "Spare");
    CModuleManager_RegisterBatch(2, "Antenna");
    CModuleManager_RegisterPhase(10, "Init");
    CModuleManager_RegisterPhase(11, "Load");
    CModuleManager_RegisterPhase(12, "Tune");
    CModuleManager_RegisterPhase(13, "Halt");
    CModuleManager_RegisterPhase(10, "Once more");
    CModuleManager_InsertPhaseIntoBatch(10, 0, 1);
    CModuleManager_InsertPhaseIntoBatch(11, 0, 1);
    CModuleManager_InsertPhaseIntoBatch(13, 1, 1);
    CModuleManager_InsertPhaseIntoBatch(12, 0, 2);
    CModuleManager_InsertPhaseIntoBatch(10, 0, 2);
    CModuleManager_InsertPhaseIntoBatch(10, 8, 9);
    CModuleManager_InsertPhaseIntoBatch(10, 8, 2);
    CModuleManager_InsertPhaseIntoBatch(99, 0, 2);

    CModuleManager_RegisterModule(5, "Fan");
    CModuleManager_RegisterModule(6, "Pump");
    CModuleManager_RegisterModule(7, "Lamp");
    CModuleManager_RegisterModule(5, "Ventilator");

    Callback &fan = callback("Fan");
    Callback &pump = callback("Pump");
    Callback &lamp = callback("Lamp");
    enter(5, "FanOnBoot", ALL_RADIO_CHANNELS, fan, LOWEST, 1, {});
    enter(6, "PumpOnBoot", 1, pump, HIGH, 1, {10, 13});
    enter(7, "LampOnRadio", 2, lamp, NORMAL, 2, {12});
    enter(6, "PumpOnRadio", ALL_RADIO_CHANNELS, pump, HIGHEST, 2, {12});
    enter(8, "Nobody", 1, fan, NORMAL, 1, {});
    enter(5, "FanOnNothing", 1, fan, NORMAL, 9, {});

    CModuleManager_RunGroup(0, 1);
    lamp.answers(eAF_E_MUTEX_ERROR);
    CModuleManager_RunGroup(0, 2);
    pump.answers(eAF_E_NOT_INITIALIZED);
    CModuleManager_RunGroupWithReturnOption(0, 1, 1);
    CModuleManager_RunGroupWithReturnOption(0, ALL_RADIO_CHANNELS, 0);
    CModuleManager_RunGroup(1, 5);
    CModuleManager_RunGroup(2, 5);

    CModuleManager_UnregisterModule(6);
    CModuleManager_UnregisterModule(6);
    CModuleManager_SetModuleState(6, 1);
    CModuleManager_RunGroup(1, 3);
}

TEST_F(GoldenTrace, OfARichRun_IsTheOneWrittenDown) {
    liveThroughEverything();
    test::expectGoldenTrace(GOLDEN_TRACE);
}

} // namespace
