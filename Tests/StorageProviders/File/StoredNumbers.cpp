#include "StoredNumbers.h"

#include "CFileStorage.h"

namespace test {

namespace {
constexpr unsigned long locationId = 1;
constexpr std::size_t numbersOfObject = 100;
} // namespace

StoredNumbers::StoredNumbers(std::size_t count)
    : numbers(count), m_objects((count + numbersOfObject - 1) / numbersOfObject) {
    CDatabase_Construct(&m_database, count);
    CStorageRegion_Construct(&m_region, "Cfg", locationId);
    for (std::size_t i = 0; i < m_objects.size(); ++i) {
        CStorageObject_Construct(&m_objects[i], ("Object" + std::to_string(i)).c_str());
        CStorageRegion_AddObject(&m_region, &m_objects[i]);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = "Number" + std::to_string(i);
        SVariableDescriptor descriptor{&numbers[i], TYPE_INT32, 1, name.c_str(), nullptr};
        CStorageObject_CreateVariables(&m_objects[i / numbersOfObject], &descriptor, 1);
    }
    CDatabase_AddRegion(&m_database, &m_region);
}

StoredNumbers::~StoredNumbers() {
    CDatabase_Destruct(&m_database);
}

RunningProvider::RunningProvider(const std::string &file) {
    CFileStorage_SetFile(locationId, file.c_str());
    CFileStorage_GetProvider()->Initialize(locationId);
}

RunningProvider::~RunningProvider() {
    CFileStorage_UnInitialize();
}

EAFResult RunningProvider::store(StoredNumbers &numbers) {
    return CFileStorage_GetProvider()->StoreAll(locationId, numbers.database(), 0);
}

EAFResult RunningProvider::retrieve(StoredNumbers &numbers) {
    return CFileStorage_GetProvider()->RetrieveAll(locationId, numbers.database(), 0);
}

SStorageStatistics RunningProvider::statistics() const {
    SStorageStatistics statistics{};
    CFileStorage_GetStatistics(locationId, &statistics);
    return statistics;
}

} // namespace test
