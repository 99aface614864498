#include "Host/Applications.h"

#include <initializer_list>

#include "Modules/Clock.h"

namespace radio {
namespace {

EAFResult subscribeAll(std::initializer_list<ControllerModule *> modules) {
    for (ControllerModule *module : modules) {
        const EAFResult result = module->subscribe();
        if (result >= eAF_E_FAILED) {
            return result;
        }
    }
    return eAF_S_OK;
}

} // namespace

PlatformApplication::PlatformApplication(Arrivals &arrivals) : alarmCollector(arrivals), boardSupervision(arrivals) {}

PlatformApplication::~PlatformApplication() {
    Clock_Unregister();
}

EAFResult PlatformApplication::subscribe() {
    const EAFResult result = Clock_Register(Configuration_FindModule(MODULE_CLOCK));
    return result < eAF_E_FAILED ? subscribeAll({&eventLog, &alarmCollector, &boardSupervision}) : result;
}

RadioApplication::RadioApplication(const Options &options, Storage &storage, Arrivals &arrivals)
    : frameFormatLoader(dsp, options.frameFormatPath), dspLoader(dsp, options.firmwarePath),
      parameterStore(storage, arrivals, options.newFirmware) {
    for (uint32_t channel = FIRST_RADIO_CHANNEL; channel <= LAST_RADIO_CHANNEL; ++channel) {
        powerAmplifiers.push_back(std::make_unique<PowerAmplifier>(channel));
    }
}

EAFResult RadioApplication::subscribe() {
    EAFResult result = subscribeAll({&frameFormatLoader, &dspLoader, &parameterStore});
    for (const auto &powerAmplifier : powerAmplifiers) {
        if (result < eAF_E_FAILED) {
            result = powerAmplifier->subscribe();
        }
    }
    return result;
}

SApplicationDescriptor Applications::platformDescriptor{&Applications::initializePlatform,
                                                        [] { return "PlatformApplication"; }};
SApplicationDescriptor Applications::radioDescriptor{&Applications::initializeRadio, [] { return "RadioApplication"; }};
Applications *Applications::current = nullptr;

Applications::Applications(const Options &options, Storage &storage, Arrivals &arrivals)
    : m_options(options), m_storage(storage), m_arrivals(arrivals) {
    current = this;
}

Applications::~Applications() {
    current = nullptr;
}

// The framework initializes the application that was registered last first, and modules of one priority are
// called in the order in which they were registered: the platform's shall come before the radio's.
EAFResult Applications::registerAll() {
    const EAFResult result = CApplicationFramework_RegisterApplication(&radioDescriptor);
    return result < eAF_E_FAILED ? CApplicationFramework_RegisterApplication(&platformDescriptor) : result;
}

EAFResult Applications::initializeAll() {
    const EAFResult platformResult = initializePlatform();
    const EAFResult radioResult = initializeRadio();
    return platformResult < eAF_E_FAILED ? radioResult : platformResult;
}

EAFResult Applications::initializePlatform() {
    current->m_platform = std::make_unique<PlatformApplication>(current->m_arrivals);
    return current->m_platform->subscribe();
}

EAFResult Applications::initializeRadio() {
    current->m_radio = std::make_unique<RadioApplication>(current->m_options, current->m_storage, current->m_arrivals);
    return current->m_radio->subscribe();
}

} // namespace radio
