#include "RefusedNew.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool isArmed;
thread_local int allowed;
thread_local bool isRefused;

void *allocate(std::size_t size) noexcept {
    if (isArmed && !isRefused && allowed-- == 0) {
        isRefused = true;
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
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
void operator delete(void *block) noexcept {
    std::free(block);
}
void operator delete[](void *block) noexcept {
    std::free(block);
}
void operator delete(void *block, std::size_t /*size*/) noexcept {
    std::free(block);
}
void operator delete[](void *block, std::size_t /*size*/) noexcept {
    std::free(block);
}
void operator delete(void *block, const std::nothrow_t & /*tag*/) noexcept {
    std::free(block);
}
void operator delete[](void *block, const std::nothrow_t & /*tag*/) noexcept {
    std::free(block);
}

namespace test {

RefusedNew::RefusedNew(int howManyAllowed) {
    allowed = howManyAllowed;
    isRefused = false;
    isArmed = true;
}

RefusedNew::~RefusedNew() {
    isArmed = false;
}

bool RefusedNew::wasRefused() const {
    return isRefused;
}

} // namespace test
