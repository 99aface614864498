#include "CVariable.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "AfTrace.h"
#include "BoundedText.h"
#include "ObjectDestruction.h"
#include "VariableType.h"

namespace {

constexpr std::uint32_t largestSize = 0xFFFFFFFFu;

#define AF_ELEMENT_SIZE(name, value, elementSize) elementSize,
constexpr std::size_t elementSizes[] = {AF_VARIABLE_TYPE_TABLE(AF_ELEMENT_SIZE)};
#undef AF_ELEMENT_SIZE

/// @return 0 for an unknown type.
std::uint32_t elementSize(EVariableType type) {
    return type < std::size(elementSizes) ? static_cast<std::uint32_t>(elementSizes[type]) : 0;
}

std::uint32_t sizeInBytes(EVariableType type, std::uint32_t noOfElements) {
    const std::uint32_t size = elementSize(type);
    if (size == 0) {
        AF_TRACE_AS(
            "CVariable_GetSizeInBytes", eAF_W_WARNING,
            "CVariable_GetSizeInBytes was called with unsupported EVariableType. Default memory allocation of 1 byte");
        return 1;
    }
    const std::uint64_t bytes = isCounted(type) ? std::uint64_t{size} * noOfElements : size;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, largestSize));
}

/// @return a zeroed block, or null.
void *makeContent(EVariableType type, std::uint32_t size) {
    // An object's own pointer needs less; but walks and destructor take the block for the object itself.
    const std::size_t bytes = type == TYPE_OBJECT ? std::max<std::size_t>(size, sizeof(CStorageObject)) : size;
    if (size == largestSize || bytes > PTRDIFF_MAX) {
        return nullptr;
    }
    return new (std::nothrow) unsigned char[bytes]();
}

/// @return whether the object was freed.
bool giveUpObject(CStorageObject *object) {
    if (af::isBeingDestructed(object)) {
        return false; // it contains itself: who began ends it
    }
    const bool isOwned = CStorageObject_IsDynamicallyAllocated(object) != 0;
    CStorageObject_Destruct(object);
    if (isOwned) {
        ::operator delete[](object); // also a block of makeContent, in which no object was ever built
    }
    return isOwned;
}

/// One of the two blocks is the variable's own, the other may be a part of it, or none for an array without elements.
EAFResult copyContent(CVariable &variable, void *destination, const void *source) {
    if (variable.content == nullptr) {
        return eAF_E_NOT_INITIALIZED;
    }
    if (destination == nullptr || source == nullptr) {
        return isCounted(variable.type) && variable.noOfElements == 0 ? eAF_S_OK : eAF_E_INVALID_ARGUMENT;
    }
    std::memmove(destination, source, CVariable_GetSizeInBytes(&variable));
    return eAF_S_OK;
}

} // namespace

EAFResult CVariable_Construct(CVariable *variable, void *contentAddress, EVariableType type, uint32_t noOfElements,
                              const char *name, void *defaultContentAddress) {
    if (variable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    void *ownContent = nullptr;
    if (contentAddress == nullptr) {
        ownContent = makeContent(type, sizeInBytes(type, noOfElements));
        if (ownContent == nullptr) {
            return eAF_E_OUT_OF_MEMORY;
        }
    }
    variable->type = type;
    variable->noOfElements = noOfElements;
    af::copyBounded(variable->name, name);
    variable->defaultContent = defaultContentAddress;
    af::copyBounded(variable->path, nullptr);
    variable->dynamicallyAllocated = 0;
    variable->retrieved = 0;
    variable->accessType = ownContent != nullptr ? ByValue : ByReference;
    variable->content = ownContent != nullptr ? ownContent : contentAddress;
    if (pthread_mutex_init(&variable->mutex, nullptr) != 0) {
        AF_TRACE(eAF_E_MUTEX_ERROR, "Can't init mutex");
        return eAF_E_MUTEX_ERROR;
    }
    return eAF_S_OK;
}

EAFResult CVariable_Destruct(CVariable *variable) {
    if (variable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (variable->type == TYPE_OBJECT) {
        if (giveUpObject(static_cast<CStorageObject *>(variable->content))) {
            variable->content = nullptr;
        }
    } else if (variable->type == TYPE_OBJECT_ARRAY && variable->content != nullptr) {
        auto **elements = static_cast<CStorageObject **>(variable->content);
        for (std::uint32_t i = 0; i < variable->noOfElements; ++i) {
            if (elements[i] != nullptr && giveUpObject(elements[i])) {
                elements[i] = nullptr;
            }
        }
    }
    if (variable->accessType == ByValue && variable->content != nullptr) {
        delete[] static_cast<unsigned char *>(variable->content);
        variable->content = nullptr;
    }
    if (pthread_mutex_destroy(&variable->mutex) != 0) {
        AF_TRACE(eAF_E_MUTEX_ERROR, "Can't destroy mutex");
        return eAF_E_MUTEX_ERROR;
    }
    return eAF_S_OK;
}

uint32_t CVariable_GetSizeInBytes(CVariable *variable) {
    return variable != nullptr ? sizeInBytes(variable->type, variable->noOfElements) : 0;
}

EAFResult CVariable_SetContent(CVariable *variable, const void *source) {
    if (variable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (variable->accessType != ByValue) {
        AF_TRACE(eAF_E_WRONG_ACCESS,
                 "Wrong access type - attempt to use SetContent for a variable with ByReference access");
        return eAF_E_WRONG_ACCESS;
    }
    return copyContent(*variable, variable->content, source);
}

EAFResult CVariable_GetContent(CVariable *variable, void *destination) {
    if (variable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (variable->accessType != ByValue) {
        AF_TRACE(eAF_E_WRONG_ACCESS,
                 "Wrong access type - attempt to use GetContent for a variable with ByReference access");
        return eAF_E_WRONG_ACCESS;
    }
    return copyContent(*variable, destination, variable->content);
}

EAFResult CVariable_GetContentAddress(CVariable *variable, void **out) {
    if (variable == nullptr || out == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *out = variable->content;
    return eAF_S_OK;
}

EAFResult CVariable_GetDefaultContentAddress(CVariable *variable, void **out) {
    if (variable == nullptr || out == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *out = variable->defaultContent;
    return eAF_S_OK;
}

EAFResult CVariable_GetName(CVariable *variable, const char **out) {
    if (variable == nullptr || out == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "CVariable_GetName was called with a null parameter");
        return eAF_E_INVALID_ARGUMENT;
    }
    *out = nullptr;
    if (variable->name[0] == '\0') {
        return eAF_E_FAILED;
    }
    *out = variable->name;
    return eAF_S_OK;
}

EAFResult CVariable_GetPath(CVariable *variable, const char **out) {
    if (variable == nullptr || out == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *out = variable->path;
    return eAF_S_OK;
}

EAFResult CVariable_SetPath(CVariable *variable, const char *a, const char *b, const char *c) {
    if (variable == nullptr || a == nullptr || b == nullptr || c == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    af::joinBounded(variable->path, a, b, c);
    return eAF_S_OK;
}

uint32_t CVariable_GetNoOfElements(CVariable *variable) {
    return variable != nullptr ? variable->noOfElements : 0;
}

EVariableType CVariable_GetType(CVariable *variable) {
    return variable != nullptr ? variable->type : TYPE_INT8;
}

EAccessType CVariable_GetAccessType(CVariable *variable) {
    return variable != nullptr ? variable->accessType : ByReference;
}

void CVariable_SetRetrieved(CVariable *variable, uint32_t flag) {
    if (variable != nullptr) {
        variable->retrieved = flag;
    }
}

uint32_t CVariable_IsRetrieved(CVariable *variable) {
    return variable != nullptr ? variable->retrieved : 0;
}

void CVariable_SetDynamicallyAllocated(CVariable *variable, uint32_t flag) {
    if (variable != nullptr) {
        variable->dynamicallyAllocated = flag;
    }
}

uint32_t CVariable_IsDynamicallyAllocated(CVariable *variable) {
    return variable != nullptr ? variable->dynamicallyAllocated : 0;
}

EAFResult CVariable_Lock(CVariable *variable) {
    if (variable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    AF_TRACE(eAF_DEBUG, "Locking variable %s", variable->name);
    if (pthread_mutex_lock(&variable->mutex) != 0) {
        AF_TRACE(eAF_E_MUTEX_ERROR, "Can't lock mutex");
        return eAF_E_MUTEX_ERROR;
    }
    return eAF_S_OK;
}

EAFResult CVariable_UnLock(CVariable *variable) {
    if (variable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    AF_TRACE(eAF_DEBUG, "Unlocking variable %s", variable->name);
    if (pthread_mutex_unlock(&variable->mutex) != 0) {
        AF_TRACE(eAF_E_MUTEX_ERROR, "Can't unlock mutex");
        return eAF_E_MUTEX_ERROR;
    }
    return eAF_S_OK;
}
