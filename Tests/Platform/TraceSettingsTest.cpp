// What the environment may ask for, and what becomes of what it asks for wrongly.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "ChildProcess.h"

namespace {

using test::Environment;
using test::linesOf;
using test::runTracing;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

TEST(TraceSettingsTest, ByDefault_ErrorsAndWarningsAreShown) {
    const auto outcome = runTracing({"level", "trace", "0x8000", "error", "trace", "0x1000", "warning", "trace", "0",
                                     "information", "trace", "0x800", "debug", "trace", "0x900", "always"});

    EXPECT_EQ(outcome.out, "3\n");
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(": error"), "      code: 0x8000", EndsWith(": warning"),
                                                  "      code: 0x1000", EndsWith(": always"), "      code: 0x900"));
}

TEST(TraceSettingsTest, Debug_ShowsEveryRecord) {
    const auto outcome = runTracing({"trace", "0x800", "one", "trace", "0x820", "two", "trace", "0x840", "three",
                                     "trace", "0", "info", "trace", "0x8000", "error"},
                                    {{"VOXTRACE_LEVEL", "debug"}});

    EXPECT_THAT(linesOf(outcome.err), SizeIs(10));
}

TEST(TraceSettingsTest, EachLevelOfTheEnvironment_BecomesTheHandlesLevel) {
    struct Row {
        const char *text;
        const char *level;
    };
    constexpr Row rows[] = {{"off", "-1\n"}, {"error", "1\n"}, {"warning", "3\n"}, {"info", "5\n"}, {"debug", "9\n"},
                            {"-1", "-1\n"},  {"0", "0\n"},     {"2", "2\n"},       {"9", "9\n"},    {"", "3\n"}};
    for (const auto &row : rows) {
        const auto outcome = runTracing({"level"}, {{"VOXTRACE_LEVEL", row.text}});

        EXPECT_EQ(outcome.out, row.level) << row.text;
        EXPECT_EQ(outcome.err, "") << row.text;
    }
}

TEST(TraceSettingsTest, Off_SilencesEvenWhatIsAlwaysLogged) {
    const auto outcome =
        runTracing({"trace", "0x900", "always", "trace", "0x8000", "error"}, {{"VOXTRACE_LEVEL", "off"}});

    EXPECT_EQ(outcome.err, "");
}

TEST(TraceSettingsTest, TheLevel_IsSetBeforeStaticObjectsTrace) {
    const auto silent = runTracing({"level"}, {{"TRACE_AROUND_MAIN", "1"}, {"VOXTRACE_LEVEL", "off"}});

    EXPECT_EQ(silent.err, "");
}

TEST(TraceSettingsTest, ABadValue_IsToldOnceWithWhatIsAllowedAndTheDefaultHolds) {
    constexpr auto levels = "allowed: off, error, warning, info, debug or a number from -1 to 9";
    constexpr auto sinks = "allowed: a list of stderr, file, syslog";
    constexpr auto sizes = "allowed: 1024 to 1073741824 bytes, or a number followed by K or M";
    constexpr auto counts = "allowed: 0 to 99 older files";
    constexpr auto colours = "allowed: auto, always, never";
    constexpr auto domains = "allowed: NAME=LEVEL, with LEVEL off, error, warning, info, debug or -1 to 9";
    struct Row {
        std::string variable;
        std::string value;
        std::string named; ///< The part of the value that is at fault.
        std::string allowed;
    };
    const Row rows[] = {
        {"VOXTRACE_LEVEL", "loud", "loud", levels},
        {"VOXTRACE_LEVEL", "10", "10", levels},
        {"VOXTRACE_LEVEL", "-2", "-2", levels},
        {"VOXTRACE_LEVEL", "3x", "3x", levels},
        {"VOXTRACE_LEVEL", "Debug", "Debug", levels},
        {"VOXTRACE_LEVEL", " 3", " 3", levels},
        {"VOXTRACE_SINKS", "stdout", "stdout", sinks},
        {"VOXTRACE_SINKS", "stderr,disk", "disk", sinks},
        {"VOXTRACE_FILE_SIZE", "1023", "1023", sizes},
        {"VOXTRACE_FILE_SIZE", "2000M", "2000M", sizes},
        {"VOXTRACE_FILE_SIZE", "M", "M", sizes},
        {"VOXTRACE_FILE_SIZE", "5G", "5G", sizes},
        {"VOXTRACE_FILE_SIZE", "99999999999999999999", "99999999999999999999", sizes},
        {"VOXTRACE_FILE_COUNT", "100", "100", counts},
        {"VOXTRACE_FILE_COUNT", "few", "few", counts},
        {"VOXTRACE_COLOR", "yes", "yes", colours},
        {"VOXTRACE_DOMAINS", "ZEL", "ZEL", domains},
        {"VOXTRACE_DOMAINS", "=3", "=3", domains},
        {"VOXTRACE_DOMAINS", "ZEL=high", "ZEL=high", domains},
        {"VOXTRACE_DOMAINS", "A=1,B=,C=2", "B=", domains},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.variable + "=" + row.value);

        const auto outcome = runTracing({"level", "trace", "0x1000", "shown"}, {{row.variable, row.value}});

        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.out, "3\n");
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(AllOf(StartsWith("voxtrace: " + row.variable + ": \"" +
                                                                       row.named + "\" is not understood"),
                                                            HasSubstr(row.allowed), HasSubstr("Taken instead: ")),
                                                      EndsWith(": shown"), "      code: 0x1000"));
    }
}

TEST(TraceSettingsTest, SeveralBadValues_AreToldEach) {
    const auto outcome =
        runTracing({"level"}, {{"VOXTRACE_LEVEL", "loud"}, {"VOXTRACE_SINKS", "disk"}, {"VOXTRACE_DOMAINS", "A,B"}});

    EXPECT_THAT(linesOf(outcome.err), SizeIs(4));
}

TEST(TraceSettingsTest, OneBadDomain_LeavesTheOthersInForce) {
    const auto outcome = runTracing({"domain", "C", "3", "7", "text"}, {{"VOXTRACE_DOMAINS", "A,C=debug"}});

    EXPECT_EQ(outcome.out, "1\n");
}

TEST(TraceSettingsTest, ColourAlways_ColoursByLevel) {
    const auto outcome = runTracing(
        {"trace", "0x8000", "error", "trace", "0x1000", "warning", "trace", "0", "info", "trace", "0x800", "debug"},
        {{"VOXTRACE_COLOR", "always"}, {"VOXTRACE_LEVEL", "debug"}});

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(StartsWith("\x1b[31m["), "      code: 0x8000\x1b[0m", StartsWith("\x1b[33m["),
                            "      code: 0x1000\x1b[0m", StartsWith("\x1b[32m["), "      code: 0\x1b[0m",
                            StartsWith("\x1b[2m["), "      code: 0x800\x1b[0m"));
}

TEST(TraceSettingsTest, ColourAuto_IsForTerminalsThatShowIt) {
    const test::Script script{"trace", "0x8000", "error"};
    const std::string red = "\x1b[31m";

    EXPECT_THAT(test::runTracingOnTerminal(script, {{"TERM", "xterm"}}).err, StartsWith(red));
    EXPECT_THAT(test::runTracingOnTerminal(script, {{"TERM", "xterm"}, {"VOXTRACE_COLOR", "auto"}}).err,
                StartsWith(red));
    EXPECT_THAT(test::runTracingOnTerminal(script, {{"TERM", "dumb"}}).err, StartsWith("["));
    EXPECT_THAT(test::runTracingOnTerminal(script, {}).err, StartsWith("["));
    EXPECT_THAT(test::runTracingOnTerminal(script, {{"TERM", "xterm"}, {"NO_COLOR", "1"}}).err, StartsWith("["));
    EXPECT_THAT(test::runTracingOnTerminal(script, {{"TERM", "xterm"}, {"VOXTRACE_COLOR", "never"}}).err,
                StartsWith("["));
    EXPECT_THAT(runTracing(script, {{"TERM", "xterm"}}).err, StartsWith("[")) << "not a terminal";
}

} // namespace
