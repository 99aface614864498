// What a store writes: flash wears out.
#include <gtest/gtest.h>

#include <cstdio>

#include "SimulatedDisk.h"
#include "StoreSupport.h"
#include "StoredRegion.h"

namespace {

using test::RunningProvider;
using test::SimulatedDisk;
using test::StoredRegion;

class SqliteBytesWrittenTest : public testing::Test {
protected:
    SqliteBytesWrittenTest() { disk.load({}); }

    struct Written {
        std::uint64_t bytes;
        std::size_t operations;
    };

    Written written(RunningProvider &provider) {
        const std::uint64_t bytes = disk.bytesWritten();
        const std::size_t operations = disk.operations();
        EXPECT_EQ(eAF_S_OK, provider.store(region));
        return {disk.bytesWritten() - bytes, disk.operations() - operations};
    }

    SimulatedDisk &disk = SimulatedDisk::instance();
    test::TemporaryFolder folder;
    std::string file = folder.file("store.db");
    StoredRegion region{{10000, 0, 0}};
};

TEST_F(SqliteBytesWrittenTest, ASecondStore_WritesWhatChanged) {
    region.fill(1);
    RunningProvider provider(file);
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    const Written first = written(provider);
    EXPECT_EQ(10000u, provider.statistics().noOfValuesWritten);

    const Written unchanged = written(provider);
    EXPECT_EQ(0u, provider.statistics().noOfValuesWritten);
    region.fill(2, 1);
    const Written one = written(provider);
    EXPECT_EQ(1u, provider.statistics().noOfValuesWritten);

    const std::size_t size = disk.image().begin()->second.size();
    std::printf("[  FIGURES ] 10000 values, file of %zu bytes; written: first store %llu bytes in %zu operations, "
                "nothing changed %llu in %zu, one value changed %llu in %zu\n",
                size, static_cast<unsigned long long>(first.bytes), first.operations,
                static_cast<unsigned long long>(unchanged.bytes), unchanged.operations,
                static_cast<unsigned long long>(one.bytes), one.operations);
    EXPECT_EQ(0u, unchanged.bytes);
    EXPECT_EQ(0u, unchanged.operations);
    EXPECT_GT(one.bytes, 0u);
    EXPECT_LE(one.bytes, std::uint64_t{5} * 4096)
        << "the page of the value and the file's first, here and in the journal";
    EXPECT_LE(first.bytes, size + std::uint64_t{2} * 4096) << "a new file needs no journal of its pages";
}

TEST_F(SqliteBytesWrittenTest, AStoreAfterARestart_WritesWhatChangedSinceTheRetrieve) {
    region.fill(1);
    {
        RunningProvider provider(file);
        ASSERT_EQ(eAF_S_OK, provider.store(region));
    }
    RunningProvider provider(file);
    region.fill(2);
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    const Written unchanged = written(provider);
    EXPECT_EQ(0u, unchanged.bytes);
    EXPECT_EQ(0u, unchanged.operations);
    region.fill(2, 3);
    EXPECT_GT(written(provider).bytes, 0u);
    EXPECT_EQ(3u, provider.statistics().noOfValuesWritten);
}

TEST_F(SqliteBytesWrittenTest, AStoreOfNothingNew_DoesNotNoticeThatTheFileWent) {
    region.fill(1);
    RunningProvider provider(file);
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    EXPECT_GT(written(provider).bytes, 0u);
    const SimulatedDisk::Image image = disk.image();
    for (const auto &[name, contents] : image) {
        disk.remove(name, false);
    }
    EXPECT_EQ(0u, written(provider).operations);
    EXPECT_TRUE(disk.image().empty());
}

TEST_F(SqliteBytesWrittenTest, AStart_WritesNothing) {
    region.fill(1);
    {
        RunningProvider provider(file);
        ASSERT_EQ(eAF_S_OK, provider.store(region));
    }
    const std::size_t before = disk.operations();
    RunningProvider provider(file);
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    EXPECT_EQ(before, disk.operations());
}

} // namespace
