#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "CDatabase.h"
#include "CStorageManager.h"
#include "Measure.h"
#include "VariableTree.h"

namespace instructions {

namespace {

constexpr std::uint32_t noOfVariables = 10000;
constexpr std::uint32_t noOfVariablesBeside = 100;
constexpr std::uint32_t noOfLocations = 8;
constexpr unsigned long providerId = 1;

EAFResult doNothing(unsigned long /*locationId*/) {
    return eAF_S_OK;
}
EAFResult reserveNothing(unsigned long /*locationId*/, unsigned long /*size*/) {
    return eAF_S_OK;
}
EAFResult moveNothing(unsigned long /*locationId*/, CDatabase * /*database*/, unsigned long /*locationData*/) {
    return eAF_S_OK;
}

IStorageProvider provider{doNothing, reserveNothing, moveNothing, moveNothing};

void addLocation(unsigned long locationId, VariableTree &tree) {
    require("a location", CStorageManager_RegisterLocation(locationId, "Location", noOfVariables, 0));
    require("a location's provider", CStorageManager_AssignStorageProviderToLocation(locationId, providerId));
    require("a region", CStorageManager_RegisterRegion(tree.region()));
}

/// Every so many variables of the tree.
std::vector<std::string> pathsOf(const VariableTree &tree, std::uint32_t distance, std::uint32_t count) {
    std::vector<std::string> paths;
    for (std::uint32_t i = 0; i < count; ++i) {
        paths.push_back(tree.path(i * distance));
    }
    return paths;
}

void measureByPath(const char *name, const std::vector<std::string> &paths, EAFResult expected) {
    measure(name, static_cast<unsigned>(paths.size()), [&] {
        CVariable *variable = nullptr;
        for (const std::string &path : paths) {
            require("looking up", CStorageManager_GetVariableByPath(path.c_str(), &variable) == expected);
        }
    });
}

void measureByName(const char *name, const std::string &variableName, EAFResult expected) {
    measure(
        name, 1,
        [&] {
            CVariable *variable = nullptr;
            require("looking up", CStorageManager_GetVariableByName(variableName.c_str(), &variable) == expected);
        },
        {}, 1);
}

void walks(VariableTree &tree) {
    CDatabase database{};
    CDatabase_Construct(&database, noOfVariables);
    require("a region", CDatabase_AddRegion(&database, tree.region()));
    // Taken away with all that was filed, for a new one.
    const auto renewTable = [&database] {
        CHashTable_Destruct(&database.pathHashTable);
        require("a table", CHashTable_Construct(&database.pathHashTable, noOfVariables) == 0);
    };
    measure(
        "file a path, of 10,000", noOfVariables,
        [&database] { require("filing", CDatabase_UpdatePathHashTable(&database)); }, renewTable, 1);
    measure(
        "file a path again, of 10,000", noOfVariables,
        [&database] { require("filing", CDatabase_UpdatePathHashTable(&database)); }, {}, 1);
    measure(
        "mark a variable not retrieved, of 10,000", noOfVariables,
        [&database] { require("marking", CDatabase_SetAsNotRetrieved(&database)); }, {}, 1);
    measure(
        "set a variable to its default, of 10,000", noOfVariables,
        [&database] { require("setting", CDatabase_SetNotRetrievedVariablesToDefault(&database)); }, {}, 1);
    CDatabase_Destruct(&database);
}

} // namespace

void lookupPaths() {
    require("a provider", CStorageManager_RegisterStorageProvider(&provider, providerId, "none"));
    // Made before anything is counted, while callgrind does not slow it down.
    static VariableTree walked("Walked", 1, noOfVariables);
    static VariableTree large("Large", 1, noOfVariables);
    addLocation(1, large);
    require("filing", CStorageManager_UpdatePathHashTable());
    const std::vector<std::string> present = pathsOf(large, 100, noOfVariables / 100);
    std::vector<std::string> absent = present;
    for (std::string &path : absent) {
        path += "X";
    }
    measureByPath("by path, 1 location of 10,000, hit", present, eAF_S_OK);
    measureByPath("by path, 1 location of 10,000, miss", absent, eAF_E_UNKNOWN_VARIABLE);
    measure("content by path, 1 location of 10,000", static_cast<unsigned>(present.size()), [&present] {
        for (const std::string &path : present) {
            void *content = nullptr;
            unsigned long size = 0;
            require("looking up", CStorageManager_GetVariableContentAddressByPath(path.c_str(), &content, &size));
        }
    });
    measureByName("by name, first of 10,000", VariableTree::name(0), eAF_S_OK);
    measureByName("by name, last of 10,000", VariableTree::name(noOfVariables - 1), eAF_S_OK);
    measureByName("by name, none of 10,000", "Parameter", eAF_E_UNKNOWN_VARIABLE);

    static std::deque<VariableTree> beside;
    for (unsigned long id = 2; id <= noOfLocations; ++id) {
        addLocation(id, beside.emplace_back("Beside" + std::to_string(id), id, noOfVariablesBeside));
    }
    require("filing", CStorageManager_UpdatePathHashTable());
    measureByPath("by path, 8 locations, hit in the last", pathsOf(beside.back(), 1, noOfVariablesBeside), eAF_S_OK);
    measureByPath("by path, 8 locations, miss", absent, eAF_E_UNKNOWN_VARIABLE);
    measure("store of 8 locations, without what the provider does", 10, [] {
        for (int i = 0; i < 10; ++i) {
            require("storing", CStorageManager_StoreAll());
        }
    });
    require("the end of the storage", CStorageManager_Uninitialize());
    walks(walked);
}

} // namespace instructions
