/// @file
/// One controller: the framework, its configuration and its applications, and the runs of its groups.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Host/Applications.h"
#include "Host/Framework.h"
#include "Host/Options.h"
#include "Host/Storage.h"
#include "Support/Arrivals.h"
#include "Support/PhaseCall.h"
#include "Support/TemporaryFile.h"

namespace radio {

/// One at a time in a process. What it opened is gone when it dies.
class Controller {
public:
    /// @throw std::runtime_error  the framework refused something; the text says what.
    explicit Controller(const Options &options);
    Controller(const Controller &) = delete;
    Controller &operator=(const Controller &) = delete;
    ~Controller();

    /// Initializes the applications and runs the start group.
    EAFResult start();

    /// Runs the stop group: every module is reached, whatever fails and whatever the options say.
    EAFResult stop();

    /// Runs one of the other groups. @param radioChannel  1 to 4 or ALL_RADIO_CHANNELS.
    EAFResult run(uint32_t groupId, uint32_t radioChannel);

    /// Each module's name and what its last call came to.
    static void printModuleStates();

    Arrivals &arrivals() { return m_arrivals; }
    Storage &storage() { return m_storage; }
    PlatformApplication &platform() { return m_applications.platform(); } ///< From start on.
    RadioApplication &radio() { return m_applications.radio(); }          ///< From start on.

private:
    const std::unique_ptr<TemporaryFile> m_generatedFirmware; // null with --firmware
    const Options m_options;
    Arrivals m_arrivals;
    Framework m_framework;
    Storage m_storage;
    Applications m_applications; // last: the modules go before the framework does
};

} // namespace radio
