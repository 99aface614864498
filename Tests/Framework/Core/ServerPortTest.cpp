#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "CApplicationFramework.h"
#include "TraceRecorder.h"

namespace {

using test::TraceRecorder;

class ServerPort : public testing::Test {
protected:
    ServerPort() { TraceRecorder::reset(); }
};

TEST_F(ServerPort, BeforeAnyWrite_IsZero) {
    EXPECT_EQ(0, CApplicationFramework_GetServerPort());
}

TEST_F(ServerPort, SetServerPort_BelowTheLimit_IsStoredAsGiven) {
    constexpr auto lowest = std::numeric_limits<std::int32_t>::min();
    for (const std::int32_t port : {65535, 1, 0, -1, -65536, lowest}) {
        EXPECT_EQ(eAF_S_OK, CApplicationFramework_SetServerPort(port));
        EXPECT_EQ(port, CApplicationFramework_GetServerPort());
    }
}

TEST_F(ServerPort, SetServerPort_FromTheLimitOn_IsRefusedWithoutATraceAndKeepsThePort) {
    CApplicationFramework_SetServerPort(4711);
    for (const std::int32_t port : {65536, 65537, std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CApplicationFramework_SetServerPort(port));
        EXPECT_EQ(4711, CApplicationFramework_GetServerPort());
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ServerPort, FinalInitialization_TakesTheNinthWordWithoutARangeCheck) {
    std::array<std::uint32_t, 9> configuration{};
    for (const std::int32_t port : {70000, 65536, -70000, 0, std::numeric_limits<std::int32_t>::max()}) {
        configuration.fill(0xA5A5A5A5u);
        configuration[8] = static_cast<std::uint32_t>(port);
        EXPECT_EQ(eAF_S_OK, CApplicationFramework_FinalInitialization(configuration.data()));
        EXPECT_EQ(port, CApplicationFramework_GetServerPort());
    }
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ServerPort, FinalInitialization_ReadsNothingBehindTheNinthWordOfAnUnalignedRecord) {
    // Exactly as long as what is read, so that a sanitizer sees any byte more.
    std::vector<char> record(9 * sizeof(std::int32_t) + 1);
    const std::int32_t port = 1234;
    std::memcpy(record.data() + 1 + 8 * sizeof port, &port, sizeof port);
    EXPECT_EQ(eAF_S_OK, CApplicationFramework_FinalInitialization(record.data() + 1));
    EXPECT_EQ(port, CApplicationFramework_GetServerPort());
}

TEST_F(ServerPort, FinalInitialization_OfANullRecord_IsRefusedAndKeepsThePort) {
    CApplicationFramework_SetServerPort(4711);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CApplicationFramework_FinalInitialization(nullptr));
    EXPECT_EQ(4711, CApplicationFramework_GetServerPort());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(ServerPort, InitializeAndUnInitialize_LeaveItAlone) {
    CApplicationFramework_SetServerPort(4711);
    CApplicationFramework_Initialize();
    EXPECT_EQ(4711, CApplicationFramework_GetServerPort());
    CApplicationFramework_SetServerPort(4712);
    CApplicationFramework_UnInitialize();
    EXPECT_EQ(4712, CApplicationFramework_GetServerPort());
}

} // namespace
