#include "CEventCache.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "AtomicWord.h"

namespace {

/// In a cache's `next`: a thread is inserting. Whoever meets it does not wait for that thread.
constexpr std::uint32_t insertionHeld = 0x80000000u;

/// How often a thread asks for the insertion before it lets others run, and how often it does that before it
/// leaves the key to a later miss.
constexpr int insertionAttempts = 64;
constexpr int insertionRounds = 5;

static_assert(__atomic_always_lock_free(sizeof(SEventCacheEntry), nullptr), "entries are read and written whole");

/// Set by the first construction, never cleared, shared by all caches.
std::atomic<bool> everConstructed;

SEventCacheEntry *allocateSlots(std::uint32_t capacity) {
    const std::uint64_t bytes = std::uint64_t{capacity} * sizeof(SEventCacheEntry);
    if (capacity > insertionHeld || bytes > PTRDIFF_MAX) {
        return nullptr;
    }
    return new (std::nothrow) SEventCacheEntry[capacity];
}

SEventCacheEntry loadWhole(SEventCacheEntry &slot) {
    SEventCacheEntry entry;
    __atomic_load(&slot, &entry, __ATOMIC_ACQUIRE);
    return entry;
}

bool findKey(const CEventCache &cache, std::uint32_t key, std::uint32_t &value) {
    SEventCacheEntry *const entries = cache.entries;
    SEventCacheEntry *const end = entries != nullptr ? entries + af::loadAcquire(cache.count) : nullptr;
    // The key alone costs less to read; only a match is read again as one with its value.
    const auto hasKey = [key](SEventCacheEntry &slot) { return __atomic_load_n(&slot.key, __ATOMIC_RELAXED) == key; };
    // One that was overwritten between the two readings is passed as any other.
    for (SEventCacheEntry *slot = entries; (slot = std::find_if(slot, end, hasKey)) != end;) {
        const SEventCacheEntry entry = loadWhole(*slot);
        if (entry.key == key) {
            value = entry.value;
            return true;
        }
    }
    return false;
}

/// @param slot  receives the slot to write. Endowed with it, this thread alone writes until it stores `next`.
bool takeInsertion(CEventCache &cache, std::uint32_t &slot) {
    for (int attempt = 1; attempt <= insertionRounds * insertionAttempts; ++attempt) {
        slot = af::loadAcquire(cache.next);
        if ((slot & insertionHeld) == 0 && __atomic_compare_exchange_n(&cache.next, &slot, slot | insertionHeld, false,
                                                                       __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
            return true;
        }
        if (attempt % insertionAttempts == 0) {
            sched_yield();
        }
    }
    return false;
}

} // namespace

void CEventCache_Construct(CEventCache *cache, uint32_t capacity) {
    if (cache == nullptr) {
        return;
    }
    cache->entries = allocateSlots(capacity);
    cache->capacity = cache->entries != nullptr ? capacity : 0;
    cache->count = 0;
    cache->next = 0;
    everConstructed.store(true, std::memory_order_release);
}

void CEventCache_Destruct(CEventCache *cache) {
    if (cache == nullptr) {
        return;
    }
    delete[] cache->entries;
    cache->entries = nullptr;
}

EAFResult CEventCache_Add(CEventCache *cache, uint32_t key, uint32_t value) {
    if (cache == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (!everConstructed.load(std::memory_order_acquire)) {
        return eAF_E_NOT_INITIALIZED;
    }
    if (cache->entries == nullptr || cache->capacity == 0) {
        return eAF_E_OUT_OF_MEMORY;
    }
    std::uint32_t present = 0;
    if (findKey(*cache, key, present)) {
        return eAF_I_ALREADY_CACHED;
    }
    std::uint32_t slot = 0;
    if (!takeInsertion(*cache, slot)) {
        return eAF_W_COULD_NOT_CACHE_EVENT;
    }
    // Asked again: another thread may have inserted the key since.
    if (findKey(*cache, key, present)) {
        af::storeRelease(cache->next, slot);
        return eAF_I_ALREADY_CACHED;
    }
    SEventCacheEntry entry{key, value};
    __atomic_store(&cache->entries[slot], &entry, __ATOMIC_RELEASE);
    const std::uint32_t count = af::loadAcquire(cache->count);
    if (count < cache->capacity) {
        af::storeRelease(cache->count, count + 1);
    }
    af::storeRelease(cache->next, slot + 1 < cache->capacity ? slot + 1 : 0);
    return eAF_S_OK;
}

uint32_t CEventCache_IsHit(CEventCache *cache, uint32_t key, uint32_t *value) {
    if (cache == nullptr || !everConstructed.load(std::memory_order_acquire)) {
        return 0;
    }
    std::uint32_t found = 0;
    const bool hit = findKey(*cache, key, found);
    if (value != nullptr) {
        *value = found;
    }
    return hit ? 1 : 0;
}
