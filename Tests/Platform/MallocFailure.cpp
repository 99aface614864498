// The same failures for a platform that takes its memory otherwise than by `operator new`: malloc itself fails, and
// with it everything that stands on it.
#include <atomic>
#include <cerrno>
#include <cstddef>

#include "AllocationFailure.h"

extern "C" {
// glibc's own, under the names that it keeps for programs that bring a malloc.
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
}

namespace {

constexpr std::uint32_t unlimited = ~0u;
std::atomic<std::uint32_t> allowedNow{unlimited};
std::atomic<std::uint32_t> failed{0};

bool isRefused() noexcept {
    auto left = allowedNow.load();
    while (left != unlimited) {
        if (left == 0) {
            ++failed;
            errno = ENOMEM;
            return true;
        }
        if (allowedNow.compare_exchange_weak(left, left - 1)) {
            break;
        }
    }
    return false;
}

} // namespace

extern "C" {

void *malloc(std::size_t size) {
    return isRefused() ? nullptr : __libc_malloc(size);
}
void *calloc(std::size_t count, std::size_t size) {
    return isRefused() ? nullptr : __libc_calloc(count, size);
}
void *realloc(void *block, std::size_t size) {
    return isRefused() ? nullptr : __libc_realloc(block, size);
}
}

namespace test {

AllocationFailure::AllocationFailure(std::uint32_t allowed) {
    failed = 0;
    allowedNow = allowed;
}

AllocationFailure::~AllocationFailure() {
    allowedNow = unlimited;
}

std::uint32_t AllocationFailure::failures() const {
    return failed;
}

} // namespace test
