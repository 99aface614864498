// SpeedBenchmark: what each service costs, beside the limit and beside what a user would take instead.
// Documentation/Speed.md describes the work and keeps the figures; ./run bench runs it.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <thread>

#include "Comparison.h"
#include "Cores.h"
#include "Results.h"
#include "Runner.h"
#include "VT_trace.h"

namespace {

struct Options {
    speed::Settings settings;
    std::string json;
    bool isSmokeRun = false;
    bool listsOnly = false;
};

/// Google Benchmark's own options stay as they are: its turns are ours.
void initializeBenchmark(char *program) {
    char *arguments[] = {program, nullptr};
    int count = 1;
    benchmark::Initialize(&count, arguments);
}

void addRows() {
    speed::addEventRows();
    speed::addEventThreadRows();
    speed::addEventLookUpRows();
    speed::addModuleRows();
    speed::addTraceRows();
    speed::addStorageRows();
    speed::addProviderRows();
    // Last: they change how the process's allocator works.
    speed::addStartRows();
}

int run(Options options) {
    // Errors are told, and nothing else is: a service that ends traces warnings, and what is measured is silent.
    if (std::getenv("VOXTRACE_LEVEL") == nullptr) {
        AF_trace.level = 1;
    }
    // Where there never was a second thread, the C library saves itself the locks of some calls, and the limit would
    // have that to itself: the library's process always has one.
    std::thread([] {}).join();
    addRows();
    if (options.isSmokeRun) {
        options.settings.rounds = 1;
        options.settings.secondsPerTurn = 0.002;
    }
    std::vector<const speed::Row *> wanted;
    for (const speed::Row &row : speed::rows()) {
        if (speed::isWanted(row.work, options.settings)) {
            wanted.push_back(&row);
        }
    }
    if (wanted.empty()) {
        std::cerr << "SpeedBenchmark: no row has such a name; --list tells those that there are\n";
        return EXIT_FAILURE;
    }
    if (options.listsOnly) {
        for (const speed::Row *row : wanted) {
            std::cout << row->work.group << ": " << row->work.name << '\t' << row->work.size << '\n';
        }
        return EXIT_SUCCESS;
    }
    // What is measured on one processor finds itself there already, and so do the threads that it makes.
    speed::runOn(speed::firstCore());
    const double load = speed::loadOfMachine();
    const auto begin = std::chrono::steady_clock::now();
    const auto secondsSince = [begin] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    std::vector<speed::RowResult> results;
    for (const speed::Row *row : wanted) {
        results.push_back(speed::measure(*row, options.settings));
        std::cout << '[' << results.size() << '/' << wanted.size() << ", " << static_cast<int>(secondsSince())
                  << " s] ";
        speed::printRow(std::cout, results.back());
    }
    if (!options.json.empty()) {
        std::ofstream file(options.json);
        speed::writeJson(file, results, options.settings, {load, secondsSince()});
        if (!file.flush()) {
            std::cerr << "SpeedBenchmark: " << options.json << " can not be written\n";
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

int parseAndRun(int argc, char **argv) {
    Options options;
    CLI::App application("What each service costs, beside the limit and what a user would take instead.");
    application.add_option("FILTER", options.settings.filters, "rows whose 'group: name' contains one of these");
    application.add_option("--rounds", options.settings.rounds, "turns of each column, 15 unless said")
        ->check(CLI::Range(1, 1000));
    application.add_option("--seconds", options.settings.secondsPerTurn, "length of a turn, 0.01 unless said")
        ->check(CLI::Range(1e-6, 100.0));
    application.add_option("--iterations", options.settings.iterations, "of every turn, instead of finding them out");
    application.add_option("--column", options.settings.column, "the one column to run");
    application.add_option("--json", options.json, "where the figures go");
    application.add_flag("--smoke", options.isSmokeRun, "one short round: whether everything runs, not what it costs");
    application.add_flag("--list", options.listsOnly, "name the rows, run none");
    CLI11_PARSE(application, argc, argv);
    initializeBenchmark(argv[0]);
    return run(options);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return parseAndRun(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "SpeedBenchmark: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
