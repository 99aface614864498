/// @file
/// What the programs of this folder end with.
#pragma once

namespace radio {

enum ExitCode : int {
    ExitSuccess = 0,
    ExitFailure = 1, ///< Something failed while it ran; standard error says what.
    ExitUsage = 2,   ///< The command line was wrong; nothing was done.
};

} // namespace radio
