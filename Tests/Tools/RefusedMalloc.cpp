// Loaded before a program that knows nothing of it: one of the program's allocations fails, or all from it on.
//   ZELAF_REFUSED_ALLOCATION  its number, from 1; 0 refuses none
//   ZELAF_REFUSED_LASTING     not empty: all from it on
//   ZELAF_ALLOCATIONS         a file that receives how many there were
#include <dlfcn.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

extern "C" {
// glibc's own, under the names that it keeps for programs that bring an allocator.
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
}

namespace {

bool isCounting;
bool isLasting;
unsigned long refused;
unsigned long count;

using Main = int(int, char **, char **);
Main *programs;

/// What a program allocates before its main begins can not be caught by it.
int countedMain(int noOfArguments, char **arguments, char **environment) {
    const char *number = std::getenv("ZELAF_REFUSED_ALLOCATION");
    const char *lasting = std::getenv("ZELAF_REFUSED_LASTING");
    refused = number != nullptr ? std::strtoul(number, nullptr, 10) : 0;
    isLasting = lasting != nullptr && lasting[0] != '\0';
    isCounting = true;
    const int exitCode = programs(noOfArguments, arguments, environment);
    isCounting = false;
    const char *name = std::getenv("ZELAF_ALLOCATIONS");
    std::FILE *file = name != nullptr ? std::fopen(name, "w") : nullptr;
    if (file != nullptr) {
        std::fprintf(file, "%lu\n", count);
        std::fclose(file);
    }
    return exitCode;
}

bool isRefused() {
    if (!isCounting) {
        return false;
    }
    ++count;
    const bool isIt = refused != 0 && (isLasting ? count >= refused : count == refused);
    if (isIt) {
        errno = ENOMEM;
    }
    return isIt;
}

} // namespace

extern "C" {
void *malloc(std::size_t size) {
    return isRefused() ? nullptr : __libc_malloc(size);
}
void *calloc(std::size_t noOfElements, std::size_t size) {
    return isRefused() ? nullptr : __libc_calloc(noOfElements, size);
}
void *realloc(void *block, std::size_t size) {
    return isRefused() ? nullptr : __libc_realloc(block, size);
}

// The system's, before it: it is handed another main.
int __libc_start_main(Main *program, int noOfArguments, char **arguments, void (*begin)(), void (*end)(),
                      void (*endOfLoader)(), void *endOfStack) {
    using Start = int(Main *, int, char **, void (*)(), void (*)(), void (*)(), void *);
    programs = program;
    auto *const start = reinterpret_cast<Start *>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return start(countedMain, noOfArguments, arguments, begin, end, endOfLoader, endOfStack);
}
}
