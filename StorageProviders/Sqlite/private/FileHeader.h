/// @file
/// Whose a file is, by its first bytes.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

namespace storage {

/// "ZAFS": PRAGMA application_id of every store.
constexpr std::uint32_t storeApplicationId = 0x5A414653;
constexpr std::uint32_t storeFormatVersion = 1;

struct FileHeader {
    enum class Owner {
        nobody, ///< The file is empty.
        us,     ///< A store, or what is left of one: SQLite tells whether it is whole.
        newer,  ///< A store in a format that this program does not know.
        other   ///< Another program's file.
    };
    Owner owner = Owner::nobody;
    bool isSqlite = false;
    std::uint32_t applicationId = 0;
    std::uint32_t formatVersion = 0;
};

/// Reads through the connection, which keeps its locks that way: a file of its own, once closed, would take them
/// along. Nothing is changed, no journal is rolled back. @return SQLITE_OK or the failure.
int readHeader(sqlite3 *database, FileHeader &header);

} // namespace storage
