#include "HeapCount.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>

// The C library's own entries behind malloc and its relatives; no header declares them.
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void *block);
}

namespace {

// Plain counters: the first calls come from the dynamic linker, before any constructor has run.
std::atomic<std::size_t> blocks;
std::atomic<std::size_t> bytes;

void *counted(void *block) noexcept {
    if (block != nullptr) {
        blocks.fetch_add(1, std::memory_order_relaxed);
        bytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
    }
    return block;
}

void uncount(void *block) noexcept {
    if (block != nullptr) {
        blocks.fetch_sub(1, std::memory_order_relaxed);
        bytes.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
    }
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are __nmemb and the like
extern "C" {

void *malloc(std::size_t size) noexcept {
    return counted(__libc_malloc(size));
}

void *calloc(std::size_t count, std::size_t size) noexcept {
    return counted(__libc_calloc(count, size));
}

void *realloc(void *block, std::size_t size) noexcept {
    if (block == nullptr) {
        return malloc(size);
    }
    const std::size_t before = malloc_usable_size(block);
    void *moved = __libc_realloc(block, size);
    if (moved != nullptr) {
        bytes.fetch_add(malloc_usable_size(moved) - before, std::memory_order_relaxed);
    } else if (size == 0) {
        blocks.fetch_sub(1, std::memory_order_relaxed);
        bytes.fetch_sub(before, std::memory_order_relaxed);
    }
    return moved;
}

void *memalign(std::size_t alignment, std::size_t size) noexcept {
    return counted(__libc_memalign(alignment, size));
}

void *aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return memalign(alignment, size);
}

int posix_memalign(void **block, std::size_t alignment, std::size_t size) noexcept {
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

void free(void *block) noexcept {
    uncount(block);
    __libc_free(block);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

HeapCount heapInUse() noexcept {
    return {blocks.load(std::memory_order_relaxed), bytes.load(std::memory_order_relaxed)};
}
