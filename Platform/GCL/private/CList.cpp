#include "CList.h"

#include <new>

struct CListNode {
    void *element;
    CListNode *next;
    CListNode *previous;
};

namespace {

CListNode *makeNode(void *element, CListNode *previous, CListNode *next) {
    return new (std::nothrow) CListNode{element, next, previous};
}

CListNode *findNode(const CList &list, const void *key, CListMatcher matcher) {
    auto *node = list.head;
    while (node != nullptr && matcher(node->element, key) == 0) {
        node = node->next;
    }
    return node;
}

} // namespace

uint32_t CList_Construct(CList *list) {
    if (list == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    *list = CList{};
    return GCL_OK;
}

uint32_t CList_Destruct(CList *list) {
    if (list == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    auto *node = list->head;
    while (node != nullptr) {
        auto *const next = node->next;
        delete node;
        node = next;
    }
    *list = CList{};
    return GCL_OK;
}

uint32_t CList_PushHead(CList *list, void *element) {
    if (list == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    auto *const node = makeNode(element, nullptr, list->head);
    if (node == nullptr) {
        return GCL_OUT_OF_MEMORY;
    }
    (list->head != nullptr ? list->head->previous : list->tail) = node;
    list->head = node;
    ++list->size;
    return GCL_OK;
}

uint32_t CList_PushTail(CList *list, void *element) {
    if (list == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    auto *const node = makeNode(element, list->tail, nullptr);
    if (node == nullptr) {
        return GCL_OUT_OF_MEMORY;
    }
    (list->tail != nullptr ? list->tail->next : list->head) = node;
    list->tail = node;
    ++list->size;
    return GCL_OK;
}

uint32_t CList_PopHead(CList *list, void **element) {
    if (list == nullptr || element == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    auto *const node = list->head;
    if (node == nullptr) {
        return GCL_NOT_IN_LIST;
    }
    *element = node->element;
    list->head = node->next;
    (list->head != nullptr ? list->head->previous : list->tail) = nullptr;
    --list->size;
    delete node;
    return GCL_OK;
}

uint32_t CList_IsEmpty(const CList *list) {
    return list == nullptr || list->head == nullptr ? 1 : 0;
}

uint32_t CList_CurrentSize(const CList *list) {
    return list == nullptr ? 0 : list->size;
}

uint32_t CList_Find(CList *list, const void *key, CListMatcher matcher, CListIterator *iterator) {
    if (list == nullptr || matcher == nullptr) {
        return 0;
    }
    auto *const node = findNode(*list, key, matcher);
    if (node == nullptr) {
        return 0;
    }
    if (iterator != nullptr) {
        *iterator = node;
    }
    return 1;
}

uint32_t CList_FindAndRetrieve(CList *list, const void *key, CListMatcher matcher, void **element) {
    if (list == nullptr || matcher == nullptr || element == nullptr) {
        return 0;
    }
    const auto *const node = findNode(*list, key, matcher);
    if (node == nullptr) {
        return 0;
    }
    *element = node->element;
    return 1;
}

uint32_t CList_StartIterationFromHead(CList *list, CListIterator *iterator) {
    if (list == nullptr || iterator == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    *iterator = list->head;
    return list->head != nullptr ? GCL_OK : GCL_NOT_IN_LIST;
}

uint32_t CList_GetNext(CList *list, void **element, CListIterator *iterator) {
    if (list == nullptr || element == nullptr || iterator == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    const auto *const node = *iterator;
    if (node == nullptr) {
        return GCL_NOT_IN_LIST;
    }
    *element = node->element;
    *iterator = node->next;
    return node->next != nullptr ? GCL_OK : GCL_LAST_ELEMENT;
}
