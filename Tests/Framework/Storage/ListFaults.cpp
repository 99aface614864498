#include "ListFaults.h"

#include <dlfcn.h>

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

uint32_t CHashTable_Set(CHashTable *table, const char *key, void *value) {
    static auto *const own = containersOwn<decltype(CHashTable_Set)>("CHashTable_Set");
    const uint32_t fault = test::listFaults().hashSet;
    return fault != 0 ? fault : own(table, key, value);
}

uint32_t CHashTable_Construct(CHashTable *table, unsigned long size) {
    static auto *const own = containersOwn<decltype(CHashTable_Construct)>("CHashTable_Construct");
    const uint32_t fault = test::listFaults().hashConstruct;
    if (fault != 0) {
        table->contents = nullptr;
        return fault;
    }
    return own(table, size);
}
