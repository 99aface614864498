#include "Modules/PowerAmplifier.h"

#include <CEventHandler.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "Support/DataWord.h"
#include "Support/PhaseCall.h"

namespace radio {
namespace {

constexpr double fullGain = 30.0; // dB, the gain converter's whole range
constexpr double standbyGain = 6.0;
constexpr double largestStep = 3.0; // dB; a larger one splatters into the neighbouring channels
constexpr uint32_t largestGainCode = 4095;

constexpr double quiescentCurrent = 250.0; // mA
constexpr unsigned int biasBits = 8;

/// The outer channels share their antenna filters and run lower.
double targetGain(uint32_t radioChannel) {
    return radioChannel == FIRST_RADIO_CHANNEL || radioChannel == LAST_RADIO_CHANNEL ? 27.0 : fullGain;
}

uint32_t gainCode(double decibel) {
    return static_cast<uint32_t>(std::lround(largestGainCode * std::pow(10.0, (decibel - fullGain) / 20.0)));
}

/// What the transistor draws, in mA. A board measures this instead.
double drainCurrent(uint32_t radioChannel, uint32_t biasCode) {
    const double overdrive = biasCode - (90.0 + 4.0 * radioChannel);
    return overdrive <= 0.0 ? 0.0 : 0.05 * overdrive * overdrive;
}

std::string whole(double value) {
    return std::to_string(std::lround(value));
}

} // namespace

PowerAmplifier::PowerAmplifier(uint32_t radioChannel)
    : ControllerModule(MODULE_POWER_AMPLIFIER_1 + radioChannel - FIRST_RADIO_CHANNEL), m_radioChannel(radioChannel) {}

EAFResult PowerAmplifier::onModuleInit() {
    return calibrateBias();
}

EAFResult PowerAmplifier::onPhaseStart() {
    return switchOn();
}

EAFResult PowerAmplifier::onPhaseStop() {
    return switchOff();
}

EAFResult PowerAmplifier::onPhasePreRadioRestartCold() {
    const EAFResult result = switchOff();
    m_biasCode = 0;
    return result;
}

EAFResult PowerAmplifier::onPhasePostRadioRestartCold() {
    const EAFResult result = calibrateBias();
    return result < eAF_E_FAILED ? switchOn() : result;
}

EAFResult PowerAmplifier::onPhasePreRadioRestartWarm() {
    return rampTo(standbyGain);
}

EAFResult PowerAmplifier::onPhasePostRadioRestartWarm() {
    return rampTo(targetGain(m_radioChannel));
}

EAFResult PowerAmplifier::onPhaseDspRecoveryReconfig() {
    // While the DSP was off the amplifier had noise to send: it comes up from standby again.
    m_gain = standbyGain;
    return rampTo(targetGain(m_radioChannel));
}

/// Successive approximation: the largest code that draws no more than the quiescent current.
EAFResult PowerAmplifier::calibrateBias() {
    uint32_t code = 0;
    for (unsigned int bit = biasBits; bit-- > 0;) {
        const uint32_t candidate = code | (1U << bit);
        if (drainCurrent(m_radioChannel, candidate) <= quiescentCurrent) {
            code = candidate;
        }
    }
    const double current = drainCurrent(m_radioChannel, code);
    note("bias " + std::to_string(code) + " draws " + whole(current) + " mA");
    if (current < quiescentCurrent / 2) {
        note("the transistor draws no current at any bias; replace the amplifier");
        return eAF_E_FAILED;
    }
    m_biasCode = code;
    return eAF_S_OK;
}

EAFResult PowerAmplifier::rampTo(double decibel) {
    if (m_biasCode == 0) {
        note("the amplifier has no bias; run the group RadioRestartCold for this channel");
        return eAF_E_FAILED;
    }
    const double from = m_gain;
    unsigned int steps = 0;
    while (m_gain != decibel) {
        m_gain += std::clamp(decibel - m_gain, -largestStep, largestStep);
        m_gainCode = gainCode(m_gain);
        ++steps;
    }
    note("gain " + whole(from) + " -> " + whole(m_gain) + " dB in " + std::to_string(steps) + " steps, code " +
         std::to_string(m_gainCode));
    return eAF_S_OK;
}

EAFResult PowerAmplifier::switchOn() {
    const EAFResult result = rampTo(targetGain(m_radioChannel));
    if (result >= eAF_E_FAILED) {
        return result;
    }
    m_on = true;
    return CEventHandler_FireEventWithData(EVENT_POWER_AMPLIFIER_ON, toDataWord(m_radioChannel));
}

EAFResult PowerAmplifier::switchOff() {
    if (!m_on) {
        note("was not on");
        return eAF_S_OK;
    }
    const EAFResult result = rampTo(0.0);
    m_gainCode = 0;
    m_on = false;
    CEventHandler_FireEventWithData(EVENT_POWER_AMPLIFIER_OFF, toDataWord(m_radioChannel));
    return result;
}

} // namespace radio
