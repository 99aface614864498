/// @file
/// A storage provider as the storage manager keeps it.
#pragma once

#include <list>
#include <string>

#include "AFExport.h"
#include "IStorageProvider.h"
#include "SLocationDescriptor.h"

/// Owns its list, not the locations in it, which must live as long as they are listed. One thread at a time.
struct AF_API SProviderDescriptor {
    std::string name;
    IStorageProvider *provider; ///< Borrowed.
    unsigned long providerId;
    std::list<SLocationDescriptor *> locations; ///< Borrowed, in the order of assignment; one may stand twice.

    /// @throws std::bad_alloc
    SProviderDescriptor(std::string const &name, unsigned long providerId, IStorageProvider *provider);
    ~SProviderDescriptor();

    SProviderDescriptor(const SProviderDescriptor &) = delete;
    SProviderDescriptor &operator=(const SProviderDescriptor &) = delete;

    /// Adds a location behind the others; ignores null. @throws std::bad_alloc
    void addLocation(SLocationDescriptor *location);

    /// Removes the first listed location of that id, if there is one.
    void deleteLocation(unsigned long locationId);

    /// Calls the provider's entry. @return its code if that is an error, traced; else eAF_S_OK.
    EAFResult reserveWritableSpace(unsigned long locationId, unsigned long size);

    /// Visits every listed location, also after a failure. @return true when any failed.
    bool performProviderOperation(EProviderOperation operation);
};
