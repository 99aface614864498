#include "StorageWalk.h"

#include <pthread.h>

#include <gtest/gtest.h>

#include <cerrno>

#include "CDatabase.h"
#include "CStorageManager.h"
#include "Providers.h"
#include "TraceRecorder.h"

namespace test {

StorageWalk::StorageWalk(Choices &theChoices) : choices(theChoices) {
    resetProviders();
}

StorageWalk::~StorageWalk() {
    CStorageManager_Uninitialize();
}

void StorageWalk::forgetTraces() {
    providerCalls().clear();
    TraceRecorder::reset(levelOf(eAF_W_WARNING));
}

void StorageWalk::check(const std::string &what, EAFResult code, const Expected &expected) {
    std::vector<std::string> failures;
    for (const Line &line : TraceRecorder::failures()) {
        failures.push_back(line.message);
    }
    ASSERT_EQ(expected.code, code) << what;
    ASSERT_EQ(expected.calls, providerCalls()) << what;
    ASSERT_EQ(expected.failures, failures) << what;
}

void StorageWalk::addObject(StorageModel::Object &model, CStorageObject *object, int depth) {
    for (std::uint32_t i = below(3); i > 0; --i) {
        const std::string name = "V" + std::to_string(below(6));
        CVariable *present = nullptr;
        if (CStorageObject_GetVariableByName(object, name.c_str(), &present) == 0) {
            ids[tree.integer(object, name)] = ++lastId;
            model.variables.push_back({name, lastId});
        }
    }
    if (depth < 2 && below(2) == 0) {
        const std::string name = "N" + std::to_string(depth);
        model.nested.push_back({name, {}, {}});
        addObject(model.nested.back(), tree.nested(object, name), depth + 1);
    }
}

void StorageWalk::registerRegion() {
    StorageModel::Region model;
    model.name = oneIn(15) ? "" : "R" + std::to_string(below(5));
    model.locationId = someId();
    CStorageRegion *region = tree.region(model.name, model.locationId);
    if (model.name.empty() && oddCalls % 2 == 0) {
        CStorageRegion_Construct(region, nullptr, model.locationId); // counts as empty
    }
    for (std::uint32_t i = below(3); i > 0; --i) {
        model.objects.push_back({"O" + std::to_string(i), {}, {}});
        addObject(model.objects.back(), tree.objectIn(region, model.objects.back().name), 0);
    }
    TraceRecorder::reset(levelOf(eAF_W_WARNING));
    bool isFiled = false;
    const Expected expected = storage.registerRegion(model, isFiled);
    check("RegisterRegion " + model.name, CStorageManager_RegisterRegion(region), expected);
    if (!isFiled) {
        CStorageRegion_Destruct(region);
    }
}

void StorageWalk::lookUp() {
    std::string path = "R" + std::to_string(below(5));
    path += "/O" + std::to_string(1 + below(2));
    path += below(2) == 0 ? "/N0" : "";
    path += "/V" + std::to_string(below(6));
    EAFResult expected = eAF_S_OK;
    int id = storage.byPath(path, expected);
    CVariable *found = nullptr;
    ASSERT_EQ(expected, CStorageManager_GetVariableByPath(path.c_str(), &found)) << path;
    ASSERT_EQ(id, id != 0 ? ids[found] : 0) << path;
    // Its record is the tree's, and stays when the region goes.
    checkContent(path, expected, found, true);
    const std::string name = "V" + std::to_string(below(6));
    id = storage.byName(name, expected);
    ASSERT_EQ(expected, CStorageManager_GetVariableByName(name.c_str(), &found)) << name;
    ASSERT_EQ(id, id != 0 ? ids[found] : 0) << name;
    checkContent(name, expected, found, false);
    if (id != 0) {
        ASSERT_EQ(eAF_S_OK, CVariable_Lock(found)) << name;
        ASSERT_EQ(EBUSY, pthread_mutex_trylock(&found->mutex)) << name;
        ASSERT_EQ(eAF_S_OK, CVariable_UnLock(found)) << name;
        ASSERT_EQ(0, pthread_mutex_trylock(&found->mutex)) << name;
        pthread_mutex_unlock(&found->mutex);
    }
}

void StorageWalk::checkContent(const std::string &place, EAFResult expected, const CVariable *variable, bool isByPath) {
    void *content = &ids;
    unsigned long size = 1;
    ASSERT_EQ(expected, isByPath ? CStorageManager_GetVariableContentAddressByPath(place.c_str(), &content, &size)
                                 : CStorageManager_GetVariableContentAddressByName(place.c_str(), &content, &size))
        << place;
    ASSERT_EQ(expected == eAF_S_OK ? variable->content : &ids, content) << place;
    ASSERT_EQ(expected == eAF_S_OK ? sizeof(std::int32_t) : 0, size) << place;
    void *const found = content;
    ASSERT_EQ(expected, isByPath ? CStorageManager_GetVariableContentAddressByPath(place.c_str(), &content, nullptr)
                                 : CStorageManager_GetVariableContentAddressByName(place.c_str(), &content, nullptr))
        << place << ", its size not asked for";
    ASSERT_EQ(found, content) << place;
}

void StorageWalk::chooseFailure() {
    FirstProvider::reset();
    SecondProvider::reset();
    storage.failingProvider = static_cast<int>(below(3));
    storage.failingLocation = someId();
    if (storage.failingProvider == 1) {
        FirstProvider::answer = eAF_E_STACK_EMPTY;
        FirstProvider::failingLocation = storage.failingLocation;
    } else if (storage.failingProvider == 2) {
        SecondProvider::answer = eAF_E_STACK_EMPTY;
        SecondProvider::failingLocation = storage.failingLocation;
    }
}

/// Every fifth has no table, or one without entries. Not by choice: the kept inputs of the fuzzer stay what they are.
void StorageWalk::registerProvider(int number) {
    static IStorageProvider withoutEntries{};
    const auto id = static_cast<unsigned long>(number);
    if (++providersMade % 5 == 0) {
        check("a provider of nothing",
              CStorageManager_RegisterStorageProvider(providersMade % 2 == 0 ? nullptr : &withoutEntries, id, "P9"),
              {});
        storage.registerProvider(id, StorageModel::nothing);
        return;
    }
    IStorageProvider &table = number == 1 ? FirstProvider::table : SecondProvider::table;
    const std::string name = "P" + std::to_string(number);
    check(name, CStorageManager_RegisterStorageProvider(&table, id, name.c_str()), {});
    storage.registerProvider(id, number);
}

/// What is refused, and what only answers, in whatever state. Takes no choice of its own either; that nothing has
/// changed, the operations show that follow.
void StorageWalk::odd() {
    constexpr std::uint32_t noOfOddCalls = 7;
    const Expected refused{eAF_E_INVALID_ARGUMENT, {}, {}};
    const std::uint32_t round = oddCalls / noOfOddCalls;
    const unsigned long id = 1 + round / 2 % 4;
    const char *const nameless = round % 2 == 0 ? nullptr : "";
    switch (oddCalls++ % noOfOddCalls) {
    case 0:
        return check("no location's name", CStorageManager_RegisterLocation(id, nameless, 4, 1), refused);
    case 1:
        return check("no provider's name", CStorageManager_RegisterStorageProvider(&FirstProvider::table, id, nameless),
                     refused);
    case 2:
        return check("no region", CStorageManager_RegisterRegion(nullptr), refused);
    case 3:
        return check("no region's name", CStorageManager_RemoveRegionFromLocation(nameless, id), refused);
    case 4:
        return lookUpNothing(nameless);
    case 5:
        return askNullRecords();
    default:
        check("Initialize", CStorageManager_Initialize(), {});
        check("StoreAllWritable", CStorageManager_StoreAllWritable(), {eAF_E_NOT_IMPLEMENTED, {}, {}});
        return check("InitializeAllProviders", CStorageManager_InitializeAllProviders(), storage.perform("Initialize"));
    }
}

void StorageWalk::lookUpNothing(const char *nameless) {
    const Expected refused{eAF_E_INVALID_ARGUMENT, {}, {}};
    CVariable *variable = nullptr;
    check("no path", CStorageManager_GetVariableByPath(nameless, &variable), refused);
    check("no name", CStorageManager_GetVariableByName(nameless, &variable), refused);
    check("a path, no place", CStorageManager_GetVariableByPath("R0/O1/V1", nullptr), refused);
    check("a name, no place", CStorageManager_GetVariableByName("V1", nullptr), refused);
    void *content = this;
    unsigned long size = 70;
    check("no path", CStorageManager_GetVariableContentAddressByPath(nameless, &content, &size), refused);
    check("no name", CStorageManager_GetVariableContentAddressByName(nameless, &content, &size), refused);
    check("a path, no place", CStorageManager_GetVariableContentAddressByPath("R0/O1/V1", nullptr, &size), refused);
    check("a name, no place", CStorageManager_GetVariableContentAddressByName("V1", nullptr, &size), refused);
    ASSERT_EQ(this, content);
    ASSERT_EQ(70u, size);
}

void StorageWalk::askNullRecords() {
    ASSERT_EQ(0u, CStorageRegion_GetLocationId(nullptr));
    ASSERT_EQ(0u, CStorageRegion_GetNoOfObjects(nullptr));
    ASSERT_EQ(0u, CStorageObject_GetNoOfVariables(nullptr));
    ASSERT_EQ(0u, CDatabase_GetNoOfRegions(nullptr));
    ASSERT_EQ(0u, CVariable_GetNoOfElements(nullptr));
    ASSERT_EQ(0u, CVariable_GetType(nullptr));
    ASSERT_EQ(0u, CVariable_GetAccessType(nullptr));
}

void StorageWalk::step() {
    forgetTraces();
    odd();
    forgetTraces();
    const unsigned long location = someId();
    const unsigned long provider = 1 + below(3);
    switch (below(12)) {
    case 0:
        CStorageManager_RegisterLocation(location, ("L" + std::to_string(location)).c_str(), 4, location * 10);
        storage.registerLocation(location, "L" + std::to_string(location));
        break;
    case 1:
        registerProvider(provider == 1 ? 1 : 2);
        break;
    case 2:
        check("assign", CStorageManager_AssignStorageProviderToLocation(location, provider),
              storage.assign(location, provider));
        break;
    case 3:
        check("reassign", CStorageManager_ReassignStorageProviderToLocation(location, provider),
              storage.reassign(location, provider));
        break;
    case 4:
    case 5:
        registerRegion();
        break;
    case 6: {
        const std::string name = "R" + std::to_string(below(5));
        check("remove", CStorageManager_RemoveRegionFromLocation(name.c_str(), location),
              storage.removeRegion(name, location));
        break;
    }
    case 7:
        check("reserve", CStorageManager_ReserveWritableSpace(location, 100 + location),
              storage.reserve(location, 100 + location));
        break;
    case 8:
        check("store", CStorageManager_StoreAll(), storage.perform("StoreAll"));
        break;
    case 9:
        check("retrieve", CStorageManager_RetrieveAll(), storage.perform("RetrieveAll"));
        break;
    case 10:
        ASSERT_EQ(eAF_S_OK, CStorageManager_UpdatePathHashTable());
        storage.updatePaths();
        break;
    default:
        chooseFailure();
        break;
    }
    lookUp();
}

void StorageWalk::begin() {
    CStorageManager_Uninitialize();
    const int failingProvider = storage.failingProvider;
    const unsigned long failingLocation = storage.failingLocation;
    storage = {};
    storage.failingProvider = failingProvider;
    storage.failingLocation = failingLocation;
}

} // namespace test
