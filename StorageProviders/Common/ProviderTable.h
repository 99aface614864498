/// @file
/// A StorageProvider behind the table of entries that the storage manager calls.
#pragma once

#include "IStorageProvider.h"
#include "StorageProvider.h"

namespace storage {

/// @tparam provider  gives the one provider of the library; must not fail.
template <StorageProvider &(*provider)()>
IStorageProvider tableOf() {
    return {[](unsigned long locationId) { return provider().initialize(locationId); },
            [](unsigned long locationId, unsigned long size) { return provider().reserve(locationId, size); },
            [](unsigned long locationId, CDatabase *database, unsigned long /*locationData*/) {
                return provider().storeAll(locationId, database);
            },
            [](unsigned long locationId, CDatabase *database, unsigned long /*locationData*/) {
                return provider().retrieveAll(locationId, database);
            }};
}

} // namespace storage
