/// @file
/// Numbers in a database of their own, and the provider that users ship between a start and a stop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CDatabase.h"
#include "SStorageStatistics.h"

namespace test {

class StoredNumbers {
public:
    explicit StoredNumbers(std::size_t count);
    ~StoredNumbers();
    StoredNumbers(const StoredNumbers &) = delete;
    StoredNumbers &operator=(const StoredNumbers &) = delete;

    std::vector<std::int32_t> numbers; ///< The variables' contents.

    CDatabase *database() { return &m_database; }

private:
    std::vector<CStorageObject> m_objects;
    CStorageRegion m_region{};
    CDatabase m_database{};
};

/// The file provider with one location.
class RunningProvider {
public:
    explicit RunningProvider(const std::string &file);
    ~RunningProvider();
    RunningProvider(const RunningProvider &) = delete;
    RunningProvider &operator=(const RunningProvider &) = delete;

    EAFResult store(StoredNumbers &numbers);
    EAFResult retrieve(StoredNumbers &numbers);
    SStorageStatistics statistics() const;
};

} // namespace test
