/// @file
/// A storage location as the storage manager keeps it.
#pragma once

#include <string>

#include "AFExport.h"
#include "CDatabase.h"
#include "IStorageProvider.h"

struct SProviderDescriptor;

/// Owns its database. Lives as long as a provider lists it, and no longer than its own provider. One thread at a
/// time.
struct AF_API SLocationDescriptor {
    std::string name;
    unsigned long locationId;
    unsigned long providerId;       ///< Kept when the provider is taken away; 0 until one is assigned.
    unsigned char providerAssigned; ///< 1 while a provider is assigned.
    SProviderDescriptor *provider;  ///< Borrowed; null while none is assigned.
    unsigned long writableSize;     ///< As last given to reserveWritableSpace.
    CDatabase *database;
    unsigned long locationData;

    /// @throws std::bad_alloc
    SLocationDescriptor(std::string const &name, unsigned long locationId, unsigned long locationData,
                        unsigned long hashTableSize);

    /// Destructs the database, and with it the regions.
    ~SLocationDescriptor();

    SLocationDescriptor(const SLocationDescriptor &) = delete;
    SLocationDescriptor &operator=(const SLocationDescriptor &) = delete;

    /// Notes the provider that serves the location from now on.
    void markProviderAssigned(unsigned long assignedId, SProviderDescriptor *assigned);

    /// Takes the provider away, and the location out of that one's list.
    void unassignProvider();

    /// Adds a region to the location's database. @return as CDatabase_AddRegion.
    EAFResult addRegion(CStorageRegion *region);

    /// Removes a region from the location's database.
    /// @retval eAF_E_FAILED  no region has that name; traced.
    EAFResult removeRegion(char const *regionName);

    /// Keeps the size and hands it to the provider. @return as CStorageManager_ReserveWritableSpace.
    EAFResult reserveWritableSpace(unsigned long size);

    /// Files the path of every variable. Traces at debug level; a failure is traced as a warning and not answered.
    void updatePathHashTable();

    /// @return whether the database has the variable.
    bool getVariableByName(char const *variableName, CVariable **ppVariable);
    bool getVariableByPath(char const *path, CVariable **ppVariable);

    /// Calls one entry of a provider's table for this location. @return true on failure, which is traced.
    bool performProviderOperation(EProviderOperation operation, IStorageProvider *table,
                                  std::string const &providerName);
};
