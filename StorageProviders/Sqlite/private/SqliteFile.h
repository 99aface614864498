/// @file
/// One database file of this process: its lock, its connection, and what is done when it is not as it should be.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Failure.h"
#include "FileHeader.h"
#include "Report.h"
#include "StoreLock.h"
#include "StoreTable.h"
#include "VariableStore.h"

namespace storage {

class SqliteFile {
public:
    /// What a damaged file means: to a reader that it is set aside, where that is possible; to a writer a failure.
    enum class Purpose { read, write };

    /// @return the one object of this process for a file, however its name is spelled; it lives as long as someone
    ///         holds it. Null where the name can not be resolved, which was reported.
    static std::shared_ptr<SqliteFile> of(const std::string &name, Access access, Report &report);

    SqliteFile(std::string name, std::string path, Access access);
    ~SqliteFile();

    SqliteFile(const SqliteFile &) = delete;
    SqliteFile &operator=(const SqliteFile &) = delete;

    /// Takes the lock and connects.
    EAFResult open(Report &report);

    /// Does nothing on a connection that stands. A store that was cut short is rolled back, by a reader too, unless
    /// another process holds the lock: that one is given the time to do so. Afterwards the file is one of our stores,
    /// or empty, or not there.
    EAFResult connect(Purpose purpose, Report &report);

    /// Connects and reads, unless the store is empty. @param rows  runs statements. @return SQLITE_OK or the failure.
    EAFResult query(const std::function<int()> &rows, Report &report);

    /// Makes the file, after connect found none.
    EAFResult create(Report &report);

    /// Rolls back what is not committed. No statement may be left.
    void disconnect();

    /// @return null while there is no file.
    sqlite3 *database() const { return m_database; }
    /// Whether there is no table yet.
    bool isEmpty() const { return m_isEmpty; }
    void setFilled() { m_isEmpty = false; }

    /// Counts how often the file was set aside, or went: whoever knows what it holds knows nothing after that.
    std::uint32_t generation() const { return m_generation; }

    /// Reports a failed call and drops the connection: what it holds can not be trusted any more. A damaged file
    /// is set aside for a reader, whose code is eAF_S_OK then: the store is empty.
    EAFResult failed(const Failure &failure, Purpose purpose, Report &report);

private:
    Failure openFile(int flags);
    EAFResult openConnection(Purpose purpose, Report &report);
    EAFResult finishStore(std::chrono::steady_clock::time_point deadline, Report &report);
    EAFResult rollBack(Report &report);
    EAFResult failCutShort(Report &report) const;
    EAFResult takeUp(Purpose purpose, Report &report);
    EAFResult examine(Purpose purpose, Report &report);
    EAFResult tell(const TableCheck &found, Purpose purpose, Report &report);
    bool isOurs(const FileHeader &header) const;
    EAFResult refuse(const FileHeader &header, Report &report) const;
    int prepareConnection();
    int checkContent(TableCheck &found);
    Failure explained(const Failure &failure) const;
    /// To SQLite a page that could not be read is a damaged one. Nobody has seen a damaged byte of it, and the next try
    /// may read it: a store must not be set aside for that.
    Failure withoutReadFailure(const Failure &failure) const;
    EAFResult giveUp(const Failure &met, const std::string &problem, Purpose purpose, Report &report);
    EAFResult setAside(const std::string &damage, Report &report);
    EAFResult fail(EAFResult result, const std::string &text, Report &report) const;
    void setEmpty();
    bool isWritable() const { return m_access == Access::readWrite && m_lock.isHeld(); }

    std::string m_name;
    std::string m_path;
    Access m_access;
    StoreLock m_lock;
    sqlite3 *m_database = nullptr;
    bool m_isEmpty = true;
    bool m_isHindered = false; ///< Its values can be read, but none can be stored.
    bool m_isCutShort = false; ///< A store was, and a reader found it.
    std::uint32_t m_generation = 0;
};

/// Rolled back on its way out unless committed.
class Transaction {
public:
    explicit Transaction(SqliteFile &file) : m_file(file) {}
    ~Transaction();

    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    int begin();
    int commit();

private:
    SqliteFile &m_file;
    bool m_isOpen = false;
};

} // namespace storage
