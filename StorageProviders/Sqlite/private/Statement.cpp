#include "Statement.h"

#include <new>

namespace storage {

Statement::Statement(sqlite3 *database, const char *sql) {
    keep(sqlite3_prepare_v2(database, sql, -1, &m_statement, nullptr));
}

Statement::~Statement() {
    sqlite3_finalize(m_statement);
}

void Statement::keep(int result) {
    if (m_failure == SQLITE_OK && result != SQLITE_OK) {
        m_failure = result;
    }
}

void Statement::bindInteger(int parameter, std::int64_t value) {
    if (m_failure == SQLITE_OK) {
        keep(sqlite3_bind_int64(m_statement, parameter, value));
    }
}

void Statement::bindReal(int parameter, double value) {
    if (m_failure == SQLITE_OK) {
        keep(sqlite3_bind_double(m_statement, parameter, value));
    }
}

void Statement::bindText(int parameter, std::string_view value) {
    if (m_failure == SQLITE_OK) {
        // A null address would bind NULL instead of the empty text.
        keep(sqlite3_bind_text64(m_statement, parameter, value.empty() ? "" : value.data(), value.size(), SQLITE_STATIC,
                                 SQLITE_UTF8));
    }
}

void Statement::bindBlob(int parameter, const void *data, std::size_t size) {
    if (m_failure == SQLITE_OK) {
        keep(sqlite3_bind_blob64(m_statement, parameter, size == 0 ? "" : data, size, SQLITE_STATIC));
    }
}

int Statement::step() {
    if (m_failure == SQLITE_OK) {
        const int result = sqlite3_step(m_statement);
        if (result == SQLITE_ROW || result == SQLITE_DONE) {
            return result;
        }
        keep(result);
    }
    return m_failure;
}

int Statement::run() {
    int result = step();
    while (result == SQLITE_ROW) {
        result = step();
    }
    return reset();
}

int Statement::reset() {
    const int result = sqlite3_reset(m_statement);
    keep(result);
    return m_failure;
}

int Statement::columnType(int column) const {
    return sqlite3_column_type(m_statement, column);
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(m_statement, column);
}

double Statement::real(int column) const {
    return sqlite3_column_double(m_statement, column);
}

std::string_view Statement::bytes(int column) const {
    return bytes(column, columnType(column));
}

std::string_view Statement::bytes(int column, int type) const {
    // A text as a blob would come in the database's own encoding.
    const void *data =
        type == SQLITE_TEXT ? sqlite3_column_text(m_statement, column) : sqlite3_column_blob(m_statement, column);
    const int size = sqlite3_column_bytes(m_statement, column);
    if (data == nullptr && size > 0) {
        throw std::bad_alloc{};
    }
    return {static_cast<const char *>(data), data == nullptr ? 0 : static_cast<std::size_t>(size)};
}

int execute(sqlite3 *database, const char *sql) {
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
}

} // namespace storage
