/// @file
/// What a storage provider of this folder did for a location.
#pragma once

#include <stdint.h>

/// Counted by the last StoreAll or RetrieveAll of the location; all zero before.
typedef struct SStorageStatistics {
    uint32_t noOfValuesWritten;    ///< By the last StoreAll; 0: nothing had changed, and the store was not touched.
    uint32_t noOfValuesRetrieved;  ///< By the last RetrieveAll.
    uint32_t noOfValuesMismatched; ///< Stored, but of another type or element count than the variable's.
    uint32_t noOfValuesMissing;    ///< Variables that the store did not hold.
    uint32_t noOfValuesUnknown;    ///< Stored, but no variable is registered under their path; kept in the store.
} SStorageStatistics;
