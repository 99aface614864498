#include "Results.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>

using Json = nlohmann::ordered_json;

namespace {

const char *textOf(speed::Role role) {
    switch (role) {
    case speed::Role::limit:
        return "limit";
    case speed::Role::library:
        return "library";
    case speed::Role::peer:
        break;
    }
    return "peer";
}

/// The value of the first line of /proc/cpuinfo or /proc/meminfo with that key; empty when there is none.
std::string systemValue(const char *file, const std::string &key) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos && line.compare(0, key.size(), key) == 0) {
            const std::size_t begin = line.find_first_not_of(" \t", colon + 1);
            return begin == std::string::npos ? "" : line.substr(begin);
        }
    }
    return "";
}

std::string firstLine(const char *file) {
    std::ifstream lines(file);
    std::string line;
    std::getline(lines, line);
    return line;
}

Json describeMachine(double load) {
    utsname system{};
    uname(&system);
    const bool isVirtual = systemValue("/proc/cpuinfo", "flags").find("hypervisor") != std::string::npos;
    return {{"processor", systemValue("/proc/cpuinfo", "model name")},
            {"processors", sysconf(_SC_NPROCESSORS_ONLN)},
            {"virtual", isVirtual},
            {"memory", systemValue("/proc/meminfo", "MemTotal")},
            {"kernel", std::string(system.sysname) + " " + system.release + " " + system.machine},
            {"clock", firstLine("/sys/devices/system/clocksource/clocksource0/current_clocksource")},
            {"load", load}};
}

/// Whether the page may take the figures.
bool isComplete(const speed::Settings &settings) {
    return settings.filters.empty() && settings.column.empty() && settings.iterations == 0 &&
           settings.rounds >= speed::roundsOfLongWork;
}

Json describeColumn(const speed::ColumnResult &column) {
    Json result{{"role", textOf(column.role)},      {"who", column.who},         {"iterations", column.iterations},
                {"median", column.median},          {"minimum", column.minimum}, {"nanoseconds", column.nanoseconds},
                {"counters", Json(column.counters)}};
    if (column.ratio > 0) {
        result["ratio"] = column.ratio;
        result["ratios"] = {column.lowRatio, column.highRatio};
    }
    return result;
}

Json describeRow(const speed::RowResult &row) {
    Json columns = Json::array();
    for (const speed::ColumnResult &column : row.columns) {
        columns.push_back(describeColumn(column));
    }
    const speed::Work &work = row.work;
    return {{"group", work.group},
            {"name", work.name},
            {"size", work.size},
            {"sizeUnit", work.sizeUnit},
            {"aim", work.aim},
            {"parts", work.parts},
            {"partUnit", work.partUnit},
            {"aimNanoseconds", work.aimNanoseconds},
            {"aimsAtNoFlush", work.aimsAtNoFlush},
            {"columns", std::move(columns)}};
}

} // namespace

void speed::printRow(std::ostream &out, const RowResult &row) {
    out << row.work.group << ": " << row.work.name;
    if (row.work.size != 0) {
        out << ", " << row.work.size << ' ' << row.work.sizeUnit;
    }
    out << '\n' << std::fixed;
    for (const ColumnResult &column : row.columns) {
        const auto parts = static_cast<double>(row.work.parts);
        out << "    " << std::left << std::setw(8) << textOf(column.role) << std::setw(32) << column.who << std::right
            << std::setprecision(1) << std::setw(14) << column.median / parts << " ns, at least " << std::setw(12)
            << column.minimum / parts << " ns";
        if (column.ratio > 0) {
            out << "  R " << std::setprecision(3) << column.ratio;
        }
        for (const auto &[name, value] : column.counters) {
            out << "  " << name << ' ' << std::setprecision(std::abs(value) < 100 ? 2 : 0) << value;
        }
        out << '\n';
    }
    out << std::flush;
}

double speed::loadOfMachine() {
    double load = 0;
    getloadavg(&load, 1);
    return load;
}

void speed::writeJson(std::ostream &out, const std::vector<RowResult> &rows, const Settings &settings,
                      const Circumstances &circumstances) {
    Json document{{"machine", describeMachine(circumstances.load)},
                  {"build", {{"compiler", SPEED_COMPILER}, {"flags", SPEED_FLAGS}, {"version", SPEED_VERSION}}},
                  {"parameters",
                   {{"rounds", settings.rounds},
                    {"roundsOfLongWork", std::min(settings.rounds, roundsOfLongWork)},
                    {"secondsPerTurn", settings.secondsPerTurn},
                    {"complete", isComplete(settings)},
                    {"seconds", circumstances.seconds}}},
                  {"rows", Json::array()}};
    for (const RowResult &row : rows) {
        document["rows"].push_back(describeRow(row));
    }
    out << document.dump(1) << '\n';
}
