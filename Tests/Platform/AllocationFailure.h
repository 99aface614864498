/// @file
/// Lets the allocations of the whole test program fail, the libraries' included.
#pragma once

#include <cstdint>

// Clang's ThreadSanitizer brings an `operator new` that a program can not replace.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZELAF_OPERATOR_NEW_IS_FIXED
#endif
#endif

namespace test {

#ifdef ZELAF_OPERATOR_NEW_IS_FIXED
constexpr bool allocationsCanFail = false;
#else
constexpr bool allocationsCanFail = true;
#endif

/// While it lives, `operator new` succeeds `allowed` times and fails from then on.
class AllocationFailure {
public:
    explicit AllocationFailure(std::uint32_t allowed = 0);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure &) = delete;
    AllocationFailure &operator=(const AllocationFailure &) = delete;

    /// How many allocations failed so far: a test of a failure that never happened shows nothing.
    std::uint32_t failures() const;
};

} // namespace test
