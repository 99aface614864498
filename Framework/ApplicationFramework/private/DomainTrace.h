/// @file
/// Messages through the platform's trace objects.
#pragma once

#include <new>
#include <sstream>

#include "VoxTrace.h"

namespace af {

/// Stands behind a trace object in its file: what outlives this library's objects still works, without a log.
struct TraceEnd {
    bool &isGone;
    ~TraceEnd() { isGone = true; }
};

/// Composes a message, only when its level is enabled, and logs it. A message that finds no memory is lost rather
/// than thrown: logs are written from constructors, destructors and flat functions.
template <class Compose>
void logTo(VoxTrace &trace, bool isGone, VoxTraceLevel level, const VoxTraceHeader &header, Compose compose) {
    if (isGone || !trace.isEnabled(level)) {
        return;
    }
    try {
        std::ostringstream message;
        message.exceptions(std::ios::badbit); // a stream would rather cut the text than say that memory ran out
        compose(message);
        trace.logMsg(level, header, message.str().c_str());
    } catch (const std::bad_alloc &) { // NOLINT(bugprone-empty-catch): see above
    }
}

/// Logs the path or name that a storage access asks for; nothing of a null one.
inline void logAccess(VoxTrace &trace, bool isGone, const VoxTraceHeader &header, const char *requested) {
    constexpr VoxTraceLevel accessLevel = 7;
    logTo(trace, isGone, accessLevel, header, [requested](std::ostream &message) {
        if (requested != nullptr) {
            message << requested;
        }
    });
}

} // namespace af
