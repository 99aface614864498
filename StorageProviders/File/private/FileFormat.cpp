#include "FileFormat.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "VariableType.h"

namespace storage {

namespace {

constexpr char magic[8] = {'Z', 'A', 'F', 'S', 'T', 'O', 'R', 'E'};
constexpr std::uint32_t byteOrderMark = 0x01020304;
constexpr std::uint32_t swappedMark = 0x04030201;
constexpr std::uint32_t formatVersion = 1;
constexpr std::size_t headerSize = 44;
constexpr std::size_t recordOverhead = 20; ///< Length, type, count, path length, checksum.
constexpr std::size_t trailerSize = 4;

std::uint32_t checksum(const unsigned char *bytes, std::size_t length) {
    return static_cast<std::uint32_t>(crc32_z(0, bytes, length));
}

class Writer {
public:
    template <class Number>
    void add(Number number) {
        add(&number, sizeof number);
    }
    void add(const void *bytes, std::size_t length) {
        const auto *begin = static_cast<const unsigned char *>(bytes);
        m_bytes.insert(m_bytes.end(), begin, begin + length);
    }
    /// The checksum of everything since a place.
    void addChecksum(std::size_t since) { add(checksum(m_bytes.data() + since, m_bytes.size() - since)); }

    std::size_t size() const { return m_bytes.size(); }
    void reserve(std::size_t size) { m_bytes.reserve(size); }
    Bytes take() { return std::move(m_bytes); }

private:
    Bytes m_bytes;
};

/// Reads within bounds: what is asked for beyond them is refused.
class Reader {
public:
    Reader(const unsigned char *begin, std::size_t size, bool isSwapped = false)
        : m_at(begin), m_left(size), m_isSwapped(isSwapped) {}

    template <class Number>
    bool read(Number &number) {
        if (m_left < sizeof number) {
            return false;
        }
        std::memcpy(&number, m_at, sizeof number);
        if (m_isSwapped) {
            auto *bytes = reinterpret_cast<unsigned char *>(&number);
            std::reverse(bytes, bytes + sizeof number);
        }
        skip(sizeof number);
        return true;
    }
    bool take(std::size_t length, const unsigned char *&begin) {
        if (m_left < length) {
            return false;
        }
        begin = m_at;
        skip(length);
        return true;
    }
    void swapFromHere() { m_isSwapped = true; }
    bool isSwapped() const { return m_isSwapped; }
    std::size_t left() const { return m_left; }

private:
    void skip(std::size_t length) {
        m_at += length;
        m_left -= length;
    }

    const unsigned char *m_at;
    std::size_t m_left;
    bool m_isSwapped;
};

void swapElements(Bytes &content, std::size_t size) {
    for (auto element = content.begin(); element != content.end(); element += static_cast<std::ptrdiff_t>(size)) {
        std::reverse(element, element + static_cast<std::ptrdiff_t>(size));
    }
}

/// @return why the record is not whole; empty when it is.
std::string readRecord(Reader &reader, StoredValue &value) {
    std::uint32_t length = 0;
    const unsigned char *begin = nullptr;
    if (!reader.read(length) || !reader.take(length, begin) || length < recordOverhead - sizeof length) {
        return "it ends too early or its length is wrong";
    }
    Reader record(begin, length, reader.isSwapped());
    std::uint32_t type = 0;
    std::uint32_t pathLength = 0;
    const unsigned char *path = nullptr;
    const unsigned char *content = nullptr;
    std::uint32_t sum = 0;
    record.read(type);
    record.read(value.noOfElements);
    record.read(pathLength);
    value.type = static_cast<EVariableType>(type);
    if (!isPlain(value.type)) {
        return "its type " + std::to_string(type) + " is unknown";
    }
    const std::uint64_t size = contentSize(value.type, value.noOfElements);
    if (std::uint64_t{pathLength} + size + sizeof sum != record.left()) {
        return "its sizes do not fit its length";
    }
    record.take(pathLength, path);
    record.take(static_cast<std::size_t>(size), content);
    record.read(sum);
    if (sum != checksum(begin, length - sizeof sum)) {
        return "its checksum is wrong";
    }
    value.path.assign(reinterpret_cast<const char *>(path), pathLength);
    value.content.assign(content, content + size);
    if (reader.isSwapped()) {
        swapElements(value.content, elementSize(value.type));
    }
    return {};
}

struct Header {
    std::uint32_t order = 0;
    std::uint32_t version = 0;
    std::uint32_t width = 0;
    std::uint32_t noOfRecords = 0;
    std::uint64_t generation = 0;
    std::uint64_t size = 0;
    std::uint32_t sum = 0;
};

bool isMark(std::uint32_t order) {
    return order == byteOrderMark || order == swappedMark;
}

/// The reader stands behind it then, and knows the byte order.
void readHeader(Reader &reader, Header &header) {
    const unsigned char *magicBytes = nullptr;
    reader.take(sizeof magic, magicBytes);
    reader.read(header.order);
    if (header.order == swappedMark) {
        reader.swapFromHere();
    }
    reader.read(header.version);
    reader.read(header.width);
    reader.read(header.noOfRecords);
    reader.read(header.generation);
    reader.read(header.size);
    reader.read(header.sum);
}

bool isZero(const Bytes &bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
}

/// @return why they are not; empty when they are.
std::string readRecords(Reader &reader, std::uint32_t noOfRecords, StoredValues &values) {
    for (std::uint32_t i = 0; i < noOfRecords; ++i) {
        StoredValue value;
        const std::string why = readRecord(reader, value);
        if (!why.empty()) {
            return "record " + std::to_string(i) + " is damaged: " + why;
        }
        values.push_back(std::move(value));
    }
    std::unordered_set<std::string_view> paths;
    for (const StoredValue &value : values) {
        if (!paths.insert(value.path).second) {
            return "it has two records of the path " + value.path;
        }
    }
    return {};
}

} // namespace

std::uint64_t packedSize(const StoredValues &values) {
    std::uint64_t size = headerSize + trailerSize;
    for (const StoredValue &value : values) {
        size += recordOverhead + value.path.size() + std::uint64_t{value.content.size()};
    }
    return size;
}

Bytes packStore(const StoredValues &values, std::uint64_t generation) {
    const std::uint64_t size = packedSize(values);
    Writer writer;
    writer.reserve(static_cast<std::size_t>(size));
    writer.add(magic, sizeof magic);
    writer.add(byteOrderMark);
    writer.add(formatVersion);
    writer.add(static_cast<std::uint32_t>(sizeof(void *) * 8));
    writer.add(static_cast<std::uint32_t>(values.size()));
    writer.add(generation);
    writer.add(size);
    writer.addChecksum(0);
    for (const StoredValue &value : values) {
        const std::size_t length = recordOverhead - sizeof(std::uint32_t) + value.path.size() + value.content.size();
        writer.add(static_cast<std::uint32_t>(length));
        const std::size_t begin = writer.size();
        writer.add(static_cast<std::uint32_t>(value.type));
        writer.add(value.noOfElements);
        writer.add(static_cast<std::uint32_t>(value.path.size()));
        writer.add(value.path.data(), value.path.size());
        writer.add(value.content.data(), value.content.size());
        writer.addChecksum(begin);
    }
    writer.addChecksum(0);
    return writer.take();
}

UnpackedStore unpackStore(const Bytes &bytes) {
    UnpackedStore store;
    const bool hasMagic = std::equal(
        bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), sizeof magic)), magic);
    if (!hasMagic && isZero(bytes)) {
        store.why = "it holds nothing but zeros"; // as a file system leaves what it had no time to write
        return store;
    }
    if (hasMagic && bytes.size() < headerSize) {
        store.why = "it ends after " + std::to_string(bytes.size()) + " bytes, within its header";
        return store;
    }
    Reader reader(bytes.data(), bytes.size());
    Header header;
    readHeader(reader, header);
    if (!hasMagic) {
        const bool wasAStore = isMark(header.order) && header.version == formatVersion && header.size == bytes.size();
        store.state = wasAStore ? StoreState::damaged : StoreState::notAStore;
        store.why = wasAStore ? "its first bytes are damaged" : "it does not begin as a store does";
        return store;
    }
    if (!isMark(header.order) || header.sum != checksum(bytes.data(), headerSize - sizeof header.sum)) {
        store.why = "its header is damaged";
        return store;
    }
    if (header.version != formatVersion) {
        store.state = StoreState::newer;
        store.why = "it has the format version " + std::to_string(header.version) + ", known is " +
                    std::to_string(formatVersion);
        return store;
    }
    if (header.size != bytes.size()) {
        store.why =
            "it is " + std::to_string(bytes.size()) + " bytes long, its header says " + std::to_string(header.size);
        return store;
    }
    store.why = readRecords(reader, header.noOfRecords, store.values);
    if (!store.why.empty()) {
        store.values.clear();
        return store;
    }
    std::uint32_t sum = 0;
    if (reader.left() != trailerSize || !reader.read(sum) ||
        sum != checksum(bytes.data(), bytes.size() - trailerSize)) {
        store.why = "its checksum is wrong";
        store.values.clear();
        return store;
    }
    store.generation = header.generation;
    store.sum = sum;
    store.state = StoreState::whole;
    return store;
}

} // namespace storage
