#include "StoreTable.h"

#include <string_view>

#include "Failure.h"
#include "FileHeader.h"
#include "Statement.h"

namespace storage {

static_assert(storeApplicationId == 1514227283 && storeFormatVersion == 1, "as the text below writes them");
const char *const createTableSql = "CREATE TABLE variable("
                                   "id INTEGER PRIMARY KEY,"
                                   "location INTEGER NOT NULL,"
                                   "path TEXT NOT NULL,"
                                   "type TEXT NOT NULL,"
                                   "count INTEGER NOT NULL,"
                                   "value,"
                                   "UNIQUE(location,path));"
                                   "PRAGMA application_id=1514227283;"
                                   "PRAGMA user_version=1";
const char *const selectRowsSql =
    "SELECT id,path,type,count,value FROM variable NOT INDEXED WHERE location=?1 ORDER BY id";
// The path is compared too: rows may have been deleted and added by hand, and numbers are used again then.
const char *const updateRowSql = "UPDATE variable SET type=?3,count=?4,value=?5 "
                                 "WHERE id=?6 AND location=?1 AND path=?2";
const char *const insertRowSql = "INSERT INTO variable(location,path,type,count,value) VALUES(?1,?2,?3,?4,?5) "
                                 "ON CONFLICT(location,path) DO UPDATE "
                                 "SET type=excluded.type,count=excluded.count,value=excluded.value "
                                 "RETURNING id";

namespace {

constexpr const char *insertAnywaySql = "INSERT INTO variable(location,path,type,count,value) VALUES(?1,?2,?3,?4,?5)";
constexpr const char *dropAdvice = "; drop the index, the trigger or the check that was added to the table";
constexpr int primaryCode = 0xFF;

/// Whether SQLite ran, and what it met is the file: what it does not understand, or what is not as it should be.
bool isOfTheFile(int code) {
    return (code & primaryCode) == SQLITE_ERROR || (code & primaryCode) == SQLITE_CORRUPT;
}

bool isError(int code) {
    return (code & primaryCode) == SQLITE_ERROR;
}

/// A line of a check's answer, without the heading that the first one has.
std::string findingOf(std::string_view line) {
    constexpr std::string_view heading = "*** in database main ***\n";
    return onOneLine(std::string(line.substr(line.rfind(heading, 0) == 0 ? heading.size() : 0)));
}

/// @param finding  receives the first thing that is wrong, also when the check itself fails. @return SQLITE_OK or the
///                 failure.
int firstFinding(sqlite3 *database, const char *check, std::string &finding) {
    finding.clear();
    Statement statement(database, check);
    int code = statement.step();
    if (code == SQLITE_ROW) {
        if (statement.bytes(0) != "ok") {
            finding = findingOf(statement.bytes(0));
        }
        code = statement.run();
    } else if (code == SQLITE_DONE) {
        code = SQLITE_CORRUPT;
    }
    if (isOfTheFile(code)) {
        finding = onOneLine(sqlite3_errmsg(database));
    }
    return code;
}

/// A page that the table shares with another one is seen by none of the checks of a single table.
int findSharedPage(sqlite3 *database, std::string &finding) {
    Statement check(database, "PRAGMA quick_check");
    int code = check.step();
    while (code == SQLITE_ROW) {
        if (check.bytes(0).find("2nd reference to page") != std::string_view::npos) {
            finding = findingOf(check.bytes(0));
        }
        code = check.step();
    }
    return code == SQLITE_DONE || isOfTheFile(code) ? SQLITE_OK : code;
}

int holdsOthers(sqlite3 *database, bool &others) {
    Statement objects(database, "SELECT count(*) FROM sqlite_schema "
                                "WHERE name NOT IN('variable','sqlite_autoindex_variable_1')");
    const int code = objects.step();
    others = code == SQLITE_ROW && objects.integer(0) != 0;
    return code == SQLITE_ROW ? SQLITE_OK : code;
}

int prepareSelect(sqlite3 *database, std::string &damage) {
    const Statement table(database, "SELECT id,location,path,type,count,value FROM variable");
    if (isError(table.failure())) {
        damage = "the table of variables is missing or has other columns";
        return SQLITE_CORRUPT;
    }
    return table.failure();
}

/// Looks at the free pages, which all tables take theirs from, and at the table of variables.
int checkWhatTheStoreUses(sqlite3 *database, TableCheck &found) {
    int code = prepareSelect(database, found.damage);
    if (code == SQLITE_OK) {
        code = findSharedPage(database, found.damage);
    }
    if (code == SQLITE_OK && found.damage.empty()) {
        code = firstFinding(database, "PRAGMA integrity_check(sqlite_schema)", found.damage);
    }
    if (code == SQLITE_OK && found.damage.empty()) {
        code = firstFinding(database, "PRAGMA integrity_check(variable)", found.damage);
        if (isError(code)) {
            // An index of someone's on the table, which only its own program can follow: the table itself remains.
            found.hindrance = found.damage + dropAdvice;
            code = firstFinding(database, "PRAGMA quick_check(variable)", found.damage);
        }
    }
    return code == SQLITE_OK && !found.damage.empty() ? SQLITE_CORRUPT : code;
}

/// After the check of everything found a fault.
int tellWhose(sqlite3 *database, int code, TableCheck &found) {
    bool others = false;
    const int counted = holdsOthers(database, others);
    if (counted != SQLITE_OK && !isOfTheFile(counted)) {
        return counted;
    }
    // A check that can not even be run meets a function of another program: in a constraint of the variables' own
    // table, too, whose values are whole.
    if (!others && !isError(code)) {
        return code == SQLITE_OK ? SQLITE_CORRUPT : code;
    }
    found.remark.swap(found.damage);
    // Their checks may call functions that this program does not have.
    code = execute(database, "PRAGMA ignore_check_constraints=ON");
    if (code == SQLITE_OK) {
        code = checkWhatTheStoreUses(database, found);
    }
    const int restored = execute(database, "PRAGMA ignore_check_constraints=OFF");
    return code == SQLITE_OK ? restored : code;
}

int findHindrance(sqlite3 *database, std::string &hindrance) {
    for (const char *sql : {updateRowSql, insertRowSql}) {
        const Statement statement(database, sql);
        if (statement.failure() == SQLITE_OK) {
            continue;
        }
        if (!isError(statement.failure())) {
            return statement.failure();
        }
        hindrance = onOneLine(sqlite3_errmsg(database)) + dropAdvice;
        if (sql == insertRowSql && Statement(database, insertAnywaySql).failure() == SQLITE_OK) {
            hindrance = "the table of variables lacks UNIQUE(location,path); delete rows that stand twice and add it: "
                        "CREATE UNIQUE INDEX variable_path ON variable(location,path)";
        }
        break;
    }
    return SQLITE_OK;
}

} // namespace

int checkTable(sqlite3 *database, TableCheck &found) {
    found = {};
    // All of it: a page that went bad in the table is found by what its index says, and the other way round.
    int code = firstFinding(database, "PRAGMA integrity_check(1)", found.damage);
    if (isOfTheFile(code) || (code == SQLITE_OK && !found.damage.empty())) {
        code = tellWhose(database, code, found);
    } else if (code == SQLITE_OK) {
        code = prepareSelect(database, found.damage);
    }
    if (code == SQLITE_OK && found.hindrance.empty()) {
        code = findHindrance(database, found.hindrance);
    }
    return isError(code) ? SQLITE_CORRUPT : code;
}

} // namespace storage
