/// @file
/// One location's values in an SQLite database that other locations may share.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KnownRows.h"
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
    using VariableStore::read;
    EAFResult read(ValueSink &values, Report &report) override;
    /// @retval eAF_E_FAILED  also: the file was set aside or went since this location was read. A part of the values
    ///                       makes no store: read again, and write what is missing too.
    EAFResult writeViews(const ValueViews &values, Report &report) override;
    bool isStale() const override { return m_file != nullptr && m_generation != m_file->generation(); }
    const std::string &name() const override { return m_name; }

    /// @param locationIds  receives those that a file holds values of, ascending. Opens the file for
    /// reading only. @return as open.
    static EAFResult locations(const std::string &file, std::vector<unsigned long> &locationIds, Report &report);

private:
    class Row;

    int readRows(ValueSink &values, Report &report);
    bool readRow(const Row &row, StoredValue &value, Report &report) const;
    void reportMisfit(const Row &row, const std::string &problem, Report &report) const;
    int readRowIds();
    EAFResult connectToWrite(Report &report);
    EAFResult checkValues(const ValueViews &values, Report &report) const;
    Failure store(const ValueViews &values);
    Failure storeRows(const ValueViews &values);
    void bindRow(Statement &statement, const ValueView &value, std::string &text) const;
    int updateRow(Statement &update, std::int64_t id, const ValueView &value, std::string &text, bool &isUpdated) const;
    int insertRow(Statement &insert, const ValueView &value, std::string &text);

    std::string m_name;
    std::int64_t m_locationId;
    std::shared_ptr<SqliteFile> m_file;
    /// Generation of the file that this store's values were last read from.
    std::uint32_t m_generation = 0;
    KnownRows m_rows;
    bool m_hasRows = false; ///< Unknown after a failure.
};

} // namespace storage
