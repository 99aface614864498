// An SQLite file of any rows, any additions of others, any bytes: what each reader takes of it, that a store is all or
// nothing, that nothing of what was there is lost.
#include "SqliteStore.h"

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <string>

#include "FileHeader.h"
#include "Harness.h"
#include "SqliteInput.h"
#include "StoredInput.h"

namespace {

using fuzz::Bytes;
using fuzz::FuzzInput;
using storage::Access;
using storage::StoredValue;
using storage::StoredValues;

constexpr unsigned long location = 1;

const fuzz::Folder &folder() {
    static const fuzz::Folder theFolder;
    return theFolder;
}

struct Outcome {
    EAFResult code;
    StoredValues values;
    fuzz::Messages messages;
};

bool isDescribed(EAFResult code) {
    return code == eAF_S_OK || code == eAF_E_INITIALIZATION_ERROR || code == eAF_E_INVALID_ARGUMENT ||
           code == eAF_E_WRONG_ACCESS || code == eAF_E_FAILED;
}

Outcome readBy(storage::SqliteStore &store, Access access) {
    Outcome outcome{};
    outcome.code = store.open(access, outcome.messages);
    if (outcome.code == eAF_S_OK) {
        outcome.code = store.read(outcome.values, outcome.messages);
        outcome.values = fuzz::sorted(std::move(outcome.values));
        fuzz::checkWhole(outcome.values);
    }
    FUZZ_CHECK(isDescribed(outcome.code), std::to_string(outcome.code));
    FUZZ_CHECK((outcome.code == eAF_S_OK) == outcome.messages.errors.empty(),
               outcome.messages.errors.empty() ? "a failure without a word" : outcome.messages.errors[0]);
    for (const std::string &warning : outcome.messages.warnings) {
        FUZZ_CHECK(warning.find('\n') == std::string::npos, warning);
    }
    return outcome;
}

std::string firstOf(const std::vector<std::string> &messages) {
    return messages.empty() ? "no message" : messages[0];
}

/// A row for each value, where it is foretold.
void checkForetold(const fuzz::SqliteDatabase &database, const Outcome &found) {
    FUZZ_CHECK(found.code == eAF_S_OK, firstOf(found.messages.errors));
    std::map<std::pair<std::string, bool>, const fuzz::SqliteRow *> rows; // a text and a blob are not the same
    for (const fuzz::SqliteRow &row : database.rows) {
        if (row.location == static_cast<std::int64_t>(location)) {
            rows.try_emplace({row.path, row.isPathBlob}, &row);
        }
    }
    std::map<std::string, const StoredValue *> values;
    for (const StoredValue &value : found.values) {
        values[value.path] = &value;
    }
    for (const auto &[key, row] : rows) {
        const auto value = values.find(row->path);
        if (row->isForetold && row->value.has_value()) {
            FUZZ_CHECK(value != values.end() && *value->second == *row->value, fuzz::shown({*row->value}));
        } else if (row->isForetold && rows.count({row->path, !row->isPathBlob}) == 0) {
            FUZZ_CHECK(value == values.end(), row->path + " " + row->type);
        }
    }
    FUZZ_CHECK(found.values.size() <= rows.size(), "values from nowhere");
}

StoredValues merged(StoredValues values, const StoredValues &changes) {
    std::map<std::string, StoredValue> all;
    for (const StoredValues &some : {values, changes}) {
        for (const StoredValue &value : some) {
            all[value.path] = value;
        }
    }
    values.clear();
    for (auto &entry : all) {
        values.push_back(std::move(entry.second));
    }
    return values;
}

void checkSame(const StoredValues &expected, const StoredValues &found) {
    FUZZ_CHECK(expected == found, fuzz::shown(expected) + "\n  or " + fuzz::shown(found));
}

void checkHost(const Bytes &file, const Outcome &seen, bool isWritable, FuzzInput &input) {
    StoredValues expected;
    {
        storage::SqliteStore store(folder().file("s.db"), location);
        Outcome found = readBy(store, Access::readWrite);
        if (found.code != eAF_S_OK) {
            FUZZ_CHECK(seen.code != eAF_S_OK, "a host refuses what a reader can read: " + found.messages.errors[0]);
            FUZZ_CHECK(folder().read("s.db") == file, "what is refused was changed");
            return;
        }
        const bool isSetAside = folder().has("s.db.damaged-1");
        FUZZ_CHECK(!isSetAside || folder().read("s.db.damaged-1") == file, "what was set aside was changed");
        FUZZ_CHECK(isSetAside == (seen.code == eAF_E_FAILED), firstOf(seen.messages.errors));
        expected = isSetAside ? StoredValues() : seen.values;
        checkSame(expected, found.values);

        const StoredValues changes = fuzz::valuesFrom(input, 4);
        fuzz::Messages messages;
        const EAFResult written = store.write(changes, messages);
        FUZZ_CHECK(isDescribed(written), std::to_string(written));
        FUZZ_CHECK(written == eAF_S_OK || !(isSetAside || isWritable), firstOf(messages.errors));
        if (written == eAF_S_OK) {
            expected = merged(std::move(expected), changes);
        }
    }
    storage::SqliteStore store(folder().file("s.db"), location);
    const Outcome again = readBy(store, Access::readOnly);
    FUZZ_CHECK(again.code == eAF_S_OK, firstOf(again.messages.errors));
    checkSame(expected, again.values);
}

bool isSqlite(const std::uint8_t *data, std::size_t size) {
    return size >= 16 && std::string(data, data + 15) == "SQLite format 3";
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    folder().clear();
    fuzz::SqliteDatabase database;
    if (isSqlite(data, size)) {
        // A file as it is; two locations' ids and whatever the fuzzer makes of it.
        database.file = input.rest();
    } else {
        database = fuzz::sqliteFrom(input);
        if (input.oneIn(2)) {
            const Bytes whole = database.file;
            fuzz::damage(database.file, input);
            database.isAsStoresMakeIt = database.isAsStoresMakeIt && database.file == whole;
        }
    }
    folder().write("s.db", database.file);
    Outcome seen{};
    {
        storage::SqliteStore store(folder().file("s.db"), location);
        seen = readBy(store, Access::readOnly);
        FUZZ_CHECK(folder().read("s.db") == database.file, "a reader changed the store");
        fuzz::Messages messages;
        std::vector<unsigned long> locations;
        FUZZ_CHECK(isDescribed(storage::SqliteStore::locations(folder().file("s.db"), locations, messages)),
                   firstOf(messages.errors));
    }
    if (database.isAsStoresMakeIt) {
        checkForetold(database, seen);
    }
    checkHost(database.file, seen, database.isAsStoresMakeIt, input);
    return 0;
}
