#include "TraceSettings.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <optional>

#include "StandardError.h"
#include "TextBuffer.h"

namespace voxtrace {

namespace {

constexpr std::string_view levelsAllowed = "off, error, warning, info, debug or a number from -1 to 9";

/// Empty counts as not set, so that a start script can pass a variable on without testing it.
std::string_view valueOf(const char *variable) {
    const auto *const value = std::getenv(variable);
    return value != nullptr ? std::string_view{value} : std::string_view{};
}

void refuse(const char *variable, std::string_view value, std::string_view allowed, std::string_view used) {
    complain("%s: \"%.*s\" is not understood; allowed: %.*s. Taken instead: %.*s", variable,
             static_cast<int>(value.size()), value.data(), static_cast<int>(allowed.size()), allowed.data(),
             static_cast<int>(used.size()), used.data());
}

template <typename Number>
std::optional<Number> numberIn(std::string_view text, Number least, Number most) {
    Number number{};
    const auto *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end || number < least || number > most) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::int32_t> levelIn(std::string_view text) {
    constexpr std::pair<std::string_view, std::int32_t> names[] = {
        {"off", -1}, {"error", 1}, {"warning", 3}, {"info", 5}, {"debug", 9}};
    for (const auto &[name, level] : names) {
        if (text == name) {
            return level;
        }
    }
    return numberIn<std::int32_t>(text, -1, 9);
}

std::optional<std::size_t> sizeIn(std::string_view text, std::size_t least, std::size_t most) {
    std::size_t unit = 1;
    if (!text.empty() && (text.back() == 'K' || text.back() == 'M')) {
        unit = text.back() == 'K' ? std::size_t{1024} : std::size_t{1024} * 1024;
        text.remove_suffix(1);
    }
    const auto number = numberIn<std::size_t>(text, 0, most / unit);
    if (!number || *number * unit < least) {
        return std::nullopt;
    }
    return *number * unit;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Calls `take` with each entry of a comma-separated list; empty entries are passed over.
template <typename Take>
void forEachEntry(std::string_view list, Take take) {
    while (!list.empty()) {
        const auto comma = list.find(',');
        const auto entry = trimmed(list.substr(0, comma));
        if (!entry.empty()) {
            take(entry);
        }
        list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
    }
}

void readLevel(TraceSettings &settings) {
    const auto value = valueOf("VOXTRACE_LEVEL");
    if (value.empty()) {
        return;
    }
    if (const auto level = levelIn(value)) {
        settings.level = *level;
        settings.levelGiven = true;
    } else {
        refuse("VOXTRACE_LEVEL", value, levelsAllowed, "warning");
    }
}

void readDomains(TraceSettings &settings) {
    forEachEntry(valueOf("VOXTRACE_DOMAINS"), [&settings](std::string_view entry) {
        const auto equals = entry.find('=');
        const auto name = trimmed(entry.substr(0, equals));
        const auto level = equals == std::string_view::npos ? std::nullopt : levelIn(trimmed(entry.substr(equals + 1)));
        if (name.empty() || !level) {
            refuse("VOXTRACE_DOMAINS", entry, "NAME=LEVEL, with LEVEL off, error, warning, info, debug or -1 to 9",
                   "the level of the domain's object");
            return;
        }
        settings.domains.emplace_back(name, *level);
    });
}

void readSinks(TraceSettings &settings) {
    const auto value = valueOf("VOXTRACE_SINKS");
    if (value.empty()) {
        return;
    }
    settings.toStandardError = false;
    forEachEntry(value, [&settings](std::string_view entry) {
        if (entry == "stderr") {
            settings.toStandardError = true;
        } else if (entry == "file") {
            settings.toFile = true;
        } else if (entry == "syslog") {
            settings.toSyslog = true;
        } else {
            refuse("VOXTRACE_SINKS", entry, "a list of stderr, file, syslog", "the others of the list, or stderr");
        }
    });
    if (!settings.toFile && !settings.toSyslog) {
        settings.toStandardError = true;
    }
}

void readFile(TraceSettings &settings) {
    settings.file = valueOf("VOXTRACE_FILE");
    if (settings.file.empty()) {
        settings.file = std::string{program_invocation_short_name} + ".trace";
    }
    constexpr std::size_t smallest = 1024;
    constexpr std::size_t largest = std::size_t{1024} * 1024 * 1024;
    const auto size = valueOf("VOXTRACE_FILE_SIZE");
    if (const auto bytes = sizeIn(size, smallest, largest)) {
        settings.fileSize = *bytes;
    } else if (!size.empty()) {
        refuse("VOXTRACE_FILE_SIZE", size, "1024 to 1073741824 bytes, or a number followed by K or M", "1M");
    }
    constexpr std::size_t mostFiles = 99;
    const auto count = valueOf("VOXTRACE_FILE_COUNT");
    if (const auto files = numberIn<std::size_t>(count, 0, mostFiles)) {
        settings.fileCount = *files;
    } else if (!count.empty()) {
        refuse("VOXTRACE_FILE_COUNT", count, "0 to 99 older files", "3");
    }
}

void readColour(TraceSettings &settings) {
    const auto value = valueOf("VOXTRACE_COLOR");
    if (value == "always") {
        settings.colour = true;
        return;
    }
    if (value == "never") {
        return;
    }
    if (!value.empty() && value != "auto") {
        refuse("VOXTRACE_COLOR", value, "auto, always, never", "auto");
    }
    const auto terminal = valueOf("TERM");
    settings.colour =
        isatty(STDERR_FILENO) == 1 && !terminal.empty() && terminal != "dumb" && valueOf("NO_COLOR").empty();
}

} // namespace

std::int32_t TraceSettings::levelOfDomain(std::string_view domain, std::int32_t objectLevel) const noexcept {
    auto threshold = levelGiven ? level : objectLevel;
    std::size_t longest = 0;
    for (const auto &[name, nameLevel] : domains) {
        const auto covers =
            domain.substr(0, name.size()) == name && (domain.size() == name.size() || domain[name.size()] == '.');
        if (covers && name.size() >= longest) {
            longest = name.size();
            threshold = nameLevel;
        }
    }
    return threshold;
}

TraceSettings readTraceSettings() {
    TraceSettings settings;
    readLevel(settings);
    readDomains(settings);
    readSinks(settings);
    readFile(settings);
    readColour(settings);
    const auto ident = valueOf("VOXTRACE_SYSLOG_IDENT");
    settings.syslogIdent = ident.empty() ? std::string_view{program_invocation_short_name} : ident;
    return settings;
}

void complain(const char *format, ...) noexcept {
    TextBuffer text;
    text.append("voxtrace: ");
    std::va_list arguments;
    va_start(arguments, format);
    text.appendFormat(format, arguments);
    va_end(arguments);
    text.close();
    writeToStandardError(text.view());
}

} // namespace voxtrace
