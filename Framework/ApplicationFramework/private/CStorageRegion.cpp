#include "CStorageRegion.h"

#include <cstring>

#include "AfTrace.h"
#include "BoundedText.h"
#include "StorageList.h"

void CStorageRegion_Construct(CStorageRegion *region, char const *name, unsigned long locationId) {
    if (region == nullptr) {
        return;
    }
    region->dynamicallyAllocated = 0;
    region->objects = {};
    region->locationId = locationId;
    region->reservedSize = 0;
    af::copyBounded(region->name, name);
    AF_TRACE(eAF_DEBUG, "CStorageRegion %s created", name != nullptr ? name : "(null)");
}

void CStorageRegion_Destruct(CStorageRegion *region) {
    if (region == nullptr) {
        return;
    }
    while (region->objects.head != nullptr) {
        auto *object = static_cast<CStorageObject *>(af::popFront(region->objects));
        const bool isOwned = CStorageObject_IsDynamicallyAllocated(object) != 0;
        CStorageObject_Destruct(object);
        if (isOwned) {
            delete[] object;
        }
    }
}

EAFResult CStorageRegion_GetName(CStorageRegion *region, char **ppName) {
    if (region == nullptr || ppName == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *ppName = region->name;
    return region->name[0] != '\0' ? eAF_S_OK : eAF_E_FAILED;
}

unsigned long CStorageRegion_GetLocationId(CStorageRegion *region) {
    return region != nullptr ? region->locationId : 0;
}

EAFResult CStorageRegion_AddObject(CStorageRegion *region, CStorageObject *object) {
    if (region == nullptr || object == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    char *name = nullptr;
    if (af::isError(CStorageObject_GetName(object, &name))) {
        return eAF_E_FAILED;
    }
    for (CStorageObject *present : af::ElementsOf<CStorageObject>(region->objects)) {
        char *presentName = nullptr;
        if (!af::isError(CStorageObject_GetName(present, &presentName)) && std::strcmp(presentName, name) == 0) {
            return eAF_W_ALREADY_REGISTERED;
        }
    }
    return af::pushBack(region->objects, object) ? eAF_S_OK : eAF_E_OUT_OF_MEMORY;
}

uint32_t CStorageRegion_GetNoOfObjects(CStorageRegion *region) {
    return region != nullptr ? region->objects.count : 0;
}

EAFResult CStorageRegion_ReserveSize(CStorageRegion *region, unsigned long size) {
    if (region == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    region->reservedSize = size;
    return eAF_S_OK;
}

EAFResult CStorageRegion_GetReservedSize(CStorageRegion *region, unsigned long *pSize) {
    if (region == nullptr || pSize == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *pSize = region->reservedSize;
    return eAF_S_OK;
}

EAFResult CStorageRegion_GetSizeInBytes(CStorageRegion *region, unsigned long *pSize) {
    if (region == nullptr || pSize == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *pSize = 0;
    for (CStorageObject *object : af::ElementsOf<CStorageObject>(region->objects)) {
        unsigned long objectSize = 0;
        if (af::isError(CStorageObject_GetSizeInBytes(object, &objectSize))) {
            return eAF_E_FAILED;
        }
        *pSize += objectSize;
    }
    return eAF_S_OK;
}

uint32_t CStorageRegion_IsEmpty(CStorageRegion *region) {
    return region == nullptr || region->objects.count == 0 ? 1 : 0;
}

void CStorageRegion_SetDynamicallyAllocated(CStorageRegion *region, unsigned int flag) {
    if (region != nullptr) {
        region->dynamicallyAllocated = flag;
    }
}

uint32_t CStorageRegion_IsDynamicallyAllocated(CStorageRegion *region) {
    return region != nullptr ? region->dynamicallyAllocated : 0;
}
