#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "VoxTrace.h"

namespace {

constexpr std::uint32_t capacity = 1500;

/// On the heap: a thread's stack may be too small for it.
struct Record {
    std::uint32_t used;
    char text[capacity];
};

pthread_key_t recordOfThread;
pthread_once_t keyMade = PTHREAD_ONCE_INIT;

class ErrnoKept {
public:
    ErrnoKept() : m_value(errno) {}
    ~ErrnoKept() { errno = m_value; }
    ErrnoKept(const ErrnoKept &) = delete;
    ErrnoKept &operator=(const ErrnoKept &) = delete;

private:
    int m_value;
};

void makeKey() {
    pthread_key_create(&recordOfThread, std::free);
}

Record *record(bool isMade) {
    pthread_once(&keyMade, makeKey);
    void *own = pthread_getspecific(recordOfThread);
    if (own == nullptr && isMade) {
        own = std::calloc(1, sizeof(Record));
        if (own != nullptr && pthread_setspecific(recordOfThread, own) != 0) {
            std::free(own);
            own = nullptr;
        }
    }
    return static_cast<Record *>(own);
}

void appendList(Record &to, const char *format, std::va_list arguments) {
    const std::uint32_t room = capacity - to.used;
    const int length = std::vsnprintf(to.text + to.used, room, format, arguments);
    if (length > 0) {
        to.used += std::min(static_cast<std::uint32_t>(length), room - 1);
    }
}

__attribute__((format(printf, 2, 3))) void append(Record &to, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    appendList(to, format, arguments);
    va_end(arguments);
}

pthread_mutex_t writing = PTHREAD_MUTEX_INITIALIZER;

/// One line, one write, one at a time: not every kernel keeps the writes of threads to one file apart.
void writeLine(const char *line, std::uint32_t length) {
    pthread_mutex_lock(&writing);
    while (::write(STDERR_FILENO, line, length) < 0 && errno == EINTR) {
    }
    pthread_mutex_unlock(&writing);
}

void emit(const TraceStream &stream, Record &whole) {
    std::replace(whole.text, whole.text + whole.used, '\n', '|');
    whole.used = std::min(whole.used, capacity - 1);
    whole.text[whole.used++] = '\n';
    stream.write(whole.text, whole.used);
    whole.used = 0;
}

int levelOfEnvironment() {
    const char *const given = std::getenv("FOREIGN_TRACE_LEVEL");
    return given != nullptr ? std::atoi(given) : 20;
}

} // namespace

extern "C" {
TraceStream AF_trace = {levelOfEnvironment(), 0, "@AF", writeLine};
}

std::int32_t CKivTraceHandler_DmLevel2VtLevel(std::uint32_t code) {
    if (code == 0x900) {
        return 0;
    }
    if (code >= 0x8000) {
        return 10;
    }
    if (code >= 0x1000) {
        return 20;
    }
    return code == 0x800 ? 70 : code == 0x820 ? 80 : code == 0x840 ? 90 : 40;
}

std::uint32_t VT_beginImpl(TraceStream *stream, std::int32_t level, const VoxTraceHeader *header) {
    const ErrnoKept kept;
    Record *const own = record(true);
    if (own == nullptr) {
        __atomic_add_fetch(&stream->lostRecords, 1, __ATOMIC_RELAXED);
        return 0;
    }
    own->used = 0;
    append(*own, "%s level=%d at=%s:%u in=%s ", stream->prefix, level, header->file, header->line, header->function);
    return own->used;
}

std::uint32_t VT_rawprintf(TraceStream * /*stream*/, const char *format, ...) {
    const ErrnoKept kept;
    Record *const own = record(false);
    if (own == nullptr) {
        return 0;
    }
    std::va_list arguments;
    va_start(arguments, format);
    appendList(*own, format, arguments);
    va_end(arguments);
    return own->used;
}

std::uint32_t VT_endImpl(TraceStream *stream) {
    const ErrnoKept kept;
    Record *const own = record(false);
    if (own != nullptr && own->used > 0) {
        emit(*stream, *own);
    }
    return 0;
}

VoxTrace::VoxTrace(const char *domain, VoxTraceLevel level, VoxTraceHdrOption option)
    : m_stream(AF_trace), m_domain(domain), m_level(level), m_option(option) {}

VoxTrace::~VoxTrace() = default;

void VoxTrace::describe(char *text, std::uint32_t size) const {
    std::snprintf(text, size, "%s level=%d option=%d", m_domain, m_level, m_option);
}

bool VoxTrace::isEnabled(VoxTraceLevel level) const {
    return level <= m_level;
}

void VoxTrace::logMsg(VoxTraceLevel level, const VoxTraceHeader &header, const char *text) {
    const ErrnoKept kept;
    if (level > m_level) {
        return;
    }
    Record own{};
    append(own, "@%s level=%d at=%s:%u in=%s %s", m_domain, level, header.file, header.line, header.function, text);
    emit(m_stream, own);
}
