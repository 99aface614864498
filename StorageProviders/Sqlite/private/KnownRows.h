/// @file
/// Which row of the table keeps which path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "PathIndex.h"

namespace storage {

/// Paths in one block and the numbers of their rows. A value is stored in half the time when its row's number is known.
class KnownRows {
public:
    void clear();

    /// @return false: a row of the path is known already.
    bool add(std::string_view path, std::int64_t id);
    /// Adds the path's row, or replaces the one that was known.
    void set(std::string_view path, std::int64_t id);

    /// @return the row's number, or null. Found at once when it is the one behind the row that was found last.
    const std::int64_t *find(std::string_view path);

private:
    struct Row {
        std::int64_t id;
        std::size_t begin; ///< Of its path.
        std::size_t length;
    };

    std::string_view pathAt(std::size_t place) const {
        return std::string_view(m_paths).substr(m_rows[place].begin, m_rows[place].length);
    }

    std::vector<Row> m_rows;
    std::string m_paths;
    PathIndex m_index;
    std::size_t m_next = 0; ///< Behind the one that was found last.
};

} // namespace storage
