/// @file
/// The controller's two applications. Each makes its modules when the framework initializes it.
#pragma once

#include <CApplicationFramework.h>

#include <memory>
#include <vector>

#include "Hardware/Dsp.h"
#include "Host/Options.h"
#include "Host/Storage.h"
#include "Modules/AlarmCollector.h"
#include "Modules/BoardSupervision.h"
#include "Modules/DspLoader.h"
#include "Modules/EventLog.h"
#include "Modules/FrameFormatLoader.h"
#include "Modules/ParameterStore.h"
#include "Modules/PowerAmplifier.h"
#include "Support/Arrivals.h"

namespace radio {

/// Event log, alarms, clock and board: what any controller has.
struct PlatformApplication {
    explicit PlatformApplication(Arrivals &arrivals);
    PlatformApplication(const PlatformApplication &) = delete;
    PlatformApplication &operator=(const PlatformApplication &) = delete;
    ~PlatformApplication();

    EAFResult subscribe();

    EventLog eventLog;
    AlarmCollector alarmCollector;
    BoardSupervision boardSupervision;
};

/// DSP, frame format, parameters and the amplifiers of the four channels.
struct RadioApplication {
    RadioApplication(const Options &options, Storage &storage, Arrivals &arrivals);

    EAFResult subscribe();

    Dsp dsp;
    FrameFormatLoader frameFormatLoader;
    DspLoader dspLoader;
    ParameterStore parameterStore;
    std::vector<std::unique_ptr<PowerAmplifier>> powerAmplifiers;
};

/// Both applications. The framework's entry functions take no argument, so one object of this class at a time
/// is what they work on.
class Applications {
public:
    /// @param options, storage, arrivals  must outlive this object.
    Applications(const Options &options, Storage &storage, Arrivals &arrivals);
    Applications(const Applications &) = delete;
    Applications &operator=(const Applications &) = delete;
    ~Applications();

    /// Hands both to the framework.
    static EAFResult registerAll();

    /// What CApplicationFramework_Start does before it runs the start group.
    static EAFResult initializeAll();

    PlatformApplication &platform() { return *m_platform; }
    RadioApplication &radio() { return *m_radio; }

private:
    static EAFResult initializePlatform();
    static EAFResult initializeRadio();

    static SApplicationDescriptor platformDescriptor;
    static SApplicationDescriptor radioDescriptor;
    static Applications *current;

    const Options &m_options;
    Storage &m_storage;
    Arrivals &m_arrivals;
    std::unique_ptr<PlatformApplication> m_platform; // made by its application's initialize
    std::unique_ptr<RadioApplication> m_radio;
};

} // namespace radio
