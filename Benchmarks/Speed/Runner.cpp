#include "Runner.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace {

using Run = benchmark::BenchmarkReporter::Run;

/// Takes the one run that it is told of, and prints nothing.
class RunTaker : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context & /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run> &report) override { runs.insert(runs.end(), report.begin(), report.end()); }

    std::vector<Run> runs;
};

std::string nameOf(const speed::Row &row, const speed::Column &column) {
    return row.work.group + ": " + row.work.name + ": " + column.who;
}

/// One turn of a column. The library's own repetitions would not alternate with those of another column.
Run takeTurn(const speed::Row &row, const speed::Column &column, std::uint64_t iterations) {
    const std::string name = nameOf(row, column);
    benchmark::ClearRegisteredBenchmarks();
    auto *turn = benchmark::RegisterBenchmark(name.c_str(), column.body);
    turn->Iterations(static_cast<benchmark::IterationCount>(iterations));
    if (column.clock == speed::Clock::manual) {
        turn->UseManualTime();
    } else {
        turn->UseRealTime();
    }
    RunTaker taker;
    benchmark::RunSpecifiedBenchmarks(&taker, ".");
    if (taker.runs.size() != 1) {
        throw std::runtime_error(name + ": ran " + std::to_string(taker.runs.size()) + " times instead of once");
    }
    if (taker.runs.front().error_occurred) {
        throw std::runtime_error(name + ": " + taker.runs.front().error_message);
    }
    return taker.runs.front();
}

/// Seconds of the fastest of a few turns: what else runs on the machine makes a turn longer, never shorter.
double fastestOfTurns(const speed::Row &row, const speed::Column &column, std::uint64_t iterations, double already) {
    constexpr int furtherTurns = 2;
    double fastest = already;
    for (int i = 0; i < furtherTurns; ++i) {
        fastest = std::min(fastest, takeTurn(row, column, iterations).real_accumulated_time);
    }
    return fastest;
}

/// How many iterations fill a turn. What is found here is kept for all rounds.
/// @param isLong  set where a single one takes far longer than a turn.
std::uint64_t findIterations(const speed::Row &row, const speed::Column &column, double secondsPerTurn, bool &isLong) {
    constexpr double far = 10;
    constexpr std::uint64_t most = 100'000'000;
    std::uint64_t iterations = 1;
    for (;;) {
        double seconds = std::max(takeTurn(row, column, iterations).real_accumulated_time, 1e-9);
        // One iteration that fills several turns stays alone, whatever it takes exactly.
        if (iterations >= most || (iterations == 1 && seconds >= 2 * secondsPerTurn)) {
            isLong = isLong || seconds >= far * secondsPerTurn;
            return iterations;
        }
        if (seconds >= secondsPerTurn / 2) {
            seconds = fastestOfTurns(row, column, iterations, seconds);
        }
        const double wanted = static_cast<double>(iterations) * secondsPerTurn / seconds;
        if (seconds >= secondsPerTurn / 2) {
            return static_cast<std::uint64_t>(std::clamp(std::round(wanted), 1.0, static_cast<double>(most)));
        }
        // The first iterations pay for caches and page faults: what they tell of the rest is not believed at once.
        const double growth = std::clamp(secondsPerTurn / seconds, 2.0, 20.0);
        iterations = static_cast<std::uint64_t>(std::ceil(static_cast<double>(iterations) * growth));
    }
}

/// @param part  0.5 for the median.
double quantile(std::vector<double> figures, double part) {
    std::sort(figures.begin(), figures.end());
    const double place = part * static_cast<double>(figures.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, figures.size() - 1);
    return figures[below] + (place - static_cast<double>(below)) * (figures[above] - figures[below]);
}

void summarise(speed::RowResult &row) {
    const auto limit = std::find_if(row.columns.begin(), row.columns.end(), [](const speed::ColumnResult &column) {
        return column.role == speed::Role::limit;
    });
    for (speed::ColumnResult &column : row.columns) {
        column.median = quantile(column.nanoseconds, 0.5);
        column.minimum = quantile(column.nanoseconds, 0);
        if (limit == row.columns.end()) {
            continue;
        }
        std::vector<double> ratios;
        for (std::size_t round = 0; round < column.nanoseconds.size(); ++round) {
            ratios.push_back(column.nanoseconds[round] / limit->nanoseconds[round]);
        }
        column.ratio = quantile(ratios, 0.5);
        column.lowRatio = quantile(ratios, 0.25);
        column.highRatio = quantile(ratios, 0.75);
    }
}

} // namespace

bool speed::isWanted(const Work &work, const Settings &settings) {
    const std::string name = work.group + ": " + work.name;
    return settings.filters.empty() ||
           std::any_of(settings.filters.begin(), settings.filters.end(),
                       [&](const std::string &filter) { return name.find(filter) != std::string::npos; });
}

speed::RowResult speed::measure(const Row &row, const Settings &settings) {
    RowResult result{row.work, {}};
    std::vector<const Column *> columns;
    for (const Column &column : row.columns) {
        if (settings.column.empty() || column.who == settings.column) {
            columns.push_back(&column);
        }
    }
    bool isLong = false;
    for (const Column *column : columns) {
        const std::uint64_t iterations = settings.iterations != 0
                                             ? settings.iterations
                                             : findIterations(row, *column, settings.secondsPerTurn, isLong);
        result.columns.push_back({column->role, column->who, iterations, {}, {}, 0, 0, 0, 0, 0});
    }
    const unsigned rounds = isLong ? std::min(settings.rounds, roundsOfLongWork) : settings.rounds;
    for (ColumnResult &column : result.columns) {
        column.nanoseconds.resize(rounds);
    }
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t turn = 0; turn < columns.size(); ++turn) {
            // Whoever follows a column finds the caches and the clock of the processor as that one left them.
            const std::size_t whose = (turn + round) % columns.size();
            ColumnResult &column = result.columns[whose];
            const Run run = takeTurn(row, *columns[whose], column.iterations);
            column.nanoseconds[round] = run.real_accumulated_time * 1e9 / static_cast<double>(run.iterations);
            for (const auto &[name, counter] : run.counters) {
                column.counters[name] = counter.value;
            }
        }
    }
    summarise(result);
    return result;
}
