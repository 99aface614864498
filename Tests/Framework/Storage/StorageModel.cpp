#include "StorageModel.h"

#include <algorithm>

namespace test {

namespace {

void filePaths(const StorageModel::Object &object, const std::string &before, std::map<std::string, int> &paths) {
    const std::string here = before + "/" + object.name;
    for (const StorageModel::Variable &variable : object.variables) {
        paths[here + "/" + variable.name] = variable.id;
    }
    for (const StorageModel::Object &nested : object.nested) {
        filePaths(nested, here, paths);
    }
}

} // namespace

int StorageModel::findLocation(unsigned long id) const {
    const auto found =
        std::find_if(m_locations.begin(), m_locations.end(), [id](const Location &l) { return l.id == id; });
    return found != m_locations.end() ? static_cast<int>(found - m_locations.begin()) : -1;
}

int StorageModel::findProvider(unsigned long id) const {
    const auto found =
        std::find_if(m_providers.begin(), m_providers.end(), [id](const Provider &p) { return p.id == id; });
    return found != m_providers.end() ? static_cast<int>(found - m_providers.begin()) : -1;
}

void StorageModel::registerLocation(unsigned long id, const std::string &name) {
    m_locations.push_back({id, name, -1, {}, {}});
}

void StorageModel::registerProvider(unsigned long id, int number) {
    m_providers.push_back({id, number, {}});
}

Expected StorageModel::assign(unsigned long locationId, unsigned long providerId) {
    const int provider = findProvider(providerId);
    if (provider < 0) {
        return {
            eAF_E_UNKNOWN_PROVIDER, {}, {"No such storage provider (provider id=" + std::to_string(providerId) + ")"}};
    }
    const int location = findLocation(locationId);
    if (location < 0) {
        return {
            eAF_E_UNKNOWN_LOCATION, {}, {"No such storage location (location id=" + std::to_string(locationId) + ")"}};
    }
    m_providers[static_cast<std::size_t>(provider)].locations.push_back(static_cast<std::size_t>(location));
    m_locations[static_cast<std::size_t>(location)].provider = provider;
    return {};
}

Expected StorageModel::reassign(unsigned long locationId, unsigned long providerId) {
    const int place = findLocation(locationId);
    if (place < 0) {
        return {
            eAF_E_UNKNOWN_LOCATION, {}, {"No such storage location (location id=" + std::to_string(locationId) + ")"}};
    }
    Location &location = m_locations[static_cast<std::size_t>(place)];
    if (location.provider >= 0) {
        auto &listed = m_providers[static_cast<std::size_t>(location.provider)].locations;
        const auto first = std::find_if(listed.begin(), listed.end(),
                                        [&](std::size_t each) { return m_locations[each].id == locationId; });
        if (first != listed.end()) {
            listed.erase(first);
        }
        location.provider = -1;
    }
    const int provider = findProvider(providerId);
    if (provider < 0) {
        return {
            eAF_E_UNKNOWN_PROVIDER, {}, {"No such storage provider (provider id=" + std::to_string(providerId) + ")"}};
    }
    location.provider = provider;
    Expected expected = perform("Initialize");
    if (expected.code != eAF_S_OK) {
        expected.failures.emplace_back("Could not re-initialize storage providers (call to "
                                       "CStorageManager_InitializeAllProviders() failed)\n");
    }
    return expected;
}

Expected StorageModel::registerRegion(const Region &region, bool &isFiled) {
    isFiled = false;
    const int place = findLocation(region.locationId);
    if (place < 0) {
        return {
            eAF_E_UNKNOWN_LOCATION, {}, {"No such location (location id=" + std::to_string(region.locationId) + ")"}};
    }
    if (region.name.empty()) {
        return {eAF_E_FAILED,
                {},
                {"Could not add region to database (location id=" + std::to_string(region.locationId) + ")\n"}};
    }
    std::vector<Region> &regions = m_locations[static_cast<std::size_t>(place)].regions;
    isFiled =
        std::none_of(regions.begin(), regions.end(), [&](const Region &each) { return each.name == region.name; });
    if (isFiled) {
        regions.push_back(region);
    }
    return {};
}

Expected StorageModel::removeRegion(const std::string &name, unsigned long locationId) {
    const int place = findLocation(locationId);
    if (place < 0) {
        return {eAF_E_UNKNOWN_LOCATION, {}, {"No such location (location id=" + std::to_string(locationId) + ")"}};
    }
    std::vector<Region> &regions = m_locations[static_cast<std::size_t>(place)].regions;
    const auto found =
        std::find_if(regions.begin(), regions.end(), [&](const Region &each) { return each.name == name; });
    if (found == regions.end()) {
        return {eAF_E_FAILED,
                {},
                {"Could not get region",
                 "Could not remove region " + name + " from location id " + std::to_string(locationId) + ")\n"}};
    }
    regions.erase(found);
    return {};
}

Expected StorageModel::reserve(unsigned long locationId, unsigned long size) {
    const int place = findLocation(locationId);
    if (place < 0) {
        return {eAF_E_UNKNOWN_LOCATION, {}, {"No such location (location id=" + std::to_string(locationId) + ")"}};
    }
    const Location &location = m_locations[static_cast<std::size_t>(place)];
    if (location.provider < 0) {
        return {eAF_E_FAILED, {}, {"No StorageProvider is assigned to location " + location.name + " \n"}};
    }
    const int number = m_providers[static_cast<std::size_t>(location.provider)].number;
    Expected expected;
    if (number == nothing) {
        expected.code = eAF_E_NOT_IMPLEMENTED;
    } else {
        expected.calls.push_back(std::to_string(number) + ".Reserve " + std::to_string(locationId) + "," +
                                 std::to_string(size));
    }
    if (number == failingProvider && locationId == failingLocation) {
        expected.code = eAF_E_STACK_EMPTY;
    }
    if (expected.code != eAF_S_OK) {
        expected.failures.push_back("Storage provider reports error when reserving writable size (location id=" +
                                    std::to_string(locationId) + ")");
    }
    return expected;
}

Expected StorageModel::perform(const std::string &operation) {
    Expected expected;
    for (const Provider &provider : m_providers) {
        for (const std::size_t place : provider.locations) {
            const unsigned long id = m_locations[place].id;
            const unsigned long data = operation == "Initialize" ? 0 : id * 10;
            if (provider.number != nothing) {
                expected.calls.push_back(std::to_string(provider.number) + "." + operation + " " + std::to_string(id) +
                                         "," + std::to_string(data));
            }
            if (provider.number == nothing || (provider.number == failingProvider && id == failingLocation)) {
                expected.code = eAF_E_FAILED;
                expected.failures.push_back("Storage provider failure (provider: P" + std::to_string(provider.number) +
                                            ")");
            }
        }
    }
    if (expected.code != eAF_S_OK) {
        expected.failures.push_back(operation + " failed");
    }
    return expected;
}

void StorageModel::updatePaths() {
    for (Location &location : m_locations) {
        for (const Region &region : location.regions) {
            for (const Object &object : region.objects) {
                filePaths(object, region.name, location.paths);
            }
        }
    }
}

int StorageModel::byPath(const std::string &path, EAFResult &code) const {
    for (const Location &location : m_locations) {
        const auto found = location.paths.find(path);
        if (found != location.paths.end()) {
            code = eAF_S_OK;
            return found->second;
        }
    }
    code = eAF_E_UNKNOWN_VARIABLE;
    return 0;
}

int StorageModel::byName(const std::string &name, EAFResult &code) const {
    for (const Location &location : m_locations) {
        for (const Region &region : location.regions) {
            for (const Object &object : region.objects) {
                for (const Variable &variable : object.variables) {
                    if (variable.name == name) {
                        code = eAF_S_OK;
                        return variable.id;
                    }
                }
            }
        }
    }
    code = eAF_E_UNKNOWN_VARIABLE;
    return 0;
}

} // namespace test
