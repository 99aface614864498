#include <pwd.h>
#include <unistd.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <thread>

#include "CApplicationFramework.h"
#include "CFrameworkUtils.h"
#include "TraceRecorder.h"

/// As the C library's, it answers in memory of its own, which the next call writes over; here that shows for a while.
passwd *getpwuid(uid_t user) { // NOLINT(readability-inconsistent-declaration-parameter-name): a reserved name there
    static const auto forward = reinterpret_cast<passwd *(*)(uid_t)>(dlsym(RTLD_NEXT, "getpwuid"));
    static passwd answer;
    static std::array<char, 256> name;
    name = {"somebody else"};
    sched_yield();
    answer = *forward(user);
    name[std::string(answer.pw_name).copy(name.data(), name.size() - 1)] = '\0';
    answer.pw_name = name.data();
    return &answer;
}

namespace {

using test::TraceRecorder;
using Lines = std::vector<test::Line>;

class MQueueName : public testing::Test {
protected:
    MQueueName() {
        TraceRecorder::reset();
        m_buffer.fill('#');
        CApplicationFramework_SetServerPort(4711);
    }

    EAFResult build(std::size_t size, const std::string &suffix = "Lee") {
        return CFrameworkUtils_GetMQueueName(m_buffer.data(), static_cast<std::int32_t>(size), suffix.c_str());
    }
    std::string text() const { return m_buffer.data(); }
    static Lines traceOf(const std::string &name) {
        return {{"CFrameworkUtils_GetMQueueName", "  MQueueName = " + name, 0x800}};
    }
    void expectUntouchedFrom(std::size_t first) const {
        for (std::size_t i = first; i < m_buffer.size(); ++i) {
            ASSERT_EQ('#', m_buffer.at(i)) << "byte " << i;
        }
    }

    const std::string m_user = getpwuid(getuid())->pw_name;
    const std::string m_name = "/" + m_user + "_4711_Lee";
    std::array<char, 512> m_buffer{};
};

TEST_F(MQueueName, IsSlashUserPortAndSuffix) {
    EXPECT_EQ(eAF_S_OK, build(m_buffer.size()));
    EXPECT_EQ(m_name, text());
    EXPECT_EQ(traceOf(m_name), TraceRecorder::lines());
}

TEST_F(MQueueName, ThePortIsSignedDecimal) {
    for (const std::int32_t port : {0, 65535, -1, std::numeric_limits<std::int32_t>::min()}) {
        CApplicationFramework_SetServerPort(port);
        build(m_buffer.size());
        EXPECT_EQ("/" + m_user + "_" + std::to_string(port) + "_Lee", text());
    }
}

TEST_F(MQueueName, ASizeOneAboveTheLength_Fits) {
    EXPECT_EQ(eAF_S_OK, build(m_name.size() + 1));
    EXPECT_EQ(m_name, text());
    expectUntouchedFrom(m_name.size() + 1);
}

TEST_F(MQueueName, ASizeOfExactlyTheLength_IsTooSmallAndCuts) {
    EXPECT_EQ(eAF_E_BUFFER_TOO_SMALL, build(m_name.size()));
    const std::string cut = m_name.substr(0, m_name.size() - 1);
    EXPECT_EQ(cut, text());
    EXPECT_EQ(traceOf(cut), TraceRecorder::lines());
    expectUntouchedFrom(m_name.size());
}

TEST_F(MQueueName, EverySmallerSize_CutsAndTerminates) {
    for (std::size_t size = 1; size < m_name.size(); ++size) {
        m_buffer.fill('#');
        EXPECT_EQ(eAF_E_BUFFER_TOO_SMALL, build(size));
        EXPECT_EQ(m_name.substr(0, size - 1), text());
        expectUntouchedFrom(size);
    }
}

TEST_F(MQueueName, ASizeOfZeroOrLess_WritesAndTracesNothing) {
    for (const std::int32_t size : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
        EXPECT_EQ(eAF_E_BUFFER_TOO_SMALL, CFrameworkUtils_GetMQueueName(m_buffer.data(), size, "Lee"));
    }
    expectUntouchedFrom(0);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(MQueueName, AnEmptySuffix_IsAllowed) {
    EXPECT_EQ(eAF_S_OK, build(m_buffer.size(), ""));
    EXPECT_EQ("/" + m_user + "_4711_", text());
}

TEST_F(MQueueName, FormatCharactersInTheSuffix_AreText) {
    EXPECT_EQ(eAF_S_OK, build(m_buffer.size(), "%s%n%d"));
    EXPECT_EQ("/" + m_user + "_4711_%s%n%d", text());
    EXPECT_EQ(traceOf(text()), TraceRecorder::lines());
}

TEST_F(MQueueName, WithoutBufferOrSuffix_IsRefusedWithoutATrace) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFrameworkUtils_GetMQueueName(nullptr, 10, "Lee"));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFrameworkUtils_GetMQueueName(m_buffer.data(), 10, nullptr));
    expectUntouchedFrom(0);
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

TEST_F(MQueueName, IsWholeForEachOfSeveralThreads) {
    TraceRecorder::reset(test::levelOf(eAF_DEBUG) - 1); // The recorder's own lock would put the threads in an order.
    const auto askAgainAndAgain = [this] {
        std::array<char, 512> buffer{};
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(eAF_S_OK, CFrameworkUtils_GetMQueueName(buffer.data(), std::int32_t{buffer.size()}, "Lee"));
            EXPECT_EQ(m_name, buffer.data());
        }
    };
    std::thread other(askAgainAndAgain);
    askAgainAndAgain();
    other.join();
}

TEST_F(MQueueName, WithDebugTracingOff_IsNotTraced) {
    TraceRecorder::reset(test::levelOf(eAF_DEBUG) - 1);
    EXPECT_EQ(eAF_S_OK, build(m_buffer.size()));
    EXPECT_EQ(m_name, text());
    EXPECT_EQ(0u, TraceRecorder::traceCalls());
}

} // namespace
