/// @file
/// Object tracing of the platform. No virtual and no inline member, so that another library can take this
/// one's place.
#pragma once

#include <cstdint>

#include "VT_trace.h"

using VoxTraceLevel = std::int32_t;
using VoxTraceHdrOption = std::int32_t;

/// A named trace domain. An object emits what is at or below its level; the environment may set that level
/// (see README.md). Any thread may use it while it lives.
class VT_API VoxTrace {
public:
    /// @param domain  copied.
    /// @param level   threshold: 1 error, 3 warning, 5 information, 7 debug.
    /// @param option  256: the record's header as described in README.md; kept, no other is known.
    VoxTrace(const char *domain, VoxTraceLevel level, VoxTraceHdrOption option);
    ~VoxTrace();

    VoxTrace(const VoxTrace &) = delete;
    VoxTrace &operator=(const VoxTrace &) = delete;

    /// Whether a message of this level would be emitted.
    bool isEnabled(VoxTraceLevel level) const;

    /// Emits one record if the level is enabled. Never fails.
    void logMsg(VoxTraceLevel level, const VoxTraceHeader &header, const char *text);

private:
    struct Domain;
    Domain *m_domain;
};
