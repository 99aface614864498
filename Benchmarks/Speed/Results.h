/// @file
/// What was measured, for the eye and for Tables.py.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Runner.h"

namespace speed {

/// A line a column, as soon as a row is done.
void printRow(std::ostream &out, const RowResult &row);

/// What was so while the rows were measured.
struct Circumstances {
    double load = 0; ///< Of the machine, before the first row.
    double seconds = 0;
};

/// How many threads wanted to run during the last minute.
double loadOfMachine();

/// Everything, with machine, build and parameters.
void writeJson(std::ostream &out, const std::vector<RowResult> &rows, const Settings &settings,
               const Circumstances &circumstances);

} // namespace speed
