/// @file
/// Storage locations, the providers that keep them, and the look-up of variables across all locations.
///
/// Order of use: locations, providers and assignments; regions; CStorageManager_UpdatePathHashTable;
/// CStorageManager_InitializeAllProviders; CStorageManager_RetrieveAll; CStorageManager_StoreAll as often as needed;
/// CStorageManager_Uninitialize. No operation checks that an earlier one ran.
///
/// No lock: registrations, provider operations and look-ups come from one thread at a time. A content that is
/// shared is guarded by CVariable_Lock, which nothing here takes.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "CStorageRegion.h"
#include "CVariable.h"
#include "EAFResult.h"
#include "IStorageProvider.h"

AF_EXTERN_C_BEGIN

/// Does nothing. @return eAF_S_OK.
AF_API EAFResult CStorageManager_Initialize(void);

/// Forgets every provider and location. A location's regions are destructed and, where marked, freed. The manager
/// may be filled again. A process that ends without it leaves the regions as they are. Traced at debug level.
/// @return eAF_S_OK.
AF_API EAFResult CStorageManager_Uninitialize(void);

/// Adds a location with an empty database.
/// @param locationId     not checked: of two locations with one id the second is never found.
/// @param hashTableSize  how many variables to make room for.
/// @param locationData   handed to the provider as it is.
/// @retval eAF_E_INVALID_ARGUMENT  null or empty name.
AF_API EAFResult CStorageManager_RegisterLocation(unsigned long locationId, const char *name,
                                                  unsigned long hashTableSize, unsigned long locationData);

/// Adds a provider, which serves no location yet.
/// @param provider    must outlive CStorageManager_Uninitialize. A null table or entry fails with
///                    eAF_E_NOT_IMPLEMENTED when it is called.
/// @param providerId  not checked: of two providers with one id the second is never found.
/// @retval eAF_E_INVALID_ARGUMENT  null or empty name.
AF_API EAFResult CStorageManager_RegisterStorageProvider(IStorageProvider *provider, unsigned long providerId,
                                                         const char *name);

/// Lets a provider serve a location. An earlier assignment stays: a location that is assigned twice is operated on
/// twice.
/// @retval eAF_E_UNKNOWN_PROVIDER  asked first; traced.
/// @retval eAF_E_UNKNOWN_LOCATION  traced.
AF_API EAFResult CStorageManager_AssignStorageProviderToLocation(unsigned long locationId, unsigned long providerId);

/// Takes the location from its provider and names another, which CStorageManager_ReserveWritableSpace uses from then
/// on; the operations on all providers no longer reach the location, but where it had been assigned more than once.
/// Initialises all providers anew.
/// @retval eAF_E_UNKNOWN_LOCATION  asked first; traced.
/// @retval eAF_E_UNKNOWN_PROVIDER  traced; the location has no provider then.
/// @retval eAF_E_FAILED            a provider did not initialise; traced. The new assignment stands.
AF_API EAFResult CStorageManager_ReassignStorageProviderToLocation(unsigned long locationId, unsigned long providerId);

/// Files a region in the location whose id it carries. From then on the location destructs it, when it is removed or
/// the manager is uninitialised, and frees it with delete[] where it is marked; until then it must live. A region
/// whose name is taken there is not filed, and that is a success: it stays the caller's.
/// @retval eAF_E_INVALID_ARGUMENT  null; not traced.
/// @retval eAF_E_UNKNOWN_LOCATION  traced.
/// @retval eAF_E_FAILED            the region's name is empty, or it could not be filed; traced.
AF_API EAFResult CStorageManager_RegisterRegion(CStorageRegion *region);

/// Removes a region from a location; see CDatabase_RemoveRegion for what paths lead to afterwards.
/// @retval eAF_E_INVALID_ARGUMENT  null or empty name.
/// @retval eAF_E_UNKNOWN_LOCATION  traced.
/// @retval eAF_E_FAILED            the location has no such region; traced.
AF_API EAFResult CStorageManager_RemoveRegionFromLocation(const char *regionName, unsigned long locationId);

/// Hands a location's size to its provider. The size is kept even when no provider takes it.
/// @retval eAF_E_UNKNOWN_LOCATION  traced.
/// @retval eAF_E_FAILED            the location has no provider; traced.
/// @return else the provider's code if that is an error; traced.
AF_API EAFResult CStorageManager_ReserveWritableSpace(unsigned long locationId, unsigned long size);

/// Files the path of every variable of every location. @return eAF_S_OK, also when a walk failed; that is traced.
AF_API EAFResult CStorageManager_UpdatePathHashTable(void);

/// Run one operation of every provider on each of its locations, in the order of registration and assignment. None
/// stops at a failure.
/// @retval eAF_E_FAILED  at least one failed; each is traced.
AF_API EAFResult CStorageManager_InitializeAllProviders(void);
AF_API EAFResult CStorageManager_StoreAll(void);
AF_API EAFResult CStorageManager_RetrieveAll(void);

/// Does nothing. @return eAF_E_NOT_IMPLEMENTED.
AF_API EAFResult CStorageManager_StoreAllWritable(void);

/// Look-ups: the locations are asked in the order of their registration, the first hit counts. By path: the full
/// path, once CStorageManager_UpdatePathHashTable has run. By name: variables that top-level objects hold themselves,
/// a linear search. Each call is logged at level 7 of the trace domain "ZEL.AF.STOR.ACC"; the content addresses are
/// found through the plain look-ups, which log too.
/// @retval eAF_E_INVALID_ARGUMENT  null or empty path or name, or null out pointer; not traced.
/// @retval eAF_E_UNKNOWN_VARIABLE  no location has it; by name this is traced. The out pointer is null, or as it was
///                                 where there is no location, by path also where none has any path yet.
AF_API EAFResult CStorageManager_GetVariableByPath(const char *path, CVariable **ppVariable);
AF_API EAFResult CStorageManager_GetVariableByName(const char *name, CVariable **ppVariable);

/// Look a variable up and tell where its content lies.
/// @param ppContent  receives the content's address; left alone on failure.
/// @param pSize      receives the content's size in bytes, 0 when the look-up failed; may be null. Left alone with
///                   eAF_E_INVALID_ARGUMENT.
/// @retval eAF_E_FAILED  by path: the variable was freed with its region; traced.
/// @return else as the plain look-ups; by path a failed one is traced.
AF_API EAFResult CStorageManager_GetVariableContentAddressByPath(const char *path, void **ppContent,
                                                                 unsigned long *pSize);
AF_API EAFResult CStorageManager_GetVariableContentAddressByName(const char *name, void **ppContent,
                                                                 unsigned long *pSize);

AF_EXTERN_C_END
