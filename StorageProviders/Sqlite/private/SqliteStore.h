/// @file
/// One location's values in an SQLite database that other locations may share.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "SqliteFile.h"
#include "VariableStore.h"

namespace storage {

class Statement;

/// Stores of one file share its connection and its lock: all of them belong to one thread at a time.
class SqliteStore : public VariableStore {
public:
    SqliteStore(std::string file, unsigned long locationId);

    /// A reader that meets what a killed host left of a store takes the lock and rolls it back first, or waits for
    /// the host that holds the lock to do so. Beyond that it changes nothing but the "-wal" and "-shm" files of a
    /// database that somebody put into WAL mode.
    EAFResult open(Access access, Report &report) override;
    EAFResult read(StoredValues &values, Report &report) override;
    /// @retval eAF_E_FAILED  also: the file was set aside or went since this location was read. A part of the values
    ///                       makes no store: read again, and write what is missing too.
    EAFResult write(const StoredValues &values, Report &report) override;
    bool isStale() const override { return m_file != nullptr && m_generation != m_file->generation(); }
    const std::string &name() const override { return m_name; }

    /// @param locationIds  receives those that a file holds values of, ascending. Opens the file for
    /// reading only. @return as open.
    static EAFResult locations(const std::string &file, std::vector<unsigned long> &locationIds, Report &report);

private:
    class Row;

    int readRows(StoredValues &values, Report &report);
    void readRow(const Row &row, StoredValues &values, Report &report) const;
    void reportMisfit(const Row &row, const std::string &problem, Report &report) const;
    int readIds();
    EAFResult connectToWrite(Report &report);
    EAFResult checkValues(const StoredValues &values, Report &report) const;
    Failure store(const StoredValues &values);
    Failure storeRows(const StoredValues &values);
    void bindRow(Statement &statement, const StoredValue &value, std::string &text) const;
    int updateRow(Statement &update, std::int64_t id, const StoredValue &value, bool &isUpdated) const;
    int insertRow(Statement &insert, const StoredValue &value);

    std::string m_name;
    std::int64_t m_locationId;
    std::shared_ptr<SqliteFile> m_file;
    /// Generation of the file that this store's values were last read from.
    std::uint32_t m_generation = 0;
    /// Row of each path: a row is found by its number in half the time. Unknown after a failure.
    std::unordered_map<std::string, std::int64_t> m_ids;
    bool m_hasIds = false;
};

} // namespace storage
