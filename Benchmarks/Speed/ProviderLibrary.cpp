// The library's two providers, behind the storage manager as hosts have them.

#include "CFileStorage.h"
#include "CSqliteStorage.h"
#include "CStorageManager.h"
#include "CStorageObject.h"
#include "ProviderKeepers.h"
#include "StorageModel.h"

namespace speed {

namespace {

constexpr unsigned long location = 1;
constexpr unsigned long providerId = 1;

struct Provider {
    IStorageProvider *(*table)();
    EAFResult (*setFile)(unsigned long locationId, const char *fileName);
    EAFResult (*end)();
    const char *file;
};

constexpr Provider sqlite{CSqliteStorage_GetProvider, CSqliteStorage_SetFile, CSqliteStorage_UnInitialize, "values.db"};
constexpr Provider plainFile{CFileStorage_GetProvider, CFileStorage_SetFile, CFileStorage_UnInitialize, "values.store"};

class ProviderKeeper : public Keeper {
public:
    ProviderKeeper(const Provider &provider, Values &values, const std::string &folder)
        : m_provider(provider), m_values(values), m_file(folder + "/" + provider.file) {
        StorageModel::end(); // the manager holds one or the other
        nameFile();
        requireNoError("a location", CStorageManager_RegisterLocation(
                                         location, "values", static_cast<unsigned long>(values.all().size()), 0));
        requireNoError("a provider", CStorageManager_RegisterStorageProvider(provider.table(), providerId, "measured"));
        requireNoError("an assignment", CStorageManager_AssignStorageProviderToLocation(location, providerId));
        registerVariables();
        requireNoError("filing the paths", CStorageManager_UpdatePathHashTable());
        requireNoError("the provider's start", CStorageManager_InitializeAllProviders());
    }
    ~ProviderKeeper() override {
        CStorageManager_Uninitialize();
        m_provider.end();
    }

    void store() override { requireNoError("a store", CStorageManager_StoreAll()); }
    void retrieve() override { requireNoError("a retrieve", CStorageManager_RetrieveAll()); }
    void close() override {
        requireNoError("the provider's end", m_provider.end());
        nameFile();
    }
    void open() override { requireNoError("the provider's start", CStorageManager_InitializeAllProviders()); }

private:
    void nameFile() { requireNoError("the file's name", m_provider.setFile(location, m_file.c_str())); }

    void registerVariables() {
        const std::size_t count = m_values.all().size();
        m_objects.resize((count + Values::perObject - 1) / Values::perObject);
        m_regions.resize((count + Values::perRegion - 1) / Values::perRegion);
        for (std::size_t i = 0; i < count; ++i) {
            const Value &value = m_values.all()[i];
            const std::size_t slash = value.path.find('/');
            CStorageRegion &region = m_regions[i / Values::perRegion];
            CStorageObject &object = m_objects[i / Values::perObject];
            if (i % Values::perRegion == 0) {
                CStorageRegion_Construct(&region, value.path.substr(0, slash).c_str(), location);
                requireNoError("a region", CStorageManager_RegisterRegion(&region));
            }
            if (i % Values::perObject == 0) {
                CStorageObject_Construct(&object, value.group().substr(slash + 1).c_str());
                requireNoError("an object", CStorageRegion_AddObject(&region, &object));
            }
            const std::string name = value.name();
            SVariableDescriptor descriptor{m_values.contentOf(value), value.type, value.noOfElements, name.c_str(),
                                           nullptr};
            requireNoError("a variable", CStorageObject_CreateVariables(&object, &descriptor, 1));
        }
    }

    const Provider &m_provider;
    Values &m_values;
    std::string m_file;
    std::vector<CStorageObject> m_objects;
    std::vector<CStorageRegion> m_regions;
};

} // namespace

std::unique_ptr<Keeper> makeSqliteProvider(Values &values, const std::string &folder) {
    return std::make_unique<ProviderKeeper>(sqlite, values, folder);
}

std::unique_ptr<Keeper> makeFileProvider(Values &values, const std::string &folder) {
    return std::make_unique<ProviderKeeper>(plainFile, values, folder);
}

} // namespace speed
