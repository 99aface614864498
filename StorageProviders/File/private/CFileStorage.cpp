#include "CFileStorage.h"

#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "FileStore.h"
#include "ProviderTable.h"

namespace {

// Made when the library is loaded, so that no first call runs out of memory; neither is destroyed: a host may still
// store while it exits.
VoxTrace &fileTrace = *new VoxTrace("ZEL.AF.STOR.FILE", 3, 256);
storage::StorageProvider &theProvider =
    *new storage::StorageProvider(fileTrace, [](unsigned long /*locationId*/, const std::string &file) {
        return std::make_unique<storage::FileStore>(storage::ResolvedName{file, {}}); // SetFile has resolved it
    });

storage::StorageProvider &provider() {
    return theProvider;
}

IStorageProvider table = storage::tableOf<provider>();

void logRefusal(const char *text) {
    if (fileTrace.isEnabled(1)) {
        const VoxTraceHeader header = {__FILE__, __LINE__, "CFileStorage_SetFile"};
        fileTrace.logMsg(1, header, text);
    }
}

/// Whether another location's store, or a file that it keeps beside it, would be the same file as this one's.
bool isTaken(unsigned long locationId, const std::string &file) {
    if (provider().isAnothersFile(locationId, file.c_str())) {
        return true;
    }
    for (const std::string_view suffix : {".1", ".new", ".lock"}) {
        const bool isBeside =
            file.size() > suffix.size() && file.compare(file.size() - suffix.size(), suffix.size(), suffix) == 0;
        if (provider().isAnothersFile(locationId, std::string(file).append(suffix).c_str()) ||
            (isBeside && provider().isAnothersFile(locationId, file.substr(0, file.size() - suffix.size()).c_str()))) {
            return true;
        }
    }
    return false;
}

} // namespace

EAFResult CFileStorage_SetFile(unsigned long locationId, const char *fileName) {
    if (fileName == nullptr || fileName[0] == '\0') {
        return provider().setFile(locationId, fileName);
    }
    try {
        const storage::ResolvedName name = storage::resolveName(fileName);
        if (!name.problem.empty()) {
            logRefusal(name.problem.c_str());
            return eAF_E_INITIALIZATION_ERROR;
        }
        const std::string &file = name.file;
        if (isTaken(locationId, file)) {
            logRefusal(("the file " + file + " of the storage location " + std::to_string(locationId) +
                        " is another location's, or one that it keeps beside its own: name another file")
                           .c_str());
            return eAF_E_INVALID_ARGUMENT;
        }
        return provider().setFile(locationId, file.c_str());
    } catch (const std::bad_alloc &) {
        logRefusal("memory ran out for a file's name: free some and try again");
        return eAF_E_OUT_OF_MEMORY;
    }
}

IStorageProvider *CFileStorage_GetProvider(void) {
    return &table;
}

EAFResult CFileStorage_GetStatistics(unsigned long locationId, SStorageStatistics *statistics) {
    return provider().statistics(locationId, statistics);
}

EAFResult CFileStorage_UnInitialize(void) {
    provider().clear();
    return eAF_S_OK;
}
