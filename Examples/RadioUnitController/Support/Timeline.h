/// @file
/// The time axis of everything that is printed.
#pragma once

#include <chrono>
#include <string>

namespace radio {

/// Monotonic time since this was first asked. Any thread.
std::chrono::microseconds timeSinceStart();

/// "0.001234"
std::string seconds(std::chrono::microseconds time);

} // namespace radio
