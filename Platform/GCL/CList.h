/// @file
/// Doubly linked list of untyped elements. The list owns its nodes, never the elements. An all-zero record is
/// a valid empty list. Results are 32-bit codes: 0 done, GCL_LAST_ELEMENT still a success, 0x8000 or more an
/// error; a null list, or a null place for a result that is not optional, is GCL_INVALID_ARGUMENT, or "empty" and
/// "not found" where an answer is returned. One thread at a time.
#pragma once

#include <stdint.h>

#define GCL_API __attribute__((visibility("default")))

#define GCL_OK 0x0000u
#define GCL_LAST_ELEMENT 0x1002u ///< The element handed out is valid and the last one.
#define GCL_NOT_IN_LIST 0x8004u  ///< The list is empty, or the iteration has ended.
#define GCL_OUT_OF_MEMORY 0x8005u
#define GCL_INVALID_ARGUMENT 0x8006u

#ifdef __cplusplus
extern "C" {
#endif

struct CListNode;

typedef struct CList {
    struct CListNode *head;
    struct CListNode *tail;
    uint32_t size;
} CList;

/// A place in a list: the element that the next CList_GetNext hands out. Adding elements leaves it valid,
/// removing its element does not.
typedef struct CListNode *CListIterator;

/// @return non-zero when the element is the one that the key names.
typedef uint32_t (*CListMatcher)(const void *element, const void *key);

/// Makes an empty list, whatever the record held before. @return GCL_OK.
GCL_API uint32_t CList_Construct(CList *list);

/// Frees the nodes and leaves an empty list. @return GCL_OK.
GCL_API uint32_t CList_Destruct(CList *list);

/// Adds an element in front. @retval GCL_OUT_OF_MEMORY  nothing was added.
GCL_API uint32_t CList_PushHead(CList *list, void *element);

/// Adds an element behind. @retval GCL_OUT_OF_MEMORY  nothing was added.
GCL_API uint32_t CList_PushTail(CList *list, void *element);

/// Removes the first element. @param element  receives it. @retval GCL_NOT_IN_LIST  the list is empty.
GCL_API uint32_t CList_PopHead(CList *list, void **element);

/// @return non-zero when the list has no element.
GCL_API uint32_t CList_IsEmpty(const CList *list);

/// @return the number of elements.
GCL_API uint32_t CList_CurrentSize(const CList *list);

/// Finds the first element that matches. @param iterator  its place; may be null.
/// @return non-zero when found.
GCL_API uint32_t CList_Find(CList *list, const void *key, CListMatcher matcher, CListIterator *iterator);

/// Finds the first element that matches and hands it out; it stays in the list.
/// @return non-zero when found; the element is left alone otherwise.
GCL_API uint32_t CList_FindAndRetrieve(CList *list, const void *key, CListMatcher matcher, void **element);

/// Starts at the first element. @retval GCL_NOT_IN_LIST  the list is empty.
GCL_API uint32_t CList_StartIterationFromHead(CList *list, CListIterator *iterator);

/// Hands out the element at the iterator and moves on.
/// @retval GCL_LAST_ELEMENT  the element is valid and the last one.
/// @retval GCL_NOT_IN_LIST   the iteration has ended; the element is left alone.
GCL_API uint32_t CList_GetNext(CList *list, void **element, CListIterator *iterator);

#ifdef __cplusplus
}
#endif
