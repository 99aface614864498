#include "SqliteStore.h"

#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "Statement.h"
#include "StoreTable.h"
#include "Utf8.h"
#include "ValueColumn.h"
#include "VariableType.h"

namespace storage {
namespace {

using Purpose = SqliteFile::Purpose;

} // namespace

/// The columns of SELECT id,path,type,count,value.
class SqliteStore::Row {
public:
    explicit Row(const Statement &statement)
        : m_statement(statement), m_pathType(statement.columnType(1)), m_path(statement.bytes(1, m_pathType)) {}

    std::int64_t id() const { return m_statement.integer(0); }
    std::string_view path() const { return m_path; }
    /// A path in the other form is never matched by what a store writes.
    bool isPathAsWritten() const { return isUtf8(m_path) == (m_pathType == SQLITE_TEXT); }
    std::string_view type() const { return m_statement.bytes(2); }
    std::int64_t count() const { return m_statement.integer(3); }
    bool isCountInteger() const { return m_statement.columnType(3) == SQLITE_INTEGER; }
    bool value(StoredValue &stored, std::string &misfit) const { return readValue(m_statement, 4, stored, misfit); }

private:
    const Statement &m_statement;
    int m_pathType;
    std::string_view m_path;
};

SqliteStore::SqliteStore(std::string file, unsigned long locationId)
    : m_name(std::move(file)), m_locationId(static_cast<std::int64_t>(locationId)) {}

EAFResult SqliteStore::open(Access access, Report &report) {
    if (m_file != nullptr) {
        return eAF_S_OK;
    }
    std::shared_ptr<SqliteFile> file = SqliteFile::of(m_name, access, report);
    if (file == nullptr) {
        return eAF_E_INITIALIZATION_ERROR;
    }
    const EAFResult result = file->open(report);
    if (result < eAF_E_FAILED) {
        m_generation = file->generation();
        m_file = std::move(file);
    }
    return result;
}

EAFResult SqliteStore::read(ValueSink &values, Report &report) {
    values.clear();
    if (m_file == nullptr) {
        report.add(Severity::error, m_name + ": is not open; open it before it is read");
        return eAF_E_INITIALIZATION_ERROR;
    }
    m_rows.clear();
    m_hasRows = false;
    const EAFResult result = m_file->query([&] { return readRows(values, report); }, report);
    if (result < eAF_E_FAILED) {
        m_hasRows = true;
        m_generation = m_file->generation();
    }
    return result;
}

int SqliteStore::readRows(ValueSink &values, Report &report) {
    Statement rows(m_file->database(), selectRowsSql);
    rows.bindInteger(1, m_locationId);
    StoredValue value; // its memory serves row after row
    int code = rows.step();
    while (code == SQLITE_ROW) {
        const Row row(rows);
        if (!row.isPathAsWritten()) {
            reportMisfit(row, "has a path that is text though it is no UTF-8, or a blob though it is", report);
        } else if (!m_rows.add(row.path(), row.id())) {
            reportMisfit(row, "stands twice", report);
        } else if (readRow(row, value, report)) {
            values.add({row.path(), value.type, value.noOfElements, value.content.data(), value.content.size()});
        }
        code = rows.step();
    }
    if (code != SQLITE_DONE) {
        values.clear();
        m_rows.clear();
        return code;
    }
    return SQLITE_OK;
}

/// @param value  receives all but the path. @return whether it fits.
bool SqliteStore::readRow(const Row &row, StoredValue &value, Report &report) const {
    const std::string_view type = row.type();
    // Mostly the type of the row before.
    if (type != typeName(value.type) && !typeOfName(type, value.type)) {
        reportMisfit(row, "is of type '" + std::string(type.substr(0, 40)) + "', which no store keeps", report);
        return false;
    }
    const std::int64_t count = row.count();
    if (!row.isCountInteger() || count < 0 || count > std::numeric_limits<std::uint32_t>::max()) {
        reportMisfit(row, "has a count that is no number of elements", report);
        return false;
    }
    value.noOfElements = static_cast<std::uint32_t>(count);
    std::string misfit;
    if (!row.value(value, misfit)) {
        reportMisfit(row,
                     "holds " + misfit + ", which does not fit " + std::string(typeName(value.type)) + "[" +
                         std::to_string(count) + "]",
                     report);
        return false;
    }
    return true;
}

void SqliteStore::reportMisfit(const Row &row, const std::string &problem, Report &report) const {
    report.add(Severity::warning,
               m_name + ": " +
                   onOneLine(std::string(row.path()) + " (row " + std::to_string(row.id()) + ") " + problem) +
                   "; it counts as not stored: mend the row, or let a store replace it");
}

EAFResult SqliteStore::writeViews(const ValueViews &values, Report &report) {
    if (values.empty()) {
        return eAF_S_OK;
    }
    EAFResult result = checkValues(values, report);
    if (result < eAF_E_FAILED) {
        result = connectToWrite(report);
    }
    if (result >= eAF_E_FAILED) {
        return result;
    }
    const Failure failure = store(values);
    return failure.code == SQLITE_OK ? eAF_S_OK : m_file->failed(failure, Purpose::write, report);
}

EAFResult SqliteStore::checkValues(const ValueViews &values, Report &report) const {
    for (const ValueView &value : values) {
        const bool isWhole = isPlain(value.type) && value.size == contentSize(value.type, value.noOfElements);
        if (!isWhole || value.size > largestContent) {
            report.add(Severity::error, m_name + ": " + onOneLine(std::string(value.path)) + " has " +
                                            std::to_string(value.size) + " bytes, " +
                                            (isWhole ? "more than a store keeps of one variable; make it smaller"
                                                     : "which is not the size of its type; register it anew"));
            return eAF_E_FAILED;
        }
    }
    return eAF_S_OK;
}

EAFResult SqliteStore::connectToWrite(Report &report) {
    if (m_file == nullptr) {
        report.add(Severity::error, m_name + ": is not open; open it before it is written");
        return eAF_E_INITIALIZATION_ERROR;
    }
    const EAFResult connected = m_file->connect(Purpose::write, report);
    if (connected >= eAF_E_FAILED) {
        return connected;
    }
    if (isStale()) {
        report.add(Severity::error, m_name + ": was set aside, moved or deleted since its values were read; retrieve "
                                             "again before storing, so that all values are stored and not the changed "
                                             "ones alone");
        return eAF_E_FAILED;
    }
    return m_file->database() != nullptr ? connected : m_file->create(report);
}

Failure SqliteStore::store(const ValueViews &values) {
    // Known again when the new rows are durable.
    const bool hadRows = std::exchange(m_hasRows, false);
    Transaction transaction(*m_file);
    int code = transaction.begin();
    if (code == SQLITE_OK && m_file->isEmpty()) {
        code = execute(m_file->database(), createTableSql);
    }
    if (code == SQLITE_OK && !hadRows) {
        code = readRowIds();
    }
    if (code == SQLITE_OK) {
        Failure failure = storeRows(values);
        if (failure.code != SQLITE_OK) {
            return failure;
        }
        code = transaction.commit();
    }
    if (code == SQLITE_OK) {
        m_hasRows = true;
        m_file->setFilled();
    }
    return Failure::of(code, m_file->database());
}

int SqliteStore::readRowIds() {
    m_rows.clear();
    Statement rows(m_file->database(), "SELECT id,path FROM variable NOT INDEXED WHERE location=?1 ORDER BY id");
    rows.bindInteger(1, m_locationId);
    int code = rows.step();
    while (code == SQLITE_ROW) {
        m_rows.add(rows.bytes(1), rows.integer(0));
        code = rows.step();
    }
    return code == SQLITE_DONE ? SQLITE_OK : code;
}

Failure SqliteStore::storeRows(const ValueViews &values) {
    Statement update(m_file->database(), updateRowSql);
    std::optional<Statement> insert; // most stores need none, and it takes as long to prepare as some rows to store
    std::string text;                // its memory serves array after array
    int code = update.failure();
    for (auto value = values.begin(); code == SQLITE_OK && value != values.end(); ++value) {
        bool isUpdated = false;
        const std::int64_t *const id = m_rows.find(value->path);
        if (id != nullptr) {
            code = updateRow(update, *id, *value, text, isUpdated);
        }
        if (code == SQLITE_OK && !isUpdated) {
            if (!insert.has_value()) {
                insert.emplace(m_file->database(), insertRowSql);
            }
            code = insertRow(*insert, *value, text);
        }
    }
    // While the statements are there: without them the connection forgets what they met.
    return Failure::of(code, m_file->database());
}

void SqliteStore::bindRow(Statement &statement, const ValueView &value, std::string &text) const {
    statement.bindInteger(1, m_locationId);
    bindName(statement, 2, value.path);
    statement.bindText(3, typeName(value.type));
    statement.bindInteger(4, value.noOfElements);
    bindValue(statement, 5, value, text);
}

int SqliteStore::updateRow(Statement &update, std::int64_t id, const ValueView &value, std::string &text,
                           bool &isUpdated) const {
    bindRow(update, value, text);
    update.bindInteger(6, id);
    const int code = update.run();
    isUpdated = code == SQLITE_OK && sqlite3_changes(m_file->database()) > 0;
    return code;
}

int SqliteStore::insertRow(Statement &insert, const ValueView &value, std::string &text) {
    bindRow(insert, value, text);
    const int code = insert.step();
    if (code != SQLITE_ROW) {
        return code == SQLITE_DONE ? SQLITE_CONSTRAINT_TRIGGER : code; // only a trigger ignores a row
    }
    m_rows.set(value.path, insert.integer(0));
    return insert.run();
}

EAFResult SqliteStore::locations(const std::string &file, std::vector<unsigned long> &locationIds, Report &report) {
    locationIds.clear();
    const std::shared_ptr<SqliteFile> shared = SqliteFile::of(file, Access::readOnly, report);
    if (shared == nullptr) {
        return eAF_E_INITIALIZATION_ERROR;
    }
    const EAFResult opened = shared->open(report);
    if (opened >= eAF_E_FAILED) {
        return opened;
    }
    const auto readLocations = [&] {
        locationIds.clear();
        Statement rows(shared->database(), "SELECT DISTINCT location FROM variable NOT INDEXED ORDER BY location");
        int code = rows.step();
        while (code == SQLITE_ROW) {
            locationIds.push_back(static_cast<unsigned long>(rows.integer(0)));
            code = rows.step();
        }
        return code == SQLITE_DONE ? SQLITE_OK : code;
    };
    return shared->query(readLocations, report);
}

} // namespace storage
