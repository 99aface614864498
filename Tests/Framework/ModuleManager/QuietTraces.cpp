#include "QuietTraces.h"

#include <cstdarg>
#include <cstdio>

#include "PlatformTracing.h"

namespace {

char buffer[1 << 16];
std::size_t used = 0;
int begun = 0;
bool tooMuch = false;

void appendList(const char *format, std::va_list arguments) {
    const int length = std::vsnprintf(buffer + used, sizeof buffer - used, format, arguments);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof buffer - used) {
        tooMuch = true;
        return;
    }
    used += static_cast<std::size_t>(length);
}

__attribute__((format(printf, 1, 2))) void append(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    appendList(format, arguments);
    va_end(arguments);
}

} // namespace

std::int32_t CKivTraceHandler_DmLevel2VtLevel(std::uint32_t) {
    return 1;
}

test::BeginResult VT_beginImpl(test::TraceHandle *, std::int32_t, const VoxTraceHeader *header) {
    ++begun;
    append("%s: ", header->function);
    return test::BeginResult();
}

test::PrintResult VT_rawprintf(test::TraceHandle *, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    appendList(format, arguments);
    va_end(arguments);
    return test::PrintResult();
}

test::EndResult VT_endImpl(test::TraceHandle *) {
    --begun;
    return test::EndResult();
}

bool VoxTrace::isEnabled(VoxTraceLevel) const {
    return true;
}

void VoxTrace::logMsg(VoxTraceLevel, const VoxTraceHeader &header, const char *text) {
    append("%s: %s\n", header.function, text);
}

namespace test {

void QuietTraces::reset() {
    AF_trace.level = 9;
    used = 0;
    buffer[0] = '\0';
    tooMuch = false;
}

std::string QuietTraces::text() {
    return {buffer, used};
}

int QuietTraces::open() {
    return begun;
}

bool QuietTraces::overflowed() {
    return tooMuch;
}

} // namespace test
