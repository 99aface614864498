/// @file
/// A day in the life of the controller, in a second: start, events, a DSP failure and its recovery, a restart
/// of one radio channel, stop.
#pragma once

#include <string>

#include "Host/Controller.h"
#include "Host/ExitCode.h"
#include "Host/SignalWatch.h"

namespace radio {

class Demonstration {
public:
    Demonstration(Controller &controller, SignalWatch &signals, const Options &options);

    /// Always stops the controller before it returns, also after a failure and after a signal.
    ExitCode run();

private:
    /// Each step gives false when the ones after it make no sense.
    using Step = bool (Demonstration::*)();
    bool start();
    bool handleEvents();
    bool loseDsp();
    bool recoverDsp();
    bool restartRadio();
    bool changeParameters();
    bool stay();

    void stop();
    void heading(const std::string &text);
    bool fail(const std::string &what);
    bool sampleBoardFromOutside();

    Controller &m_controller;
    SignalWatch &m_signals;
    const Options &m_options;
    unsigned int m_headings = 0;
    bool m_started = false;
    ExitCode m_exitCode = ExitSuccess;
};

} // namespace radio
