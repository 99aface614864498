#include "CFileStorage.h"

#include <memory>

#include "FileStore.h"
#include "StorageProvider.h"

namespace {

VoxTrace fileTrace("ZEL.AF.STOR.FILE", 3, 256);

/// Never destroyed: a host may store from an exit handler.
storage::StorageProvider &provider() {
    static auto &provider =
        *new storage::StorageProvider(fileTrace, [](unsigned long /*locationId*/, const std::string &file) {
            return std::make_unique<storage::FileStore>(file);
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

EAFResult CFileStorage_SetFile(unsigned long locationId, const char *fileName) {
    if (provider().isAnothersFile(locationId, fileName)) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return provider().setFile(locationId, fileName);
}

IStorageProvider *CFileStorage_GetProvider(void) {
    return &table;
}

EAFResult CFileStorage_GetStatistics(unsigned long locationId, SStorageStatistics *statistics) {
    return provider().statistics(locationId, statistics);
}

EAFResult CFileStorage_UnInitialize(void) {
    provider().clear();
    return eAF_S_OK;
}
