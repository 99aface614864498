/// @file
/// What both drivers share: how far they are, said by a run that crashes or hangs and can say nothing else any more,
/// how much they try, and what they forgive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace test {

class Progress {
public:
    /// A run that is silent for longer than this hangs.
    static constexpr unsigned patience = 100;

    Progress();
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    static void failing(const char *what, std::uint64_t number);
    static void at(const char *step);
};

/// From one try to the next of a number of them, so that no more than a short form are made. ZELAF_EVERY_FAILURE tells
/// another number, or "all".
std::uint64_t strideOf(std::uint64_t tries, std::uint64_t shortForm);

/// So many tries may keep blocks once: what is lost once in each path would be lost in more of them.
constexpr unsigned mostMadeForGood = 2;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool isSanitized = true; // its own count finds what is lost, and its threads take and call what they like
#else
constexpr bool isSanitized = false;
#endif

/// Of this process.
std::size_t openDescriptors();

/// A folder of its own, removed with everything in it; in memory where the machine has one for that.
class StoreFolder {
public:
    StoreFolder();
    ~StoreFolder();
    StoreFolder(const StoreFolder &) = delete;
    StoreFolder &operator=(const StoreFolder &) = delete;
    const std::string &name() const { return m_name; }

private:
    std::string m_name;
};

} // namespace test
