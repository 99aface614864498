/// @file
/// The machine that the controller runs on, as its kernel describes it.
#pragma once

#include <cstdint>
#include <string>

namespace radio {

/// Travels as the copied data of an event, so it is plain bytes.
struct BoardSample {
    double load;              ///< Runnable tasks, averaged over the last minute.
    uint64_t memoryTotal;     ///< MiB
    uint64_t memoryAvailable; ///< MiB
    uint64_t uptime;          ///< s
};

/// @return empty when done, otherwise what is wrong.
std::string readBoard(BoardSample &sample);

/// "load 0.42, 1234 of 5678 MiB free, up 999 s"
std::string toString(const BoardSample &sample);

} // namespace radio
