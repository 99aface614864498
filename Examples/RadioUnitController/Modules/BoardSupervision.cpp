#include "Modules/BoardSupervision.h"

#include <CStorageManager.h>

#include <cmath>

#include "Hardware/Board.h"
#include "Support/PhaseCall.h"
#include "Support/StoredValue.h"

namespace radio {

BoardSupervision::BoardSupervision(Arrivals &arrivals)
    : ControllerModule(MODULE_BOARD_SUPERVISION), m_arrivals(arrivals),
      m_listener(LISTENER_BOARD_SUPERVISION, {EVENT_SAMPLE_BOARD},
                 [this](uint32_t eventId, const void * /*data*/) { return onEvent(eventId); }) {}

EAFResult BoardSupervision::onPhaseModuleStorageObjectsRetrieved() {
    CVariable *limit = nullptr;
    if (CStorageManager_GetVariableByPath("Cfg/Radio/Limits/Load", &limit) >= eAF_E_FAILED) {
        note("no load limit is known");
        return eAF_W_WARNING;
    }
    note("load limit " + std::to_string(std::lround(storedElement<float>(limit, 0))));
    return eAF_S_OK;
}

EAFResult BoardSupervision::onModuleInit() {
    BoardSample sample{};
    const std::string fault = readBoard(sample);
    if (!fault.empty()) {
        note(fault);
        return eAF_E_FAILED;
    }
    note(toString(sample));
    return m_listener.open();
}

EAFResult BoardSupervision::onPhaseStart() {
    note("supervision thread runs");
    return m_listener.start();
}

EAFResult BoardSupervision::onPhaseStop() {
    note("supervision thread ended");
    return m_listener.stop();
}

EAFResult BoardSupervision::onEvent(uint32_t eventId) {
    if (eventId != EVENT_SAMPLE_BOARD) {
        m_arrivals.add(m_listener.name(), eventId, "is not for this listener");
        return eAF_W_UNEXPECTED_EVENT;
    }
    BoardSample sample{};
    const std::string fault = readBoard(sample);
    m_arrivals.add(m_listener.name(), EVENT_SAMPLE_BOARD, fault.empty() ? "fires BoardSampled" : fault);
    return fault.empty() ? CEventHandler_FireEventWithCopiedData(EVENT_BOARD_SAMPLED, &sample, sizeof sample)
                         : eAF_E_FAILED;
}

} // namespace radio
