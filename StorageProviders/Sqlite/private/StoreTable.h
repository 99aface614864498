/// @file
/// The table of variables, and whether a database is sound where the store uses it.
#pragma once

#include <sqlite3.h>

#include <string>

namespace storage {

extern const char *const createTableSql;
/// Of location ?1: id, path, type, count, value.
extern const char *const selectRowsSql;
/// ?1 to ?5 as insertRowSql's, ?6 is the row's id.
extern const char *const updateRowSql;
/// Of location, path, type, count and value; answers the row's id.
extern const char *const insertRowSql;

/// What a look at a whole database found; empty where there is nothing to say.
struct TableCheck {
    std::string damage;    ///< Of the table of variables, or of what all tables share.
    std::string hindrance; ///< Why no value can be stored, though those that are there can be read, and what to do.
    std::string remark;    ///< A fault in what others put into the database.
};

/// @return SQLITE_OK, SQLITE_CORRUPT with the damage, or the failure.
int checkTable(sqlite3 *database, TableCheck &found);

} // namespace storage
