#include "KnownWalk.h"

namespace storage {

std::size_t KnownWalk::search(std::string_view path) {
    const auto pathOf = [this](std::size_t place) { return pathAt(place); };
    if (!m_hasIndex) {
        m_index.reserve(m_known.size());
        for (std::size_t place = 0; place < m_known.size(); ++place) {
            m_index.add(m_known.path(place), place, pathOf);
        }
        m_hasIndex = true;
    }
    m_index.reserve(1); // before anything has changed
    const std::size_t place = m_index.find(path, pathOf);
    if (place == PathIndex::none) {
        m_unknown.emplace_back(path);
        m_index.add(path, m_known.size() + m_unknown.size() - 1, pathOf);
        return unknown;
    }
    if (place < m_next || place >= m_known.size()) {
        return again;
    }
    m_index.swap(path, m_known.path(m_next), pathOf);
    m_known.swap(place, m_next);
    return m_next++;
}

} // namespace storage
