#include "SLocationDescriptor.h"

#include <memory>
#include <new>

#include "AfTrace.h"
#include "DatabaseContents.h"
#include "SProviderDescriptor.h"

namespace {

CDatabase *makeDatabase(unsigned long hashTableSize) {
    auto database = std::make_unique<CDatabase>();
    if (af::isError(af::constructDatabase(*database, hashTableSize))) {
        CDatabase_Destruct(database.get());
        throw std::bad_alloc();
    }
    return database.release();
}

template <class... Arguments>
EAFResult callEntry(EAFResult (*entry)(Arguments...), Arguments... arguments) {
    return entry != nullptr ? entry(arguments...) : eAF_E_NOT_IMPLEMENTED;
}

} // namespace

SLocationDescriptor::SLocationDescriptor(std::string const &theName, unsigned long theLocationId,
                                         unsigned long theLocationData, unsigned long hashTableSize)
    : name(theName), locationId(theLocationId), providerId(0), providerAssigned(0), provider(nullptr), writableSize(0),
      database(makeDatabase(hashTableSize)), locationData(theLocationData) {}

SLocationDescriptor::~SLocationDescriptor() {
    CDatabase_Destruct(database);
    delete database;
}

void SLocationDescriptor::markProviderAssigned(unsigned long assignedId, SProviderDescriptor *assigned) {
    providerId = assignedId;
    provider = assigned;
    providerAssigned = 1;
}

void SLocationDescriptor::unassignProvider() {
    if (providerAssigned == 0) {
        return;
    }
    providerAssigned = 0;
    if (provider != nullptr) {
        provider->deleteLocation(locationId);
    }
    provider = nullptr;
}

EAFResult SLocationDescriptor::addRegion(CStorageRegion *region) {
    return CDatabase_AddRegion(database, region);
}

EAFResult SLocationDescriptor::removeRegion(char const *regionName) {
    if (af::isError(CDatabase_RemoveRegion(database, regionName))) {
        AF_TRACE(eAF_E_FAILED, "Could not remove region %s from location id %lu)\n",
                 regionName != nullptr ? regionName : "(null)", locationId);
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

EAFResult SLocationDescriptor::reserveWritableSpace(unsigned long size) {
    writableSize = size;
    if (providerAssigned != 0 && provider != nullptr) {
        return provider->reserveWritableSpace(locationId, size);
    }
    AF_TRACE(eAF_E_FAILED, "No StorageProvider is assigned to location %s \n", name.c_str());
    return eAF_E_FAILED;
}

void SLocationDescriptor::updatePathHashTable() {
    AF_TRACE(eAF_DEBUG, "  Updating hash table for location %s using provider %s", name.c_str(),
             provider != nullptr ? provider->name.c_str() : "none");
    if (af::isError(CDatabase_UpdatePathHashTable(database))) {
        AF_TRACE(eAF_W_WARNING, "Could not update path hash table in database");
    }
}

bool SLocationDescriptor::getVariableByName(char const *variableName, CVariable **ppVariable) {
    return !af::isError(CDatabase_GetVariableByName(database, variableName, ppVariable));
}

bool SLocationDescriptor::getVariableByPath(char const *path, CVariable **ppVariable) {
    return !af::isError(CDatabase_GetVariableByPath(database, path, ppVariable));
}

bool SLocationDescriptor::performProviderOperation(EProviderOperation operation, IStorageProvider *table,
                                                   std::string const &providerName) {
    static const IStorageProvider noEntries{};
    const IStorageProvider &entries = table != nullptr ? *table : noEntries;
    const auto location = static_cast<long>(locationId);
    EAFResult result = eAF_S_OK;
    switch (operation) {
    case ePO_INITIALIZE:
        AF_TRACE(eAF_DEBUG, "Calling Initialize for provider %s (location: %ld)", providerName.c_str(), location);
        result = callEntry(entries.Initialize, locationId);
        break;
    case ePO_STORE_ALL:
        AF_TRACE(eAF_DEBUG, "Calling StoreAll for provider %s (location: %ld)", providerName.c_str(), location);
        result = callEntry(entries.StoreAll, locationId, database, locationData);
        break;
    case ePO_RETRIEVE_ALL:
        AF_TRACE(eAF_DEBUG, "Calling RetrieveAll for provider %s (location: %ld)", providerName.c_str(), location);
        result = callEntry(entries.RetrieveAll, locationId, database, locationData);
        break;
    default:
        AF_TRACE(eAF_E_FAILED, "Internal error, Unknown operation");
        return true;
    }
    if (af::isError(result)) {
        AF_TRACE(result, "Storage provider failure (provider: %s)", providerName.c_str());
        return true;
    }
    return false;
}
