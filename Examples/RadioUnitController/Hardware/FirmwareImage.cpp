#include "Hardware/FirmwareImage.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace radio {
namespace {

constexpr uint32_t mark = 0x57464352; // "RCFW"
constexpr std::size_t headerWords = 4;
constexpr std::size_t headerSize = headerWords * sizeof(uint32_t);

constexpr const char *remedy = "; write a good one with --write-firmware FILE";

std::string hexadecimal(uint32_t value) {
    std::ostringstream text;
    text << "0x" << std::hex << std::setw(8) << std::setfill('0') << value;
    return text.str();
}

void putWord(std::ostream &out, uint32_t word) {
    for (unsigned int shift = 0; shift < 32; shift += 8) {
        out.put(static_cast<char>((word >> shift) & 0xFFU));
    }
}

uint32_t wordAt(const std::vector<uint8_t> &bytes, std::size_t index) {
    uint32_t word = 0;
    for (std::size_t i = 0; i < sizeof word; ++i) {
        word |= static_cast<uint32_t>(bytes[index * sizeof word + i]) << (8 * i);
    }
    return word;
}

} // namespace

uint32_t checksum(const std::vector<uint8_t> &bytes) {
    constexpr uint32_t polynomial = 0xEDB88320;
    uint32_t remainder = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        remainder ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? polynomial : 0);
        }
    }
    return ~remainder;
}

FirmwareImage makeFirmwareImage() {
    FirmwareImage image;
    image.version = 3;
    image.code.resize(16384);
    uint32_t state = image.version;
    for (uint8_t &byte : image.code) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return image;
}

std::string writeFirmwareImage(const std::string &path, const FirmwareImage &image) {
    errno = 0;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    putWord(file, mark);
    putWord(file, image.version);
    putWord(file, static_cast<uint32_t>(image.code.size()));
    putWord(file, checksum(image.code));
    file.write(reinterpret_cast<const char *>(image.code.data()), static_cast<std::streamsize>(image.code.size()));
    file.close();
    if (!file) {
        return "firmware image " + path + " can not be written: " + std::strerror(errno);
    }
    return {};
}

std::string readFirmwareImage(const std::string &path, FirmwareImage &image) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return "firmware image " + path + " can not be read: " + std::strerror(errno) + remedy;
    }
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (bytes.size() < headerSize || wordAt(bytes, 0) != mark) {
        return "file " + path + " is no firmware image" + remedy;
    }
    const std::size_t length = wordAt(bytes, 2);
    if (bytes.size() - headerSize != length) {
        return "firmware image " + path + " holds " + std::to_string(bytes.size() - headerSize) +
               " bytes of code instead of " + std::to_string(length) + remedy;
    }
    FirmwareImage candidate{wordAt(bytes, 1), {bytes.begin() + headerSize, bytes.end()}};
    const uint32_t actual = checksum(candidate.code);
    if (actual != wordAt(bytes, 3)) {
        return "firmware image " + path + " is damaged: checksum " + hexadecimal(actual) + " instead of " +
               hexadecimal(wordAt(bytes, 3)) + remedy;
    }
    image = std::move(candidate);
    return {};
}

} // namespace radio
