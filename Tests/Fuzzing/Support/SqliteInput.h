/// @file
/// SQLite databases that a fuzzer's bytes describe, and what a store has to read of their rows.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "StoredValue.h"

namespace fuzz {

/// A row of the table of variables, as anybody may have put it there.
struct SqliteRow {
    enum class Sort { integer, real, text, blob, null };
    std::int64_t location = 1;
    std::string path;
    bool isPathBlob = false;
    std::string type;
    std::int64_t count = 0;
    Sort sort = Sort::null;
    std::int64_t integer = 0;
    double real = 0;
    std::string bytes; ///< Of a text or a blob.

    /// Whether it is foretold what a store makes of it. Numbers that stand as texts are not.
    bool isForetold = false;
    /// The value; none where the row does not fit.
    std::optional<storage::StoredValue> value;
};

struct SqliteDatabase {
    std::vector<SqliteRow> rows;
    bool isAsStoresMakeIt = false; ///< Table, ids and all; nothing of anybody else's.
    Bytes file;
};

/// In pages of 512 bytes, so that there are few for the fuzzer to change.
SqliteDatabase sqliteFrom(FuzzInput &input);

} // namespace fuzz
