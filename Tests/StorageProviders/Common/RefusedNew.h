/// @file
/// Takes the place of operator new in a test program and refuses a chosen allocation.
#pragma once

namespace test {

/// While it lives, this thread's allocations succeed as often as allowed; the next one fails, the later ones succeed.
class RefusedNew {
public:
    explicit RefusedNew(int howManyAllowed);
    ~RefusedNew();
    RefusedNew(const RefusedNew &) = delete;
    RefusedNew &operator=(const RefusedNew &) = delete;

    /// Whether one was refused.
    bool wasRefused() const;
};

} // namespace test
