#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ChildProgram.h"
#include "NamedQueue.h"

namespace {

/// What differs from run to run and from machine to machine, and nothing else, becomes a word.
std::vector<std::string> normalised(const std::string &text) {
    static const std::vector<std::pair<std::regex, std::string>> rules = {
        {std::regex(R"(server port \d+, process \d+)"), "server port PORT, process PROCESS"},
        {std::regex(R"(/\S+_\d+_([A-Za-z]+)$)"), "/USER_PORT_$1"},
        {std::regex(R"(^ +\d+\.\d{6} )"), "    TIME "},
        {std::regex(R"( +\d+ us )"), " DURATION "},
        {std::regex(R"(ran for \d+ us$)"), "ran for DURATION"},
        {std::regex(R"(date \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$)"), "date DATE"},
        {std::regex(R"(load \d+\.\d\d, \d+ of \d+ MiB free, up \d+ s$)"),
         "load LOAD, FREE of TOTAL MiB free, up UPTIME s"},
    };
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        for (const auto &[pattern, word] : rules) {
            line = std::regex_replace(line, pattern, word);
        }
        lines.push_back(line);
    }
    return lines;
}

/// The one block of the page that is marked as text.
std::string printedRunOfPage() {
    std::ifstream page(RADIO_UNIT_CONTROLLER_PAGE);
    std::string block;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (inside && line == "```") {
            return block;
        }
        if (inside) {
            block += line + '\n';
        }
        inside = inside || line == "```text";
    }
    return {};
}

TEST(PrintedRunTest, Run_WithoutOptions_PrintsWhatThePageShows) {
    const std::vector<std::string> shown = normalised(printedRunOfPage());
    ASSERT_GT(shown.size(), 50U) << "no block marked ```text in " << RADIO_UNIT_CONTROLLER_PAGE;

    test::ChildProgram controller(RADIO_UNIT_CONTROLLER, {"--port", std::to_string(test::port())});
    ASSERT_EQ(controller.exitCode(), 0) << controller.errors();

    const std::vector<std::string> printed = normalised(controller.output());
    for (std::size_t i = 0; i < shown.size() && i < printed.size(); ++i) {
        ASSERT_EQ(printed[i], shown[i]) << "line " << i + 1;
    }
    EXPECT_EQ(printed.size(), shown.size());
}

TEST(PrintedRunTest, Normalising_KeepsResultsModulesAndOrder) {
    const std::vector<std::string> good =
        normalised("    0.001234  Init  NORMAL  all      Clock  eAF_S_OK     4 us  done\n");
    const std::vector<std::string> otherTime =
        normalised("    7.654321  Init  NORMAL  all      Clock  eAF_S_OK  8000 us  done\n");
    const std::vector<std::string> otherResult =
        normalised("    0.001234  Init  NORMAL  all      Clock  eAF_E_FAILED     4 us  done\n");

    EXPECT_EQ(good, otherTime);
    EXPECT_NE(good, otherResult);
}

} // namespace
