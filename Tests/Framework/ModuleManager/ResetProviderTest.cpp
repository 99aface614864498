#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "ModuleManagerFixture.h"

namespace {

using test::Lines;
using test::TraceRecorder;

/// What the last call of a provider received, and what providers answer.
struct Journal {
    int calls;
    const char *provider;
    std::uint32_t words[3];
    void *pointers[2];
    const SResetProvider *self;
    EAFResult answer;
    std::uint32_t coldReset;
};
Journal journal;

EAFResult performFirst(std::uint32_t first, std::uint32_t second, std::uint32_t third) {
    ++journal.calls;
    journal.provider = "first";
    journal.words[0] = first;
    journal.words[1] = second;
    journal.words[2] = third;
    return journal.answer;
}

EAFResult performSecond(std::uint32_t, std::uint32_t, std::uint32_t) {
    ++journal.calls;
    journal.provider = "second";
    return journal.answer;
}

EAFResult getInfo(void *first, void *second, std::uint32_t third) {
    ++journal.calls;
    journal.pointers[0] = first;
    journal.pointers[1] = second;
    journal.words[2] = third;
    *static_cast<int *>(first) = 11;
    *static_cast<int *>(second) = 22;
    return journal.answer;
}

std::uint32_t isCold(SResetProvider *self) {
    ++journal.calls;
    journal.self = self;
    return journal.coldReset;
}

class ResetProvider : public test::ModuleManagerFixture {
protected:
    ResetProvider() { journal = {}; }

    SResetProvider first{&performFirst, &getInfo, &isCold};
    SResetProvider second{&performSecond, &getInfo, &isCold};
    int info = 0;
    int moreInfo = 0;
};

TEST_F(ResetProvider, PerformSystemReset_WithoutAProvider_IsNotRegisteredAndUntraced) {
    EXPECT_EQ(eAF_E_NOT_REGISTERED, CModuleManager_PerformSystemReset(1, 2, 3));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, PerformSystemReset_ForwardsTheThreeWordsUnchanged) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterResetProvider(&first));
    EXPECT_EQ(eAF_S_OK, CModuleManager_PerformSystemReset(1, 0xFFFFFFFFu, 0x80000000u));
    EXPECT_EQ(1, journal.calls);
    EXPECT_EQ(1u, journal.words[0]);
    EXPECT_EQ(0xFFFFFFFFu, journal.words[1]);
    EXPECT_EQ(0x80000000u, journal.words[2]);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, PerformSystemReset_ThatTheProviderFails_SucceedsAndTracesAPlainFailure) {
    CModuleManager_RegisterResetProvider(&first);
    for (const std::uint32_t code : {0x8000u, 0x8007u, 0xFFFFFFFFu}) {
        TraceRecorder::reset();
        journal.answer = static_cast<EAFResult>(code);
        EXPECT_EQ(eAF_S_OK, CModuleManager_PerformSystemReset(1, 2, 3));
        EXPECT_EQ((Lines{{"CModuleManager_PerformSystemReset",
                          "Error when calling Reset Provider to perform system reset", 0x8000}}),
                  TraceRecorder::lines());
    }
}

TEST_F(ResetProvider, AProvidersWarning_IsASuccessWithoutATrace) {
    CModuleManager_RegisterResetProvider(&first);
    for (const std::uint32_t code : {0x1000u, 0x7FFFu}) {
        journal.answer = static_cast<EAFResult>(code);
        EXPECT_EQ(eAF_S_OK, CModuleManager_PerformSystemReset(1, 2, 3));
        EXPECT_EQ(eAF_S_OK, CModuleManager_GetSystemResetInfo(&info, &moreInfo, 3));
    }
    EXPECT_EQ(4, journal.calls);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, GetSystemResetInfo_WithoutAProvider_IsNotRegisteredAndUntraced) {
    EXPECT_EQ(eAF_E_NOT_REGISTERED, CModuleManager_GetSystemResetInfo(&info, &moreInfo, 3));
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, GetSystemResetInfo_JudgesItsPointersBeforeItLooksForAProvider) {
    for (const bool withProvider : {false, true}) {
        if (withProvider) {
            CModuleManager_RegisterResetProvider(&first);
        }
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_GetSystemResetInfo(nullptr, &moreInfo, 3));
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_GetSystemResetInfo(&info, nullptr, 3));
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_GetSystemResetInfo(nullptr, nullptr, 3));
    }
    EXPECT_EQ(0, journal.calls);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, GetSystemResetInfo_LetsTheProviderFillBothRecords) {
    CModuleManager_RegisterResetProvider(&first);
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetSystemResetInfo(&info, &moreInfo, 0xFFFFFFFFu));
    EXPECT_EQ(&info, journal.pointers[0]);
    EXPECT_EQ(&moreInfo, journal.pointers[1]);
    EXPECT_EQ(0xFFFFFFFFu, journal.words[2]);
    EXPECT_EQ(11, info);
    EXPECT_EQ(22, moreInfo);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, GetSystemResetInfo_ThatTheProviderFails_SucceedsAndTracesAPlainFailure) {
    CModuleManager_RegisterResetProvider(&first);
    journal.answer = eAF_E_NOT_IMPLEMENTED;
    EXPECT_EQ(eAF_S_OK, CModuleManager_GetSystemResetInfo(&info, &moreInfo, 3));
    EXPECT_EQ((Lines{{"CModuleManager_GetSystemResetInfo", "Error when calling Reset Info Provider", 0x8000}}),
              TraceRecorder::lines());
}

TEST_F(ResetProvider, IsColdReset_WithoutAProvider_IsFalse) {
    EXPECT_EQ(0u, CModuleManager_IsColdReset());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, IsColdReset_HandsTheProviderToItselfAndReturnsItsAnswerUnchanged) {
    CModuleManager_RegisterResetProvider(&first);
    for (const std::uint32_t answer : {0u, 1u, 42u, 0x8000u, 0xFFFFFFFFu}) {
        journal.coldReset = answer;
        journal.self = nullptr;
        EXPECT_EQ(answer, CModuleManager_IsColdReset());
        EXPECT_EQ(&first, journal.self);
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, RegisterResetProvider_Again_ReplacesTheFirst) {
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterResetProvider(&first));
    EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterResetProvider(&second));
    CModuleManager_PerformSystemReset(1, 2, 3);
    CModuleManager_IsColdReset();
    EXPECT_STREQ("second", journal.provider);
    EXPECT_EQ(2, journal.calls);
    EXPECT_EQ(&second, journal.self);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, RegisterResetProvider_OfNull_IsRefusedUntracedAndKeepsTheOneBefore) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterResetProvider(nullptr));
    EXPECT_EQ(eAF_E_NOT_REGISTERED, CModuleManager_PerformSystemReset(1, 2, 3));
    CModuleManager_RegisterResetProvider(&first);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CModuleManager_RegisterResetProvider(nullptr));
    EXPECT_EQ(eAF_S_OK, CModuleManager_PerformSystemReset(1, 2, 3));
    EXPECT_STREQ("first", journal.provider);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ResetProvider, RegistrationAndUnInitialize_NeverCallTheProvider) {
    CModuleManager_RegisterResetProvider(&first);
    CModuleManager_RegisterResetProvider(&second);
    CModuleManager_UnInitialize();
    CModuleManager_Initialize();
    EXPECT_EQ(0, journal.calls);
}

TEST_F(ResetProvider, TheTable_HoldsItsFunctionsInTheSettledOrder) {
    static_assert(offsetof(SResetProvider, performSystemReset) == 0);
    static_assert(offsetof(SResetProvider, getSystemResetInfo) == sizeof(void (*)()));
    static_assert(offsetof(SResetProvider, isColdReset) == 2 * sizeof(void (*)()));
    EXPECT_EQ(3 * sizeof(void (*)()), sizeof(SResetProvider));
}

} // namespace
