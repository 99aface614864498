#include "StorageModel.h"

#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "CStorageManager.h"

namespace speed {

namespace {

constexpr std::size_t objectsPerRegion = 100;
constexpr unsigned long providerId = 1;

/// More than that would swap on a small machine, and the figures would be the disk's.
constexpr std::size_t mostHeap = std::size_t{2} << 30;

std::unique_ptr<StorageModel> theModel;
unsigned lastSerial = 0;

std::vector<CDatabase *> *handedDatabases;

EAFResult keepDatabase(unsigned long locationId, CDatabase *database, unsigned long /*locationData*/) {
    (*handedDatabases)[locationId - 1] = database;
    return eAF_S_OK;
}

IStorageProvider provider{
    [](unsigned long /*locationId*/) { return eAF_S_OK; },
    [](unsigned long /*locationId*/, unsigned long /*size*/) { return eAF_S_OK; },
    [](unsigned long /*locationId*/, CDatabase * /*database*/, unsigned long /*locationData*/) { return eAF_S_OK; },
    keepDatabase};

std::size_t piecesOf(std::size_t whole, std::size_t piece) {
    return (whole + piece - 1) / piece;
}

} // namespace

void requireNoError(const char *step, EAFResult result) {
    if (result >= eAF_E_FAILED) {
        std::array<char, 160> text{};
        std::snprintf(text.data(), text.size(), "%s failed with %#x; VOXTRACE_LEVEL=warning tells more", step,
                      static_cast<unsigned>(result));
        throw std::runtime_error(text.data());
    }
}

std::size_t allocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

StorageModel &StorageModel::of(const Shape &shape) {
    if (theModel == nullptr || !(theModel->m_shape == shape)) {
        end();
        // Small blocks that were freed are joined: the next model's would lie where the last one's did, here and there.
        malloc_trim(0);
        theModel.reset(new StorageModel(shape));
    }
    return *theModel;
}

void StorageModel::end() {
    theModel.reset();
}

StorageModel::StorageModel(const Shape &shape)
    : m_shape(shape), m_serial(++lastSerial), m_contents(shape.variables), m_databases(shape.locations) {
    registerLocations();
    createVariables();
    const std::size_t before = allocatedBytes();
    requireNoError("filing the paths", CStorageManager_UpdatePathHashTable());
    m_heapOfPaths += allocatedBytes() - before;
    handedDatabases = &m_databases;
    requireNoError("the retrieval", CStorageManager_RetrieveAll());
    if (allocatedBytes() > mostHeap) {
        throw std::runtime_error("more than 2 GiB are taken from the heap: make the largest row smaller");
    }
}

StorageModel::~StorageModel() {
    CStorageManager_Uninitialize();
}

const char *StorageModel::pathOf(CVariable *variable) {
    const char *path = nullptr;
    requireNoError("a path", CVariable_GetPath(variable, &path));
    return path;
}

const char *StorageModel::nameOf(CVariable *variable) {
    const char *name = nullptr;
    requireNoError("a name", CVariable_GetName(variable, &name));
    return name;
}

void StorageModel::registerLocations() {
    const std::size_t before = allocatedBytes();
    for (unsigned long id = 1; id <= m_shape.locations; ++id) {
        const std::string name = "location" + std::to_string(id);
        requireNoError("a location", CStorageManager_RegisterLocation(id, name.c_str(), variablesPerLocation(), 0));
    }
    m_heapOfPaths = allocatedBytes() - before; // the tables have their room from the beginning
    requireNoError("a provider", CStorageManager_RegisterStorageProvider(&provider, providerId, "none"));
    for (unsigned long id = 1; id <= m_shape.locations; ++id) {
        requireNoError("an assignment", CStorageManager_AssignStorageProviderToLocation(id, providerId));
    }
}

/// Each location has its own regions, and a region is full before the next one begins.
void StorageModel::createVariables() {
    const std::size_t objectsPerLocation =
        piecesOf(variablesPerLocation() + m_shape.variables % m_shape.locations, variablesPerObject);
    m_objects.reset(new CStorageObject[objectsPerLocation * m_shape.locations]());
    m_regions.reset(new CStorageRegion[piecesOf(objectsPerLocation, objectsPerRegion) * m_shape.locations]());
    m_variables.reserve(m_shape.variables);
    for (unsigned long id = 1; id <= m_shape.locations; ++id) {
        const std::size_t last =
            id == m_shape.locations ? m_shape.variables : variablesPerLocation() * static_cast<std::size_t>(id);
        CStorageRegion *region = nullptr;
        for (std::size_t objects = 0; m_variables.size() < last; ++objects) {
            if (objects % objectsPerRegion == 0) {
                region = &m_regions[m_noOfRegions++];
                std::array<char, 32> name{};
                std::snprintf(name.data(), name.size(), "Carrier%03zu", m_noOfRegions);
                CStorageRegion_Construct(region, name.data(), id);
                requireNoError("a region", CStorageManager_RegisterRegion(region));
            }
            CStorageObject &object = addObject();
            requireNoError("an object", CStorageRegion_AddObject(region, &object));
            const std::size_t full = std::min(last, m_variables.size() + variablesPerObject);
            while (m_variables.size() < full) {
                std::array<char, 32> name{};
                std::snprintf(name.data(), name.size(), "Parameter%07zu", m_variables.size());
                SVariableDescriptor descriptor{&m_contents[m_variables.size()], TYPE_INT32, 1, name.data(), nullptr};
                requireNoError("a variable", CStorageObject_CreateVariables(&object, &descriptor, 1));
                m_variables.push_back(nullptr);
            }
            CListIterator iterator{};
            std::size_t place = m_variables.size() - CStorageObject_GetNoOfVariables(&object);
            requireNoError("the variables", CStorageObject_GetVariableIterator(&object, &iterator));
            for (; place < m_variables.size(); ++place) {
                requireNoError("a variable", CStorageObject_GetNextVariable(&object, &m_variables[place], &iterator));
            }
        }
    }
}

CStorageObject &StorageModel::addObject() {
    CStorageObject &object = m_objects[m_noOfObjects++];
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "PowerAmplifier%05zu", m_noOfObjects);
    CStorageObject_Construct(&object, name.data());
    return object;
}

} // namespace speed
