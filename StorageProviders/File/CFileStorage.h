/// @file
/// The storage provider that keeps variables in a plain file; README.md tells the format.
///
/// A store to which nothing has changed since the last store or retrieve does not look at the file: it answers
/// eAF_S_OK, also where somebody deleted the file meanwhile.
#pragma once

#include "AFExport.h"
#include "EAFResult.h"
#include "IStorageProvider.h"
#include "SStorageStatistics.h"

AF_EXTERN_C_BEGIN

/// Names the file of a location, before CStorageManager_InitializeAllProviders. Each location has its own.
/// @param fileName  copied; its folder must exist, the file is made by the first store.
/// @retval eAF_E_INVALID_ARGUMENT     null or empty name, or another location's.
/// @retval eAF_E_ALREADY_INITIALIZED  the location's store is open.
/// @retval eAF_E_INITIALIZATION_ERROR the name can not be followed: the system does not tell where one of its links
///                                    leads, or the process's folder. The location keeps what it had.
AF_API EAFResult CFileStorage_SetFile(unsigned long locationId, const char *fileName);

/// @return the table for CStorageManager_RegisterStorageProvider; it lives as long as the library.
AF_API IStorageProvider *CFileStorage_GetProvider(void);

/// Tells what the provider did for a location.
/// @param statistics  receives what the last store and retrieve of the location did.
/// @retval eAF_E_UNKNOWN_LOCATION  no file was named for it.
AF_API EAFResult CFileStorage_GetStatistics(unsigned long locationId, SStorageStatistics *statistics);

/// Closes every store and forgets the locations; after CStorageManager_Uninitialize. @return eAF_S_OK.
AF_API EAFResult CFileStorage_UnInitialize(void);

AF_EXTERN_C_END
