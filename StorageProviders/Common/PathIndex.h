/// @file
/// Finds paths that stand elsewhere.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace storage {

/// Where each of many paths stands, by its place among them. An open table of hashes and places, and no text: two words
/// a path, in one block.
class PathIndex {
public:
    static constexpr std::size_t none = SIZE_MAX;

    /// Keeps its room: what is filled anew mostly holds as many.
    void clear() {
        std::fill(m_slots.begin(), m_slots.end(), Slot{});
        m_size = 0;
    }

    /// Makes room for paths beside those that are there. Adding them takes no memory then.
    void reserve(std::size_t noOfPaths) {
        std::size_t slots = m_slots.empty() ? fewestSlots : m_slots.size();
        while (slots / 4 * 3 < m_size + noOfPaths) {
            slots *= 2;
        }
        if (slots > m_slots.size()) {
            growTo(slots);
        }
    }

    /// @param pathAt  gives the path of a place.
    /// @return the path's place, or none.
    template <class PathAt>
    std::size_t find(std::string_view path, PathAt pathAt) const {
        return m_slots.empty() ? none : placeIn(m_slots[slotOf(path, hashOf(path), pathAt)]);
    }

    /// @return the place of an equal path that was there before; none when there was not, and the path has this one.
    template <class PathAt>
    std::size_t add(std::string_view path, std::size_t place, PathAt pathAt) {
        reserve(1);
        const std::uint32_t hash = hashOf(path);
        Slot &slot = m_slots[slotOf(path, hash, pathAt)];
        if (slot.number == 0) {
            slot = {hash, static_cast<std::uint32_t>(place) + 1};
            ++m_size;
            return none;
        }
        return placeIn(slot);
    }

    /// Notes, beforehand, that two paths which are there change places.
    template <class PathAt>
    void swap(std::string_view one, std::string_view other, PathAt pathAt) {
        const std::size_t slotOfOther = slotOf(other, hashOf(other), pathAt);
        std::swap(m_slots[slotOf(one, hashOf(one), pathAt)].number, m_slots[slotOfOther].number);
    }

private:
    static constexpr std::size_t fewestSlots = 16;

    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t number = 0; ///< The place, counted from 1; 0: free. No store holds as many as 32 bits count.
    };

    static std::uint32_t hashOf(std::string_view path) {
        return static_cast<std::uint32_t>(std::hash<std::string_view>{}(path));
    }
    static std::size_t placeIn(const Slot &slot) { return slot.number == 0 ? none : slot.number - 1; }

    /// @return the slot of the path, or the free one where it belongs.
    template <class PathAt>
    std::size_t slotOf(std::string_view path, std::uint32_t hash, PathAt pathAt) const {
        const std::size_t mask = m_slots.size() - 1;
        std::size_t at = hash & mask;
        while (m_slots[at].number != 0 &&
               (m_slots[at].hash != hash || std::string_view(pathAt(placeIn(m_slots[at]))) != path)) {
            at = (at + 1) & mask;
        }
        return at;
    }

    void growTo(std::size_t noOfSlots) {
        std::vector<Slot> slots(noOfSlots);
        for (const Slot &slot : m_slots) {
            if (slot.number != 0) {
                std::size_t at = slot.hash & (noOfSlots - 1);
                while (slots[at].number != 0) {
                    at = (at + 1) & (noOfSlots - 1);
                }
                slots[at] = slot;
            }
        }
        m_slots.swap(slots);
    }

    std::vector<Slot> m_slots; ///< A power of two, never full.
    std::size_t m_size = 0;
};

} // namespace storage
