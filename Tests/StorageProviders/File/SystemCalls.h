/// @file
/// Takes the place of the system's calls on files of one folder: lets one fail, or notes what they did.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace test {

/// One change that a store made to its folder, in order.
struct Change {
    enum Kind { create, write, syncFile, rename, unlink, syncFolder };
    Kind kind;
    std::string file;
    std::string other; ///< A rename's new name; what was written.
    std::uint64_t offset;
};

class SystemCalls {
public:
    /// Calls on this folder's files are ours; its lock file is left out.
    static void watch(const std::string &folder);
    static void ignore();

    /// Forgets the changes noted.
    static void reset();
    static const std::vector<Change> &changes();

    /// The call with this number (counted from 0 since) fails with an error; -1: none.
    static void fail(int number, int error);
    /// Calls that could have failed since fail was asked for; each name in order.
    static const std::vector<std::string> &calls();
    /// A write of more than a byte takes only half of it, every second one is interrupted first.
    static void shortWrites(bool areShort);

    static std::uint64_t bytesWritten();
};

} // namespace test
