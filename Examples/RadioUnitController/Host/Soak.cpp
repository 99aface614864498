#include "Host/Soak.h"

#include <CStorageManager.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace radio {

Soak::Soak() = default;

void Soak::registerRegion() {
    CStorageRegion_Construct(&m_region, "Soak", LocationConfiguration);
    CStorageObject_Construct(&m_object, "Block");
    std::vector<std::string> names;
    for (std::size_t i = 0; i < noOfNumbers; ++i) {
        names.push_back("Number" + std::to_string(i));
    }
    std::vector<SVariableDescriptor> variables{{m_table.data(), TYPE_UINT8_ARRAY, sizeOfTable, "Table", nullptr}};
    for (std::size_t i = 0; i < noOfNumbers; ++i) {
        variables.push_back({&m_numbers[i], TYPE_UINT32, 1, names[i].c_str(), nullptr});
    }
    CStorageObject_CreateVariables(&m_object, variables.data(), variables.size());
    CStorageRegion_AddObject(&m_region, &m_object);
    CStorageManager_RegisterRegion(&m_region);
}

bool Soak::isOneGeneration() const {
    const uint32_t generation = m_numbers[0];
    const auto byte = static_cast<unsigned char>(generation);
    return std::all_of(m_numbers.begin(), m_numbers.end(),
                       [generation](uint32_t each) { return each == generation; }) &&
           std::all_of(m_table.begin(), m_table.end(), [byte](unsigned char each) { return each == byte; });
}

void Soak::change(uint32_t generation) {
    // No lock: the host's thread alone changes and stores these, and nobody posts StoreParameters to a soaking host.
    m_numbers.fill(generation);
    m_table.fill(static_cast<unsigned char>(generation));
}

ExitCode Soak::run(Controller &controller, SignalWatch &signals) {
    registerRegion();
    ExitCode exitCode = controller.start() < eAF_E_FAILED ? ExitSuccess : ExitFailure;
    if (exitCode == ExitSuccess && !isOneGeneration()) {
        std::cerr << "RadioUnitController: the parameters retrieved are a mixture of generations\n";
        exitCode = ExitFailure;
    }
    if (exitCode == ExitSuccess) {
        std::printf("generation %u retrieved\n", m_numbers[0]);
    }
    while (exitCode == ExitSuccess && signals.received().empty()) {
        const uint32_t generation = m_numbers[0] + 1;
        change(generation);
        std::printf("storing generation %u\n", generation);
        if (controller.storage().store().isGood) {
            std::printf("stored generation %u\n", generation);
        } else {
            std::cerr << "RadioUnitController: generation " << generation
                      << " could not be stored; the trace says why\n";
            exitCode = ExitFailure;
        }
    }
    controller.stop();
    return exitCode;
}

} // namespace radio
