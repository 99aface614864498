/// @file
/// Object tracing of the test's own platform: a class with virtual members, inline ones beside them, and members
/// that only its own constructor can make.
#pragma once

#include <cstdint>

#include "VT_trace.h"

using VoxTraceLevel = std::int32_t;
using VoxTraceHdrOption = std::int32_t;

class VoxTrace {
public:
    VoxTrace(const char *domain, VoxTraceLevel level, VoxTraceHdrOption option);
    virtual ~VoxTrace();
    VoxTrace(const VoxTrace &) = delete;
    VoxTrace &operator=(const VoxTrace &) = delete;

    virtual void describe(char *text, std::uint32_t size) const;
    virtual bool isEnabled(VoxTraceLevel level) const;
    virtual void logMsg(VoxTraceLevel level, const VoxTraceHeader &header, const char *text);

    VoxTraceLevel level() const { return m_level; }
    const char *domain() const { return m_domain; }

private:
    TraceStream &m_stream;
    const char *const m_domain;
    const VoxTraceLevel m_level;
    const VoxTraceHdrOption m_option;
    std::uint64_t m_unused[4] = {};
};
