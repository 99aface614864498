/// @file
/// Takes the place of the platform's tracing in a test program and keeps every record.
///
/// Linking TraceRecorder into a program is enough: its definitions of the trace calls come before the platform
/// library's. AF_trace itself stays the platform's, as do the VoxTrace objects: the recorder notes
/// them, and looks into none.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace test {

/// One record of the procedural calls.
struct Trace {
    std::int32_t level = 0;
    std::string file;
    std::uint32_t line = 0;
    std::string function;
    std::string message;      ///< Everything before the code line.
    std::uint32_t code = 0;   ///< From the code line; meaningless unless hasCodeLine.
    bool hasCodeLine = false; ///< The record ended with exactly "      code: %#lx\n" of a code.
    unsigned calls = 0;       ///< How many VT_rawprintf calls it was made of.
    std::string thread;       ///< Name of the thread that traced.
};

/// One message of a VoxTrace object.
struct DomainTrace {
    std::string domain;
    std::int32_t level = 0;
    std::string file;
    std::string function;
    std::string text;
};

/// A VoxTrace object that was made in this process.
struct Domain {
    std::string name;
    std::int32_t level = 0;
    std::int32_t option = 0;
};

/// What a test usually compares of a record.
struct Line {
    std::string function;
    std::string message;
    std::uint32_t code;
};
bool operator==(const Line &a, const Line &b);
std::ostream &operator<<(std::ostream &out, const Line &line);

/// Every call is thread-safe. The levels that the recorder's mapping gives: errors 1, warnings 3, information and
/// success 5, debug 7 and up, eAF_I_LOG_ALWAYS 0.
class TraceRecorder {
public:
    static constexpr std::int32_t everything = 9;

    /// Forgets every record; sets AF_trace's threshold and the highest level that VoxTrace objects enable.
    /// Not while another thread traces.
    static void reset(std::int32_t threshold = everything, std::int32_t domainLevel = everything);

    static std::vector<Trace> records();
    static std::vector<DomainTrace> domainRecords();
    static std::vector<Domain> domains();

    /// The records as lines, those of the event task's worker left out: it traces when it likes.
    static std::vector<Line> lines();
    /// The records of the event task's worker.
    static std::vector<Line> workerLines();
    /// The lines at or above the severity of a warning (code 0x1000 or more), worker left out.
    static std::vector<Line> failures();

    /// Calls of VT_beginImpl, VT_rawprintf and VT_endImpl since reset.
    static unsigned traceCalls();
    /// VT_beginImpl calls that were not closed by VT_endImpl, of any thread.
    static unsigned openRecords();
};

/// The level that the recorder maps a code to.
std::int32_t levelOf(std::uint32_t code);

} // namespace test
