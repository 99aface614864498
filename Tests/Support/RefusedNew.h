/// @file
/// Takes the place of operator new in a test program, refuses chosen allocations and counts blocks.
#pragma once

#include <cstdint>

namespace test {

/// While it lives, this thread's allocations succeed as often as allowed; the next one fails.
class RefusedNew {
public:
    enum class Later { succeed, failToo };

    explicit RefusedNew(int howManyAllowed, Later later = Later::succeed);
    ~RefusedNew();
    RefusedNew(const RefusedNew &) = delete;
    RefusedNew &operator=(const RefusedNew &) = delete;

    /// Whether one was refused.
    bool wasRefused() const;
};

/// Blocks of operator new that live, of any thread.
std::int64_t blocksAlive();

} // namespace test
