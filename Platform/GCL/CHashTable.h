/// @file
/// Hash table from text to untyped value. The table copies its keys and never owns the values. It grows with
/// its contents, so a look-up stays fast far beyond the size that it was built with. One thread at a time.
#pragma once

#include <stdint.h>

#include "CList.h"

#ifdef __cplusplus
extern "C" {
#endif

struct CHashTableContents;

typedef struct CHashTable {
    struct CHashTableContents *contents;
} CHashTable;

/// Makes an empty table, whatever the record held before.
/// @param size  how many entries to make room for at once; 0 is allowed.
/// @retval GCL_OUT_OF_MEMORY  the table holds nothing and takes nothing.
GCL_API uint32_t CHashTable_Construct(CHashTable *table, unsigned long size);

/// Frees keys and entries; the table may be destructed again or constructed anew. @return GCL_OK.
GCL_API uint32_t CHashTable_Destruct(CHashTable *table);

/// Files a value under a copy of the key; the value of a key that is present is replaced.
/// @retval GCL_INVALID_ARGUMENT  null table or key.
/// @retval GCL_OUT_OF_MEMORY     the table is as before.
GCL_API uint32_t CHashTable_Set(CHashTable *table, const char *key, void *value);

/// @param value  receives the key's value; left alone when the key is absent.
/// @retval GCL_NOT_IN_LIST       the key is absent.
/// @retval GCL_INVALID_ARGUMENT  null table, key or value.
GCL_API uint32_t CHashTable_Get(const CHashTable *table, const char *key, void **value);

/// @return the number of entries.
GCL_API uint32_t CHashTable_Count(const CHashTable *table);

#ifdef __cplusplus
}
#endif
