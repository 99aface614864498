#include "VoxTrace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "ChildProcess.h"

namespace {

using test::Environment;
using test::linesOf;
using test::runTracing;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

/// Whether a message of a level is enabled at an object, and that it is emitted just then.
bool isEmitted(const std::string &domain, int objectLevel, int level, const Environment &environment = {}) {
    const auto outcome =
        runTracing({"domain", domain, std::to_string(objectLevel), std::to_string(level), "text"}, environment);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out, outcome.err.empty() ? "0\n" : "1\n") << "isEnabled and logMsg disagree";
    return !outcome.err.empty();
}

TEST(VoxTraceTest, AMessage_HasTimeLevelThreadDomainOriginAndText) {
    const auto outcome = runTracing({"domain", "ZEL.AF.MOD", "3", "1", "Module 7 is not registered"});

    EXPECT_THAT(outcome.err, MatchesRegex(R"(\[ *[0-9]+\.[0-9]{6}\] error   \[TracingProgram\] \(ZEL\.AF\.MOD\) )"
                                          "Radio/CRadio\\.cpp:42 CRadio_Start: Module 7 is not registered\n"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VoxTraceTest, TheLinesOfAMessage_AreIndented) {
    const auto outcome = runTracing({"domain", "ZEL.AF.MOD", "3", "1", "first\nsecond"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(EndsWith(": first"), "      second"));
}

TEST(VoxTraceTest, ControlCharactersInADomain_ArePrintedAsTheirCodes) {
    const auto outcome = runTracing({"domain", "ZEL\nX", "3", "1", "text"});

    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(" (ZEL\\x0aX) Radio")));
}

TEST(VoxTraceTest, APercentSign_IsText) {
    const auto outcome = runTracing({"domain", "%s%n", "3", "1", "100%n %s"});

    EXPECT_THAT(outcome.err, EndsWith("(%s%n) Radio/CRadio.cpp:42 CRadio_Start: 100%n %s\n"));
}

TEST(VoxTraceTest, AnObject_EmitsUpToTheLevelThatItWasMadeWith) {
    EXPECT_TRUE(isEmitted("ZEL.TEST", 3, 1));
    EXPECT_TRUE(isEmitted("ZEL.TEST", 3, 3));
    EXPECT_FALSE(isEmitted("ZEL.TEST", 3, 5));
    EXPECT_TRUE(isEmitted("ZEL.TEST", 7, 7));
    EXPECT_FALSE(isEmitted("ZEL.TEST", 0, 1));
    EXPECT_TRUE(isEmitted("ZEL.TEST", 0, 0));
}

TEST(VoxTraceTest, TheLevelOfTheEnvironment_TakesThePlaceOfTheObjects) {
    EXPECT_TRUE(isEmitted("ZEL.TEST", 3, 7, {{"VOXTRACE_LEVEL", "debug"}}));
    EXPECT_FALSE(isEmitted("ZEL.TEST", 7, 3, {{"VOXTRACE_LEVEL", "error"}}));
    EXPECT_FALSE(isEmitted("ZEL.TEST", 7, 0, {{"VOXTRACE_LEVEL", "off"}}));
}

TEST(VoxTraceTest, ALevelThatIsNotUnderstood_LeavesTheObjectsInForce) {
    const auto outcome = runTracing({"domain", "ZEL.TEST", "5", "5", "text"}, {{"VOXTRACE_LEVEL", "loud"}});

    EXPECT_EQ(outcome.out, "1\n");
}

TEST(VoxTraceTest, ADomainOfTheEnvironment_ComesBeforeTheLevelOfAll) {
    const Environment environment{{"VOXTRACE_LEVEL", "error"}, {"VOXTRACE_DOMAINS", "ZEL.AF.MOD=info"}};

    EXPECT_TRUE(isEmitted("ZEL.AF.MOD", 3, 5, environment));
    EXPECT_FALSE(isEmitted("ZEL.AF.STOR.ACC", 3, 3, environment));
}

TEST(VoxTraceTest, ADomainOfTheEnvironment_CoversTheDomainsBelowItAndTheLongestNameHolds) {
    const Environment environment{{"VOXTRACE_DOMAINS", "ZEL.AF.STOR=8,ZEL=off, ZEL.AF = 5 ,,ZEL.AF.STOR=7"}};

    EXPECT_FALSE(isEmitted("ZEL", 3, 1, environment));
    EXPECT_FALSE(isEmitted("ZEL.RF", 3, 1, environment));
    EXPECT_TRUE(isEmitted("ZEL.AF", 3, 5, environment));
    EXPECT_TRUE(isEmitted("ZEL.AF.MOD", 3, 5, environment));
    EXPECT_FALSE(isEmitted("ZEL.AF.MOD", 3, 6, environment));
    EXPECT_TRUE(isEmitted("ZEL.AF.STOR.ACC", 3, 7, environment));
    EXPECT_FALSE(isEmitted("ZEL.AF.STOR.ACC", 3, 8, environment)) << "of two equal names the later one holds";
    EXPECT_TRUE(isEmitted("ZEL.AFX", 3, 0, {{"VOXTRACE_DOMAINS", "ZEL.AF=off"}})) << "not below ZEL.AF";
    EXPECT_TRUE(isEmitted("ZE", 3, 3, environment)) << "not below ZEL";
}

TEST(VoxTraceTest, Domains_DoNotTouchTheProceduralLevel) {
    EXPECT_EQ(runTracing({"level"}, {{"VOXTRACE_DOMAINS", "AF_trace=debug"}}).out, "3\n");
}

TEST(VoxTraceTest, NullDomainHeaderAndText_ArePrintedAsSuch) {
    const auto outcome = runTracing({"domain-of-nulls"});

    EXPECT_THAT(outcome.err, EndsWith("] () (null):0 (null): (null)\n"));
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(VoxTraceTest, AMessageBetweenBeginAndEnd_DoesNotMixWithTheOpenRecord) {
    const auto outcome = runTracing({"begin", "1", "print", "open", "domain", "ZEL", "3", "1", "between", "end"});

    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(EndsWith("(ZEL) Radio/CRadio.cpp:42 CRadio_Start: between"), EndsWith(": open")));
}

TEST(VoxTraceTest, AnObjectWithoutMemoryForItsDomain_StillTracesErrorsAndWarnings) {
    const auto outcome = runTracing(
        {"starve", "0", "domain", "ZEL", "9", "3", "warning", "domain", "ZEL", "9", "5", "information", "feed"});
    if (outcome.isRefused()) {
        GTEST_SKIP() << outcome.err;
    }

    EXPECT_THAT(linesOf(outcome.err), ElementsAre("voxtrace: no memory for the trace domain ZEL; its level is 3",
                                                  EndsWith("(?) Radio/CRadio.cpp:42 CRadio_Start: warning"),
                                                  "voxtrace: no memory for the trace domain ZEL; its level is 3"));
    EXPECT_EQ(outcome.out, "1\n0\n1\n");
}

} // namespace
