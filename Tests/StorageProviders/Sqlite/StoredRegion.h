/// @file
/// A database of variables whose contents are one generation's, kept by the provider that users ship.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CDatabase.h"
#include "CSqliteStorage.h"

namespace test {

class StoredRegion {
public:
    struct Shape {
        std::size_t numbers = 0; ///< In objects of a hundred.
        std::size_t arrays = 0;
        std::size_t bytesOfArray = 0;
    };

    explicit StoredRegion(const Shape &shape);
    ~StoredRegion();
    StoredRegion(const StoredRegion &) = delete;
    StoredRegion &operator=(const StoredRegion &) = delete;

    /// Gives every variable, or so many of them, the content that it has in a generation.
    void fill(std::uint32_t generation, std::size_t noOfVariables = SIZE_MAX);
    /// Every content at once, to compare.
    std::string contents() const;
    std::size_t size() const { return m_contents.size(); }

    CDatabase *database() { return &m_database; }

private:
    std::vector<std::vector<unsigned char>> m_contents;
    std::vector<CStorageObject> m_objects;
    CStorageRegion m_region{};
    CDatabase m_database{};
};

/// The provider of one location between a start and a stop.
class RunningProvider {
public:
    explicit RunningProvider(const std::string &file, unsigned long locationId = 1);
    ~RunningProvider();
    RunningProvider(const RunningProvider &) = delete;
    RunningProvider &operator=(const RunningProvider &) = delete;

    EAFResult store(StoredRegion &region);
    EAFResult retrieve(StoredRegion &region);
    SStorageStatistics statistics() const;

private:
    unsigned long m_locationId;
};

} // namespace test
