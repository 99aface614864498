/// @file
/// Takes the place of the system's calls in a test program, for everything that it consists of.
///
/// Linking it into a program is enough: its definitions come before every shared library's. A call is forwarded
/// unless it is the one that a test told to fail.
#pragma once

#include <cstdint>
#include <vector>

namespace test {

/// Who makes a call in the scenario: the host's thread or the workers, with variables in memory; what lies below the
/// host's thread, with one of the providers.
enum Maker : unsigned { nobody = 0, host = 1, worker = 2, framework = 3, sqlite = 4, file = 8, provider = 12 };

/// One of the calls, under whatever symbol a target has for it.
struct FailingCall {
    const char *name;
    std::vector<int> errors; ///< Those of its manual page that can befall the library; 0 where it only finds nobody.
    unsigned possibleMakers; ///< Whose calls of it are looked at.
    unsigned makers;         ///< Those of them who make it.
    /// Why nobody, or not everybody who could, makes it.
    const char *reason = nullptr;
    /// Also made for the standard library's mutexes, which have no way to fail: it fails only in the steps that say
    /// what they answer then.
    bool failsWhereDescribed = false;
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

    /// The calls since fail. @return how many of one kind were made.
    static std::uint64_t counted(std::size_t call, Thread thread);
    static std::uint64_t failures();
};

} // namespace test
