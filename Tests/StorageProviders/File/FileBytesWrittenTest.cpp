// What a store writes: flash wears out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "FileStoreFixture.h"
#include "StoredNumbers.h"
#include "SystemCalls.h"

namespace {

using test::Change;
using test::RunningProvider;
using test::StoredNumbers;
using test::SystemCalls;
using testing::IsEmpty;

class FileBytesWrittenTest : public testing::Test {
protected:
    FileBytesWrittenTest() {
        for (std::size_t i = 0; i < region.numbers.size(); ++i) {
            region.numbers[i] = static_cast<std::int32_t>(i * 7919);
        }
    }

    struct Written {
        std::uint64_t bytes;
        std::vector<std::string> calls;
        std::vector<Change> changes;
    };
    Written written(RunningProvider &provider) {
        const SystemCalls calls(folder.name());
        EXPECT_EQ(eAF_S_OK, provider.store(region));
        return {calls.bytesWritten(), calls.calls(), calls.changes()};
    }

    test::TemporaryFolder folder;
    std::string file = folder.file("s");
    StoredNumbers region{10000};
};

TEST_F(FileBytesWrittenTest, ASecondStore_WritesNothingUnlessSomethingChanged) {
    RunningProvider provider(file);
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    const Written first = written(provider);
    const auto size = static_cast<std::uint64_t>(std::filesystem::file_size(file));
    EXPECT_EQ(size, first.bytes);
    EXPECT_EQ(10000u, provider.statistics().noOfValuesWritten);

    const Written unchanged = written(provider);
    EXPECT_THAT(unchanged.calls, IsEmpty()) << "it does not even look";
    EXPECT_EQ(0u, unchanged.bytes);
    EXPECT_EQ(0u, provider.statistics().noOfValuesWritten);

    region.numbers[4711] = -1;
    const Written one = written(provider);
    EXPECT_EQ(1u, provider.statistics().noOfValuesWritten);
    EXPECT_EQ(size, one.bytes) << "the file, once";
    std::printf("[  FIGURES ] 10000 values, file of %llu bytes; written: first store %llu bytes, nothing changed %llu "
                "in %zu calls, one value changed %llu in %zu changes of the folder\n",
                static_cast<unsigned long long>(size), static_cast<unsigned long long>(first.bytes),
                static_cast<unsigned long long>(unchanged.bytes), unchanged.calls.size(),
                static_cast<unsigned long long>(one.bytes), one.changes.size());
}

TEST_F(FileBytesWrittenTest, AStoreAfterARestart_WritesNothingOfWhatWasRetrieved) {
    {
        RunningProvider provider(file);
        ASSERT_EQ(eAF_S_OK, provider.store(region));
    }
    RunningProvider provider(file);
    std::fill(region.numbers.begin(), region.numbers.end(), 0);
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    EXPECT_EQ(4711 * 7919, region.numbers[4711]);
    EXPECT_THAT(written(provider).calls, IsEmpty());
}

TEST_F(FileBytesWrittenTest, AStoreWithoutARetrieve_ReadsFirstAndWritesNothingOfWhatIsThere) {
    {
        RunningProvider provider(file);
        ASSERT_EQ(eAF_S_OK, provider.store(region));
    }
    RunningProvider provider(file);
    const Written unchanged = written(provider);
    EXPECT_THAT(unchanged.changes, IsEmpty());
    EXPECT_EQ(0u, unchanged.bytes);
}

} // namespace
