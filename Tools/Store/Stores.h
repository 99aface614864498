/// @file
/// Opens stores of either kind.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VariableStore.h"

enum class Kind { sqlite, file };

/// A store as the command line names it.
struct StoreName {
    std::string file;
    std::optional<unsigned long> location; ///< Where an SQLite file holds several.
};

/// An open store with the values that it held.
struct OpenStore {
    Kind kind = Kind::file;
    std::unique_ptr<storage::VariableStore> store;
    storage::StoredValues values;
    std::vector<std::string> warnings; ///< What could not be read of it.

    /// @return the value of a path; null when there is none, or none that can be read.
    const storage::StoredValue *find(const std::string &path) const;

    /// @return whether there is something under the path that can not be read.
    bool isUnreadable(const std::string &path) const;

    /// All or nothing, durable when it returns.
    /// @throws Fault
    void write(const storage::StoredValues &changes);
};

/// What a location that the file does not hold is: nothing to read, but maybe something to make.
enum class Location { held, heldOrNew };

bool isThere(const std::string &file);

/// @return whether there is a store, the newest generation of a store file missing at most.
bool isStoreThere(const std::string &file);

/// @return whether a file is one of those that a store consists of, or may consist of.
bool isPartOf(const std::string &file, const StoreName &store);

/// For reading; warnings go to standard error.
/// @throws Fault
OpenStore openStore(const StoreName &name, Location location = Location::held);

/// For writing, anew: a store may have changed since it was seen.
/// @param seen  the store as openStore opened it; a damaged one is not opened, because that would move it.
/// @throws Fault
OpenStore openToWrite(const StoreName &name, OpenStore seen);

/// A store that is made by its first write.
/// @throws Fault when something has that name already.
OpenStore makeStore(const StoreName &name, Kind kind);
