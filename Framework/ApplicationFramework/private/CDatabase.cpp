#include "CDatabase.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "AfTrace.h"
#include "BoundedText.h"
#include "DatabaseContents.h"
#include "OutOfMemory.h"
#include "StorageList.h"
#include "WalkPaths.h"

namespace {

// Shared by every database: only one walk runs at a time.
char fullPathBuffer[512];
char messageBuffer[150];

void destructRegion(CStorageRegion *region) {
    const bool isOwned = CStorageRegion_IsDynamicallyAllocated(region) != 0;
    CStorageRegion_Destruct(region);
    if (isOwned) {
        delete[] region;
    }
}

/// The objects that a walk is inside of. One that contains itself would otherwise be walked for ever.
struct EnteredObject {
    const CStorageObject *object;
    const EnteredObject *outer;
};

bool isEntered(const EnteredObject *innermost, const CStorageObject *object) {
    for (const EnteredObject *entered = innermost; entered != nullptr; entered = entered->outer) {
        if (entered->object == object) {
            return true;
        }
    }
    return false;
}

/// Meets the plain variables that a walk meets, without a word and without memory.
template <class Visit>
void visitQuietly(af::CutPath &path, CStorageObject *object, const EnteredObject *outer, Visit visit) {
    char *name = nullptr;
    if (af::isError(CStorageObject_GetName(object, &name)) || isEntered(outer, object)) {
        return;
    }
    const EnteredObject entered{object, outer};
    const std::size_t outerLength = path.length();
    path.append("/");
    path.append(name);
    CListIterator iterator{};
    EAFResult result = CStorageObject_GetVariableIterator(object, &iterator);
    while (!af::isError(result) && result != eAF_W_NO_MORE_DATA) {
        CVariable *variable = nullptr;
        result = CStorageObject_GetNextVariable(object, &variable, &iterator);
        if (variable == nullptr) {
            continue;
        }
        if (variable->type == TYPE_OBJECT) {
            visitQuietly(path, static_cast<CStorageObject *>(variable->content), &entered, visit);
        } else if (variable->type != TYPE_OBJECT_ARRAY) {
            visit(*variable);
        } else if (variable->content != nullptr) {
            for (std::uint32_t i = 0; i < variable->noOfElements; ++i) {
                visitQuietly(path, static_cast<CStorageObject **>(variable->content)[i], &entered, visit);
            }
        }
    }
    path.cutTo(outerLength);
}

struct Walk {
    CDatabase *database = nullptr;
    DatabaseAction action = nullptr;
    bool usesPaths = false; ///< The full path is made for the action.
    const char *regionName = nullptr;
    af::ObjectPath objectPath{}; ///< Of the innermost object.
};

/// The object whose path the buffer begins with, up to its variables' names: they are put there one after another.
const EnteredObject *prefixOwner = nullptr;
std::size_t prefixLength = 0;

EAFResult CDatabase_DoObjectOperation(Walk &walk, CStorageObject *object, const EnteredObject *outer);

EAFResult enterNestedObject(Walk &walk, CStorageObject *object, const EnteredObject *outer) {
    if (object != nullptr && isEntered(outer, object)) {
        return eAF_E_FAILED;
    }
    const std::size_t parentLength = walk.objectPath.length();
    const EAFResult result = CDatabase_DoObjectOperation(walk, object, outer);
    walk.objectPath.cutTo(parentLength);
    return result;
}

/// @return whether everything inside could be walked.
bool walkNestedObject(Walk &walk, CVariable *variable, const EnteredObject *outer) {
    void *content = nullptr;
    if (af::isError(CVariable_GetContentAddress(variable, &content))) {
        AF_TRACE_AS("CDatabase_DoObjectOperation", eAF_E_FAILED, "CVariable_GetContentAddress() failed");
        return false;
    }
    // The content itself is the object, not a pointer to it.
    if (af::isError(enterNestedObject(walk, static_cast<CStorageObject *>(content), outer))) {
        AF_TRACE_AS("CDatabase_DoObjectOperation", eAF_E_FAILED, "Failed to handle nested object");
        return false;
    }
    return true;
}

/// @return whether everything inside could be walked.
bool walkObjectArray(Walk &walk, CVariable *variable, const EnteredObject *outer) {
    void *content = nullptr;
    if (af::isError(CVariable_GetContentAddress(variable, &content))) {
        AF_TRACE_AS("CDatabase_DoObjectOperation", eAF_E_FAILED, "CVariable_GetContentAddress() failed");
        return false;
    }
    bool isWhole = true;
    auto **elements = static_cast<CStorageObject **>(content);
    for (std::uint32_t i = 0; i < CVariable_GetNoOfElements(variable); ++i) {
        if (af::isError(enterNestedObject(walk, elements != nullptr ? elements[i] : nullptr, outer))) {
            AF_TRACE_AS("CDatabase_DoObjectOperation", eAF_E_FAILED, "Failed to handle object array element");
            isWhole = false;
        }
    }
    return isWhole;
}

void makeFullPath(const Walk &walk, const EnteredObject &object, const char *name) {
    if (prefixOwner != &object) {
        prefixLength = af::joinBounded(fullPathBuffer, walk.regionName, walk.objectPath.text(), "");
        prefixOwner = &object;
    }
    af::appendBounded(fullPathBuffer, prefixLength, name);
}

/// @return an error only when the variable's name can not be read.
EAFResult walkPlainVariable(Walk &walk, CVariable *variable, const EnteredObject &object) {
    ++walk.database->noOfVariablesProcessed;
    const char *name = nullptr;
    const EAFResult named = CVariable_GetName(variable, &name);
    if (af::isError(named)) {
        AF_TRACE_AS("CDatabase_DoObjectOperation", named, "Could not get variable name");
        return named;
    }
    if (walk.usesPaths) {
        makeFullPath(walk, object, name);
    }
    const EAFResult done =
        walk.action(walk.database, variable, fullPathBuffer, walk.regionName, walk.objectPath.text(), name);
    if (af::isError(done)) {
        std::snprintf(messageBuffer, sizeof messageBuffer, "Could not do operation on variable %s", name);
        AF_TRACE_AS("CDatabase_DoObjectOperation", done, "%s", messageBuffer);
    }
    return eAF_S_OK;
}

/// Appends the object's own name to the walk's path; who called takes it off again.
EAFResult CDatabase_DoObjectOperation(Walk &walk, CStorageObject *object, const EnteredObject *outer) {
    char *name = nullptr;
    const EAFResult named = CStorageObject_GetName(object, &name);
    if (af::isError(named)) {
        AF_TRACE(named, "Could not get object name");
        return named;
    }
    if (outer != nullptr) {
        walk.objectPath.append("/");
    }
    walk.objectPath.append(name);
    CListIterator iterator{};
    EAFResult result = CStorageObject_GetVariableIterator(object, &iterator);
    if (af::isError(result)) {
        AF_TRACE(result, "Could not get variable iterator");
        return result;
    }
    const EnteredObject entered{object, outer};
    prefixOwner = nullptr; // one that has ended may have stood where this one stands
    bool isWhole = true;
    while (result != eAF_W_NO_MORE_DATA) {
        CVariable *variable = nullptr;
        result = CStorageObject_GetNextVariable(object, &variable, &iterator);
        if (af::isError(result)) {
            AF_TRACE(result, "Could not get variable");
            return result;
        }
        const EVariableType type = CVariable_GetType(variable);
        if (type == TYPE_OBJECT) {
            isWhole = walkNestedObject(walk, variable, &entered) && isWhole;
        } else if (type == TYPE_OBJECT_ARRAY) {
            isWhole = walkObjectArray(walk, variable, &entered) && isWhole;
        } else {
            const EAFResult walked = walkPlainVariable(walk, variable, entered);
            if (af::isError(walked)) {
                return walked;
            }
        }
    }
    return isWhole ? eAF_S_OK : eAF_E_FAILED;
}

EAFResult walkRegions(CDatabase *database, DatabaseAction action, bool usesPaths) {
    database->noOfVariablesProcessed = 0;
    Walk walk{database, action, usesPaths};
    bool isWhole = true;
    for (CStorageRegion *region : af::ElementsOf<CStorageRegion>(database->regions)) {
        char *regionName = nullptr;
        const EAFResult named = CStorageRegion_GetName(region, &regionName);
        if (af::isError(named)) {
            AF_TRACE_AS("CDatabase_DoVariableOperation", named, "Could not get region name");
            return named;
        }
        AF_TRACE_AS("CDatabase_DoVariableOperation", eAF_DEBUG, "Processing region: %s", regionName);
        walk.regionName = regionName;
        for (CStorageObject *object : af::ElementsOf<CStorageObject>(region->objects)) {
            walk.objectPath.cutTo(0);
            isWhole = !af::isError(CDatabase_DoObjectOperation(walk, object, nullptr)) && isWhole;
        }
    }
    AF_TRACE_AS("CDatabase_DoVariableOperation", eAF_DEBUG, "Number of variables processed: %ld",
                database->noOfVariablesProcessed);
    return isWhole ? eAF_S_OK : eAF_E_FAILED;
}

EAFResult CDatabase_ActionUpdateHash(CDatabase *database, CVariable *variable, const char *fullPath,
                                     const char *regionName, const char *objectPath, const char *variableName) {
    const std::uint32_t filed = CHashTable_Set(&database->pathHashTable, fullPath, variable);
    if (af::isError(filed)) {
        AF_TRACE(filed, "Could not add to variable hash table");
        return eAF_E_COULD_NOT_ADD_TO_VARIABLE_HASH_TABLE;
    }
    const EAFResult named = CVariable_SetPath(variable, regionName, objectPath, variableName);
    if (af::isError(named)) {
        AF_TRACE(named, "Could not set variable path in variable %s", variableName);
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

EAFResult walkWithoutPaths(CDatabase *database, DatabaseAction action) {
    if (database == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return af::withOutOfMemoryAsCode([&] { return walkRegions(database, action, false); });
}

EAFResult CDatabase_ActionSetAsNotRetrieved(CDatabase * /*database*/, CVariable *variable, const char * /*fullPath*/,
                                            const char * /*regionName*/, const char * /*objectPath*/,
                                            const char * /*variableName*/) {
    CVariable_SetRetrieved(variable, 0);
    return eAF_S_OK;
}

void traceMissing(CVariable *variable, const char *variableName, bool hasDefault) {
    const char *path = nullptr;
    if (!af::isError(CVariable_GetPath(variable, &path)) && path != nullptr) {
        if (!hasDefault) {
            AF_TRACE_AS("CDatabase_ActionSetToDefault", eAF_DEBUG,
                        "Variable %s missing in storage, default value not available (variable path: %s", variableName,
                        path);
        }
    } else if (hasDefault) {
        AF_TRACE_AS("CDatabase_ActionSetToDefault", eAF_W_VARIABLE_MISSING_IN_STORAGE,
                    "**WARNING** Variable %s missing in storage, applying default value", variableName);
    } else {
        AF_TRACE_AS("CDatabase_ActionSetToDefault", eAF_W_VARIABLE_MISSING_IN_STORAGE,
                    "**WARNING** Variable %s missing in storage, default value not available", variableName);
    }
}

EAFResult CDatabase_ActionSetToDefault(CDatabase * /*database*/, CVariable *variable, const char * /*fullPath*/,
                                       const char * /*regionName*/, const char * /*objectPath*/,
                                       const char *variableName) {
    const EVariableType type = CVariable_GetType(variable);
    if (CVariable_IsRetrieved(variable) != 0 || type == TYPE_OBJECT || type == TYPE_OBJECT_ARRAY) {
        CVariable_SetRetrieved(variable, 0);
        return eAF_S_OK;
    }
    void *content = nullptr;
    const EAFResult found = CVariable_GetContentAddress(variable, &content);
    if (af::isError(found)) {
        AF_TRACE(found, "Could not get variable content address");
        return found;
    }
    if (content == nullptr) {
        AF_TRACE(eAF_E_FAILED, "Content address was nullptr!");
        return eAF_E_FAILED;
    }
    void *defaultContent = nullptr;
    const EAFResult defaultFound = CVariable_GetDefaultContentAddress(variable, &defaultContent);
    if (af::isError(defaultFound)) {
        AF_TRACE(defaultFound, "Could not get variable default content address");
        return defaultFound;
    }
    if (defaultContent != nullptr && defaultContent != content) {
        std::memmove(content, defaultContent, CVariable_GetSizeInBytes(variable)); // the two may overlap
    }
    traceMissing(variable, variableName, defaultContent != nullptr);
    CVariable_SetRetrieved(variable, 0);
    return eAF_S_OK;
}

// The table never forgets a path. Where it leads to a variable that was freed with its region, the lowest bit of the
// value says so; a record's address has none.
bool variablesWereFreed = false;

bool isMarkedFreed(const void *value) {
    return (reinterpret_cast<std::uintptr_t>(value) & 1) != 0;
}

void *withMark(CVariable *variable) {
    return reinterpret_cast<char *>(variable) + 1;
}

CVariable *withoutMark(void *value) {
    return static_cast<CVariable *>(static_cast<void *>(static_cast<char *>(value) - (isMarkedFreed(value) ? 1 : 0)));
}

/// Before the region is destructed.
void markThoseToBeFreed(CDatabase &database, CStorageRegion &region) {
    af::CutPath path;
    path.append(region.name);
    const auto mark = [&database, &path](CVariable &variable) {
        if (variable.dynamicallyAllocated == 0) {
            return;
        }
        const std::size_t objectLength = path.length();
        path.append("/");
        path.append(variable.name);
        void *filed = nullptr;
        if (!af::isError(CHashTable_Get(&database.pathHashTable, path.text(), &filed)) && filed == &variable) {
            CHashTable_Set(&database.pathHashTable, path.text(), withMark(&variable));
            variablesWereFreed = true;
        }
        path.cutTo(objectLength);
    };
    for (CStorageObject *object : af::ElementsOf<CStorageObject>(region.objects)) {
        visitQuietly(path, object, nullptr, mark);
    }
}

} // namespace

EAFResult af::constructDatabase(CDatabase &database, unsigned long hashTableSize) {
    database.regions = {};
    database.noOfVariablesProcessed = 0;
    const std::uint32_t result = CHashTable_Construct(&database.pathHashTable, hashTableSize);
    return isError(result) ? eAF_E_OUT_OF_MEMORY : eAF_S_OK;
}

bool af::wereVariablesFreed() {
    return variablesWereFreed;
}

bool af::find(const CDatabase &database, const char *path, bool &isFreed) {
    void *value = nullptr;
    const bool isFound = !isError(CHashTable_Get(&database.pathHashTable, path, &value));
    isFreed = isFound && isMarkedFreed(value);
    return isFound;
}

void CDatabase_Construct(CDatabase *database, unsigned long hashTableSize) {
    if (database != nullptr) {
        af::constructDatabase(*database, hashTableSize);
    }
}

void CDatabase_Destruct(CDatabase *database) {
    if (database == nullptr) {
        return;
    }
    while (database->regions.head != nullptr) {
        auto *region = static_cast<CStorageRegion *>(af::popFront(database->regions));
        if (region != nullptr) {
            destructRegion(region);
        }
    }
    CHashTable_Destruct(&database->pathHashTable);
}

EAFResult CDatabase_AddRegion(CDatabase *database, CStorageRegion *region) {
    char *name = nullptr;
    if (database == nullptr || af::isError(CStorageRegion_GetName(region, &name))) {
        return eAF_E_FAILED;
    }
    for (CStorageRegion *present : af::ElementsOf<CStorageRegion>(database->regions)) {
        char *presentName = nullptr;
        if (!af::isError(CStorageRegion_GetName(present, &presentName)) && std::strcmp(presentName, name) == 0) {
            return eAF_W_ALREADY_REGISTERED;
        }
    }
    return af::pushBack(database->regions, region) ? eAF_S_OK : eAF_E_OUT_OF_MEMORY;
}

uint32_t CDatabase_GetNoOfRegions(CDatabase *database) {
    return database != nullptr ? database->regions.count : 0;
}

EAFResult CDatabase_GetRegionByName(CDatabase *database, char const *name, CStorageRegion **ppRegion) {
    if (database == nullptr || ppRegion == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *ppRegion = nullptr;
    if (name == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    for (CStorageRegion *region : af::ElementsOf<CStorageRegion>(database->regions)) {
        char *regionName = nullptr;
        if (!af::isError(CStorageRegion_GetName(region, &regionName)) && std::strcmp(regionName, name) == 0) {
            *ppRegion = region;
            return eAF_S_OK;
        }
    }
    return eAF_E_UNKNOWN_REGION;
}

EAFResult CDatabase_RemoveRegion(CDatabase *database, char const *name) {
    CStorageRegion *region = nullptr;
    const EAFResult found = CDatabase_GetRegionByName(database, name, &region);
    if (af::isError(found)) {
        AF_TRACE(found, "Could not get region");
        return found;
    }
    const bool isOwned = CStorageRegion_IsDynamicallyAllocated(region) != 0;
    markThoseToBeFreed(*database, *region);
    CStorageRegion_Destruct(region);
    for (SStorageListNode *node = database->regions.head; node != nullptr;) {
        SStorageListNode *next = node->next;
        if (node->element == region) {
            af::remove(database->regions, node);
        }
        node = next;
    }
    if (isOwned) {
        delete[] region;
    }
    return eAF_S_OK;
}

EAFResult CDatabase_GetVariableByName(CDatabase *database, char const *name, CVariable **ppVariable) {
    if (database == nullptr || ppVariable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *ppVariable = nullptr;
    for (CStorageRegion *region : af::ElementsOf<CStorageRegion>(database->regions)) {
        for (CStorageObject *object : af::ElementsOf<CStorageObject>(region->objects)) {
            if (CStorageObject_GetVariableByName(object, name, ppVariable) != 0) {
                return eAF_S_OK;
            }
        }
    }
    return eAF_E_UNKNOWN_VARIABLE;
}

EAFResult CDatabase_GetVariableByPath(CDatabase *database, char const *path, CVariable **ppVariable) {
    if (database == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    void *value = nullptr;
    const bool isAsked = path != nullptr && ppVariable != nullptr;
    const bool isFound = isAsked && !af::isError(CHashTable_Get(&database->pathHashTable, path, &value));
    // An empty table is told before wrong arguments, but need not be asked where the path was found.
    if (!isFound && CHashTable_Count(&database->pathHashTable) == 0) {
        return eAF_E_VARIABLE_HASH_TABLE_EMPTY;
    }
    if (!isAsked) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (!isFound) {
        AF_TRACE(eAF_DEBUG2, "eAF_E_UNKNOWN_VARIABLE, path: %s", path);
        *ppVariable = nullptr;
        return eAF_E_UNKNOWN_VARIABLE;
    }
    *ppVariable = withoutMark(value);
    return eAF_S_OK;
}

EAFResult CDatabase_DoVariableOperation(CDatabase *database, DatabaseAction action) {
    if (database == nullptr || action == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return af::withOutOfMemoryAsCode([&] { return walkRegions(database, action, true); });
}

EAFResult CDatabase_UpdatePathHashTable(CDatabase *database) {
    return CDatabase_DoVariableOperation(database, CDatabase_ActionUpdateHash);
}

EAFResult CDatabase_SetAsNotRetrieved(CDatabase *database) {
    return walkWithoutPaths(database, CDatabase_ActionSetAsNotRetrieved);
}

EAFResult CDatabase_SetNotRetrievedVariablesToDefault(CDatabase *database) {
    return walkWithoutPaths(database, CDatabase_ActionSetToDefault);
}
