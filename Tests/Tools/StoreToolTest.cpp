// What goes for every command of zaf-store: its page, its exit codes, the stores that it meets.
#include "StoreTool.h"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>

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

TEST_F(StoreTool, ADamagedGenerationOfAStoreFile_IsReadAroundAndNeverMoved) {
    make("a", false, radio());
    make("a", false, {single<std::int32_t>("Cfg/Radio/Gain", TYPE_INT32, 21)});
    ASSERT_EQ(0, tool("dump a a.json").exitCode);
    damage("a");
    const std::string bytes = bytesOf(in("a"));
    const std::string bytesBefore = bytesOf(in("a.1"));
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain").out);
    EXPECT_EQ(1, tool("verify a").exitCode);
    for (const char *command : {"set a Cfg/Radio/Gain 5", "set a New 5 --create INT8", "load a a.json"}) {
        const Outcome outcome = tool(command);
        EXPECT_EQ(5, outcome.exitCode) << command;
        EXPECT_THAT(outcome.err, HasSubstr("nothing was written, because the store is damaged")) << command;
    }
    EXPECT_EQ(bytes, bytesOf(in("a")));
    EXPECT_EQ(bytesBefore, bytesOf(in("a.1")));
    EXPECT_FALSE(fs::exists(in("a.damaged-1")));
    EXPECT_EQ(1, tool("convert a b --kind file").exitCode);
    EXPECT_EQ("b: 3 values, 0 faults\n", tool("verify b").out);
}

TEST_F(StoreTool, AStoreThatIsNoRegularFile_IsRefusedAtOnce) {
    ASSERT_EQ(0, run("mkfifo p q.1; mkdir d; : >q").exitCode);
    for (const char *store : {"p", "q", "d", "/dev/zero"}) {
        for (const char *command : {"list", "verify", "dump", "get -- STORE P", "set -- STORE P 1", "diff STORE",
                                    "convert --kind file STORE x --"}) {
            std::string arguments = command;
            const std::size_t place = arguments.find("STORE");
            if (place != std::string::npos) {
                arguments.replace(place, 5, store);
            }
            const Outcome outcome = run("timeout 60 zaf-store " + arguments + " " +
                                        (place == std::string::npos || arguments.rfind("diff", 0) == 0 ? store : ""));
            EXPECT_EQ(5, outcome.exitCode) << arguments << outcome.err;
            EXPECT_THAT(outcome.err, HasSubstr("no regular file")) << arguments;
        }
    }
}

TEST_P(EitherKind, AFullStandardOutput_IsAFailure) {
    make("a", isSqlite, radio());
    for (const char *command : {"list a", "list --json a", "get a Cfg/Radio/Gain", "dump a", "verify a", "diff a a",
                                "--help", "list --help"}) {
        const Outcome full = run(std::string("(zaf-store ") + command + " >/dev/full)");
        EXPECT_EQ(7, full.exitCode) << command;
        EXPECT_THAT(full.err, HasSubstr("standard output can not be written (No space left on device)")) << command;
        EXPECT_EQ(7, run(std::string("(zaf-store ") + command + " >&-)").exitCode) << command;
    }
    EXPECT_EQ(7, run("(zaf-store set a Cfg/Radio/Gain 5 >&- 2>&-)").exitCode);
    EXPECT_EQ("5\n", tool("get a Cfg/Radio/Gain").out) << "the store was written all the same";
}

TEST_F(StoreTool, ALocationThatIsNotThere_IsNotFound) {
    make("a", true, radio(), 1);
    make("a", true, {single<std::int32_t>("Cal/X", TYPE_INT32, 3)}, 7);
    for (const char *command :
         {"list a", "list --json a", "verify a", "dump a", "get a Cal/X", "convert a b --kind file"}) {
        const Outcome outcome = tool(std::string(command) + " --location 9");
        EXPECT_EQ(3, outcome.exitCode) << command;
        EXPECT_THAT(outcome.err, HasSubstr("a holds no location 9, but 1 7")) << command;
    }
    EXPECT_EQ(3, tool("diff a a --first-location 1 --second-location 9").exitCode);
    EXPECT_EQ(0, tool("set a New 5 --create INT8 --location 9").exitCode);
    EXPECT_EQ("5\n", tool("get a New --location 9").out);
    ASSERT_EQ(0, tool("dump a a.json --location 7").exitCode);
    EXPECT_EQ(0, tool("load a a.json --location 11").exitCode);
    EXPECT_EQ(0, tool("diff a a --first-location 7 --second-location 11").exitCode);
    mend("a", "DELETE FROM variable");
    EXPECT_EQ(3, tool("list a --location 1").exitCode);
    EXPECT_EQ(0, tool("list a").exitCode);
}

TEST_F(StoreTool, ALocationOfAStoreFile_IsUsage) {
    make("a", false, radio());
    ASSERT_EQ(0, tool("dump a a.json").exitCode);
    for (const char *command :
         {"list a --location 1", "set a Cfg/Radio/Gain 5 --location 1", "load a a.json --location 1",
          "load b a.json --kind file --location 1", "convert a b --kind file --to-location 1"}) {
        const Outcome outcome = tool(command);
        EXPECT_EQ(2, outcome.exitCode) << command;
        EXPECT_THAT(outcome.err, HasSubstr("has no locations")) << command;
    }
    EXPECT_FALSE(fs::exists(in("b.lock")));
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain").out);
}

TEST_F(StoreTool, AnEmptyName_IsUsage) {
    std::ofstream(in("a.json")) << R"({"format":"zaf-store","version":1,"variables":[]})";
    for (const char *command : {"list ''", "get '' P", "set '' P 1", "dump ''", "load '' a.json --kind file",
                                "verify ''", "diff '' ''", "convert '' '' --kind file"}) {
        const Outcome outcome = tool(command);
        EXPECT_EQ(2, outcome.exitCode) << command;
        EXPECT_THAT(outcome.err, HasSubstr("its name is empty")) << command;
    }
    EXPECT_FALSE(fs::exists(in(".lock")));
}

TEST_F(StoreTool, ANameThatCanNotBeFollowed_IsUnreadableAndSaysWhere) {
    make("a", true, radio());
    ASSERT_EQ(0, tool("dump a a.json").exitCode);
    fs::create_symlink("loop", in("loop"));
    for (const char *command : {"list loop", "get loop P", "dump a loop", "load loop a.json --kind file",
                                "load loop a.json --kind sqlite", "verify loop", "convert a loop --kind file"}) {
        const Outcome outcome = tool(command);
        EXPECT_EQ(5, outcome.exitCode) << command;
        EXPECT_THAT(outcome.err, HasSubstr("the name loop can not be followed, because where ")) << command;
        EXPECT_THAT(outcome.err, HasSubstr("loop leads can not be told (Too many levels of symbolic links)"));
    }
    EXPECT_FALSE(fs::exists(in("loop.lock")));
    EXPECT_TRUE(fs::is_symlink(in("loop")));
    const std::string longest(250, 'n'); // with the end of a journal's name it is none
    make(longest, false, radio());
    EXPECT_EQ(0, tool("dump " + longest + " a.json").exitCode);
}

bool hasOpen(const fs::path &process, const fs::path &file) {
    std::error_code error;
    for (fs::directory_iterator entry(process / "fd", error), end; entry != end; entry.increment(error)) {
        if (fs::read_symlink(entry->path(), error) == file) {
            return true;
        }
    }
    return false;
}

bool isAsleep(const fs::path &process) {
    const std::string line = bytesOf(process / "stat");
    return line.compare(line.rfind(')') + 1, 3, " S ") == 0;
}

/// Whether another process has the file open and sleeps: for its lock, there is nothing else to wait for.
bool isWaitedFor(const fs::path &file) {
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        const bool isAnother =
            std::isdigit(static_cast<unsigned char>(name[0])) != 0 && name != std::to_string(getpid());
        if (isAnother && hasOpen(entry->path(), file) && isAsleep(entry->path())) {
            return true;
        }
    }
    return false;
}

TEST_F(StoreTool, AReaderOfABusyDatabase_WaitsLongerThanOneOfItsHostsStores) {
    make("a", true, radio());
    sqlite3 *host = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(in("a").c_str(), &host));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(host, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr));
    const fs::path file = fs::canonical(in("a"));
    std::atomic<bool> hasEnded{false};
    bool hasWaited = false;
    std::thread store([&] {
        while (!hasWaited && !hasEnded) {
            hasWaited = isWaitedFor(file);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        // Longer than the store itself waits, which a reader meets as "in use".
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        sqlite3_exec(host, "COMMIT", nullptr, nullptr, nullptr);
    });
    const Outcome outcome = tool("verify a");
    hasEnded = true;
    store.join();
    EXPECT_TRUE(hasWaited);
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ("a: 3 values, 0 faults\n", outcome.out);
    sqlite3_close(host);
}

TEST_F(StoreTool, AStoreThatWasCutShortWhereNothingCanBeWritten_IsUnfinished) {
    make("a", true, everySort());
    cutShort("a", "h");
    const std::string bytes = bytesOf(in("a"));
    ASSERT_EQ(0, run(": >.out && : >.err && chmod 555 . && chmod 444 a a-journal a.lock").exitCode);
    // Root is bound by permissions without the capability to pass over them.
    const std::string boundTool =
        geteuid() == 0 ? "setpriv --bounding-set -dac_override,-dac_read_search zaf-store " : "zaf-store ";
    for (const char *command : {"list a", "verify a", "dump a", "get a e", "set a e 5"}) {
        const Outcome outcome = run(boundTool + command);
        EXPECT_EQ(5, outcome.exitCode) << command;
        EXPECT_THAT(outcome.err, HasSubstr("a store was cut short")) << command;
    }
    EXPECT_EQ(bytes, bytesOf(in("a")));
}

TEST_F(StoreTool, AStoreThatWasCutShort_IsReadAndWrittenAsItWasBefore) {
    make("whole", true, everySort());
    ASSERT_EQ(0, tool("dump whole whole.json").exitCode);
    for (const char *command : {"list a", "verify a", "get a e", "dump a", "diff a whole", "convert a b --kind file",
                                "set a e 5", "load a whole.json"}) {
        fs::remove(in("a"));
        make("a", true, everySort());
        cutShort("a", "h");
        const Outcome outcome = tool(command);
        EXPECT_EQ(0, outcome.exitCode) << command << outcome.err;
        EXPECT_EQ(0, tool("set a e -2147483648").exitCode) << command;
        EXPECT_EQ(0, tool("diff a whole").exitCode) << command;
    }
}

TEST_F(StoreTool, TheGenerationBefore_LiesBesideTheFileThatALinkNames) {
    fs::create_directory(in("data"));
    make("data/x", false, radio());
    make("data/x", false, {single<std::int32_t>("Cfg/Radio/Gain", TYPE_INT32, 21)});
    fs::create_symlink("data/x", in("x"));
    std::ofstream(in("data/x")) << "overwritten from its first byte on";
    EXPECT_EQ("20\n", tool("get x Cfg/Radio/Gain").out);
    EXPECT_EQ(5, tool("set x Cfg/Radio/Gain 5").exitCode);
    EXPECT_EQ(2, tool("dump x data/x.1").exitCode);
}

} // namespace
} // namespace storetool
