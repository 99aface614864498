/// @file
/// Tables of the test's own platform: chains in an array of buckets. A table that is not constructed may only be
/// constructed; any other use, as null arguments, ends the program.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ChainEntry;

typedef struct CHashTable {
    uint32_t isConstructed;
    uint32_t entryCount;
    unsigned long bucketCount;
    struct ChainEntry **buckets;
    uint8_t unused[40];
} CHashTable;

uint32_t CHashTable_Construct(CHashTable *table, unsigned long size);
uint32_t CHashTable_Destruct(CHashTable *table);
uint32_t CHashTable_Set(CHashTable *table, const char *key, void *value);
uint32_t CHashTable_Get(const CHashTable *table, const char *key, void **value);
uint32_t CHashTable_Count(const CHashTable *table);

#ifdef __cplusplus
}
#endif
