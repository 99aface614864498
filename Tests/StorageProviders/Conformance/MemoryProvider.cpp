#include "MemoryProvider.h"

#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "VoxTrace.h"

namespace {

struct Kept {
    EVariableType type;
    std::uint32_t noOfElements;
    std::vector<unsigned char> content;
    bool fits(const CVariable &variable) const {
        return type == variable.type && noOfElements == variable.noOfElements;
    }
};
using Store = std::map<std::string, Kept>;

struct Location {
    std::string file;
    bool isInDoubt = false; ///< What stands in the variables may be defaults for values that are there.
    SStorageStatistics counted{};
};

/// What outlives a close: stores by file, each with a part for every location.
std::map<std::string, std::map<unsigned long, Store>> disk;
std::set<std::string> unreadableFolders;
bool areWritesRefused;

std::map<unsigned long, Location> locations;

VoxTrace ownTrace("TEST.MEMORY", 3, 256);

void tell(VoxTraceLevel level, const std::string &text) {
    ownTrace.logMsg(level, {__FILE__, __LINE__, "MemoryProvider"}, text.c_str());
}

#define NAME_OF_TYPE(type, value, elementSize) #type,
constexpr const char *namesOfTypes[] = {AF_VARIABLE_TYPE_TABLE(NAME_OF_TYPE)};
#undef NAME_OF_TYPE

std::string kindOf(std::uint32_t type, std::uint32_t noOfElements) {
    return std::string(namesOfTypes[type]) + "[" + std::to_string(noOfElements) + "]";
}

/// What the walk that runs is about.
struct Visit {
    Location &location;
    Store &store;
    Store changes;
    std::set<std::string> seen;
    bool isWhole = true;

    bool isFirst(const char *path) {
        const bool isNew = seen.insert(path).second;
        if (!isNew) {
            tell(3, std::string("a second variable has the path ") + path);
        }
        return isNew;
    }
    bool lock(CVariable *variable, const char *path) {
        if (CVariable_Lock(variable) < eAF_E_FAILED) {
            return true;
        }
        tell(1, std::string("can not lock ") + path);
        isWhole = false;
        return false;
    }
};
Visit *running;

EAFResult store(CDatabase * /*database*/, CVariable *variable, const char *path, const char * /*region*/,
                const char * /*object*/, const char * /*name*/) {
    if (!running->isFirst(path) || !running->lock(variable, path)) {
        return eAF_S_OK;
    }
    const auto *content = static_cast<const unsigned char *>(variable->content);
    const Kept now{variable->type, variable->noOfElements, {content, content + CVariable_GetSizeInBytes(variable)}};
    CVariable_UnLock(variable);
    const auto found = running->store.find(path);
    if (found == running->store.end() || !found->second.fits(*variable) || found->second.content != now.content) {
        running->changes[path] = now;
    }
    return eAF_S_OK;
}

EAFResult retrieve(CDatabase * /*database*/, CVariable *variable, const char *path, const char * /*region*/,
                   const char * /*object*/, const char * /*name*/) {
    if (!running->isFirst(path)) {
        return eAF_S_OK;
    }
    SStorageStatistics &counted = running->location.counted;
    const auto found = running->store.find(path);
    if (found == running->store.end()) {
        ++counted.noOfValuesMissing;
        return eAF_S_OK;
    }
    --counted.noOfValuesUnknown;
    const Kept &kept = found->second;
    if (!kept.fits(*variable)) {
        ++counted.noOfValuesMismatched;
        tell(3, std::string(path) + " is kept as " + kindOf(kept.type, kept.noOfElements) + ", expected is " +
                    kindOf(variable->type, variable->noOfElements));
        return eAF_S_OK;
    }
    if (running->lock(variable, path)) {
        if (!kept.content.empty()) {
            std::memcpy(variable->content, kept.content.data(), kept.content.size());
        }
        CVariable_UnLock(variable);
        CVariable_SetRetrieved(variable, 1);
        ++counted.noOfValuesRetrieved;
    }
    return eAF_S_OK;
}

bool canBeRead(const Location &location) {
    for (const std::string &folder : unreadableFolders) {
        if (location.file.rfind(folder + "/", 0) == 0) {
            tell(1, location.file + " can not be read");
            return false;
        }
    }
    return true;
}

/// Runs a walk on what a location keeps. @return the walk's code, a failure also when a variable was left out.
EAFResult walk(Visit &visit, CDatabase *database, DatabaseAction action) {
    running = &visit;
    const EAFResult walked = CDatabase_DoVariableOperation(database, action);
    running = nullptr;
    if (walked >= eAF_E_FAILED) {
        tell(1, "not every variable of " + visit.location.file + " could be walked");
    }
    return walked >= eAF_E_FAILED || visit.isWhole ? walked : eAF_E_FAILED;
}

EAFResult initialize(unsigned long locationId) {
    const auto found = locations.find(locationId);
    if (found == locations.end()) {
        tell(1, "no file was named for the location " + std::to_string(locationId));
        return eAF_E_UNKNOWN_LOCATION;
    }
    return canBeRead(found->second) ? eAF_S_OK : eAF_E_INITIALIZATION_ERROR;
}

EAFResult reserve(unsigned long locationId, unsigned long /*size*/) {
    return initialize(locationId);
}

EAFResult storeAll(unsigned long locationId, CDatabase *database, unsigned long /*locationData*/) {
    const EAFResult initialized = initialize(locationId);
    if (initialized == eAF_E_UNKNOWN_LOCATION) {
        return initialized;
    }
    Location &location = locations[locationId];
    location.counted.noOfValuesWritten = 0;
    if (location.isInDoubt) {
        tell(1, "nothing is stored in " + location.file + ": retrieve it first");
        return eAF_E_NOT_INITIALIZED;
    }
    if (initialized != eAF_S_OK) {
        return initialized;
    }
    Visit visit{location, disk[location.file][locationId], {}, {}};
    const EAFResult walked = walk(visit, database, store);
    if (areWritesRefused && !visit.changes.empty()) {
        tell(1, location.file + " can not be written");
        return eAF_E_FAILED;
    }
    for (const auto &[path, kept] : visit.changes) {
        visit.store[path] = kept;
    }
    location.counted.noOfValuesWritten = static_cast<std::uint32_t>(visit.changes.size());
    return walked;
}

EAFResult retrieveAll(unsigned long locationId, CDatabase *database, unsigned long /*locationData*/) {
    CDatabase_SetAsNotRetrieved(database);
    EAFResult result = initialize(locationId);
    if (result != eAF_E_UNKNOWN_LOCATION) {
        Location &location = locations[locationId];
        location.isInDoubt = true;
        location.counted = {location.counted.noOfValuesWritten, 0, 0, 0, 0};
        if (result == eAF_S_OK) {
            Visit visit{location, disk[location.file][locationId], {}, {}};
            location.counted.noOfValuesUnknown = static_cast<std::uint32_t>(visit.store.size());
            result = walk(visit, database, retrieve);
            location.isInDoubt = !visit.isWhole;
            if (location.counted.noOfValuesUnknown != 0) {
                tell(5, location.file + " keeps " + std::to_string(location.counted.noOfValuesUnknown) +
                            " values of variables that are not registered");
            }
        }
    }
    CDatabase_SetNotRetrievedVariablesToDefault(database);
    return result;
}

IStorageProvider operations{initialize, reserve, storeAll, retrieveAll};

} // namespace

namespace test {

MemoryProvider::~MemoryProvider() {
    locations.clear();
    disk.clear();
    unreadableFolders.clear();
    areWritesRefused = false;
}

IStorageProvider *MemoryProvider::table() {
    return &operations;
}

EAFResult MemoryProvider::setFile(unsigned long locationId, const std::string &file) {
    locations[locationId] = {file};
    return eAF_S_OK;
}

EAFResult MemoryProvider::statistics(unsigned long locationId, SStorageStatistics *statistics) {
    const auto found = locations.find(locationId);
    if (found == locations.end()) {
        return eAF_E_UNKNOWN_LOCATION;
    }
    *statistics = found->second.counted;
    return eAF_S_OK;
}

void MemoryProvider::close() {
    locations.clear();
}

void MemoryProvider::makeUnreadable(const std::string &folder) {
    unreadableFolders.insert(folder);
}

void MemoryProvider::makeReadable(const std::string &folder) {
    unreadableFolders.erase(folder);
}

void MemoryProvider::refuseWrites() {
    areWritesRefused = true;
}

void MemoryProvider::allowWrites() {
    areWritesRefused = false;
}

} // namespace test
