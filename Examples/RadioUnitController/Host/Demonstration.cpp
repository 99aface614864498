#include "Host/Demonstration.h"

#include <unistd.h>

#include <AfResult.h>
#include <CEventHandler.h>

#include <array>
#include <cstdio>
#include <iostream>

#include "Host/ChildProcess.h"
#include "Host/ResetProvider.h"
#include "Support/DataWord.h"
#include "Support/IGainControl.h"
#include "Support/QueueMessage.h"

namespace radio {
namespace {

void printSetting(int32_t port) {
    ResetInfo info{};
    std::array<char, 64> resetText{};
    CModuleManager_GetSystemResetInfo(&info, resetText.data(), static_cast<uint32_t>(resetText.size()));
    std::printf("Radio unit controller, server port %d, process %ld\n", port, static_cast<long>(getpid()));
    std::printf("  last reset: %s; cold: %s\n", resetText.data(), CModuleManager_IsColdReset() != 0 ? "yes" : "no");
    for (const char *listener :
         {LISTENER_EVENT_LOG, LISTENER_ALARM_COLLECTOR, LISTENER_BOARD_SUPERVISION, LISTENER_PARAMETER_STORE}) {
        std::printf("  queue: %s\n", queueName(listener).c_str());
    }
}

} // namespace

Demonstration::Demonstration(Controller &controller, SignalWatch &signals, const Options &options)
    : m_controller(controller), m_signals(signals), m_options(options) {}

ExitCode Demonstration::run() {
    printSetting(m_options.port);
    for (const Step step :
         {&Demonstration::start, &Demonstration::handleEvents, &Demonstration::loseDsp, &Demonstration::recoverDsp,
          &Demonstration::restartRadio, &Demonstration::changeParameters, &Demonstration::stay}) {
        const std::string signal = m_signals.received();
        if (!signal.empty()) {
            std::printf("\n%s: stopping\n", signal.c_str());
            break;
        }
        if (!(this->*step)()) {
            break;
        }
    }
    stop();
    return m_exitCode;
}

bool Demonstration::start() {
    heading("Start");
    m_started = true;
    return m_controller.start() < eAF_E_FAILED || fail("start failed");
}

bool Demonstration::handleEvents() {
    heading("Events");
    std::printf("  this process fires SampleBoard\n");
    CEventHandler_FireEvent(EVENT_SAMPLE_BOARD);
    const bool handled = m_controller.arrivals().show(LISTENER_BOARD_SUPERVISION, 1) &&
                         m_controller.arrivals().show(LISTENER_ALARM_COLLECTOR, 1);
    return (handled && sampleBoardFromOutside()) || fail("events were not handled");
}

bool Demonstration::sampleBoardFromOutside() {
    std::printf("  another process posts SampleBoard:\n");
    const int status = runSibling("PostEvent", {"--port", std::to_string(m_options.port), "--listener",
                                                LISTENER_BOARD_SUPERVISION, "--event", "SampleBoard"});
    return status == ExitSuccess && m_controller.arrivals().show(LISTENER_BOARD_SUPERVISION, 1) &&
           m_controller.arrivals().show(LISTENER_ALARM_COLLECTOR, 1);
}

bool Demonstration::loseDsp() {
    heading("DSP failure");
    std::printf("  a bit of the DSP's memory flips, then another frame format is loaded\n");
    m_controller.radio().dsp.flipBit(4711, 3);
    m_controller.radio().frameFormatLoader.request(downlinkFrameFormat);
    if (m_controller.run(GROUP_FRAME_FORMAT_LOAD, ALL_RADIO_CHANNELS) < eAF_E_FAILED) {
        return fail("a damaged DSP was not noticed");
    }
    // This is the failure that the run is about; it is shown, not reported.
    takeFailures();
    bool handled = m_controller.arrivals().show(LISTENER_ALARM_COLLECTOR, 1);
    CEventHandler_FireEventWithData(EVENT_ALARM_ACKNOWLEDGED, toDataWord(m_controller.radio().dspLoader.alarm()));
    handled = m_controller.arrivals().show(LISTENER_ALARM_COLLECTOR, 1) && handled;
    return handled || fail("the alarm was not handled");
}

bool Demonstration::recoverDsp() {
    heading("DSP recovery");
    std::printf("  module states before\n");
    Controller::printModuleStates();
    if (m_controller.run(GROUP_DSP_RECOVERY, ALL_RADIO_CHANNELS) >= eAF_E_FAILED) {
        CModuleManager_PerformSystemReset(ResetWarm, ReasonDspRecoveryFailed, ALL_RADIO_CHANNELS);
        return fail("DSP recovery failed");
    }
    // What waited while the alarm thread was held: the urgent message first, although it was sent last.
    const bool handled = m_controller.arrivals().show(LISTENER_ALARM_COLLECTOR, 3);
    std::printf("  module states after\n");
    Controller::printModuleStates();
    if (m_controller.run(GROUP_FRAME_FORMAT_LOAD, ALL_RADIO_CHANNELS) >= eAF_E_FAILED) {
        return fail("the frame format could not be loaded after the recovery");
    }
    return handled || fail("the alarms were not handled");
}

bool Demonstration::restartRadio() {
    heading("Restart of one radio channel");
    const uint32_t group = m_options.restartCold ? GROUP_RADIO_RESTART_COLD : GROUP_RADIO_RESTART_WARM;
    if (m_controller.run(group, m_options.restartChannel) >= eAF_E_FAILED) {
        CModuleManager_PerformSystemReset(ResetWarm, ReasonRadioRestartFailed, m_options.restartChannel);
        return fail("the restart of radio channel " + std::to_string(m_options.restartChannel) + " failed");
    }
    return true;
}

bool Demonstration::changeParameters() {
    heading("Parameters, kept until the next start");
    ParameterStore::print();
    // Each run takes a decibel; where none is left, the operator gives ten back.
    const bool goesDown = ParameterStore::storedGain(2) >= 1.0;
    std::printf("  the gain of channel 2 goes %s, through the interface %s\n",
                goesDown ? "down by 1 dB" : "up by 10 dB", IGainControl::nameOf(2).c_str());
    if (!m_controller.radio().parameterStore.tune(2, goesDown ? -1.0 : 10.0)) {
        return fail("the gain could not be changed");
    }
    CEventHandler_FireEvent(EVENT_STORE_PARAMETERS);
    return m_controller.arrivals().show(LISTENER_PARAMETER_STORE, 1) || fail("the parameters were not stored");
}

bool Demonstration::stay() {
    if (!m_options.stay) {
        return true;
    }
    heading("Running until SIGINT or SIGTERM; PostEvent reaches it meanwhile");
    while (m_signals.received().empty()) {
        m_signals.wait(m_controller.arrivals().descriptor());
        m_controller.arrivals().showPending();
    }
    std::printf("\n%s: stopping\n", m_signals.received().c_str());
    return true;
}

void Demonstration::stop() {
    if (!m_started) {
        return;
    }
    heading("Stop");
    if (m_controller.stop() >= eAF_E_FAILED) {
        fail("stop failed");
    }
    m_controller.arrivals().showPending();
    std::printf("  events that the log heard\n");
    m_controller.platform().eventLog.print();
}

void Demonstration::heading(const std::string &text) {
    std::printf("\n[%u] %s\n", ++m_headings, text.c_str());
}

bool Demonstration::fail(const std::string &what) {
    std::cerr << "RadioUnitController: " << what << '\n';
    const std::vector<PhaseFailure> failures = takeFailures();
    if (failures.empty()) {
        std::cerr << "  no module failed; the trace above says what did\n";
    }
    for (const PhaseFailure &failure : failures) {
        std::cerr << "  module " << failure.module << " failed in phase " << failure.phase << " with "
                  << AfResult::toString(failure.code) << ": " << failure.reason << '\n';
    }
    m_exitCode = ExitFailure;
    return false;
}

} // namespace radio
