/// @file
/// Variables in objects in a region, as a controller registers them.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "CStorageRegion.h"

namespace instructions {

/// 32-bit integers, a hundred to an object. All memory is the tree's; whoever was handed the region destructs it.
class VariableTree {
public:
    VariableTree(const std::string &region, unsigned long locationId, std::uint32_t noOfVariables);
    VariableTree(const VariableTree &) = delete;
    VariableTree &operator=(const VariableTree &) = delete;

    CStorageRegion *region() { return &m_region; }
    std::int32_t &content(std::uint32_t variable) { return m_contents[variable]; }
    std::string path(std::uint32_t variable) const;

    static std::string name(std::uint32_t variable) { return "Parameter" + std::to_string(100000 + variable); }

private:
    CStorageRegion m_region{};
    std::deque<CStorageObject> m_objects;
    std::deque<CVariable> m_variables;
    std::vector<std::int32_t> m_contents;
    std::vector<std::int32_t> m_defaults;
};

} // namespace instructions
