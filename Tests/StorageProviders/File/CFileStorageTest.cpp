#include "CFileStorage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "FileStoreFixture.h"
#include "StoredNumbers.h"
#include "SystemCalls.h"
#include "TraceRecorder.h"

namespace {

namespace fs = std::filesystem;
using test::DomainTrace;
using test::StoredNumbers;
using test::SystemCalls;
using test::TraceRecorder;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CFileStorageTest : public testing::Test {
protected:
    CFileStorageTest() { TraceRecorder::reset(); }
    ~CFileStorageTest() override { CFileStorage_UnInitialize(); }
    CFileStorageTest(const CFileStorageTest &) = delete;
    CFileStorageTest &operator=(const CFileStorageTest &) = delete;

    std::string in(const std::string &name) const { return folder.file(name); }

    /// What the provider's own domain logged at a level.
    static std::vector<std::string> said(std::int32_t level) {
        std::vector<std::string> texts;
        for (const DomainTrace &record : TraceRecorder::domainRecords()) {
            if (record.domain == "ZEL.AF.STOR.FILE" && record.level == level) {
                texts.push_back(record.text);
            }
        }
        return texts;
    }

    test::TemporaryFolder folder;
};

TEST_F(CFileStorageTest, SetFile_RefusesNoName) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(1, nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(1, ""));
    EXPECT_THAT(said(1), ElementsAre(HasSubstr("no file name"), HasSubstr("no file name")));
}

TEST_F(CFileStorageTest, SetFile_RefusesAnotherLocationsFileHoweverItIsWritten) {
    ASSERT_EQ(eAF_S_OK, CFileStorage_SetFile(1, in("s").c_str()));
    fs::create_directory(in("sub"));
    fs::create_symlink("s", in("link"));
    fs::create_directory_symlink(folder.name(), in("sub/up"));
    for (const std::string &other : {in("s"), in("./s"), in("sub/../s"), in("link"), in("sub/up/s")}) {
        TraceRecorder::reset();
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(2, other.c_str())) << other;
        EXPECT_THAT(said(1),
                    ElementsAre(AllOf(HasSubstr(in("s")), HasSubstr("location 2"), HasSubstr("name another"))));
        SStorageStatistics statistics;
        EXPECT_EQ(eAF_E_UNKNOWN_LOCATION, CFileStorage_GetStatistics(2, &statistics));
    }
    EXPECT_EQ(eAF_S_OK, CFileStorage_SetFile(1, in("s").c_str())) << "its own";
    EXPECT_EQ(eAF_S_OK, CFileStorage_SetFile(2, in("other").c_str()));
}

TEST_F(CFileStorageTest, SetFile_RefusesWhatAnotherLocationKeepsBesideItsFile) {
    for (const char *suffix : {".1", ".new", ".lock"}) {
        CFileStorage_UnInitialize();
        ASSERT_EQ(eAF_S_OK, CFileStorage_SetFile(1, in("s").c_str()));
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(2, in(std::string("s") + suffix).c_str()));
        CFileStorage_UnInitialize();
        ASSERT_EQ(eAF_S_OK, CFileStorage_SetFile(2, in(std::string("s") + suffix).c_str()));
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(1, in("s").c_str()));
    }
}

TEST_F(CFileStorageTest, SetFile_TakesANameThatIsShorterThanWhatIsKeptBesideIt) {
    EXPECT_EQ(eAF_S_OK, CFileStorage_SetFile(1, "/s"));
    EXPECT_EQ(eAF_S_OK, CFileStorage_SetFile(2, "/.1")) << "it is beside no file that has a name";
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(3, "/s.1"));
}

TEST_F(CFileStorageTest, SetFile_OfANameThatCanNotBeFollowed_IsRefusedAndTheLocationKeepsItsFile) {
    ASSERT_EQ(eAF_S_OK, CFileStorage_SetFile(1, in("s").c_str()));
    fs::create_symlink("t", in("link"));
    for (const int error : {EIO, EACCES}) {
        TraceRecorder::reset();
        {
            SystemCalls calls(folder.name());
            calls.failEach("readlink link", error);
            EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, CFileStorage_SetFile(1, in("link").c_str()));
        }
        const char *advice =
            error == EIO ? "its disk failed: see the kernel's log" : "let the process search its folders";
        EXPECT_THAT(said(1),
                    ElementsAre("the name " + in("link") + " can not be followed, because where " + in("link") +
                                " leads can not be told (" + std::strerror(error) + "): " + advice));
    }
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(2, in("s").c_str())) << "which is still the first one's";
    EXPECT_EQ(eAF_S_OK, CFileStorage_SetFile(1, in("link").c_str())) << "once it can";
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, CFileStorage_SetFile(2, in("t").c_str()));
}

/// Resolved once: a later failure would leave the location without its store.
TEST_F(CFileStorageTest, AFileThatWasNamed_IsNotAskedForItsLinksAgain) {
    StoredNumbers region(1);
    SystemCalls calls(folder.name());
    ASSERT_EQ(eAF_S_OK, CFileStorage_SetFile(1, in("s").c_str()));
    EXPECT_THAT(calls.calls(), ElementsAre("readlink", "readlink s"));
    calls.failEach("readlink", EIO);
    EXPECT_EQ(eAF_S_OK, CFileStorage_GetProvider()->StoreAll(1, region.database(), 0));
    EXPECT_EQ(0u, calls.failures());
}

TEST_F(CFileStorageTest, SetFile_OfAnOpenLocationIsRefused) {
    ASSERT_EQ(eAF_S_OK, CFileStorage_SetFile(1, in("s").c_str()));
    ASSERT_EQ(eAF_S_OK, CFileStorage_GetProvider()->Initialize(1));
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, CFileStorage_SetFile(1, in("t").c_str()));
}

TEST_F(CFileStorageTest, AFileTakenWhenItWasNamed_DoesNotMoveWithTheWorkingFolder) {
    const fs::path earlier = fs::current_path();
    fs::current_path(folder.name());
    const EAFResult named = CFileStorage_SetFile(1, "s");
    fs::current_path(earlier);
    ASSERT_EQ(eAF_S_OK, named);
    StoredNumbers region(1);
    EXPECT_EQ(eAF_S_OK, CFileStorage_GetProvider()->StoreAll(1, region.database(), 0));
    EXPECT_TRUE(fs::exists(in("s")));
}

TEST_F(CFileStorageTest, AFallBack_IsAWarningThatSaysWhy) {
    StoredNumbers region(1);
    for (std::int32_t i = 1; i <= 2; ++i) {
        test::RunningProvider provider(in("s"));
        ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
        region.numbers[0] = i;
        ASSERT_EQ(eAF_S_OK, provider.store(region));
    }
    fs::resize_file(in("s"), 60);
    TraceRecorder::reset();
    test::RunningProvider provider(in("s"));
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    EXPECT_EQ(1, region.numbers[0]);
    EXPECT_THAT(said(3),
                ElementsAre(HasSubstr("the store " + in("s") + " is damaged (it is 60 bytes long"),
                            HasSubstr("the generation before, " + in("s.1") + ", is taken, because " + in("s"))));
    EXPECT_THAT(said(1), IsEmpty());
}

// Two values: what is stored after it is all of the last state, whatever lay there in between.
TEST_F(CFileStorageTest, AStoreThatSomebodyDamagedOrRemovedMeanwhile_IsWrittenWhole) {
    for (const bool isRemoved : {false, true}) {
        StoredNumbers region(2);
        {
            test::RunningProvider provider(in("s"));
            for (std::int32_t i = 1; i <= 2; ++i) {
                region.numbers = {i, 10 * i};
                ASSERT_EQ(eAF_S_OK, provider.store(region));
            }
            if (isRemoved) {
                fs::remove(in("s"));
            } else {
                fs::resize_file(in("s"), 60);
            }
            TraceRecorder::reset();
            region.numbers[0] = 3;
            EXPECT_EQ(eAF_S_OK, provider.store(region));
            EXPECT_EQ(2U, provider.statistics().noOfValuesWritten);
            EXPECT_THAT(said(3), testing::Contains(AllOf(HasSubstr(in("s")), HasSubstr("it is read again"))));
            EXPECT_THAT(said(1), IsEmpty());
        }
        test::RunningProvider provider(in("s"));
        region.numbers = {0, 0};
        ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
        EXPECT_THAT(region.numbers, ElementsAre(3, 20));
    }
}

TEST_F(CFileStorageTest, AFullDisk_IsAnErrorThatNamesTheFileAndTheOldValuesStay) {
    StoredNumbers region(1);
    test::RunningProvider provider(in("s"));
    region.numbers[0] = 5;
    ASSERT_EQ(eAF_S_OK, provider.store(region));
    TraceRecorder::reset();
    {
        SystemCalls calls(folder.name());
        calls.failEach("write", ENOSPC);
        region.numbers[0] = 6;
        EXPECT_EQ(eAF_E_FAILED, provider.store(region));
        EXPECT_EQ(1u, calls.failures()) << "through the shared object";
    }
    EXPECT_THAT(said(1),
                ElementsAre(AllOf(HasSubstr(in("s")), HasSubstr("No space left"), HasSubstr("free some space"))));
    ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
    EXPECT_EQ(5, region.numbers[0]);
}

} // namespace
