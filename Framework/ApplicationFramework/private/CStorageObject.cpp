#include "CStorageObject.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "AfTrace.h"
#include "BoundedText.h"
#include "DomainTrace.h"
#include "ListAnswers.h"
#include "ObjectDestruction.h"

namespace {

VoxTrace accessTrace("ZEL.AF.STOR.ACC", 3, 256);
bool isAccessTraceGone = false;
const af::TraceEnd accessTraceEnd{isAccessTraceGone};

struct Destruction {
    const CStorageObject *object;
    const Destruction *outer;
};
thread_local const Destruction *innermostDestruction = nullptr;

/// A name that is looked for. Names of one object are mostly alike but for their ends, so an end of eight bytes, with
/// the terminator, is compared before the whole; a shorter name with that is compared.
class WantedName {
public:
    explicit WantedName(const char *text) : m_text(text) {
        const std::size_t size = std::strlen(text) + 1;
        if (size > sizeof CVariable::name) {
            return; // nobody's: no end to look at
        }
        const std::size_t length = std::min(size, sizeof m_end);
        m_place = size - length;
        std::memcpy(&m_end, text + m_place, length);
        std::memset(&m_mask, 0xff, length);
    }

    bool isOf(const CVariable &variable) const {
        std::uint64_t end = 0;
        std::memcpy(&end, variable.name + m_place, sizeof end);
        return (end & m_mask) == m_end && variable.name[0] != '\0' && std::strcmp(variable.name, m_text) == 0;
    }

private:
    const char *m_text;
    std::size_t m_place = 0;
    std::uint64_t m_end = 0;
    std::uint64_t m_mask = 0;
};

/// Whether the list's element has the name that is the key. The name is read where it lies: a look-up by name does this
/// for every variable.
extern "C" uint32_t variableMatcher(const void *element, const void *key) {
    if (element == nullptr) {
        const char *none = nullptr;
        CVariable_GetName(nullptr, &none); // which says so
        return 0;
    }
    return static_cast<const WantedName *>(key)->isOf(*static_cast<const CVariable *>(element)) ? 1 : 0;
}

bool isTaken(CStorageObject *object, const char *name) {
    const WantedName wanted(name);
    return CList_Find(&object->variables, &wanted, variableMatcher, nullptr) != 0;
}

/// @return a zeroed record, or null.
CVariable *allocateVariable() {
    return new (std::nothrow) CVariable[1]();
}

EAFResult createVariable(CStorageObject *object, const SVariableDescriptor &descriptor) {
    if (isTaken(object, descriptor.name != nullptr ? descriptor.name : "")) {
        return eAF_E_NAME_NOT_UNIQUE;
    }
    CVariable *variable = allocateVariable();
    if (variable == nullptr ||
        CVariable_Construct(variable, descriptor.contentAddress, descriptor.type, descriptor.noOfElements,
                            descriptor.name, descriptor.defaultContentAddress) == eAF_E_OUT_OF_MEMORY) {
        delete[] variable;
        return eAF_E_OUT_OF_MEMORY;
    }
    CVariable_SetDynamicallyAllocated(variable, 1);
    if (af::isError(CList_PushTail(&object->variables, variable))) {
        // The variable is not taken back: in the hands of a list that failed it may be in use.
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

} // namespace

void CStorageObject_Construct(CStorageObject *object, const char *name) {
    if (object == nullptr) {
        return;
    }
    object->dynamicallyAllocated = 0;
    CList_Construct(&object->variables);
    object->reservedSize = 0;
    af::copyBounded(object->name, name);
    object->rawObjectContentAddress = nullptr;
    object->applicationData = 0;
    object->writable = 1;
}

bool af::isBeingDestructed(const CStorageObject *object) {
    for (const Destruction *destruction = innermostDestruction; destruction != nullptr;
         destruction = destruction->outer) {
        if (destruction->object == object) {
            return true;
        }
    }
    return false;
}

void CStorageObject_Destruct(CStorageObject *object) {
    if (object == nullptr || af::isBeingDestructed(object)) {
        return;
    }
    const Destruction destruction{object, innermostDestruction};
    innermostDestruction = &destruction;
    while (CList_IsEmpty(&object->variables) == 0) {
        void *element = nullptr;
        const std::uint32_t result = CList_PopHead(&object->variables, &element);
        if (af::isError(result)) {
            AF_TRACE(result, "Failed to pop head from non-empty list");
            break;
        }
        auto *variable = static_cast<CVariable *>(element);
        const bool isOwned = CVariable_IsDynamicallyAllocated(variable) != 0;
        CVariable_Destruct(variable);
        if (isOwned) {
            delete[] variable;
        }
    }
    CList_Destruct(&object->variables);
    innermostDestruction = destruction.outer;
}

EAFResult CStorageObject_GetName(CStorageObject *object, char **ppName) {
    if (object == nullptr || ppName == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *ppName = object->name;
    return object->name[0] != '\0' ? eAF_S_OK : eAF_E_FAILED;
}

EAFResult CStorageObject_CreateVariables(CStorageObject *object, SVariableDescriptor *descriptors,
                                         unsigned long count) {
    if (object == nullptr || descriptors == nullptr || count == 0) {
        return eAF_E_INVALID_ARGUMENT;
    }
    for (unsigned long i = 0; i < count; ++i) {
        const EAFResult result = createVariable(object, descriptors[i]);
        if (af::isError(result)) {
            return result;
        }
    }
    return eAF_S_OK;
}

EAFResult CStorageObject_AddVariable(CStorageObject *object, CVariable *variable) {
    if (object == nullptr || variable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    const char *name = nullptr;
    if (af::isError(CVariable_GetName(variable, &name))) {
        return eAF_E_FAILED;
    }
    if (isTaken(object, name)) {
        return eAF_E_NAME_NOT_UNIQUE;
    }
    return af::isError(CList_PushTail(&object->variables, variable)) ? eAF_E_FAILED : eAF_S_OK;
}

EAFResult CStorageObject_AddObject(CStorageObject *parent, CStorageObject *child) {
    if (parent == nullptr || child == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    char *name = nullptr;
    if (af::isError(CStorageObject_GetName(child, &name))) {
        return eAF_E_FAILED;
    }
    if (isTaken(parent, name)) {
        return eAF_E_NAME_NOT_UNIQUE;
    }
    CVariable *wrapper = allocateVariable();
    if (wrapper == nullptr ||
        CVariable_Construct(wrapper, nullptr, TYPE_OBJECT, 1, name, nullptr) == eAF_E_OUT_OF_MEMORY) {
        delete[] wrapper;
        return eAF_E_OUT_OF_MEMORY;
    }
    // Left unmarked on purpose: hosts keep the wrapper beyond the parent.
    void *content = nullptr;
    const EAFResult result = CVariable_GetContentAddress(wrapper, &content);
    if (af::isError(result)) {
        AF_TRACE(result, "Could not get variable content address when adding object");
        return result;
    }
    std::memcpy(content, &child, sizeof(CStorageObject *));
    return af::isError(CList_PushTail(&parent->variables, wrapper)) ? eAF_E_FAILED : eAF_S_OK;
}

EAFResult CStorageObject_GetVariableIterator(CStorageObject *object, CListIterator *iterator) {
    if (object == nullptr || iterator == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    CListIterator first{};
    const std::uint32_t result = CList_StartIterationFromHead(&object->variables, &first);
    *iterator = first;
    if (af::isError(result)) {
        return result == af::listExhausted ? eAF_W_NO_MORE_DATA : eAF_E_FAILED;
    }
    return CList_IsEmpty(&object->variables) != 0 ? eAF_W_NO_MORE_DATA : eAF_S_OK;
}

EAFResult CStorageObject_GetNextVariable(CStorageObject *object, CVariable **ppVariable, CListIterator *iterator) {
    if (object == nullptr || ppVariable == nullptr || iterator == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *ppVariable = nullptr;
    void *element = nullptr;
    const std::uint32_t result = CList_GetNext(&object->variables, &element, iterator);
    if (af::isError(result)) {
        return eAF_E_FAILED;
    }
    *ppVariable = static_cast<CVariable *>(element);
    return result == af::listLastElement ? eAF_W_NO_MORE_DATA : eAF_S_OK;
}

uint32_t CStorageObject_GetNoOfVariables(CStorageObject *object) {
    return object != nullptr ? CList_CurrentSize(&object->variables) : 0;
}

uint32_t CStorageObject_GetVariableByName(CStorageObject *object, const char *name, CVariable **ppVariable) {
    static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};
    af::logAccess(accessTrace, isAccessTraceGone, header, name);
    if (object == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "CStorageObject_GetVariableByName is calling with pThis = NULL");
    }
    if (name == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "CStorageObject_GetVariableByName is calling with pszVariableName = NULL");
    }
    if (ppVariable == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "CStorageObject_GetVariableByName is calling with ppVariable = NULL");
    }
    if (object == nullptr || name == nullptr || ppVariable == nullptr) {
        return 0;
    }
    *ppVariable = nullptr;
    const WantedName wanted(name);
    void *element = nullptr;
    if (CList_FindAndRetrieve(&object->variables, &wanted, variableMatcher, &element) == 0) {
        return 0;
    }
    *ppVariable = static_cast<CVariable *>(element);
    return eAF_S_TRUE;
}

EAFResult CStorageObject_ReserveSize(CStorageObject *object, unsigned long size) {
    if (object == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    object->reservedSize = static_cast<std::uint32_t>(size);
    return eAF_S_OK;
}

EAFResult CStorageObject_GetSizeInBytes(CStorageObject *object, unsigned long *pSize) {
    if (object == nullptr || pSize == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *pSize = 0;
    CListIterator iterator{};
    EAFResult result = CStorageObject_GetVariableIterator(object, &iterator);
    if (af::isError(result)) {
        return eAF_E_FAILED;
    }
    while (result != eAF_W_NO_MORE_DATA) {
        CVariable *variable = nullptr;
        result = CStorageObject_GetNextVariable(object, &variable, &iterator);
        if (af::isError(result)) {
            return eAF_E_FAILED;
        }
        *pSize += CVariable_GetSizeInBytes(variable);
    }
    return eAF_S_OK;
}

uint32_t CStorageObject_IsEmpty(CStorageObject *object) {
    return object != nullptr ? CList_IsEmpty(&object->variables) : 1;
}

EAFResult CStorageObject_SetRawObjectContentAddress(CStorageObject *object, void *address) {
    if (object == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    object->rawObjectContentAddress = address;
    return eAF_S_OK;
}

EAFResult CStorageObject_GetRawObjectContentAddress(CStorageObject *object, void **pAddress) {
    if (object == nullptr || pAddress == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *pAddress = object->rawObjectContentAddress;
    return *pAddress != nullptr ? eAF_S_OK : eAF_E_FAILED;
}

void CStorageObject_SetApplicationData(CStorageObject *object, uintptr_t data) {
    if (object != nullptr) {
        object->applicationData = data;
    }
}

EAFResult CStorageObject_GetApplicationData(CStorageObject *object, uintptr_t *pData) {
    if (object == nullptr || pData == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *pData = object->applicationData;
    return *pData != 0 ? eAF_S_OK : eAF_E_FAILED;
}

void CStorageObject_SetWritable(CStorageObject *object, unsigned int flag) {
    if (object != nullptr) {
        object->writable = flag;
    }
}

uint32_t CStorageObject_IsWritable(CStorageObject *object) {
    return object != nullptr ? object->writable : 0;
}

void CStorageObject_SetDynamicallyAllocated(CStorageObject *object, unsigned int flag) {
    if (object != nullptr) {
        object->dynamicallyAllocated = flag;
    }
}

uint32_t CStorageObject_IsDynamicallyAllocated(CStorageObject *object) {
    if (object == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "CStorageObject_IsDynamicallyAllocated was called with a null pointer");
        return 0;
    }
    return object->dynamicallyAllocated;
}
