/// @file
/// The regions of one storage location, the table from full path to variable, and the walk over every variable.
///
/// Paths      "region/object/variable"; a nested object adds its own name: "region/object/nested/variable". At most
///            511 bytes, longer ones are cut.
/// Ownership  A region is destructed when it is removed or the database is destructed, and freed, with delete[],
///            when it is marked dynamically allocated.
/// Threads    No lock. All databases share the buffers of the walk: one walk at a time in the process. An action
///            neither walks nor adds or removes anything.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "CHashTable.h"
#include "CStorageRegion.h"
#include "CVariable.h"
#include "EAFResult.h"

AF_EXTERN_C_BEGIN

typedef struct CDatabase {
    SStorageList regions; ///< CStorageRegion pointers in the order in which they came.
    CHashTable pathHashTable;
    signed long noOfVariablesProcessed; ///< Plain variables that the last walk met.
} CDatabase;

/// What a walk does on a plain variable. The texts are the walk's own and change with the next variable.
/// @return a code; an error is traced "Could not do operation on variable %s", and the walk goes on and succeeds.
typedef EAFResult (*DatabaseAction)(CDatabase *database, CVariable *variable, const char *fullPath,
                                    const char *regionName, const char *objectPath, const char *variableName);

/// Makes an empty database in the caller's record.
/// @param hashTableSize  how many paths to make room for. Without memory nothing is ever found by path.
AF_API void CDatabase_Construct(CDatabase *database, unsigned long hashTableSize);

/// Gives up every region and the table; the record stays the caller's.
AF_API void CDatabase_Destruct(CDatabase *database);

/// Adds a region behind the others.
/// @retval eAF_W_ALREADY_REGISTERED  a region of that name is there; nothing is added.
/// @retval eAF_E_FAILED              null database or region, or the region's name is empty.
AF_API EAFResult CDatabase_AddRegion(CDatabase *database, CStorageRegion *region);

/// @return the number of regions; 0 for null.
AF_API uint32_t CDatabase_GetNoOfRegions(CDatabase *database);

/// Finds the region of that name.
/// @param ppRegion  receives the region, null when there is none.
/// @retval eAF_E_UNKNOWN_REGION  no region has that name.
AF_API EAFResult CDatabase_GetRegionByName(CDatabase *database, char const *name, CStorageRegion **ppRegion);

/// Destructs the region. Its variables' paths stay in the table and lead to variables that are no more: such a
/// pointer must not be used.
/// @retval eAF_E_UNKNOWN_REGION  no region has that name; traced.
AF_API EAFResult CDatabase_RemoveRegion(CDatabase *database, char const *name);

/// Searches the variables that top-level objects hold themselves, in order; linear. A null name is traced by each
/// object that is searched, and found nowhere.
/// @param ppVariable  receives the variable, null when there is none.
/// @retval eAF_E_UNKNOWN_VARIABLE  no such variable; not traced.
AF_API EAFResult CDatabase_GetVariableByName(CDatabase *database, char const *name, CVariable **ppVariable);

/// Looks a full path up in the table; one probe.
/// @retval eAF_E_VARIABLE_HASH_TABLE_EMPTY  the table has no entry; @p ppVariable is left alone. Not traced.
/// @retval eAF_E_UNKNOWN_VARIABLE           no such path; @p ppVariable receives null. Traced at a debug level.
AF_API EAFResult CDatabase_GetVariableByPath(CDatabase *database, char const *path, CVariable **ppVariable);

/// Runs an action on every plain variable that the regions lead to, through nested objects and object arrays. It is
/// how a storage provider visits the variables. An object that contains itself fails instead of being walked for
/// ever.
/// Each region and the number of variables are traced at debug level.
/// @retval eAF_E_FAILED         a nested object or an object could not be walked; the others were. Each is traced.
/// @retval eAF_E_OUT_OF_MEMORY  only where objects lie more than sixteen inside one another; actions may have run.
/// @return else eAF_S_OK, also when actions failed; the code of a region name that could not be read ends the walk.
AF_API EAFResult CDatabase_DoVariableOperation(CDatabase *database, DatabaseAction action);

/// Walks that file each variable's path, in the table and in the variable; clear each retrieved flag; give each
/// variable that is not retrieved its default. After the last every retrieved flag is clear; it traces each variable
/// that has neither a value nor a default, at debug level.
/// @return as CDatabase_DoVariableOperation.
AF_API EAFResult CDatabase_UpdatePathHashTable(CDatabase *database);
AF_API EAFResult CDatabase_SetAsNotRetrieved(CDatabase *database);
AF_API EAFResult CDatabase_SetNotRetrievedVariablesToDefault(CDatabase *database);

AF_EXTERN_C_END
