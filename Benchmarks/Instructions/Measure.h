/// @file
/// Tells callgrind which instructions belong to a core path of the library, and which are preparation.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "EAFResult.h"

namespace instructions {

/// Counts what a path costs: the batch runs once to warm up, and is counted from then on. The program's own part in it
/// is left out: Instructions.py counts the libraries alone.
/// @param path         as it stands in Counts/.
/// @param operations   how many operations the batch holds.
/// @param before       runs before each batch, uncounted.
/// @param noOfBatches  that are counted.
void measure(const std::string &path, unsigned operations, const std::function<void()> &batch,
             const std::function<void()> &before = {}, unsigned noOfBatches = 10);

/// Ends the program, which then has counted something else than it says.
void require(const char *step, bool holds);

inline void require(const char *step, EAFResult result) {
    require(step, result < eAF_W_WARNING);
}

/// "<word>000012": names of one length, whatever the number.
std::string numbered(const char *word, std::uint32_t number);

void eventPaths();
void modulePaths();
void lookupPaths();
void variablePaths();
void sqlitePaths();
void filePaths();
void brokerPaths();

} // namespace instructions
