// The store behind the file provider: generations, names, permissions, and what it leaves alone.
#include "FileStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "FileStoreFixture.h"
#include "SystemCalls.h"

namespace {

namespace fs = std::filesystem;
using storage::Access;
using storage::Bytes;
using storage::FileStore;
using storage::StoredValue;
using storage::StoredValues;
using test::SystemCalls;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class FileStoreTest : public test::FileStoreFixture {
protected:
    storage::UnpackedStore generation(const std::string &name) const {
        const std::string bytes = test::bytesOf(in(name));
        return storage::unpackStore({bytes.begin(), bytes.end()});
    }
    struct stat status(const std::string &name) const {
        struct stat status {};
        EXPECT_EQ(0, stat(in(name).c_str(), &status));
        return status;
    }
    mode_t mode(const std::string &name) const { return status(name).st_mode & 07777U; }
    void expectLeftAlone(const std::string &name, const std::string &bytes, const std::string &saying) {
        messages.clear();
        const auto before = folder.files();
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, write({value(1)}));
        EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(in(name)), HasSubstr(saying))));
        EAFResult code = eAF_S_OK;
        read(code, Access::readOnly);
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, code);
        EXPECT_EQ(bytes, test::bytesOf(in(name)));
        EXPECT_EQ(before, folder.files());
    }
};

TEST_F(FileStoreTest, EachWrite_KeepsTheGenerationBeforeAsTheSecondCopy) {
    for (std::int32_t i = 1; i <= 4; ++i) {
        ASSERT_EQ(eAF_S_OK, write({value(i)}));
    }
    EXPECT_EQ(2u, folder.files().size());
    EXPECT_EQ(4u, generation("s").generation);
    EXPECT_EQ(StoredValues{value(4)}, generation("s").values);
    EXPECT_EQ(3u, generation("s.1").generation);
    EXPECT_EQ(StoredValues{value(3)}, generation("s.1").values);
    EXPECT_THAT(messages.complaints(), IsEmpty());
}

TEST_F(FileStoreTest, Write_AddsAndReplacesByPathAndLeavesTheRest) {
    ASSERT_EQ(eAF_S_OK, write({value(1, "A"), value(2, "B"), value(3, "C")}));
    const StoredValue text{"B", TYPE_STRING, 3, {'x', 'y', 'z'}};
    ASSERT_EQ(eAF_S_OK, write({text, value(4, "D")}));
    EAFResult code = eAF_E_FAILED;
    EXPECT_THAT(read(code), UnorderedElementsAre(value(1, "A"), text, value(3, "C"), value(4, "D")));
    EXPECT_EQ(eAF_S_OK, code);
}

TEST_F(FileStoreTest, AWriteOfOnePathTwice_KeepsTheLast) {
    ASSERT_EQ(eAF_S_OK, write({value(1), value(2)}));
    EAFResult code = eAF_E_FAILED;
    EXPECT_THAT(read(code), ElementsAre(value(2)));
}

TEST_F(FileStoreTest, AStartWithoutAFile_IsAnEmptyStoreAndMakesNone) {
    EAFResult code = eAF_E_FAILED;
    EXPECT_THAT(read(code), IsEmpty());
    EXPECT_EQ(eAF_S_OK, code);
    ASSERT_EQ(eAF_S_OK, write({}));
    EXPECT_THAT(folder.files(), IsEmpty());
    EXPECT_THAT(messages.complaints(), IsEmpty());
}

TEST_F(FileStoreTest, AWriteOfWhatIsThere_ChangesNothingInTheFolder) {
    ASSERT_EQ(eAF_S_OK, write({value(1, "A"), value(2, "B")}));
    FileStore store(file);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    const SystemCalls calls(folder.name());
    EXPECT_EQ(eAF_S_OK, store.write({value(2, "B")}, messages));
    EXPECT_TRUE(calls.changes().empty());
    EXPECT_EQ(1u, generation("s").generation);
}

TEST_F(FileStoreTest, WithoutAnOpenStore_NothingIsReadOrWritten) {
    FileStore store(file);
    StoredValues values{value(1)};
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, store.read(values, messages));
    EXPECT_THAT(values, IsEmpty());
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, store.write({value(1)}, messages));
    EXPECT_THAT(folder.files(), IsEmpty());
}

TEST_F(FileStoreTest, Open_OfAnOpenStoreDoesNothing) {
    FileStore store(file);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    const SystemCalls calls(folder.name());
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    EXPECT_THAT(calls.calls(), IsEmpty());
}

TEST_F(FileStoreTest, AnOpenStore_KeepsASecondOneFromWritingAndNotFromReading) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    FileStore store(file);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, write({value(2)}));
    EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(file), HasSubstr(std::to_string(getpid())))));
    EXPECT_EQ(1, readOne(Access::readOnly));
}

TEST_F(FileStoreTest, AnOpenThatFailed_LetsGoOfItsLock) {
    test::writeBytes(file, "no store");
    FileStore store(file);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, store.open(Access::readWrite, messages));
    fs::remove(file);
    EXPECT_EQ(eAF_S_OK, write({value(1)}));
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, messages)) << "it may be asked again";
}

TEST_F(FileStoreTest, ALeftoverOfAKilledHost_IsRemovedByTheNextThatWritesAndByNoReader) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    test::writeBytes(in("s.new"), "half of somethi");
    EXPECT_EQ(1, readOne(Access::readOnly));
    EXPECT_EQ(2u, folder.files().size());
    EXPECT_EQ(1, readOne());
    EXPECT_EQ(1u, folder.files().size());
    EXPECT_THAT(messages.complaints(), IsEmpty());
}

TEST_F(FileStoreTest, ALinkInTheWayOfTheOneInTheMaking_IsNotFollowed) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    test::writeBytes(in("precious"), "somebody's");
    FileStore store(file);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    fs::create_symlink(in("precious"), in("s.new"));
    EXPECT_EQ(eAF_S_OK, store.write({value(2)}, messages));
    EXPECT_EQ("somebody's", test::bytesOf(in("precious")));
}

TEST_F(FileStoreTest, APermissionOfTheFile_IsKept) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    EXPECT_EQ(0600u, mode("s"));
    EXPECT_EQ(0600u, mode("s.1"));
    EXPECT_EQ(2, readOne());
}

TEST_F(FileStoreTest, ANewFile_HasThePermissionsThatTheProcessGives) {
    const mode_t earlier = umask(077);
    EXPECT_EQ(eAF_S_OK, write({value(1)}));
    umask(022);
    EXPECT_EQ(eAF_S_OK, write({value(2)}));
    umask(earlier);
    EXPECT_EQ(0600u, mode("s")) << "of the one before";
    fs::permissions(file, fs::perms(0666));
    EXPECT_EQ(eAF_S_OK, write({value(3)}));
    EXPECT_EQ(0666u, mode("s")) << "whatever the process gives to new ones";
}

TEST_F(FileStoreTest, APermissionThatCanNotBeKept_IsACodeAndLeavesTheOldValues) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    fs::permissions(file, fs::perms(0666));
    const mode_t earlier = umask(077);
    {
        SystemCalls calls(folder.name());
        calls.failEach("fchmod", EPERM);
        EXPECT_EQ(eAF_E_WRONG_ACCESS, write({value(2)}));
        EXPECT_EQ(1u, calls.failures());
    }
    umask(earlier);
    EXPECT_EQ(1, readOne());
}

TEST_F(FileStoreTest, APermissionOfTheOnlyGenerationLeft_IsKept) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    fs::permissions(in("s.1"), fs::perms(0640));
    fs::remove(file);
    ASSERT_EQ(eAF_S_OK, write({value(3)}));
    EXPECT_EQ(0640u, mode("s"));
}

TEST_F(FileStoreTest, AnOwnerOfTheFile_IsKeptWhereTheProcessMayGiveItAway) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may";
    }
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    ASSERT_EQ(0, chown(file.c_str(), 1234, 2345));
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    EXPECT_EQ(1234u, status("s").st_uid);
    EXPECT_EQ(2345u, status("s").st_gid);
    ASSERT_EQ(0, chown(file.c_str(), geteuid(), 2345));
    ASSERT_EQ(eAF_S_OK, write({value(2, "W")}));
    EXPECT_EQ(2345u, status("s").st_gid) << "the group alone";
    ASSERT_EQ(0, chown(file.c_str(), 1234, 2345));
    {
        SystemCalls calls(folder.name());
        calls.failEach("fchown", EPERM);
        ASSERT_EQ(eAF_S_OK, write({value(3)}));
        EXPECT_EQ(1u, calls.failures());
        calls.failEach("fchown", EIO);
        ASSERT_EQ(0, chown(file.c_str(), 1234, 2345));
        EXPECT_EQ(eAF_E_FAILED, write({value(4)}));
    }
    EXPECT_EQ(3, readOne());
}

TEST_F(FileStoreTest, FilesDatedBeyond2038_AreReadAndSucceeded) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    fs::create_symlink(file, in("link"));
    const timespec in2040{2208988800, 0}; // more seconds since 1970 than 31 bits hold
    const timespec dates[] = {in2040, in2040};
    for (const std::string &name : {in("s"), in("s.1"), in("s.lock"), folder.name()}) {
        ASSERT_EQ(0, utimensat(AT_FDCWD, name.c_str(), dates, 0));
    }
    EXPECT_EQ(2, readOne());
    ASSERT_EQ(eAF_S_OK, write({value(3)}));
    EXPECT_EQ(3, readOne());
    EXPECT_EQ(file, FileStore(in("link")).name());
    EXPECT_TRUE(messages.complaints().empty());
}

TEST_F(FileStoreTest, AnotherStoreOfAsManyGenerationsInItsPlace_IsReadAgainBeforeAnythingIsStored) {
    ASSERT_EQ(eAF_S_OK, write({value(1), value(1, "W")}));
    FileStore store(file);
    StoredValues values;
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    ASSERT_EQ(eAF_S_OK, store.read(values, messages));
    {
        FileStore other(in("other"));
        ASSERT_EQ(eAF_S_OK, other.open(Access::readWrite, messages));
        ASSERT_EQ(eAF_S_OK, other.write({value(7)}, messages));
    }
    fs::rename(in("other"), file);
    EXPECT_EQ(eAF_E_FAILED, store.write({value(2)}, messages));
    EXPECT_TRUE(store.isStale());
    EXPECT_THAT(messages.warnings(), ElementsAre(HasSubstr("is not what this process read or stored last")));
    ASSERT_EQ(eAF_S_OK, store.read(values, messages));
    EXPECT_EQ(StoredValues{value(7)}, values);
    EXPECT_EQ(eAF_S_OK, store.write({value(2)}, messages));
}

TEST_F(FileStoreTest, WhatIsNoStore_IsLeftAloneByteByByte) {
    for (const char *text : {"x", "Dear reader", "SQLite format 3", "zafstore and more"}) {
        folder.replaceFiles({{"s", text}});
        expectLeftAlone("s", text, "is no store");
        folder.replaceFiles({{"s", text}, {"s.1", "no store either"}});
        expectLeftAlone("s", text, "is no store");
        folder.replaceFiles({{"s.1", text}});
        expectLeftAlone("s.1", text, "is no store");
    }
}

TEST_F(FileStoreTest, AnUnknownVersion_IsLeftAloneInEitherFile) {
    Bytes bytes = storage::packStore({value(1)}, 1);
    test::setVersion(bytes, 2);
    const std::string newer(bytes.begin(), bytes.end());
    folder.replaceFiles({{"s", newer}});
    expectLeftAlone("s", newer, "format version 2");
    const Bytes known = storage::packStore({value(1)}, 2);
    folder.replaceFiles({{"s", newer}, {"s.1", {known.begin(), known.end()}}});
    expectLeftAlone("s", newer, "format version 2");
    folder.replaceFiles({{"s", {known.begin(), known.end()}}, {"s.1", newer}});
    expectLeftAlone("s.1", newer, "format version 2");
}

TEST_F(FileStoreTest, WhatIsNoPlainFile_IsLeftAloneAndNotWaitedFor) {
    for (const char *name : {"s", "s.1"}) {
        for (const bool isPipe : {true, false}) {
            folder.replaceFiles({});
            ASSERT_EQ(0, isPipe ? mkfifo(in(name).c_str(), 0600) : mkdir(in(name).c_str(), 0700));
            messages.clear();
            EXPECT_EQ(eAF_E_INVALID_ARGUMENT, write({value(1)}));
            EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(in(name)), HasSubstr("it is no plain file"))));
            EXPECT_EQ(-2, readOne(Access::readOnly));
            EXPECT_EQ(isPipe ? fs::file_type::fifo : fs::file_type::directory, fs::status(in(name)).type());
        }
    }
}

TEST_F(FileStoreTest, AMissingFolder_IsACodeForHostAndReader) {
    file = in("missing/s");
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, write({value(1)}));
    EXPECT_EQ(-2, readOne(Access::readOnly));
    EXPECT_THAT(messages.errors(),
                ElementsAre(AllOf(HasSubstr(file), HasSubstr("folder")), AllOf(HasSubstr(file), HasSubstr("folder"))));
}

TEST_F(FileStoreTest, AReader_ChangesNothingAndRefusesToWrite) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    fs::remove(file + ".lock");
    FileStore reader(file);
    const SystemCalls calls(folder.name());
    ASSERT_EQ(eAF_S_OK, reader.open(Access::readOnly, messages));
    EXPECT_EQ(eAF_E_WRONG_ACCESS, reader.write({value(2)}, messages));
    EXPECT_TRUE(calls.changes().empty());
    EXPECT_FALSE(fs::exists(file + ".lock"));
    EXPECT_EQ(1, readOne(Access::readOnly));
}

TEST_F(FileStoreTest, AFileThatMayNotBeWritten_IsNotReplacedUntilItMay) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    FileStore store(file);
    {
        SystemCalls calls(folder.name());
        calls.failEach("faccessat", EACCES); // as for another user than root
        ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
        EXPECT_THAT(messages.warnings(), ElementsAre(AllOf(HasSubstr(file), HasSubstr("can only be read"))));
        EXPECT_EQ(eAF_E_WRONG_ACCESS, store.write({value(2)}, messages));
        EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(file), HasSubstr("writable"))));
        EXPECT_TRUE(calls.changes().empty());
    }
    EXPECT_EQ(eAF_S_OK, store.write({value(3)}, messages)) << "the same store, once it may";
    EXPECT_EQ(StoredValues{value(3)}, generation("s").values);
}

TEST_F(FileStoreTest, AFolderThatTakesNoLockFile_IsReadAndWrittenOnceItDoes) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    for (const int error : {EROFS, ENOSPC, EACCES}) {
        messages.clear();
        FileStore store(file);
        StoredValues values;
        {
            SystemCalls calls(folder.name());
            calls.fail(0, error, SystemCalls::Lasting::once);
            ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
            ASSERT_EQ("open s.lock", calls.calls().front());
        }
        EXPECT_THAT(messages.complaints(), testing::Contains(AllOf(HasSubstr(file), HasSubstr("can only be read"))));
        EXPECT_EQ(error == EACCES ? 2U : 1U, messages.complaints().size()) << "the lock file is there, and refused";
        EXPECT_EQ(eAF_S_OK, store.read(values, messages));
        EXPECT_EQ(1u, values.size());
        EXPECT_EQ(eAF_S_OK, store.write({value(error)}, messages));
        EXPECT_EQ(StoredValues{value(error)}, generation("s").values);
    }
}

TEST_F(FileStoreTest, AStoreThatAnotherProcessTookMeanwhile_IsNotWrittenOnceTheDiskMayBe) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    FileStore store(file);
    {
        SystemCalls calls(folder.name());
        calls.fail(0, EROFS, SystemCalls::Lasting::once);
        ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    }
    storage::StoreLock faster;
    ASSERT_EQ(eAF_S_OK, faster.acquire(file, messages));
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, store.write({value(2)}, messages));
    EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr(file), HasSubstr("is in use by process"))));
    EXPECT_EQ(1, readOne(Access::readOnly));
    faster.release();
    EXPECT_EQ(eAF_S_OK, store.write({value(2)}, messages)) << "once it is free";
}

// A folder or a pipe in the place of one generation keeps nobody from the other.
TEST_F(FileStoreTest, WhatIsNoPlainFileBesideAWholeGeneration_IsSetAside) {
    for (const char *name : {"s", "s.1"}) {
        folder.replaceFiles({});
        ASSERT_EQ(eAF_S_OK, write({value(1)}));
        if (std::string(name) == "s") {
            fs::rename(in("s"), in("s.1"));
        }
        fs::create_directory(in(name));
        messages.clear();
        EXPECT_EQ(1, readOne()) << name;
        EXPECT_THAT(messages.warnings(), testing::Contains(AllOf(HasSubstr(in(name)), HasSubstr("it is no plain file"),
                                                                 HasSubstr("set aside as " + in("s.damaged-1")))));
        EXPECT_TRUE(fs::is_directory(in("s.damaged-1")));
        EXPECT_EQ(eAF_S_OK, write({value(2)}));
        EXPECT_EQ(2, readOne());
        fs::remove(in("s.damaged-1"));
    }
}

TEST_F(FileStoreTest, TheLockFileOfRoot_IsTheStoresOwners) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(0, chown(folder.name().c_str(), nobody, nobody));
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    struct stat status {};
    ASSERT_EQ(0, stat(in("s.lock").c_str(), &status));
    EXPECT_EQ(nobody, status.st_uid) << "the folder's, while there is no store";
    ASSERT_EQ(0, chown(folder.name().c_str(), 0, 0));
    ASSERT_EQ(0, chown(file.c_str(), nobody, nobody));
    fs::remove(in("s.lock"));
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    ASSERT_EQ(0, stat(in("s.lock").c_str(), &status));
    EXPECT_EQ(nobody, status.st_uid) << "the store's";
}

TEST_F(FileStoreTest, AValueThatIsNoVariables_IsRefusedWithAllThatCameWithIt) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    const StoredValue wrong[] = {{"Bad", TYPE_INT32, 1, {1, 2, 3}},
                                 {"Bad", TYPE_INT16_ARRAY, 2, {1, 2}},
                                 {"Bad", TYPE_OBJECT, 1, {1, 2, 3, 4}},
                                 {"Bad", TYPE_STRING, 0, {1}}};
    for (const StoredValue &bad : wrong) {
        messages.clear();
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, write({value(2), bad}));
        EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr("Bad"), HasSubstr(file))));
        EXPECT_EQ(1, readOne());
    }
}

TEST_F(FileStoreTest, AFileSystemWithoutHardLinks_KeepsTwoGenerationsToo) {
    for (const int error : {EPERM, EOPNOTSUPP, EMLINK}) {
        folder.replaceFiles({});
        SystemCalls calls(folder.name());
        calls.failEach("link", error);
        for (std::int32_t i = 1; i <= 3; ++i) {
            ASSERT_EQ(eAF_S_OK, write({value(i)}));
        }
        EXPECT_EQ(2u, calls.failures());
        EXPECT_EQ(StoredValues{value(3)}, generation("s").values);
        EXPECT_EQ(StoredValues{value(2)}, generation("s.1").values);
        EXPECT_THAT(messages.complaints(), IsEmpty());
    }
}

TEST_F(FileStoreTest, AStart_SyncsTheNamesThatAKilledHostLeft) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    const SystemCalls calls(folder.name());
    EXPECT_EQ(1, readOne());
    ASSERT_EQ(1u, calls.changes().size());
    EXPECT_EQ(test::Change::syncFolder, calls.changes()[0].kind);
    EXPECT_EQ(0u, calls.bytesWritten());
}

TEST_F(FileStoreTest, EveryDescriptor_IsClosedInAProgramThatIsRun) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    FileStore store(file);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages)); // holds its lock
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", ("! ls -l /proc/self/fd | grep -q " + folder.name()).c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST_F(FileStoreTest, ManyValues_ComeBackAsTheyWere) {
    StoredValues values;
    for (std::int32_t i = 0; i < 10000; ++i) {
        values.push_back(value(i * 7919, "Cfg/Object" + std::to_string(i / 100) + "/Variable" + std::to_string(i)));
    }
    values.push_back({"Large", TYPE_UINT8_ARRAY, 1U << 20U, Bytes(1U << 20U, 0xA5)});
    ASSERT_EQ(eAF_S_OK, write(values));
    EAFResult code = eAF_E_FAILED;
    EXPECT_TRUE(values == read(code));
}

} // namespace
