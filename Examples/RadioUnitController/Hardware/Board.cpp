#include "Hardware/Board.h"

#include <fstream>
#include <iomanip>
#include <limits>
#include <sstream>

namespace radio {
namespace {

constexpr uint64_t kibibytesOfMebibyte = 1024;

/// A row of /proc/meminfo, in MiB.
bool readMemory(const std::string &row, uint64_t &mebibytes) {
    std::ifstream file("/proc/meminfo");
    std::string name;
    uint64_t kibibytes = 0;
    while (file >> name >> kibibytes) {
        if (name == row + ":") {
            mebibytes = kibibytes / kibibytesOfMebibyte;
            return true;
        }
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return false;
}

} // namespace

std::string readBoard(BoardSample &sample) {
    BoardSample candidate{};
    if (!(std::ifstream("/proc/loadavg") >> candidate.load)) {
        return "/proc/loadavg gives no load; is /proc mounted?";
    }
    if (!readMemory("MemTotal", candidate.memoryTotal) || !readMemory("MemAvailable", candidate.memoryAvailable)) {
        return "/proc/meminfo gives no MemTotal or MemAvailable; is /proc mounted?";
    }
    double uptime = 0.0;
    if (!(std::ifstream("/proc/uptime") >> uptime)) {
        return "/proc/uptime gives no time; is /proc mounted?";
    }
    candidate.uptime = static_cast<uint64_t>(uptime);
    sample = candidate;
    return {};
}

std::string toString(const BoardSample &sample) {
    std::ostringstream text;
    text << "load " << std::fixed << std::setprecision(2) << sample.load << ", " << sample.memoryAvailable << " of "
         << sample.memoryTotal << " MiB free, up " << sample.uptime << " s";
    return text.str();
}

} // namespace radio
