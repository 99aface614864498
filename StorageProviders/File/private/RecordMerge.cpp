#include "RecordMerge.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "PathIndex.h"
#include "RecordBytes.h"

namespace storage {

namespace {

/// The records of a whole store, one after the other.
class Records {
public:
    explicit Records(const Bytes &store)
        : m_store(store), m_reader(store.data() + std::min(store.size(), headerSize),
                                   store.size() - std::min(store.size(), headerSize + trailerSize)) {}

    bool next() {
        m_begin = end();
        return m_reader.left() != 0 && readRecord(m_reader, m_record).empty();
    }
    const Record &record() const { return m_record; }
    std::size_t begin() const { return m_begin; }
    std::size_t end() const { return static_cast<std::size_t>(m_reader.at() - m_store.data()); }

private:
    const Bytes &m_store;
    Reader m_reader;
    Record m_record;
    std::size_t m_begin = 0;
};

bool holds(const Record &record, const ValueView &value) {
    return record.type == value.type && record.noOfElements == value.noOfElements && record.size == value.size &&
           (record.size == 0 || std::memcmp(record.content, value.content, record.size) == 0);
}

} // namespace

RecordMerge::RecordMerge(const Bytes &base, const ValueViews &values) : m_base(base) {
    m_replacements.reserve(values.size());
    if (!replaceInOrder(values)) {
        replaceByPath(values);
    }
    m_size = countSize();
}

/// A walk that meets the variables in the order of the one before tells their values in the order of the records.
/// @return whether each value had its record behind that of the one before.
bool RecordMerge::replaceInOrder(const ValueViews &values) {
    auto value = values.begin();
    for (Records records(m_base); value != values.end() && records.next();) {
        if (records.record().path == value->path) {
            m_isChanged = m_isChanged || !holds(records.record(), *value);
            m_replacements.push_back({records.begin(), records.end(), &*value});
            ++value;
        }
    }
    return value == values.end();
}

void RecordMerge::replaceByPath(const ValueViews &values) {
    m_replacements.clear();
    std::vector<const ValueView *> wanted;
    wanted.reserve(values.size());
    PathIndex index;
    index.reserve(values.size());
    const auto pathAt = [&wanted](std::size_t place) { return std::string_view(wanted[place]->path); };
    for (const ValueView &value : values) {
        const std::size_t present = index.add(value.path, wanted.size(), pathAt);
        if (present == PathIndex::none) {
            wanted.push_back(&value);
        } else {
            m_isChanged = m_isChanged || !(*wanted[present] == value);
            wanted[present] = &value;
        }
    }
    std::vector<bool> hasRecord(wanted.size());
    for (Records records(m_base); records.next();) {
        const std::size_t place = index.find(records.record().path, pathAt);
        if (place != PathIndex::none) {
            m_isChanged = m_isChanged || !holds(records.record(), *wanted[place]);
            m_replacements.push_back({records.begin(), records.end(), wanted[place]});
            hasRecord[place] = true;
        }
    }
    for (std::size_t place = 0; place < wanted.size(); ++place) {
        if (!hasRecord[place]) {
            m_added.push_back(wanted[place]);
            m_isChanged = true;
        }
    }
}

std::uint64_t RecordMerge::countSize() const {
    const auto sizeOf = [](const ValueView &value) {
        return recordOverhead + value.path.size() + std::uint64_t{value.size};
    };
    std::uint64_t noOfBytes = m_base.empty() ? headerSize + trailerSize : m_base.size();
    for (const Replacement &replacement : m_replacements) {
        noOfBytes = noOfBytes - (replacement.end - replacement.begin) + sizeOf(*replacement.value);
    }
    for (const ValueView *value : m_added) {
        noOfBytes += sizeOf(*value);
    }
    return noOfBytes;
}

Bytes RecordMerge::pack(std::uint64_t generation) const {
    const std::uint32_t noOfRecords = m_base.empty() ? 0 : describePacked(m_base).noOfRecords;
    Writer writer(static_cast<std::size_t>(m_size));
    writer.addHeader(noOfRecords + static_cast<std::uint32_t>(m_added.size()), generation);
    std::size_t copied = std::min(m_base.size(), headerSize);
    const auto copyUpTo = [&](std::size_t end) {
        writer.add(m_base.data() + copied, end - copied);
        copied = end;
    };
    for (const Replacement &replacement : m_replacements) {
        copyUpTo(replacement.begin);
        writer.addRecord(*replacement.value);
        copied = replacement.end;
    }
    if (!m_base.empty()) {
        copyUpTo(m_base.size() - trailerSize);
    }
    for (const ValueView *value : m_added) {
        writer.addRecord(*value);
    }
    writer.addChecksum(0);
    return writer.take();
}

} // namespace storage
