#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace voxtrace {

/// What the environment asks for; see README.md. Read once, at load.
struct TraceSettings {
    std::int32_t level = 3;
    bool levelGiven = false;
    std::vector<std::pair<std::string, std::int32_t>> domains;

    bool toStandardError = true;
    bool toFile = false;
    bool toSyslog = false;
    bool colour = false;

    std::string file;
    std::size_t fileSize = std::size_t{1024} * 1024;
    std::size_t fileCount = 3;
    std::string syslogIdent;

    /// The threshold of a trace domain whose object was made with `level`.
    std::int32_t levelOfDomain(std::string_view domain, std::int32_t objectLevel) const noexcept;
};

/// Reads the environment. A value that is not understood is named on standard error, and its default holds.
TraceSettings readTraceSettings();

/// Tells whoever started the program, on standard error and in one write, what is wrong with its tracing.
void complain(const char *format, ...) noexcept __attribute__((format(printf, 1, 2)));

} // namespace voxtrace
