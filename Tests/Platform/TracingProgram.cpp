// Traces what its arguments say, one word after the other; each word below takes the arguments it names. Ends
// with 0, with 2 for a word that it does not know, with 77 when the machine does not let it do what was asked.
#include <fcntl.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sched.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "AllocationFailure.h"
#include "VT_trace.h"
#include "VoxTrace.h"

namespace {

constexpr VoxTraceHeader header = {"Radio/CRadio.cpp", 42, "CRadio_Start"};

void traceWith(std::uint32_t code, const char *message) {
    const auto level = CKivTraceHandler_DmLevel2VtLevel(code);
    if (AF_trace.level < level) {
        return;
    }
    VT_beginImpl(&AF_trace, level, &header);
    VT_rawprintf(&AF_trace, "%s", message);
    VT_rawprintf(&AF_trace, "      code: %#lx\n", static_cast<unsigned long>(code));
    VT_endImpl(&AF_trace);
}

// Made before main and destroyed after it, as the trace objects of the libraries are.
class TracedAround {
public:
    TracedAround() { trace("before main"); }
    ~TracedAround() { trace("after main"); }
    TracedAround(const TracedAround &) = delete;
    TracedAround &operator=(const TracedAround &) = delete;

private:
    static void trace(const char *when) {
        const auto *const wanted = std::getenv("TRACE_AROUND_MAIN");
        if (wanted != nullptr) {
            traceWith(0x8000, when);
            VoxTrace{"ZEL.TEST", 3, 256}.logMsg(1, header, when);
        }
    }
} tracedAround;

class Arguments {
public:
    Arguments(int count, char **values) : m_next(values + 1), m_end(values + count) {}

    bool atEnd() const { return m_next == m_end; }
    const char *word() {
        if (atEnd()) {
            std::fprintf(stderr, "an argument is missing\n");
            std::exit(2);
        }
        return *m_next++;
    }
    std::int32_t number() { return static_cast<std::int32_t>(std::strtol(word(), nullptr, 0)); }
    std::uint32_t code() { return static_cast<std::uint32_t>(std::strtoul(word(), nullptr, 0)); }

private:
    char **m_next;
    char **m_end;
};

/// Threads that trace side by side, by both ways, each with its own name and counted records.
void traceFromThreads(std::int32_t threads, std::int32_t records) {
    std::vector<std::thread> running;
    running.reserve(static_cast<std::size_t>(threads));
    for (std::int32_t thread = 0; thread < threads; ++thread) {
        running.emplace_back([thread, records] {
            const auto name = "worker" + std::to_string(thread);
            prctl(PR_SET_NAME, name.c_str());
            VoxTrace domain{"ZEL.TEST", 9, 256};
            for (std::int32_t record = 0; record < records; ++record) {
                VT_beginImpl(&AF_trace, 1, &header);
                VT_rawprintf(&AF_trace, "first %s %d", name.c_str(), record);
                VT_rawprintf(&AF_trace, "second %s %d", name.c_str(), record);
                domain.logMsg(1, header, ("object " + name + " " + std::to_string(record)).c_str());
                VT_rawprintf(&AF_trace, "      code: %#lx\n", 0x8000ul);
                VT_endImpl(&AF_trace);
            }
        });
    }
    for (auto &thread : running) {
        thread.join();
    }
}

/// Returns while the threads are still tracing, so that the process ends under them.
void traceFromDetachedThreads() {
    static std::atomic<int> tracing{0};
    constexpr int threads = 4;
    for (int thread = 0; thread < threads; ++thread) {
        std::thread{[] {
            VoxTrace domain{"ZEL.TEST", 3, 256};
            traceWith(0x8000, "a thread that outlives main");
            ++tracing;
            for (;;) {
                traceWith(0x8000, "a thread that outlives main");
                domain.logMsg(1, header, "a thread that outlives main");
            }
        }}.detach();
    }
    while (tracing < threads) {
        std::this_thread::yield();
    }
}

void runOnThread(const std::function<void()> &work, std::optional<std::size_t> stackSize = {}) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (stackSize && pthread_attr_setstacksize(&attributes, *stackSize) != 0) {
        std::fprintf(stderr, "the C library refuses a stack of %zu bytes\n", *stackSize);
        std::exit(77);
    }
    pthread_t thread{};
    auto *const entry = +[](void *argument) -> void * {
        (*static_cast<const std::function<void()> *>(argument))();
        return nullptr;
    };
    if (pthread_create(&thread, &attributes, entry, const_cast<std::function<void()> *>(&work)) != 0) {
        std::exit(77);
    }
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

/// Gives this process a /dev with nothing in it but what the folder holds.
void useAsDev(const char *folder) {
    const auto moved = (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
                       mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                       mount(folder, "/dev", nullptr, MS_BIND, nullptr) == 0;
    if (!moved) {
        std::fprintf(stderr, "no /dev of our own: %s\n", std::strerror(errno));
        std::exit(77);
    }
}

using Words = std::map<std::string, std::function<void(Arguments &)>>;

Words tracingWords() {
    return {
        {"begin", [](Arguments &next) { VT_beginImpl(&AF_trace, next.number(), &header); }},
        {"begin-without-header", [](Arguments &next) { VT_beginImpl(&AF_trace, next.number(), nullptr); }},
        {"begin-with-empty-header",
         [](Arguments &next) {
             constexpr VoxTraceHeader empty = {nullptr, 0, nullptr};
             VT_beginImpl(&AF_trace, next.number(), &empty);
         }},
        {"print", [](Arguments &next) { VT_rawprintf(&AF_trace, "%s", next.word()); }},
        // A text of the given length, without an allocation of this program's.
        {"print-long", [](Arguments &next) { VT_rawprintf(&AF_trace, "%0*d", next.number(), 0); }},
        {"print-with-errno-set",
         [](Arguments &next) {
             const auto *const format = next.word();
             errno = ENOENT;
             VT_rawprintf(&AF_trace, format, 0);
         }},
        {"print-unprintable", [](Arguments &) { VT_rawprintf(&AF_trace, "wide: %ls", L"\x110000"); }},
        {"end", [](Arguments &) { VT_endImpl(&AF_trace); }},
        {"trace",
         [](Arguments &next) {
             const auto code = next.code();
             traceWith(code, next.word());
         }},
        {"domain",
         [](Arguments &next) {
             const auto *const name = next.word();
             const auto objectLevel = next.number();
             const auto level = next.number();
             VoxTrace domain{name, objectLevel, 256};
             std::printf("%d\n", domain.isEnabled(level) ? 1 : 0);
             domain.logMsg(level, header, next.word());
         }},
        {"domain-of-nulls",
         [](Arguments &) {
             VoxTrace{nullptr, 3, 256}.logMsg(1, VoxTraceHeader{nullptr, 0, nullptr}, nullptr);
         }},
    };
}

Words surroundingWords() {
    static std::unique_ptr<test::AllocationFailure> shortage;
    return {
        {"level", [](Arguments &) { std::printf("%d\n", AF_trace.level); }},
        {"thread-name", [](Arguments &next) { prctl(PR_SET_NAME, next.word()); }},
        {"threads",
         [](Arguments &next) {
             const auto threads = next.number();
             traceFromThreads(threads, next.number());
         }},
        {"detached-threads", [](Arguments &) { traceFromDetachedThreads(); }},
        {"other-thread", [](Arguments &) { runOnThread([] { traceWith(0x8000, "on another thread"); }); }},
        {"thread-that-leaves-a-record-open",
         [](Arguments &) {
             runOnThread([] {
                 VT_beginImpl(&AF_trace, 1, &header);
                 VT_rawprintf(&AF_trace, "%s", std::string(5000, 'x').c_str());
             });
         }},
        {"thread-that-is-cancelled",
         [](Arguments &) {
             runOnThread([] {
                 pthread_cancel(pthread_self());
                 traceWith(0x8000, "with a cancellation pending");
                 pthread_testcancel();
             });
         }},
        {"thread-with-the-smallest-stack",
         [](Arguments &) {
             // What the event task's worker is given.
             runOnThread([] { traceWith(0x8000, "on the smallest stack"); }, 16384);
         }},
        {"object-on-the-smallest-stack",
         [](Arguments &) {
             runOnThread([] { VoxTrace{"ZEL.TEST", 3, 256}.logMsg(1, header, "on the smallest stack"); }, 16384);
         }},
        {"errno-is-kept",
         [](Arguments &) {
             VoxTrace domain{"ZEL.TEST", 3, 256};
             errno = E2BIG;
             traceWith(0x8000, "an error");
             domain.logMsg(1, header, "an error");
             std::printf("%d\n", errno == E2BIG ? 1 : 0);
         }},
        // From "starve" to "feed" only so many allocations succeed. Words of up to 15 letters need none.
        {"starve",
         [](Arguments &next) {
             if (!test::allocationsCanFail) {
                 std::fprintf(stderr, "the sanitizer's operator new can not be replaced\n");
                 std::exit(77);
             }
             shortage = std::make_unique<test::AllocationFailure>(next.code());
         }},
        {"feed",
         [](Arguments &) {
             std::printf("%d\n", shortage->failures() > 0 ? 1 : 0);
             shortage.reset();
         }},
        {"make-folder", [](Arguments &next) { mkdir(next.word(), 0700); }},
        {"abort", [](Arguments &) { std::abort(); }},
        {"remove", [](Arguments &next) { (void)std::remove(next.word()); }},
        {"dev", [](Arguments &next) { useAsDev(next.word()); }},
    };
}

} // namespace

int main(int count, char **values) {
    auto words = tracingWords();
    words.merge(surroundingWords());
    Arguments arguments{count, values};
    while (!arguments.atEnd()) {
        const auto word = arguments.word();
        const auto known = words.find(word);
        if (known == words.end()) {
            std::fprintf(stderr, "unknown word %s\n", word);
            return 2;
        }
        known->second(arguments);
    }
    return 0;
}
