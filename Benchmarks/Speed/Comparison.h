/// @file
/// What is measured: rows of work, each done by several columns that take turns.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace speed {

/// Who does the work: the least that the machine allows, the library, or what a user would take instead.
enum class Role { limit, library, peer };

/// A row of the page.
struct Work {
    std::string group{};       ///< A table of the page: "events", "modules", "storage", "providers", "trace".
    std::string name{};        ///< A row: "fire, receive and call back in one thread".
    std::uint64_t size = 0;    ///< What a plot shows the cost against; 0 when there is nothing.
    std::string sizeUnit{};    ///< "variables", "bytes", ...
    double aim = 0;            ///< The largest ratio to the limit that is aimed at; 0 when there is none.
    std::uint64_t parts = 1;   ///< What one iteration is a whole of; the page divides by it.
    std::string partUnit{};    ///< "callback", "event", ...; empty when an iteration is the unit.
    double aimNanoseconds = 0; ///< The most that a part of the library's may cost; 0 when there is no such aim.
    bool aimsAtNoFlush = false;
};

/// Loops `for (auto _ : state)`; what stands before and behind the loop is not measured. Counters that it sets are
/// shown beside the time. It leaves nothing behind: other columns follow, and then it is called again.
using Body = std::function<void(benchmark::State &)>;

/// Whether the loop's time counts, or what the body tells by State::SetIterationTime.
enum class Clock { wall, manual };

/// Of an iteration of Clock::manual, counts the step alone: what it makes is got rid of outside.
template <class Step>
void timed(benchmark::State &state, Step step) {
    const auto begin = std::chrono::steady_clock::now();
    step();
    benchmark::ClobberMemory();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
}

/// One column of a row. Its runs alternate with those of the row's other columns, round by round.
void compare(const Work &work, Role role, const std::string &who, Body body, Clock clock = Clock::wall);

struct Column {
    Role role;
    std::string who;
    Body body;
    Clock clock;
};

struct Row {
    Work work;
    std::vector<Column> columns;
};

/// What compare was told, rows and columns in the order in which they came first.
const std::vector<Row> &rows();

// Each file of rows has one of these; main calls them.
void addEventRows();
void addEventThreadRows();
void addEventLookUpRows();
void addModuleRows();
void addTraceRows();
void addStartRows();
void addStorageRows();
void addProviderRows();

} // namespace speed
