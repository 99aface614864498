/// @file
/// The command line before it is parsed.
#pragma once

#include <string>
#include <vector>

/// The value of "set" may begin with a dash, and is no option then.
/// @param arguments  without the program's name. @return them, with "--" before that value.
std::vector<std::string> withValueMarked(std::vector<std::string> arguments);
