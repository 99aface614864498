#include "ValueTable.h"

#include <cstring>
#include <utility>

namespace storage {

void ValueTable::reserve(std::size_t noOfValues, std::size_t size) {
    m_entries.reserve(noOfValues);
    m_bytes.reserve(size);
}

ValueTable::Entry ValueTable::append(const ValueView &value) {
    const Entry entry{m_bytes.size(), static_cast<std::uint32_t>(value.path.size()), value.type, value.noOfElements,
                      static_cast<std::uint32_t>(value.size)};
    const auto *begin = reinterpret_cast<const unsigned char *>(value.path.data());
    m_bytes.insert(m_bytes.end(), begin, begin + value.path.size());
    m_bytes.insert(m_bytes.end(), value.content, value.content + value.size);
    return entry;
}

void ValueTable::add(const ValueView &value) {
    m_entries.push_back(append(value));
}

void ValueTable::clear() {
    m_entries.clear();
    m_bytes.clear();
    m_unused = 0;
}

ValueViews ValueTable::views() const {
    ValueViews views;
    views.reserve(size());
    for (std::size_t place = 0; place < size(); ++place) {
        views.push_back((*this)[place]);
    }
    return views;
}

void ValueTable::makeRoomFor(const ValueViews &values, const std::vector<std::size_t> &places) {
    std::size_t noOfNew = 0;
    std::size_t noOfBytes = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const bool isNew = places[i] >= m_entries.size();
        noOfNew += isNew ? 1 : 0;
        if (isNew || m_entries[places[i]].size != values[i].size) {
            noOfBytes += values[i].path.size() + values[i].size;
        }
    }
    if (m_unused > m_bytes.size() / 2) {
        dropUnused();
    }
    reserve(m_entries.size() + noOfNew, m_bytes.size() + noOfBytes);
}

void ValueTable::put(const ValueView &value, std::size_t place) {
    if (place >= m_entries.size()) {
        add(value);
        return;
    }
    Entry &entry = m_entries[place];
    if (entry.size != value.size) {
        m_unused += entry.pathLength + entry.size;
        entry = append(value);
        return;
    }
    entry.type = value.type;
    entry.noOfElements = value.noOfElements;
    if (entry.size != 0) {
        std::memcpy(m_bytes.data() + entry.begin + entry.pathLength, value.content, entry.size);
    }
}

void ValueTable::dropUnused() {
    ValueTable kept;
    kept.reserve(m_entries.size(), m_bytes.size() - m_unused);
    for (std::size_t place = 0; place < m_entries.size(); ++place) {
        kept.add((*this)[place]);
    }
    *this = std::move(kept);
}

} // namespace storage
