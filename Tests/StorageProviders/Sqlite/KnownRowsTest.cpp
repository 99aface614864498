#include "KnownRows.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using storage::KnownRows;

/// @return the number of the path's row; 0 when none is known.
std::int64_t idOf(KnownRows &rows, const std::string &path) {
    const std::int64_t *id = rows.find(path);
    return id != nullptr ? *id : 0;
}

TEST(KnownRows, AreFoundInTheirOrderAndInAnyOther) {
    KnownRows rows;
    for (std::int64_t id = 1; id <= 100; ++id) {
        ASSERT_TRUE(rows.add("Region/" + std::to_string(id), id));
    }
    for (std::int64_t id = 1; id <= 100; ++id) {
        ASSERT_EQ(id, idOf(rows, "Region/" + std::to_string(id)));
    }
    for (std::int64_t id = 100; id > 0; id -= 3) {
        ASSERT_EQ(id, idOf(rows, "Region/" + std::to_string(id)));
    }
    EXPECT_EQ(0, idOf(rows, "Region/101"));
    EXPECT_EQ(1, idOf(rows, "Region/1"));
}

TEST(KnownRows, OfOnePath_AreTheFirstAlone) {
    KnownRows rows;
    EXPECT_TRUE(rows.add("a", 1));
    EXPECT_FALSE(rows.add("a", 2));
    EXPECT_TRUE(rows.add("b", 3));
    EXPECT_EQ(1, idOf(rows, "a"));
    EXPECT_EQ(3, idOf(rows, "b"));
}

TEST(KnownRows, ARowThatWasMadeAnew_ReplacesItsNumber) {
    KnownRows rows;
    rows.set("a", 1);
    rows.set("b", 2);
    rows.set("a", 7);
    EXPECT_EQ(7, idOf(rows, "a"));
    EXPECT_EQ(2, idOf(rows, "b"));
}

TEST(KnownRows, AfterClearing_AreNone) {
    KnownRows rows;
    rows.add("a", 1);
    rows.clear();
    EXPECT_EQ(0, idOf(rows, "a"));
    EXPECT_TRUE(rows.add("a", 2));
    EXPECT_EQ(2, idOf(rows, "a"));
}

} // namespace
