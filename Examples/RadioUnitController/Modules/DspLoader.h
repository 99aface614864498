/// @file
/// Brings the DSP's firmware into its memory, and back when it was damaged there.
#pragma once

#include <string>

#include "Hardware/Dsp.h"
#include "Support/ControllerModule.h"

namespace radio {

class DspLoader final : public ControllerModule {
public:
    DspLoader(Dsp &dsp, std::string imagePath);

    EAFResult onModuleRegisterStorageObjects() override;
    EAFResult onPhaseModuleStorageObjectsRetrieved() override;
    EAFResult onModuleInit() override;
    EAFResult onPhaseFrameformatLoad() override;
    EAFResult onPhaseStop() override;
    EAFResult onPhasePreDspRecovery() override;
    EAFResult onPhaseDspRecoveryReloadFw() override;
    EAFResult onPhasePostDspRecovery() override;

    /// The alarm that stands while the DSP is out of order, 0 without one.
    uint32_t alarm() const { return m_failureAlarm; }

private:
    EAFResult readImage();
    EAFResult load();

    Dsp &m_dsp;
    const std::string m_imagePath;
    FirmwareImage m_image;
    uint32_t m_failureAlarm = 0;
    uint32_t m_recoveryAlarm = 0;
};

} // namespace radio
