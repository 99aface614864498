/// @file
/// Takes the place of the system's calls on files of one folder: lets some fail, or notes what they did.
///
/// Linking it into a program is enough: its definitions come before the C library's, also for the provider's shared
/// object. Not for threads. Syncs of watched files are noted, not forwarded: a test must not wait for a disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

/// One change that was made to the folder, in order; its lock files are left out.
struct Change {
    enum Kind { create, write, syncFile, rename, link, unlink, syncFolder };
    Kind kind;
    std::string file;
    std::string other;    ///< The new name; what was written.
    std::uint64_t offset; ///< Of a write.
};

class SystemCalls {
public:
    /// Watches a folder while it lives: calls are counted from 0.
    explicit SystemCalls(const std::string &folder);
    ~SystemCalls();
    SystemCalls(const SystemCalls &) = delete;
    SystemCalls &operator=(const SystemCalls &) = delete;

    enum class Lasting { once, forEver };
    /// The call with this number fails, or it and all that follow.
    void fail(std::size_t number, int error, Lasting lasting);
    /// Calls of this name fail: "rename" of any file, "rename s" of that one.
    void failEach(const std::string &call, int error);
    /// Reads and writes take half of what they are given; each call that can be is interrupted first.
    void interrupt();
    /// Writes answer that they took no byte.
    void takeNothing();
    /// Reads find the file's end at once.
    void giveNothing();

    /// The calls since, as "rename", "open s.new".
    const std::vector<std::string> &calls() const;
    const std::vector<Change> &changes() const;
    std::uint64_t bytesWritten() const;
    /// How many calls were made to fail.
    std::size_t failures() const;
};

} // namespace test
