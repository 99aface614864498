#include "Modules/FrameFormatLoader.h"

#include <CEventHandler.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "Support/DataWord.h"
#include "Support/PhaseCall.h"

namespace radio {
namespace {

EAFResult fail(const std::string &reason) {
    note(reason);
    return eAF_E_FAILED;
}

} // namespace

FrameFormatLoader::FrameFormatLoader(Dsp &dsp, std::string path)
    : ControllerModule(MODULE_FRAME_FORMAT_LOADER), m_dsp(dsp), m_path(std::move(path)) {}

void FrameFormatLoader::request(const std::string &formatText) {
    m_requested = formatText;
}

EAFResult FrameFormatLoader::onModuleRegisterStorageObjects() {
    note(m_path.empty() ? "frame format comes from the built-in table" : "frame format comes from a file");
    return eAF_S_OK;
}

EAFResult FrameFormatLoader::onPhaseModuleStorageObjectsRetrieved() {
    if (m_path.empty()) {
        request(balancedFrameFormat);
    } else {
        errno = 0;
        std::ifstream file(m_path);
        std::ostringstream text;
        if (!file || !(text << file.rdbuf())) {
            return fail("frame format file " + m_path +
                        " can not be read: " + (errno != 0 ? std::strerror(errno) : "it is empty") +
                        "; give another with --frame-format FILE");
        }
        request(text.str());
    }
    note("frame format read, " + std::to_string(m_requested.size()) + " bytes");
    return eAF_S_OK;
}

EAFResult FrameFormatLoader::onPhasePreFrameformatLoad() {
    m_candidate.reset();
    FrameFormat format;
    std::string fault = parseFrameFormat(m_requested, format);
    if (fault.empty()) {
        fault = checkFrameFormat(format);
    }
    if (!fault.empty()) {
        return fail(fault);
    }
    note("frame format " + format.name + " is in order: " + format.slots + ", " +
         std::to_string(downlinkSymbols(format)) + " downlink symbols");
    m_candidate = format;
    return eAF_S_OK;
}

EAFResult FrameFormatLoader::onPhaseFrameformatLoad() {
    if (!m_candidate) {
        return fail("there is no frame format to load; see what PreFrameFormatLoad said");
    }
    if (!m_dsp.setFrameFormat(*m_candidate)) {
        const FrameFormat refused = *std::exchange(m_candidate, std::nullopt);
        return fail("DSP refuses frame format " + refused.name + "; run the group DspRecovery, then load it again");
    }
    note("frame format " + m_candidate->name + " written into the DSP");
    return eAF_S_OK;
}

EAFResult FrameFormatLoader::onPhasePostFrameformatLoad() {
    if (!m_candidate) {
        note("nothing to verify");
        return eAF_W_WARNING;
    }
    if (m_dsp.frameFormat() != m_candidate->name) {
        return fail("DSP runs \"" + m_dsp.frameFormat() + "\" instead of " + m_candidate->name + "; load it again");
    }
    note("DSP confirms frame format " + m_candidate->name);
    return eAF_S_OK;
}

EAFResult FrameFormatLoader::onPhaseEndFrameformatLoad() {
    if (!m_candidate) {
        note(m_active ? "frame format " + m_active->name + " stays" : "no frame format is active");
        return eAF_W_WARNING;
    }
    m_active = std::exchange(m_candidate, std::nullopt);
    note("frame format " + m_active->name + " is active");
    return CEventHandler_FireEventWithData(EVENT_FRAME_FORMAT_ACTIVE, toDataWord(++m_loads));
}

EAFResult FrameFormatLoader::onPhaseDspRecoveryReloadFf() {
    if (!m_active) {
        return fail("no frame format was ever active; run the group FrameFormatLoad");
    }
    if (!m_dsp.setFrameFormat(*m_active)) {
        return fail("DSP refuses frame format " + m_active->name + "; its firmware must be loaded first");
    }
    note("frame format " + m_active->name + " written into the DSP");
    return eAF_S_OK;
}

} // namespace radio
