#include "TraceRecorder.h"

#include <pthread.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <ostream>
#include <sstream>
#include <utility>

#include "PlatformTracing.h"

namespace test {
namespace {

constexpr char workerThread[] = "dm-af-eventtsk";

/// Never destroyed: objects trace from static destructors and from threads that outlive main.
struct Records {
    std::mutex lock;
    std::vector<Trace> closed;
    std::map<pthread_t, Trace> open;
    std::vector<DomainTrace> domainRecords;
    std::map<const VoxTrace *, Domain> domains;
    std::int32_t domainLevel = TraceRecorder::everything;
    unsigned calls = 0;
};

Records &all() {
    static Records &records = *new Records;
    return records;
}

std::string nameOfThisThread() {
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

/// Splits the code line off; what stands there must print exactly as the code prints.
void splitCodeLine(Trace &trace) {
    const std::string lead = "      code: ";
    const std::size_t at = trace.message.rfind(lead);
    if (at == std::string::npos) {
        return;
    }
    const std::string codeLine = trace.message.substr(at);
    const unsigned long code = std::strtoul(codeLine.c_str() + lead.size(), nullptr, 0);
    std::ostringstream expected;
    expected << lead << std::showbase << std::hex << code << '\n';
    if (codeLine != expected.str()) {
        return;
    }
    trace.code = static_cast<std::uint32_t>(code);
    trace.hasCodeLine = true;
    trace.message.erase(at);
}

template <class Keep>
std::vector<Line> linesThat(Keep keep) {
    const std::lock_guard<std::mutex> lock(all().lock);
    std::vector<Line> lines;
    for (const Trace &trace : all().closed) {
        if (keep(trace)) {
            lines.push_back({trace.function, trace.message, trace.code});
        }
    }
    return lines;
}

} // namespace

bool operator==(const Line &a, const Line &b) {
    return a.function == b.function && a.message == b.message && a.code == b.code;
}

std::ostream &operator<<(std::ostream &out, const Line &line) {
    return out << line.function << ": \"" << line.message << "\" code " << std::hex << std::showbase << line.code
               << std::dec << std::noshowbase;
}

void TraceRecorder::reset(std::int32_t threshold, std::int32_t domainLevel) {
    const std::lock_guard<std::mutex> lock(all().lock);
    all().closed.clear();
    all().domainRecords.clear();
    all().domainLevel = domainLevel;
    all().calls = 0;
    __atomic_store_n(&AF_trace.level, threshold, __ATOMIC_RELAXED); // a worker may be about to read it
}

std::vector<Trace> TraceRecorder::records() {
    const std::lock_guard<std::mutex> lock(all().lock);
    return all().closed;
}

std::vector<DomainTrace> TraceRecorder::domainRecords() {
    const std::lock_guard<std::mutex> lock(all().lock);
    return all().domainRecords;
}

std::vector<Domain> TraceRecorder::domains() {
    const std::lock_guard<std::mutex> lock(all().lock);
    std::vector<Domain> domains;
    for (const auto &entry : all().domains) {
        domains.push_back(entry.second);
    }
    return domains;
}

std::vector<Line> TraceRecorder::lines() {
    return linesThat([](const Trace &trace) { return trace.thread != workerThread; });
}

std::vector<Line> TraceRecorder::workerLines() {
    return linesThat([](const Trace &trace) { return trace.thread == workerThread; });
}

std::vector<Line> TraceRecorder::failures() {
    return linesThat([](const Trace &trace) { return trace.thread != workerThread && trace.code >= 0x1000; });
}

unsigned TraceRecorder::traceCalls() {
    const std::lock_guard<std::mutex> lock(all().lock);
    return all().calls;
}

unsigned TraceRecorder::openRecords() {
    const std::lock_guard<std::mutex> lock(all().lock);
    return static_cast<unsigned>(all().open.size());
}

std::int32_t levelOf(std::uint32_t code) {
    if (code >= 0x8000) {
        return 1;
    }
    if (code >= 0x1000) {
        return 3;
    }
    if (code == 0x900) {
        return 0;
    }
    return code < 0x800 ? 5 : 7 + static_cast<std::int32_t>((code - 0x800) / 0x20);
}

} // namespace test

using test::all;

std::int32_t CKivTraceHandler_DmLevel2VtLevel(std::uint32_t code) {
    return test::levelOf(code);
}

test::BeginResult VT_beginImpl(test::TraceHandle *, std::int32_t level, const VoxTraceHeader *header) {
    test::Trace trace;
    trace.level = level;
    trace.file = header->file;
    trace.line = header->line;
    trace.function = header->function;
    trace.thread = test::nameOfThisThread();
    const std::lock_guard<std::mutex> lock(all().lock);
    ++all().calls;
    all().open[pthread_self()] = std::move(trace);
    return test::BeginResult();
}

test::PrintResult VT_rawprintf(test::TraceHandle *, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(all().lock);
    ++all().calls;
    const auto open = all().open.find(pthread_self());
    if (length >= 0 && open != all().open.end()) {
        open->second.message += text;
        ++open->second.calls;
    }
    std::free(text);
    return test::PrintResult();
}

test::EndResult VT_endImpl(test::TraceHandle *) {
    const std::lock_guard<std::mutex> lock(all().lock);
    ++all().calls;
    const auto open = all().open.find(pthread_self());
    if (open != all().open.end()) {
        test::splitCodeLine(open->second);
        all().closed.push_back(std::move(open->second));
        all().open.erase(open);
    }
    return test::EndResult();
}

// Objects are made and destroyed by the platform, whose members nobody else knows; the recorder only notes them. By
// their symbols, since a C++ definition would have to make the members itself. On ARM these functions answer `this`.
extern "C" {
void *noteMade(VoxTrace *object, const char *domain, VoxTraceLevel level,
               VoxTraceHdrOption option) __asm__("_ZN8VoxTraceC1EPKcii");
void *noteGone(VoxTrace *object) __asm__("_ZN8VoxTraceD1Ev");

void *noteMade(VoxTrace *object, const char *domain, VoxTraceLevel level, VoxTraceHdrOption option) {
    using Make = void *(VoxTrace *, const char *, VoxTraceLevel, VoxTraceHdrOption);
    static auto *const make = reinterpret_cast<Make *>(dlsym(RTLD_NEXT, "_ZN8VoxTraceC1EPKcii"));
    make(object, domain, level, option);
    const std::lock_guard<std::mutex> lock(all().lock);
    all().domains[object] = {domain, level, option};
    return object;
}

void *noteGone(VoxTrace *object) {
    using Destroy = void *(VoxTrace *);
    static auto *const destroy = reinterpret_cast<Destroy *>(dlsym(RTLD_NEXT, "_ZN8VoxTraceD1Ev"));
    {
        const std::lock_guard<std::mutex> lock(all().lock);
        all().domains.erase(object);
    }
    destroy(object);
    return object;
}
}

bool VoxTrace::isEnabled(VoxTraceLevel level) const {
    const std::lock_guard<std::mutex> lock(all().lock);
    return all().domainLevel >= level;
}

void VoxTrace::logMsg(VoxTraceLevel level, const VoxTraceHeader &header, const char *text) {
    const std::lock_guard<std::mutex> lock(all().lock);
    all().domainRecords.push_back({all().domains[this].name, level, header.file, header.function, text});
}
