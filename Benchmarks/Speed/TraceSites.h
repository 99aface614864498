/// @file
/// Trace sites of one message, each in a function of its own, none inlined where it is called.
#pragma once

#include <cstdint>

/// How often a site asked for the text of its message.
extern __attribute__((visibility("default"))) std::uint64_t textsAskedFor;

/// The limit: the level test and the platform's level call.
__attribute__((visibility("default"))) void traceAtLeast(const char *name);
/// As the library traces.
__attribute__((visibility("default"))) void traceAsLibrary(const char *name);
/// spdlog's default way, below the logger's level.
__attribute__((visibility("default"))) void traceBySpdlog(const char *name);
/// syslog, below its mask.
__attribute__((visibility("default"))) void traceBySyslog(const char *name);
