/// @file
/// Watches the machine that the controller runs on.
#pragma once

#include "Support/Arrivals.h"
#include "Support/ControllerModule.h"
#include "Support/EventListener.h"

namespace radio {

/// Answers EVENT_SAMPLE_BOARD, from its own thread, with a copied EVENT_BOARD_SAMPLED.
class BoardSupervision final : public ControllerModule {
public:
    explicit BoardSupervision(Arrivals &arrivals);

    EAFResult onPhaseModuleStorageObjectsRetrieved() override;
    EAFResult onModuleInit() override;
    EAFResult onPhaseStart() override;
    EAFResult onPhaseStop() override;

private:
    EAFResult onEvent(uint32_t eventId);

    Arrivals &m_arrivals;
    EventListener m_listener; // last: its thread uses the members above
};

} // namespace radio
