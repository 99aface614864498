/// @file
/// The list of borrowed pointers that regions and databases are made of. The platform's CList is not used here: it
/// can not give up an element in its middle.
#pragma once

#include <cstdint>
#include <new>

#include "CStorageRegion.h"

struct SStorageListNode {
    SStorageListNode *previous;
    SStorageListNode *next;
    void *element;
};

namespace af {

/// @return whether there was memory for it.
inline bool pushBack(SStorageList &list, void *element) {
    auto *node = new (std::nothrow) SStorageListNode{list.tail, nullptr, element};
    if (node == nullptr) {
        return false;
    }
    (list.tail != nullptr ? list.tail->next : list.head) = node;
    list.tail = node;
    ++list.count;
    return true;
}

inline void remove(SStorageList &list, SStorageListNode *node) {
    (node->previous != nullptr ? node->previous->next : list.head) = node->next;
    (node->next != nullptr ? node->next->previous : list.tail) = node->previous;
    --list.count;
    delete node;
}

/// @return the first element, taken out; null also when the list is empty.
inline void *popFront(SStorageList &list) {
    if (list.head == nullptr) {
        return nullptr;
    }
    SStorageListNode *first = list.head;
    void *element = first->element;
    list.head = first->next;
    (list.head != nullptr ? list.head->previous : list.tail) = nullptr;
    --list.count;
    delete first;
    return element;
}

/// The elements as what they are, for a range-based for loop.
template <class Element>
class ElementsOf {
public:
    explicit ElementsOf(const SStorageList &list) : m_first(list.head) {}

    class Iterator {
    public:
        explicit Iterator(const SStorageListNode *node) : m_node(node) {}
        Element *operator*() const { return static_cast<Element *>(m_node->element); }
        Iterator &operator++() {
            m_node = m_node->next;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return m_node != other.m_node; }

    private:
        const SStorageListNode *m_node;
    };

    Iterator begin() const { return Iterator(m_first); }
    Iterator end() const { return Iterator(nullptr); }

private:
    const SStorageListNode *m_first;
};

} // namespace af
