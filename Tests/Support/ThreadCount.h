/// @file
/// How many threads a process has.
#pragma once

#include <cstddef>
#include <fstream>
#include <string>

namespace test {

/// The kernel's own count. A list of the threads ends early where the one that it stands at has just left: those behind
/// it would not be seen.
inline std::size_t threadCount() {
    std::ifstream status("/proc/self/status");
    std::size_t count = 0;
    for (std::string word; status >> word;) {
        if (word == "Threads:") {
            status >> count;
            break;
        }
    }
    return count;
}

} // namespace test
