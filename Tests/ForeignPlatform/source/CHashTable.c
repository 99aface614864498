#include "CHashTable.h"

#include <stdlib.h>
#include <string.h>

#include "TextHash.h"

enum { done = 0, found = 1, noMemory = 0x8005, absent = 0x8010, tableFull = 0x8011 };
enum { mark = 0x7AB1E };

struct ChainEntry {
    struct ChainEntry *next;
    void *value;
    uint32_t hash;
    char key[];
};

static void require(const CHashTable *table) {
    if (table->isConstructed != mark) {
        abort();
    }
}

static struct ChainEntry *find(const CHashTable *table, const char *key, uint32_t hash) {
    struct ChainEntry *entry = table->bucketCount != 0 ? table->buckets[hash % table->bucketCount] : NULL;
    while (entry != NULL && (entry->hash != hash || strcmp(entry->key, key) != 0)) {
        entry = entry->next;
    }
    return entry;
}

/* Without memory the chains just grow longer. */
static void widen(CHashTable *table) {
    const unsigned long wanted = table->bucketCount * 2 + 1;
    struct ChainEntry **const buckets = calloc(wanted, sizeof *buckets);
    if (buckets == NULL) {
        return;
    }
    for (unsigned long at = 0; at < table->bucketCount; ++at) {
        for (struct ChainEntry *entry = table->buckets[at], *next = NULL; entry != NULL; entry = next) {
            next = entry->next;
            entry->next = buckets[entry->hash % wanted];
            buckets[entry->hash % wanted] = entry;
        }
    }
    free(table->buckets);
    table->buckets = buckets;
    table->bucketCount = wanted;
}

uint32_t CHashTable_Construct(CHashTable *table, unsigned long size) {
    memset(table, 0, sizeof *table);
    table->isConstructed = mark;
    const unsigned long wanted = size < 1024 ? size + 1 : 1024;
    table->buckets = calloc(wanted, sizeof(struct ChainEntry *));
    table->bucketCount = table->buckets != NULL ? wanted : 0;
    return table->buckets != NULL ? done : noMemory;
}

uint32_t CHashTable_Destruct(CHashTable *table) {
    require(table);
    for (unsigned long at = 0; at < table->bucketCount; ++at) {
        for (struct ChainEntry *entry = table->buckets[at], *next = NULL; entry != NULL; entry = next) {
            next = entry->next;
            free(entry);
        }
    }
    free(table->buckets);
    memset(table, 0xEE, sizeof *table);
    return done;
}

uint32_t CHashTable_Set(CHashTable *table, const char *key, void *value) {
    require(table);
    const uint32_t hash = TextHash_Of(key);
    struct ChainEntry *entry = find(table, key, hash);
    if (entry != NULL) {
        entry->value = value;
        return done;
    }
    if (table->bucketCount == 0) {
        return tableFull;
    }
    const size_t length = strlen(key) + 1;
    entry = malloc(sizeof *entry + length);
    if (entry == NULL) {
        return tableFull;
    }
    if (table->entryCount >= table->bucketCount) {
        widen(table);
    }
    memcpy(entry->key, key, length);
    entry->hash = hash;
    entry->value = value;
    entry->next = table->buckets[hash % table->bucketCount];
    table->buckets[hash % table->bucketCount] = entry;
    ++table->entryCount;
    return done;
}

uint32_t CHashTable_Get(const CHashTable *table, const char *key, void **value) {
    require(table);
    const struct ChainEntry *const entry = find(table, key, TextHash_Of(key));
    if (entry == NULL) {
        return absent;
    }
    *value = entry->value;
    return found;
}

uint32_t CHashTable_Count(const CHashTable *table) {
    require(table);
    return table->entryCount;
}
