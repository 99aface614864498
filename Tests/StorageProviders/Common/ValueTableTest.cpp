// Values that share one block stay themselves, whatever is put in their places.
#include "ValueTable.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using storage::StoredValue;
using storage::StoredValues;
using storage::ValueTable;
using storage::ValueView;

StoredValue text(const std::string &path, const std::string &content) {
    return {path, TYPE_STRING, static_cast<std::uint32_t>(content.size()), {content.begin(), content.end()}};
}

StoredValue valueAt(const ValueTable &table, std::size_t place) {
    const ValueView value = table[place];
    return {std::string(value.path), value.type, value.noOfElements, {value.content, value.content + value.size}};
}

TEST(ValueTable, GivesBackWhatWasAdded) {
    ValueTable table;
    const StoredValues values{text("", ""), text("a", "content"), {"b", TYPE_INT16, 1, {1, 2}}};
    for (const StoredValue &value : values) {
        table.add(value);
    }
    ASSERT_EQ(values.size(), table.size());
    for (std::size_t place = 0; place < values.size(); ++place) {
        EXPECT_EQ(values[place], valueAt(table, place));
        EXPECT_EQ(values[place].path, table.path(place));
    }
    table.clear();
    EXPECT_EQ(0u, table.size());
}

TEST(ValueTable, AValueOfTheSameSize_TakesTheOthersPlaceWithTypeAndCount) {
    ValueTable table;
    table.add(StoredValue{"a", TYPE_INT32, 1, {1, 2, 3, 4}});
    table.add(text("b", "x"));
    const StoredValue other{"a", TYPE_UINT8_ARRAY, 4, {5, 6, 7, 8}};
    table.makeRoomFor({storage::ValueView(other)}, {0});
    table.put(other, 0);
    EXPECT_EQ(other, valueAt(table, 0));
    EXPECT_EQ(text("b", "x"), valueAt(table, 1));
}

TEST(ValueTable, AfterAnyPuts_HoldsTheLastOfEachPath) {
    std::mt19937 random(5); // NOLINT(cert-msc51-cpp): the same values each time
    ValueTable table;
    std::vector<StoredValue> expected;
    for (int round = 0; round < 500; ++round) {
        std::map<std::size_t, StoredValue> replaced;
        for (std::size_t count = expected.empty() ? 0 : random() % 4; count > 0; --count) {
            const std::size_t place = random() % expected.size();
            replaced[place] = text(expected[place].path, std::string(random() % 40, 'b'));
        }
        StoredValues values;
        std::vector<std::size_t> places;
        for (const auto &[place, value] : replaced) {
            values.push_back(value);
            places.push_back(place);
            expected[place] = value;
        }
        if (expected.size() < 30) {
            values.push_back(text("Region/Object/" + std::to_string(round), "new"));
            places.push_back(SIZE_MAX);
            expected.push_back(values.back());
        }
        table.makeRoomFor({values.begin(), values.end()}, places);
        for (std::size_t i = 0; i < values.size(); ++i) {
            table.put(values[i], places[i]);
        }
        if (round % 7 == 0) {
            table.swap(0, expected.size() - 1);
            std::swap(expected.front(), expected.back());
        }
        ASSERT_EQ(expected.size(), table.size());
        for (std::size_t place = 0; place < expected.size(); ++place) {
            ASSERT_EQ(expected[place], valueAt(table, place)) << "round " << round;
        }
    }
}

} // namespace
