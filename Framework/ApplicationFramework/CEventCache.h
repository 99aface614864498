/// @file
/// A small map from event id to registry index: a ring that overwrites its oldest insertion once full.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "EAFResult.h"

AF_EXTERN_C_BEGIN

/// Aligned so that key and value are read and written as one.
typedef struct __attribute__((aligned(8))) SEventCacheEntry {
    uint32_t key;
    uint32_t value;
} SEventCacheEntry;

/// Filled and read by CEventCache_Add and CEventCache_IsHit from any number of threads without a lock: a
/// reader meets an entry whole or not at all.
typedef struct CEventCache {
    uint32_t capacity;         ///< Number of slots.
    uint32_t count;            ///< Slots in use.
    uint32_t next;             ///< The slot that the next insertion writes; its top bit is set while one writes.
    SEventCacheEntry *entries; ///< Owned by the cache; null after CEventCache_Destruct.
} CEventCache;

/// Makes an empty cache in the caller's record. Without memory the capacity is 0 and nothing is ever held.
/// Not while another thread uses the cache.
AF_API void CEventCache_Construct(CEventCache *cache, uint32_t capacity);

/// Frees the slots; capacity, count and next keep their values until the next CEventCache_Construct.
/// Not while another thread uses the cache.
AF_API void CEventCache_Destruct(CEventCache *cache);

/// Inserts a key that is not there yet. Nothing is traced.
/// @retval eAF_I_ALREADY_CACHED         the key is there and keeps its value.
/// @retval eAF_W_COULD_NOT_CACHE_EVENT  another thread held the insertion; nothing was inserted.
/// @retval eAF_E_INVALID_ARGUMENT       null cache.
/// @retval eAF_E_NOT_INITIALIZED        no cache was ever constructed in this process.
/// @retval eAF_E_OUT_OF_MEMORY          the cache has no slots.
AF_API EAFResult CEventCache_Add(CEventCache *cache, uint32_t key, uint32_t value);

/// Looks a key up.
/// @param value receives the key's value, 0 on a miss; left alone when the cache is null or none was ever
///              constructed.
/// @return 1 on a hit, else 0.
AF_API uint32_t CEventCache_IsHit(CEventCache *cache, uint32_t key, uint32_t *value);

AF_EXTERN_C_END
