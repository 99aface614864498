/// @file
/// Where this controller keeps its parameters: two locations, on the provider that the command line names.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "Host/Options.h"

namespace radio {

/// Locations that modules file their regions in.
enum : unsigned long { LocationConfiguration = 1, LocationCalibration = 2 };

struct StorageResult {
    bool isGood = false;
    uint32_t retrieved = 0;
    uint32_t missing = 0; ///< Among them those whose stored value did not fit: their defaults hold.
    uint32_t written = 0;
};

/// One at a time in a process.
class Storage {
public:
    /// Registers locations and provider; opens nothing yet.
    /// @throw std::runtime_error  the folder can not be made.
    explicit Storage(const Options &options);
    Storage(const Storage &) = delete;
    Storage &operator=(const Storage &) = delete;
    ~Storage();

    /// After every region was registered.
    StorageResult retrieve();

    /// Any thread: one at a time goes to the providers.
    StorageResult store();

    /// While the modules still live: their objects are destructed here.
    void close();

private:
    StorageResult resultOf(bool isGood) const;

    const StorageKind m_kind;
    const bool m_isTemporary;
    std::string m_folder;
    std::mutex m_mutex;
    bool m_isOpen = true;
};

} // namespace radio
