#include "Allocations.h"

#include <dlfcn.h>
#include <link.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

extern "C" {
void *__libc_malloc(std::size_t);
void *__libc_calloc(std::size_t, std::size_t);
void __libc_free(void *);
__attribute__((weak)) void *__interceptor_malloc(std::size_t);
__attribute__((weak)) void *__interceptor_calloc(std::size_t, std::size_t);
__attribute__((weak)) void __interceptor_free(void *);
}

namespace {

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

Range library;

/// The library's blocks that live. Few enough for a walk, and nothing here may allocate.
constexpr std::size_t mostBlocks = 4096;
std::array<std::atomic<void *>, mostBlocks> blocks;
std::atomic<std::int64_t> noOfBlocks;

thread_local bool isArmed;
thread_local bool andAllLater;
thread_local std::uint32_t allowed;
thread_local std::uint32_t refused;

int findLibrary(dl_phdr_info *info, std::size_t, void *) {
    if (std::strstr(info->dlpi_name, "libZelApplicationFramework") == nullptr) {
        return 0;
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto &header = info->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            library.begin = info->dlpi_addr + header.p_vaddr;
            library.end = library.begin + header.p_memsz;
        }
    }
    return 1;
}

__attribute__((constructor)) void lookForLibrary() {
    dl_iterate_phdr(findLibrary, nullptr);
}

bool isLibrarys(const void *caller) {
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    return library.begin <= address && address < library.end;
}

bool isRefused() {
    if (!isArmed) {
        return false;
    }
    if (allowed > 0) {
        --allowed;
        return false;
    }
    if (refused > 0 && !andAllLater) {
        return false;
    }
    ++refused;
    return true;
}

void *keep(void *block) {
    if (block != nullptr) {
        for (std::atomic<void *> &slot : blocks) {
            void *empty = nullptr;
            if (slot.compare_exchange_strong(empty, block)) {
                ++noOfBlocks;
                break;
            }
        }
    }
    return block;
}

void forget(void *block) {
    if (block == nullptr || noOfBlocks == 0) {
        return;
    }
    for (std::atomic<void *> &slot : blocks) {
        void *expected = block;
        if (slot.load(std::memory_order_relaxed) == block && slot.compare_exchange_strong(expected, nullptr)) {
            --noOfBlocks;
            return;
        }
    }
}

void *systemMalloc(std::size_t size) {
    return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

void *systemCalloc(std::size_t count, std::size_t size) {
    return __interceptor_calloc != nullptr ? __interceptor_calloc(count, size) : __libc_calloc(count, size);
}

void systemFree(void *block) {
    __interceptor_free != nullptr ? __interceptor_free(block) : __libc_free(block);
}

void *allocate(std::size_t size, const void *caller) {
    if (!isLibrarys(caller)) {
        return systemMalloc(size);
    }
    return isRefused() ? nullptr : keep(systemMalloc(size));
}

void *allocateOrThrow(std::size_t size, const void *caller) {
    if (void *block = allocate(size == 0 ? 1 : size, caller)) {
        return block;
    }
    throw std::bad_alloc{};
}

void release(void *block) {
    forget(block);
    systemFree(block);
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved names
void *malloc(std::size_t size) noexcept {
    return allocate(size, __builtin_return_address(0));
}
void *calloc(std::size_t count, std::size_t size) noexcept {
    if (!isLibrarys(__builtin_return_address(0))) {
        return systemCalloc(count, size);
    }
    return isRefused() ? nullptr : keep(systemCalloc(count, size));
}
void free(void *block) noexcept {
    release(block);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

void *operator new(std::size_t size) {
    return allocateOrThrow(size, __builtin_return_address(0));
}
void *operator new[](std::size_t size) {
    return allocateOrThrow(size, __builtin_return_address(0));
}
void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return allocate(size == 0 ? 1 : size, __builtin_return_address(0));
}
void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return allocate(size == 0 ? 1 : size, __builtin_return_address(0));
}
#include "ReplacedDelete.h" // behind release()

namespace test {

RefusedAllocation::RefusedAllocation(std::uint32_t howManyAllowed, bool everyLaterOne) {
    allowed = howManyAllowed;
    andAllLater = everyLaterOne;
    ::refused = 0;
    isArmed = true;
}

RefusedAllocation::~RefusedAllocation() {
    isArmed = false;
}

std::uint32_t RefusedAllocation::refused() const {
    return ::refused;
}

std::int64_t blocksOfLibrary() {
    return noOfBlocks;
}

} // namespace test
