/// @file
/// Takes the place of SQLite's calls in a test program: each is forwarded, or fails as a test says.
///
/// Linking SqliteCalls.cpp into a program is enough: its definitions come before the shared library's. What SQLite
/// calls itself always works.
#pragma once

#include <cstddef>
#include <string>

namespace test {

/// While it lives, so many of the store's calls succeed; the next one fails with an SQLite code, or every later one.
class FailingCall {
public:
    FailingCall(std::size_t howManySucceed, int sqliteCode, bool everyLaterOne = false);
    ~FailingCall();
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;

    std::size_t failures() const;
    /// The name of the first call that failed.
    std::string name() const;
};

} // namespace test
