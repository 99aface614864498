#include "Host/Storage.h"

#include <unistd.h>

#include <AfResult.h>
#include <CFileStorage.h>
#include <CSqliteStorage.h>
#include <CStorageManager.h>

#include <filesystem>
#include <stdexcept>

namespace radio {
namespace {

constexpr unsigned long providerId = 1;
constexpr unsigned long roomForVariables = 64;

struct SLocation {
    unsigned long id;
    const char *name;
};
constexpr SLocation locations[] = {{LocationConfiguration, "configuration"}, {LocationCalibration, "calibration"}};

std::string folderOf(const Options &options) {
    if (!options.storeFolder.empty()) {
        return options.storeFolder;
    }
    std::string pattern = (std::filesystem::temp_directory_path() / "RadioUnitController.store-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error(pattern + ": no folder could be made for the parameters; see --store-folder");
    }
    return pattern;
}

void require(EAFResult result, const std::string &what) {
    if (result >= eAF_E_FAILED) {
        throw std::runtime_error(what + ": " + AfResult::toString(result) + "; the trace says why");
    }
}

} // namespace

Storage::Storage(const Options &options)
    : m_kind(options.storage), m_isTemporary(options.storeFolder.empty()), m_folder(folderOf(options)) {
    const bool isSqlite = m_kind == StorageKind::Sqlite;
    require(CStorageManager_Initialize(), "storage manager");
    require(
        CStorageManager_RegisterStorageProvider(isSqlite ? CSqliteStorage_GetProvider() : CFileStorage_GetProvider(),
                                                providerId, isSqlite ? "sqlite" : "file"),
        "storage provider");
    for (const SLocation &location : locations) {
        const std::string file = m_folder + "/" + location.name + (isSqlite ? ".db" : ".store");
        require(isSqlite ? CSqliteStorage_SetFile(location.id, file.c_str())
                         : CFileStorage_SetFile(location.id, file.c_str()),
                file);
        require(CStorageManager_RegisterLocation(location.id, location.name, roomForVariables, 0), location.name);
        require(CStorageManager_AssignStorageProviderToLocation(location.id, providerId), location.name);
    }
}

Storage::~Storage() {
    close();
    if (m_isTemporary) {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
}

void Storage::close() {
    if (m_isOpen) {
        m_isOpen = false;
        CStorageManager_Uninitialize();
        m_kind == StorageKind::Sqlite ? CSqliteStorage_UnInitialize() : CFileStorage_UnInitialize();
    }
}

StorageResult Storage::resultOf(bool isGood) const {
    StorageResult result;
    result.isGood = isGood;
    for (const SLocation &location : locations) {
        SStorageStatistics statistics{};
        m_kind == StorageKind::Sqlite ? CSqliteStorage_GetStatistics(location.id, &statistics)
                                      : CFileStorage_GetStatistics(location.id, &statistics);
        result.retrieved += statistics.noOfValuesRetrieved;
        result.missing += statistics.noOfValuesMissing + statistics.noOfValuesMismatched;
        result.written += statistics.noOfValuesWritten;
    }
    return result;
}

StorageResult Storage::retrieve() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    CStorageManager_UpdatePathHashTable();
    // A provider that could not initialise tries again, and gives every variable its default all the same.
    CStorageManager_InitializeAllProviders();
    return resultOf(CStorageManager_RetrieveAll() < eAF_E_FAILED);
}

StorageResult Storage::store() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return resultOf(CStorageManager_StoreAll() < eAF_E_FAILED);
}

} // namespace radio
