/// @file
/// Locations, providers, regions, objects and variables in the plainest data.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "EAFResult.h"

namespace test {

/// What one operation is expected to answer and to have providers called.
struct Expected {
    EAFResult code = eAF_S_OK;
    std::vector<std::string> calls;
    std::vector<std::string> failures; ///< Messages at or above the severity of a warning.
};

class StorageModel {
public:
    struct Variable {
        std::string name;
        int id;
    };
    struct Object {
        std::string name;
        std::vector<Variable> variables;
        std::vector<Object> nested;
    };
    struct Region {
        std::string name;
        unsigned long locationId;
        std::vector<Object> objects;
    };

    /// The number of a provider that has none of the operations.
    static constexpr int nothing = 9;

    void registerLocation(unsigned long id, const std::string &name);
    void registerProvider(unsigned long id, int number);
    Expected assign(unsigned long locationId, unsigned long providerId);
    Expected reassign(unsigned long locationId, unsigned long providerId);
    /// @param isFiled  receives whether the region belongs to the location now.
    Expected registerRegion(const Region &region, bool &isFiled);
    Expected removeRegion(const std::string &name, unsigned long locationId);
    Expected reserve(unsigned long locationId, unsigned long size);
    Expected perform(const std::string &operation);
    void updatePaths();

    /// @return the variable's id, or 0. @param code  receives the code.
    int byPath(const std::string &path, EAFResult &code) const;
    int byName(const std::string &name, EAFResult &code) const;

    /// Which provider fails on which location; 0: none.
    int failingProvider = 0;
    unsigned long failingLocation = 0;

private:
    struct Location {
        unsigned long id;
        std::string name;
        int provider = -1; ///< Place in the list of providers; -1: unassigned.
        std::vector<Region> regions;
        std::map<std::string, int> paths;
    };
    struct Provider {
        unsigned long id;
        int number;
        std::vector<std::size_t> locations;
    };
    int findLocation(unsigned long id) const;
    int findProvider(unsigned long id) const;

    std::vector<Location> m_locations;
    std::vector<Provider> m_providers;
};

} // namespace test
