#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "EventService.h"

namespace {

using test::Lines;
using test::Listener;

class EventStatistics : public test::EventService {
protected:
    using Words = std::array<std::uint32_t, 7>;

    static Words words() {
        const SEventHandlerStatistics now = statistics();
        Words words{};
        static_assert(sizeof now == sizeof words);
        std::memcpy(words.data(), &now, sizeof now);
        return words;
    }
};

TEST_F(EventStatistics, AreSevenWordsInTheSettledOrder) {
    initialize(5, 3);
    registerEvents({1, 2, 3, 4});
    Listener good("A");
    Listener bad("B", eAF_E_FAILED);
    good.add();
    bad.add();
    // Three misses, two error responses, five pumped.
    CEventHandler_FireEvent(1);
    CEventHandler_FireEvent(2);
    CEventHandler_FireEvent(3);
    good.pump(3);
    bad.pump(2);
    EXPECT_EQ((Words{4, 5, 2, 3, 2, 5, 3}), words());
    EXPECT_EQ(0u, offsetof(SEventHandlerStatistics, noOfRegisteredEvents));
    EXPECT_EQ(4u, offsetof(SEventHandlerStatistics, maxNoOfEvents));
    EXPECT_EQ(8u, offsetof(SEventHandlerStatistics, noOfListeners));
    EXPECT_EQ(12u, offsetof(SEventHandlerStatistics, maxNoOfListeners));
    EXPECT_EQ(16u, offsetof(SEventHandlerStatistics, noOfErrorResponses));
    EXPECT_EQ(20u, offsetof(SEventHandlerStatistics, noOfPumpedEvents));
    EXPECT_EQ(24u, offsetof(SEventHandlerStatistics, noOfCacheMisses));
}

TEST_F(EventStatistics, GetStatistics_BeforeInitialize_IsNotInitializedAndTraced) {
    SEventHandlerStatistics untouched{1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_GetStatistics(&untouched));
    EXPECT_EQ(1u, untouched.noOfRegisteredEvents);
    EXPECT_EQ(7u, untouched.noOfCacheMisses);
    EXPECT_EQ((Lines{{"CEventHandler_GetStatistics", "CEventHandler has not been initialized", 0x8014}}), traced());
}

TEST_F(EventStatistics, AfterInitialize_OnlyTheCapacitiesAreSet) {
    initialize(6, 2);
    EXPECT_EQ((Words{0, 6, 0, 2, 0, 0, 0}), words());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(EventStatistics, ResetStatistics_ClearsTheThreeCountersOnly) {
    initialize(4, 2);
    registerEvents({1, 2});
    Listener bad("A", eAF_E_FAILED);
    bad.add();
    CEventHandler_FireEvent(1);
    bad.pump();
    ASSERT_EQ((Words{2, 4, 1, 2, 1, 1, 1}), words());
    CEventHandler_ResetStatistics();
    EXPECT_EQ((Words{2, 4, 1, 2, 0, 0, 0}), words());
    CEventHandler_FireEvent(1);
    EXPECT_EQ((Words{2, 4, 1, 2, 0, 0, 0}), words()) << "the cache keeps what it holds";
}

TEST_F(EventStatistics, ResetStatistics_WithoutInitialize_IsAllowed) {
    CEventHandler_ResetStatistics();
    EXPECT_EQ(Lines{}, traced());
    initialize(1, 1);
    EXPECT_EQ((Words{0, 1, 0, 1, 0, 0, 0}), words());
}

TEST_F(EventStatistics, AnotherInitialize_StartsAllCountsAnew) {
    initialize(4, 2);
    registerEvents({1});
    Listener bad("A", eAF_E_FAILED);
    bad.add();
    CEventHandler_FireEvent(1);
    bad.pump();
    unInitialize();
    initialize(9, 8);
    EXPECT_EQ((Words{0, 9, 0, 8, 0, 0, 0}), words());
    registerEvents({1});
    CEventHandler_FireEvent(1);
    EXPECT_EQ((Words{1, 9, 0, 8, 0, 0, 1}), words()) << "the cache was emptied too";
}

TEST_F(EventStatistics, ARefusedInitialize_ChangesNothing) {
    initialize(4, 2);
    registerEvents({1});
    CEventHandler_FireEvent(1);
    const Words before = words();
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, CEventHandler_Initialize(100, 100));
    EXPECT_EQ(before, words());
}

} // namespace
