/// @file
/// Where the program's answers go.
#pragma once

#include <string>

/// A store that is opened under the number of a closed standard stream would be written what is shown: call it first.
void holdStandardStreams();

/// Lets out what is still to be shown.
/// @throws Fault when standard output took not all of it.
void finishOutput();

/// The file is as it was, or whole. What is no regular file, as a pipe, is written through.
/// @throws Fault
void writeFile(const std::string &file, const std::string &text);
