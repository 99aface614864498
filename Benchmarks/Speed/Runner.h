/// @file
/// Lets the columns of each row take turns and keeps what each turn took.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Comparison.h"

namespace speed {

/// Rounds of a row one of whose columns takes far longer than a turn for a single iteration.
constexpr unsigned roundsOfLongWork = 9;

struct Settings {
    unsigned rounds = 15;
    double secondsPerTurn = 0.01;
    std::uint64_t iterations = 0;     ///< Of every turn; 0 finds them out.
    std::vector<std::string> filters; ///< A row or column runs if one of them is part of its name; none runs all.
    std::string column;               ///< The only column that runs; empty for all.
};

struct ColumnResult {
    Role role;
    std::string who;
    std::uint64_t iterations;
    std::vector<double> nanoseconds;        ///< Of one iteration, a figure a round.
    std::map<std::string, double> counters; ///< Of the last round.
    double median;
    double minimum;
    double ratio;     ///< Median over the rounds of this column's figure by the limit's; 0 without a limit.
    double lowRatio;  ///< The quarter of the rounds' ratios that is lowest ends here,
    double highRatio; ///< and here the quarter that is highest begins.
};

struct RowResult {
    Work work;
    std::vector<ColumnResult> columns;
};

/// Whether any of the filters is part of "group: name"; without filters, yes.
bool isWanted(const Work &work, const Settings &settings);

/// Measures a row. An error of a body ends it with an exception that names row and column.
RowResult measure(const Row &row, const Settings &settings);

} // namespace speed
