// A walk finds every value, wherever it stands, and finds it at once where the walk before left it.
#include "KnownWalk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using storage::KnownWalk;
using storage::PathIndex;
using storage::ValueTable;
using testing::ElementsAre;

ValueTable valuesOf(const std::vector<std::string> &paths) {
    ValueTable values;
    const unsigned char content = 0;
    for (const std::string &path : paths) {
        values.add({path, TYPE_INT8, 1, &content, 1});
    }
    return values;
}

std::vector<std::string> pathsOf(const ValueTable &values) {
    std::vector<std::string> paths;
    for (std::size_t place = 0; place < values.size(); ++place) {
        paths.emplace_back(values.path(place));
    }
    return paths;
}

std::vector<std::size_t> walk(ValueTable &known, const std::vector<std::string> &paths) {
    KnownWalk walk(known);
    std::vector<std::size_t> places;
    for (const std::string &path : paths) {
        places.push_back(walk.meet(path));
    }
    return places;
}

constexpr std::size_t again = KnownWalk::again;
constexpr std::size_t unknown = KnownWalk::unknown;

TEST(KnownWalk, InTheOrderOfTheValues_LeavesThemWhereTheyStand) {
    ValueTable known = valuesOf({"a", "b", "c"});
    EXPECT_THAT(walk(known, {"a", "b", "c"}), ElementsAre(0, 1, 2));
    EXPECT_THAT(pathsOf(known), ElementsAre("a", "b", "c"));
}

TEST(KnownWalk, InAnotherOrder_BringsTheValuesIntoIt) {
    ValueTable known = valuesOf({"a", "b", "c", "d"});
    EXPECT_THAT(walk(known, {"d", "b", "a", "c"}), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(pathsOf(known), ElementsAre("d", "b", "a", "c"));
}

TEST(KnownWalk, ThatMeetsNotAllOfThem_LeavesTheOthersBehind) {
    ValueTable known = valuesOf({"gone", "a", "b", "away", "c"});
    KnownWalk walk(known);
    EXPECT_EQ(0u, walk.meet("a"));
    EXPECT_EQ(1u, walk.meet("b"));
    EXPECT_EQ(2u, walk.meet("c"));
    EXPECT_EQ(3u, walk.noOfMet());
    EXPECT_THAT(pathsOf(known), testing::UnorderedElementsAre("a", "b", "c", "gone", "away"));
}

TEST(KnownWalk, ThatMeetsNewPaths_KnowsThemForNewOnesAndForMetOnes) {
    ValueTable known = valuesOf({"a", "b"});
    EXPECT_THAT(walk(known, {"new", "a", "newer", "b", "new", "newer"}),
                ElementsAre(unknown, 0, unknown, 1, again, again));
    ValueTable none;
    EXPECT_THAT(walk(none, {"a", "b", "a"}), ElementsAre(unknown, unknown, again));
}

TEST(KnownWalk, ThatMeetsAPathTwice_KnowsTheFirstAlone) {
    ValueTable known = valuesOf({"a", "b", "c"});
    EXPECT_THAT(walk(known, {"a", "a", "b", "a", "b", "c", "c"}), ElementsAre(0, again, 1, again, again, 2, again));
}

TEST(KnownWalk, OfAnyOrderAfterAnother_FindsWhatTheStoreHolds) {
    std::mt19937 random(7); // NOLINT(cert-msc51-cpp): the same walks each time
    std::vector<std::string> paths;
    for (int number = 0; number < 60; ++number) {
        paths.push_back("Region/Object of many/" + std::to_string(number));
    }
    ValueTable known = valuesOf({paths.begin(), paths.begin() + 40});
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> met = paths;
        std::rotate(met.begin(), met.begin() + static_cast<std::ptrdiff_t>(random() % met.size()), met.end());
        std::swap(met[random() % met.size()], met[random() % met.size()]);
        met.resize(random() % met.size());
        met.insert(met.end(), met.begin(), met.begin() + static_cast<std::ptrdiff_t>(met.size() / 8));
        const std::vector<std::string> before = pathsOf(known);
        const std::set<std::string> held(before.begin(), before.end());
        ASSERT_EQ(40u, held.size());
        const std::vector<std::size_t> places = walk(known, met);
        std::set<std::string> seen;
        for (std::size_t i = 0; i < met.size(); ++i) {
            if (!seen.insert(met[i]).second) {
                ASSERT_EQ(again, places[i]) << met[i];
            } else if (held.count(met[i]) == 0) {
                ASSERT_EQ(unknown, places[i]) << met[i];
            } else {
                ASSERT_LT(places[i], known.size()) << met[i];
                ASSERT_EQ(met[i], known.path(places[i]));
            }
        }
    }
}

TEST(PathIndex, OfManyPaths_FindsEachAndNoOther) {
    std::vector<std::string> paths;
    PathIndex index;
    const auto pathAt = [&](std::size_t place) { return std::string_view(paths[place]); };
    EXPECT_EQ(PathIndex::none, index.find("a", pathAt));
    for (std::size_t number = 0; number < 5000; ++number) {
        paths.push_back(std::to_string(number * 7919));
        ASSERT_EQ(PathIndex::none, index.add(paths.back(), number, pathAt));
    }
    for (std::size_t number = 0; number < paths.size(); ++number) {
        ASSERT_EQ(number, index.find(paths[number], pathAt));
        ASSERT_EQ(number, index.add(std::string(paths[number]), 5000, pathAt)) << "it is there";
        ASSERT_EQ(PathIndex::none, index.find(paths[number] + "x", pathAt));
    }
    index.clear();
    EXPECT_EQ(PathIndex::none, index.find(paths[0], pathAt));
}

TEST(PathIndex, OfPathsWithOneHash_TellsThemApart) {
    std::map<std::uint32_t, std::string> byHash;
    std::string one;
    std::string other;
    for (int number = 0; one.empty(); ++number) { // 32 bits are met again after some 80,000 of them
        const std::string path = "Region/Object/" + std::to_string(number);
        const auto hash = static_cast<std::uint32_t>(std::hash<std::string_view>{}(path));
        const auto [place, isNew] = byHash.emplace(hash, path);
        if (!isNew) {
            one = place->second;
            other = path;
        }
    }
    const std::vector<std::string> paths{one, other};
    const auto pathAt = [&](std::size_t place) { return std::string_view(paths[place]); };
    PathIndex index;
    EXPECT_EQ(PathIndex::none, index.add(one, 0, pathAt));
    EXPECT_EQ(PathIndex::none, index.find(other, pathAt));
    EXPECT_EQ(PathIndex::none, index.add(other, 1, pathAt));
    EXPECT_EQ(0u, index.find(one, pathAt));
    EXPECT_EQ(1u, index.find(other, pathAt));
}

} // namespace
