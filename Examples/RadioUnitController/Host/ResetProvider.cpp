#include "Host/ResetProvider.h"

#include <CModuleManager_c.h>

#include <cstdio>
#include <cstring>
#include <fstream>

namespace radio {
namespace {

constexpr ResetInfo powerOn{ResetCold, ReasonPowerOn, ALL_RADIO_CHANNELS};

struct ResetRecord {
    std::string path;
    ResetInfo lastReset = powerOn;
};

ResetRecord &resetRecord() {
    static ResetRecord instance;
    return instance;
}

const char *reasonText(uint32_t reason) {
    switch (reason) {
    case ReasonPowerOn:
        return "power on";
    case ReasonDspRecoveryFailed:
        return "DSP recovery failed";
    case ReasonRadioRestartFailed:
        return "radio restart failed";
    default:
        return "unknown reason";
    }
}

/// A board's own provider writes its reset register here and does not return.
EAFResult performSystemReset(uint32_t kind, uint32_t reason, uint32_t radioChannel) {
    const ResetInfo request{kind, reason, radioChannel};
    std::printf("  system reset requested: %s\n", toString(request).c_str());
    const std::string &path = resetRecord().path;
    if (path.empty()) {
        return eAF_S_OK;
    }
    std::ofstream file(path, std::ios::trunc);
    file << kind << ' ' << reason << ' ' << radioChannel << '\n';
    file.close();
    return file ? eAF_S_OK : eAF_E_FAILED;
}

/// @param first   ResetInfo to fill
/// @param second  text to fill
/// @param third   bytes of the text
EAFResult getSystemResetInfo(void *first, void *second, uint32_t third) {
    const ResetInfo &lastReset = resetRecord().lastReset;
    *static_cast<ResetInfo *>(first) = lastReset;
    const std::string text = toString(lastReset);
    if (text.size() >= third) {
        return eAF_E_BUFFER_TOO_SMALL;
    }
    std::memcpy(second, text.c_str(), text.size() + 1);
    return eAF_S_OK;
}

uint32_t isColdReset(SResetProvider * /*self*/) {
    return resetRecord().lastReset.kind == ResetCold ? 1 : 0;
}

} // namespace

void installResetProvider(const std::string &recordPath) {
    // The module manager keeps the address for as long as the process lives.
    static SResetProvider provider{performSystemReset, getSystemResetInfo, isColdReset};
    ResetRecord &record = resetRecord();
    record.path = recordPath;
    record.lastReset = powerOn;
    if (!recordPath.empty()) {
        ResetInfo stored{};
        std::ifstream file(recordPath);
        if (file >> stored.kind >> stored.reason >> stored.radioChannel) {
            record.lastReset = stored;
        }
        std::remove(recordPath.c_str());
    }
    CModuleManager_RegisterResetProvider(&provider);
}

std::string toString(const ResetInfo &info) {
    std::string text = info.kind == ResetWarm ? "warm" : "cold";
    text += ", ";
    text += reasonText(info.reason);
    if (info.radioChannel != ALL_RADIO_CHANNELS) {
        text += ", radio channel " + std::to_string(info.radioChannel);
    }
    return text;
}

} // namespace radio
