#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "CDatabase.h"
#include "CFileStorage.h"
#include "CSqliteStorage.h"
#include "Measure.h"
#include "VariableTree.h"

namespace instructions {

namespace {

constexpr unsigned long locationId = 1;
constexpr std::uint32_t noOfVariables = 1000;

/// What the two providers do alike.
struct Provider {
    EAFResult (*setFile)(unsigned long locationId, const char *fileName);
    IStorageProvider *(*getProvider)();
    EAFResult (*getStatistics)(unsigned long locationId, SStorageStatistics *statistics);
    EAFResult (*uninitialize)();
};

/// A folder whose name has the same length wherever and by whomever this is run.
class Folder {
public:
    Folder() { require("a folder in /tmp", mkdtemp(m_name.data()) != nullptr); }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_name.data(), ignored);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    std::string file() const { return std::string(m_name.data()) + "/store"; }

private:
    std::array<char, 32> m_name{"/tmp/zaf-instructions-XXXXXX"};
};

class Store {
public:
    explicit Store(const Provider &provider) : m_provider(provider) {
        CDatabase_Construct(&m_database, noOfVariables);
        require("a region", CDatabase_AddRegion(&m_database, m_tree.region()));
        require("the file", m_provider.setFile(locationId, m_folder.file().c_str()));
        require("opening", m_provider.getProvider()->Initialize(locationId));
    }
    ~Store() {
        m_provider.uninitialize();
        CDatabase_Destruct(&m_database);
    }
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    void store(std::uint32_t expectedChanges) {
        require("storing", m_provider.getProvider()->StoreAll(locationId, &m_database, 0));
        require("storing what changed", statistics().noOfValuesWritten == expectedChanges);
    }
    void retrieve() {
        require("retrieving", m_provider.getProvider()->RetrieveAll(locationId, &m_database, 0));
        require("retrieving all", statistics().noOfValuesRetrieved == noOfVariables);
    }
    void change(std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) {
            ++m_tree.content(i);
        }
    }

private:
    SStorageStatistics statistics() {
        SStorageStatistics statistics{};
        require("the statistics", m_provider.getStatistics(locationId, &statistics));
        return statistics;
    }

    const Provider &m_provider;
    Folder m_folder;
    VariableTree m_tree{"Configuration", locationId, noOfVariables};
    CDatabase m_database{};
};

void providerPaths(const Provider &provider) {
    Store store(provider);
    store.store(noOfVariables);
    measure(
        "store, none of 1,000 changed", 1, [&store] { store.store(0); }, {}, 2);
    measure(
        "store, 1 of 1,000 changed", 1, [&store] { store.store(1); }, [&store] { store.change(1); }, 2);
    measure(
        "store, all of 1,000 changed", 1, [&store] { store.store(noOfVariables); },
        [&store] { store.change(noOfVariables); }, 1);
    measure(
        "retrieve 1,000", 1, [&store] { store.retrieve(); }, {}, 1);
}

} // namespace

void sqlitePaths() {
    providerPaths({CSqliteStorage_SetFile, CSqliteStorage_GetProvider, CSqliteStorage_GetStatistics,
                   CSqliteStorage_UnInitialize});
}

void filePaths() {
    providerPaths(
        {CFileStorage_SetFile, CFileStorage_GetProvider, CFileStorage_GetStatistics, CFileStorage_UnInitialize});
}

} // namespace instructions
