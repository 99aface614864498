/// @file
/// Takes the place of the system's open in a test program, SQLite's calls included: each is forwarded, or fails as a
/// test says. Linking OpenCalls.cpp into a program is enough.
#pragma once

#include <climits>
#include <string>

namespace test {

/// While it lives, files whose names end so can not be opened.
class FailingOpen {
public:
    enum class Which {
        all,
        writing, ///< For writing.
        making   ///< Where they are made unless they are there.
    };

    FailingOpen(const std::string &endOfName, Which which, int error, unsigned times = UINT_MAX);
    ~FailingOpen();
    FailingOpen(const FailingOpen &) = delete;
    FailingOpen &operator=(const FailingOpen &) = delete;

    unsigned failures() const;
};

} // namespace test
