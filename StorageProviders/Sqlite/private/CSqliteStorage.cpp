#include "CSqliteStorage.h"

#include <memory>
#include <string>

#include "ProviderTable.h"
#include "SqliteStore.h"

namespace {

// Made when the library is loaded, so that no first call runs out of memory; neither is destroyed: a host may still
// store while it exits.
VoxTrace &sqliteTrace = *new VoxTrace("ZEL.AF.STOR.SQL", 3, 256);
storage::StorageProvider &theProvider =
    *new storage::StorageProvider(sqliteTrace, [](unsigned long locationId, const std::string &file) {
        return std::make_unique<storage::SqliteStore>(file, locationId);
    });

storage::StorageProvider &provider() {
    return theProvider;
}

IStorageProvider table = storage::tableOf<provider>();

} // namespace

EAFResult CSqliteStorage_SetFile(unsigned long locationId, const char *fileName) {
    return provider().setFile(locationId, fileName);
}

IStorageProvider *CSqliteStorage_GetProvider(void) {
    return &table;
}

EAFResult CSqliteStorage_GetStatistics(unsigned long locationId, SStorageStatistics *statistics) {
    return provider().statistics(locationId, statistics);
}

EAFResult CSqliteStorage_UnInitialize(void) {
    provider().clear();
    return eAF_S_OK;
}
