#include "Hardware/Dsp.h"

namespace radio {

void Dsp::load(const FirmwareImage &image) {
    m_memory = image.code;
    m_loadedChecksum = checksum(image.code);
    m_frameFormat.clear();
}

void Dsp::powerDown() {
    m_memory.clear();
    m_frameFormat.clear();
}

bool Dsp::setFrameFormat(const FrameFormat &format) {
    if (!isIntact()) {
        return false;
    }
    m_frameFormat = format.name;
    return true;
}

void Dsp::flipBit(std::size_t address, unsigned int bit) {
    if (isLoaded()) {
        uint8_t &cell = m_memory[address % m_memory.size()];
        cell = static_cast<uint8_t>(cell ^ (1U << (bit % 8)));
    }
}

} // namespace radio
