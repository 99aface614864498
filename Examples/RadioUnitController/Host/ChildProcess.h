/// @file
/// Programs that are built beside this one.
#pragma once

#include <string>
#include <vector>

namespace radio {

/// Runs a program from this program's own folder and waits for its end. It writes where this one writes.
/// @return its exit code; -1, said on standard error, when it could not be run or did not end by itself.
int runSibling(const std::string &program, std::vector<std::string> arguments);

} // namespace radio
