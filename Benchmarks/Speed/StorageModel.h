/// @file
/// Variables filed with the storage manager as modules file them, for the rows that look for them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CDatabase.h"
#include "CStorageObject.h"
#include "CStorageRegion.h"

namespace speed {

/// Ends the benchmark with an exception where the library fails.
void requireNoError(const char *step, EAFResult result);

/// Bytes that the C library's allocator has handed out.
std::size_t allocatedBytes();

/// The process has one storage manager, and so one model: of() ends the one that stood and makes the other.
class StorageModel {
public:
    struct Shape {
        std::uint32_t variables;
        std::uint32_t locations;
        bool operator==(const Shape &other) const {
            return variables == other.variables && locations == other.locations;
        }
    };

    /// Of each object but the last one of a location.
    static constexpr std::size_t variablesPerObject = 100;

    /// @return the model of that shape, with the paths filed; the one that stands if it has that shape.
    static StorageModel &of(const Shape &shape);

    /// Gives up the model that stands; the next one is made anew.
    static void end();

    ~StorageModel();
    StorageModel(const StorageModel &) = delete;
    StorageModel &operator=(const StorageModel &) = delete;

    /// In the order of registration, location by location.
    const std::vector<CVariable *> &variables() const { return m_variables; }
    /// How many of them a location has; the last one may have more.
    std::size_t variablesPerLocation() const { return m_shape.variables / m_shape.locations; }
    std::size_t locations() const { return m_shape.locations; }

    static const char *pathOf(CVariable *variable);
    static const char *nameOf(CVariable *variable);

    /// A location's database, as a provider is handed it.
    CDatabase &database(std::size_t location) const { return *m_databases[location]; }

    /// No two models of a process have the same.
    unsigned serial() const { return m_serial; }

    /// What the tables of paths take from the heap.
    std::size_t heapOfPaths() const { return m_heapOfPaths; }

private:
    explicit StorageModel(const Shape &shape);
    void registerLocations();
    void createVariables();
    CStorageObject &addObject();

    Shape m_shape;
    unsigned m_serial;
    std::vector<std::int32_t> m_contents;
    std::unique_ptr<CStorageObject[]> m_objects;
    std::unique_ptr<CStorageRegion[]> m_regions;
    std::size_t m_noOfObjects = 0;
    std::size_t m_noOfRegions = 0;
    std::vector<CVariable *> m_variables;
    std::vector<CDatabase *> m_databases;
    std::size_t m_heapOfPaths = 0;
};

} // namespace speed
