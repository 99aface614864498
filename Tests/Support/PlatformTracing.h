/// @file
/// For the test programs that take over the platform's trace calls: what the platform is free to choose about them.
#pragma once

#include <cstdint>

#include "VT_trace.h"
#include "VoxTrace.h"

namespace test {

using TraceHandle = decltype(AF_trace);
using BeginResult = decltype(VT_beginImpl(&AF_trace, std::int32_t{}, nullptr));
using PrintResult = decltype(VT_rawprintf(&AF_trace, "%s", ""));
using EndResult = decltype(VT_endImpl(&AF_trace));

} // namespace test
