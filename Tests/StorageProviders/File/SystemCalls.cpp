#include "SystemCalls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace {

struct State {
    std::string folder;
    std::map<int, std::string> open; ///< Watched descriptors; an empty name is the folder itself.
    std::map<int, std::uint64_t> offsets;
    std::vector<test::Change> changes;
    std::vector<std::string> calls;
    int failing = -1;
    int error = 0;
    bool areShort = false;
    bool wasInterrupted = false;
    std::uint64_t bytes = 0;
};

State &state() {
    static auto &state = *new State;
    return state;
}

template <class Function>
Function *systems(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// @return whether the name is one of the folder's files. @param file  receives its name there.
bool isWatched(const char *name, std::string &file) {
    const std::string whole = name;
    if (state().folder.empty() || whole.rfind(state().folder, 0) != 0) {
        return false;
    }
    file = whole == state().folder ? "" : whole.substr(state().folder.size() + 1);
    return file.find(".lock") == std::string::npos;
}

bool isFailing(const char *call) {
    state().calls.emplace_back(call);
    if (state().failing != static_cast<int>(state().calls.size()) - 1) {
        return false;
    }
    errno = state().error;
    return true;
}

} // namespace

namespace test {

void SystemCalls::watch(const std::string &folder) {
    state().folder = folder;
    reset();
    fail(-1, 0);
}
void SystemCalls::ignore() {
    state().folder.clear();
    state().areShort = false;
    fail(-1, 0);
}
void SystemCalls::reset() {
    state().changes.clear();
    state().bytes = 0;
}
const std::vector<Change> &SystemCalls::changes() {
    return state().changes;
}
void SystemCalls::fail(int number, int error) {
    state().failing = number;
    state().error = error;
    state().calls.clear();
}
const std::vector<std::string> &SystemCalls::calls() {
    return state().calls;
}
void SystemCalls::shortWrites(bool areShort) {
    state().areShort = areShort;
}
std::uint64_t SystemCalls::bytesWritten() {
    return state().bytes;
}

} // namespace test

extern "C" {

int open(const char *name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    static auto *const own = systems<int(const char *, int, ...)>("open");
    std::string file;
    if (!isWatched(name, file)) {
        return own(name, flags, mode);
    }
    if (isFailing("open")) {
        return -1;
    }
    const int descriptor = own(name, flags, mode);
    if (descriptor != -1) {
        state().open[descriptor] = file;
        state().offsets[descriptor] = 0;
        if ((flags & O_CREAT) != 0) {
            state().changes.push_back({test::Change::create, file, "", 0});
        }
    }
    return descriptor;
}

int open64(const char *name, int flags, ...) __attribute__((alias("open")));

int close(int descriptor) {
    static auto *const own = systems<int(int)>("close");
    const bool isOurs = state().open.erase(descriptor) != 0;
    const bool fails = isOurs && isFailing("close");
    const int error = errno;
    const int result = own(descriptor); // a descriptor is gone also when its close failed
    errno = fails ? error : errno;
    return fails ? -1 : result;
}

ssize_t read(int descriptor, void *bytes, size_t length) {
    static auto *const own = systems<ssize_t(int, void *, size_t)>("read");
    return state().open.count(descriptor) != 0 && isFailing("read") ? -1 : own(descriptor, bytes, length);
}

ssize_t write(int descriptor, const void *bytes, size_t length) {
    static auto *const own = systems<ssize_t(int, const void *, size_t)>("write");
    const auto found = state().open.find(descriptor);
    if (found == state().open.end()) {
        return own(descriptor, bytes, length);
    }
    if (isFailing("write")) {
        return -1;
    }
    if (state().areShort && length > 1) {
        state().wasInterrupted = !state().wasInterrupted;
        if (state().wasInterrupted) {
            errno = EINTR;
            return -1;
        }
        length /= 2;
    }
    const ssize_t written = own(descriptor, bytes, length);
    if (written > 0) {
        std::uint64_t &offset = state().offsets[descriptor];
        state().changes.push_back({test::Change::write, found->second,
                                   std::string(static_cast<const char *>(bytes), static_cast<std::size_t>(written)),
                                   offset});
        offset += static_cast<std::uint64_t>(written);
        state().bytes += static_cast<std::uint64_t>(written);
    }
    return written;
}

int fdatasync(int descriptor) {
    static auto *const own = systems<int(int)>("fdatasync");
    const auto found = state().open.find(descriptor);
    if (found == state().open.end()) {
        return own(descriptor);
    }
    if (isFailing("fdatasync")) {
        return -1;
    }
    state().changes.push_back({test::Change::syncFile, found->second, "", 0});
    return 0;
}

int fsync(int descriptor) {
    static auto *const own = systems<int(int)>("fsync");
    const auto found = state().open.find(descriptor);
    if (found == state().open.end()) {
        return own(descriptor);
    }
    if (isFailing("fsync")) {
        return -1;
    }
    state().changes.push_back(
        {found->second.empty() ? test::Change::syncFolder : test::Change::syncFile, found->second, "", 0});
    return 0;
}

int rename(const char *from, const char *to) noexcept {
    static auto *const own = systems<int(const char *, const char *)>("rename");
    std::string file;
    std::string other;
    if (!isWatched(from, file) || !isWatched(to, other)) {
        return own(from, to);
    }
    if (isFailing("rename")) {
        return -1;
    }
    const int result = own(from, to);
    if (result == 0) {
        state().changes.push_back({test::Change::rename, file, other, 0});
    }
    return result;
}

int unlink(const char *name) noexcept {
    static auto *const own = systems<int(const char *)>("unlink");
    std::string file;
    if (!isWatched(name, file)) {
        return own(name);
    }
    const int result = own(name);
    if (result == 0) {
        state().changes.push_back({test::Change::unlink, file, "", 0});
    }
    return result;
}

int fstat(int descriptor, struct stat *status) noexcept {
    static auto *const own = systems<int(int, struct stat *)>("fstat");
    return state().open.count(descriptor) != 0 && isFailing("fstat") ? -1 : own(descriptor, status);
}
}
