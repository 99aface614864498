/// @file
/// What a store holds, as a walk of the variables looks it up.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "PathIndex.h"
#include "ValueTable.h"

namespace storage {

/// One walk's way through the values that a store holds. Each value that is met is brought to the place where the walk
/// stands: one that meets the variables in the order of the walk before finds every value where it looks first, and
/// the store's own order is mostly that of the walk that filled it. The index is made when a value stands elsewhere,
/// and goes with the walk.
class KnownWalk {
public:
    /// The place of a path that was met before in this walk.
    static constexpr std::size_t again = PathIndex::none - 1;
    /// The place of a path that the store does not hold.
    static constexpr std::size_t unknown = PathIndex::none;

    /// @param known  no two of one path.
    explicit KnownWalk(ValueTable &known) : m_known(known) {}

    /// Throws std::bad_alloc; takes no memory as long as each value stands where the walk before left it.
    /// @return the value's place, which it keeps from now on; again; or unknown.
    std::size_t meet(std::string_view path) {
        if (m_next < m_known.size() && m_known.path(m_next) == path) {
            return m_next++;
        }
        return search(path);
    }

    /// @return how many values were met.
    std::size_t noOfMet() const { return m_next; }

private:
    std::size_t search(std::string_view path);
    std::string_view pathAt(std::size_t place) const {
        return place < m_known.size() ? m_known.path(place) : m_unknown[place - m_known.size()];
    }

    ValueTable &m_known;
    std::size_t m_next = 0; ///< All before it have been met.
    PathIndex m_index;      ///< Of the known ones, and those that were met without being known, behind them.
    std::vector<std::string> m_unknown; ///< Met in this walk.
    bool m_hasIndex = false;
};

} // namespace storage
