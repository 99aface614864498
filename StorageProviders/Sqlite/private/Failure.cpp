#include "Failure.h"

#include <cerrno>
#include <cstring>

namespace storage {
namespace {

constexpr int primaryCode = 0xFF;

bool isNoSpace(int systemError) {
    return systemError == ENOSPC || systemError == EDQUOT;
}

} // namespace

Failure Failure::of(int code, sqlite3 *database) {
    const int primary = code & primaryCode;
    const bool isSystems = primary == SQLITE_CANTOPEN || primary == SQLITE_IOERR;
    const bool isRefusal = primary == SQLITE_ERROR || primary == SQLITE_CONSTRAINT;
    Failure failure{code, isSystems && database != nullptr ? sqlite3_system_errno(database) : 0, {}};
    if (isRefusal && database != nullptr && sqlite3_extended_errcode(database) == code) {
        failure.message = onOneLine(sqlite3_errmsg(database));
    }
    return failure;
}

bool Failure::isDamage() const {
    const int primary = code & primaryCode;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

bool Failure::isMissingFile() const {
    return (code & primaryCode) == SQLITE_CANTOPEN && systemError == ENOENT;
}

EAFResult Failure::result() const {
    if (code == SQLITE_IOERR_NOMEM) {
        return eAF_E_OUT_OF_MEMORY;
    }
    switch (code & primaryCode) {
    case SQLITE_OK:
        return eAF_S_OK;
    case SQLITE_NOMEM:
        return eAF_E_OUT_OF_MEMORY;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return eAF_E_ALREADY_INITIALIZED;
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return eAF_E_WRONG_ACCESS;
    case SQLITE_CANTOPEN:
        if (systemError == EROFS) {
            return eAF_E_WRONG_ACCESS;
        }
        return isNoSpace(systemError) ? eAF_E_FAILED : eAF_E_INITIALIZATION_ERROR;
    default:
        return eAF_E_FAILED;
    }
}

std::string Failure::text() const {
    const std::string system = systemError != 0 ? std::string(", ") + std::strerror(systemError) : std::string();
    const std::string told = (message.empty() ? std::string(sqlite3_errstr(code)) : message) + " (SQLite code " +
                             std::to_string(code) + system + ")";
    switch (code) {
    case SQLITE_READONLY_DBMOVED:
        return "the file was moved or deleted while in use; retrieve again, or put it back and restart";
    case SQLITE_READONLY_ROLLBACK:
        return "a store was cut short and can not be rolled back; make the file, its folder and its disk writable, or "
               "read a copy of it and of its journal";
    default:
        break;
    }
    switch (code & primaryCode) {
    case SQLITE_NOMEM:
        return "no memory could be had";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "another process has locked it; end what that process does with the file and try again";
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return "it can not be written: " + told + "; make the file, its folder and its disk writable";
    case SQLITE_FULL:
        return "the disk is full: " + told + "; make room and store again";
    case SQLITE_CANTOPEN:
        if (isNoSpace(systemError)) {
            return "the disk is full: " + told + "; make room and store again";
        }
        return "it can not be opened: " + told + "; check the folder, the permissions and the space left";
    case SQLITE_IOERR:
        return "input or output failed: " + told + "; check the disk and try again";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return "it is damaged: " + told;
    case SQLITE_CONSTRAINT:
        return "what was added to its table of variables refuses a value: " + told +
               "; drop that trigger, index or check, or store what it asks for";
    case SQLITE_ERROR:
        return "its table of variables can not be used: " + told + "; mend the table, or drop what was added to it";
    default:
        return told + "; try again, and keep a copy of the file for its maintainers";
    }
}

std::string onOneLine(std::string text) {
    for (char &character : text) {
        if (static_cast<unsigned char>(character) < ' ') {
            character = '?';
        }
    }
    return text;
}

} // namespace storage
