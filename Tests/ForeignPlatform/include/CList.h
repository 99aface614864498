/// @file
/// Lists of the test's own platform: a ring of links whose record knows the last one, whose next is the first.
/// Null arguments are the caller's fault and end the program.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct RingLink;

typedef struct CList {
    uint64_t changes;
    size_t length;
    struct RingLink *last;
    void *unused[3];
} CList;

typedef struct CListIterator {
    uint32_t handedOut;
    struct RingLink *next;
    const CList *ring;
} CListIterator;

typedef uint32_t (*CListMatcher)(const void *element, const void *key);

uint32_t CList_Construct(CList *ring);
uint32_t CList_Destruct(CList *ring);
uint32_t CList_PushHead(CList *ring, void *element);
uint32_t CList_PushTail(CList *ring, void *element);
uint32_t CList_PopHead(CList *ring, void **element);
uint32_t CList_IsEmpty(const CList *ring);
uint32_t CList_CurrentSize(const CList *ring);
uint32_t CList_Find(CList *ring, const void *key, CListMatcher matcher, CListIterator *place);
uint32_t CList_FindAndRetrieve(CList *ring, const void *key, CListMatcher matcher, void **element);
uint32_t CList_StartIterationFromHead(CList *ring, CListIterator *place);
uint32_t CList_GetNext(CList *ring, void **element, CListIterator *place);

#ifdef __cplusplus
}
#endif
