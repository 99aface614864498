#include "RefusedMemory.h"

#include <sqlite3.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

struct Refusal {
    bool isArmed = false;
    bool isForEver = false;
    std::uint32_t succeeding = 0;
    std::uint32_t refused = 0;

    bool now() {
        if (!isArmed) {
            return false;
        }
        if (succeeding > 0) {
            --succeeding;
            return false;
        }
        if (refused > 0 && !isForEver) {
            return false;
        }
        ++refused;
        return true;
    }
};

thread_local Refusal cxxRefusal;
thread_local Refusal sqliteRefusal;
std::atomic<std::int64_t> alive;

Refusal &refusalOf(test::Allocator allocator) {
    return allocator == test::Allocator::cxx ? cxxRefusal : sqliteRefusal;
}

void *allocate(std::size_t size) {
    void *block = cxxRefusal.now() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (block != nullptr) {
        ++alive;
    }
    return block;
}

void *allocateOrThrow(std::size_t size) {
    if (void *block = allocate(size)) {
        return block;
    }
    throw std::bad_alloc{};
}

void release(void *block) {
    if (block != nullptr) {
        --alive;
    }
    std::free(block);
}

sqlite3_mem_methods usual;

void *sqliteMalloc(int size) {
    return sqliteRefusal.now() ? nullptr : usual.xMalloc(size);
}

void *sqliteRealloc(void *block, int size) {
    return sqliteRefusal.now() ? nullptr : usual.xRealloc(block, size);
}

} // namespace

void *operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void *operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return allocate(size);
}
void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return allocate(size);
}
void operator delete(void *block) noexcept {
    release(block);
}
void operator delete[](void *block) noexcept {
    release(block);
}
void operator delete(void *block, std::size_t /*size*/) noexcept {
    release(block);
}
void operator delete[](void *block, std::size_t /*size*/) noexcept {
    release(block);
}
void operator delete(void *block, const std::nothrow_t & /*tag*/) noexcept {
    release(block);
}
void operator delete[](void *block, const std::nothrow_t & /*tag*/) noexcept {
    release(block);
}

namespace test {

RefusedMemory::RefusedMemory(Allocator allocator, std::uint32_t howManySucceed, bool everyLaterOne) {
    refusalOf(allocator) = {true, everyLaterOne, howManySucceed, 0};
}

RefusedMemory::~RefusedMemory() {
    cxxRefusal.isArmed = false;
    sqliteRefusal.isArmed = false;
}

std::uint32_t RefusedMemory::refused() const {
    return cxxRefusal.isArmed ? cxxRefusal.refused : sqliteRefusal.refused;
}

std::int64_t blocksAlive() {
    return alive;
}

void replaceSqliteAllocator() {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &usual);
    static sqlite3_mem_methods methods = usual;
    methods.xMalloc = sqliteMalloc;
    methods.xRealloc = sqliteRealloc;
    sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
}

} // namespace test
