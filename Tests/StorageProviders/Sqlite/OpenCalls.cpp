#include "OpenCalls.h"

#include <fcntl.h>
#include <sys/types.h>

#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>
#include <string_view>

namespace {

using Which = test::FailingOpen::Which;

struct Fault {
    std::string end;
    Which which = Which::all;
    int error = 0;
    unsigned times = 0;
    unsigned failures = 0;
};
Fault fault;

bool isMeant(int flags) {
    switch (fault.which) {
    case Which::writing:
        return (flags & O_ACCMODE) != O_RDONLY;
    case Which::making:
        return (flags & O_CREAT) != 0;
    default:
        return true;
    }
}

bool isFailing(std::string_view name, int flags) {
    const std::string_view end = fault.end;
    if (fault.failures == fault.times || name.size() < end.size() || name.substr(name.size() - end.size()) != end ||
        !isMeant(flags)) {
        return false;
    }
    ++fault.failures;
    errno = fault.error;
    return true;
}

int forward(const char *call, const char *name, int flags, mode_t mode) {
    return reinterpret_cast<int (*)(const char *, int, ...)>(dlsym(RTLD_NEXT, call))(name, flags, mode);
}

} // namespace

namespace test {

FailingOpen::FailingOpen(const std::string &endOfName, Which which, int error, unsigned times) {
    fault = {endOfName, which, error, times, 0};
}

FailingOpen::~FailingOpen() {
    fault.times = fault.failures;
}

unsigned FailingOpen::failures() const {
    return fault.failures;
}

} // namespace test

// The system's calls take the mode as one more argument.
#define FAIL_OR_FORWARD(call)                                                                                          \
    if (isFailing(name, flags)) {                                                                                      \
        return -1;                                                                                                     \
    }                                                                                                                  \
    mode_t mode = 0;                                                                                                   \
    if ((flags & O_CREAT) != 0) {                                                                                      \
        va_list arguments;                                                                                             \
        va_start(arguments, flags);                                                                                    \
        mode = va_arg(arguments, mode_t);                                                                              \
        va_end(arguments);                                                                                             \
    }                                                                                                                  \
    return forward(call, name, flags, mode)

// The analyzer does not see through va_start here.
// NOLINTBEGIN(readability-inconsistent-*,cert-dcl50-cpp,clang-analyzer-valist.*): as the C library has them
extern "C" int open(const char *name, int flags, ...) {
    FAIL_OR_FORWARD("open");
}
extern "C" int open64(const char *name, int flags, ...) {
    FAIL_OR_FORWARD("open64");
}
// NOLINTEND(readability-inconsistent-*,cert-dcl50-cpp,clang-analyzer-valist.*)
