#include "Progress.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <stdexcept>

namespace test {
namespace {

std::array<char, 200> now{};
std::array<char, 200> step{};

extern "C" void tellAndEnd(int signal) {
    const auto tell = [](const char *text) { static_cast<void>(!write(STDERR_FILENO, text, std::strlen(text))); };
    tell(signal == SIGALRM ? "hangs at " : "ends at ");
    tell(step.data());
    tell(", failing ");
    tell(now.data());
    tell("\n");
    _exit(99);
}

#if defined(__SANITIZE_ADDRESS__)
constexpr std::array<int, 2> watched{SIGABRT, SIGALRM};
#else
constexpr std::array<int, 4> watched{SIGABRT, SIGALRM, SIGSEGV, SIGBUS};
#endif

} // namespace

Progress::Progress() {
    for (const int each : watched) {
        signal(each, tellAndEnd);
    }
}

Progress::~Progress() {
    alarm(0);
    for (const int each : watched) {
        signal(each, SIG_DFL);
    }
}

void Progress::failing(const char *what, std::uint64_t number) {
    std::snprintf(now.data(), now.size(), "%s %llu", what, static_cast<unsigned long long>(number));
    alarm(patience);
}

void Progress::at(const char *theStep) {
    std::snprintf(step.data(), step.size(), "%s", theStep);
}

std::uint64_t strideOf(std::uint64_t tries, std::uint64_t shortForm) {
    const char *const form = std::getenv("ZELAF_EVERY_FAILURE");
    if (form != nullptr) {
        shortForm = std::string(form) == "all" ? tries : std::strtoull(form, nullptr, 10);
    }
    if (shortForm == 0 || tries <= shortForm) {
        return 1;
    }
    // Odd, so that it does not keep in step with what comes in pairs.
    return (tries / shortForm + 1) | 1;
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

StoreFolder::StoreFolder() {
    const std::string root = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    m_name = root + "/zelaf-failures-XXXXXX";
    if (mkdtemp(m_name.data()) == nullptr) {
        throw std::runtime_error(m_name + " can not be made");
    }
}

StoreFolder::~StoreFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_name, ignored);
}

} // namespace test
