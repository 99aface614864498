#include "ProviderUnderTest.h"

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace test {

namespace {

std::string placeOfLost(const std::string &folder) {
    return folder + "-lost";
}

void limitFileSize(rlim_t bytes) {
    struct rlimit limit {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(bytes, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}

} // namespace

void ProviderUnderTest::makeUnreadable(const std::string &folder) {
    fs::rename(folder, placeOfLost(folder));
    std::ofstream(folder) << "a file stands where the folder was";
}

void ProviderUnderTest::makeReadable(const std::string &folder) {
    fs::remove(folder);
    fs::rename(placeOfLost(folder), folder);
}

void ProviderUnderTest::refuseWrites() {
    std::signal(SIGXFSZ, SIG_IGN); // the write fails instead
    limitFileSize(0);
}

void ProviderUnderTest::allowWrites() {
    limitFileSize(RLIM_INFINITY);
}

} // namespace test
