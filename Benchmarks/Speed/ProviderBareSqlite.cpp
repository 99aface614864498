// The limit of the SQLite provider: the same table, settings, statements and flushes, and nothing around them.
#include <absl/container/flat_hash_map.h>
#include <absl/strings/string_view.h>
#include <sqlite3.h>

#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>

#include "ProviderKeepers.h"

namespace speed {

namespace {

constexpr std::int64_t location = 1;

std::string_view nameOf(EVariableType type) {
    switch (type) {
    case TYPE_INT32:
        return "INT32";
    case TYPE_BOOL:
        return "BOOL";
    case TYPE_DOUBLE:
        return "DOUBLE";
    case TYPE_FLOAT:
        return "FLOAT";
    case TYPE_STRING:
        return "STRING";
    default:
        return "INT16_ARRAY";
    }
}

class BareSqlite : public Keeper {
public:
    BareSqlite(Values &values, const std::string &folder) : m_values(values), m_file(folder + "/values.db") {
        connect();
        execute("CREATE TABLE variable(id INTEGER PRIMARY KEY,location INTEGER NOT NULL,path TEXT NOT NULL,"
                "type TEXT NOT NULL,count INTEGER NOT NULL,value,UNIQUE(location,path))");
        prepareStatements();
        for (const Value &value : values.all()) {
            m_byPath.emplace(absl::string_view(value.path.data(), value.path.size()), &value);
        }
        insertAll();
    }
    ~BareSqlite() override { disconnect(); }

    void close() override { disconnect(); }
    void open() override {
        connect();
        prepareStatements();
    }

    void store() override {
        bool isBegun = false;
        m_shadow.update(m_values, [&](const Value &value) {
            if (!std::exchange(isBegun, true)) {
                execute("BEGIN IMMEDIATE");
            }
            bind(m_update, value);
            require(sqlite3_bind_int64(m_update, 6, &value - m_values.all().data() + 1));
            runOnce(m_update);
        });
        if (isBegun) {
            execute("COMMIT");
        }
    }

    void retrieve() override {
        require(sqlite3_bind_int64(m_select, 1, location));
        while (sqlite3_step(m_select) == SQLITE_ROW) {
            const auto found = m_byPath.find(absl::string_view(text(1).data(), text(1).size()));
            if (found == m_byPath.end()) {
                continue;
            }
            const Value &value = *found->second;
            if (text(2) == nameOf(value.type) && sqlite3_column_int64(m_select, 3) == value.noOfElements) {
                take(value);
            }
        }
        require(sqlite3_reset(m_select));
        m_shadow.set(m_values);
    }

private:
    void connect() {
        require(sqlite3_open_v2(m_file.c_str(), &m_database,
                                SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr));
        execute("PRAGMA trusted_schema=OFF;PRAGMA cell_size_check=ON;PRAGMA secure_delete=OFF;"
                "PRAGMA temp_store=MEMORY;PRAGMA synchronous=FULL;PRAGMA journal_mode=TRUNCATE");
    }
    void disconnect() {
        sqlite3_finalize(m_update);
        sqlite3_finalize(m_select);
        sqlite3_close(m_database);
    }
    void require(int code) {
        if (code != SQLITE_OK) {
            throw std::runtime_error(std::string("bare SQLite: ") + sqlite3_errmsg(m_database));
        }
    }
    void execute(const char *sql) { require(sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr)); }
    sqlite3_stmt *prepare(const char *sql) {
        sqlite3_stmt *statement = nullptr;
        require(sqlite3_prepare_v2(m_database, sql, -1, &statement, nullptr));
        return statement;
    }
    void prepareStatements() {
        m_update = prepare("UPDATE variable SET type=?3,count=?4,value=?5 WHERE id=?6 AND location=?1 AND path=?2");
        m_select = prepare("SELECT id,path,type,count,value FROM variable NOT INDEXED WHERE location=?1 ORDER BY id");
    }
    void runOnce(sqlite3_stmt *statement) {
        sqlite3_step(statement);
        require(sqlite3_reset(statement));
    }

    void insertAll() {
        sqlite3_stmt *insert = prepare("INSERT INTO variable(location,path,type,count,value) VALUES(?1,?2,?3,?4,?5)");
        execute("BEGIN IMMEDIATE");
        m_shadow.update(m_values, [&](const Value &value) {
            bind(insert, value);
            runOnce(insert);
        });
        execute("COMMIT");
        sqlite3_finalize(insert);
    }

    void bindText(sqlite3_stmt *statement, int parameter, std::string_view value) {
        require(sqlite3_bind_text64(statement, parameter, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8));
    }

    void bind(sqlite3_stmt *statement, const Value &value) {
        require(sqlite3_bind_int64(statement, 1, location));
        bindText(statement, 2, value.path);
        bindText(statement, 3, nameOf(value.type));
        require(sqlite3_bind_int64(statement, 4, value.noOfElements));
        switch (value.type) {
        case TYPE_INT32:
            require(sqlite3_bind_int64(statement, 5, m_values.numberOf<std::int32_t>(value)));
            break;
        case TYPE_BOOL:
            require(sqlite3_bind_int64(statement, 5, m_values.numberOf<std::uint32_t>(value)));
            break;
        case TYPE_DOUBLE:
            require(sqlite3_bind_double(statement, 5, m_values.numberOf<double>(value)));
            break;
        case TYPE_FLOAT:
            require(sqlite3_bind_double(statement, 5, static_cast<double>(m_values.numberOf<float>(value))));
            break;
        case TYPE_STRING: {
            const auto *content = reinterpret_cast<const char *>(m_values.contentOf(value));
            bindText(statement, 5, {content, strnlen(content, value.size)});
            break;
        }
        default:
            bindText(statement, 5, arrayText(value));
        }
    }

    std::string_view arrayText(const Value &value) {
        char *end = m_text.data();
        *end++ = '[';
        for (std::uint32_t i = 0; i < value.noOfElements; ++i) {
            std::int16_t element = 0;
            std::memcpy(&element, m_values.contentOf(value) + i * sizeof element, sizeof element);
            end = std::to_chars(end, m_text.data() + m_text.size(), element).ptr;
            *end++ = i + 1 < value.noOfElements ? ',' : ']';
        }
        return {m_text.data(), static_cast<std::size_t>(end - m_text.data())};
    }

    std::string_view text(int column) {
        const auto *bytes = reinterpret_cast<const char *>(sqlite3_column_text(m_select, column));
        return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(m_select, column))};
    }

    void take(const Value &value) {
        switch (value.type) {
        case TYPE_INT32:
            m_values.setNumber(value, static_cast<std::int32_t>(sqlite3_column_int64(m_select, 4)));
            break;
        case TYPE_BOOL:
            m_values.setNumber(value, static_cast<std::uint32_t>(sqlite3_column_int64(m_select, 4)));
            break;
        case TYPE_DOUBLE:
            m_values.setNumber(value, sqlite3_column_double(m_select, 4));
            break;
        case TYPE_FLOAT:
            m_values.setNumber(value, static_cast<float>(sqlite3_column_double(m_select, 4)));
            break;
        case TYPE_STRING: {
            const std::string_view stored = text(4);
            const std::size_t length = std::min(stored.size(), value.size);
            std::memcpy(m_values.contentOf(value), stored.data(), length);
            std::memset(m_values.contentOf(value) + length, 0, value.size - length);
            break;
        }
        default: {
            const std::string_view stored = text(4);
            const char *at = stored.data() + 1;
            for (std::uint32_t i = 0; i < value.noOfElements; ++i) {
                std::int16_t element = 0;
                at = std::from_chars(at, stored.data() + stored.size(), element).ptr + 1;
                std::memcpy(m_values.contentOf(value) + i * sizeof element, &element, sizeof element);
            }
        }
        }
    }

    Values &m_values;
    std::string m_file;
    Shadow m_shadow;
    absl::flat_hash_map<absl::string_view, const Value *> m_byPath;
    std::array<char, 128> m_text{};
    sqlite3 *m_database = nullptr;
    sqlite3_stmt *m_update = nullptr;
    sqlite3_stmt *m_select = nullptr;
};

} // namespace

std::unique_ptr<Keeper> makeBareSqlite(Values &values, const std::string &folder) {
    return std::make_unique<BareSqlite>(values, folder);
}

} // namespace speed
