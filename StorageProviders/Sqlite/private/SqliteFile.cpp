#include "SqliteFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>
#include <utility>

#include "Statement.h"
#include "StoreNames.h"
#include "StorePath.h"
#include "StoreTable.h"

namespace storage {
namespace {

constexpr int busyTimeoutInMs = 2000;

/// Another process's lock is waited for as long as another connection's.
constexpr std::chrono::milliseconds lockTimeout{busyTimeoutInMs};
constexpr std::chrono::milliseconds lockPause{5};

/// Keeps a lock's error: whether it is one depends on who asks.
class KeptError : public Report {
public:
    void add(Severity /*severity*/, const std::string &text) override { error = text; }
    std::string error;
};

} // namespace

std::shared_ptr<SqliteFile> SqliteFile::of(const std::string &name, Access access, Report &report) {
    // Never destroyed: providers may still close their stores while the process exits.
    static auto &files = *new std::map<std::pair<std::string, Access>, std::weak_ptr<SqliteFile>>;
    const ResolvedName path = resolveName(name); // SQLite would take names like "file:x" for something else
    if (!path.problem.empty()) {
        report.add(Severity::error, path.problem);
        return nullptr;
    }
    std::weak_ptr<SqliteFile> &known = files[{path.file, access}];
    std::shared_ptr<SqliteFile> file = known.lock();
    if (file == nullptr) {
        file = std::make_shared<SqliteFile>(name, path.file, access);
        known = file;
    }
    return file;
}

SqliteFile::SqliteFile(std::string name, std::string path, Access access)
    : m_name(std::move(name)), m_path(std::move(path)), m_access(access) {}

SqliteFile::~SqliteFile() {
    disconnect();
}

EAFResult SqliteFile::open(Report &report) {
    const EAFResult result = connect(Purpose::read, report);
    if (result >= eAF_E_FAILED) {
        m_lock.release();
    }
    return result;
}

EAFResult SqliteFile::connect(Purpose purpose, Report &report) {
    if (purpose == Purpose::write && m_isHindered) {
        disconnect(); // what hinders may be gone meanwhile
    }
    if (m_database != nullptr) {
        return eAF_S_OK;
    }
    if (m_access == Access::readWrite) {
        const EAFResult locked = m_lock.acquire(m_path, report);
        if (locked >= eAF_E_FAILED) {
            return locked;
        }
    }
    if (purpose == Purpose::write && !isWritable()) {
        return fail(eAF_E_WRONG_ACCESS, "it was opened for reading only; make its folder writable and open it anew",
                    report);
    }
    const auto deadline = std::chrono::steady_clock::now() + lockTimeout;
    EAFResult result = openConnection(purpose, report);
    while (m_isCutShort) {
        result = finishStore(deadline, report);
        if (result >= eAF_E_FAILED) {
            break;
        }
        result = openConnection(purpose, report);
    }
    return result;
}

EAFResult SqliteFile::query(const std::function<int()> &rows, Report &report) {
    constexpr unsigned mostTries = 10;
    for (unsigned tries = 1;; ++tries) {
        const EAFResult connected = connect(Purpose::read, report);
        if (connected >= eAF_E_FAILED || m_isEmpty) {
            return connected;
        }
        const Failure failure = Failure::of(rows(), m_database);
        if (failure.code == SQLITE_OK) {
            return connected;
        }
        if (!failure.isCutShort() || tries == mostTries) {
            return failed(failure, Purpose::read, report);
        }
        disconnect(); // the owner was killed since, or began a store in this moment: connecting tells
    }
}

EAFResult SqliteFile::finishStore(std::chrono::steady_clock::time_point deadline, Report &report) {
    m_isCutShort = false;
    StoreLock lock;
    KeptError kept;
    const EAFResult locked = lock.acquire(m_path, kept);
    if (locked == eAF_S_OK) {
        return rollBack(report);
    }
    if (locked == eAF_E_ALREADY_INITIALIZED) {
        // A host rolls back when it starts. One that begins a store at the wrong moment looks the same for an instant.
        if (std::chrono::steady_clock::now() >= deadline) {
            return fail(locked, "a store was cut short and is not rolled back yet; " + kept.error, report);
        }
        std::this_thread::sleep_for(lockPause);
        return eAF_S_OK;
    }
    return locked >= eAF_E_FAILED ? fail(locked, kept.error, report) : failCutShort(report);
}

EAFResult SqliteFile::rollBack(Report &report) {
    Failure failure = openFile(SQLITE_OPEN_READWRITE);
    if (failure.code == SQLITE_OK) {
        int code = sqlite3_busy_timeout(m_database, busyTimeoutInMs);
        if (code == SQLITE_OK) {
            Statement firstRead(m_database, "PRAGMA page_count");
            code = firstRead.run();
        }
        failure = Failure::of(code, m_database);
    }
    disconnect();
    if (failure.isCutShort()) {
        return failCutShort(report);
    }
    return failure.code == SQLITE_OK || failure.isMissingFile() ? eAF_S_OK
                                                                : giveUp(failure, {}, Purpose::write, report);
}

EAFResult SqliteFile::failCutShort(Report &report) const {
    const Failure failure{SQLITE_READONLY_ROLLBACK, 0, {}};
    return fail(failure.result(), failure.text(), report);
}

EAFResult SqliteFile::openConnection(Purpose purpose, Report &report) {
    const Failure failure = openFile(isWritable() ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY);
    if (failure.isMissingFile()) {
        disconnect();
        if (!exists(folderWithSlash(m_path))) {
            return fail(eAF_E_INITIALIZATION_ERROR, "its folder does not exist; make it, or name another file", report);
        }
        setEmpty();
        return eAF_S_OK;
    }
    return failure.code == SQLITE_OK ? takeUp(purpose, report) : giveUp(failure, {}, purpose, report);
}

EAFResult SqliteFile::create(Report &report) {
    const Failure failure = openFile(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    return failure.code == SQLITE_OK ? takeUp(Purpose::write, report)
                                     : giveUp(explained(failure), {}, Purpose::write, report);
}

Failure SqliteFile::openFile(int flags) {
    // Stores belong to one thread at a time: SQLite need not lock the connection in each of its calls.
    const int code = sqlite3_open_v2(m_path.c_str(), &m_database, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    Failure failure = Failure::of(code, m_database);
    if (code == SQLITE_OK) {
        static_cast<void>(sqlite3_extended_result_codes(m_database, 1));
    }
    return failure;
}

EAFResult SqliteFile::takeUp(Purpose purpose, Report &report) {
    try {
        return examine(purpose, report);
    } catch (...) {
        disconnect(); // a connection that stands counts as examined
        throw;
    }
}

EAFResult SqliteFile::examine(Purpose purpose, Report &report) {
    FileHeader header;
    int code = readHeader(m_database, header);
    if (code == SQLITE_OK && !isOurs(header)) {
        disconnect();
        return refuse(header, report);
    }
    TableCheck found;
    if (code == SQLITE_OK) {
        code = prepareConnection();
    }
    if (code == SQLITE_OK) {
        code = checkContent(found);
    }
    if (code == SQLITE_READONLY_ROLLBACK && m_access == Access::readOnly) {
        m_isCutShort = true;
        disconnect();
        return eAF_E_WRONG_ACCESS;
    }
    if ((code & 0xFF) == SQLITE_ERROR) {
        // The statements are ours: what SQLite does not understand is the file.
        code = SQLITE_CORRUPT;
    }
    if (code != SQLITE_OK) {
        return giveUp(Failure::of(code, m_database), found.damage, purpose, report);
    }
    return tell(found, purpose, report);
}

EAFResult SqliteFile::tell(const TableCheck &found, Purpose purpose, Report &report) {
    if (!found.remark.empty()) {
        report.add(Severity::information, m_name +
                                              ": the variables are whole; what others put into the database is "
                                              "not, or this program can not tell (" +
                                              found.remark + ")");
    }
    if (!found.hindrance.empty()) {
        const std::string text = "no value can be stored in it: " + found.hindrance;
        if (purpose == Purpose::write) {
            disconnect();
            return fail(eAF_E_FAILED, text, report);
        }
        m_isHindered = true;
        report.add(Severity::warning, m_name + ": " + text);
    }
    if (m_access == Access::readWrite && (!isWritable() || sqlite3_db_readonly(m_database, "main") == 1)) {
        m_isHindered = true;
        if (purpose == Purpose::read) {
            report.add(Severity::warning, m_name + ": opened for reading only, storing will fail; make the file, its "
                                                   "folder and its disk writable and start again");
        }
    }
    return eAF_S_OK;
}

bool SqliteFile::isOurs(const FileHeader &header) const {
    if (header.owner == FileHeader::Owner::other && !header.isSqlite) {
        // The power may have gone in the very first store, which leaves anything in the file and a journal that says
        // that it was empty.
        sqlite3_vfs *system = sqlite3_vfs_find(nullptr);
        const std::string journal = journalOf(m_path);
        int isThere = 0;
        return system->xAccess(system, journal.c_str(), SQLITE_ACCESS_EXISTS, &isThere) == SQLITE_OK && isThere != 0;
    }
    return header.owner == FileHeader::Owner::nobody || header.owner == FileHeader::Owner::us;
}

EAFResult SqliteFile::refuse(const FileHeader &header, Report &report) const {
    const std::string advice = "; it is left as it is: name another file, or move this one away";
    if (!header.isSqlite) {
        return fail(eAF_E_INVALID_ARGUMENT, "is no SQLite database" + advice, report);
    }
    if (header.owner == FileHeader::Owner::newer) {
        return fail(eAF_E_INVALID_ARGUMENT,
                    "is in format " + std::to_string(header.formatVersion) + ", and this program knows format " +
                        std::to_string(storeFormatVersion) + advice + ", or install the program that wrote it",
                    report);
    }
    return fail(eAF_E_INVALID_ARGUMENT,
                "is another program's SQLite database (application_id " + std::to_string(header.applicationId) +
                    ", a store has " + std::to_string(storeApplicationId) + ")" + advice,
                report);
}

int SqliteFile::prepareConnection() {
    int code = sqlite3_busy_timeout(m_database, busyTimeoutInMs);
    if (code == SQLITE_OK) {
        // Triggers and checks that other programs have put into the schema run, but call no function that could do more
        // than compute. Pages that are freed need not be overwritten: flash wears out.
        code = execute(m_database, "PRAGMA trusted_schema=OFF;"
                                   "PRAGMA cell_size_check=ON;"
                                   "PRAGMA secure_delete=OFF;"
                                   "PRAGMA temp_store=MEMORY;"
                                   "PRAGMA synchronous=FULL");
    }
    // TRUNCATE, because its last step, which makes a commit durable, is synced; DELETE's is not.
    if (code == SQLITE_OK && isWritable()) {
        code = execute(m_database, "PRAGMA journal_mode=TRUNCATE");
    }
    return code;
}

int SqliteFile::checkContent(TableCheck &found) {
    bool hasPages = false;
    {
        // The first statement that reads: a journal that a killed process left is rolled back here.
        Statement pages(m_database, "PRAGMA page_count");
        const int code = pages.step();
        if (code != SQLITE_ROW) {
            return code == SQLITE_DONE ? SQLITE_CORRUPT : code;
        }
        hasPages = pages.integer(0) != 0;
    }
    if (!hasPages) {
        setEmpty();
        return SQLITE_OK;
    }
    const int code = checkTable(m_database, found);
    m_isEmpty = m_isEmpty && code != SQLITE_OK;
    return code;
}

EAFResult SqliteFile::failed(const Failure &failure, Purpose purpose, Report &report) {
    if (failure.code == SQLITE_READONLY_DBMOVED) {
        ++m_generation;
    }
    return giveUp(purpose == Purpose::write ? explained(failure) : failure, {}, purpose, report);
}

Failure SqliteFile::explained(const Failure &failure) const {
    Failure explained = failure;
    if (failure.isMissingFile()) {
        // What SQLite can not make it tries once more for reading, and tells that there is no such file.
        for (const std::string &file : {m_path, journalOf(m_path)}) {
            const int error = exists(file) ? 0 : errorOfMaking(file);
            if (error != 0) {
                explained.systemError = error;
                break;
            }
        }
    }
    return explained;
}

Failure SqliteFile::withoutReadFailure(const Failure &failure) const {
    int error = 0;
    const bool isAsked = failure.isDamage() && m_database != nullptr;
    if (isAsked && sqlite3_file_control(m_database, nullptr, SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK &&
        error != 0) {
        return {SQLITE_IOERR_READ, error, {}};
    }
    return failure;
}

EAFResult SqliteFile::giveUp(const Failure &met, const std::string &problem, Purpose purpose, Report &report) {
    const Failure failure = withoutReadFailure(met);
    disconnect();
    if (!failure.isDamage()) {
        return fail(failure.result(), failure.text(), report);
    }
    const std::string text = problem.empty() ? failure.text() : "it is damaged: " + problem;
    if (purpose == Purpose::read && isWritable()) {
        return setAside(text, report);
    }
    return fail(eAF_E_FAILED, text + "; nothing was changed, the host's next start or retrieve sets it aside", report);
}

EAFResult SqliteFile::setAside(const std::string &damage, Report &report) {
    std::string aside;
    int error = firstFree(m_path + ".damaged-", endOfJournal, aside);
    const std::string text = m_name + ": " + damage + "; it is kept as " + aside +
                             ", and the store is empty now; `sqlite3 " + aside + " .dump` may still show its values";
    const std::string journal = journalOf(m_path);
    const std::string journalAside = journalOf(aside);
    if (error == 0 && std::rename(m_path.c_str(), aside.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        return fail(eAF_E_FAILED,
                    damage + "; it could not be renamed to " + aside + " (" + std::strerror(error) +
                        "), so nothing was changed; make its folder writable or move it away",
                    report);
    }
    // The journal comes second: alone it means nothing, and SQLite drops it, but the file may need it.
    static_cast<void>(std::rename(journal.c_str(), journalAside.c_str()));
    syncFolder(folderWithSlash(m_path));
    m_isEmpty = true;
    ++m_generation;
    report.add(Severity::warning, text);
    return eAF_S_OK;
}

EAFResult SqliteFile::fail(EAFResult result, const std::string &text, Report &report) const {
    if (result != eAF_E_OUT_OF_MEMORY) {
        report.add(Severity::error, m_name + ": " + text);
    }
    return result;
}

void SqliteFile::setEmpty() {
    if (!m_isEmpty) {
        m_isEmpty = true;
        ++m_generation;
    }
}

void SqliteFile::disconnect() {
    sqlite3_close_v2(m_database);
    m_database = nullptr;
    m_isHindered = false;
}

Transaction::~Transaction() {
    if (m_isOpen && execute(m_file.database(), "ROLLBACK") != SQLITE_OK) {
        m_file.disconnect();
    }
}

int Transaction::begin() {
    const int code = execute(m_file.database(), "BEGIN IMMEDIATE");
    m_isOpen = code == SQLITE_OK;
    return code;
}

int Transaction::commit() {
    const int code = execute(m_file.database(), "COMMIT");
    m_isOpen = code != SQLITE_OK;
    return code;
}

} // namespace storage
