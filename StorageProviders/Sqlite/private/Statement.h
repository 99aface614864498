/// @file
/// A prepared statement that remembers its first failure, so that a row is bound and stepped with one check.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace storage {

class Statement {
public:
    Statement(sqlite3 *database, const char *sql);
    ~Statement();

    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    /// Bound bytes must live until the next step.
    void bindInteger(int parameter, std::int64_t value);
    void bindReal(int parameter, double value);
    void bindText(int parameter, std::string_view value);
    void bindBlob(int parameter, const void *data, std::size_t size);

    /// @return SQLITE_ROW, SQLITE_DONE, or the first failure since the statement was made.
    int step();
    /// Runs to the end, ready to be bound anew. @return SQLITE_OK or the first failure.
    int run();
    int reset();

    /// The first failure since the statement was made, or SQLITE_OK.
    int failure() const { return m_failure; }

    int columnType(int column) const;
    std::int64_t integer(int column) const;
    double real(int column) const;
    /// The bytes of a text, in UTF-8, or of a blob, valid until the next step. Throws std::bad_alloc.
    std::string_view bytes(int column) const;
    /// @param type  the column's, where the caller has asked for it already.
    std::string_view bytes(int column, int type) const;

private:
    void keep(int result);

    sqlite3_stmt *m_statement = nullptr;
    int m_failure = SQLITE_OK;
};

/// Runs statements that answer nothing. @return SQLITE_OK or the failure.
int execute(sqlite3 *database, const char *sql);

} // namespace storage
