/// @file
/// Takes the place of VoxTrace's objects in a test program and keeps the last error, without taking memory for it.
#pragma once

#include <string>

namespace test {

/// The text of the last message of level 1, of any domain; empty when there was none since.
std::string lastError();
void forgetLastError();

} // namespace test
