#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

#include "TextBuffer.h"
#include "TraceSettings.h"
#include "VT_trace.h"

namespace spdlog::sinks {
class sink;
} // namespace spdlog::sinks

namespace voxtrace {

/// Where a record comes from. Null texts are printed as such.
struct RecordOrigin {
    std::int32_t level;
    const char *domain; ///< Null for the procedural calls.
    VoxTraceHeader header;
};

/// Lays records out and hands them to the sinks, one at a time and whole, in the order of their times.
class TraceOutput {
public:
    explicit TraceOutput(const TraceSettings &settings) noexcept;
    TraceOutput(const TraceOutput &) = delete;
    TraceOutput &operator=(const TraceOutput &) = delete;

    /// @param lines  the record's text, its lines separated by newlines; empty ones are left out.
    void emit(const RecordOrigin &origin, const TextBuffer &lines) noexcept;
    void emit(const RecordOrigin &origin, const char *text) noexcept;

    /// A record had no memory to be kept in; the next one that is emitted tells how many went this way.
    void countLost() noexcept;

private:
    using Sink = std::shared_ptr<spdlog::sinks::sink>;

    void openFile(const TraceSettings &settings);
    void emit(const RecordOrigin &origin, std::string_view lines, bool cut) noexcept;
    void tellLost() noexcept;
    void layOut(const RecordOrigin &origin, std::string_view lines, bool cut) noexcept;
    void write(std::int32_t level) noexcept;
    bool writeTo(const Sink &sink, std::int32_t level) noexcept;
    void fileFailed(const char *reason) noexcept;

    std::mutex m_mutex; ///< Guards all below.
    TextBuffer m_record;
    Sink m_standardError;
    Sink m_file;
    Sink m_syslog;
    bool m_fileIsOpen = false;
    bool m_fileFailureTold = false;
    std::uint32_t m_lost = 0;
};

} // namespace voxtrace
