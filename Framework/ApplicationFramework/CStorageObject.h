/// @file
/// A named container of variables. Objects nest. A plain record; the caller provides its memory.
///
/// Nesting     A child is reached through a TYPE_OBJECT variable of its parent whose content address is the child
///             itself (give &child as contentAddress), or as an element of a TYPE_OBJECT_ARRAY variable. The walks
///             of a database and the destructor of the variable then find it. CStorageObject_AddObject makes a
///             variable that only carries the child's address: by name it is found, walks do not pass it.
/// Ownership   An object frees the variables that are marked dynamically allocated, its region the object that is, a
///             TYPE_OBJECT or TYPE_OBJECT_ARRAY variable the nested object that is, all with delete[]. A marked object
///             therefore has one place only: behind two variables, or behind one and in a region, it is freed twice.
/// Depth       Walks and destructors go down one call a level: a stack of 64 KiB holds some hundred levels.
/// Threads     No lock; one thread at a time.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "CList.h"
#include "CVariable.h"
#include "EAFResult.h"

AF_EXTERN_C_BEGIN

typedef struct CStorageObject {
    uint32_t dynamicallyAllocated; ///< 1: its owner frees it with delete[] after destructing it.
    CList variables;               ///< CVariable pointers in the order in which they came.
    uint32_t reservedSize;
    char name[120]; ///< At most 119 bytes of the name given.
    void *rawObjectContentAddress;
    uintptr_t applicationData;
    uint32_t writable; ///< 1 after construction.
} CStorageObject;

/// The arguments of CVariable_Construct, in their order.
typedef struct SVariableDescriptor {
    void *contentAddress;
    EVariableType type;
    uint32_t noOfElements;
    const char *name;
    void *defaultContentAddress;
} SVariableDescriptor;

/// Makes an empty, writable object in the caller's record; a null name counts as empty.
AF_API void CStorageObject_Construct(CStorageObject *object, const char *name);

/// Destructs every variable, with the objects nested in it, and frees the marked ones; an object that contains itself
/// is destructed once. A child made known by CStorageObject_AddObject stays alone, and so does the memory of the
/// variable that carried its address. A list that gives nothing up is traced, and the rest is left as it is.
AF_API void CStorageObject_Destruct(CStorageObject *object);

/// Tells the object's name.
/// @param ppName  receives the record's own text, also when that is empty.
/// @retval eAF_E_FAILED  the name is empty.
AF_API EAFResult CStorageObject_GetName(CStorageObject *object, char **ppName);

/// Makes variables, in array order, that belong to the object.
/// @retval eAF_E_NAME_NOT_UNIQUE   a name is taken, also by an earlier descriptor; those before it stay.
/// @retval eAF_E_FAILED            a variable could not be appended, and is nobody's then; those before it stay.
/// @retval eAF_E_OUT_OF_MEMORY     those before it stay.
/// @retval eAF_E_INVALID_ARGUMENT  null argument or a count of 0.
AF_API EAFResult CStorageObject_CreateVariables(CStorageObject *object, SVariableDescriptor *descriptors,
                                                unsigned long count);

/// Adds a variable that stays its creator's unless it is marked dynamically allocated.
/// @retval eAF_E_FAILED           its name is empty, or it could not be appended.
/// @retval eAF_E_NAME_NOT_UNIQUE  a variable has that name.
AF_API EAFResult CStorageObject_AddVariable(CStorageObject *object, CVariable *variable);

/// Adds a TYPE_OBJECT variable of the child's name whose content holds the child's address. Walks take that content
/// for an object, find it without a name, and fail: see Nesting above. The child stays the caller's. Nobody frees the
/// variable's memory; a caller that fetched it may, once the parent no longer lists it.
/// @retval eAF_E_FAILED           the child's name is empty, or the variable could not be appended.
/// @retval eAF_E_NAME_NOT_UNIQUE  a variable has the child's name.
AF_API EAFResult CStorageObject_AddObject(CStorageObject *parent, CStorageObject *child);

/// Begins to go through the object's own variables.
/// @param iterator  receives the place of the first variable.
/// @retval eAF_W_NO_MORE_DATA  the object is empty.
AF_API EAFResult CStorageObject_GetVariableIterator(CStorageObject *object, CListIterator *iterator);

/// Hands out the variable at the iterator and moves on.
/// @param ppVariable  receives the variable; null when the call failed.
/// @retval eAF_W_NO_MORE_DATA  this variable is valid and the last one.
/// @retval eAF_E_FAILED        there is no further one.
AF_API EAFResult CStorageObject_GetNextVariable(CStorageObject *object, CVariable **ppVariable,
                                                CListIterator *iterator);

/// @return the number of the object's own variables; 0 for null.
AF_API uint32_t CStorageObject_GetNoOfVariables(CStorageObject *object);

/// Searches the object's own variables, not those of nested objects. The name is logged at level 7 of the trace
/// domain "ZEL.AF.STOR.ACC".
/// @param ppVariable  receives the variable, null when there is none.
/// @return 1 when found, else 0; each null argument is traced with eAF_E_INVALID_ARGUMENT.
AF_API uint32_t CStorageObject_GetVariableByName(CStorageObject *object, const char *name, CVariable **ppVariable);

/// Kept for storage providers; the library does not read it. @return eAF_S_OK.
AF_API EAFResult CStorageObject_ReserveSize(CStorageObject *object, unsigned long size);

/// Adds up what the variables hold.
/// @param pSize  receives the sum of the variables' content sizes; a nested object counts as its pointer.
/// @retval eAF_E_FAILED  the list could not be read; the sum is partial.
AF_API EAFResult CStorageObject_GetSizeInBytes(CStorageObject *object, unsigned long *pSize);

/// @return non-zero when the object has no variable.
AF_API uint32_t CStorageObject_IsEmpty(CStorageObject *object);

/// Words of the application, opaque here; 0 after construction.
/// @retval eAF_E_FAILED  the word is 0 (the getters, which write it all the same).
AF_API EAFResult CStorageObject_SetRawObjectContentAddress(CStorageObject *object, void *address);
AF_API EAFResult CStorageObject_GetRawObjectContentAddress(CStorageObject *object, void **pAddress);
AF_API void CStorageObject_SetApplicationData(CStorageObject *object, uintptr_t data);
AF_API EAFResult CStorageObject_GetApplicationData(CStorageObject *object, uintptr_t *pData);

/// Kept for storage providers; the library does not read it.
AF_API void CStorageObject_SetWritable(CStorageObject *object, unsigned int flag);
AF_API uint32_t CStorageObject_IsWritable(CStorageObject *object);

/// Marks the object as one that its owner frees, with delete[], or takes the mark off.
AF_API void CStorageObject_SetDynamicallyAllocated(CStorageObject *object, unsigned int flag);

/// @return the flag; 0 for null, traced with eAF_E_INVALID_ARGUMENT.
AF_API uint32_t CStorageObject_IsDynamicallyAllocated(CStorageObject *object);

AF_EXTERN_C_END
