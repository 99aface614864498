#include "TraceOutput.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstring>
#include <exception>
#include <utility>

#include "StandardError.h"

namespace voxtrace {

namespace {

/// As deep as the line that carries a record's code brings along.
constexpr std::string_view indentation = "      ";

const char *nameOf(std::int32_t level) {
    if (level <= 0) {
        return "always";
    }
    constexpr const char *names[] = {"error", "warning", "warning", "info", "info", "info", "debug", "debug2"};
    constexpr auto known = static_cast<std::int32_t>(sizeof(names) / sizeof(names[0]));
    return level <= known ? names[level - 1] : "debug3";
}

/// spdlog's levels choose the colour and the priority at syslog.
spdlog::level::level_enum sinkLevelOf(std::int32_t level) {
    if (level == 1) {
        return spdlog::level::err;
    }
    if (level == 2 || level == 3) {
        return spdlog::level::warn;
    }
    return level > 6 ? spdlog::level::debug : spdlog::level::info;
}

const char *orNull(const char *text) {
    return text != nullptr ? text : "(null)";
}

/// A control character could break the record's lines or steer a terminal.
void appendPrintable(std::string_view line, TextBuffer &out) {
    const auto isControl = [](char c) { return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f'; };
    auto from = line.begin();
    for (auto at = from; at != line.end(); ++at) {
        if (isControl(*at)) {
            out.append(line.substr(static_cast<std::size_t>(from - line.begin()), static_cast<std::size_t>(at - from)));
            out.appendFormat("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(*at)));
            from = at + 1;
        }
    }
    out.append(line.substr(static_cast<std::size_t>(from - line.begin())));
}

/// The first line follows the header. The others are indented, so that only a record's head starts a line.
void appendLines(std::string_view lines, TextBuffer &out) {
    auto first = true;
    while (!lines.empty()) {
        const auto end = lines.find('\n');
        const auto line = lines.substr(0, end);
        lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
        if (line.empty()) {
            continue;
        }
        const auto indented = line.substr(0, indentation.size()) == indentation;
        if (first && !indented) {
            out.append(" ");
        } else {
            out.append("\n");
            out.append(indented ? std::string_view{} : indentation);
        }
        appendPrintable(line, out);
        first = false;
    }
}

class RecordFormatter final : public spdlog::formatter {
public:
    enum class Style { plain, coloured, oneLine };

    explicit RecordFormatter(Style style) : m_style(style) {}

    std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<RecordFormatter>(m_style); }

    void format(const spdlog::details::log_msg &message, spdlog::memory_buf_t &out) override {
        const std::string_view record{message.payload.data(), message.payload.size()};
        switch (m_style) {
        case Style::plain:
            append(record, out);
            break;
        case Style::coloured:
            append(colourOf(message.level), out);
            append(record.substr(0, record.size() - 1), out);
            append("\x1b[0m\n", out);
            break;
        case Style::oneLine:
            formatOneLine(record, out);
            break;
        }
    }

private:
    static void append(std::string_view text, spdlog::memory_buf_t &out) {
        out.append(text.data(), text.data() + text.size());
    }

    static std::string_view colourOf(spdlog::level::level_enum level) {
        switch (level) {
        case spdlog::level::err:
            return "\x1b[31m";
        case spdlog::level::warn:
            return "\x1b[33m";
        case spdlog::level::debug:
            return "\x1b[2m";
        default:
            return "\x1b[32m";
        }
    }

    /// Syslog daemons store newlines as #012, which nobody can read.
    static void formatOneLine(std::string_view record, spdlog::memory_buf_t &out) {
        record.remove_suffix(1);
        for (auto end = record.find('\n'); end != std::string_view::npos; end = record.find('\n')) {
            append(record.substr(0, end), out);
            append(" | ", out);
            record.remove_prefix(end + 1);
            record.remove_prefix(std::min(record.find_first_not_of(' '), indentation.size()));
        }
        append(record, out);
    }

    Style m_style;
};

/// A thread cancelled inside a sink would leave it locked.
class CancellationHeldOff {
public:
    CancellationHeldOff() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    ~CancellationHeldOff() { pthread_setcancelstate(m_before, nullptr); }
    CancellationHeldOff(const CancellationHeldOff &) = delete;
    CancellationHeldOff &operator=(const CancellationHeldOff &) = delete;

private:
    int m_before = PTHREAD_CANCEL_ENABLE;
};

template <typename SinkType, typename... Arguments>
std::shared_ptr<spdlog::sinks::sink> makeSink(RecordFormatter::Style style, Arguments &&...arguments) {
    auto sink = std::make_shared<SinkType>(std::forward<Arguments>(arguments)...);
    sink->set_formatter(std::make_unique<RecordFormatter>(style));
    return sink;
}

} // namespace

TraceOutput::TraceOutput(const TraceSettings &settings) noexcept {
    using Style = RecordFormatter::Style;
    try {
        if (settings.toSyslog) {
            m_syslog =
                makeSink<spdlog::sinks::syslog_sink_st>(Style::oneLine, settings.syslogIdent, LOG_PID, LOG_USER, true);
        }
        if (settings.toFile) {
            openFile(settings);
        }
        if (settings.toStandardError || (settings.toFile && !m_file)) {
            m_standardError = makeSink<spdlog::sinks::stderr_sink_st>(settings.colour ? Style::coloured : Style::plain);
        }
    } catch (const std::exception &failure) {
        complain("cannot set up the sinks (%s); what has no sink goes to standard error", failure.what());
    }
}

void TraceOutput::openFile(const TraceSettings &settings) {
    spdlog::file_event_handlers events;
    events.after_open = [this](const spdlog::filename_t &, std::FILE *) { m_fileIsOpen = true; };
    events.after_close = [this](const spdlog::filename_t &) { m_fileIsOpen = false; };
    try {
        m_file = makeSink<spdlog::sinks::rotating_file_sink_st>(RecordFormatter::Style::plain, settings.file,
                                                                settings.fileSize, settings.fileCount, false, events);
    } catch (const std::exception &failure) {
        complain("VOXTRACE_FILE: cannot write to \"%s\" (%s); allowed: a file in a folder that this user may write to. "
                 "Taken instead: standard error",
                 settings.file.c_str(), failure.what());
    }
}

void TraceOutput::emit(const RecordOrigin &origin, const TextBuffer &lines) noexcept {
    emit(origin, lines.view(), lines.isCut());
}

void TraceOutput::emit(const RecordOrigin &origin, const char *text) noexcept {
    emit(origin, orNull(text), false);
}

void TraceOutput::emit(const RecordOrigin &origin, std::string_view lines, bool cut) noexcept {
    const CancellationHeldOff whole;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_lost > 0) {
        tellLost();
    }
    layOut(origin, lines, cut);
    write(origin.level);
}

// Apart from emit, whose frame has to fit a thread of the smallest stack.
__attribute__((noinline)) void TraceOutput::tellLost() noexcept {
    TextBuffer notice;
    notice.appendFormat("%" PRIu32 " records were lost: out of memory", m_lost);
    m_lost = 0;
    layOut({1, nullptr, {__FILE__, __LINE__, __func__}}, notice.view(), false);
    write(1);
}

void TraceOutput::countLost() noexcept {
    const CancellationHeldOff whole;
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_lost;
}

void TraceOutput::layOut(const RecordOrigin &origin, std::string_view lines, bool cut) noexcept {
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
    char thread[16] = "";
    prctl(PR_GET_NAME, thread);

    m_record.clear();
    m_record.appendFormat("[%5lld.%06lld] %-7s [", static_cast<long long>(now / 1000000),
                          static_cast<long long>(now % 1000000), nameOf(origin.level));
    appendPrintable(thread, m_record);
    m_record.append("] ");
    if (origin.domain != nullptr) {
        m_record.append("(");
        appendPrintable(origin.domain, m_record);
        m_record.append(") ");
    }
    m_record.appendFormat("%s:%" PRIu32 " %s:", orNull(origin.header.file), origin.header.line,
                          orNull(origin.header.function));
    appendLines(lines, m_record);
    if (cut) {
        m_record.markCut();
    }
    m_record.close();
}

bool TraceOutput::writeTo(const Sink &sink, std::int32_t level) noexcept {
    spdlog::details::log_msg message;
    message.level = sinkLevelOf(level);
    message.payload = {m_record.view().data(), m_record.view().size()};
    try {
        sink->log(message);
        sink->flush(); // what was traced last matters most after a crash
        return true;
    } catch (const std::exception &failure) {
        if (sink == m_file) {
            fileFailed(failure.what());
        }
        return false;
    }
}

void TraceOutput::fileFailed(const char *reason) noexcept {
    if (!m_fileIsOpen) {
        // The rotation closed it and could not open it again; the sink must not be used any more.
        complain("the trace file was lost (%s); its records go to standard error from here on", reason);
        m_file.reset();
    } else if (!m_fileFailureTold) {
        complain("a record could not be written to the trace file (%s); such records go to standard error, "
                 "further failures are not told",
                 reason);
        m_fileFailureTold = true;
    }
}

void TraceOutput::write(std::int32_t level) noexcept {
    auto taken = false;
    for (const auto *sink : {&m_file, &m_syslog, &m_standardError}) {
        taken = (*sink && writeTo(*sink, level)) || taken;
    }
    if (!taken) {
        writeToStandardError(m_record.view());
    }
}

} // namespace voxtrace
