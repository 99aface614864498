#include "CStorageManager.h"

#include <memory>

#include "AfTrace.h"
#include "DatabaseContents.h"
#include "DomainTrace.h"
#include "OutOfMemory.h"
#include "SLocationDescriptor.h"
#include "SProviderDescriptor.h"
#include "StorageList.h"

namespace {

VoxTrace accessTrace("ZEL.AF.STOR.ACC", 3, 256);
bool isAccessTraceGone = false;
const af::TraceEnd accessTraceEnd{isAccessTraceGone};

// Plain lists, so that an exit handler that runs late still finds them, empty.
SStorageList providerList;
SStorageList locationList;

/// The one manager of the process. Its end frees the nodes of its lists, never the descriptors: those go with
/// CStorageManager_Uninitialize.
class Manager {
public:
    static Manager &instance() {
        static Manager manager;
        return manager;
    }
    ~Manager() {
        forget(providerList);
        forget(locationList);
    }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;

    static af::ElementsOf<SProviderDescriptor> providers() {
        return af::ElementsOf<SProviderDescriptor>((instance(), providerList));
    }
    static af::ElementsOf<SLocationDescriptor> locations() {
        return af::ElementsOf<SLocationDescriptor>((instance(), locationList));
    }

    static SProviderDescriptor *findProvider(unsigned long providerId) {
        for (SProviderDescriptor *provider : providers()) {
            if (provider->providerId == providerId) {
                return provider;
            }
        }
        return nullptr;
    }
    static SLocationDescriptor *findLocation(unsigned long locationId) {
        for (SLocationDescriptor *location : locations()) {
            if (location->locationId == locationId) {
                return location;
            }
        }
        return nullptr;
    }

    template <class Descriptor>
    static EAFResult append(SStorageList &list, std::unique_ptr<Descriptor> descriptor) {
        instance();
        if (!af::pushBack(list, descriptor.get())) {
            return eAF_E_OUT_OF_MEMORY;
        }
        static_cast<void>(descriptor.release()); // the list holds it from now on
        return eAF_S_OK;
    }

    template <class Descriptor>
    static void deleteAll(SStorageList &list) {
        while (list.head != nullptr) {
            delete static_cast<Descriptor *>(af::popFront(list));
        }
    }

private:
    Manager() = default;

    static void forget(SStorageList &list) {
        while (list.head != nullptr) {
            af::popFront(list);
        }
    }
};

bool isNullOrEmpty(const char *text) {
    return text == nullptr || text[0] == '\0';
}

EAFResult CStorageManager_PerformProviderOperation(EProviderOperation operation, const char *failure) {
    AF_TRACE(eAF_DEBUG, "Enter: %s", __func__);
    bool hasFailed = false;
    for (SProviderDescriptor *provider : Manager::providers()) {
        hasFailed = provider->performProviderOperation(operation) || hasFailed;
    }
    if (hasFailed) {
        AF_TRACE(eAF_E_FAILED, "%s", failure);
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

/// @return whether there is no record any more where the path leads. A path outlives the region that it leads into.
bool leadsToAFreedVariable(const char *path) {
    if (!af::wereVariablesFreed()) {
        return false;
    }
    bool isFreed = false;
    for (const SLocationDescriptor *location : Manager::locations()) {
        if (af::find(*location->database, path, isFreed)) {
            break;
        }
    }
    return isFreed;
}

} // namespace

EAFResult CStorageManager_Initialize(void) {
    return eAF_S_OK;
}

EAFResult CStorageManager_Uninitialize(void) {
    Manager::instance();
    AF_TRACE(eAF_DEBUG, "Cleanup provider list");
    Manager::deleteAll<SProviderDescriptor>(providerList);
    AF_TRACE(eAF_DEBUG, "Cleanup location list");
    Manager::deleteAll<SLocationDescriptor>(locationList);
    AF_TRACE(eAF_DEBUG, "Cleanup of providerList and locationList finished");
    return eAF_S_OK;
}

EAFResult CStorageManager_RegisterLocation(unsigned long locationId, const char *name, unsigned long hashTableSize,
                                           unsigned long locationData) {
    if (isNullOrEmpty(name)) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return af::withOutOfMemoryAsCode([&] {
        return Manager::append(locationList,
                               std::make_unique<SLocationDescriptor>(name, locationId, locationData, hashTableSize));
    });
}

EAFResult CStorageManager_RegisterStorageProvider(IStorageProvider *provider, unsigned long providerId,
                                                  const char *name) {
    if (isNullOrEmpty(name)) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return af::withOutOfMemoryAsCode([&] {
        return Manager::append(providerList, std::make_unique<SProviderDescriptor>(name, providerId, provider));
    });
}

EAFResult CStorageManager_AssignStorageProviderToLocation(unsigned long locationId, unsigned long providerId) {
    SProviderDescriptor *provider = Manager::findProvider(providerId);
    if (provider == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_PROVIDER, "No such storage provider (provider id=%lu)", providerId);
        return eAF_E_UNKNOWN_PROVIDER;
    }
    SLocationDescriptor *location = Manager::findLocation(locationId);
    if (location == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_LOCATION, "No such storage location (location id=%lu)", locationId);
        return eAF_E_UNKNOWN_LOCATION;
    }
    return af::withOutOfMemoryAsCode([&] {
        provider->addLocation(location);
        location->markProviderAssigned(providerId, provider);
        return eAF_S_OK;
    });
}

EAFResult CStorageManager_ReassignStorageProviderToLocation(unsigned long locationId, unsigned long providerId) {
    SLocationDescriptor *location = Manager::findLocation(locationId);
    if (location == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_LOCATION, "No such storage location (location id=%lu)", locationId);
        return eAF_E_UNKNOWN_LOCATION;
    }
    location->unassignProvider();
    SProviderDescriptor *provider = Manager::findProvider(providerId);
    if (provider == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_PROVIDER, "No such storage provider (provider id=%lu)", providerId);
        return eAF_E_UNKNOWN_PROVIDER;
    }
    // Not added to the new provider's list: hosts rely on a reassigned location being left alone by store and retrieve.
    location->markProviderAssigned(providerId, provider);
    if (af::isError(CStorageManager_InitializeAllProviders())) {
        AF_TRACE(eAF_E_FAILED, "Could not re-initialize storage providers (call to "
                               "CStorageManager_InitializeAllProviders() failed)\n");
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

EAFResult CStorageManager_RegisterRegion(CStorageRegion *region) {
    if (region == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    const unsigned long locationId = CStorageRegion_GetLocationId(region);
    SLocationDescriptor *location = Manager::findLocation(locationId);
    if (location == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_LOCATION, "No such location (location id=%lu)", locationId);
        return eAF_E_UNKNOWN_LOCATION;
    }
    if (af::isError(location->addRegion(region))) {
        AF_TRACE(eAF_E_FAILED, "Could not add region to database (location id=%lu)\n", locationId);
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

EAFResult CStorageManager_RemoveRegionFromLocation(const char *regionName, unsigned long locationId) {
    if (isNullOrEmpty(regionName)) {
        return eAF_E_INVALID_ARGUMENT;
    }
    SLocationDescriptor *location = Manager::findLocation(locationId);
    if (location == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_LOCATION, "No such location (location id=%lu)", locationId);
        return eAF_E_UNKNOWN_LOCATION;
    }
    return location->removeRegion(regionName);
}

EAFResult CStorageManager_ReserveWritableSpace(unsigned long locationId, unsigned long size) {
    SLocationDescriptor *location = Manager::findLocation(locationId);
    if (location == nullptr) {
        AF_TRACE(eAF_E_UNKNOWN_LOCATION, "No such location (location id=%lu)", locationId);
        return eAF_E_UNKNOWN_LOCATION;
    }
    return location->reserveWritableSpace(size);
}

EAFResult CStorageManager_UpdatePathHashTable(void) {
    for (SLocationDescriptor *location : Manager::locations()) {
        location->updatePathHashTable();
    }
    return eAF_S_OK;
}

EAFResult CStorageManager_InitializeAllProviders(void) {
    return CStorageManager_PerformProviderOperation(ePO_INITIALIZE, "Initialize failed");
}

EAFResult CStorageManager_StoreAll(void) {
    return CStorageManager_PerformProviderOperation(ePO_STORE_ALL, "StoreAll failed");
}

EAFResult CStorageManager_RetrieveAll(void) {
    return CStorageManager_PerformProviderOperation(ePO_RETRIEVE_ALL, "RetrieveAll failed");
}

EAFResult CStorageManager_StoreAllWritable(void) {
    return eAF_E_NOT_IMPLEMENTED;
}

// Look-up

EAFResult CStorageManager_GetVariableByPath(const char *path, CVariable **ppVariable) {
    static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};
    af::logAccess(accessTrace, isAccessTraceGone, header, path);
    if (isNullOrEmpty(path) || ppVariable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    for (SLocationDescriptor *location : Manager::locations()) {
        if (location->getVariableByPath(path, ppVariable)) {
            return eAF_S_OK;
        }
    }
    return eAF_E_UNKNOWN_VARIABLE;
}

EAFResult CStorageManager_GetVariableContentAddressByPath(const char *path, void **ppContent, unsigned long *pSize) {
    static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};
    af::logAccess(accessTrace, isAccessTraceGone, header, path);
    if (isNullOrEmpty(path) || ppContent == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (pSize != nullptr) {
        *pSize = 0;
    }
    CVariable *variable = nullptr;
    const EAFResult found = CStorageManager_GetVariableByPath(path, &variable);
    if (af::isError(found)) {
        AF_TRACE(eAF_E_FAILED, "Could not find variable using path %s", path);
        return found;
    }
    if (leadsToAFreedVariable(path) || af::isError(CVariable_GetContentAddress(variable, ppContent))) {
        AF_TRACE(eAF_E_FAILED, "Could not get content address for variable using path %s", path);
        return eAF_E_FAILED;
    }
    if (pSize != nullptr) {
        *pSize = CVariable_GetSizeInBytes(variable);
    }
    return eAF_S_OK;
}

EAFResult CStorageManager_GetVariableByName(const char *name, CVariable **ppVariable) {
    static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};
    af::logAccess(accessTrace, isAccessTraceGone, header, name);
    if (isNullOrEmpty(name) || ppVariable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    for (SLocationDescriptor *location : Manager::locations()) {
        if (location->getVariableByName(name, ppVariable)) {
            return eAF_S_OK;
        }
    }
    AF_TRACE(eAF_E_UNKNOWN_VARIABLE, "Could not find variable with name %s", name);
    return eAF_E_UNKNOWN_VARIABLE;
}

EAFResult CStorageManager_GetVariableContentAddressByName(const char *name, void **ppContent, unsigned long *pSize) {
    static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};
    af::logAccess(accessTrace, isAccessTraceGone, header, name);
    if (isNullOrEmpty(name) || ppContent == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (pSize != nullptr) {
        *pSize = 0;
    }
    CVariable *variable = nullptr;
    const EAFResult found = CStorageManager_GetVariableByName(name, &variable);
    if (af::isError(found)) {
        return found;
    }
    if (af::isError(CVariable_GetContentAddress(variable, ppContent))) {
        AF_TRACE(eAF_E_FAILED, "Could not get content address for variable %s", name);
        return eAF_E_FAILED;
    }
    if (pSize != nullptr) {
        *pSize = CVariable_GetSizeInBytes(variable);
    }
    return eAF_S_OK;
}
