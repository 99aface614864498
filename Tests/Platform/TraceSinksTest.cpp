// Where records go: standard error, a file that rotates, syslog.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "ChildProcess.h"

namespace {

using test::contentOf;
using test::Folder;
using test::linesOf;
using test::runTracing;
using test::Script;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

/// A daemon's socket in a folder of the test's own, for a program that takes the folder for /dev.
class SyslogSocket {
public:
    explicit SyslogSocket(const std::string &path) : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        EXPECT_LT(path.size(), sizeof(address.sun_path));
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    }
    ~SyslogSocket() { close(m_socket); }
    SyslogSocket(const SyslogSocket &) = delete;
    SyslogSocket &operator=(const SyslogSocket &) = delete;

    /// What arrived so far; complete once the sender has ended.
    std::vector<std::string> messages() const {
        std::vector<std::string> messages;
        std::array<char, 65536> message{};
        for (auto size = recv(m_socket, message.data(), message.size(), 0); size >= 0;
             size = recv(m_socket, message.data(), message.size(), 0)) {
            messages.emplace_back(message.data(), static_cast<std::size_t>(size));
        }
        return messages;
    }

private:
    int m_socket;
};

Script tracesOf(int count) {
    Script script;
    for (int number = 0; number < count; ++number) {
        script.insert(script.end(), {"trace", "0x8000", "record " + std::to_string(number)});
    }
    return script;
}

TEST(TraceSinksTest, TheFile_HoldsTheRecordsWithoutColour) {
    const Folder folder;

    const auto outcome = runTracing(
        {"trace", "0x8000", "first", "trace", "0x1000", "second"},
        {{"VOXTRACE_SINKS", "file"}, {"VOXTRACE_FILE", folder.path("radio.trace")}, {"VOXTRACE_COLOR", "always"}});

    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(linesOf(contentOf(folder.path("radio.trace"))),
                ElementsAre(AllOf(StartsWith("["), EndsWith(": first")), "      code: 0x8000",
                            AllOf(StartsWith("["), EndsWith(": second")), "      code: 0x1000"));
}

TEST(TraceSinksTest, EverySinkOfTheList_GetsEveryRecord) {
    const Folder folder;

    const auto outcome = runTracing({"trace", "0x8000", "text"}, {{"VOXTRACE_SINKS", " stderr , file "},
                                                                  {"VOXTRACE_FILE", folder.path("radio.trace")}});

    EXPECT_THAT(linesOf(outcome.err), SizeIs(2));
    EXPECT_EQ(contentOf(folder.path("radio.trace")), outcome.err);
}

TEST(TraceSinksTest, TheFile_IsAppendedToByTheNextRunAndItsFolderIsMade) {
    const Folder folder;
    const test::Environment environment{{"VOXTRACE_SINKS", "file"},
                                        {"VOXTRACE_FILE", folder.path("new/folder/radio.trace")}};

    runTracing({"trace", "0x8000", "first run"}, environment);
    runTracing({"trace", "0x8000", "second run"}, environment);

    EXPECT_THAT(
        linesOf(contentOf(folder.path("new/folder/radio.trace"))),
        ElementsAre(EndsWith(": first run"), "      code: 0x8000", EndsWith(": second run"), "      code: 0x8000"));
}

TEST(TraceSinksTest, ARecord_IsInTheFileBeforeTheProgramCanCrash) {
    const Folder folder;

    const auto outcome = runTracing({"trace", "0x8000", "the last words", "abort"},
                                    {{"VOXTRACE_SINKS", "file"}, {"VOXTRACE_FILE", folder.path("radio.trace")}});

    EXPECT_NE(outcome.exitCode, 0);
    EXPECT_THAT(contentOf(folder.path("radio.trace")), HasSubstr("the last words\n      code: 0x8000\n"));
}

TEST(TraceSinksTest, AFullFile_RotatesAndTheOldestIsDropped) {
    const Folder folder;

    const auto outcome = runTracing(tracesOf(100), {{"VOXTRACE_SINKS", "file"},
                                                    {"VOXTRACE_FILE", folder.path("radio.trace")},
                                                    {"VOXTRACE_FILE_SIZE", "1K"},
                                                    {"VOXTRACE_FILE_COUNT", "2"}});

    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, "");
    ASSERT_THAT(folder.names(), ElementsAre("radio.1.trace", "radio.2.trace", "radio.trace"));
    std::string kept;
    for (const auto *const name : {"radio.2.trace", "radio.1.trace", "radio.trace"}) {
        const auto content = contentOf(folder.path(name));
        EXPECT_LE(content.size(), 1024u) << name;
        EXPECT_THAT(content, AllOf(StartsWith("["), EndsWith("      code: 0x8000\n"))) << "no record is split";
        kept += content;
    }
    const auto lines = linesOf(kept);
    ASSERT_GT(lines.size(), 20u);
    for (std::size_t line = 0; line < lines.size(); line += 2) {
        EXPECT_THAT(lines[line], EndsWith(": record " + std::to_string(100 - (lines.size() - line) / 2)));
    }
}

TEST(TraceSinksTest, WithACountOfNone_OnlyTheFileItselfIsKept) {
    const Folder folder;

    runTracing(tracesOf(40), {{"VOXTRACE_SINKS", "file"},
                              {"VOXTRACE_FILE", folder.path("radio.trace")},
                              {"VOXTRACE_FILE_SIZE", "1024"},
                              {"VOXTRACE_FILE_COUNT", "0"}});

    EXPECT_THAT(folder.names(), ElementsAre("radio.trace"));
    EXPECT_THAT(contentOf(folder.path("radio.trace")), HasSubstr(": record 39\n"));
    EXPECT_LE(contentOf(folder.path("radio.trace")).size(), 1024u);
}

TEST(TraceSinksTest, AFileThatCanNotBeOpened_IsToldOnceAndStandardErrorTakesItsPlace) {
    const Folder folder;

    const auto outcome = runTracing({"trace", "0x8000", "first", "trace", "0x8000", "second"},
                                    {{"VOXTRACE_SINKS", "file"}, {"VOXTRACE_FILE", folder.path()}});

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(AllOf(StartsWith("voxtrace: VOXTRACE_FILE: cannot write to \"" + folder.path() + "\" ("),
                                  HasSubstr("Is a directory"), HasSubstr("allowed: a file in a folder"),
                                  EndsWith("Taken instead: standard error")),
                            EndsWith(": first"), "      code: 0x8000", EndsWith(": second"), "      code: 0x8000"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(TraceSinksTest, RecordsThatTheFileDoesNotTake_GoToStandardErrorAndTheFailureIsToldOnce) {
    const auto outcome = runTracing({"trace", "0x8000", "first", "trace", "0x8000", "second"},
                                    {{"VOXTRACE_SINKS", "file"}, {"VOXTRACE_FILE", "/dev/full"}});

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(AllOf(StartsWith("voxtrace: a record could not be written to the trace file"),
                                  HasSubstr("No space left on device")),
                            EndsWith(": first"), "      code: 0x8000", EndsWith(": second"), "      code: 0x8000"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(TraceSinksTest, AFileThatTheRotationCanNotOpenAgain_IsGivenUp) {
    const Folder folder;
    // The name becomes a folder's while the program writes to the file that had it.
    auto script = tracesOf(5);
    const auto file = folder.path("radio.trace");
    script.insert(script.end(), {"remove", file, "make-folder", file, "make-folder", file + "/kept"});
    const auto more = tracesOf(40);
    script.insert(script.end(), more.begin(), more.end());

    const auto outcome = runTracing(script, {{"VOXTRACE_SINKS", "file"},
                                             {"VOXTRACE_FILE", file},
                                             {"VOXTRACE_FILE_SIZE", "1K"},
                                             {"VOXTRACE_FILE_COUNT", "0"}});

    EXPECT_EQ(outcome.exitCode, 0);
    const auto lines = linesOf(outcome.err);
    ASSERT_FALSE(lines.empty());
    EXPECT_THAT(lines[0],
                AllOf(StartsWith("voxtrace: the trace file was lost ("), EndsWith("standard error from here on")));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string &line) { return line.rfind("voxtrace:", 0) == 0; }),
              1);
    EXPECT_THAT(outcome.err, HasSubstr(": record 39\n"));
}

TEST(TraceSinksTest, Syslog_GetsEachRecordAsOneMessageOfOneLine) {
    const Folder folder;
    const SyslogSocket daemon{folder.path("log")};

    const auto outcome =
        runTracing({"dev", folder.path(), "trace", "0x8000", "no radio\n  two lines", "trace", "0x1000", "a warning",
                    "trace", "0", "information", "trace", "0x800", "debug", "trace", "0x900", "always"},
                   {{"VOXTRACE_SINKS", "syslog"}, {"VOXTRACE_LEVEL", "debug"}, {"VOXTRACE_SYSLOG_IDENT", "radio1"}});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, "");
    // The number in front is the facility "user" (8) and the priority.
    const auto message = [](const std::string &priority, const std::string &level, const std::string &rest) {
        return MatchesRegex("<" + priority + R"(>.* radio1\[[0-9]+\]: \[ *[0-9]+\.[0-9]{6}\] )" + level +
                            R"( +\[TracingProgram\] Radio/CRadio\.cpp:42 CRadio_Start: )" + rest);
    };
    EXPECT_THAT(daemon.messages(), ElementsAre(message("11", "error", R"(no radio \|   two lines \| code: 0x8000)"),
                                               message("12", "warning", R"(a warning \| code: 0x1000)"),
                                               message("14", "info", R"(information \| code: 0)"),
                                               message("15", "debug", R"(debug \| code: 0x800)"),
                                               message("14", "always", R"(always \| code: 0x900)")));
}

TEST(TraceSinksTest, SyslogsIdent_IsTheProgramsNameByDefault) {
    const Folder folder;
    const SyslogSocket daemon{folder.path("log")};

    const auto outcome = runTracing({"dev", folder.path(), "trace", "0x8000", "text"}, {{"VOXTRACE_SINKS", "syslog"}});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_THAT(daemon.messages(), ElementsAre(HasSubstr(" TracingProgram[")));
}

TEST(TraceSinksTest, WithoutASyslogDaemon_TheProgramGoesOn) {
    const Folder folder;

    const auto outcome =
        runTracing({"dev", folder.path(), "trace", "0x8000", "text"}, {{"VOXTRACE_SINKS", "syslog,stderr"}});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_THAT(linesOf(outcome.err), SizeIs(2));
    EXPECT_EQ(outcome.exitCode, 0);
}

} // namespace
