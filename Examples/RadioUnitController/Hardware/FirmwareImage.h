/// @file
/// The DSP's program as a file: a header of four little-endian words (mark, version, length, checksum), then the
/// code that the checksum is of.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace radio {

struct FirmwareImage {
    uint32_t version = 0;
    std::vector<uint8_t> code;
};

/// CRC-32 as in Ethernet and zip.
uint32_t checksum(const std::vector<uint8_t> &bytes);

/// An image to load where no board vendor delivers one: the same code every time.
FirmwareImage makeFirmwareImage();

/// @return empty when done, otherwise what is wrong and what to do.
std::string writeFirmwareImage(const std::string &path, const FirmwareImage &image);

/// Hands out an image only when its file is whole.
/// @return empty when done, otherwise what is wrong and what to do.
std::string readFirmwareImage(const std::string &path, FirmwareImage &image);

} // namespace radio
