/// @file
/// Stores a block of parameters over and over, so that whoever kills the host can see what a later start finds.
#pragma once

#include <CStorageRegion.h>

#include <array>
#include <cstdint>

#include "Host/Controller.h"
#include "Host/ExitCode.h"
#include "Host/SignalWatch.h"

namespace radio {

/// Must outlive the controller, whose end destructs the storage objects.
class Soak {
public:
    Soak();

    /// Starts the controller, says which generation was retrieved, then stores one after another until a signal.
    /// @return a failure also when what was retrieved is a mixture of generations.
    ExitCode run(Controller &controller, SignalWatch &signals);

private:
    static constexpr std::size_t noOfNumbers = 64;
    static constexpr uint32_t sizeOfTable = 4096;

    void registerRegion();
    bool isOneGeneration() const;
    void change(uint32_t generation);

    std::array<uint32_t, noOfNumbers> m_numbers{};
    std::array<unsigned char, sizeOfTable> m_table{};
    CStorageRegion m_region{};
    CStorageObject m_object{};
};

} // namespace radio
