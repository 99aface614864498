// What goes for every command of zaf-store: its page, its exit codes, the stores that it meets.
#include "StoreTool.h"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace storetool {
namespace {

using testing::HasSubstr;

namespace fs = std::filesystem;

TEST_F(StoreTool, PlaysTheSessionOfItsPage) {
    make("radio.db", true, radio());
    std::istringstream page(bytesOf(ZAF_STORE_PAGE));
    std::string line;
    std::string command;
    std::string expected;
    unsigned played = 0;
    const auto play = [&] {
        if (!command.empty()) {
            const Outcome outcome = run(command);
            EXPECT_EQ(expected, outcome.out + outcome.err) << command;
            ++played;
        }
        command.clear();
        expected.clear();
    };
    bool isInSession = false;
    while (std::getline(page, line)) {
        if (line.rfind("    $ ", 0) == 0) {
            play();
            isInSession = true;
            command = line.substr(6);
        } else if (isInSession && line.rfind("    ", 0) == 0) {
            expected += line.substr(4) + "\n";
        } else if (isInSession) {
            break;
        }
    }
    play();
    EXPECT_EQ(9u, played);
}

TEST_P(EitherKind, WhileAProcessHoldsTheStore_ReadingGoesAndWritingNamesTheProcess) {
    make("a", isSqlite, radio());
    const auto holder = open("a", isSqlite, Access::readWrite);
    EXPECT_EQ(0, tool("list a").exitCode);
    EXPECT_EQ(0, tool("verify a").exitCode);
    const Outcome refused = tool("set a Cfg/Radio/Gain 5");
    EXPECT_EQ(4, refused.exitCode);
    EXPECT_THAT(refused.err, HasSubstr(std::to_string(getpid())));
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain").out);
}

TEST_P(EitherKind, ADamagedStore_IsNeverTouched) {
    make("a", isSqlite, radio());
    fs::remove(in("a.1"));
    damage("a");
    const std::string bytes = bytesOf(in("a"));
    for (const char *command : {"list a", "get a Cfg/Radio/Gain", "set a Cfg/Radio/Gain 5", "verify a", "dump a",
                                "convert a b --kind file"}) {
        const Outcome outcome = tool(command);
        EXPECT_EQ(5, outcome.exitCode) << command << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr("damaged")) << command;
    }
    EXPECT_EQ(bytes, bytesOf(in("a")));
    EXPECT_FALSE(fs::exists(in("a.damaged-1")));
    EXPECT_FALSE(fs::exists(in("b")));
}

TEST_F(StoreTool, SeveralLocationsInAFile_MustBeNamed) {
    make("a", true, radio(), 1);
    make("a", true, {single<std::int32_t>("Cal/X", TYPE_INT32, 3)}, 7);
    const Outcome unnamed = tool("list a");
    EXPECT_EQ(2, unnamed.exitCode);
    EXPECT_THAT(unnamed.err, HasSubstr("1 7: say which with --location"));
    EXPECT_EQ("3\n", tool("get a Cal/X --location 7").out);
    EXPECT_EQ(0, tool("set a Cal/X 4 --location 7").exitCode);
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain --location 1").out);
}

TEST_F(StoreTool, TheOnlyLocationInAFile_NeedsNoName) {
    make("a", true, radio(), 42);
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain").out);
    EXPECT_EQ(0, tool("set a Cfg/Radio/Gain 21").exitCode);
    EXPECT_EQ(3u, valuesIn("a", true, 42).size());
}

TEST_F(StoreTool, WhatIsNotThere_IsSaid) {
    make("a", true, radio());
    std::ofstream(in("letter")) << "no store, but a letter of some length";
    EXPECT_EQ(3, tool("list nothing").exitCode);
    EXPECT_EQ(3, tool("get a Cfg/Radio/Loss").exitCode);
    EXPECT_EQ(5, tool("list letter").exitCode);
    EXPECT_EQ(5, tool("set letter P 1").exitCode);
    EXPECT_EQ("no store, but a letter of some length", bytesOf(in("letter")));
    EXPECT_FALSE(fs::exists(in("nothing")));
}

TEST_F(StoreTool, Usage_IsAnExitCodeOfItsOwnAndHelpIsNone) {
    EXPECT_EQ(2, tool("").exitCode);
    EXPECT_EQ(2, tool("frobnicate a").exitCode);
    EXPECT_EQ(2, tool("get a").exitCode);
    EXPECT_EQ(2, tool("convert a b --kind tape").exitCode);
    EXPECT_THAT(tool("--help").out, HasSubstr("Exit codes"));
    for (const char *command : {"list", "get", "set", "dump", "load", "diff", "verify", "convert"}) {
        const Outcome help = tool(std::string(command) + " --help");
        EXPECT_EQ(0, help.exitCode);
        EXPECT_THAT(help.out, HasSubstr("Examples:\n  zaf-store " + std::string(command)));
    }
}

TEST_F(StoreTool, AValueMendedByHandThatDoesNotFit_IsAFaultOfVerify) {
    make("a", true, radio());
    mend("a", "UPDATE variable SET value='high' WHERE path='Cfg/Radio/Gain'");
    const Outcome outcome = tool("verify a");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("a: 2 values, 1 fault\n", outcome.out);
    EXPECT_THAT(outcome.err, HasSubstr("Cfg/Radio/Gain"));
}

} // namespace
} // namespace storetool
