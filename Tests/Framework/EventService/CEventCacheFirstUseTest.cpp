// A process in which no cache was ever made: each test here runs alone in one.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "CEventCache.h"

namespace {

constexpr std::uint32_t untouched = 0xA5A5A5A5u;

TEST(CEventCacheFirstUse, Add_BeforeAnyConstruct_IsNotInitialized) {
    CEventCache cache{};
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventCache_Add(&cache, 1, 1));
}

TEST(CEventCacheFirstUse, Add_ToANullCacheBeforeAnyConstruct_IsAnInvalidArgument) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventCache_Add(nullptr, 1, 1));
}

TEST(CEventCacheFirstUse, IsHit_BeforeAnyConstruct_MissesAndLeavesTheValueAlone) {
    std::vector<SEventCacheEntry> entries{{1, 77}};
    CEventCache cache{1, 1, 0, entries.data()};
    std::uint32_t value = untouched;
    EXPECT_EQ(0u, CEventCache_IsHit(&cache, 1, &value));
    EXPECT_EQ(untouched, value);
}

TEST(CEventCacheFirstUse, TheFirstConstruct_OpensEveryCacheForGood) {
    std::vector<SEventCacheEntry> entries{{1, 77}, {0, 0}};
    CEventCache byHand{2, 1, 1, entries.data()};
    CEventCache cache{};
    CEventCache_Construct(&cache, 4);
    CEventCache_Destruct(&cache);

    std::uint32_t value = untouched;
    EXPECT_EQ(1u, CEventCache_IsHit(&byHand, 1, &value));
    EXPECT_EQ(77u, value);
    EXPECT_EQ(eAF_S_OK, CEventCache_Add(&byHand, 2, 88));
}

} // namespace
