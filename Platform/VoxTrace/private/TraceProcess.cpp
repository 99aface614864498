#include "TraceProcess.h"

#include <exception>
#include <limits>
#include <new>

#include "OpenRecord.h"

namespace {

// Carried by our own handle, and by the copy of it that an executable may hold, until the environment was read.
// A program that defines a handle of its own never has this level, and keeps the one it chose.
constexpr std::int32_t notLoaded = std::numeric_limits<std::int32_t>::min();

alignas(voxtrace::TraceProcess) unsigned char processStorage[sizeof(voxtrace::TraceProcess)];
voxtrace::TraceProcess *process = nullptr;

voxtrace::TraceSettings settingsOrDefaults() noexcept {
    try {
        return voxtrace::readTraceSettings();
    } catch (const std::exception &failure) {
        voxtrace::complain("cannot read the settings from the environment (%s); the defaults hold", failure.what());
        return {};
    }
}

// Ahead of the initialisers of this library's static objects, and of every library that depends on it.
[[gnu::constructor(101)]] void load() noexcept {
    const voxtrace::ErrnoKept kept;
    voxtrace::prepareOpenRecords();
    process = new (processStorage) voxtrace::TraceProcess(settingsOrDefaults());
    if (AF_trace.level == notLoaded) {
        AF_trace.level = process->settings.level;
    }
}

} // namespace

VT_TraceHandle AF_trace = {notLoaded};

namespace voxtrace {

TraceProcess *traceProcess() noexcept {
    return process;
}

} // namespace voxtrace
