/// @file
/// Takes the place of the system's calls in a test program, for everything that it consists of.
///
/// Linking it into a program is enough: its definitions come before every shared library's. A call is forwarded
/// unless it is the one that a test told to fail.
#pragma once

#include <cstdint>
#include <vector>

namespace test {

/// One of the calls, under whatever symbol a target has for it.
struct FailingCall {
    const char *name;
    std::vector<int> errors; ///< Those of its manual page that can befall the library; 0 where it only finds nobody.
    /// Also made for the standard library's mutexes, which have no way to fail: it fails only in the steps that say
    /// what they answer then.
    bool failsWhereDescribed = false;
    /// Of the storage providers; the others are the framework's.
    bool isOfFiles = false;
};

/// The list; a call is known by its place in it.
const std::vector<FailingCall> &failingCalls();

class FailingCalls {
public:
    enum class Thread { test, other };

    /// From here on calls are numbered from 0; the one with the number fails.
    static void fail(std::size_t call, Thread thread, std::uint64_t number, int error);
    static void failNone();

    /// The calls of the test's own thread count, and fail, only while one of these lives.
    class Counted {
    public:
        Counted();
        ~Counted();
        Counted(const Counted &) = delete;
        Counted &operator=(const Counted &) = delete;
    };

    static std::uint64_t counted(std::size_t call, Thread thread);
    static std::uint64_t failures();
};

} // namespace test
