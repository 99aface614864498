/// @file
/// Who keeps values on a disk: a column of the providers' rows each.
#pragma once

#include <memory>
#include <string>

#include "ProviderValues.h"

namespace speed {

/// All of them keep the same promise: a store is all or nothing, and durable when it returns. Throws where it fails.
class Keeper {
public:
    Keeper() = default;
    virtual ~Keeper() = default;
    Keeper(const Keeper &) = delete;
    Keeper &operator=(const Keeper &) = delete;

    /// Stores what differs from what was stored or retrieved last, or everything where it knows no parts.
    virtual void store() = 0;
    /// Reads everything and gives each variable its value.
    virtual void retrieve() = 0;
    /// What a process has to do again when it starts; nothing, where retrieve does it all.
    virtual void close() {}
    virtual void open() {}
    /// Waits for whatever a store left to a thread of its own: it would run beside the next column.
    virtual void settle() {}
};

/// The values outlive the keeper; the folder is there, and its own. Nothing need be stored yet.
using MakeKeeper = std::unique_ptr<Keeper> (*)(Values &values, const std::string &folder);

/// The library's providers; one at a time, there is one storage manager.
std::unique_ptr<Keeper> makeSqliteProvider(Values &values, const std::string &folder);
std::unique_ptr<Keeper> makeFileProvider(Values &values, const std::string &folder);

/// Their limits.
std::unique_ptr<Keeper> makeBareSqlite(Values &values, const std::string &folder);
std::unique_ptr<Keeper> makeBareFile(Values &values, const std::string &folder);

/// What a user would take instead.
std::unique_ptr<Keeper> makeLmdb(Values &values, const std::string &folder);
std::unique_ptr<Keeper> makeLevelDb(Values &values, const std::string &folder);
std::unique_ptr<Keeper> makeJson(Values &values, const std::string &folder);
std::unique_ptr<Keeper> makeKeyFile(Values &values, const std::string &folder);

} // namespace speed
