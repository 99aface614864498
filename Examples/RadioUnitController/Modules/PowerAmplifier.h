/// @file
/// The power amplifier of one radio channel.
#pragma once

#include <CStorageRegion.h>

#include <array>

#include "Support/ControllerModule.h"
#include "Support/IGainControl.h"

namespace radio {

/// One object for each channel: a group that runs for one channel reaches that channel's amplifier alone.
/// Publishes itself as an IGainControl from Init to Stop.
class PowerAmplifier final : public ControllerModule, private IGainControl {
public:
    /// @param radioChannel  1 to 4.
    explicit PowerAmplifier(uint32_t radioChannel);
    PowerAmplifier(const PowerAmplifier &) = delete;
    PowerAmplifier &operator=(const PowerAmplifier &) = delete;
    ~PowerAmplifier() override;

    EAFResult onModuleRegisterStorageObjects() override;
    EAFResult onPhaseModuleStorageObjectsRetrieved() override;
    EAFResult onModuleInit() override;
    EAFResult onPhaseStart() override;
    EAFResult onPhaseStop() override;
    EAFResult onPhasePreRadioRestartCold() override;
    EAFResult onPhasePostRadioRestartCold() override;
    EAFResult onPhasePreRadioRestartWarm() override;
    EAFResult onPhasePostRadioRestartWarm() override;
    EAFResult onPhaseDspRecoveryReconfig() override;

private:
    bool changeGain(double decibel) override;
    double targetGain() const;
    void withdraw();
    void stepTo(double decibel, unsigned int &steps);
    EAFResult calibrateBias();
    EAFResult rampTo(double decibel);
    EAFResult switchOn();
    EAFResult switchOff();

    const uint32_t m_radioChannel;
    uint32_t m_biasCode = 0; ///< Of the bias converter; 0 is off.
    uint32_t m_gainCode = 0; ///< Of the gain converter; 0 is off.
    double m_gain = 0.0;     ///< dB
    bool m_on = false;
    bool m_isPublished = false;

    // Kept over restarts: what calibration found.
    CStorageRegion m_region{};
    CStorageObject m_object{};
    unsigned char m_storedBias = 0; ///< Changed through its variable, under the lock.
    CVariable *m_bias = nullptr;
    std::array<int16_t, 8> m_correction{}; ///< 0.01 dB by octave of gain.
    CVariable *m_gains = nullptr;          ///< Of all channels, wherever they are kept.
};

} // namespace radio
