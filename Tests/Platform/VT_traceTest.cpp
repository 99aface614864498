#include "VT_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "ChildProcess.h"

namespace {

using test::linesOf;
using test::runTracing;
using test::Script;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

const std::string head = R"(\[ *[0-9]+\.[0-9]{6}\] )";
const std::string origin = R"( \[TracingProgram\] Radio/CRadio\.cpp:42 CRadio_Start:)";

TEST(DmLevel2VtLevelTest, EachClassOfCodes_HasItsLevel) {
    struct Row {
        std::uint32_t code;
        std::int32_t level;
    };
    constexpr Row rows[] = {
        {0x0900, 0},                                                             // always logged
        {0x8000, 1}, {0x8006, 1}, {0x8021, 1}, {0x7FFFFFFF, 1}, {0xFFFFFFFF, 1}, // errors
        {0x1000, 3}, {0x1001, 3}, {0x1009, 3}, {0x7FFF, 3},                      // warnings
        {0x0000, 5}, {0x0001, 5}, {0x0002, 5}, {0x0100, 5},     {0x0101, 5},     // success and information
        {0x07FF, 5}, {0x0801, 5}, {0x0821, 5}, {0x08FF, 5},     {0x0901, 5},
        {0x0FFF, 5}, {0x0800, 7}, {0x0820, 8}, {0x0840, 9}, // debug
    };
    for (const auto &row : rows) {
        EXPECT_EQ(CKivTraceHandler_DmLevel2VtLevel(row.code), row.level) << std::hex << "0x" << row.code;
    }
}

TEST(VT_traceTest, ARecord_HasTimeLevelThreadOriginMessageAndCode) {
    const auto outcome =
        runTracing({"begin", "1", "print", "Radio does not start", "print", "      code: 0x8006\n", "end"});

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(MatchesRegex(head + "error  " + origin + " Radio does not start"), "      code: 0x8006"));
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, EachLevel_HasItsName) {
    const char *names[] = {"always ", "error  ", "warning", "warning", "info   ",
                           "info   ", "info   ", "debug  ", "debug2 ", "debug3 "};
    for (int level = 0; level < 10; ++level) {
        const auto outcome = runTracing({"begin", std::to_string(level), "print", "text", "end"});

        auto record = head;
        record.append(names[level]).append(origin).append(" text\n");
        EXPECT_THAT(outcome.err, MatchesRegex(record));
    }
}

TEST(VT_traceTest, EachCallOfRawprintf_StartsALineOfItsOwn) {
    const auto outcome = runTracing({"begin", "1", "print", "first", "print", "second", "print", "third\n", "end"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(": first"), "      second", "      third"));
}

TEST(VT_traceTest, NewlinesInAMessage_NeverStartALineThatLooksLikeARecord) {
    const auto outcome = runTracing({"begin", "1", "print", "a name\n[    1.000000] error   [x] faked\n\nend", "end"});

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(EndsWith(": a name"), "      [    1.000000] error   [x] faked", "      end"));
}

TEST(VT_traceTest, ControlCharacters_ArePrintedAsTheirCodes) {
    const auto outcome =
        runTracing({"begin", "1", "print", "red \x1b[31m, back \r, bell \a, del \x7f, tab \t, \xc3\xa9", "end"});

    EXPECT_THAT(outcome.err, EndsWith(": red \\x1b[31m, back \\x0d, bell \\x07, del \\x7f, tab \t, \xc3\xa9\n"));
}

TEST(VT_traceTest, AnEmptyMessage_LeavesTheCodeLineWhereItBelongs) {
    const auto outcome = runTracing({"trace", "0x8000", ""});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(" CRadio_Start:"), "      code: 0x8000"));
}

TEST(VT_traceTest, ARecordWithoutText_IsItsHeader) {
    const auto outcome = runTracing({"begin", "1", "end"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(" CRadio_Start:")));
}

TEST(VT_traceTest, TextLongerThanAnyBuffer_IsWhole) {
    for (const auto *const length : {"900", "1023", "1024", "1025", "5000", "1000000"}) {
        const auto outcome = runTracing({"begin", "1", "print-long", length, "print", "after", "end"});

        EXPECT_THAT(linesOf(outcome.err),
                    ElementsAre(EndsWith(" " + std::string(std::stoul(length), '0')), "      after"));
    }
}

TEST(VT_traceTest, AfterALongRecord_AShortOneIsItself) {
    const auto outcome =
        runTracing({"begin", "1", "print-long", "100000", "end", "begin", "1", "print", "short", "end"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(Not(IsEmpty()), EndsWith("CRadio_Start: short")));
}

TEST(VT_traceTest, ErrnoInAFormat_IsTheCallers) {
    const auto outcome = runTracing({"begin", "1", "print-with-errno-set", "why: %m", "end"});

    EXPECT_THAT(outcome.err, EndsWith(": why: No such file or directory\n"));
}

TEST(VT_traceTest, WhatPrintfCanNotPrint_ShowsItsFormat) {
    const auto outcome = runTracing({"begin", "1", "print-unprintable", "end"});

    EXPECT_THAT(outcome.err, EndsWith(": wide: %ls\n"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, RawprintfAndEnd_WithoutAnOpenRecordDoNothing) {
    const auto outcome =
        runTracing({"print", "lost", "end", "begin", "1", "print", "kept", "end", "print", "lost", "end"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(": kept")));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, Begin_WhileARecordIsOpenEmitsTheOpenOne) {
    const auto outcome = runTracing({"begin", "1", "print", "first", "begin", "3", "print", "second", "end"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(MatchesRegex(head + "error  " + origin + " first"),
                                                  MatchesRegex(head + "warning" + origin + " second")));
}

TEST(VT_traceTest, AHeaderThatSaysNothing_IsPrintedAsSuch) {
    for (const auto *const begin : {"begin-without-header", "begin-with-empty-header"}) {
        const auto outcome = runTracing({begin, "1", "print", "text", "end"});

        EXPECT_THAT(outcome.err, MatchesRegex(head + R"(error   \[TracingProgram\] \(null\):0 \(null\): text)" + "\n"));
        EXPECT_EQ(outcome.exitCode, 0);
    }
}

TEST(VT_traceTest, TheThreadsName_IsTheOneItHasWhenTheRecordEnds) {
    const auto outcome = runTracing({"thread-name", "dm-af-eventtsk", "trace", "0x8000", "text"});

    EXPECT_THAT(outcome.err, HasSubstr("] error   [dm-af-eventtsk] Radio"));
}

TEST(VT_traceTest, ControlCharactersInAThreadsName_ArePrintedAsTheirCodes) {
    const auto outcome = runTracing({"thread-name", "a\nb", "trace", "0x8000", "text"});

    EXPECT_THAT(outcome.err, HasSubstr("] error   [a\\x0ab] Radio"));
}

TEST(VT_traceTest, Errno_IsLeftAlone) {
    EXPECT_EQ(runTracing({"errno-is-kept"}).out, "1\n");
    EXPECT_EQ(runTracing({"errno-is-kept"}, {{"VOXTRACE_SINKS", "file"}, {"VOXTRACE_FILE", "/dev/full"}}).out, "1\n");
}

TEST(VT_traceTest, RecordsOfEightThreads_AreEachAUnitInTheOrderOfTheirTimes) {
    constexpr std::size_t threads = 8;
    constexpr std::size_t records = 500;

    const auto outcome = runTracing({"threads", std::to_string(threads), std::to_string(records)});

    ASSERT_EQ(outcome.exitCode, 0);
    const auto lines = linesOf(outcome.err);
    ASSERT_THAT(lines, SizeIs(threads * records * 4));
    std::set<std::string> procedural;
    std::set<std::string> objects;
    double last = 0;
    for (std::size_t at = 0; at < lines.size();) {
        const auto &line = lines[at];
        const auto time = std::stod(line.substr(1));
        ASSERT_GE(time, last) << line;
        last = time;
        const auto start = line.find('[', 1) + 1;
        const auto name = line.substr(start, line.find(']', start) - start);
        const auto number = line.substr(line.rfind(' ') + 1);
        const auto who = std::string{name}.append(" ").append(number);
        if (line.find("(ZEL.TEST)") != std::string::npos) {
            ASSERT_THAT(line, EndsWith(": object " + who));
            objects.insert(who);
            at += 1;
        } else {
            ASSERT_THAT(line, EndsWith(": first " + who));
            ASSERT_LT(at + 2, lines.size());
            ASSERT_EQ(lines[at + 1], "      second " + who);
            ASSERT_EQ(lines[at + 2], "      code: 0x8000");
            procedural.insert(who);
            at += 3;
        }
    }
    EXPECT_THAT(procedural, SizeIs(threads * records)) << "each once";
    EXPECT_THAT(objects, SizeIs(threads * records));
}

TEST(VT_traceTest, TracesFromStaticObjects_AreEmittedBeforeAndAfterMain) {
    const auto outcome = runTracing({"trace", "0x8000", "in main"}, {{"TRACE_AROUND_MAIN", "1"}});

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(EndsWith(": before main"), "      code: 0x8000",
                            EndsWith("(ZEL.TEST) Radio/CRadio.cpp:42 CRadio_Start: before main"), EndsWith(": in main"),
                            "      code: 0x8000", EndsWith(": after main"), "      code: 0x8000",
                            EndsWith("(ZEL.TEST) Radio/CRadio.cpp:42 CRadio_Start: after main")));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, ThreadsThatTraceWhileTheProcessEnds_DoNoHarm) {
    for (int round = 0; round < 10; ++round) {
        const auto outcome = runTracing({"detached-threads"}, {{"TRACE_AROUND_MAIN", "1"}});

        ASSERT_EQ(outcome.exitCode, 0) << outcome.err.substr(outcome.err.size() > 3000 ? outcome.err.size() - 3000 : 0);
        ASSERT_THAT(outcome.err, HasSubstr(": after main\n"));
    }
}

TEST(VT_traceTest, AThreadThatEndsWithItsRecordOpen_LeavesNothingBehind) {
    const auto outcome = runTracing({"thread-that-leaves-a-record-open", "trace", "0x8000", "after it"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(": after it"), "      code: 0x8000"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, AThreadThatIsCancelledWhileItTraces_DoesNotStopTheOthers) {
    const auto outcome = runTracing({"thread-that-is-cancelled", "trace", "0x8000", "after it"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(": with a cancellation pending"), "      code: 0x8000",
                                                  EndsWith(": after it"), "      code: 0x8000"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, WithoutAnyMemory_RecordsAreEmittedAllTheSame) {
    const auto outcome =
        runTracing({"starve", "0", "trace", "0x8005", "no memory", "begin", "1", "print-long", "400", "end", "feed"});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(EndsWith(": no memory"), "      code: 0x8005", EndsWith(": " + std::string(400, '0'))));
    EXPECT_EQ(outcome.out, "1\n") << "an allocation failed";
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, ARecordThatMemoryIsTooShortFor_IsCutAndSaysSo) {
    const auto outcome =
        runTracing({"starve", "0", "begin", "1", "print-long", "5000", "end", "feed", "trace", "0x8000", "again"});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(EndsWith("000 ...(cut, out of memory)"), EndsWith(": again"), "      code: 0x8000"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, RecordsThatNoMemoryWasLeftFor_AreCounted) {
    // The first thread without memory has the reserve; the other one finds nothing.
    const auto outcome = runTracing({"starve", "0", "begin", "1", "print", "kept", "other-thread", "other-thread",
                                     "end", "trace", "0x8005", "kept too", "feed"});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(": 2 records were lost: out of memory"), EndsWith(": kept"),
                                                  EndsWith(": kept too"), "      code: 0x8005"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VT_traceTest, MemoryThatRunsOutAnywhere_NeverEndsTheProgram) {
    for (int allowed = 0; allowed < 12; ++allowed) {
        const auto outcome =
            runTracing({"starve", std::to_string(allowed), "begin", "1", "print-long", "3000", "print", "x", "end",
                        "trace", "0x8005", "short", "domain", "ZEL.A", "3", "1", "hi", "feed"},
                       {{"VOXTRACE_COLOR", "always"}});
        if (outcome.isRefused()) {
            GTEST_SKIP() << outcome.err;
        }

        EXPECT_EQ(outcome.exitCode, 0) << allowed << ": " << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(": short\n")) << allowed;
        EXPECT_THAT(outcome.err, HasSubstr("Start: hi")) << allowed;
    }
}

TEST(VT_traceTest, AThreadWithTheSmallestStack_CanTraceToEverySink) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's frames do not fit the smallest stack";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    GTEST_SKIP() << "a sanitizer's frames do not fit the smallest stack";
#endif
#endif
    const test::Folder folder;

    const auto outcome =
        runTracing({"dev", folder.path(), "thread-with-the-smallest-stack", "thread-with-the-smallest-stack"},
                   {{"VOXTRACE_SINKS", "stderr,file,syslog"}, {"VOXTRACE_FILE", folder.path("t.trace")}});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(linesOf(outcome.err), SizeIs(4));
    EXPECT_EQ(test::contentOf(folder.path("t.trace")), outcome.err);
}

} // namespace
