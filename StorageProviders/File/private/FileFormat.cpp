#include "FileFormat.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "PathIndex.h"
#include "RecordBytes.h"
#include "VariableType.h"

namespace storage {

namespace {

constexpr char magic[8] = {'Z', 'A', 'F', 'S', 'T', 'O', 'R', 'E'};
constexpr std::uint32_t byteOrderMark = 0x01020304;
constexpr std::uint32_t swappedMark = 0x04030201;
constexpr std::uint32_t formatVersion = 1;

void swapElements(std::vector<unsigned char> &content, std::size_t size) {
    for (auto element = content.begin(); element != content.end(); element += static_cast<std::ptrdiff_t>(size)) {
        std::reverse(element, element + static_cast<std::ptrdiff_t>(size));
    }
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

/// @return why they are not whole; empty when they are.
std::string checkRecords(Reader &reader, std::uint32_t noOfRecords) {
    // A header may be wrong about the records, the bytes are not.
    std::vector<std::string_view> paths;
    paths.reserve(std::min<std::size_t>(noOfRecords, reader.left() / recordOverhead));
    for (std::uint32_t i = 0; i < noOfRecords; ++i) {
        Record record;
        std::string why = readRecord(reader, record);
        if (why.empty() && record.sum != checksum(record.checked, record.sizeOfChecked)) {
            why = "its checksum is wrong";
        }
        if (!why.empty()) {
            return "record " + std::to_string(i) + " is damaged: " + why;
        }
        paths.push_back(record.path);
    }
    PathIndex index;
    index.reserve(paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (index.add(paths[i], i, [&](std::size_t place) { return paths[place]; }) != PathIndex::none) {
            return "it has two records of the path " + std::string(paths[i]);
        }
    }
    return {};
}

} // namespace

std::string readRecord(Reader &reader, Record &record) {
    std::uint32_t length = 0;
    if (!reader.read(length) || !reader.take(length, record.checked) || length < recordOverhead - sizeof length) {
        return "it ends too early or its length is wrong";
    }
    record.sizeOfChecked = length - sizeof record.sum;
    Reader fields(record.checked, length, reader.isSwapped());
    std::uint32_t type = 0;
    std::uint32_t pathLength = 0;
    fields.read(type);
    fields.read(record.noOfElements);
    fields.read(pathLength);
    record.type = static_cast<EVariableType>(type);
    if (!isPlain(record.type)) {
        return "its type " + std::to_string(type) + " is unknown";
    }
    const std::uint64_t size = contentSize(record.type, record.noOfElements);
    if (std::uint64_t{pathLength} + size + sizeof record.sum != fields.left()) {
        return "its sizes do not fit its length";
    }
    const unsigned char *path = nullptr;
    fields.take(pathLength, path);
    record.path = {reinterpret_cast<const char *>(path), pathLength};
    record.size = static_cast<std::size_t>(size);
    fields.take(record.size, record.content);
    fields.read(record.sum);
    return {};
}

void Writer::addHeader(std::uint32_t noOfRecords, std::uint64_t generation) {
    add(magic, sizeof magic);
    add(byteOrderMark);
    add(formatVersion);
    add(static_cast<std::uint32_t>(sizeof(void *) * 8));
    add(noOfRecords);
    add(generation);
    add(std::uint64_t{m_bytes.size()});
    addChecksum(0);
}

void Writer::addRecord(const ValueView &value) {
    const std::size_t length = recordOverhead - sizeof(std::uint32_t) + value.path.size() + value.size;
    add(static_cast<std::uint32_t>(length));
    const std::size_t begin = m_end;
    add(static_cast<std::uint32_t>(value.type));
    add(value.noOfElements);
    add(static_cast<std::uint32_t>(value.path.size()));
    add(value.path.data(), value.path.size());
    add(value.content, value.size);
    addChecksum(begin);
}

std::uint64_t packedSize(const StoredValues &values) {
    std::uint64_t size = headerSize + trailerSize;
    for (const StoredValue &value : values) {
        size += recordOverhead + value.path.size() + std::uint64_t{value.content.size()};
    }
    return size;
}

Bytes packStore(const StoredValues &values, std::uint64_t generation) {
    Writer writer(static_cast<std::size_t>(packedSize(values)));
    writer.addHeader(static_cast<std::uint32_t>(values.size()), generation);
    for (const StoredValue &value : values) {
        writer.addRecord(value);
    }
    writer.addChecksum(0);
    return writer.take();
}

StoreCheck checkStore(const Bytes &bytes) {
    StoreCheck check;
    const bool hasMagic = std::equal(
        bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), sizeof magic)), magic);
    if (!hasMagic && isZero(bytes)) {
        check.why = "it holds nothing but zeros"; // as a file system leaves what it had no time to write
        return check;
    }
    if (hasMagic && bytes.size() < headerSize) {
        check.why = "it ends after " + std::to_string(bytes.size()) + " bytes, within its header";
        return check;
    }
    Reader reader(bytes.data(), bytes.size());
    Header header;
    readHeader(reader, header);
    if (!hasMagic) {
        const bool wasAStore = isMark(header.order) && header.version == formatVersion && header.size == bytes.size();
        check.state = wasAStore ? StoreState::damaged : StoreState::notAStore;
        check.why = wasAStore ? "its first bytes are damaged" : "it does not begin as a store does";
        return check;
    }
    if (!isMark(header.order) || header.sum != checksum(bytes.data(), headerSize - sizeof header.sum)) {
        check.why = "its header is damaged";
        return check;
    }
    if (header.version != formatVersion) {
        check.state = StoreState::newer;
        check.why = "it has the format version " + std::to_string(header.version) + ", known is " +
                    std::to_string(formatVersion);
        return check;
    }
    if (header.size != bytes.size()) {
        check.why =
            "it is " + std::to_string(bytes.size()) + " bytes long, its header says " + std::to_string(header.size);
        return check;
    }
    check.why = checkRecords(reader, header.noOfRecords);
    if (!check.why.empty()) {
        return check;
    }
    std::uint32_t sum = 0;
    if (reader.left() != trailerSize || !reader.read(sum) ||
        sum != checksum(bytes.data(), bytes.size() - trailerSize)) {
        check.why = "its checksum is wrong";
        return check;
    }
    check.generation = header.generation;
    check.sum = sum;
    check.noOfRecords = header.noOfRecords;
    check.isSwapped = reader.isSwapped();
    check.state = StoreState::whole;
    return check;
}

StoreCheck describePacked(const Bytes &bytes) {
    Reader reader(bytes.data(), bytes.size());
    Header header;
    readHeader(reader, header);
    StoreCheck check;
    check.state = StoreState::whole;
    check.generation = header.generation;
    check.noOfRecords = header.noOfRecords;
    Reader(bytes.data() + bytes.size() - trailerSize, trailerSize).read(check.sum);
    return check;
}

void readValues(const Bytes &bytes, const StoreCheck &check, ValueSink &values) {
    Reader reader(bytes.data() + headerSize, bytes.size() - headerSize, check.isSwapped);
    values.reserve(check.noOfRecords, bytes.size() - headerSize - check.noOfRecords * recordOverhead);
    std::vector<unsigned char> swapped;
    for (std::uint32_t i = 0; i < check.noOfRecords; ++i) {
        Record record;
        readRecord(reader, record);
        const unsigned char *content = record.content;
        if (check.isSwapped) {
            swapped.assign(record.content, record.content + record.size);
            swapElements(swapped, elementSize(record.type));
            content = swapped.data();
        }
        values.add({record.path, record.type, record.noOfElements, content, record.size});
    }
}

UnpackedStore unpackStore(const Bytes &bytes) {
    UnpackedStore store;
    static_cast<StoreCheck &>(store) = checkStore(bytes);
    if (store.state == StoreState::whole) {
        ValueList values(store.values);
        readValues(bytes, store, values);
    }
    return store;
}

} // namespace storage
