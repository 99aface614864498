#include "GoldenTrace.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "TraceRecorder.h"

namespace {

std::vector<std::string> linesOf(const char *path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.front() != '#') {
            lines.push_back(line);
        }
    }
    return lines;
}

std::string asLine(const test::Trace &trace) {
    std::array<char, 16> code{};
    std::snprintf(code.data(), code.size(), "%#lx", static_cast<unsigned long>(trace.code));
    const bool endsLine = !trace.message.empty() && trace.message.back() == '\n';
    return std::to_string(trace.level) + " " + code.data() + " " + trace.function + ": " +
           trace.message.substr(0, trace.message.size() - (endsLine ? 1 : 0));
}

} // namespace

void test::expectGoldenTrace(const char *page) {
    const std::vector<std::string> expected = linesOf(page);
    ASSERT_FALSE(expected.empty()) << "could not read " << page;
    const std::vector<Trace> records = TraceRecorder::records();
    for (std::size_t i = 0; i < expected.size() || i < records.size(); ++i) {
        ASSERT_EQ(i < expected.size() ? expected[i] : "nothing more",
                  i < records.size() ? asLine(records[i]) : "nothing more")
            << "line " << i + 1 << " of the trace";
    }
}
