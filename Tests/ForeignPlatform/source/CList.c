#include "CList.h"

#include <stdlib.h>

/* Names, not numbers that the callers share: this platform's users include none of them. */
enum { done = 0, wasLast = 0x1002, nothingThere = 0x8004, noMemory = 0x8005 };
enum { isSo = 0x40 };

struct RingLink {
    struct RingLink *next;
    void *element;
};

static struct RingLink *insertBehindLast(CList *ring, void *element) {
    struct RingLink *const link = malloc(sizeof *link);
    if (link == NULL) {
        return NULL;
    }
    link->element = element;
    link->next = ring->last != NULL ? ring->last->next : link;
    if (ring->last != NULL) {
        ring->last->next = link;
    } else {
        ring->last = link;
    }
    ++ring->length;
    ++ring->changes;
    return link;
}

static struct RingLink *find(const CList *ring, const void *key, CListMatcher matcher) {
    struct RingLink *link = ring->last;
    for (size_t left = ring->length; left > 0; --left) {
        link = link->next;
        if (matcher(link->element, key) != 0) {
            return link;
        }
    }
    return NULL;
}

uint32_t CList_Construct(CList *ring) {
    *ring = (CList){0};
    return done;
}

uint32_t CList_Destruct(CList *ring) {
    void *element = NULL;
    while (CList_PopHead(ring, &element) == done) {
    }
    return CList_Construct(ring);
}

uint32_t CList_PushHead(CList *ring, void *element) {
    return insertBehindLast(ring, element) != NULL ? done : noMemory;
}

uint32_t CList_PushTail(CList *ring, void *element) {
    struct RingLink *const link = insertBehindLast(ring, element);
    if (link == NULL) {
        return noMemory;
    }
    ring->last = link;
    return done;
}

uint32_t CList_PopHead(CList *ring, void **element) {
    if (ring->last == NULL) {
        return nothingThere;
    }
    struct RingLink *const first = ring->last->next;
    *element = first->element;
    ring->last->next = first->next;
    if (first == ring->last) {
        ring->last = NULL;
    }
    --ring->length;
    ++ring->changes;
    free(first);
    return done;
}

uint32_t CList_IsEmpty(const CList *ring) {
    return ring->last == NULL ? isSo : 0;
}

uint32_t CList_CurrentSize(const CList *ring) {
    return (uint32_t)ring->length;
}

uint32_t CList_Find(CList *ring, const void *key, CListMatcher matcher, CListIterator *place) {
    struct RingLink *const link = find(ring, key, matcher);
    if (link != NULL && place != NULL) {
        *place = (CListIterator){0, link, ring};
    }
    return link != NULL ? isSo : 0;
}

uint32_t CList_FindAndRetrieve(CList *ring, const void *key, CListMatcher matcher, void **element) {
    const struct RingLink *const link = find(ring, key, matcher);
    if (link == NULL) {
        return 0;
    }
    *element = link->element;
    return isSo;
}

uint32_t CList_StartIterationFromHead(CList *ring, CListIterator *place) {
    *place = (CListIterator){0, ring->last != NULL ? ring->last->next : NULL, ring};
    return ring->last != NULL ? done : wasLast;
}

uint32_t CList_GetNext(CList *ring, void **element, CListIterator *place) {
    if (place->ring != ring) {
        abort();
    }
    struct RingLink *const link = place->next;
    if (link == NULL) {
        return nothingThere;
    }
    *element = link->element;
    ++place->handedOut;
    place->next = link != ring->last ? link->next : NULL;
    return place->next != NULL ? done : wasLast;
}
