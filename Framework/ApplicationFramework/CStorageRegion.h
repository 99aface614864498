/// @file
/// A named list of top-level objects that belongs to one storage location. A plain record; the caller provides
/// its memory. No lock; one thread at a time.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "CStorageObject.h"
#include "EAFResult.h"

AF_EXTERN_C_BEGIN

struct SStorageListNode;

/// A doubly linked list of borrowed pointers; the list owns its nodes. All zero is an empty list.
typedef struct SStorageList {
    struct SStorageListNode *head;
    struct SStorageListNode *tail;
    uint32_t count;
} SStorageList;

typedef struct CStorageRegion {
    uint32_t dynamicallyAllocated; ///< 1: the database that gives the region up frees it with delete[].
    SStorageList objects;          ///< CStorageObject pointers in the order in which they came.
    unsigned long locationId;
    unsigned long reservedSize;
    char name[40]; ///< At most 39 bytes of the name given.
} CStorageRegion;

/// Makes an empty region in the caller's record; a null name counts as empty. Traces "CStorageRegion %s created" at
/// debug level, with the whole name.
AF_API void CStorageRegion_Construct(CStorageRegion *region, char const *name, unsigned long locationId);

/// Destructs every object, frees the marked ones, and leaves the region empty.
AF_API void CStorageRegion_Destruct(CStorageRegion *region);

/// Tells the region's name.
/// @param ppName  receives the record's own text, also when that is empty.
/// @retval eAF_E_FAILED  the name is empty.
AF_API EAFResult CStorageRegion_GetName(CStorageRegion *region, char **ppName);

/// @return the location that the region was made for; 0 for null.
AF_API unsigned long CStorageRegion_GetLocationId(CStorageRegion *region);

/// Adds an object behind the others.
/// @retval eAF_W_ALREADY_REGISTERED  an object of that name is there; nothing is added.
/// @retval eAF_E_FAILED              the object's name is empty.
AF_API EAFResult CStorageRegion_AddObject(CStorageRegion *region, CStorageObject *object);

/// @return the number of top-level objects; 0 for null.
AF_API uint32_t CStorageRegion_GetNoOfObjects(CStorageRegion *region);

/// Kept for storage providers; the library does not use it. @return eAF_S_OK.
AF_API EAFResult CStorageRegion_ReserveSize(CStorageRegion *region, unsigned long size);
AF_API EAFResult CStorageRegion_GetReservedSize(CStorageRegion *region, unsigned long *pSize);

/// Adds up what the objects' variables hold.
/// @param pSize  receives the sum of the objects' sizes.
/// @retval eAF_E_FAILED  an object's size could not be had; the sum is partial.
AF_API EAFResult CStorageRegion_GetSizeInBytes(CStorageRegion *region, unsigned long *pSize);

/// @return 1 when the region has no object, else 0.
AF_API uint32_t CStorageRegion_IsEmpty(CStorageRegion *region);

/// The mark of a region that the database frees, with delete[], when it gives it up.
AF_API void CStorageRegion_SetDynamicallyAllocated(CStorageRegion *region, unsigned int flag);
AF_API uint32_t CStorageRegion_IsDynamicallyAllocated(CStorageRegion *region);

AF_EXTERN_C_END
