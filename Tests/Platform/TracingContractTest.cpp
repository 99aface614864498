// What every platform owes the library; runs on the stand-ins and on any other. Where the records go and how they look
// is the platform's: what can be seen of a process that traces is that it goes on, and ends as it would without.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "ChildProcess.h"
#include "VT_trace.h"
#include "VoxTrace.h"

namespace {

using test::Outcome;
using test::runTracing;

using Handle = decltype(AF_trace);
static_assert(std::is_standard_layout_v<Handle> && offsetof(Handle, level) == 0);
static_assert(std::is_same_v<decltype(Handle::level), std::int32_t>);
static_assert(std::is_standard_layout_v<VoxTraceHeader> && std::is_trivial_v<VoxTraceHeader>);
static_assert(offsetof(VoxTraceHeader, file) == 0 && offsetof(VoxTraceHeader, line) == sizeof(void *) &&
              offsetof(VoxTraceHeader, function) == 2 * sizeof(void *));
static_assert(std::is_same_v<VoxTraceLevel, std::int32_t>);
static_assert(std::is_same_v<VoxTraceHdrOption, std::int32_t>);

constexpr VoxTraceHeader header = {"Radio/CRadio.cpp", 42, "CRadio_Start"};

TEST(TracingContract, TheLevelOfACode_DependsOnTheCodeAlone) {
    const auto levels = [] {
        std::vector<std::int32_t> all;
        for (std::uint32_t code = 0; code <= 0x8100; ++code) {
            all.push_back(CKivTraceHandler_DmLevel2VtLevel(code));
        }
        return all;
    };
    const std::vector<std::int32_t> first = levels();
    const std::int32_t kept = AF_trace.level;
    AF_trace.level = 1000;

    EXPECT_TRUE(levels() == first) << "whatever the handle's level";
    bool isSameOnAThread = false;
    std::thread([&] { isSameOnAThread = levels() == first; }).join();
    EXPECT_TRUE(isSameOnAThread);
    AF_trace.level = kept;
}

TEST(TracingContract, TwoObjectsOfOneDomain_LiveAndGoIndependently) {
    VoxTrace second("ZEL.TEST", 3, 256);
    const bool wasEnabled = second.isEnabled(1);
    {
        VoxTrace first("ZEL.TEST", 3, 256);
        first.logMsg(1, header, "first");
    }
    EXPECT_EQ(second.isEnabled(1), wasEnabled);
    second.logMsg(1, header, "second");
}

TEST(TracingContract, Errno_IsLeftAlone) {
    EXPECT_EQ(runTracing({"errno-is-kept"}).out, "1\n");
}

TEST(TracingContract, LongMessagesAndThoseOfManyLines_DoNoHarm) {
    const Outcome outcome = runTracing({"begin", "0", "print-long", "100000", "print", "a\nb\n\nc", "end", "domain",
                                        "ZEL.TEST", "9", "1", std::string(100000, 'x')});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err.substr(0, 1000);
}

TEST(TracingContract, APercentSignInAnObjectsText_IsText) {
    EXPECT_EQ(runTracing({"domain", "%n%s", "9", "1", "100%n%s%s"}).exitCode, 0);
}

/// The marks of the program's threads, "first worker3 17" and "second worker3 17", in the order in which they came out.
std::vector<std::string> marksIn(const std::string &text) {
    std::vector<std::string> marks;
    for (std::size_t at = 0; at < text.size(); ++at) {
        for (const std::string lead : {"first ", "second "}) {
            if (text.compare(at, lead.size() + 6, lead + "worker") == 0) {
                const auto number = text.find(' ', at + lead.size()) + 1;
                marks.push_back(text.substr(at, text.find_first_not_of("0123456789", number) - at));
            }
        }
    }
    return marks;
}

TEST(TracingContract, RecordsOfEightThreads_AreEachAUnit) {
    constexpr std::size_t threads = 8;
    constexpr std::size_t records = 500;

    const Outcome outcome = runTracing({"threads", std::to_string(threads), std::to_string(records)});

    ASSERT_EQ(outcome.exitCode, 0);
    if (outcome.err.find("worker") == std::string::npos) {
        GTEST_SKIP() << "this platform's records do not go to standard error";
    }
    const std::vector<std::string> marks = marksIn(outcome.err);
    ASSERT_EQ(marks.size(), 2 * threads * records);
    for (std::size_t at = 0; at < marks.size(); at += 2) {
        ASSERT_EQ("second" + marks[at].substr(5), marks[at + 1]);
    }
}

TEST(TracingContract, StaticObjects_TraceBeforeAndAfterMain) {
    EXPECT_EQ(runTracing({"trace", "0x8000", "in main"}, {{"TRACE_AROUND_MAIN", "1"}}).exitCode, 0);
}

TEST(TracingContract, ThreadsThatTraceWhileTheProcessEnds_DoNoHarm) {
    for (int round = 0; round < 10; ++round) {
        const Outcome outcome = runTracing({"detached-threads"}, {{"TRACE_AROUND_MAIN", "1"}});
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err.substr(outcome.err.size() > 3000 ? outcome.err.size() - 3000 : 0);
    }
}

TEST(TracingContract, AThreadThatEndsWithItsRecordOpen_DoesNotDisturbTheOthers) {
    EXPECT_EQ(runTracing({"thread-that-leaves-a-record-open", "trace", "0x8000", "after it"}).exitCode, 0);
}

TEST(TracingContract, WithoutAnyMemory_NothingIsThrown) {
    for (int allowed = 0; allowed < 6; ++allowed) {
        const Outcome outcome = runTracing({"starve", std::to_string(allowed), "trace", "0x8005", "no memory", "domain",
                                            "ZEL.TEST", "9", "1", "none", "feed"});
        if (outcome.isRefused()) {
            GTEST_SKIP() << outcome.err;
        }
        EXPECT_EQ(outcome.exitCode, 0) << allowed << ": " << outcome.err;
    }
}

TEST(TracingContract, AThreadWithTheSmallestStack_CanTrace) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's frames do not fit the smallest stack";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    GTEST_SKIP() << "a sanitizer's frames do not fit the smallest stack";
#endif
#endif
    const Outcome outcome = runTracing({"thread-with-the-smallest-stack", "object-on-the-smallest-stack"});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }
    EXPECT_EQ(outcome.exitCode, 0);
}

} // namespace
