#include "SProviderDescriptor.h"

#include <algorithm>

#include "AfTrace.h"

SProviderDescriptor::SProviderDescriptor(std::string const &theName, unsigned long theProviderId,
                                         IStorageProvider *theProvider)
    : name(theName), provider(theProvider), providerId(theProviderId) {}

SProviderDescriptor::~SProviderDescriptor() = default;

void SProviderDescriptor::addLocation(SLocationDescriptor *location) {
    if (location != nullptr) {
        locations.push_back(location);
    }
}

void SProviderDescriptor::deleteLocation(unsigned long locationId) {
    const auto found =
        std::find_if(locations.begin(), locations.end(),
                     [locationId](const SLocationDescriptor *location) { return location->locationId == locationId; });
    if (found != locations.end()) {
        locations.erase(found);
    }
}

EAFResult SProviderDescriptor::reserveWritableSpace(unsigned long locationId, unsigned long size) {
    const EAFResult result = provider != nullptr && provider->ReserveWritableSpace != nullptr
                                 ? provider->ReserveWritableSpace(locationId, size)
                                 : eAF_E_NOT_IMPLEMENTED;
    if (af::isError(result)) {
        AF_TRACE(result, "Storage provider reports error when reserving writable size (location id=%lu)", locationId);
        return result;
    }
    return eAF_S_OK;
}

bool SProviderDescriptor::performProviderOperation(EProviderOperation operation) {
    bool hasFailed = false;
    for (SLocationDescriptor *location : locations) {
        hasFailed = location->performProviderOperation(operation, provider, name) || hasFailed;
    }
    return hasFailed;
}
