/// @file
/// What ends a command early.
#pragma once

#include <stdexcept>
#include <string>

#include "ExitCode.h"

struct Fault : std::runtime_error {
    Fault(ExitCode theExitCode, const std::string &text) : std::runtime_error(text), exitCode(theExitCode) {}
    ExitCode exitCode;
};
