/// @file
/// Many values in little memory, side by side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "ValueView.h"

namespace storage {

/// Paths and contents in one block, in the order in which they came: a walk in that order goes through memory in it.
class ValueTable final : public ValueSink {
public:
    void reserve(std::size_t noOfValues, std::size_t size) override;
    void add(const ValueView &value) override;
    void clear() override;

    std::size_t size() const { return m_entries.size(); }
    std::string_view path(std::size_t place) const {
        const Entry &entry = m_entries[place];
        return {reinterpret_cast<const char *>(m_bytes.data()) + entry.begin, entry.pathLength};
    }
    ValueView operator[](std::size_t place) const {
        const Entry &entry = m_entries[place];
        return {path(place), entry.type, entry.noOfElements, m_bytes.data() + entry.begin + entry.pathLength,
                entry.size};
    }
    /// @return all of them, for as long as none is added or put.
    ValueViews views() const;
    void swap(std::size_t one, std::size_t other) { std::swap(m_entries[one], m_entries[other]); }

    /// Makes room, so that the values can be put without memory.
    /// @param places  of each value; the number of values, or more, for one that is new.
    void makeRoomFor(const ValueViews &values, const std::vector<std::size_t> &places);
    /// Replaces the value of that place, whose path it has, or adds it.
    void put(const ValueView &value, std::size_t place);

private:
    struct Entry {
        std::size_t begin; ///< Of the path, which the content follows.
        std::uint32_t pathLength;
        EVariableType type;
        std::uint32_t noOfElements;
        std::uint32_t size; ///< Of the content.
    };

    Entry append(const ValueView &value);
    void dropUnused();

    std::vector<Entry> m_entries;
    std::vector<unsigned char> m_bytes;
    std::size_t m_unused = 0; ///< Bytes of values that others of another size have replaced.
};

} // namespace storage
