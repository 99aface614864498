/// @file
/// This controller's system reset, behind the module manager's reset gateway.
#pragma once

#include <cstdint>
#include <string>

namespace radio {

/// First word of a reset request.
enum ResetKind : uint32_t { ResetCold = 1, ResetWarm = 2 };

/// Second word of a reset request. The third is the radio channel that asked, ALL_RADIO_CHANNELS for none.
enum ResetReason : uint32_t { ReasonPowerOn = 0, ReasonDspRecoveryFailed = 1, ReasonRadioRestartFailed = 2 };

/// What led to this start; the first record that CModuleManager_GetSystemResetInfo fills.
struct ResetInfo {
    uint32_t kind;
    uint32_t reason;
    uint32_t radioChannel;
};

/// Makes this controller's functions the reset provider.
/// @param recordPath  file that carries a reset request over to the next start, as a board does in a register;
///                    read and removed here. Empty: a request is only printed.
void installResetProvider(const std::string &recordPath);

/// "cold, power on"
std::string toString(const ResetInfo &info);

} // namespace radio
