#include "SqliteInput.h"

#include <sqlite3.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>

#include "Harness.h"
#include "Number.h"
#include "StoredInput.h"
#include "Utf8.h"
#include "VariableType.h"

namespace fuzz {

namespace {

using Sort = SqliteRow::Sort;
using storage::StoredValue;

constexpr std::uint32_t noOfPlainTypes = 21;

constexpr const char *tables[] = {
    "CREATE TABLE variable(id INTEGER PRIMARY KEY,location INTEGER NOT NULL,path TEXT NOT NULL,type TEXT NOT NULL,"
    "count INTEGER NOT NULL,value,UNIQUE(location,path))",
    "CREATE TABLE variable(id INTEGER PRIMARY KEY,location INTEGER NOT NULL,path TEXT NOT NULL,type TEXT NOT NULL,"
    "count INTEGER NOT NULL,value)",
    "CREATE TABLE variable(location,path,type,count,value,id)",
    "CREATE TABLE variable(id INTEGER PRIMARY KEY,location INTEGER,path TEXT,type TEXT,count INTEGER,value INTEGER,"
    "more,UNIQUE(path,location))",
    "CREATE TABLE variable(id TEXT PRIMARY KEY,location,path,type,count,value,UNIQUE(location,path)) WITHOUT ROWID",
    "CREATE TABLE variable(id INTEGER PRIMARY KEY,location,path,type,count,value CHECK(value<>7),"
    "UNIQUE(location,path))"};

/// What others may have added.
constexpr const char *additions[] = {
    "CREATE TABLE other(a,b);INSERT INTO other VALUES(1,zeroblob(700))",
    "CREATE VIEW seen AS SELECT path,value FROM variable",
    "CREATE INDEX byValue ON variable(value)",
    "CREATE UNIQUE INDEX byType ON variable(type,count)",
    "CREATE TRIGGER refused BEFORE INSERT ON variable BEGIN SELECT RAISE(ABORT,'no'); END",
    "CREATE TRIGGER ignored BEFORE INSERT ON variable BEGIN SELECT RAISE(IGNORE); END",
    "CREATE TRIGGER kept BEFORE UPDATE ON variable BEGIN SELECT RAISE(IGNORE); END",
    "CREATE INDEX partly ON variable(path) WHERE count>1",
    "CREATE TABLE sink(a);CREATE TRIGGER logged AFTER INSERT ON variable BEGIN INSERT INTO sink VALUES(new.id); END"};

using Database = std::unique_ptr<sqlite3, int (*)(sqlite3 *)>;

void execute(sqlite3 *database, const std::string &sql) {
    const int code = sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
    FUZZ_CHECK(code == SQLITE_OK || code == SQLITE_CONSTRAINT, sql + ": " + sqlite3_errmsg(database));
}

template <class Number>
StoredValue single(const SqliteRow &row, EVariableType type, Number number) {
    StoredValue value{row.path, type, static_cast<std::uint32_t>(row.count), {}};
    value.content.resize(sizeof number);
    std::memcpy(value.content.data(), &number, sizeof number);
    return value;
}

template <class Number>
void foretellNumber(SqliteRow &row, EVariableType type) {
    row.isForetold = row.sort != Sort::text;
    if constexpr (std::is_integral_v<Number>) {
        if (row.sort == Sort::integer && row.integer >= std::int64_t{std::numeric_limits<Number>::min()} &&
            row.integer <= std::int64_t{std::numeric_limits<Number>::max()}) {
            row.value = single(row, type, static_cast<Number>(row.integer));
        }
    } else if (row.sort == Sort::integer) {
        row.value = single(row, type, static_cast<Number>(static_cast<double>(row.integer))); // as SQLite gives it
    } else if (row.sort == Sort::real && !std::isnan(row.real) &&
               (std::isinf(row.real) || std::abs(row.real) <= double{std::numeric_limits<Number>::max()})) {
        row.value = single(row, type, static_cast<Number>(row.real));
    }
}

void foretellString(SqliteRow &row) {
    const auto room = static_cast<std::size_t>(row.count);
    row.isForetold = true;
    if (row.sort == Sort::text ? row.bytes.size() <= room : row.sort == Sort::blob && row.bytes.size() == room) {
        StoredValue value{row.path, TYPE_STRING, static_cast<std::uint32_t>(row.count), {}};
        value.content.assign(row.bytes.begin(), row.bytes.end());
        value.content.resize(room);
        row.value = std::move(value);
    }
}

/// Called for what is no array; those foretell themselves when they are made.
void foretell(SqliteRow &row) {
    EVariableType type = TYPE_INT8;
    const bool isPathUsual = row.isPathBlob != storage::isUtf8(row.path);
    if (!isPathUsual || !storage::typeOfName(row.type, type) || row.count < 0 ||
        row.count > std::int64_t{std::numeric_limits<std::uint32_t>::max()} ||
        storage::contentSize(type, static_cast<std::uint32_t>(row.count)) > storage::largestContent) {
        row.isForetold = true;
        row.value.reset();
        return;
    }
    if (type == TYPE_STRING) {
        foretellString(row);
    } else if (!storage::isArray(type)) {
        storage::withElementOf(type, [&](auto number) { foretellNumber<decltype(number)>(row, type); });
    } else if (row.sort != Sort::text) {
        row.isForetold = true;
        row.value.reset();
    }
}

/// Whole numbers as they are written, one of them out of range at times.
void fillArray(SqliteRow &row, EVariableType type, FuzzInput &input) {
    row.sort = Sort::text;
    storage::withElementOf(type, [&](auto zero) {
        using Number = decltype(zero);
        StoredValue value{row.path, type, static_cast<std::uint32_t>(row.count), {}};
        std::string text;
        bool isInRange = true;
        for (std::int64_t i = 0; i < row.count; ++i) {
            const auto word = static_cast<std::int32_t>(input.word());
            const bool isKept = std::is_floating_point_v<Number> || input.oneIn(2);
            const std::int64_t number = isKept ? static_cast<std::int64_t>(static_cast<Number>(word)) : word;
            isInRange = isInRange && (std::is_floating_point_v<Number> ||
                                      static_cast<std::int64_t>(static_cast<Number>(number)) == number);
            text += (i == 0 ? "" : ",") + std::to_string(number);
            const StoredValue element = single(row, type, static_cast<Number>(number));
            value.content.insert(value.content.end(), element.content.begin(), element.content.end());
        }
        row.bytes = "[" + text + "]";
        row.isForetold = true;
        if (isInRange) {
            row.value = std::move(value);
        }
    });
}

void fillValue(SqliteRow &row, FuzzInput &input) {
    row.sort = static_cast<Sort>(input.below(5));
    row.integer = input.oneIn(2) ? static_cast<std::int8_t>(input.byte())
                                 : (static_cast<std::int64_t>(input.word()) << 32) + input.word();
    row.real = static_cast<double>(row.integer) / 7;
    if (input.oneIn(8)) {
        std::memcpy(&row.real, &row.integer, sizeof row.real);
    }
    if (row.sort == Sort::text || row.sort == Sort::blob) {
        row.bytes = input.text(input.below(40));
    }
}

SqliteRow rowFrom(FuzzInput &input) {
    SqliteRow row;
    row.location = input.oneIn(6) ? static_cast<std::int32_t>(input.word()) : 1;
    row.path = pathFrom(input);
    row.isPathBlob = input.oneIn(12) || (!storage::isUtf8(row.path) && !input.oneIn(4));
    const auto type = static_cast<EVariableType>(input.below(noOfPlainTypes));
    row.type = input.oneIn(12) ? input.text(input.below(12)) : std::string(storage::typeName(type));
    row.count = input.oneIn(12) ? static_cast<std::int32_t>(input.word()) : input.below(20);
    if (storage::isArray(type) && row.type == storage::typeName(type) && row.count >= 0 && row.count < 20 &&
        !input.oneIn(4)) {
        fillArray(row, type, input);
    } else {
        fillValue(row, input);
    }
    foretell(row);
    return row;
}

void insert(sqlite3 *database, const SqliteRow &row, std::int64_t id) {
    sqlite3_stmt *statement = nullptr;
    const char *sql = "INSERT OR IGNORE INTO variable(id,location,path,type,count,value) VALUES(?,?,?,?,?,?)";
    FUZZ_CHECK(sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) == SQLITE_OK, sqlite3_errmsg(database));
    const auto sizeOf = [](const std::string &bytes) { return static_cast<int>(bytes.size()); };
    sqlite3_bind_int64(statement, 1, id);
    sqlite3_bind_int64(statement, 2, row.location);
    if (row.isPathBlob) {
        sqlite3_bind_blob(statement, 3, row.path.data(), sizeOf(row.path), SQLITE_STATIC);
    } else {
        sqlite3_bind_text(statement, 3, row.path.data(), sizeOf(row.path), SQLITE_STATIC);
    }
    sqlite3_bind_text(statement, 4, row.type.data(), sizeOf(row.type), SQLITE_STATIC);
    sqlite3_bind_int64(statement, 5, row.count);
    switch (row.sort) {
    case Sort::integer:
        sqlite3_bind_int64(statement, 6, row.integer);
        break;
    case Sort::real:
        sqlite3_bind_double(statement, 6, row.real);
        break;
    case Sort::text:
        sqlite3_bind_text(statement, 6, row.bytes.data(), sizeOf(row.bytes), SQLITE_STATIC);
        break;
    case Sort::blob:
        sqlite3_bind_blob(statement, 6, row.bytes.data(), sizeOf(row.bytes), SQLITE_STATIC);
        break;
    case Sort::null:
        break;
    }
    sqlite3_step(statement);
    sqlite3_finalize(statement);
}

} // namespace

SqliteDatabase sqliteFrom(FuzzInput &input) {
    SqliteDatabase described;
    sqlite3 *opened = nullptr;
    FUZZ_CHECK(sqlite3_open(":memory:", &opened) == SQLITE_OK, "no database in memory");
    const Database database(opened, sqlite3_close);
    const bool isUsual = !input.oneIn(4);
    execute(opened, "PRAGMA page_size=512");
    if (!isUsual && input.oneIn(8)) {
        execute(opened, "PRAGMA encoding='UTF-16le'");
    }
    execute(opened, isUsual ? tables[0] : input.any(tables));
    const std::uint32_t odd = isUsual ? 0 : input.below(8);
    execute(opened, "PRAGMA application_id=" + std::to_string(odd == 1 ? input.below(0x10000) : 1514227283));
    execute(opened, "PRAGMA user_version=" + std::to_string(odd == 2 ? input.below(4) : 1));
    for (std::uint32_t left = input.below(12); left > 0; --left) {
        described.rows.push_back(rowFrom(input));
        insert(opened, described.rows.back(), static_cast<std::int64_t>(described.rows.size()));
    }
    for (std::uint32_t left = isUsual ? 0 : input.below(3); left > 0; --left) {
        sqlite3_exec(opened, input.any(additions), nullptr, nullptr, nullptr); // twice the same is refused
    }
    if (!isUsual && input.oneIn(4)) {
        execute(opened, "DELETE FROM variable WHERE id%2=0");
    }
    sqlite3_int64 size = 0;
    unsigned char *bytes = sqlite3_serialize(opened, "main", &size, 0);
    FUZZ_CHECK(bytes != nullptr, "no memory for a database");
    described.file.assign(bytes, bytes + size);
    sqlite3_free(bytes);
    described.isAsStoresMakeIt = isUsual;
    return described;
}

} // namespace fuzz
