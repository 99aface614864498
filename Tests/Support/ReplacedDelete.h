/// @file
/// Every operator delete of a program whose allocations a test counts: each hands its block to release(), which the one
/// source that includes this has defined before.
#pragma once

#include <cstddef>
#include <new>

// NOLINTBEGIN(misc-definitions-in-headers): a program has one such source
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
// NOLINTEND(misc-definitions-in-headers)
