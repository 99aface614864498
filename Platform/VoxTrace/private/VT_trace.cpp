#include "VT_trace.h"

#include <cerrno>

#include "OpenRecord.h"
#include "TraceProcess.h"

namespace {

void emitAndClose(voxtrace::OpenRecord &record) noexcept {
    voxtrace::traceProcess()->output.emit(*record.origin, record.lines);
    voxtrace::recordClosed(record);
}

} // namespace

int32_t CKivTraceHandler_DmLevel2VtLevel(uint32_t code) {
    constexpr std::uint32_t debug = 0x0800;
    constexpr std::uint32_t debug2 = 0x0820;
    constexpr std::uint32_t debug3 = 0x0840;
    constexpr std::uint32_t logAlways = 0x0900;
    constexpr std::uint32_t firstWarning = 0x1000;
    constexpr std::uint32_t firstError = 0x8000;
    if (code >= firstError) {
        return 1;
    }
    if (code >= firstWarning) {
        return 3;
    }
    switch (code) {
    case logAlways:
        return 0;
    case debug:
        return 7;
    case debug2:
        return 8;
    case debug3:
        return 9;
    default:
        return 5;
    }
}

// The calls below work on internal functions only: a program that defines some of the exported ones itself must
// not find them called from here.

void VT_beginImpl(VT_TraceHandle * /*handle*/, int32_t level, const VoxTraceHeader *header) {
    const voxtrace::ErrnoKept kept;
    auto *const process = voxtrace::traceProcess();
    if (process == nullptr) {
        return;
    }
    auto *record = voxtrace::openRecord();
    if (record != nullptr && record->origin) {
        emitAndClose(*record);
    }
    record = voxtrace::openRecordMade();
    if (record == nullptr) {
        process->output.countLost();
        return;
    }
    record->origin = {level, nullptr, header != nullptr ? *header : VoxTraceHeader{}};
}

void VT_rawprintf(VT_TraceHandle * /*handle*/, const char *format, ...) {
    const voxtrace::ErrnoKept kept;
    auto *const record = voxtrace::openRecord();
    if (record == nullptr || !record->origin) {
        return;
    }
    if (!record->lines.empty()) {
        record->lines.append("\n"); // sites end their messages without a newline of their own
    }
    std::va_list arguments;
    va_start(arguments, format);
    if (format != nullptr) {
        errno = kept.value(); // for %m
        record->lines.appendFormat(format, arguments);
    }
    va_end(arguments);
}

void VT_endImpl(VT_TraceHandle * /*handle*/) {
    const voxtrace::ErrnoKept kept;
    auto *const record = voxtrace::openRecord();
    if (record != nullptr && record->origin) {
        emitAndClose(*record);
    }
}
