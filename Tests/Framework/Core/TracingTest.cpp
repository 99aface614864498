// How every source file traces, shown on sites that are easy to reach.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AfResult.h"
#include "CApplicationFramework.h"
#include "CModuleManager_c.h"
#include "ModuleInterface.h"
#include "TraceRecorder.h"

namespace {

using test::TraceRecorder;
using testing::IsEmpty;

class Tracing : public testing::Test {
protected:
    Tracing() { TraceRecorder::reset(); }
    ~Tracing() override { CModuleManager_UnInitialize(); }
};

TEST_F(Tracing, ARecordIsItsHeaderItsMessageAndTheCodeLineLast) {
    CApplicationFramework_Start();

    const auto records = TraceRecorder::records();
    ASSERT_EQ(1u, records.size());
    const test::Trace &trace = records.front();
    EXPECT_EQ("Framework/ApplicationFramework/private/CApplicationFramework.cpp", trace.file);
    EXPECT_GT(trace.line, 0u);
    EXPECT_EQ("CApplicationFramework_Start", trace.function);
    EXPECT_EQ("Application is not initialized", trace.message);
    EXPECT_TRUE(trace.hasCodeLine);
    EXPECT_EQ(0x8014u, trace.code);
    EXPECT_EQ(2u, trace.calls) << "one call for the message, one for the code line";
    EXPECT_EQ(test::levelOf(0x8014), trace.level);
    EXPECT_EQ(4u, TraceRecorder::traceCalls());
}

TEST_F(Tracing, ADebugTraceOfASuccessEndsWithItsCodeLineToo) {
    CModuleManager_RegisterGroup(7, "Seven");

    const auto records = TraceRecorder::records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("  Registered group Seven", records.front().message);
    EXPECT_TRUE(records.front().hasCodeLine);
    EXPECT_EQ(0x800u, records.front().code);
    EXPECT_EQ(test::levelOf(0x800), records.front().level);
}

TEST_F(Tracing, TheThresholdEqualToTheLevelEmits_OneBelowMakesNoCallAtAll) {
    TraceRecorder::reset(test::levelOf(eAF_E_NOT_INITIALIZED));
    CApplicationFramework_Start();
    EXPECT_EQ(1u, TraceRecorder::records().size());

    TraceRecorder::reset(test::levelOf(eAF_E_NOT_INITIALIZED) - 1);
    CApplicationFramework_Start();
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(Tracing, TheThresholdIsComparedSigned) {
    TraceRecorder::reset(-1);
    CApplicationFramework_Start();
    CModuleManager_RegisterGroup(7, "Seven");
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(Tracing, EachSeverityObeysTheThresholdOnItsOwn) {
    TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    CModuleManager_RegisterGroup(7, "Seven");
    CModuleManager_RegisterGroup(7, "Again");
    CApplicationFramework_Start();

    const std::vector<test::Line> expected{
        {"CModuleManager_RegisterGroup", "Group with id 7 already registered", 0x1001},
        {"CApplicationFramework_Start", "Application is not initialized", 0x8014}};
    EXPECT_EQ(expected, TraceRecorder::lines());
}

TEST_F(Tracing, TheModuleDomainIsMadeAtLoadWithLevel3AndOption256) {
    std::vector<test::Domain> modules;
    for (const test::Domain &domain : TraceRecorder::domains()) {
        if (domain.name == "ZEL.AF.MOD") {
            modules.push_back(domain);
        }
    }
    ASSERT_EQ(1u, modules.size());
    EXPECT_EQ(3, modules.front().level);
    EXPECT_EQ(256, modules.front().option);
}

TEST_F(Tracing, ADomainMessageHasNoCodeLineAndTheClassLayersFileAndMethod) {
    ModuleInterface module(deferred_registration_tag{}, 1, "One", 1, 1, nullptr, 0);
    module.onPhaseStart();

    const auto records = TraceRecorder::domainRecords();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("ZEL.AF.MOD", records.front().domain);
    EXPECT_EQ(1, records.front().level);
    EXPECT_EQ("Framework/ApplicationFramework/private/ModuleInterface.cpp", records.front().file);
    EXPECT_EQ("onPhaseStart", records.front().function);
    EXPECT_EQ("subscription to phase without implementation", records.front().text);
    EXPECT_THAT(TraceRecorder::records(), IsEmpty());
}

TEST_F(Tracing, ADisabledDomainLevelLogsNothing) {
    TraceRecorder::reset(TraceRecorder::everything, 0);
    ModuleInterface module(deferred_registration_tag{}, 1, "One", 1, 1, nullptr, 0);
    EXPECT_EQ(eAF_E_NOT_IMPLEMENTED, module.onPhaseStart());
    EXPECT_THAT(TraceRecorder::domainRecords(), IsEmpty());
}

} // namespace
