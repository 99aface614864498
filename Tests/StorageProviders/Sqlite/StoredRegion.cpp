#include "StoredRegion.h"

#include <algorithm>

namespace test {

StoredRegion::StoredRegion(const Shape &shape) {
    m_contents.resize(shape.numbers, std::vector<unsigned char>(sizeof(std::int32_t)));
    m_contents.resize(shape.numbers + shape.arrays, std::vector<unsigned char>(shape.bytesOfArray));
    CDatabase_Construct(&m_database, m_contents.size());
    CStorageRegion_Construct(&m_region, "Region", 1);
    constexpr std::size_t variablesOfObject = 100;
    m_objects.resize((m_contents.size() + variablesOfObject - 1) / variablesOfObject);
    for (std::size_t i = 0; i < m_objects.size(); ++i) {
        CStorageObject_Construct(&m_objects[i], ("Object" + std::to_string(i)).c_str());
        CStorageRegion_AddObject(&m_region, &m_objects[i]);
    }
    for (std::size_t i = 0; i < m_contents.size(); ++i) {
        const bool isNumber = i < shape.numbers;
        const std::string name = (isNumber ? "Number" : "Array") + std::to_string(i);
        SVariableDescriptor descriptor{m_contents[i].data(), isNumber ? TYPE_INT32 : TYPE_UINT8_ARRAY,
                                       isNumber ? 1u : static_cast<std::uint32_t>(shape.bytesOfArray), name.c_str(),
                                       nullptr};
        CStorageObject_CreateVariables(&m_objects[i / variablesOfObject], &descriptor, 1);
    }
    CDatabase_AddRegion(&m_database, &m_region);
    CDatabase_UpdatePathHashTable(&m_database);
}

StoredRegion::~StoredRegion() {
    CDatabase_Destruct(&m_database);
}

void StoredRegion::fill(std::uint32_t generation, std::size_t noOfVariables) {
    for (std::size_t i = 0; i < std::min(noOfVariables, m_contents.size()); ++i) {
        const std::size_t step = std::size_t{generation} + 3;
        for (std::size_t j = 0; j < m_contents[i].size(); ++j) {
            m_contents[i][j] = static_cast<unsigned char>(step * 37 + i * 11 + j * step);
        }
    }
}

std::string StoredRegion::contents() const {
    std::string all;
    for (const auto &content : m_contents) {
        all.append(content.begin(), content.end());
    }
    return all;
}

RunningProvider::RunningProvider(const std::string &file, unsigned long locationId) : m_locationId(locationId) {
    CSqliteStorage_SetFile(m_locationId, file.c_str());
    CSqliteStorage_GetProvider()->Initialize(m_locationId);
}

RunningProvider::~RunningProvider() {
    CSqliteStorage_UnInitialize();
}

EAFResult RunningProvider::store(StoredRegion &region) {
    return CSqliteStorage_GetProvider()->StoreAll(m_locationId, region.database(), 0);
}

EAFResult RunningProvider::retrieve(StoredRegion &region) {
    return CSqliteStorage_GetProvider()->RetrieveAll(m_locationId, region.database(), 0);
}

SStorageStatistics RunningProvider::statistics() const {
    SStorageStatistics statistics{};
    CSqliteStorage_GetStatistics(m_locationId, &statistics);
    return statistics;
}

} // namespace test
