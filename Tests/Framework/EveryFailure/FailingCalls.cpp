#include "FailingCalls.h"

#include <mqueue.h>
#include <pthread.h>
#include <pwd.h>
#include <semaphore.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

// The list of calls, in the order in which failingCalls names them.
#define ZELAF_CALLS(CALL)                                                                                              \
    CALL(setrlimit)                                                                                                    \
    CALL(mq_open)                                                                                                      \
    CALL(mq_send)                                                                                                      \
    CALL(mq_receive)                                                                                                   \
    CALL(mq_timedsend)                                                                                                 \
    CALL(mq_timedreceive)                                                                                              \
    CALL(mq_getattr)                                                                                                   \
    CALL(mq_close)                                                                                                     \
    CALL(mq_unlink)                                                                                                    \
    CALL(sem_init)                                                                                                     \
    CALL(sem_wait)                                                                                                     \
    CALL(sem_trywait)                                                                                                  \
    CALL(sem_post)                                                                                                     \
    CALL(sem_destroy)                                                                                                  \
    CALL(pthread_attr_init)                                                                                            \
    CALL(pthread_attr_setdetachstate)                                                                                  \
    CALL(pthread_attr_setstacksize)                                                                                    \
    CALL(pthread_attr_destroy)                                                                                         \
    CALL(pthread_create)                                                                                               \
    CALL(pthread_mutex_init)                                                                                           \
    CALL(pthread_mutex_lock)                                                                                           \
    CALL(pthread_mutex_unlock)                                                                                         \
    CALL(pthread_mutex_destroy)                                                                                        \
    CALL(prctl)                                                                                                        \
    CALL(getpwuid)                                                                                                     \
    CALL(open)                                                                                                         \
    CALL(close)                                                                                                        \
    CALL(read)                                                                                                         \
    CALL(write)                                                                                                        \
    CALL(pread)                                                                                                        \
    CALL(pwrite)                                                                                                       \
    CALL(fsync)                                                                                                        \
    CALL(fdatasync)                                                                                                    \
    CALL(ftruncate)                                                                                                    \
    CALL(fcntl)                                                                                                        \
    CALL(stat)                                                                                                         \
    CALL(lstat)                                                                                                        \
    CALL(fstat)                                                                                                        \
    CALL(access)                                                                                                       \
    CALL(faccessat)                                                                                                    \
    CALL(fchmod)                                                                                                       \
    CALL(fchown)                                                                                                       \
    CALL(rename)                                                                                                       \
    CALL(link)                                                                                                         \
    CALL(unlink)                                                                                                       \
    CALL(readlink)                                                                                                     \
    CALL(getcwd)                                                                                                       \
    CALL(mmap)                                                                                                         \
    CALL(munmap)                                                                                                       \
    CALL(nanosleep)

namespace {

#define ZELAF_PLACE(name) call_##name,
enum Place : std::size_t { ZELAF_CALLS(ZELAF_PLACE) noOfCalls };
#undef ZELAF_PLACE

constexpr std::size_t noCall = noOfCalls;

thread_local bool isTests;
thread_local bool isCounting;

std::atomic<std::size_t> failingCall{noCall};
std::atomic<bool> failsInTests{true};
std::atomic<std::uint64_t> failingNumber{0};
std::atomic<int> failingError{0};
std::atomic<std::uint64_t> failed{0};
std::array<std::array<std::atomic<std::uint64_t>, noOfCalls>, 2> counts;

/// Counts a call. @return whether it is to fail; errno says with what.
bool isFailing(Place call) {
    if (isTests && !isCounting) {
        return false;
    }
    const std::uint64_t number = counts[isTests ? 0 : 1][call]++;
    if (failingCall != call || failsInTests != isTests || number != failingNumber) {
        return false;
    }
    ++failed;
    errno = failingError;
    return true;
}

/// Where the libraries' code lies: they are there from the start, and stay.
struct Range {
    std::uintptr_t begin;
    std::uintptr_t end;
};
struct Ranges {
    std::array<Range, 16> of;
    std::size_t count = 0;
};

int addRanges(dl_phdr_info *object, std::size_t /*size*/, void *ranges) {
    auto &known = *static_cast<Ranges *>(ranges);
    for (unsigned i = 0; std::strstr(object->dlpi_name, "libZel") != nullptr && i < object->dlpi_phnum; ++i) {
        const auto &segment = object->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 && known.count < known.of.size()) {
            const std::uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
            known.of[known.count++] = {begin, begin + segment.p_memsz};
        }
    }
    return 0;
}

/// Mutexes are the standard library's, SQLite's and the test's own as well.
bool isOfTheLibrary(const void *caller) {
    if (!isTests || !isCounting) {
        return false;
    }
    static const Ranges ranges = [] {
        Ranges all;
        dl_iterate_phdr(addRanges, &all);
        return all;
    }();
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    return std::any_of(ranges.of.begin(), ranges.of.begin() + ranges.count,
                       [=](const Range &range) { return range.begin <= address && address < range.end; });
}

void *nextOf(const char *symbol) {
    return dlsym(RTLD_NEXT, symbol);
}

} // namespace

// Each definition is the system's by its symbol, so that no header's declaration of it matters. The arguments are
// words on every target that there is, those behind an ellipsis too.
#define ZELAF_DEFINE(symbol, result, parameters, body)                                                                 \
    extern "C" result zelaf_##symbol parameters __asm__(#symbol);                                                      \
    result zelaf_##symbol parameters {                                                                                 \
        using Next = result parameters;                                                                                \
        static auto *const next = reinterpret_cast<Next *>(nextOf(#symbol));                                           \
        body                                                                                                           \
    }
// Fails with -1 and errno, and has no effect then.
#define ZELAF_FAILS(symbol, call, result, parameters, arguments)                                                       \
    ZELAF_DEFINE(symbol, result, parameters, return isFailing(call_##call) ? result(-1) : next arguments;)
// Fails, and has its effect all the same: what is closed or destroyed is gone.
#define ZELAF_FAILS_AFTERWARDS(symbol, call, parameters, arguments, failure)                                           \
    ZELAF_DEFINE(                                                                                                      \
        symbol, int, parameters, const bool fails = isFailing(call_##call); const int error = errno;                   \
        const int answer = next arguments; if (!fails) { return answer; } errno = error; return failure;)
// Returns the error.
#define ZELAF_RETURNS(symbol, call, parameters, arguments)                                                             \
    ZELAF_DEFINE(                                                                                                      \
        symbol, int, parameters, const int before = errno; if (isFailing(call_##call)) {                               \
            const int error = errno;                                                                                   \
            errno = before;                                                                                            \
            return error;                                                                                              \
        } return next arguments;)
#define ZELAF_RETURNS_TO_THE_LIBRARY(symbol, parameters, arguments)                                                    \
    ZELAF_DEFINE(                                                                                                      \
        symbol, int, parameters, const int before = errno;                                                             \
        if (isOfTheLibrary(__builtin_return_address(0)) && isFailing(call_##symbol)) {                                 \
            const int error = errno;                                                                                   \
            errno = before;                                                                                            \
            return error;                                                                                              \
        } return next arguments;)
#define ZELAF_RETURNS_AFTERWARDS(symbol, call, parameters, arguments)                                                  \
    ZELAF_FAILS_AFTERWARDS(symbol, call, parameters, arguments, error)

// The framework's. The receive is WorkerReceives', which asks here.
ZELAF_FAILS(setrlimit, setrlimit, int, (int resource, const rlimit *limits), (resource, limits))
ZELAF_FAILS(setrlimit64, setrlimit, int, (int resource, const void *limits), (resource, limits))
ZELAF_FAILS(mq_open, mq_open, mqd_t, (const char *name, int flags, unsigned mode, void *attributes),
            (name, flags, mode, attributes))
ZELAF_FAILS(mq_send, mq_send, int, (mqd_t queue, const char *bytes, std::size_t size, unsigned priority),
            (queue, bytes, size, priority))
#define ZELAF_TIMED(send, receive)                                                                                     \
    ZELAF_FAILS(send, mq_timedsend, int,                                                                               \
                (mqd_t queue, const char *bytes, std::size_t size, unsigned priority, const void *time),               \
                (queue, bytes, size, priority, time))                                                                  \
    ZELAF_FAILS(receive, mq_timedreceive, ssize_t,                                                                     \
                (mqd_t queue, char *bytes, std::size_t size, unsigned *priority, const void *time),                    \
                (queue, bytes, size, priority, time))
ZELAF_TIMED(mq_timedsend, mq_timedreceive)
ZELAF_TIMED(__mq_timedsend_time64, __mq_timedreceive_time64)
ZELAF_FAILS(mq_getattr, mq_getattr, int, (mqd_t queue, void *attributes), (queue, attributes))
ZELAF_FAILS_AFTERWARDS(mq_close, mq_close, (mqd_t queue), (queue), -1)
ZELAF_FAILS(mq_unlink, mq_unlink, int, (const char *name), (name))
ZELAF_FAILS(sem_init, sem_init, int, (sem_t * semaphore, int isShared, unsigned value), (semaphore, isShared, value))
ZELAF_FAILS(sem_wait, sem_wait, int, (sem_t * semaphore), (semaphore))
ZELAF_FAILS(sem_trywait, sem_trywait, int, (sem_t * semaphore), (semaphore))
ZELAF_FAILS(sem_post, sem_post, int, (sem_t * semaphore), (semaphore))
ZELAF_FAILS_AFTERWARDS(sem_destroy, sem_destroy, (sem_t * semaphore), (semaphore), -1)
ZELAF_RETURNS(pthread_attr_init, pthread_attr_init, (pthread_attr_t * attributes), (attributes))
ZELAF_RETURNS(pthread_attr_setdetachstate, pthread_attr_setdetachstate, (pthread_attr_t * attributes, int state),
              (attributes, state))
ZELAF_RETURNS(pthread_attr_setstacksize, pthread_attr_setstacksize, (pthread_attr_t * attributes, std::size_t size),
              (attributes, size))
ZELAF_RETURNS_AFTERWARDS(pthread_attr_destroy, pthread_attr_destroy, (pthread_attr_t * attributes), (attributes))
ZELAF_RETURNS(pthread_create, pthread_create,
              (pthread_t * thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument),
              (thread, attributes, run, argument))
ZELAF_RETURNS_TO_THE_LIBRARY(pthread_mutex_init, (pthread_mutex_t * mutex, const void *attributes), (mutex, attributes))
ZELAF_RETURNS_TO_THE_LIBRARY(pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
ZELAF_RETURNS_TO_THE_LIBRARY(pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex))
ZELAF_RETURNS_TO_THE_LIBRARY(pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex))
ZELAF_FAILS(prctl, prctl, int, (int option, unsigned long a, unsigned long b, unsigned long c, unsigned long d),
            (option, a, b, c, d))
ZELAF_FAILS(__prctl_time64, prctl, int,
            (int option, unsigned long a, unsigned long b, unsigned long c, unsigned long d), (option, a, b, c, d))
ZELAF_DEFINE(getpwuid, passwd *, (uid_t user), return isFailing(call_getpwuid) ? nullptr : next(user);)

// The providers' and SQLite's
#define ZELAF_OPEN(symbol)                                                                                             \
    ZELAF_FAILS(symbol, open, int, (const char *name, int flags, unsigned mode), (name, flags, mode))
ZELAF_OPEN(open)
ZELAF_OPEN(open64)
ZELAF_FAILS_AFTERWARDS(close, close, (int descriptor), (descriptor), -1)
ZELAF_FAILS(read, read, ssize_t, (int descriptor, void *bytes, std::size_t size), (descriptor, bytes, size))
ZELAF_FAILS(write, write, ssize_t, (int descriptor, const void *bytes, std::size_t size), (descriptor, bytes, size))
ZELAF_FAILS(pread, pread, ssize_t, (int descriptor, void *bytes, std::size_t size, long offset),
            (descriptor, bytes, size, offset))
ZELAF_FAILS(pread64, pread, ssize_t, (int descriptor, void *bytes, std::size_t size, std::int64_t offset),
            (descriptor, bytes, size, offset))
ZELAF_FAILS(pwrite, pwrite, ssize_t, (int descriptor, const void *bytes, std::size_t size, long offset),
            (descriptor, bytes, size, offset))
ZELAF_FAILS(pwrite64, pwrite, ssize_t, (int descriptor, const void *bytes, std::size_t size, std::int64_t offset),
            (descriptor, bytes, size, offset))
ZELAF_FAILS(fsync, fsync, int, (int descriptor), (descriptor))
ZELAF_FAILS(fdatasync, fdatasync, int, (int descriptor), (descriptor))
ZELAF_FAILS(ftruncate, ftruncate, int, (int descriptor, long size), (descriptor, size))
ZELAF_FAILS(ftruncate64, ftruncate, int, (int descriptor, std::int64_t size), (descriptor, size))
#define ZELAF_FCNTL(symbol)                                                                                            \
    ZELAF_FAILS(symbol, fcntl, int, (int descriptor, int command, void *argument), (descriptor, command, argument))
ZELAF_FCNTL(fcntl)
ZELAF_FCNTL(fcntl64)
ZELAF_FCNTL(__fcntl_time64)
#define ZELAF_STATUS(symbol, call, Which) ZELAF_FAILS(symbol, call, int, (Which which, void *status), (which, status))
ZELAF_STATUS(stat, stat, const char *)
ZELAF_STATUS(stat64, stat, const char *)
ZELAF_STATUS(__stat64_time64, stat, const char *)
ZELAF_STATUS(lstat, lstat, const char *)
ZELAF_STATUS(lstat64, lstat, const char *)
ZELAF_STATUS(__lstat64_time64, lstat, const char *)
ZELAF_STATUS(fstat, fstat, int)
ZELAF_STATUS(fstat64, fstat, int)
ZELAF_STATUS(__fstat64_time64, fstat, int)
ZELAF_FAILS(access, access, int, (const char *name, int mode), (name, mode))
ZELAF_FAILS(faccessat, faccessat, int, (int folder, const char *name, int mode, int flags), (folder, name, mode, flags))
ZELAF_FAILS(fchmod, fchmod, int, (int descriptor, unsigned mode), (descriptor, mode))
ZELAF_FAILS(fchown, fchown, int, (int descriptor, unsigned owner, unsigned group), (descriptor, owner, group))
ZELAF_FAILS(rename, rename, int, (const char *from, const char *to), (from, to))
ZELAF_FAILS(link, link, int, (const char *from, const char *to), (from, to))
ZELAF_FAILS(unlink, unlink, int, (const char *name), (name))
ZELAF_FAILS(readlink, readlink, ssize_t, (const char *name, char *text, std::size_t size), (name, text, size))
ZELAF_DEFINE(getcwd, char *, (char *text, std::size_t size),
             return isFailing(call_getcwd) ? nullptr : next(text, size);)
#define ZELAF_MMAP(symbol, Offset)                                                                                     \
    ZELAF_DEFINE(symbol, void *,                                                                                       \
                 (void *address, std::size_t size, int protection, int flags, int descriptor, Offset offset),          \
                 return isFailing(call_mmap) ? reinterpret_cast<void *>(-1L)                                           \
                                             : next(address, size, protection, flags, descriptor, offset);)
ZELAF_MMAP(mmap, long)
ZELAF_MMAP(mmap64, std::int64_t)
ZELAF_FAILS(munmap, munmap, int, (void *address, std::size_t size), (address, size))
// The test's own waits are as long as it takes.
#define ZELAF_SLEEP(symbol)                                                                                            \
    ZELAF_DEFINE(symbol, int, (const void *time, void *rest),                                                          \
                 return isOfTheLibrary(__builtin_return_address(0)) && isFailing(call_nanosleep) ? -1                  \
                                                                                                 : next(time, rest);)
ZELAF_SLEEP(nanosleep)
ZELAF_SLEEP(__nanosleep64)

namespace test {

bool receiveFails() {
    return isFailing(call_mq_receive);
}

const std::vector<FailingCall> &failingCalls() {
    // Of a name that is there: a lie about it would make the library see another disk, not a failing one.
    static const std::vector<int> ofNames{EACCES, EIO, ELOOP, ENOMEM, ENAMETOOLONG, EPERM};
    static const std::vector<int> ofOpen{EACCES, EINTR,  EIO,   EMFILE, ENFILE, ENOMEM,
                                         ENOSPC, EDQUOT, EROFS, EPERM,  EINVAL};
    static const std::vector<int> ofReads{EIO, EINTR, EAGAIN, EBADF, EINVAL};
    static const std::vector<int> ofWrites{EIO, EINTR, EAGAIN, EBADF, EINVAL, ENOSPC, EDQUOT, EFBIG, EPERM};
    static const std::vector<int> ofSyncs{EIO, EINTR, ENOSPC, EDQUOT, EBADF, EROFS, EINVAL};
    static const std::vector<int> ofEntries{EACCES, EBUSY, EDQUOT, EINVAL, EIO, ENOMEM, ENOSPC, EPERM, EROFS};
    static const std::vector<int> ofQueues{EAGAIN, EBADF, EINTR, EINVAL, EMSGSIZE, ETIMEDOUT};
    static const unsigned rootWithFiles = geteuid() == 0 ? provider : nobody;
    static const std::vector<FailingCall> calls{
        {"setrlimit", {EPERM, EINVAL}, framework, host},
        {"mq_open",
         {EACCES, EEXIST, EINVAL, EMFILE, ENAMETOOLONG, ENFILE, ENOENT, ENOMEM, ENOSPC, EINTR},
         framework,
         host},
        {"mq_send", ofQueues, framework, host | worker},
        {"mq_receive", ofQueues, framework, host | worker},
        {"mq_timedsend", ofQueues, framework, host},
        {"mq_timedreceive", ofQueues, framework, nobody, "for senders that a full queue blocks: FoundByFailuresTest"},
        {"mq_getattr", {EBADF}, framework, nobody, "of a queue with larger messages: FoundByFailuresTest"},
        {"mq_close", {EBADF}, framework, worker, "a queue is closed by who leaves it last"},
        {"mq_unlink", {EACCES, ENAMETOOLONG, ENOENT}, framework, host | worker},
        {"sem_init", {EINVAL, ENOSYS}, framework, host},
        {"sem_wait", {EINTR, EINVAL}, framework, host},
        {"sem_trywait", {EAGAIN, EINTR, EINVAL}, framework, worker},
        {"sem_post", {EINVAL, EOVERFLOW}, framework, host},
        {"sem_destroy", {EINVAL}, framework, host | worker},
        {"pthread_attr_init", {ENOMEM}, framework, host},
        {"pthread_attr_setdetachstate", {EINVAL}, framework, host},
        {"pthread_attr_setstacksize", {EINVAL}, framework, host},
        {"pthread_attr_destroy", {EINVAL}, framework, host},
        {"pthread_create", {EAGAIN, EINVAL, EPERM, ENOMEM}, framework, host},
        {"pthread_mutex_init", {EAGAIN, ENOMEM, EPERM, EINVAL}, framework, host, nullptr, true},
        {"pthread_mutex_lock", {EAGAIN, EINVAL, EDEADLK}, framework | provider, host | provider, nullptr, true},
        {"pthread_mutex_unlock", {EPERM, EINVAL}, framework, host, nullptr, true},
        {"pthread_mutex_destroy", {EBUSY, EINVAL}, framework, host, nullptr, true},
        {"prctl", {EINVAL, EFAULT}, framework, worker},
        {"getpwuid", {0, EINTR, EIO, EMFILE, ENFILE, ENOMEM, ERANGE}, framework, host},
        {"open", ofOpen, provider, provider},
        {"close", {EBADF, EINTR, EIO, ENOSPC, EDQUOT}, provider, provider},
        {"read", ofReads, provider, file, "SQLite reads with pread"},
        {"write", ofWrites, provider, file, "SQLite writes with pwrite"},
        {"pread", ofReads, provider, sqlite, "who does not get the lock reads its holder: StoreLockTest"},
        {"pwrite", ofWrites, provider, provider},
        {"fsync", ofSyncs, provider, provider},
        {"fdatasync", ofSyncs, provider, provider},
        {"ftruncate", {EINTR, EIO, EFBIG, EPERM, EINVAL, EBADF}, provider, provider},
        {"fcntl", {EACCES, EAGAIN, EINTR, ENOLCK, EBADF, EINVAL}, provider, provider},
        {"stat", ofNames, provider, provider},
        {"lstat", ofNames, provider, provider},
        {"fstat", {EBADF, ENOMEM, EIO}, provider, provider},
        {"access", ofNames, provider, nobody,
         "SQLite's, for the folder of temporary files: these are in memory, as FoundByFailuresTest shows"},
        {"faccessat", ofNames, provider, file, "SQLite tells itself what it may write"},
        {"fchmod", {EIO, EPERM, EROFS}, provider, provider},
        {"fchown", {EIO, EPERM, EROFS}, provider, rootWithFiles, "only root gives files away"},
        {"rename", ofEntries, provider, provider},
        {"link",
         {EACCES, EDQUOT, EEXIST, EIO, EMLINK, ENOMEM, ENOSPC, EPERM, EROFS},
         provider,
         file,
         "SQLite has a journal"},
        {"unlink", {EACCES, EBUSY, EIO, ENOMEM, EPERM, EROFS}, provider, provider},
        {"readlink", ofNames, provider, provider},
        {"getcwd", {EACCES, ENOENT, ENOMEM, ERANGE}, provider, provider},
        {"mmap", {EACCES, EAGAIN, EBADF, EINVAL, ENFILE, ENOMEM}, provider, sqlite, "a file is read, and not mapped"},
        {"munmap", {EINVAL}, provider, sqlite, "a file is read, and not mapped"},
        {"nanosleep",
         {EINTR},
         provider,
         nobody,
         "a reader waits so while a host is to finish a store: SqliteUnfinishedTest"},
    };
    return calls;
}

void FailingCalls::fail(std::size_t call, Thread thread, std::uint64_t number, int error) {
    isTests = true;
    failingCall = noCall;
    for (auto &ofThread : counts) {
        for (auto &each : ofThread) {
            each = 0;
        }
    }
    failed = 0;
    failsInTests = thread == Thread::test;
    failingNumber = number;
    failingError = error;
    failingCall = call;
}

void FailingCalls::failNone() {
    fail(noCall, Thread::test, 0, 0);
}

FailingCalls::Counted::Counted() {
    isCounting = true;
}

FailingCalls::Counted::~Counted() {
    isCounting = false;
}

std::uint64_t FailingCalls::counted(std::size_t call, Thread thread) {
    return counts[thread == Thread::test ? 0 : 1][call];
}

std::uint64_t FailingCalls::failures() {
    return failed;
}

} // namespace test
