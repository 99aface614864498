#include "KnownRows.h"

namespace storage {

void KnownRows::clear() {
    m_rows.clear();
    m_paths.clear();
    m_index.clear();
    m_next = 0;
}

bool KnownRows::add(std::string_view path, std::int64_t id) {
    const std::size_t begin = m_paths.size();
    m_paths.append(path);
    m_rows.push_back({id, begin, path.size()});
    const bool isNew =
        m_index.add(path, m_rows.size() - 1, [this](std::size_t place) { return pathAt(place); }) == PathIndex::none;
    if (!isNew) {
        m_rows.pop_back();
        m_paths.resize(begin);
    }
    return isNew;
}

void KnownRows::set(std::string_view path, std::int64_t id) {
    const std::size_t place = m_index.find(path, [this](std::size_t known) { return pathAt(known); });
    if (place == PathIndex::none) {
        add(path, id);
    } else {
        m_rows[place].id = id;
    }
}

const std::int64_t *KnownRows::find(std::string_view path) {
    if (m_next >= m_rows.size() || pathAt(m_next) != path) {
        const std::size_t place = m_index.find(path, [this](std::size_t known) { return pathAt(known); });
        if (place == PathIndex::none) {
            return nullptr;
        }
        m_next = place;
    }
    return &m_rows[m_next++].id;
}

} // namespace storage
