/// @file
/// The power amplifier of one radio channel.
#pragma once

#include "Support/ControllerModule.h"

namespace radio {

/// One object for each channel: a group that runs for one channel reaches that channel's amplifier alone.
class PowerAmplifier final : public ControllerModule {
public:
    /// @param radioChannel  1 to 4.
    explicit PowerAmplifier(uint32_t radioChannel);

    EAFResult onModuleInit() override;
    EAFResult onPhaseStart() override;
    EAFResult onPhaseStop() override;
    EAFResult onPhasePreRadioRestartCold() override;
    EAFResult onPhasePostRadioRestartCold() override;
    EAFResult onPhasePreRadioRestartWarm() override;
    EAFResult onPhasePostRadioRestartWarm() override;
    EAFResult onPhaseDspRecoveryReconfig() override;

private:
    EAFResult calibrateBias();
    EAFResult rampTo(double decibel);
    EAFResult switchOn();
    EAFResult switchOff();

    const uint32_t m_radioChannel;
    uint32_t m_biasCode = 0; ///< Of the bias converter; 0 is off.
    uint32_t m_gainCode = 0; ///< Of the gain converter; 0 is off.
    double m_gain = 0.0;     ///< dB
    bool m_on = false;
};

} // namespace radio
