/// @file
/// Keeps the radio's parameters over restarts.
#pragma once

#include <CStorageRegion.h>

#include <array>
#include <cstdint>

#include "Host/Storage.h"
#include "Support/Arrivals.h"
#include "Support/ControllerModule.h"
#include "Support/EventListener.h"

namespace radio {

/// Registers the region Cfg, has everything retrieved before other modules take their values up, stores on stop and
/// on EVENT_STORE_PARAMETERS.
class ParameterStore final : public ControllerModule {
public:
    /// @param withFanCurve  also a variable that earlier firmware does not know.
    ParameterStore(Storage &storage, Arrivals &arrivals, bool withFanCurve);
    ParameterStore(const ParameterStore &) = delete;
    ParameterStore &operator=(const ParameterStore &) = delete;
    ~ParameterStore() override;

    EAFResult onModuleRegisterStorageObjects() override;
    EAFResult onPhaseModuleStorageObjectsRetrieved() override;
    EAFResult onModuleInit() override;
    EAFResult onPhaseStop() override;

    /// Changes a channel's stored gain, and through its interface the amplifier's. @return false when there is none.
    bool tune(uint32_t radioChannel, double byDecibel);

    /// A channel's stored gain in dB; 0 when there is none.
    static double storedGain(uint32_t radioChannel);

    /// Every parameter of the region with its path and value.
    static void print();

private:
    EAFResult onEvent(uint32_t eventId);

    Storage &m_storage;
    Arrivals &m_arrivals;
    const bool m_withFanCurve;

    // The contents. A variable's lock guards each: the store runs on the listener's thread too.
    std::array<char, 16> m_serialNumber{};
    uint32_t m_starts = 0;
    std::array<double, 4> m_carriers{};
    std::array<float, 4> m_gains{};
    std::array<unsigned char, 4> m_fanCurve{};
    float m_loadLimit = 0;
    uint32_t m_memoryLimit = 0;
    std::array<float, 2> m_tilts{};

    CStorageRegion m_region{};
    CStorageObject m_radio{};
    CStorageObject m_limits{};
    std::array<CStorageObject, 2> m_antennas{};
    std::array<CStorageObject *, 2> m_antennaList{};
    EventListener m_listener; // last: its thread uses the members above
};

} // namespace radio
