/// @file
/// What SQLite's codes mean to the users of a store.
#pragma once

#include <sqlite3.h>

#include <string>

#include "EAFResult.h"

namespace storage {

/// A failed call as it stood right after it; later calls on the connection replace what the connection knows of it.
struct Failure {
    int code = SQLITE_OK; ///< Extended.
    int systemError = 0;  ///< errno where SQLite kept it.
    std::string message;  ///< What SQLite says of a statement that it refused, on one line.

    static Failure of(int code, sqlite3 *database);

    /// The file's content is not what SQLite, or this store, ever writes.
    bool isDamage() const;
    /// A killed process left a journal, and this connection may not roll it back.
    bool isCutShort() const { return code == SQLITE_READONLY_ROLLBACK; }
    /// There is no such file.
    bool isMissingFile() const;

    EAFResult result() const;
    /// What happened and what to do: "the disk is full; make room and store again".
    std::string text() const;
};

/// What a file holds may be anything; a report is one line.
std::string onOneLine(std::string text);

} // namespace storage
