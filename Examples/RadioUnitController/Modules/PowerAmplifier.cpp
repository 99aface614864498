#include "Modules/PowerAmplifier.h"

#include <CEventHandler.h>
#include <CStorageManager.h>
#include <InterfaceBroker.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "Host/Storage.h"
#include "Support/DataWord.h"
#include "Support/PhaseCall.h"
#include "Support/StoredValue.h"

namespace radio {
namespace {

constexpr double fullGain = 30.0; // dB, the gain converter's whole range
constexpr double standbyGain = 6.0;
constexpr double largestStep = 3.0; // dB; a larger one splatters into the neighbouring channels
constexpr uint32_t largestGainCode = 4095;

constexpr double quiescentCurrent = 250.0; // mA
constexpr unsigned int biasBits = 8;

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
    : ControllerModule(MODULE_POWER_AMPLIFIER_1 + radioChannel - FIRST_RADIO_CHANNEL),
      IGainControl(IGainControl::nameOf(radioChannel)), m_radioChannel(radioChannel) {}

PowerAmplifier::~PowerAmplifier() {
    withdraw(); // also of a controller that never came to its stop phase
}

void PowerAmplifier::withdraw() {
    if (m_isPublished) {
        InterfaceBroker::getInstance().unregisterInterface(IGainControl::getName(), nullptr);
        m_isPublished = false;
    }
}

EAFResult PowerAmplifier::onModuleRegisterStorageObjects() {
    CStorageRegion_Construct(&m_region, ("Cal" + std::to_string(m_radioChannel)).c_str(), LocationCalibration);
    CStorageObject_Construct(&m_object, "Amplifier");
    std::array<SVariableDescriptor, 2> variables{
        {{&m_storedBias, TYPE_UINT8, 1, "Bias", nullptr},
         {m_correction.data(), TYPE_INT16_ARRAY, static_cast<uint32_t>(m_correction.size()), "Correction", nullptr}}};
    EAFResult result = CStorageObject_CreateVariables(&m_object, variables.data(), variables.size());
    CStorageObject_GetVariableByName(&m_object, "Bias", &m_bias);
    result = result < eAF_E_FAILED ? CStorageRegion_AddObject(&m_region, &m_object) : result;
    result = result < eAF_E_FAILED ? CStorageManager_RegisterRegion(&m_region) : result;
    note("region " + std::string(m_region.name) +
         (result < eAF_E_FAILED ? " registered" : " was refused; the trace says why"));
    return result;
}

EAFResult PowerAmplifier::onPhaseModuleStorageObjectsRetrieved() {
    if (CStorageManager_GetVariableByPath("Cfg/Radio/Gains", &m_gains) >= eAF_E_FAILED) {
        m_gains = nullptr;
        note("no gain is known: the amplifier stays in standby");
        return eAF_W_WARNING;
    }
    note("gain " + whole(targetGain()) + " dB, " +
         (m_storedBias != 0 ? "last bias " + std::to_string(m_storedBias) : std::string("never calibrated")));
    return eAF_S_OK;
}

double PowerAmplifier::targetGain() const {
    return m_gains != nullptr ? storedElement<float>(m_gains, m_radioChannel - FIRST_RADIO_CHANNEL) : standbyGain;
}

bool PowerAmplifier::changeGain(double decibel) {
    if (!m_on || decibel < 0.0 || decibel > fullGain) {
        return false;
    }
    unsigned int steps = 0;
    stepTo(decibel, steps);
    return true;
}

EAFResult PowerAmplifier::onModuleInit() {
    m_isPublished = InterfaceBroker::getInstance().registerInterface(this) == eAF_S_OK;
    return calibrateBias();
}

EAFResult PowerAmplifier::onPhaseStart() {
    return switchOn();
}

EAFResult PowerAmplifier::onPhaseStop() {
    withdraw();
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
    return rampTo(targetGain());
}

EAFResult PowerAmplifier::onPhaseDspRecoveryReconfig() {
    // While the DSP was off the amplifier had noise to send: it comes up from standby again.
    m_gain = standbyGain;
    return rampTo(targetGain());
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
    if (m_bias != nullptr) {
        changeStoredElement(m_bias, 0, static_cast<unsigned char>(code));
    }
    return eAF_S_OK;
}

void PowerAmplifier::stepTo(double decibel, unsigned int &steps) {
    while (m_gain != decibel) {
        m_gain += std::clamp(decibel - m_gain, -largestStep, largestStep);
        m_gainCode = gainCode(m_gain);
        ++steps;
    }
}

EAFResult PowerAmplifier::rampTo(double decibel) {
    if (m_biasCode == 0) {
        note("the amplifier has no bias; run the group RadioRestartCold for this channel");
        return eAF_E_FAILED;
    }
    const double from = m_gain;
    unsigned int steps = 0;
    stepTo(decibel, steps);
    note("gain " + whole(from) + " -> " + whole(m_gain) + " dB in " + std::to_string(steps) + " steps, code " +
         std::to_string(m_gainCode));
    return eAF_S_OK;
}

EAFResult PowerAmplifier::switchOn() {
    const EAFResult result = rampTo(targetGain());
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
