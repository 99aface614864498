// Stores that zaf-store wrote on one target, read and written on by another: Stores/README.md tells how they came.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "StoreTool.h"

namespace storetool {
namespace {

namespace fs = std::filesystem;

class StoreOfATarget : public StoreTool, public testing::WithParamInterface<const char *> {
protected:
    StoreOfATarget() {
        fs::copy_file(fs::path(ZELAF_STORES_OF_TARGETS) / GetParam(), in("store"));
        fs::permissions(in("store"), fs::perms::owner_read | fs::perms::owner_write); // the sources may be read-only
    }

    bool isSqlite = std::string(GetParam()).find(".db") != std::string::npos;
};
INSTANTIATE_TEST_SUITE_P(As, StoreOfATarget, testing::Values("amd64.db", "amd64.store", "armhf.db", "armhf.store"),
                         [](const auto &file) {
                             std::string name = file.param;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

TEST_P(StoreOfATarget, HoldsEveryBitHere) {
    EXPECT_EQ("store: 25 values, 0 faults\n", tool("verify store").out);
    EXPECT_THAT(valuesIn("store", isSqlite), testing::UnorderedElementsAreArray(everySort()));
    ASSERT_EQ(0, tool("dump store store.json").exitCode);
    make("own", isSqlite, everySort());
    ASSERT_EQ(0, tool("dump own own.json").exitCode);
    EXPECT_EQ(bytesOf(in("own.json")), bytesOf(in("store.json")));
}

TEST_P(StoreOfATarget, IsWrittenOnHere) {
    StoredValues values = everySort();
    for (StoredValue &value : values) {
        if (value.path == "e") {
            value = single<std::int32_t>("e", TYPE_INT32, 7);
        }
    }
    EXPECT_EQ("e: -2147483648 -> 7\n", tool("set store e 7").out);
    EXPECT_THAT(valuesIn("store", isSqlite), testing::UnorderedElementsAreArray(values));
}

} // namespace
} // namespace storetool
