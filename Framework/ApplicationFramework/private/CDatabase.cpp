#include "CDatabase.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "AfTrace.h"
#include "DatabaseContents.h"
#include "OutOfMemory.h"
#include "StorageList.h"

namespace {

// Shared by every database: only one walk runs at a time.
char fullPathBuffer[512];
char messageBuffer[150];

bool regionsWereRemoved = false;

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

struct Walk {
    CDatabase *database;
    DatabaseAction action;
    const char *regionName;
    std::string objectPath; ///< Of the innermost object.
};

EAFResult CDatabase_DoObjectOperation(Walk &walk, CStorageObject *object, const EnteredObject *outer);

EAFResult enterNestedObject(Walk &walk, CStorageObject *object, const EnteredObject *outer) {
    if (object != nullptr && isEntered(outer, object)) {
        return eAF_E_FAILED;
    }
    const std::size_t parentLength = walk.objectPath.size();
    const EAFResult result = CDatabase_DoObjectOperation(walk, object, outer);
    walk.objectPath.resize(parentLength);
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

/// @return an error only when the variable's name can not be read.
EAFResult walkPlainVariable(Walk &walk, CVariable *variable) {
    ++walk.database->noOfVariablesProcessed;
    const char *name = nullptr;
    const EAFResult named = CVariable_GetName(variable, &name);
    if (af::isError(named)) {
        AF_TRACE_AS("CDatabase_DoObjectOperation", named, "Could not get variable name");
        return named;
    }
    std::snprintf(fullPathBuffer, sizeof fullPathBuffer, "%s/%s/%s", walk.regionName, walk.objectPath.c_str(), name);
    const EAFResult done =
        walk.action(walk.database, variable, fullPathBuffer, walk.regionName, walk.objectPath.c_str(), name);
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
        walk.objectPath += '/';
    }
    walk.objectPath += name;
    CListIterator iterator{};
    EAFResult result = CStorageObject_GetVariableIterator(object, &iterator);
    if (af::isError(result)) {
        AF_TRACE(result, "Could not get variable iterator");
        return result;
    }
    const EnteredObject entered{object, outer};
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
            const EAFResult walked = walkPlainVariable(walk, variable);
            if (af::isError(walked)) {
                return walked;
            }
        }
    }
    return isWhole ? eAF_S_OK : eAF_E_FAILED;
}

EAFResult walkRegions(CDatabase *database, DatabaseAction action) {
    database->noOfVariablesProcessed = 0;
    Walk walk{database, action, nullptr, {}};
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
            walk.objectPath.clear();
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

bool objectLeadsTo(CStorageObject *object, const CVariable *wanted, const EnteredObject *outer) {
    CListIterator iterator{};
    EAFResult result = CStorageObject_GetVariableIterator(object, &iterator);
    const EnteredObject entered{object, outer};
    while (!af::isError(result) && result != eAF_W_NO_MORE_DATA) {
        CVariable *variable = nullptr;
        result = CStorageObject_GetNextVariable(object, &variable, &iterator);
        if (variable == wanted || variable == nullptr) {
            return variable == wanted;
        }
        const bool isArray = variable->type == TYPE_OBJECT_ARRAY;
        if ((!isArray && variable->type != TYPE_OBJECT) || variable->content == nullptr) {
            continue;
        }
        for (std::uint32_t i = 0; i < (isArray ? variable->noOfElements : 1); ++i) {
            auto *nested = isArray ? static_cast<CStorageObject **>(variable->content)[i]
                                   : static_cast<CStorageObject *>(variable->content);
            if (nested != nullptr && !isEntered(&entered, nested) && objectLeadsTo(nested, wanted, &entered)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

EAFResult af::constructDatabase(CDatabase &database, unsigned long hashTableSize) {
    database.regions = {};
    database.noOfVariablesProcessed = 0;
    const std::uint32_t result = CHashTable_Construct(&database.pathHashTable, hashTableSize);
    return isError(result) ? eAF_E_OUT_OF_MEMORY : eAF_S_OK;
}

bool af::wereRegionsRemoved() {
    return regionsWereRemoved;
}

bool af::leadsTo(const CDatabase &database, const CVariable *variable) {
    for (CStorageRegion *region : ElementsOf<CStorageRegion>(database.regions)) {
        for (CStorageObject *object : ElementsOf<CStorageObject>(region->objects)) {
            if (objectLeadsTo(object, variable, nullptr)) {
                return true;
            }
        }
    }
    return false;
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
    if (database == nullptr || name == nullptr || ppRegion == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *ppRegion = nullptr;
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
    // The table keeps the region's paths: it never forgets one.
    regionsWereRemoved = true;
    return eAF_S_OK;
}

EAFResult CDatabase_GetVariableByName(CDatabase *database, char const *name, CVariable **ppVariable) {
    if (database == nullptr || name == nullptr || ppVariable == nullptr) {
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
    if (database == nullptr || path == nullptr || ppVariable == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (CHashTable_Count(&database->pathHashTable) == 0) {
        return eAF_E_VARIABLE_HASH_TABLE_EMPTY;
    }
    void *value = nullptr;
    if (af::isError(CHashTable_Get(&database->pathHashTable, path, &value))) {
        AF_TRACE(eAF_DEBUG2, "eAF_E_UNKNOWN_VARIABLE, path: %s", path);
        *ppVariable = nullptr;
        return eAF_E_UNKNOWN_VARIABLE;
    }
    *ppVariable = static_cast<CVariable *>(value);
    return eAF_S_OK;
}

EAFResult CDatabase_DoVariableOperation(CDatabase *database, DatabaseAction action) {
    if (database == nullptr || action == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return af::withOutOfMemoryAsCode([&] { return walkRegions(database, action); });
}

EAFResult CDatabase_UpdatePathHashTable(CDatabase *database) {
    return CDatabase_DoVariableOperation(database, CDatabase_ActionUpdateHash);
}

EAFResult CDatabase_SetAsNotRetrieved(CDatabase *database) {
    return CDatabase_DoVariableOperation(database, CDatabase_ActionSetAsNotRetrieved);
}

EAFResult CDatabase_SetNotRetrievedVariablesToDefault(CDatabase *database) {
    return CDatabase_DoVariableOperation(database, CDatabase_ActionSetToDefault);
}
