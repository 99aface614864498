#include "SqliteFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>
#include <utility>

#include "Statement.h"

namespace storage {
namespace {

constexpr int busyTimeoutInMs = 2000;

/// Paths begin with a slash or a dot: SQLite takes names like "file:x" or ":memory:" for something else.
std::string pathOf(const std::string &name) {
    std::array<char, PATH_MAX> resolved{};
    if (realpath(name.c_str(), resolved.data()) != nullptr) {
        return resolved.data();
    }
    const std::size_t slash = name.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : name.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    if (realpath(folder.c_str(), resolved.data()) != nullptr) {
        const std::string real = resolved.data();
        return real == "/" ? real + base : real + "/" + base;
    }
    return name.front() == '/' ? name : "./" + name;
}

std::string folderOf(const std::string &path) {
    return path.substr(0, path.rfind('/') + 1);
}

bool exists(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

/// @return "<path>.damaged-<N>" with the first N that neither a file nor a journal has.
std::string freeName(const std::string &path) {
    for (unsigned number = 1;; ++number) {
        std::string name = path + ".damaged-" + std::to_string(number);
        if (!exists(name) && !exists(name + "-journal")) {
            return name;
        }
    }
}

/// A rename lasts when its folder is on the disk. Where that fails the file is found damaged once more, no worse.
void syncFolder(const std::string &folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor != -1) {
        static_cast<void>(fsync(descriptor));
        ::close(descriptor);
    }
}

/// The whole check, which compares the index too: a path that went bad in one of the two is found by the other.
/// @param problem  receives the first finding; empty when all is well. @return SQLITE_OK or the failure.
int checkIntegrity(sqlite3 *database, std::string &problem) {
    problem.clear();
    Statement check(database, "PRAGMA integrity_check(1)");
    const int code = check.step();
    if (code != SQLITE_ROW) {
        return code == SQLITE_DONE ? SQLITE_CORRUPT : code;
    }
    const std::string_view finding = check.bytes(0);
    if (finding != "ok") {
        problem = finding;
    }
    return check.run();
}

} // namespace

std::shared_ptr<SqliteFile> SqliteFile::of(const std::string &name, Access access) {
    // Never destroyed: providers may still close their stores while the process exits.
    static auto &files = *new std::map<std::pair<std::string, Access>, std::weak_ptr<SqliteFile>>;
    const std::string path = pathOf(name);
    std::weak_ptr<SqliteFile> &known = files[{path, access}];
    std::shared_ptr<SqliteFile> file = known.lock();
    if (file == nullptr) {
        file = std::make_shared<SqliteFile>(name, path, access);
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
    return openConnection(purpose, report);
}

EAFResult SqliteFile::openConnection(Purpose purpose, Report &report) {
    const Failure failure = openFile(isWritable() ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY);
    if (failure.isMissingFile()) {
        disconnect();
        if (!exists(folderOf(m_path))) {
            return fail(eAF_E_INITIALIZATION_ERROR, "its folder does not exist; make it, or name another file", report);
        }
        setEmpty();
        return eAF_S_OK;
    }
    return failure.code == SQLITE_OK ? takeUp(purpose, report) : giveUp(failure, {}, purpose, report);
}

EAFResult SqliteFile::create(Report &report) {
    const Failure failure = openFile(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    return failure.code == SQLITE_OK ? takeUp(Purpose::write, report) : giveUp(failure, {}, Purpose::write, report);
}

Failure SqliteFile::openFile(int flags) {
    const int code = sqlite3_open_v2(m_path.c_str(), &m_database, flags, nullptr);
    const Failure failure = Failure::of(code, m_database);
    if (code == SQLITE_OK) {
        static_cast<void>(sqlite3_extended_result_codes(m_database, 1));
    }
    return failure;
}

EAFResult SqliteFile::takeUp(Purpose purpose, Report &report) {
    FileHeader header;
    int code = readHeader(m_database, header);
    if (code == SQLITE_OK && !isOurs(header)) {
        disconnect();
        return refuse(header, report);
    }
    std::string problem;
    if (code == SQLITE_OK) {
        code = prepareConnection();
    }
    if (code == SQLITE_OK) {
        code = checkContent(problem);
    }
    if ((code & 0xFF) == SQLITE_ERROR) {
        // The statements are ours: what SQLite does not understand is the file.
        code = SQLITE_CORRUPT;
    }
    if (code != SQLITE_OK) {
        return giveUp(Failure::of(code, m_database), problem, purpose, report);
    }
    if (m_access == Access::readWrite && (!isWritable() || sqlite3_db_readonly(m_database, "main") == 1)) {
        report.add(Severity::warning, m_name + ": opened for reading only, storing will fail; make the file, its "
                                               "folder and its disk writable and start again");
    }
    return eAF_S_OK;
}

bool SqliteFile::isOurs(const FileHeader &header) const {
    if (header.owner == FileHeader::Owner::other && !header.isSqlite) {
        // The power may have gone in the very first store, which leaves anything in the file and a journal that says
        // that it was empty.
        sqlite3_vfs *system = sqlite3_vfs_find(nullptr);
        const std::string journal = m_path + "-journal";
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
    // What other programs may have put into the schema is not run. Pages that are freed need not be overwritten:
    // flash wears out. TRUNCATE, because its last step, which makes a commit durable, is synced; DELETE's is not.
    static constexpr const char *settings = "PRAGMA trusted_schema=OFF;"
                                            "PRAGMA cell_size_check=ON;"
                                            "PRAGMA secure_delete=OFF;"
                                            "PRAGMA temp_store=MEMORY;"
                                            "PRAGMA synchronous=FULL";
    int code = sqlite3_busy_timeout(m_database, busyTimeoutInMs);
    if (code == SQLITE_OK) {
        code = execute(m_database, settings);
    }
    if (code == SQLITE_OK && isWritable()) {
        code = execute(m_database, "PRAGMA journal_mode=TRUNCATE");
    }
    return code;
}

int SqliteFile::checkContent(std::string &problem) {
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
    int code = checkIntegrity(m_database, problem);
    if (code != SQLITE_OK || !problem.empty()) {
        return code == SQLITE_OK ? SQLITE_CORRUPT : code;
    }
    const Statement table(m_database, "SELECT id,location,path,type,count,value FROM variable");
    code = table.failure();
    if ((code & 0xFF) == SQLITE_ERROR) {
        problem = "the table of variables is missing or has other columns";
    }
    m_isEmpty = m_isEmpty && code != SQLITE_OK;
    return code;
}

EAFResult SqliteFile::failed(int code, Purpose purpose, Report &report) {
    const Failure failure = Failure::of(code, m_database);
    if (code == SQLITE_READONLY_DBMOVED) {
        ++m_generation;
    }
    return giveUp(failure, {}, purpose, report);
}

EAFResult SqliteFile::giveUp(const Failure &failure, const std::string &problem, Purpose purpose, Report &report) {
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
    const std::string aside = freeName(m_path);
    const std::string text = m_name + ": " + damage + "; it is kept as " + aside +
                             ", and the store is empty now; `sqlite3 " + aside + " .recover` may still show its values";
    const std::string journal = m_path + "-journal";
    const std::string journalAside = aside + "-journal";
    if (std::rename(m_path.c_str(), aside.c_str()) != 0) {
        return fail(eAF_E_FAILED,
                    damage + "; it could not be renamed to " + aside + " (" + std::strerror(errno) +
                        "), so nothing was changed; make its folder writable or move it away",
                    report);
    }
    // The journal comes second: alone it means nothing, and SQLite drops it, but the file may need it.
    static_cast<void>(std::rename(journal.c_str(), journalAside.c_str()));
    syncFolder(folderOf(m_path));
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
