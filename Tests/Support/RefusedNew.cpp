#include "RefusedNew.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local bool isArmed;
thread_local int allowed;
thread_local bool isLasting;
thread_local bool isRefused;
std::atomic<std::int64_t> alive;

void *allocate(std::size_t size) noexcept {
    if (isArmed && (isRefused ? isLasting : allowed-- == 0)) {
        isRefused = true;
        return nullptr;
    }
    void *block = std::malloc(size == 0 ? 1 : size);
    alive += block != nullptr ? 1 : 0;
    return block;
}

void release(void *block) noexcept {
    alive -= block != nullptr ? 1 : 0;
    std::free(block);
}

void *allocateOrThrow(std::size_t size) {
    if (void *block = allocate(size)) {
        return block;
    }
    throw std::bad_alloc();
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
#include "ReplacedDelete.h" // behind release()

namespace test {

RefusedNew::RefusedNew(int howManyAllowed, Later later) {
    allowed = howManyAllowed;
    isLasting = later == Later::failToo;
    isRefused = false;
    isArmed = true;
}

RefusedNew::~RefusedNew() {
    isArmed = false;
}

bool RefusedNew::wasRefused() const {
    return isRefused;
}

std::int64_t blocksAlive() {
    return alive;
}

} // namespace test
