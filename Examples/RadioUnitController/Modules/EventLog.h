/// @file
/// Counts every event of the controller.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "Support/ControllerModule.h"
#include "Support/EventListener.h"

namespace radio {

/// A listener without a filter. Its thread runs from Init to the end of Stop, so that nobody who fires ever
/// waits for room in its queue.
class EventLog final : public ControllerModule {
public:
    EventLog();

    EAFResult onModuleInit() override;
    EAFResult onPhaseStop() override;

    /// How often each event was heard. Exact once the log has stopped.
    void print() const;

private:
    EAFResult count(uint32_t eventId);

    std::vector<std::atomic<uint32_t>> m_counts; // in the order of the table of events
    EventListener m_listener;                    // last: its thread uses the member above
};

} // namespace radio
