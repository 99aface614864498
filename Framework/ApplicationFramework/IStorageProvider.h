/// @file
/// What a storage back end supplies: four functions, called on the thread that runs the storage phases.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "CDatabase.h"
#include "EAFResult.h"

#ifdef __cplusplus
enum EProviderOperation : uint32_t { ePO_INITIALIZE = 0, ePO_STORE_ALL = 1, ePO_RETRIEVE_ALL = 2 };
#else
typedef uint32_t EProviderOperation;
enum { ePO_INITIALIZE = 0, ePO_STORE_ALL = 1, ePO_RETRIEVE_ALL = 2 };
#endif

AF_EXTERN_C_BEGIN

/// The table stays the back end's and outlives its registration. An entry may look variables up, but neither assign,
/// reassign, register, remove nor uninitialise anything: the manager is walking its lists. A code of 0x8000 or more is
/// a failure: it is traced, and what else there is to do goes on.
typedef struct IStorageProvider {
    /// May be called again: a reassigned location initialises every provider anew.
    EAFResult (*Initialize)(unsigned long locationId);

    /// @param size  bytes.
    EAFResult (*ReserveWritableSpace)(unsigned long locationId, unsigned long size);

    /// Writes the variables of the location's database; CDatabase_DoVariableOperation visits them.
    /// @param locationData  as given to CStorageManager_RegisterLocation; its meaning is the provider's.
    EAFResult (*StoreAll)(unsigned long locationId, CDatabase *database, unsigned long locationData);

    /// Fills the variables and marks them retrieved: CDatabase_SetAsNotRetrieved, fill and CVariable_SetRetrieved,
    /// CDatabase_SetNotRetrievedVariablesToDefault.
    EAFResult (*RetrieveAll)(unsigned long locationId, CDatabase *database, unsigned long locationData);
} IStorageProvider;

AF_EXTERN_C_END
