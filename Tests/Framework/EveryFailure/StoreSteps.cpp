// The storage manager and whatever keeps the variables below it; the classes beside it; the broker.
#include <sys/stat.h>
#include <unistd.h>

#include <sqlite3.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "ScenarioParts.h"

namespace test {
namespace {

namespace fs = std::filesystem;

/// All that a provider reads of a store, in every generation of it, is damaged behind its beginning.
bool damage(const std::string &store) {
    constexpr std::streamoff behindTheBeginning = 100;
    bool isDamaged = false;
    for (const auto &entry : fs::directory_iterator(fs::path(store).parent_path())) {
        const bool isLock = entry.path().extension() == ".lock";
        if (!isLock && !entry.is_symlink() && entry.is_regular_file() && entry.file_size() > behindTheBeginning) {
            std::fstream file(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(behindTheBeginning);
            file << std::string(60, '\xFE');
            isDamaged = file.flush().good();
        }
    }
    return isDamaged;
}

/// What root's tools do, and what a user's may: the next files are to be as this one is.
bool giveAway(const std::string &store) {
    constexpr mode_t everybodys = 0666;
    constexpr uid_t another = 1;
    return chmod(store.c_str(), everybodys) == 0 &&
           (geteuid() != 0 || chown(store.c_str(), another, static_cast<gid_t>(another)) == 0);
}

/// As somebody's tool leaves a database that it has put into another journal mode.
bool keepsALog(const std::string &store) {
    sqlite3 *database = nullptr;
    const bool isDone = sqlite3_open(store.c_str(), &database) == SQLITE_OK &&
                        sqlite3_exec(database, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(database);
    return isDone;
}

} // namespace

void Scenario::addStorage() {
    const Backend &backend = m_backend;
    add("CStorageManager_Initialize", [] { return CStorageManager_Initialize(); });
    add("CStorageManager_RegisterLocation", [] {
        return CStorageManager_RegisterLocation(Parts::locationId, longName.c_str(), 16, 77);
    }).needs();
    add("CStorageManager_RegisterStorageProvider", [&backend] {
        return CStorageManager_RegisterStorageProvider(backend.table(), 3, longName.c_str());
    }).needs();
    add("CStorageManager_AssignStorageProviderToLocation", [] {
        return CStorageManager_AssignStorageProviderToLocation(Parts::locationId, 3);
    }).needs();
    // What the database could not take is answered as any other refusal of it.
    add("CStorageManager_RegisterRegion", [this] {
        return CStorageManager_RegisterRegion(&m_parts->region);
    }).needs({eAF_E_FAILED});
    addSetFile();
    add("CStorageManager_ReserveWritableSpace",
        [] { return CStorageManager_ReserveWritableSpace(Parts::locationId, 4096); });
    // Its answer tells nothing: what could not be filed is filed by the next one.
    add("CStorageManager_UpdatePathHashTable", [] { return CStorageManager_UpdatePathHashTable(); }).ignores();
}

void Scenario::addSetFile() {
    Step &named = add(m_backend.operations[Backend::setFileName],
                      [this] { return m_backend.setFile(Parts::locationId, m_name.c_str()); });
    if (m_backend.keepsFiles) {
        named.needs().after([this] { return symlink("store", m_link.c_str()) == 0 || errno == EEXIST; });
        for (const char *call : {"readlink", "getcwd"}) {
            named.onCall(call, {eAF_E_INITIALIZATION_ERROR, eAF_E_OUT_OF_MEMORY}); // where there is no memory for it
        }
    }
}

/// A new start of the host: the store is opened anew.
/// @param meanwhile  what is done to the store while it is closed.
void Scenario::addNewStart(std::function<bool()> meanwhile) {
    add(m_backend.operations[Backend::closeName],
        [this] { return m_backend.keepsFiles ? m_backend.close() : eAF_S_OK; });
    addSetFile();
    Step &between = add("what others do to a store", [] { return eAF_S_OK; });
    if (m_backend.keepsFiles) {
        between.after(std::move(meanwhile));
    }
}

void Scenario::addStores() {
    Parts &p = *m_parts;
    // Memory or a call that failed below it is the provider's failure, which the manager answers as its own; what the
    // provider could do without is no failure.
    const auto provider = [&](const char *operation, std::function<std::uint32_t()> run) -> Step & {
        return add(operation, std::move(run)).needs({eAF_E_FAILED, eAF_S_OK}).leaves().usesTheStore();
    };
    // A variable whose lock could not be had keeps its default, or its earlier value in the store.
    const auto retrieve = [&](std::int32_t expected) {
        Step &step = provider("CStorageManager_RetrieveAll", [&p, expected] {
            p.generationBefore = p.generation();
            const EAFResult result = CStorageManager_RetrieveAll();
            return result != eAF_S_OK || p.generation() == expected ? result : wrongEffect;
        });
        // Where there is no memory for the defaults, what stood there stays. A store would make any of it lasting.
        step.leavesOnly([this, &p, expected](bool isOutOfMemory) {
            const std::int32_t other = isOutOfMemory ? p.generationBefore : expected;
            return p.holdsOnly({Parts::generationOfDefaults, expected, other}) &&
                   (!m_backend.keepsFiles || CStorageManager_StoreAll() == eAF_E_FAILED);
        });
        if (m_backend.keepsFiles) {
            step.onCall("pthread_mutex_lock", {eAF_E_FAILED});
        }
    };
    const auto store = [&](std::int32_t generation) {
        Step &step = provider("CStorageManager_StoreAll", [&p, generation] {
            p.setGeneration(generation);
            return CStorageManager_StoreAll();
        });
        step.storesWhenItSaysSo().leavesOnly(
            [&p, generation](bool /*isOutOfMemory*/) { return p.generation() == generation; });
        if (m_backend.keepsFiles) {
            step.onCall("pthread_mutex_lock", {eAF_E_FAILED});
        }
    };
    provider("CStorageManager_InitializeAllProviders", [] { return CStorageManager_InitializeAllProviders(); });
    retrieve(Parts::generationOfDefaults);
    store(1);
    store(2);
    add("the host's own change", [&p] {
        p.setGeneration(9);
        return eAF_S_OK;
    });
    retrieve(2);
    store(3);
    addNewStart([this] { return giveAway(m_store); });
    retrieve(3);
    store(4);
    const bool losesDamaged = m_backend.keepsFiles;
    addNewStart([this] { return damage(m_store); });
    retrieve(losesDamaged ? Parts::generationOfDefaults : 4);
    store(6);
    if (m_backend.keepsLog) {
        addNewStart([this] { return keepsALog(m_store); });
        retrieve(6);
        store(7);
    }
    retrieve(m_backend.keepsLog ? 7 : 6);
    add(m_backend.operations[Backend::statisticsName], [this] {
        SStorageStatistics statistics{};
        const EAFResult result = m_backend.statistics(Parts::locationId, &statistics);
        return result != eAF_S_OK || statistics.noOfValuesRetrieved == Parts::noOfStored ? result : wrongEffect;
    });
    add("CStorageManager_StoreAllWritable", [] {
        return CStorageManager_StoreAllWritable();
    }).answers(eAF_E_NOT_IMPLEMENTED);
    add("CStorageManager_GetVariableByPath", [&p] {
        CVariable *variable = nullptr;
        const EAFResult result = CStorageManager_GetVariableByPath("Cfg/Radio/Number0", &variable);
        return result != eAF_S_OK || variable->content == p.numbers.data() ? result : wrongEffect;
    });
    add("CStorageManager_GetVariableContentAddressByPath", [&p] {
        void *content = nullptr;
        unsigned long size = 0;
        const EAFResult result = CStorageManager_GetVariableContentAddressByPath(
            "Cfg/Radio/Nested object with its own name/Number1", &content, &size);
        return result != eAF_S_OK || (content == &p.numbers[1] && size == 4) ? result : wrongEffect;
    });
    add("CStorageManager_GetVariableByName", [] {
        CVariable *variable = nullptr;
        return CStorageManager_GetVariableByName("Blob", &variable);
    });
    add("CStorageManager_GetVariableContentAddressByName", [&p] {
        void *content = nullptr;
        unsigned long size = 0;
        const EAFResult result = CStorageManager_GetVariableContentAddressByName("Blob", &content, &size);
        return result != eAF_S_OK || (content == p.blob.data() && size == Parts::blobSize) ? result : wrongEffect;
    });
    provider("CStorageManager_ReassignStorageProviderToLocation",
             [] { return CStorageManager_ReassignStorageProviderToLocation(Parts::locationId, 3); });
    add("CStorageManager_RemoveRegionFromLocation",
        [] { return CStorageManager_RemoveRegionFromLocation("Cfg", Parts::locationId); });
    add("CStorageManager_Uninitialize", [] { return CStorageManager_Uninitialize(); });
}

void Scenario::addStorageClasses() {
    Parts &p = *m_parts;
    add("SLocationDescriptor::SLocationDescriptor", [&p] {
        p.location.emplace(longName, 6, 0, 16);
        return eAF_S_OK;
    }).needs({thrownBadAlloc});
    add("SProviderDescriptor::SProviderDescriptor", [&p] {
        p.provider.emplace(longName, 4, tableInMemory());
        return eAF_S_OK;
    }).needs({thrownBadAlloc});
    add("SProviderDescriptor::addLocation", [&p] {
        p.provider->addLocation(&*p.location);
        return eAF_S_OK;
    }).needs({thrownBadAlloc});
    add("SLocationDescriptor::markProviderAssigned", [&p] {
        p.location->markProviderAssigned(4, &*p.provider);
        return eAF_S_OK;
    });
    add("SLocationDescriptor::addRegion", [&p] { return p.location->addRegion(&p.described); }).needs();
    add("SLocationDescriptor::updatePathHashTable", [&p] {
        p.location->updatePathHashTable();
        return eAF_S_OK;
    }).ignores();
    add("SLocationDescriptor::getVariableByName, SLocationDescriptor::getVariableByPath", [&p] {
        CVariable *variable = nullptr;
        return p.location->getVariableByName("Nobody", &variable) || p.location->getVariableByPath("N/o", &variable)
                   ? wrongEffect
                   : eAF_S_OK;
    });
    add("SLocationDescriptor::reserveWritableSpace", [&p] { return p.location->reserveWritableSpace(10); });
    add("SProviderDescriptor::reserveWritableSpace", [&p] { return p.provider->reserveWritableSpace(6, 10); });
    add("SLocationDescriptor::performProviderOperation", [&p] {
        return p.location->performProviderOperation(ePO_INITIALIZE, tableInMemory(), longName) ? eAF_E_FAILED
                                                                                               : eAF_S_OK;
    });
    add("SProviderDescriptor::performProviderOperation",
        [&p] { return p.provider->performProviderOperation(ePO_STORE_ALL) ? eAF_E_FAILED : eAF_S_OK; });
    add("SLocationDescriptor::removeRegion", [&p] { return p.location->removeRegion("Described"); });
    add("SLocationDescriptor::unassignProvider", [&p] {
        p.location->unassignProvider();
        return static_cast<std::uint32_t>(p.provider->locations.size());
    });
    add("SProviderDescriptor::deleteLocation", [&p] {
        p.provider->deleteLocation(6);
        return eAF_S_OK;
    });
    add("SProviderDescriptor::~SProviderDescriptor, SLocationDescriptor::~SLocationDescriptor", [&p] {
        p.provider.reset();
        p.location.reset();
        return eAF_S_OK;
    });
}

void Scenario::addBroker() {
    Parts &p = *m_parts;
    add("IInterface::IInterface", [&p] {
        p.anInterface.emplace(longName);
        return eAF_S_OK;
    }).needs({thrownBadAlloc});
    add("InterfaceBroker::getInstance, InterfaceBroker::registerInterface", [&p] {
        return InterfaceBroker::getInstance().registerInterface(&*p.anInterface);
    }).needs({thrownBadAlloc});
    static const std::string shortName = "short";
    add("InterfaceBroker::registerInterface", [&p] {
        return InterfaceBroker::getInstance().registerInterface(shortName, &*p.anInterface);
    }).needs({thrownBadAlloc});
    add("InterfaceBroker::registerInterface", [&p] {
        return InterfaceBroker::getInstance().registerInterface(shortName, &*p.anInterface);
    }).answers(eAF_W_ALREADY_REGISTERED);
    add("InterfaceBroker::getInterface, IInterface::getName", [&p] {
        IInterface *found = nullptr;
        const EAFResult result = InterfaceBroker::getInstance().getInterface(longName, &found);
        return result != eAF_S_OK || (found == &*p.anInterface && found->getName() == longName) ? result : wrongEffect;
    });
    add("InterfaceBroker::unregisterInterface",
        [] { return InterfaceBroker::getInstance().unregisterInterface(shortName, nullptr); });
    add("InterfaceBroker::clear", [] {
        InterfaceBroker::getInstance().clear();
        return eAF_S_OK;
    });
    add("IInterface::~IInterface", [&p] {
        p.anInterface.reset();
        return eAF_S_OK;
    });
}

} // namespace test
