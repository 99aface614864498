// What a user would take instead of a provider, used as its documentation advises for values that must last.
#include <absl/container/flat_hash_map.h>
#include <absl/strings/string_view.h>
#include <glib.h>
#include <leveldb/db.h>
#include <leveldb/write_batch.h>
#include <lmdb.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "ProviderDurableFile.h"
#include "ProviderKeepers.h"

namespace speed {

namespace {

using ByPath = absl::flat_hash_map<absl::string_view, const Value *>;

ByPath byPath(const Values &values) {
    ByPath found;
    for (const Value &value : values.all()) {
        found.emplace(absl::string_view(value.path.data(), value.path.size()), &value);
    }
    return found;
}

void require(bool isDone, const std::string &what) {
    if (!isDone) {
        throw std::runtime_error(what);
    }
}

/// Gives the variable of that path its content, where the sizes are the same.
void take(Values &values, const ByPath &paths, absl::string_view path, const void *content, std::size_t size) {
    const auto found = paths.find(path);
    if (found != paths.end() && found->second->size == size) {
        std::memcpy(values.contentOf(*found->second), content, size);
    }
}

class Lmdb : public Keeper {
public:
    Lmdb(Values &values, const std::string &folder) : m_values(values), m_paths(byPath(values)) {
        check(mdb_env_create(&m_environment));
        check(mdb_env_set_mapsize(m_environment, std::size_t{256} << 20));
        check(mdb_env_open(m_environment, folder.c_str(), 0, 0644));
        MDB_txn *transaction = nullptr;
        check(mdb_txn_begin(m_environment, nullptr, 0, &transaction));
        check(mdb_dbi_open(transaction, nullptr, 0, &m_table));
        check(mdb_txn_commit(transaction));
    }
    ~Lmdb() override { mdb_env_close(m_environment); }

    void store() override {
        MDB_txn *transaction = nullptr;
        m_shadow.update(m_values, [&](const Value &value) {
            if (transaction == nullptr) {
                check(mdb_txn_begin(m_environment, nullptr, 0, &transaction));
            }
            MDB_val key{value.path.size(), const_cast<char *>(value.path.data())}; // NOLINT: the record knows no const
            MDB_val content{value.size, m_values.contentOf(value)};
            check(mdb_put(transaction, m_table, &key, &content, 0));
        });
        if (transaction != nullptr) {
            check(mdb_txn_commit(transaction));
        }
    }

    void retrieve() override {
        MDB_txn *transaction = nullptr;
        MDB_cursor *cursor = nullptr;
        check(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &transaction));
        check(mdb_cursor_open(transaction, m_table, &cursor));
        MDB_val key{};
        MDB_val content{};
        while (mdb_cursor_get(cursor, &key, &content, MDB_NEXT) == MDB_SUCCESS) {
            take(m_values, m_paths, {static_cast<const char *>(key.mv_data), key.mv_size}, content.mv_data,
                 content.mv_size);
        }
        mdb_cursor_close(cursor);
        mdb_txn_abort(transaction);
        m_shadow.set(m_values);
    }

private:
    static void check(int code) { require(code == MDB_SUCCESS, std::string("LMDB: ") + mdb_strerror(code)); }

    Values &m_values;
    Shadow m_shadow;
    ByPath m_paths;
    MDB_env *m_environment = nullptr;
    MDB_dbi m_table = 0;
};

class LevelDb : public Keeper {
public:
    LevelDb(Values &values, const std::string &folder) : m_values(values), m_paths(byPath(values)) {
        leveldb::Options options;
        options.create_if_missing = true;
        leveldb::DB *database = nullptr;
        check(leveldb::DB::Open(options, folder, &database));
        m_database.reset(database);
    }

    void store() override {
        leveldb::WriteBatch batch;
        bool differs = false;
        m_shadow.update(m_values, [&](const Value &value) {
            differs = true;
            batch.Put(value.path, {reinterpret_cast<const char *>(m_values.contentOf(value)), value.size});
        });
        if (differs) {
            leveldb::WriteOptions options;
            options.sync = true;
            check(m_database->Write(options, &batch));
        }
    }

    void retrieve() override {
        const std::unique_ptr<leveldb::Iterator> entry(m_database->NewIterator({}));
        for (entry->SeekToFirst(); entry->Valid(); entry->Next()) {
            take(m_values, m_paths, {entry->key().data(), entry->key().size()}, entry->value().data(),
                 entry->value().size());
        }
        check(entry->status());
        m_shadow.set(m_values);
    }

    void settle() override { m_database->CompactRange(nullptr, nullptr); }

private:
    static void check(const leveldb::Status &status) { require(status.ok(), "LevelDB: " + status.ToString()); }

    Values &m_values;
    Shadow m_shadow;
    ByPath m_paths;
    std::unique_ptr<leveldb::DB> m_database;
};

std::string textOf(const Values &values, const Value &value) {
    const auto *content = reinterpret_cast<const char *>(values.contentOf(value));
    return {content, strnlen(content, value.size)};
}

void setText(Values &values, const Value &value, const std::string &text) {
    std::memset(values.contentOf(value), 0, value.size);
    std::memcpy(values.contentOf(value), text.data(), std::min(text.size(), value.size));
}

std::vector<int> elementsOf(const Values &values, const Value &value) {
    std::vector<int> elements;
    for (std::uint32_t i = 0; i < value.noOfElements; ++i) {
        std::int16_t element = 0;
        std::memcpy(&element, values.contentOf(value) + i * sizeof element, sizeof element);
        elements.push_back(element);
    }
    return elements;
}

template <class Elements>
void setElements(Values &values, const Value &value, const Elements &elements) {
    for (std::uint32_t i = 0; i < value.noOfElements; ++i) {
        const auto element = static_cast<std::int16_t>(elements[i]);
        std::memcpy(values.contentOf(value) + i * sizeof element, &element, sizeof element);
    }
}

class JsonFile : public Keeper {
public:
    JsonFile(Values &values, const std::string &folder) : m_values(values), m_file(folder, "values.json") {}

    void store() override {
        if (m_shadow.updateAll(m_values)) {
            nlohmann::json document = nlohmann::json::object();
            for (const Value &value : m_values.all()) {
                document[value.path] = toJson(value);
            }
            const std::string text = document.dump();
            m_file.replace(text.data(), text.size());
        }
    }

    void retrieve() override {
        std::vector<char> bytes;
        m_file.read(bytes);
        const nlohmann::json document = nlohmann::json::parse(bytes);
        for (const Value &value : m_values.all()) {
            fromJson(value, document.at(value.path));
        }
        m_shadow.set(m_values);
    }

private:
    nlohmann::json toJson(const Value &value) const {
        switch (value.type) {
        case TYPE_INT32:
            return m_values.numberOf<std::int32_t>(value);
        case TYPE_BOOL:
            return m_values.numberOf<std::uint32_t>(value);
        case TYPE_DOUBLE:
            return m_values.numberOf<double>(value);
        case TYPE_FLOAT:
            return m_values.numberOf<float>(value);
        case TYPE_STRING:
            return textOf(m_values, value);
        default:
            return elementsOf(m_values, value);
        }
    }
    void fromJson(const Value &value, const nlohmann::json &stored) {
        switch (value.type) {
        case TYPE_INT32:
            return m_values.setNumber(value, stored.get<std::int32_t>());
        case TYPE_BOOL:
            return m_values.setNumber(value, stored.get<std::uint32_t>());
        case TYPE_DOUBLE:
            return m_values.setNumber(value, stored.get<double>());
        case TYPE_FLOAT:
            return m_values.setNumber(value, stored.get<float>());
        case TYPE_STRING:
            return setText(m_values, value, stored.get_ref<const std::string &>());
        default:
            return setElements(m_values, value, stored.get<std::vector<int>>());
        }
    }

    Values &m_values;
    Shadow m_shadow;
    DurableFile m_file;
};

class KeyFile : public Keeper {
public:
    KeyFile(Values &values, const std::string &folder) : m_values(values), m_file(folder, "values.ini") {}

    void store() override {
        if (!m_shadow.updateAll(m_values)) {
            return;
        }
        GKeyFile *keys = g_key_file_new();
        for (const Value &value : m_values.all()) {
            put(keys, value);
        }
        gsize length = 0;
        gchar *text = g_key_file_to_data(keys, &length, nullptr);
        g_key_file_free(keys);
        m_file.replace(text, length);
        g_free(text);
    }

    void retrieve() override {
        std::vector<char> bytes;
        m_file.read(bytes);
        GKeyFile *keys = g_key_file_new();
        const bool isRead =
            g_key_file_load_from_data(keys, bytes.data(), bytes.size(), G_KEY_FILE_NONE, nullptr) != FALSE;
        for (const Value &value : m_values.all()) {
            take(keys, value);
        }
        g_key_file_free(keys);
        require(isRead, "GKeyFile: not a key file");
        m_shadow.set(m_values);
    }

private:
    void put(GKeyFile *keys, const Value &value) const {
        const std::string group = value.group();
        const std::string name = value.name();
        switch (value.type) {
        case TYPE_INT32:
            return g_key_file_set_integer(keys, group.c_str(), name.c_str(), m_values.numberOf<std::int32_t>(value));
        case TYPE_BOOL:
            return g_key_file_set_uint64(keys, group.c_str(), name.c_str(), m_values.numberOf<std::uint32_t>(value));
        case TYPE_DOUBLE:
            return g_key_file_set_double(keys, group.c_str(), name.c_str(), m_values.numberOf<double>(value));
        case TYPE_FLOAT:
            return g_key_file_set_double(keys, group.c_str(), name.c_str(),
                                         static_cast<double>(m_values.numberOf<float>(value)));
        case TYPE_STRING:
            return g_key_file_set_string(keys, group.c_str(), name.c_str(), textOf(m_values, value).c_str());
        default: {
            std::vector<int> elements = elementsOf(m_values, value);
            g_key_file_set_integer_list(keys, group.c_str(), name.c_str(), elements.data(), elements.size());
        }
        }
    }
    void take(GKeyFile *keys, const Value &value) {
        const std::string group = value.group();
        const std::string name = value.name();
        switch (value.type) {
        case TYPE_INT32:
            return m_values.setNumber(value, g_key_file_get_integer(keys, group.c_str(), name.c_str(), nullptr));
        case TYPE_BOOL:
            return m_values.setNumber(
                value, static_cast<std::uint32_t>(g_key_file_get_uint64(keys, group.c_str(), name.c_str(), nullptr)));
        case TYPE_DOUBLE:
            return m_values.setNumber(value, g_key_file_get_double(keys, group.c_str(), name.c_str(), nullptr));
        case TYPE_FLOAT:
            return m_values.setNumber(
                value, static_cast<float>(g_key_file_get_double(keys, group.c_str(), name.c_str(), nullptr)));
        case TYPE_STRING: {
            gchar *text = g_key_file_get_string(keys, group.c_str(), name.c_str(), nullptr);
            setText(m_values, value, text != nullptr ? text : "");
            g_free(text);
            return;
        }
        default: {
            gsize count = 0;
            gint *elements = g_key_file_get_integer_list(keys, group.c_str(), name.c_str(), &count, nullptr);
            if (count == value.noOfElements) {
                setElements(m_values, value, elements);
            }
            g_free(elements);
        }
        }
    }

    Values &m_values;
    Shadow m_shadow;
    DurableFile m_file;
};

} // namespace

std::unique_ptr<Keeper> makeLmdb(Values &values, const std::string &folder) {
    return std::make_unique<Lmdb>(values, folder);
}

std::unique_ptr<Keeper> makeLevelDb(Values &values, const std::string &folder) {
    return std::make_unique<LevelDb>(values, folder);
}

std::unique_ptr<Keeper> makeJson(Values &values, const std::string &folder) {
    return std::make_unique<JsonFile>(values, folder);
}

std::unique_ptr<Keeper> makeKeyFile(Values &values, const std::string &folder) {
    return std::make_unique<KeyFile>(values, folder);
}

} // namespace speed
