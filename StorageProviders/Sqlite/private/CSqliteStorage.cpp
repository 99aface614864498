#include "CSqliteStorage.h"

#include <memory>
#include <string>

#include "SqliteStore.h"
#include "StorageProvider.h"

namespace {

/// Never destroyed, like its trace object: a host may still store while it exits.
storage::StorageProvider &provider() {
    static auto &trace = *new VoxTrace("ZEL.AF.STOR.SQL", 3, 256);
    static auto &provider = *new storage::StorageProvider(trace, [](unsigned long locationId, const std::string &file) {
        return std::make_unique<storage::SqliteStore>(file, locationId);
    });
    return provider;
}

EAFResult initialize(unsigned long locationId) {
    return provider().initialize(locationId);
}

EAFResult reserveWritableSpace(unsigned long locationId, unsigned long size) {
    return provider().reserve(locationId, size);
}

EAFResult storeAll(unsigned long locationId, CDatabase *database, unsigned long /*locationData*/) {
    return provider().storeAll(locationId, database);
}

EAFResult retrieveAll(unsigned long locationId, CDatabase *database, unsigned long /*locationData*/) {
    return provider().retrieveAll(locationId, database);
}

IStorageProvider table{initialize, reserveWritableSpace, storeAll, retrieveAll};

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
