// The program's own definitions of the calls come before the C library's, for every library that it uses.
#include "ProviderFlushes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

/// Of a thread: what a store does behind its user's back, on a thread of its own, is not what the user waits for.
thread_local std::uint64_t flushes = 0;

/// Whether what is written to a descriptor is durable when the call returns.
std::array<std::atomic<bool>, 1024> isSynchronous{};

template <class Call>
Call nextOf(const char *name) {
    return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

int opened(int descriptor, int flags) {
    if (descriptor >= 0 && static_cast<std::size_t>(descriptor) < isSynchronous.size()) {
        isSynchronous[static_cast<std::size_t>(descriptor)] = (flags & O_DSYNC) != 0; // which O_SYNC contains
    }
    return descriptor;
}

void written(int descriptor) {
    if (descriptor >= 0 && static_cast<std::size_t>(descriptor) < isSynchronous.size() &&
        isSynchronous[static_cast<std::size_t>(descriptor)]) {
        ++flushes;
    }
}

using Open = int (*)(const char *, int, ...);
using Write = ssize_t (*)(int, const void *, std::size_t, off_t);

} // namespace

extern "C" {
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved names

int fsync(int descriptor) {
    static const auto next = nextOf<int (*)(int)>("fsync");
    ++flushes;
    return next(descriptor);
}

int fdatasync(int descriptor) {
    static const auto next = nextOf<int (*)(int)>("fdatasync");
    ++flushes;
    return next(descriptor);
}

int msync(void *address, std::size_t length, int flags) {
    static const auto next = nextOf<int (*)(void *, std::size_t, int)>("msync");
    ++flushes;
    return next(address, length, flags);
}

int open(const char *file, int flags, ...) {
    static const auto next = nextOf<Open>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return opened(next(file, flags, mode), flags);
}

int open64(const char *file, int flags, ...) {
    static const auto next = nextOf<Open>("open64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return opened(next(file, flags, mode), flags);
}

ssize_t pwrite(int descriptor, const void *bytes, std::size_t length, off_t offset) {
    static const auto next = nextOf<Write>("pwrite");
    written(descriptor);
    return next(descriptor, bytes, length, offset);
}

ssize_t pwrite64(int descriptor, const void *bytes, std::size_t length, off64_t offset) {
    static const auto next = nextOf<Write>("pwrite64");
    written(descriptor);
    return next(descriptor, bytes, length, offset);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
} // extern "C"

speed::DiskWork speed::diskWork() {
    DiskWork work{flushes, 0};
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen("/proc/thread-self/io", "re"), std::fclose);
    if (file == nullptr) {
        throw std::runtime_error("/proc/thread-self/io can not be read: the kernel was built without it");
    }
    std::array<char, 80> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
        const std::string text = line.data();
        if (text.rfind("wchar: ", 0) == 0) {
            work.bytes = std::stoull(text.substr(7));
        }
    }
    return work;
}
