#include "CEventCache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

#include "TraceRecorder.h"

namespace {

constexpr std::uint32_t untouched = 0xA5A5A5A5u;

class CEventCacheTest : public testing::Test {
protected:
    CEventCacheTest() {
        test::TraceRecorder::reset();
        CEventCache_Construct(&m_cache, 64);
    }
    ~CEventCacheTest() override { CEventCache_Destruct(&m_cache); }

    void construct(std::uint32_t capacity) {
        CEventCache_Destruct(&m_cache);
        CEventCache_Construct(&m_cache, capacity);
    }
    void add(std::uint32_t first, std::uint32_t last) {
        for (std::uint32_t key = first; key <= last; ++key) {
            ASSERT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, key, valueOf(key)));
        }
    }
    bool holds(std::uint32_t key) {
        std::uint32_t value = untouched;
        const std::uint32_t hit = CEventCache_IsHit(&m_cache, key, &value);
        EXPECT_EQ(hit == 1 ? valueOf(key) : 0u, value) << "key " << key;
        EXPECT_LE(hit, 1u);
        return hit == 1;
    }
    static std::uint32_t valueOf(std::uint32_t key) { return key * 3 + 7; }

    CEventCache m_cache{};
};

TEST_F(CEventCacheTest, TheRecordsKeepTheirFieldOrder) {
    EXPECT_LT(offsetof(CEventCache, capacity), offsetof(CEventCache, count));
    EXPECT_LT(offsetof(CEventCache, count), offsetof(CEventCache, next));
    EXPECT_LT(offsetof(CEventCache, next), offsetof(CEventCache, entries));
    EXPECT_EQ(0u, offsetof(SEventCacheEntry, key));
    EXPECT_EQ(4u, offsetof(SEventCacheEntry, value));
    EXPECT_EQ(8u, sizeof(SEventCacheEntry));
}

TEST_F(CEventCacheTest, Construct_MakesAnEmptyCacheOfTheCapacity) {
    CEventCache cache;
    cache.capacity = cache.count = cache.next = untouched;
    CEventCache_Construct(&cache, 5);
    EXPECT_EQ(5u, cache.capacity);
    EXPECT_EQ(0u, cache.count);
    EXPECT_EQ(0u, cache.next);
    EXPECT_NE(nullptr, cache.entries);
    CEventCache_Destruct(&cache);
}

TEST_F(CEventCacheTest, Add_WritesKeyAndValueIntoTheNextSlot) {
    EXPECT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, 11, 1));
    EXPECT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, 22, 2));
    EXPECT_EQ(2u, m_cache.count);
    EXPECT_EQ(2u, m_cache.next);
    EXPECT_EQ(11u, m_cache.entries[0].key);
    EXPECT_EQ(1u, m_cache.entries[0].value);
    EXPECT_EQ(22u, m_cache.entries[1].key);
    EXPECT_EQ(2u, m_cache.entries[1].value);
}

TEST_F(CEventCacheTest, Add_OfAKeyThatIsThere_SaysSoAndKeepsTheFirstValue) {
    CEventCache_Add(&m_cache, 11, 1);
    EXPECT_EQ(eAF_I_ALREADY_CACHED, CEventCache_Add(&m_cache, 11, 2));
    std::uint32_t value = 0;
    EXPECT_EQ(1u, CEventCache_IsHit(&m_cache, 11, &value));
    EXPECT_EQ(1u, value);
    EXPECT_EQ(1u, m_cache.count);
    EXPECT_EQ(1u, m_cache.next);
}

TEST_F(CEventCacheTest, AddOfThe64th_FillsTheCacheAndTurnsNextBackToTheFirstSlot) {
    add(1, 63);
    EXPECT_EQ(63u, m_cache.next);
    add(64, 64);
    EXPECT_EQ(64u, m_cache.count);
    EXPECT_EQ(0u, m_cache.next);
    for (std::uint32_t key = 1; key <= 64; ++key) {
        EXPECT_TRUE(holds(key)) << key;
    }
}

TEST_F(CEventCacheTest, AddOfThe65th_OverwritesTheOldest) {
    add(1, 65);
    EXPECT_FALSE(holds(1));
    for (std::uint32_t key = 2; key <= 65; ++key) {
        EXPECT_TRUE(holds(key)) << key;
    }
    EXPECT_EQ(64u, m_cache.count);
    EXPECT_EQ(1u, m_cache.next);
}

TEST_F(CEventCacheTest, Replacement_GoesByInsertionWhateverWasHit) {
    construct(3);
    add(1, 3);
    for (int hits = 0; hits < 10; ++hits) {
        EXPECT_TRUE(holds(1));
    }
    EXPECT_EQ(eAF_I_ALREADY_CACHED, CEventCache_Add(&m_cache, 1, 99));
    add(4, 4);
    EXPECT_FALSE(holds(1)) << "neither a hit nor a repeated add refreshes an entry";
    add(1, 1);
    EXPECT_FALSE(holds(2));
    EXPECT_TRUE(holds(3));
    EXPECT_TRUE(holds(4));
    EXPECT_TRUE(holds(1));
}

TEST_F(CEventCacheTest, Replacement_GoesRoundTheRingManyTimes) {
    construct(4);
    add(1, 103);
    EXPECT_EQ(4u, m_cache.count);
    EXPECT_EQ(103u % 4u, m_cache.next);
    for (std::uint32_t key = 1; key <= 103; ++key) {
        EXPECT_EQ(key > 99, holds(key)) << key;
    }
}

TEST_F(CEventCacheTest, ACacheOfOneSlot_HoldsTheLastKey) {
    construct(1);
    add(1, 2);
    EXPECT_FALSE(holds(1));
    EXPECT_TRUE(holds(2));
    EXPECT_EQ(0u, m_cache.next);
    EXPECT_EQ(1u, m_cache.count);
}

TEST_F(CEventCacheTest, AnyKeyAndValueIsGoodEnough) {
    constexpr auto top = std::numeric_limits<std::uint32_t>::max();
    EXPECT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, 0, top));
    EXPECT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, top, 0));
    std::uint32_t value = untouched;
    EXPECT_EQ(1u, CEventCache_IsHit(&m_cache, 0, &value));
    EXPECT_EQ(top, value);
    EXPECT_EQ(1u, CEventCache_IsHit(&m_cache, top, &value));
    EXPECT_EQ(0u, value);
}

TEST_F(CEventCacheTest, IsHit_OnAMiss_WritesZero) {
    std::uint32_t value = untouched;
    EXPECT_EQ(0u, CEventCache_IsHit(&m_cache, 0, &value)) << "an unused slot is never read";
    EXPECT_EQ(0u, value);
    add(1, 3);
    value = untouched;
    EXPECT_EQ(0u, CEventCache_IsHit(&m_cache, 4, &value));
    EXPECT_EQ(0u, value);
}

TEST_F(CEventCacheTest, IsHit_TakesTheFirstSlotWithTheKey) {
    add(1, 2);
    m_cache.entries[1] = {1, 99};
    std::uint32_t value = 0;
    EXPECT_EQ(1u, CEventCache_IsHit(&m_cache, 1, &value));
    EXPECT_EQ(valueOf(1), value);
}

TEST_F(CEventCacheTest, IsHit_OfANullCache_LeavesTheValueAlone) {
    std::uint32_t value = untouched;
    EXPECT_EQ(0u, CEventCache_IsHit(nullptr, 1, &value));
    EXPECT_EQ(untouched, value);
}

TEST_F(CEventCacheTest, IsHit_WithoutAPlaceForTheValue_StillAnswers) {
    add(1, 1);
    EXPECT_EQ(1u, CEventCache_IsHit(&m_cache, 1, nullptr));
    EXPECT_EQ(0u, CEventCache_IsHit(&m_cache, 2, nullptr));
}

TEST_F(CEventCacheTest, Add_ToANullCache_IsRefused) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CEventCache_Add(nullptr, 1, 1));
}

TEST_F(CEventCacheTest, Destruct_FreesTheEntriesAndLeavesTheCountsAlone) {
    construct(3);
    add(1, 4);
    CEventCache_Destruct(&m_cache);
    EXPECT_EQ(nullptr, m_cache.entries);
    EXPECT_EQ(3u, m_cache.capacity);
    EXPECT_EQ(3u, m_cache.count);
    EXPECT_EQ(1u, m_cache.next);
}

TEST_F(CEventCacheTest, Destruct_ASecondTimeOrOfNothing_DoesNothing) {
    CEventCache_Destruct(&m_cache);
    CEventCache_Destruct(&m_cache);
    CEventCache_Destruct(nullptr);
    CEventCache_Construct(nullptr, 4);
    EXPECT_EQ(nullptr, m_cache.entries);
}

TEST_F(CEventCacheTest, BetweenDestructAndConstruct_NothingIsHeldAndNothingIsRead) {
    add(1, 3);
    CEventCache_Destruct(&m_cache);
    EXPECT_FALSE(holds(1));
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventCache_Add(&m_cache, 1, 1));
    CEventCache_Construct(&m_cache, 64);
    EXPECT_FALSE(holds(1));
    EXPECT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, 1, valueOf(1)));
}

TEST_F(CEventCacheTest, ACacheWithoutSlots_HoldsNothing) {
    construct(0);
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventCache_Add(&m_cache, 1, 1));
    EXPECT_FALSE(holds(1));
}

TEST_F(CEventCacheTest, ACacheLargerThanMemoryCouldBe_HoldsNothing) {
    for (const std::uint32_t capacity : {0xFFFFFFFFu, 0x80000001u}) {
        SCOPED_TRACE(capacity);
        construct(capacity);
        EXPECT_EQ(0u, m_cache.capacity);
        EXPECT_EQ(eAF_E_OUT_OF_MEMORY, CEventCache_Add(&m_cache, 1, 1));
        EXPECT_FALSE(holds(1));
    }
}

TEST_F(CEventCacheTest, WhileAnotherThreadHoldsTheInsertion_AKeyIsLeftToALaterMissAndReadersGoOn) {
    construct(4);
    ASSERT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, 1, valueOf(1)));
    // What the header says of a thread that writes: it may be stopped there for as long as the system likes.
    m_cache.next |= 0x80000000u;
    EXPECT_EQ(eAF_W_COULD_NOT_CACHE_EVENT, CEventCache_Add(&m_cache, 2, valueOf(2)));
    EXPECT_EQ(eAF_I_ALREADY_CACHED, CEventCache_Add(&m_cache, 1, valueOf(1)));
    EXPECT_TRUE(holds(1));
    EXPECT_FALSE(holds(2));
    EXPECT_EQ(1u, m_cache.count);

    m_cache.next &= 0x7FFFFFFFu;
    EXPECT_EQ(eAF_S_OK, CEventCache_Add(&m_cache, 2, valueOf(2)));
    EXPECT_TRUE(holds(2));
}

TEST_F(CEventCacheTest, NothingIsTraced) {
    add(1, 65);
    CEventCache_Add(&m_cache, 65, 0);
    CEventCache_Add(nullptr, 1, 1);
    holds(1);
    CEventCache_Destruct(&m_cache);
    CEventCache_Add(&m_cache, 1, 1);
    EXPECT_EQ(0u, test::TraceRecorder::traceCalls());
}

TEST_F(CEventCacheTest, UnderSeveralThreads_AKeyNeverComesWithAnothersValue) {
    construct(8);
    constexpr std::uint32_t rounds = 20000;
    constexpr std::uint32_t keys = 48;
    std::atomic<std::uint32_t> mixedUp{0};
    std::atomic<std::uint32_t> hits{0};
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (std::uint32_t i = 0; i < rounds; ++i) {
                // Each key twice in a row: what the first asking cached, the second may hit.
                const std::uint32_t key = (i / 2 * (2 * thread + 1) + thread) % keys;
                std::uint32_t value = untouched;
                if (CEventCache_IsHit(&m_cache, key, &value) == 1) {
                    ++hits;
                    mixedUp += value != valueOf(key) ? 1u : 0u;
                } else {
                    mixedUp += value != 0 ? 1u : 0u;
                    CEventCache_Add(&m_cache, key, valueOf(key));
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0u, mixedUp);
    EXPECT_GT(hits, 0u);
    EXPECT_EQ(8u, m_cache.count);
    EXPECT_LT(m_cache.next, 8u);
    std::vector<std::uint32_t> held;
    for (std::uint32_t key = 0; key < keys; ++key) {
        if (holds(key)) {
            held.push_back(key);
        }
    }
    EXPECT_EQ(8u, held.size()) << "a key is held at most once";
}

TEST_F(CEventCacheTest, UnderSeveralThreads_WhatWasAddedIsHeld) {
    constexpr std::uint32_t noOfThreads = 4;
    constexpr std::uint32_t keysEach = 1000;
    construct(noOfThreads * keysEach);
    std::vector<std::vector<std::uint32_t>> added(noOfThreads);
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < noOfThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (std::uint32_t key = thread * keysEach; key < (thread + 1) * keysEach; ++key) {
                if (CEventCache_Add(&m_cache, key, valueOf(key)) == eAF_S_OK) {
                    added[thread].push_back(key);
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    std::size_t count = 0;
    for (const std::vector<std::uint32_t> &keys : added) {
        count += keys.size();
        EXPECT_TRUE(std::all_of(keys.begin(), keys.end(), [this](std::uint32_t key) { return holds(key); }));
    }
    EXPECT_EQ(count, m_cache.count);
    EXPECT_LE(keysEach, count) << "a thread that finds another one inserting may leave its key out, not all do";
}

} // namespace
