/// @file
/// The signal processor, as far as its loaders see it.
#pragma once

#include "Hardware/FirmwareImage.h"
#include "Hardware/FrameFormat.h"

namespace radio {

/// A controller for a real board has registers and a memory window here, behind the same few calls.
class Dsp {
public:
    void load(const FirmwareImage &image);
    void powerDown();

    bool isLoaded() const { return !m_memory.empty(); }

    /// The memory still holds what was loaded.
    bool isIntact() const { return isLoaded() && checksum(m_memory) == m_loadedChecksum; }

    /// @return false when there is no program that could take it.
    bool setFrameFormat(const FrameFormat &format);

    /// The name of the format in use, empty without one.
    const std::string &frameFormat() const { return m_frameFormat; }

    /// What a particle does to a memory cell now and then. Nothing happens to an empty memory.
    void flipBit(std::size_t address, unsigned int bit);

private:
    std::vector<uint8_t> m_memory;
    uint32_t m_loadedChecksum = 0;
    std::string m_frameFormat;
};

} // namespace radio
