#include "SqliteCalls.h"

#include <dlfcn.h>
#include <link.h>
#include <sqlite3.h>

#include <cstdint>
#include <cstring>

namespace {

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

int findSqlite(dl_phdr_info *info, std::size_t, void *found) {
    if (std::strstr(info->dlpi_name, "libsqlite3") == nullptr) {
        return 0;
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto &header = info->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            static_cast<Range *>(found)->begin = info->dlpi_addr + header.p_vaddr;
            static_cast<Range *>(found)->end = info->dlpi_addr + header.p_vaddr + header.p_memsz;
        }
    }
    return 1;
}

bool isSqlites(const void *caller) {
    static const Range sqlite = [] {
        Range range;
        dl_iterate_phdr(findSqlite, &range);
        return range;
    }();
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    return sqlite.begin <= address && address < sqlite.end;
}

struct Fault {
    int code = SQLITE_OK;
    std::size_t succeeding = 0;
    bool isForEver = false;
    std::size_t failures = 0;
    const char *name = "";
};
Fault fault;

/// @return the code to fail with, or SQLITE_OK.
int failureNow(const void *caller, const char *name) {
    if (fault.code == SQLITE_OK || isSqlites(caller)) {
        return SQLITE_OK;
    }
    if (fault.succeeding > 0) {
        --fault.succeeding;
        return SQLITE_OK;
    }
    if (fault.failures > 0 && !fault.isForEver) {
        return SQLITE_OK;
    }
    if (fault.failures++ == 0) {
        fault.name = name;
    }
    return fault.code;
}

template <class Function>
Function next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace test {

FailingCall::FailingCall(std::size_t howManySucceed, int sqliteCode, bool everyLaterOne) {
    fault = {sqliteCode, howManySucceed, everyLaterOne, 0, ""};
}

FailingCall::~FailingCall() {
    fault.code = SQLITE_OK;
}

std::size_t FailingCall::failures() const {
    return fault.failures;
}

std::string FailingCall::name() const {
    return fault.name;
}

} // namespace test

// The calls as SQLite declares them; one that fails does nothing else.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): SQLite's are in a style of its own
#define FAIL_OR_FORWARD(name, arguments)                                                                               \
    const int failure = failureNow(__builtin_return_address(0), #name);                                                \
    static const auto real = next<decltype(&(name))>(#name);                                                           \
    return failure != SQLITE_OK ? failure : real arguments

int sqlite3_open_v2(const char *fileName, sqlite3 **database, int flags, const char *vfs) {
    *database = nullptr;
    FAIL_OR_FORWARD(sqlite3_open_v2, (fileName, database, flags, vfs));
}
int sqlite3_busy_timeout(sqlite3 *database, int milliseconds) {
    FAIL_OR_FORWARD(sqlite3_busy_timeout, (database, milliseconds));
}
int sqlite3_file_control(sqlite3 *database, const char *name, int operation, void *argument) {
    FAIL_OR_FORWARD(sqlite3_file_control, (database, name, operation, argument));
}
int sqlite3_exec(sqlite3 *database, const char *sql, int (*callback)(void *, int, char **, char **), void *context,
                 char **message) {
    FAIL_OR_FORWARD(sqlite3_exec, (database, sql, callback, context, message));
}
int sqlite3_prepare_v2(sqlite3 *database, const char *sql, int length, sqlite3_stmt **statement, const char **tail) {
    *statement = nullptr;
    FAIL_OR_FORWARD(sqlite3_prepare_v2, (database, sql, length, statement, tail));
}
int sqlite3_step(sqlite3_stmt *statement) {
    FAIL_OR_FORWARD(sqlite3_step, (statement));
}
int sqlite3_reset(sqlite3_stmt *statement) {
    FAIL_OR_FORWARD(sqlite3_reset, (statement));
}
int sqlite3_bind_int64(sqlite3_stmt *statement, int parameter, sqlite3_int64 value) {
    FAIL_OR_FORWARD(sqlite3_bind_int64, (statement, parameter, value));
}
int sqlite3_bind_double(sqlite3_stmt *statement, int parameter, double value) {
    FAIL_OR_FORWARD(sqlite3_bind_double, (statement, parameter, value));
}
int sqlite3_bind_text64(sqlite3_stmt *statement, int parameter, const char *text, sqlite3_uint64 size,
                        void (*release)(void *), unsigned char encoding) {
    FAIL_OR_FORWARD(sqlite3_bind_text64, (statement, parameter, text, size, release, encoding));
}
int sqlite3_bind_blob64(sqlite3_stmt *statement, int parameter, const void *data, sqlite3_uint64 size,
                        void (*release)(void *)) {
    FAIL_OR_FORWARD(sqlite3_bind_blob64, (statement, parameter, data, size, release));
}
const void *sqlite3_column_blob(sqlite3_stmt *statement, int column) {
    // It has no other code than this one.
    if (fault.code == SQLITE_NOMEM && failureNow(__builtin_return_address(0), "sqlite3_column_blob") != SQLITE_OK) {
        return nullptr;
    }
    static const auto real = next<decltype(&sqlite3_column_blob)>("sqlite3_column_blob");
    return real(statement, column);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
