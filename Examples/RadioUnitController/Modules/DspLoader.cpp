#include "Modules/DspLoader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "Modules/Alarm.h"
#include "Support/PhaseCall.h"

namespace radio {

DspLoader::DspLoader(Dsp &dsp, std::string imagePath)
    : ControllerModule(MODULE_DSP_LOADER), m_dsp(dsp), m_imagePath(std::move(imagePath)) {}

EAFResult DspLoader::onModuleRegisterStorageObjects() {
    if (access(m_imagePath.c_str(), R_OK) != 0) {
        note("firmware image " + m_imagePath + " can not be read: " + std::strerror(errno) +
             "; write a good one with --write-firmware FILE");
        return eAF_E_FAILED;
    }
    note("firmware image found");
    return eAF_S_OK;
}

EAFResult DspLoader::onPhaseModuleStorageObjectsRetrieved() {
    return readImage();
}

EAFResult DspLoader::onModuleInit() {
    return load();
}

EAFResult DspLoader::onPhaseFrameformatLoad() {
    if (m_dsp.isIntact()) {
        note("DSP memory is intact");
        return eAF_S_OK;
    }
    note(m_dsp.isLoaded() ? "DSP memory is damaged; run the group DspRecovery"
                          : "DSP has no firmware; see what Init said");
    if (m_failureAlarm == 0) {
        m_failureAlarm = raiseAlarm("DSP memory is damaged", Urgency::Urgent);
    }
    return eAF_E_FAILED;
}

EAFResult DspLoader::onPhaseStop() {
    m_dsp.powerDown();
    note("DSP is off");
    return eAF_S_OK;
}

EAFResult DspLoader::onPhasePreDspRecovery() {
    m_dsp.powerDown();
    m_recoveryAlarm = raiseAlarm("radio is silent while the DSP recovers", Urgency::Normal);
    note("DSP is off");
    return eAF_S_OK;
}

EAFResult DspLoader::onPhaseDspRecoveryReloadFw() {
    // Read anew: the copy in this process may be what is damaged.
    const EAFResult result = readImage();
    return result < eAF_E_FAILED ? load() : result;
}

EAFResult DspLoader::onPhasePostDspRecovery() {
    if (!m_dsp.isIntact()) {
        note("the DSP is still out of order; restart the board");
        return eAF_E_FAILED;
    }
    clearAlarm(std::exchange(m_recoveryAlarm, 0), Urgency::Normal);
    if (m_failureAlarm != 0) {
        clearAlarm(std::exchange(m_failureAlarm, 0), Urgency::Urgent);
    }
    note("DSP runs with frame format " + m_dsp.frameFormat());
    return eAF_S_OK;
}

EAFResult DspLoader::readImage() {
    const std::string fault = readFirmwareImage(m_imagePath, m_image);
    if (!fault.empty()) {
        note(fault);
        return eAF_E_FAILED;
    }
    note("firmware " + std::to_string(m_image.version) + " read, checksum good");
    return eAF_S_OK;
}

EAFResult DspLoader::load() {
    if (m_image.code.empty()) {
        note("there is no firmware to load; see what StorageObjectsRetrieved said");
        return eAF_E_FAILED;
    }
    m_dsp.load(m_image);
    note("firmware " + std::to_string(m_image.version) + " loaded, " + std::to_string(m_image.code.size()) + " bytes");
    return eAF_S_OK;
}

} // namespace radio
