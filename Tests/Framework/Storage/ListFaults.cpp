#include "ListFaults.h"

#include <dlfcn.h>

#include <set>

#include "CHashTable.h"
#include "CList.h"

test::ListFaults &test::listFaults() {
    static ListFaults faults;
    return faults;
}

namespace {

template <class Function>
Function *containersOwn(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// Never destroyed: the storage manager's locations go after main.
std::set<const CHashTable *> &tablesWithoutMemory() {
    static auto &tables = *new std::set<const CHashTable *>;
    return tables;
}

} // namespace

uint32_t CList_PushTail(CList *list, void *element) {
    static auto *const own = containersOwn<decltype(CList_PushTail)>("CList_PushTail");
    const uint32_t fault = test::listFaults().pushTail;
    return fault != 0 ? fault : own(list, element);
}

uint32_t CList_PopHead(CList *list, void **element) {
    static auto *const own = containersOwn<decltype(CList_PopHead)>("CList_PopHead");
    const uint32_t fault = test::listFaults().popHead;
    return fault != 0 ? fault : own(list, element);
}

uint32_t CList_StartIterationFromHead(CList *list, CListIterator *iterator) {
    static auto *const own = containersOwn<decltype(CList_StartIterationFromHead)>("CList_StartIterationFromHead");
    const uint32_t fault = test::listFaults().startIteration;
    return fault != 0 ? fault : own(list, iterator);
}

uint32_t CList_GetNext(CList *list, void **element, CListIterator *iterator) {
    static auto *const own = containersOwn<decltype(CList_GetNext)>("CList_GetNext");
    const uint32_t fault = test::listFaults().getNext;
    return fault != 0 ? fault : own(list, element, iterator);
}

// A table that could not be made is the platform's to describe: here its record stays as it was, and the calls answer
// for it as Documentation/Platform.md has it.
uint32_t CHashTable_Construct(CHashTable *table, unsigned long size) {
    static auto *const own = containersOwn<decltype(CHashTable_Construct)>("CHashTable_Construct");
    const uint32_t fault = test::listFaults().hashConstruct;
    if (fault != 0) {
        tablesWithoutMemory().insert(table);
        return fault;
    }
    tablesWithoutMemory().erase(table);
    return own(table, size);
}

uint32_t CHashTable_Destruct(CHashTable *table) {
    static auto *const own = containersOwn<decltype(CHashTable_Destruct)>("CHashTable_Destruct");
    return tablesWithoutMemory().erase(table) != 0 ? 0 : own(table);
}

uint32_t CHashTable_Set(CHashTable *table, const char *key, void *value) {
    static auto *const own = containersOwn<decltype(CHashTable_Set)>("CHashTable_Set");
    const uint32_t fault = test::listFaults().hashSet;
    if (fault != 0) {
        return fault;
    }
    return tablesWithoutMemory().count(table) != 0 ? test::listOutOfMemory : own(table, key, value);
}

uint32_t CHashTable_Get(const CHashTable *table, const char *key, void **value) {
    static auto *const own = containersOwn<decltype(CHashTable_Get)>("CHashTable_Get");
    return tablesWithoutMemory().count(table) != 0 ? test::listExhausted : own(table, key, value);
}

uint32_t CHashTable_Count(const CHashTable *table) {
    static auto *const own = containersOwn<decltype(CHashTable_Count)>("CHashTable_Count");
    return tablesWithoutMemory().count(table) != 0 ? 0 : own(table);
}
