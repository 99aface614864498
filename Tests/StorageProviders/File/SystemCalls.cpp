#include "SystemCalls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

namespace {

struct State {
    std::string folder;
    std::map<int, std::string> open; ///< Watched descriptors; an empty name is the folder itself.
    std::map<int, std::uint64_t> offsets;
    std::vector<test::Change> changes;
    std::vector<std::string> calls;
    std::size_t failing = SIZE_MAX;
    test::SystemCalls::Lasting lasting = test::SystemCalls::Lasting::once;
    int error = 0;
    std::string failingCall;
    bool isInterrupting = false;
    bool isTakingNothing = false;
    bool isGivingNothing = false;
    std::set<std::string> interrupted; ///< Calls that come again.
    std::uint64_t bytes = 0;
    std::size_t failures = 0;
};

State *watching; ///< Nothing is looked at without: a sanitizer calls before anything can be made.

template <class Function>
Function *systems(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// Of a call that takes a file's size or time: the header gives it another symbol where a 32-bit target asks for 64
/// bits of both, and so the definition below has that one too.
template <class Function>
Function *systems([[maybe_unused]] const char *name, [[maybe_unused]] const char *wideName) {
#ifdef __USE_TIME_BITS64
    return systems<Function>(wideName);
#else
    return systems<Function>(name);
#endif
}

/// @return whether the name is the folder, or of one of its files. @param file  receives its name there.
bool isWatched(const char *name, std::string &file) {
    if (watching == nullptr) {
        return false;
    }
    const std::string &folder = watching->folder;
    if (std::strncmp(name, folder.c_str(), folder.size()) != 0) {
        return false;
    }
    const char *rest = name + folder.size();
    file = *rest == '/' ? rest + 1 : "";
    return *rest == '/' || *rest == '\0';
}

bool isWatched(int descriptor, std::string &file) {
    if (watching == nullptr || watching->open.count(descriptor) == 0) {
        return false;
    }
    file = watching->open[descriptor];
    return true;
}

bool isLockFile(const std::string &file) {
    return file.size() > 5 && file.compare(file.size() - 5, 5, ".lock") == 0;
}

/// Counts a call. @return whether it is to fail; errno says with what.
bool isFailing(const std::string &call, const std::string &file) {
    const std::size_t number = watching->calls.size();
    watching->calls.push_back(file.empty() ? call : call + " " + file);
    const bool isNumbered = watching->lasting == test::SystemCalls::Lasting::once ? number == watching->failing
                                                                                  : number >= watching->failing;
    if (!isNumbered && call != watching->failingCall && watching->calls.back() != watching->failingCall) {
        return false;
    }
    ++watching->failures;
    errno = watching->error;
    return true;
}

/// Every second call of a kind is let through.
bool isInterrupted(const std::string &call, const std::string &file) {
    if (!watching->isInterrupting || isLockFile(file) || watching->interrupted.erase(call) != 0) {
        return false;
    }
    watching->interrupted.insert(call);
    ++watching->failures;
    errno = EINTR;
    return true;
}

void note(test::Change change) {
    if (!isLockFile(change.file)) {
        watching->changes.push_back(std::move(change));
    }
}

size_t half(size_t length) {
    return watching->isInterrupting && length > 1 ? length / 2 : length;
}

} // namespace

namespace test {

SystemCalls::SystemCalls(const std::string &folder) {
    auto *state = new State;
    state->folder = folder;
    watching = state;
}

SystemCalls::~SystemCalls() {
    const State *state = watching;
    watching = nullptr;
    delete state;
}

void SystemCalls::fail(std::size_t number, int error, Lasting lasting) {
    watching->failing = number;
    watching->error = error;
    watching->lasting = lasting;
}

void SystemCalls::failEach(const std::string &call, int error) {
    watching->failingCall = call;
    watching->error = error;
}

void SystemCalls::interrupt() {
    watching->isInterrupting = true;
}

void SystemCalls::takeNothing() {
    watching->isTakingNothing = true;
}

void SystemCalls::giveNothing() {
    watching->isGivingNothing = true;
}

const std::vector<std::string> &SystemCalls::calls() const {
    return watching->calls;
}

const std::vector<Change> &SystemCalls::changes() const {
    return watching->changes;
}

std::uint64_t SystemCalls::bytesWritten() const {
    return watching->bytes;
}

std::size_t SystemCalls::failures() const {
    return watching->failures;
}

} // namespace test

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved names
using test::Change;

extern "C" {

int open(const char *name, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see through va_start here
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    static auto *const own = systems<int(const char *, int, ...)>("open", "open64");
    std::string file;
    if (!isWatched(name, file)) {
        return own(name, flags, mode);
    }
    if (isInterrupted("open", file) || isFailing("open", file)) {
        return -1;
    }
    const int descriptor = own(name, flags, mode);
    if (descriptor != -1) {
        watching->open[descriptor] = file;
        watching->offsets[descriptor] = 0;
        if ((flags & O_CREAT) != 0) {
            note({Change::create, file, "", 0});
        }
    }
    return descriptor;
}

#ifndef __USE_TIME_BITS64
int open64(const char *name, int flags, ...) __attribute__((alias("open")));
#endif

int close(int descriptor) {
    static auto *const own = systems<int(int)>("close");
    std::string file;
    if (!isWatched(descriptor, file)) {
        return own(descriptor);
    }
    watching->open.erase(descriptor);
    const bool fails = isInterrupted("close", file) || isFailing("close", file);
    const int error = errno;
    const int result = own(descriptor); // a descriptor is gone also when its close failed
    errno = fails ? error : errno;
    return fails ? -1 : result;
}

ssize_t read(int descriptor, void *bytes, size_t length) {
    static auto *const own = systems<ssize_t(int, void *, size_t)>("read");
    std::string file;
    if (!isWatched(descriptor, file)) {
        return own(descriptor, bytes, length);
    }
    if (isInterrupted("read", file) || isFailing("read", file)) {
        return -1;
    }
    return watching->isGivingNothing ? 0 : own(descriptor, bytes, half(length));
}

ssize_t write(int descriptor, const void *bytes, size_t length) {
    static auto *const own = systems<ssize_t(int, const void *, size_t)>("write");
    std::string file;
    if (!isWatched(descriptor, file)) {
        return own(descriptor, bytes, length);
    }
    if (isInterrupted("write", file) || isFailing("write", file)) {
        return -1;
    }
    const ssize_t written = watching->isTakingNothing ? 0 : own(descriptor, bytes, half(length));
    if (written > 0) {
        std::uint64_t &offset = watching->offsets[descriptor];
        note({Change::write, file, std::string(static_cast<const char *>(bytes), static_cast<std::size_t>(written)),
              offset});
        offset += static_cast<std::uint64_t>(written);
        watching->bytes += static_cast<std::uint64_t>(written);
    }
    return written;
}

ssize_t pread(int descriptor, void *bytes, size_t length, off_t offset) {
    static auto *const own = systems<ssize_t(int, void *, size_t, off_t)>("pread", "pread64");
    std::string file;
    return isWatched(descriptor, file) && isFailing("pread", file) ? -1 : own(descriptor, bytes, length, offset);
}

ssize_t pwrite(int descriptor, const void *bytes, size_t length, off_t offset) {
    static auto *const own = systems<ssize_t(int, const void *, size_t, off_t)>("pwrite", "pwrite64");
    std::string file;
    return isWatched(descriptor, file) && isFailing("pwrite", file) ? -1 : own(descriptor, bytes, length, offset);
}

int ftruncate(int descriptor, off_t length) noexcept {
    static auto *const own = systems<int(int, off_t)>("ftruncate", "ftruncate64");
    std::string file;
    return isWatched(descriptor, file) && isFailing("ftruncate", file) ? -1 : own(descriptor, length);
}

int fcntl(int descriptor, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): as above
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    static auto *const own = systems<int(int, int, ...)>("fcntl", "__fcntl_time64");
    std::string file;
    return isWatched(descriptor, file) && isFailing("fcntl", file) ? -1 : own(descriptor, command, argument);
}

#ifndef __USE_TIME_BITS64
int fcntl64(int descriptor, int command, ...) __attribute__((alias("fcntl")));
#endif

int fdatasync(int descriptor) {
    static auto *const own = systems<int(int)>("fdatasync");
    std::string file;
    if (!isWatched(descriptor, file)) {
        return own(descriptor);
    }
    if (isInterrupted("fdatasync", file) || isFailing("fdatasync", file)) {
        return -1;
    }
    note({Change::syncFile, file, "", 0});
    return 0;
}

int fsync(int descriptor) {
    static auto *const own = systems<int(int)>("fsync");
    std::string file;
    if (!isWatched(descriptor, file)) {
        return own(descriptor);
    }
    if (isInterrupted("fsync", file) || isFailing("fsync", file)) {
        return -1;
    }
    note({file.empty() ? Change::syncFolder : Change::syncFile, file, "", 0});
    return 0;
}

int fchmod(int descriptor, mode_t mode) noexcept {
    static auto *const own = systems<int(int, mode_t)>("fchmod");
    std::string file;
    return isWatched(descriptor, file) && isFailing("fchmod", file) ? -1 : own(descriptor, mode);
}

int fchown(int descriptor, uid_t owner, gid_t group) noexcept {
    static auto *const own = systems<int(int, uid_t, gid_t)>("fchown");
    std::string file;
    return isWatched(descriptor, file) && isFailing("fchown", file) ? -1 : own(descriptor, owner, group);
}

int stat(const char *name, struct stat *status) noexcept {
    static auto *const own = systems<int(const char *, struct stat *)>("stat", "__stat64_time64");
    std::string file;
    return isWatched(name, file) && isFailing("stat", file) ? -1 : own(name, status);
}

int lstat(const char *name, struct stat *status) noexcept {
    static auto *const own = systems<int(const char *, struct stat *)>("lstat", "__lstat64_time64");
    std::string file;
    return isWatched(name, file) && isFailing("lstat", file) ? -1 : own(name, status);
}

int fstat(int descriptor, struct stat *status) noexcept {
    static auto *const own = systems<int(int, struct stat *)>("fstat", "__fstat64_time64");
    std::string file;
    return isWatched(descriptor, file) && isFailing("fstat", file) ? -1 : own(descriptor, status);
}

int faccessat(int folder, const char *name, int mode, int flags) noexcept {
    static auto *const own = systems<int(int, const char *, int, int)>("faccessat");
    std::string file;
    return isWatched(name, file) && isFailing("faccessat", file) ? -1 : own(folder, name, mode, flags);
}

ssize_t readlink(const char *name, char *target, size_t size) noexcept {
    static auto *const own = systems<ssize_t(const char *, char *, size_t)>("readlink");
    std::string file;
    return isWatched(name, file) && isFailing("readlink", file) ? -1 : own(name, target, size);
}

char *getcwd(char *name, size_t size) noexcept {
    static auto *const own = systems<char *(char *, size_t)>("getcwd");
    return watching != nullptr && isFailing("getcwd", "") ? nullptr : own(name, size);
}

int rename(const char *from, const char *to) noexcept {
    static auto *const own = systems<int(const char *, const char *)>("rename");
    std::string file;
    std::string other;
    if (!isWatched(from, file) || !isWatched(to, other)) {
        return own(from, to);
    }
    if (isFailing("rename", file)) {
        return -1;
    }
    const int result = own(from, to);
    if (result == 0) {
        note({Change::rename, file, other, 0});
    }
    return result;
}

int link(const char *from, const char *to) noexcept {
    static auto *const own = systems<int(const char *, const char *)>("link");
    std::string file;
    std::string other;
    if (!isWatched(from, file) || !isWatched(to, other)) {
        return own(from, to);
    }
    if (isFailing("link", file)) {
        return -1;
    }
    const int result = own(from, to);
    if (result == 0) {
        note({Change::link, file, other, 0});
    }
    return result;
}

int unlink(const char *name) noexcept {
    static auto *const own = systems<int(const char *)>("unlink");
    std::string file;
    if (!isWatched(name, file)) {
        return own(name);
    }
    if (isFailing("unlink", file)) {
        return -1;
    }
    const int result = own(name);
    if (result == 0) {
        note({Change::unlink, file, "", 0});
    }
    return result;
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
