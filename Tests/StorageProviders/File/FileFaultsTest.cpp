// Each system call of a store or a retrieve fails in turn, with each error that matters.
#include <fcntl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "FileStoreFixture.h"
#include "SystemCalls.h"

namespace {

using test::FileStoreFixture;
using test::SystemCalls;
using testing::HasSubstr;

std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

class FileFaults : public FileStoreFixture, public testing::WithParamInterface<int> {
protected:
    ~FileFaults() override { SystemCalls::ignore(); }
};
INSTANTIATE_TEST_SUITE_P(Errors, FileFaults,
                         testing::Values(EIO, ENOSPC, EDQUOT, EROFS, EACCES, EMFILE, ENFILE, ENOMEM));

TEST_P(FileFaults, OfAStore_IsACodeAndTheValuesAreTheOldOrTheNewOnes) {
    for (int number = 0;; ++number) {
        ASSERT_EQ(eAF_S_OK, write({value(1)}));
        const std::size_t descriptors = openDescriptors();
        storage::FileStore store(file);
        ASSERT_EQ(eAF_S_OK, store.open(storage::Access::readWrite, messages));
        messages.texts.clear();
        SystemCalls::watch(folder);
        SystemCalls::fail(number, GetParam());
        const EAFResult code = store.write({value(2)}, messages);
        const std::vector<std::string> calls = SystemCalls::calls();
        SystemCalls::ignore();
        if (static_cast<int>(calls.size()) <= number) {
            EXPECT_EQ(eAF_S_OK, code);
            EXPECT_GE(number, 12) << "calls that a store makes";
            break;
        }
        const std::string &call = calls[static_cast<std::size_t>(number)];
        // A descriptor that was only read is closed without asking how that went.
        const bool isHarmless = call == "close" && code == eAF_S_OK;
        if (!isHarmless) {
            EXPECT_GE(code, eAF_E_FAILED) << call;
            ASSERT_FALSE(messages.texts.empty()) << call;
            EXPECT_THAT(messages.texts.back(), HasSubstr(file));
            EXPECT_THAT(messages.texts.back(), HasSubstr(std::strerror(GetParam()))) << call;
        }
        storage::StoredValues values;
        ASSERT_EQ(eAF_S_OK, store.read(values, messages)) << call;
        ASSERT_EQ(1u, values.size()) << call;
        EXPECT_TRUE(values[0] == value(1) || values[0] == value(2)) << call;
        EXPECT_EQ(eAF_S_OK, store.write({value(3)}, messages)) << "the same store succeeds afterwards: " << call;
        EXPECT_EQ(descriptors + 1, openDescriptors()) << "its lock alone: " << call;
    }
}

TEST_P(FileFaults, OfARetrieve_IsACodeAndNothingIsLost) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    const auto before = files();
    for (int number = 0;; ++number) {
        SystemCalls::watch(folder);
        SystemCalls::fail(number, GetParam());
        EAFResult code = eAF_S_OK;
        const std::int32_t found = readOne(code);
        const std::size_t noOfCalls = SystemCalls::calls().size();
        SystemCalls::ignore();
        EXPECT_EQ(before, files()) << number;
        if (static_cast<int>(noOfCalls) <= number) {
            EXPECT_EQ(2, found);
            EXPECT_GE(number, 8) << "calls that a retrieve makes";
            break;
        }
        EXPECT_TRUE(code >= eAF_E_FAILED || found == 2) << number << ": an unreadable store is no empty one";
    }
}

TEST_F(FileStoreFixture, AWriteThatTakesHalfOrIsInterrupted_IsContinued) {
    SystemCalls::watch(folder);
    SystemCalls::shortWrites(true);
    const EAFResult code = write({value(7), {"Long", TYPE_UINT8_ARRAY, 5000, std::vector<unsigned char>(5000, 3)}});
    SystemCalls::ignore();
    EXPECT_EQ(eAF_S_OK, code);
    EAFResult read = eAF_E_FAILED;
    EXPECT_EQ(7, readOne(read));
}

TEST_F(FileStoreFixture, UnchangedValuesWriteNothing_AndOneOfTenThousandWritesOneFile) {
    storage::StoredValues values;
    for (int i = 0; i < 10000; ++i) {
        values.push_back(value(i, "Cfg/Object/Variable" + std::to_string(i)));
    }
    SystemCalls::watch(folder);
    ASSERT_EQ(eAF_S_OK, write(values));
    const std::uint64_t whole = SystemCalls::bytesWritten();
    SystemCalls::reset();
    ASSERT_EQ(eAF_S_OK, write({}));
    EXPECT_EQ(0u, SystemCalls::bytesWritten());
    ASSERT_EQ(eAF_S_OK, write({value(-1, "Cfg/Object/Variable7")}));
    const std::uint64_t one = SystemCalls::bytesWritten();
    SystemCalls::ignore();
    std::printf("bytes written: 10,000 values %llu, none changed 0, one changed %llu\n",
                static_cast<unsigned long long>(whole), static_cast<unsigned long long>(one));
    EXPECT_EQ(whole, one) << "the file is written anew";
}

} // namespace
