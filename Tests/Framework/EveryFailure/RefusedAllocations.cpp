#include "RefusedAllocations.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

extern "C" {
// glibc's own, under the names that it keeps for programs that bring an allocator; and a sanitizer's.
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void *block);
__attribute__((weak)) void *__interceptor_malloc(std::size_t size);
__attribute__((weak)) void *__interceptor_calloc(std::size_t count, std::size_t size);
__attribute__((weak)) void *__interceptor_realloc(void *block, std::size_t size);
__attribute__((weak)) void *__interceptor_memalign(std::size_t alignment, std::size_t size);
__attribute__((weak)) void __interceptor_free(void *block);
}

namespace {

constexpr std::uint64_t none = ~std::uint64_t{0};

thread_local bool isMain;
thread_local bool isCounting;
thread_local std::uint64_t firstRefused = none;
thread_local bool isLasting;
thread_local std::uint64_t count;
thread_local std::uint64_t refusals;

std::atomic<bool> othersAreRefused{false};
std::atomic<std::uint64_t> refusalsOfOthers{0};
std::atomic<std::int64_t> alive{0};

/// Nothing here may allocate.
std::array<void *, 4096> followed;
std::size_t noOfFollowed = followed.size();

bool isRefused() noexcept {
    if (!isMain) {
        if (!othersAreRefused) {
            return false;
        }
        ++refusalsOfOthers;
        errno = ENOMEM;
        return true;
    }
    if (!isCounting) {
        return false;
    }
    const std::uint64_t number = count++;
    if (isLasting ? number < firstRefused : number != firstRefused) {
        return false;
    }
    ++refusals;
    errno = ENOMEM;
    return true;
}

void *keep(void *block) noexcept {
    if (block != nullptr) {
        ++alive;
        if (isMain && isCounting && noOfFollowed < followed.size()) {
            followed[noOfFollowed++] = block;
        }
    }
    return block;
}

void release(void *block) noexcept {
    if (block == nullptr) {
        return;
    }
    --alive;
    if (isMain && noOfFollowed < followed.size()) {
        for (std::size_t i = 0; i < noOfFollowed; ++i) {
            followed[i] = followed[i] == block ? nullptr : followed[i];
        }
    }
    __interceptor_free != nullptr ? __interceptor_free(block) : __libc_free(block);
}

void *allocate(std::size_t size) noexcept {
    if (isRefused()) {
        return nullptr;
    }
    return keep(__interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size));
}

void *allocateAligned(std::size_t alignment, std::size_t size) noexcept {
    if (isRefused()) {
        return nullptr;
    }
    return keep(__interceptor_memalign != nullptr ? __interceptor_memalign(alignment, size)
                                                  : __libc_memalign(alignment, size));
}

void *allocateOrThrow(std::size_t size) {
    if (void *block = allocate(size == 0 ? 1 : size)) {
        return block;
    }
    throw std::bad_alloc{};
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved names
extern "C" {
void *malloc(std::size_t size) noexcept {
    return allocate(size);
}
void *calloc(std::size_t noOfElements, std::size_t size) noexcept {
    if (isRefused()) {
        return nullptr;
    }
    return keep(__interceptor_calloc != nullptr ? __interceptor_calloc(noOfElements, size)
                                                : __libc_calloc(noOfElements, size));
}
void *realloc(void *block, std::size_t size) noexcept {
    if (block == nullptr) {
        return allocate(size);
    }
    if (size == 0) {
        release(block);
        return nullptr;
    }
    if (isRefused()) {
        return nullptr;
    }
    void *grown = __interceptor_realloc != nullptr ? __interceptor_realloc(block, size) : __libc_realloc(block, size);
    if (grown != nullptr && isMain) {
        for (std::size_t i = 0; noOfFollowed < followed.size() && i < noOfFollowed; ++i) {
            followed[i] = followed[i] == block ? grown : followed[i];
        }
    }
    return grown;
}
void *memalign(std::size_t alignment, std::size_t size) noexcept {
    return allocateAligned(alignment, size);
}
void *aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return allocateAligned(alignment, size);
}
int posix_memalign(void **block, std::size_t alignment, std::size_t size) noexcept {
    *block = allocateAligned(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}
void free(void *block) noexcept {
    release(block);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

void *operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void *operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return allocate(size == 0 ? 1 : size);
}
void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return allocate(size == 0 ? 1 : size);
}
#include "ReplacedDelete.h" // behind release()

namespace test {

void RefusedAllocations::refuse(std::uint64_t number, Lasting lasting) {
    isMain = true;
    firstRefused = number;
    isLasting = lasting == Lasting::fromThenOn;
    count = 0;
    refusals = 0;
}

void RefusedAllocations::refuseNone() {
    firstRefused = none;
}

RefusedAllocations::Counted::Counted() {
    isCounting = true;
}

RefusedAllocations::Counted::~Counted() {
    isCounting = false;
}

std::uint64_t RefusedAllocations::counted() {
    return count;
}

std::uint64_t RefusedAllocations::refused() {
    return refusals;
}

void refuseOtherThreads(bool isRefused) {
    isMain = true;
    refusalsOfOthers = 0;
    othersAreRefused = isRefused;
}

std::uint64_t refusedToOtherThreads() {
    return refusalsOfOthers;
}

std::int64_t blocksAlive() {
    return alive;
}

void followBlocks() {
    noOfFollowed = 0;
}

void forgetFollowedBlocks() {
    noOfFollowed = followed.size();
}

std::uint32_t freeFollowedBlocks() {
    const std::size_t end = noOfFollowed;
    noOfFollowed = followed.size();
    std::uint32_t freed = 0;
    for (std::size_t i = 0; i < end; ++i) {
        if (followed[i] != nullptr) {
            std::free(followed[i]);
            ++freed;
        }
    }
    return freed;
}

} // namespace test
