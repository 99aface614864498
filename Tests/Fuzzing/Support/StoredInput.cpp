#include "StoredInput.h"

#include <unistd.h>

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "Harness.h"
#include "VariableType.h"

namespace fuzz {

namespace {

constexpr std::uint32_t noOfPlainTypes = 21;
constexpr std::size_t headerSize = 44;
constexpr std::size_t sumSize = 4;

std::uint32_t checksum(const unsigned char *begin, std::size_t size) {
    return static_cast<std::uint32_t>(crc32(0, begin, static_cast<uInt>(size)));
}

template <class Number>
void put(Bytes &bytes, std::size_t at, Number number, bool isSwapped) {
    std::array<unsigned char, sizeof number> raw{};
    std::memcpy(raw.data(), &number, sizeof number);
    if (isSwapped) {
        std::reverse(raw.begin(), raw.end());
    }
    std::copy(raw.begin(), raw.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

template <class Number>
void append(Bytes &bytes, Number number, bool isSwapped) {
    bytes.resize(bytes.size() + sizeof number);
    put(bytes, bytes.size() - sizeof number, number, isSwapped);
}

std::uint32_t wordAt(const Bytes &bytes, std::size_t at, bool isSwapped) {
    std::array<unsigned char, 4> raw{};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), raw.size(), raw.begin());
    if (isSwapped) {
        std::reverse(raw.begin(), raw.end());
    }
    std::uint32_t word = 0;
    std::memcpy(&word, raw.data(), sizeof word);
    return word;
}

void appendSwapped(Bytes &bytes, const storage::StoredValue &value, bool isSwapped) {
    const std::size_t width = storage::elementSize(value.type);
    const std::size_t begin = bytes.size();
    bytes.insert(bytes.end(), value.content.begin(), value.content.end());
    for (std::size_t at = begin; isSwapped && at < bytes.size(); at += width) {
        const auto element = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        std::reverse(element, element + static_cast<std::ptrdiff_t>(width));
    }
}

} // namespace

std::string pathFrom(FuzzInput &input) {
    const std::uint32_t form = input.below(8);
    if (form == 0) {
        return input.text(input.below(40));
    }
    std::string path = "Cfg/O" + std::to_string(input.below(3)) + "/V" + std::to_string(input.below(12));
    return form == 1 ? path + std::string(input.below(600), 'x') : path;
}

storage::StoredValues valuesFrom(FuzzInput &input, std::uint32_t most) {
    storage::StoredValues values;
    std::set<std::string> paths;
    for (std::uint32_t left = input.below(most + 1); left > 0; --left) {
        storage::StoredValue value;
        value.path = pathFrom(input);
        value.type = static_cast<EVariableType>(input.below(noOfPlainTypes));
        value.noOfElements = input.below(24);
        const auto size = static_cast<std::size_t>(storage::contentSize(value.type, value.noOfElements));
        value.content = input.bytes(size);
        value.content.resize(size);
        if (paths.insert(value.path).second) {
            values.push_back(std::move(value));
        }
    }
    return values;
}

storage::StoredValues sorted(storage::StoredValues values) {
    std::sort(values.begin(), values.end(), [](const auto &a, const auto &b) { return a.path < b.path; });
    return values;
}

std::string shown(const storage::StoredValues &values) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const storage::StoredValue &value : values) {
        text += "\n    " + value.path + " " + std::string(storage::typeName(value.type)) + "[" +
                std::to_string(value.noOfElements) + "] ";
        for (const unsigned char byte : value.content) {
            text += digits[byte >> 4];
            text += digits[byte & 0xF];
        }
    }
    return std::to_string(values.size()) + " values" + text;
}

void checkWhole(const storage::StoredValues &values) {
    std::set<std::string> paths;
    for (const storage::StoredValue &value : values) {
        FUZZ_CHECK(storage::isPlain(value.type), shown({value}));
        FUZZ_CHECK(value.content.size() == storage::contentSize(value.type, value.noOfElements), shown({value}));
        FUZZ_CHECK(paths.insert(value.path).second, shown({value}));
    }
}

Bytes storeFile(const storage::StoredValues &values, std::uint64_t generation, bool isSwapped) {
    Bytes bytes{'Z', 'A', 'F', 'S', 'T', 'O', 'R', 'E'};
    append(bytes, std::uint32_t{0x01020304}, isSwapped);
    append(bytes, std::uint32_t{1}, isSwapped);
    append(bytes, std::uint32_t{32}, isSwapped);
    append(bytes, static_cast<std::uint32_t>(values.size()), isSwapped);
    append(bytes, generation, isSwapped);
    bytes.resize(headerSize); // its size and checksum are the repair's
    for (const storage::StoredValue &value : values) {
        const std::size_t length = 3 * 4 + value.path.size() + value.content.size() + sumSize;
        append(bytes, static_cast<std::uint32_t>(length), isSwapped);
        append(bytes, static_cast<std::uint32_t>(value.type), isSwapped);
        append(bytes, value.noOfElements, isSwapped);
        append(bytes, static_cast<std::uint32_t>(value.path.size()), isSwapped);
        bytes.insert(bytes.end(), value.path.begin(), value.path.end());
        appendSwapped(bytes, value, isSwapped);
        append(bytes, std::uint32_t{0}, isSwapped);
    }
    append(bytes, std::uint32_t{0}, isSwapped);
    repair(bytes, {true, true, true});
    return bytes;
}

void repair(Bytes &file, const Repair &what) {
    if (file.size() < headerSize + sumSize) {
        return;
    }
    const bool isSwapped = wordAt(file, 8, false) == 0x04030201;
    if (what.header) {
        put(file, 32, static_cast<std::uint64_t>(file.size()), isSwapped);
        put(file, headerSize - sumSize, checksum(file.data(), headerSize - sumSize), isSwapped);
    }
    const std::size_t end = file.size() - sumSize;
    std::size_t at = headerSize;
    while (what.records && at + sumSize < end) {
        const std::size_t length = wordAt(file, at, isSwapped);
        at += sumSize;
        if (length < sumSize || length > end - at) {
            break;
        }
        at += length;
        const std::size_t summed = length - sumSize;
        put(file, at - sumSize, checksum(file.data() + at - length, summed), isSwapped);
    }
    if (what.trailer) {
        put(file, end, checksum(file.data(), end), isSwapped);
    }
}

void damage(Bytes &bytes, FuzzInput &input) {
    for (std::uint32_t left = input.below(6); left > 0 && !bytes.empty(); --left) {
        const std::size_t at = input.below(static_cast<std::uint32_t>(std::min<std::size_t>(bytes.size(), 0x10000)));
        const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        switch (input.below(5)) {
        case 0:
            bytes.resize(at);
            break;
        case 1: {
            const Bytes added = input.bytes(input.below(16));
            bytes.insert(place, added.begin(), added.end());
            break;
        }
        case 2:
            bytes.erase(place,
                        place + static_cast<std::ptrdiff_t>(std::min<std::size_t>(input.below(16), bytes.size() - at)));
            break;
        case 3:
            *place = static_cast<unsigned char>(*place ^ (1U << input.below(8)));
            break;
        default: {
            const Bytes written = input.bytes(std::min<std::size_t>(input.below(16), bytes.size() - at));
            std::copy(written.begin(), written.end(), place);
            break;
        }
        }
    }
}

void Messages::add(storage::Severity severity, const std::string &text) {
    // A report is one line, whatever a file holds.
    FUZZ_CHECK(!text.empty(), "an empty message");
    if (severity == storage::Severity::error) {
        errors.push_back(text);
    } else if (severity == storage::Severity::warning) {
        warnings.push_back(text);
    }
}

Folder::Folder() {
    std::string place = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    place += "/zaf-fuzz-XXXXXX";
    FUZZ_CHECK(mkdtemp(place.data()) != nullptr, place + " can not be made");
    m_path = place;
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void Folder::clear() const {
    for (const auto &entry : std::filesystem::directory_iterator(m_path)) {
        std::filesystem::remove_all(entry.path());
    }
}

void Folder::write(const std::string &name, const Bytes &bytes) const {
    std::ofstream stream(file(name), std::ios::binary);
    stream.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    FUZZ_CHECK(stream.good(), file(name) + " can not be written");
}

Bytes Folder::read(const std::string &name) const {
    std::ifstream stream(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool Folder::has(const std::string &name) const {
    return std::filesystem::exists(file(name));
}

std::vector<std::string> Folder::names() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(m_path)) {
        const std::string name = entry.path().filename();
        if (entry.path().extension() != ".lock") {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace fuzz
