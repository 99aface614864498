/// @file
/// Messages through the platform's trace objects.
#pragma once

#include "EAFResult.h"
#include "VoxTrace.h"

namespace af {

/// Stands behind a trace object in its file: what outlives this library's objects still works, without a log.
struct TraceEnd {
    bool &isGone;
    ~TraceEnd() { isGone = true; }
};

/// Composes a message whose level is enabled and logs it. One that finds no memory is lost rather than thrown: logs are
/// written from constructors, destructors and flat functions.
void composeAndLog(VoxTrace &trace, VoxTraceLevel level, const VoxTraceHeader &header, const char *text,
                   const EAFResult *result);

/// Logs a text, with the name of a result behind it where there is one. What is asked of each look-up, whether the
/// level is enabled, is asked in its place.
inline void logTo(VoxTrace &trace, bool isGone, VoxTraceLevel level, const VoxTraceHeader &header, const char *text,
                  const EAFResult *result = nullptr) {
    if (!isGone && trace.isEnabled(level)) {
        composeAndLog(trace, level, header, text, result);
    }
}

/// Logs the path or name that a storage access asks for; nothing of a null one.
inline void logAccess(VoxTrace &trace, bool isGone, const VoxTraceHeader &header, const char *requested) {
    constexpr VoxTraceLevel accessLevel = 7;
    logTo(trace, isGone, accessLevel, header, requested != nullptr ? requested : "");
}

} // namespace af
