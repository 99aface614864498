/// @file
/// The platform's trace calls for a program that must not allocate while it traces: records go into one fixed
/// buffer. Linking it is enough; its definitions come before the platform library's.
#pragma once

#include <string>

namespace test {

class QuietTraces {
public:
    /// Forgets what was traced and enables every level.
    static void reset();

    /// Every record since reset, one a line: "function: message      code: 0x..." and a VoxTrace message as
    /// "function: text".
    static std::string text();

    /// Records begun and not ended.
    static int open();

    /// Whether something did not fit the buffer.
    static bool overflowed();
};

} // namespace test
