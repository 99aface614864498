// The next generation holds what packing every value anew would make, whatever the order in which values are told.
#include "RecordMerge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using storage::Bytes;
using storage::packStore;
using storage::RecordMerge;
using storage::StoredValue;
using storage::StoredValues;

StoredValue text(const std::string &path, const std::string &content) {
    return {path, TYPE_STRING, static_cast<std::uint32_t>(content.size()), {content.begin(), content.end()}};
}

bool isChange(const StoredValues &stored, const StoredValues &values) {
    return RecordMerge(packStore(stored, 6), {values.begin(), values.end()}).isChanged();
}

/// @return what the values make of those that are stored, one by one.
StoredValues merged(StoredValues stored, const StoredValues &values) {
    for (const StoredValue &value : values) {
        const auto place = std::find_if(stored.begin(), stored.end(),
                                        [&value](const StoredValue &present) { return present.path == value.path; });
        if (place == stored.end()) {
            stored.push_back(value);
        } else {
            *place = value;
        }
    }
    return stored;
}

void expectMerge(const StoredValues &stored, const StoredValues &values) {
    const Bytes base = packStore(stored, 6);
    const StoredValues expected = merged(stored, values);
    const storage::ValueViews views(values.begin(), values.end());
    const RecordMerge merge(base, views);
    EXPECT_TRUE(merge.isChanged());
    EXPECT_EQ(storage::packedSize(expected), merge.size());
    EXPECT_EQ(packStore(expected, 7), merge.pack(7));
}

const StoredValues four{text("a", "1"), text("b", "22"), text("c", ""), text("d", "4444")};

TEST(RecordMerge, OfNoGeneration_PacksTheValues) {
    const Bytes none;
    const storage::ValueViews views(four.begin(), four.end());
    const RecordMerge merge(none, views);
    EXPECT_TRUE(merge.isChanged());
    EXPECT_EQ(storage::packedSize(four), merge.size());
    EXPECT_EQ(packStore(four, 1), merge.pack(1));
}

TEST(RecordMerge, OfAnEmptyGeneration_AddsTheValues) {
    expectMerge({}, four);
}

TEST(RecordMerge, OfValuesThatAreThere_IsNoChange) {
    EXPECT_FALSE(isChange(four, four));
    EXPECT_FALSE(isChange(four, {four[2]}));
    EXPECT_FALSE(isChange(four, {four[3], four[0]})) << "in another order";
    EXPECT_FALSE(isChange(four, {four[1], four[1]})) << "told twice";
}

TEST(RecordMerge, OfWhatDiffersInOneRespect_IsAChange) {
    const StoredValues stored{{"a", TYPE_INT8_ARRAY, 2, {1, 2}}};
    EXPECT_TRUE(isChange(stored, {{"a", TYPE_UINT8_ARRAY, 2, {1, 2}}}));
    EXPECT_TRUE(isChange(stored, {{"a", TYPE_INT8_ARRAY, 2, {1, 3}}}));
    EXPECT_TRUE(isChange(stored, {{"a", TYPE_INT8_ARRAY, 1, {1}}}));
    EXPECT_TRUE(isChange({{"a", TYPE_INT32, 1, {1, 2, 3, 4}}}, {{"a", TYPE_INT32, 2, {1, 2, 3, 4}}}));
}

TEST(RecordMerge, InTheOrderOfTheRecords_ReplacesThemWhereTheyStand) {
    expectMerge(four, {text("a", "one")});
    expectMerge(four, {text("b", ""), text("d", "four")});
    expectMerge(four, {text("a", "A"), text("b", "B"), text("c", "C"), text("d", "D")});
}

TEST(RecordMerge, InAnotherOrder_ReplacesThemWhereTheyStand) {
    expectMerge(four, {text("d", "D"), text("a", "A")});
    expectMerge(four, {text("c", "C"), text("b", "B"), text("d", "D"), text("a", "A")});
}

TEST(RecordMerge, OfNewPathsAmongOldOnes_AddsThemBehind) {
    expectMerge(four, {text("new", "1")});
    expectMerge(four, {text("a", "A"), text("new", "1"), text("c", "C"), text("newer", "2")});
    expectMerge(four, {four[0], text("new", "1"), four[3]});
}

TEST(RecordMerge, OfAPathThatIsToldTwice_TakesTheLast) {
    expectMerge(four, {text("b", "first"), text("b", "last")});
    expectMerge(four, {text("new", "first"), text("c", "C"), text("new", "last")});
    expectMerge(four, {text("b", "first"), four[1]});
}

TEST(RecordMerge, OfAnyValues_IsWhatPackingThemAnewMakes) {
    std::mt19937 random(11); // NOLINT(cert-msc51-cpp): the same stores each time
    for (int round = 0; round < 300; ++round) {
        StoredValues stored;
        for (std::size_t number = random() % 30; number > 0; --number) {
            stored.push_back(text("Region/Object/" + std::to_string(number), std::string(random() % 9, 'a')));
        }
        StoredValues values{text("Region/Object/always changed", std::to_string(round))};
        for (std::size_t count = random() % 12; count > 0; --count) {
            values.push_back(text("Region/Object/" + std::to_string(random() % 40), std::string(random() % 9, 'b')));
        }
        std::shuffle(values.begin(), values.end(), random);
        expectMerge(stored, values);
    }
}

} // namespace
