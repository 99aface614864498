#include "Host/Controller.h"

#include <AfResult.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "Host/ResetProvider.h"

namespace radio {
namespace {

std::unique_ptr<TemporaryFile> generateFirmware(const Options &options) {
    if (!options.firmwarePath.empty()) {
        return nullptr;
    }
    auto file = std::make_unique<TemporaryFile>();
    const std::string fault = writeFirmwareImage(file->path(), makeFirmwareImage());
    if (!fault.empty()) {
        throw std::runtime_error(fault);
    }
    return file;
}

Options withFirmware(Options options, const TemporaryFile *generated) {
    if (generated != nullptr) {
        options.firmwarePath = generated->path();
    }
    return options;
}

void printRunHeader(uint32_t groupId, uint32_t radioChannel) {
    const std::string channel =
        radioChannel == ALL_RADIO_CHANNELS ? "all radio channels" : "radio channel " + std::to_string(radioChannel);
    std::printf("  run group %s, %s\n", findName(groups(), groupId), channel.c_str());
    printPhaseCallHeader();
}

EAFResult printRunResult(uint32_t groupId, EAFResult result) {
    std::printf("  group %s: %s\n", findName(groups(), groupId), AfResult::toString(result).c_str());
    return result;
}

const char *stateText(uint32_t state) {
    switch (state) {
    case MODULE_STATE_REGISTERED:
        return "registered";
    case MODULE_STATE_PHASE_OK:
        return "phase ok";
    case MODULE_STATE_PHASE_FAILED:
        return "phase failed";
    default:
        return "unknown";
    }
}

} // namespace

Controller::Controller(const Options &options)
    : m_generatedFirmware(generateFirmware(options)), m_options(withFirmware(options, m_generatedFirmware.get())),
      m_framework(options.port), m_storage(m_options), m_applications(m_options, m_storage, m_arrivals) {
    installResetProvider(m_options.resetRecordPath);
    Framework::registerConfiguration();
    if (Applications::registerAll() >= eAF_E_FAILED) {
        throw std::runtime_error("the applications could not be registered; the trace says why");
    }
    for (const auto &[moduleId, phaseId] : m_options.failures) {
        failOnPurpose(moduleId, phaseId);
    }
}

Controller::~Controller() {
    m_storage.close(); // while the modules' storage objects live
}

EAFResult Controller::start() {
    printRunHeader(GROUP_START, ALL_RADIO_CHANNELS);
    if (!m_options.stopAtFirstFailure) {
        return printRunResult(GROUP_START, CApplicationFramework_Start());
    }
    // The framework's own start runs everything and reports at the end. A host that wants the other return
    // option takes its two steps itself.
    EAFResult result = Applications::initializeAll();
    if (result < eAF_E_FAILED) {
        result = CModuleManager_RunGroupWithReturnOption(GROUP_START, ALL_RADIO_CHANNELS, 1);
    }
    return printRunResult(GROUP_START, result);
}

EAFResult Controller::stop() {
    printRunHeader(GROUP_STOP, ALL_RADIO_CHANNELS);
    return printRunResult(GROUP_STOP, CApplicationFramework_Stop());
}

EAFResult Controller::run(uint32_t groupId, uint32_t radioChannel) {
    printRunHeader(groupId, radioChannel);
    const uint32_t returnOption = m_options.stopAtFirstFailure ? 1 : 0;
    return printRunResult(groupId, CModuleManager_RunGroupWithReturnOption(groupId, radioChannel, returnOption));
}

void Controller::printModuleStates() {
    for (const SModuleConfiguration &module : moduleTable()) {
        uint32_t state = 0;
        CModuleManager_QueryModuleState(module.id, &state);
        std::printf("    %-17s  %u  %s\n", module.name, state, stateText(state));
    }
}

} // namespace radio
