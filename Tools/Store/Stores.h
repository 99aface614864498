/// @file
/// Opens stores of either kind.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "VariableStore.h"

enum class Kind { sqlite, file };

/// A store as the command line names it.
struct StoreName {
    std::string file;
    std::optional<unsigned long> location; ///< Where an SQLite file holds several.
};

/// An open store with the values that it held.
struct OpenStore {
    std::unique_ptr<storage::VariableStore> store;
    storage::StoredValues values;
    unsigned noOfWarnings = 0; ///< What could not be read of it.

    /// @return the value of a path; null when there is none.
    const storage::StoredValue *find(const std::string &path) const;

    /// All or nothing, durable when it returns.
    /// @throws Fault
    void write(const storage::StoredValues &changes);
};

/// @return which kind of store the file is. @throws Fault when it is none, or not there.
Kind kindOf(const std::string &file);

bool isThere(const std::string &file);

/// Warnings go to standard error. For writing: only a store that can be read whole is opened, so a damaged one is
/// never touched.
/// @throws Fault
OpenStore openStore(const StoreName &name, storage::Access access);

/// A store that is made by its first write.
/// @throws Fault when something has that name already.
OpenStore makeStore(const StoreName &name, Kind kind);
