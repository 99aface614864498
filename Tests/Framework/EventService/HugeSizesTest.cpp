// The sizes are the caller's: any of them has a clear answer, and none takes memory that is not used.
#include <sys/resource.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "EventService.h"
#include "Sanitized.h"

// A sanitizer writes an eighth and more of what is reserved: beyond this it refuses, as a small machine would.
extern "C" const char *__asan_default_options() {
    return "max_allocation_size_mb=1024:allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options() {
    return "max_allocation_size_mb=1024:allocator_may_return_null=1";
}

namespace {

constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();

class HugeSizes : public test::EventService {
protected:
    HugeSizes() {
#ifndef ZELAF_SANITIZED
        // No machine's memory is worth a test: two gigabytes of addresses are what there is.
        EXPECT_EQ(0, getrlimit(RLIMIT_AS, &m_before));
        rlimit limit = m_before;
        limit.rlim_cur = rlim_t{2} << 30;
        EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
#endif
    }
    ~HugeSizes() override {
#ifndef ZELAF_SANITIZED
        setrlimit(RLIMIT_AS, &m_before);
#endif
    }

    static long kilobytesOf(const std::string &field) {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind(field + ":", 0) == 0) {
                return std::stol(line.substr(field.size() + 1));
            }
        }
        return -1;
    }

#ifndef ZELAF_SANITIZED
private:
    rlimit m_before{};
#endif
};

TEST_F(HugeSizes, BeyondWhatThereIs_AreOutOfMemoryAndLeaveTheHandlerNotInitialized) {
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> sizes{{most, most},  {most, 0},      {most, 1},
                                                                     {0, most},     {1, most},      {2, most},
                                                                     {most / 2, 2}, {65536, 65536}, {100, most}};
    for (int attempt = 0; attempt < 3; ++attempt) {
        for (const auto &size : sizes) {
            SCOPED_TRACE(std::to_string(size.first) + " events, " + std::to_string(size.second) + " listeners");
            ASSERT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(size.first, size.second));
            EXPECT_EQ(32788u, CEventHandler_GetNumberOfRegisteredEvents());
            EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_UnInitialize());
            EXPECT_TRUE(workerHasLeft()) << "no worker was made";
            EXPECT_FALSE(test::queueExists(test::expectedTaskQueueName()));
        }
    }
}

#ifndef ZELAF_SANITIZED
// A sanitizer keeps what was freed for a while, and has a leak check of its own.
TEST_F(HugeSizes, ARefusal_LosesNoMemory) {
    if (test::isEmulated() && sizeof(void *) > 4) {
        GTEST_SKIP() << "the emulator knows no limit of addresses, and the system counts the emulator's own";
    }
    CEventHandler_Initialize(most, most);
    const long before = kilobytesOf("VmSize");
    for (int attempt = 0; attempt < 50; ++attempt) {
        // What there is room for is reserved first, then given back: 8 MB, and the rows fail.
        ASSERT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(100000, 100000));
    }
    EXPECT_LT(kilobytesOf("VmSize"), before + 100L * 1024);
}
#endif

TEST_F(HugeSizes, AfterARefusal_AModestServiceWorks) {
    ASSERT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(most, most));
    initialize(2, 1);
    registerEvents({1, 2});
    test::Listener listener("A");
    EXPECT_EQ(eAF_S_OK, listener.add());
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(2));
    listener.pump();
    EXPECT_EQ(1u, listener.deliveries.size());
}

TEST_F(HugeSizes, ARefusal_IsNotTraced) {
    ASSERT_EQ(eAF_E_OUT_OF_MEMORY, CEventHandler_Initialize(most, most));
    EXPECT_EQ(test::Lines{}, test::TraceRecorder::failures());
}

TEST_F(HugeSizes, LargeSizesThatFit_CostOnlyWhatIsUsed) {
    const long before = kilobytesOf("VmRSS");
    initialize(200000, 500);
    registerEvents({1, 2, 3});
    test::Listener listener("A");
    EXPECT_EQ(eAF_S_OK, listener.add());
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(3));
    listener.pump();
    EXPECT_EQ(1u, listener.deliveries.size());
    CEventHandler_PumpEvent(500);
    EXPECT_EQ("Illegal listener handle (1F4)", traced().back().message);
#ifndef ZELAF_SANITIZED
    EXPECT_LT(kilobytesOf("VmRSS"), before + 20L * 1024) << "of the 800 MB reserved";
#endif
    EXPECT_GT(before, 0);
}

} // namespace
