/// @file
/// Brings a frame format into the DSP, and back after the DSP recovered.
#pragma once

#include <optional>
#include <string>

#include "Hardware/Dsp.h"
#include "Support/ControllerModule.h"

namespace radio {

class FrameFormatLoader final : public ControllerModule {
public:
    /// @param path  file of the first frame format; empty takes the balanced one.
    FrameFormatLoader(Dsp &dsp, std::string path);

    /// What the next load brings.
    void request(const std::string &formatText);

    EAFResult onModuleRegisterStorageObjects() override;
    EAFResult onPhaseModuleStorageObjectsRetrieved() override;
    EAFResult onPhasePreFrameformatLoad() override;
    EAFResult onPhaseFrameformatLoad() override;
    EAFResult onPhasePostFrameformatLoad() override;
    EAFResult onPhaseEndFrameformatLoad() override;
    EAFResult onPhaseDspRecoveryReloadFf() override;

private:
    Dsp &m_dsp;
    const std::string m_path;
    std::string m_requested;
    std::optional<FrameFormat> m_candidate; ///< Parsed and in order, not yet in use.
    std::optional<FrameFormat> m_active;
    uint32_t m_loads = 0;
};

} // namespace radio
