/// @file
/// The next generation of a store: the records of the last with some of them replaced and others added.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FileFormat.h"
#include "ValueView.h"

namespace storage {

/// Records that stay are copied as they are, checksums and all. What is merged outlives the merge.
class RecordMerge {
public:
    /// @param base    a whole store in this machine's byte order; nothing when there is none.
    /// @param values  replace by path or are added, the last one of each path.
    RecordMerge(const Bytes &base, const ValueViews &values);

    /// Whether any value differs from its record, or has none.
    bool isChanged() const { return m_isChanged; }

    /// What pack makes, in bytes.
    std::uint64_t size() const { return m_size; }

    Bytes pack(std::uint64_t generation) const;

private:
    /// A value in the place of a record.
    struct Replacement {
        std::size_t begin; ///< Of the record in the base.
        std::size_t end;
        const ValueView *value;
    };

    bool replaceInOrder(const ValueViews &values);
    void replaceByPath(const ValueViews &values);
    std::uint64_t countSize() const;

    const Bytes &m_base;
    std::vector<Replacement> m_replacements; ///< In the order of the records.
    std::vector<const ValueView *> m_added;
    bool m_isChanged = false;
    std::uint64_t m_size = 0;
};

} // namespace storage
