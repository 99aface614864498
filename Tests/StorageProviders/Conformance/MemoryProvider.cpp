#include "MemoryProvider.h"

#include <cstring>
#include <map>
#include <set>
#include <tuple>
#include <vector>

namespace {

using Kept = std::tuple<EVariableType, std::uint32_t, std::vector<unsigned char>>;
using Kepts = std::map<std::string, Kept>;

/// What outlives a close, by file; and which file a location has.
std::map<std::string, Kepts> disks;
std::map<unsigned long, std::string> files;
std::map<unsigned long, SStorageStatistics> results;

// The context of the walk that runs.
Kepts *walked;
SStorageStatistics *counted;
std::set<std::string> seen;

std::vector<unsigned char> contentOf(CVariable *variable) {
    const auto *begin = static_cast<unsigned char *>(variable->content);
    return {begin, begin + CVariable_GetSizeInBytes(variable)};
}

EAFResult store(CDatabase *, CVariable *variable, const char *fullPath, const char *, const char *, const char *) {
    if (!seen.insert(fullPath).second) {
        return eAF_S_OK;
    }
    CVariable_Lock(variable);
    Kept now{variable->type, variable->noOfElements, contentOf(variable)};
    CVariable_UnLock(variable);
    const auto found = walked->find(fullPath);
    if (found == walked->end() || found->second != now) {
        (*walked)[fullPath] = now;
        ++counted->noOfValuesWritten;
    }
    return eAF_S_OK;
}

EAFResult retrieve(CDatabase *, CVariable *variable, const char *fullPath, const char *, const char *, const char *) {
    if (!seen.insert(fullPath).second) {
        return eAF_S_OK;
    }
    const auto found = walked->find(fullPath);
    if (found == walked->end()) {
        ++counted->noOfValuesMissing;
        return eAF_S_OK;
    }
    const auto &[type, noOfElements, content] = found->second;
    --counted->noOfValuesUnknown;
    if (type != variable->type || noOfElements != variable->noOfElements) {
        ++counted->noOfValuesMismatched;
        return eAF_S_OK;
    }
    CVariable_Lock(variable);
    std::memcpy(variable->content, content.data(), content.size());
    CVariable_UnLock(variable);
    CVariable_SetRetrieved(variable, 1);
    ++counted->noOfValuesRetrieved;
    return eAF_S_OK;
}

bool begin(unsigned long locationId) {
    const auto file = files.find(locationId);
    if (file == files.end()) {
        return false;
    }
    walked = &disks[file->second];
    counted = &results[locationId];
    seen.clear();
    return true;
}

EAFResult initialize(unsigned long locationId) {
    return files.count(locationId) != 0 ? eAF_S_OK : eAF_E_UNKNOWN_LOCATION;
}

EAFResult reserve(unsigned long locationId, unsigned long) {
    return initialize(locationId);
}

EAFResult storeAll(unsigned long locationId, CDatabase *database, unsigned long) {
    if (!begin(locationId)) {
        return eAF_E_UNKNOWN_LOCATION;
    }
    counted->noOfValuesWritten = 0;
    return CDatabase_DoVariableOperation(database, store);
}

EAFResult retrieveAll(unsigned long locationId, CDatabase *database, unsigned long) {
    CDatabase_SetAsNotRetrieved(database);
    EAFResult result = eAF_E_UNKNOWN_LOCATION;
    if (begin(locationId)) {
        *counted = {};
        counted->noOfValuesUnknown = static_cast<std::uint32_t>(walked->size());
        result = CDatabase_DoVariableOperation(database, retrieve);
    }
    CDatabase_SetNotRetrievedVariablesToDefault(database);
    return result;
}

IStorageProvider operations{initialize, reserve, storeAll, retrieveAll};

} // namespace

test::MemoryProvider::MemoryProvider() = default;

test::MemoryProvider::~MemoryProvider() {
    close();
    disks.clear();
}

IStorageProvider *test::MemoryProvider::table() {
    return &operations;
}

EAFResult test::MemoryProvider::setFile(unsigned long locationId, const std::string &file) {
    files[locationId] = file;
    results[locationId] = {};
    return eAF_S_OK;
}

EAFResult test::MemoryProvider::statistics(unsigned long locationId, SStorageStatistics *statistics) {
    *statistics = results[locationId];
    return eAF_S_OK;
}

void test::MemoryProvider::close() {
    files.clear();
    results.clear();
}
