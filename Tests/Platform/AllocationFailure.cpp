#include "AllocationFailure.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr std::uint32_t unlimited = ~0u;
std::atomic<std::uint32_t> allowedNow{unlimited};
std::atomic<std::uint32_t> failed{0};

[[maybe_unused]] void *allocate(std::size_t size) noexcept {
    auto left = allowedNow.load();
    while (left != unlimited) {
        if (left == 0) {
            ++failed;
            return nullptr;
        }
        if (allowedNow.compare_exchange_weak(left, left - 1)) {
            break;
        }
    }
    return std::malloc(size == 0 ? 1 : size);
}

[[maybe_unused]] void *allocateOrThrow(std::size_t size) {
    if (auto *const block = allocate(size)) {
        return block;
    }
    throw std::bad_alloc{};
}

} // namespace

#ifndef ZELAF_OPERATOR_NEW_IS_FIXED
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
#endif

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
