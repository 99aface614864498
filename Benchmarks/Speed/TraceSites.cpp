#include "TraceSites.h"

#include <syslog.h>

#include <spdlog/spdlog.h>

#include "AfTrace.h"

std::uint64_t textsAskedFor = 0;

namespace {

// spdlog's own default level would let the message through.
[[maybe_unused]] const bool isSilenced = [] {
    spdlog::set_level(spdlog::level::warn);
    return true;
}();

const char *textOf(const char *name) {
    ++textsAskedFor;
    return name;
}

} // namespace

void traceAtLeast(const char *name) {
    if (AF_trace.level >= CKivTraceHandler_DmLevel2VtLevel(eAF_DEBUG)) {
        VT_rawprintf(&AF_trace, "  Call module: %s", textOf(name));
    }
}

void traceAsLibrary(const char *name) {
    AF_TRACE(eAF_DEBUG, "  Call module: %s", textOf(name));
}

void traceBySpdlog(const char *name) {
    spdlog::debug("  Call module: {}", name);
}

void traceBySyslog(const char *name) {
    syslog(LOG_DEBUG, "  Call module: %s", name);
}
