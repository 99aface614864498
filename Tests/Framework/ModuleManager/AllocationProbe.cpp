#include "AllocationProbe.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> allocated{0};
std::atomic<unsigned> asked{0};
std::atomic<unsigned> refused{0};
std::atomic<unsigned> firstRefused{test::AllocationProbe::none};
std::atomic<bool> refuseAllBehind{false};

void *allocate(std::size_t size) noexcept {
    const unsigned number = asked++;
    if (number == firstRefused || (refuseAllBehind && number > firstRefused)) {
        ++refused;
        return nullptr;
    }
    void *block = std::malloc(size != 0 ? size : 1);
    allocated += block != nullptr ? 1 : 0;
    return block;
}

void *allocateOrThrow(std::size_t size) {
    if (void *block = allocate(size)) {
        return block;
    }
    throw std::bad_alloc();
}

void release(void *block) noexcept {
    allocated -= block != nullptr ? 1 : 0;
    std::free(block);
}

} // namespace

void *operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void *operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return allocate(size);
}
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
    return allocate(size);
}
void operator delete(void *block) noexcept {
    release(block);
}
void operator delete[](void *block) noexcept {
    release(block);
}
void operator delete(void *block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void *block, std::size_t) noexcept {
    release(block);
}
void operator delete(void *block, const std::nothrow_t &) noexcept {
    release(block);
}
void operator delete[](void *block, const std::nothrow_t &) noexcept {
    release(block);
}

namespace test {

AllocationProbe::AllocationProbe(unsigned number, bool allBehind) {
    asked = 0;
    refused = 0;
    refuseAllBehind = allBehind;
    firstRefused = number;
}

AllocationProbe::~AllocationProbe() {
    firstRefused = none;
    refuseAllBehind = false;
}

unsigned AllocationProbe::allocations() {
    return asked;
}

unsigned AllocationProbe::refusals() {
    return refused;
}

long AllocationProbe::blocks() {
    return allocated;
}

} // namespace test
