// Names handed out: of phases and of priorities.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;

const char *const priorityNames[] = {"HIGHEST", "HIGH",  "HIGHER_THAN_NORMAL", "NORMAL", "LOWER_THAN_NORMAL",
                                     "LOW",     "LOWEST"};

class RegistryNames : public test::ModuleManagerFixture {};

TEST_F(RegistryNames, GetPhaseName_OfARegisteredPhase_GivesItsNameWithoutATrace) {
    CModuleManager_RegisterPhase(10, "Init");
    CModuleManager_RegisterPhase(11, "Load");
    const char *name = nullptr;
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetPhaseName(11, &name));
    EXPECT_STREQ("Load", name);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(RegistryNames, GetPhaseName_OfAnUnknownPhase_ClearsTheOutPointerAndFails) {
    CModuleManager_RegisterPhase(10, "Init");
    const char *name = "left over";
    EXPECT_EQ(eAF_E_UNKNOWN_PHASE, CModuleManager_GetPhaseName(4000000000u, &name));
    EXPECT_EQ(nullptr, name);
    EXPECT_EQ((Lines{{"CModuleManager_GetPhaseName", "Phase with id 4000000000 not found", 0x800B}}),
              TraceRecorder::lines());
}

TEST_F(RegistryNames, GetPhaseName_StaysValidWhileOtherRecordsComeAndGo) {
    CModuleManager_RegisterPhase(10, "Init");
    const char *name = nullptr;
    CModuleManager_GetPhaseName(10, &name);
    for (std::uint32_t id = 100; id < 400; ++id) {
        CModuleManager_RegisterPhase(id, "Other");
        CModuleManager_RegisterModule(id, "Other");
        CModuleManager_UnregisterModule(id);
    }
    EXPECT_STREQ("Init", name);
    const char *again = nullptr;
    CModuleManager_GetPhaseName(10, &again);
    EXPECT_EQ(name, again);
}

TEST_F(RegistryNames, GetPriorityName_OfEveryPriority_GivesItsName) {
    for (std::int32_t priority = 0; priority <= 6; ++priority) {
        const char *name = nullptr;
        EXPECT_EQ(eAF_S_OK, CModuleManager_GetPriorityName(priority, &name));
        EXPECT_STREQ(priorityNames[priority], name);
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(RegistryNames, GetPriorityName_Above6_ClearsTheOutPointerAndFailsWithoutATrace) {
    for (const std::int32_t priority : {7, 8, 100, std::numeric_limits<std::int32_t>::max()}) {
        const char *name = "left over";
        EXPECT_EQ(eAF_E_FAILED, CModuleManager_GetPriorityName(priority, &name));
        EXPECT_EQ(nullptr, name);
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(RegistryNames, GetPriorityName_OfANegativePriority_SucceedsWithUnknown) {
    for (const std::int32_t priority : {-1, -7, std::numeric_limits<std::int32_t>::min()}) {
        const char *name = nullptr;
        EXPECT_EQ(eAF_S_OK, CModuleManager_GetPriorityName(priority, &name));
        EXPECT_STREQ("UNKNOWN", name);
    }
}

TEST_F(RegistryNames, GetPriorityName_StaysValidAfterUnInitialize) {
    const char *name = nullptr;
    CModuleManager_GetPriorityName(2, &name);
    CModuleManager_UnInitialize();
    EXPECT_STREQ("HIGHER_THAN_NORMAL", name);
}

TEST_F(RegistryNames, PriorityName_OfEveryPriority_IsItsEnumeratorsSpelling) {
    const ECallbackPriority priorities[] = {HIGHEST, HIGH, HIGHER_THAN_NORMAL, NORMAL, LOWER_THAN_NORMAL, LOW, LOWEST};
    std::uint32_t value = 0;
    for (const ECallbackPriority priority : priorities) {
        EXPECT_EQ(value, static_cast<std::uint32_t>(priority));
        EXPECT_EQ(priorityNames[value], getECallbackPriorityName(priority));
        ++value;
    }
}

TEST_F(RegistryNames, PriorityName_From7On_IsUnknown) {
    for (const std::uint32_t value : {7u, 8u, 100u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ("UNKNOWN", getECallbackPriorityName(static_cast<ECallbackPriority>(value)));
    }
}

TEST_F(RegistryNames, PrioritiesAre32BitsUnsigned) {
    static_assert(sizeof(ECallbackPriority) == 4);
    EXPECT_GT(static_cast<ECallbackPriority>(0xFFFFFFFFu), LOWEST);
}

} // namespace
